// SPDX-License-Identifier: Apache-2.0
/// \file
/// The device on a child's standard streams.
#pragma once

#include <apigen/IIoDev.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "support/common/CChildProcess.h"
#include "support/common/CFrameStream.h"
#include "support/common/COutputTail.h"

namespace apigen::common {

/// Frames on the child's standard input and output; collects its standard error meanwhile, so that the
/// child never blocks on it. Outlives the process when somebody holds it.
class CProcessDevice final : public IIoDev, private IStreamOwner {
public:
    CProcessDevice(const std::string& program, const std::vector<std::string>& arguments,
                   const std::unordered_map<std::string, std::string>& environment);

    std::string ReadRawText(unsigned long maxBytes, bool& flag) override;
    std::string ReadString() override;
    void WriteString(const std::string& text) override;
    void SetDeadline(Clock::time_point deadline) override;

    Clock::time_point Deadline() const noexcept { return m_stream.Deadline(); }
    CChildProcess& Child() noexcept { return m_child; }

    /// Later operations throw PeerGoneError with the reason.
    void CloseInput(std::string_view reason) noexcept;
    void CloseInputAndOutput(std::string_view reason) noexcept;
    void CloseAll(std::string_view reason) noexcept;

    /// What becomes of output that has not been read while the end is awaited.
    enum class EOutput {
        Keep,
        Discard
    };

    /// Waits for the child's end, emptying its standard error meanwhile; false when it is still running at
    /// `deadline`.
    bool AwaitEnd(Clock::time_point deadline, EOutput output) noexcept;

    /// `"prog" (pid 7)`.
    std::string Description() const;

    /// The last lines of standard error so far, escaped.
    std::string ErrorTail() const { return m_tail.Text(); }

    /// The same as a sentence to append to a message; empty when there is nothing.
    std::string LastWords() override;

private:
    std::string Peer() const override;
    void Watch(std::vector<pollfd>& set) override;
    void Woken() override;
    bool HasPeerEnded() override { return m_child.HasEnded(); }
    std::string Fate() override;

    void DrainError(std::size_t maxBytes) noexcept;
    void DiscardOutput() noexcept;

    std::string m_program;
    SChildStreams m_streams;
    CChildProcess m_child;
    CFrameStream m_stream;
    COutputTail m_tail;
};

}  // namespace apigen::common
