// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/Export.h>
#include <apigen/IIoDev.h>
#include <apigen/Owned.h>

#include <memory>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

/// A device on a connected socket, or on two descriptors, whose waiting ends early once one of its events is set.
/// An operation begun after that fails at once too, even when data waits.
class CInterruptibleIoDev final : public IIoDev {
public:
    /// Takes ownership of `fd`, a connected stream socket.
    explicit CInterruptibleIoDev(int fd);

    /// Takes ownership of two descriptors, one to read from and one to write to, the ends of two pipes say, and makes
    /// them non-blocking.
    /// \throws std::system_error when they can't be
    CInterruptibleIoDev(int readFd, int writeFd);
    CInterruptibleIoDev(const CInterruptibleIoDev&) = delete;
    CInterruptibleIoDev& operator=(const CInterruptibleIoDev&) = delete;
    ~CInterruptibleIoDev() override;

    /// Registers an event; to be called before the device is used by another thread.
    void AddEvent(std::shared_ptr<io::event::IEvent> event);

    std::string ReadRawText(unsigned long maxBytes, bool& flag) override;
    std::string ReadString() override;

    /// As `ReadString`, without a copy: valid until the device is used again.
    std::string_view ReadView();

    void WriteString(const std::string& text) override;
    void SetDeadline(Clock::time_point deadline) override;
    void WriteLater(const std::string& text) override;
    void SendQueued() override;
    void SetEvent(const io::event::IEvent* event) override;
    std::string Peer() const override;
    std::string WhyEnded() override;

private:
    class Impl;
    detail::COwned<Impl> m_impl;
};

}  // namespace apigen
