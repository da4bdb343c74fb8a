// SPDX-License-Identifier: Apache-2.0
/// \file
/// The device on descriptors of any kind, whose waiting others can end.
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/Export.h>
#include <apigen/IIoDev.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/common/CDescriptor.h"
#include "support/common/CFrameStream.h"

namespace apigen::common {

class APIGEN_API CDescriptorDevice final : public IIoDev, private IStreamOwner {
public:
    /// A connected socket.
    explicit CDescriptorDevice(CDescriptor socket) noexcept
        : m_read(std::move(socket)), m_stream(CChannel::Socket(m_read.Get()), *this) {}

    /// Two descriptors that are ours alone; they become non-blocking.
    static std::unique_ptr<CDescriptorDevice> OfPair(CDescriptor read, CDescriptor write);

    /// Two descriptors whose flags others share. Deadlines and events count only where an operation would have to
    /// wait for a descriptor that is non-blocking.
    static std::unique_ptr<CDescriptorDevice> OfStandardStreams(CDescriptor read, CDescriptor write);

    /// An operation begun after the event has been set fails at once, even when data waits.
    void AddEvent(std::shared_ptr<io::event::IEvent> event);

    std::string ReadRawText(unsigned long maxBytes, bool& flag) override;
    std::string ReadString() override;
    std::string_view ReadView();
    std::string_view ReadMessage(std::string&) override { return ReadView(); }
    void WriteString(const std::string& text) override;
    void SetDeadline(Clock::time_point deadline) override { m_stream.SetDeadline(deadline); }
    void WriteLater(const std::string& text) override;
    void SendQueued() override;
    void SetEvent(const io::event::IEvent* event) override { m_stream.SetEvent(event); }
    std::string WhyEnded() override;
    std::string Peer() const override { return m_write ? "the client" : "the peer of the socket"; }

private:
    /// Of two descriptors, as a service has them: it is sent secrets.
    CDescriptorDevice(CDescriptor read, CDescriptor write, CChannel channel) noexcept
        : m_read(std::move(read)), m_write(std::move(write)), m_stream(channel, *this) {
        m_stream.WipeInput();
    }

    short Wait(short events, Clock::time_point deadline) override;

    CFrameStream& Checked();

    CDescriptor m_read;
    CDescriptor m_write;  // none where one descriptor serves both ways
    std::vector<std::shared_ptr<io::event::IEvent>> m_events;
    CFrameStream m_stream;
    std::vector<pollfd> m_pollSet;  // kept, so that a wait needs no memory
};

}  // namespace apigen::common
