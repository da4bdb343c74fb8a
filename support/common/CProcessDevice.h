// SPDX-License-Identifier: Apache-2.0
/// \file
/// The device on a child's standard streams.
#pragma once

#include <apigen/Export.h>
#include <apigen/IIoDev.h>

#include <string>
#include <string_view>

#include "support/common/CChildProcess.h"
#include "support/common/CFrameStream.h"
#include "support/common/CInputWatch.h"
#include "support/common/COutputTail.h"

namespace apigen::common {

/// Frames, or plain output, on the child's standard input and output; collects its standard error meanwhile, so
/// that the child never blocks on it. Outlives the process when somebody holds it.
class APIGEN_API CProcessDevice final : public IIoDev, private IStreamOwner {
public:
    /// \param start gets the three streams in addition to what it says
    explicit CProcessDevice(SChildStart start);

    /// Goes as far as the child has written: offspring that holds its output open is not waited for.
    std::string ReadRawText(unsigned long maxBytes, bool& flag) override;
    std::string ReadString() override;
    std::string_view ReadMessage(std::string& room) override;
    void WriteString(const std::string& text) override;
    void SetDeadline(Clock::time_point deadline) override;
    void WriteLater(const std::string& text) override;
    void SendQueued() override;
    void SetEvent(const io::event::IEvent* event) override { m_stream.SetEvent(event); }
    std::string WhyEnded() override;

    std::string Peer() const override;

    CChildProcess& Child() noexcept { return m_child; }

    /// Later operations throw PeerGoneError with the reason.
    void CloseInput(std::string_view reason) noexcept;
    void CloseInputAndOutput(std::string_view reason) noexcept;
    void CloseAll(std::string_view reason);

    /// Waits for the child's end, emptying its standard error and throwing its output away meanwhile; false when
    /// it is still running at `deadline`.
    bool AwaitEnd(Clock::time_point deadline) { return AwaitEnd(deadline, EOutput::Discard, nullptr); }

    /// The same as an operation of the device.
    /// \throws TimeoutError at the device's deadline, InterruptedError once its event is set
    void RequireEnd();

    /// `"prog" (pid 7)`.
    std::string Description() const;

    /// The last lines of standard error so far, escaped.
    std::string ErrorTail() const { return m_tail.Text(); }

private:
    /// What becomes of output that has not been read while the end is awaited.
    enum class EOutput {
        Keep,
        Discard
    };

    /// Our ends. `Input` is what we write to.
    struct SStreams {
        CDescriptor Input;
        CDescriptor Output;
        CDescriptor Error;
    };

    static CChildProcess StartWithStreams(SChildStart&& start, SStreams& ours);

    short Wait(short events, Clock::time_point deadline) override;
    std::string Epitaph(bool isGone) override;

    /// The tail of standard error as a sentence to append to a message; empty when there is nothing.
    std::string LastWords();
    bool AwaitEnd(Clock::time_point deadline, EOutput output, const io::event::IEvent* event);
    void DrainError(std::size_t maxBytes);
    void DiscardOutput();

    std::string m_program;
    SStreams m_streams;
    CChildProcess m_child;
    CFrameStream m_stream;
    CInputWatch m_watch;  // as long as all that it watches is open
    COutputTail m_tail;
};

}  // namespace apigen::common
