// SPDX-License-Identifier: Apache-2.0
#include "support/common/CProcessDevice.h"

#include <apigen/ApiException.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "support/common/Text.h"

namespace apigen::common {

namespace {

using namespace std::chrono_literals;

// A tool that dies closes its streams a moment before it can be collected.
constexpr auto FatePatience = 100ms;

// What is taken in one go, and of what is left at the end.
constexpr std::size_t RoundBytes = 64 * 1024;
constexpr std::size_t ErrorRestBytes = 1024 * 1024;

}  // namespace

/// A function, so that the streams are there before the child that is made with them.
CChildProcess CProcessDevice::StartWithStreams(SChildStart&& start, SStreams& ours) {
    SPipe input = MakePipeToWrite(start.Program);
    SPipe output = MakePipeToRead(start.Program);
    SPipe error = MakePipeToRead(start.Program);
    start.Descriptors.push_back({STDIN_FILENO, input.Theirs.Get()});
    start.Descriptors.push_back({STDOUT_FILENO, output.Theirs.Get()});
    start.Descriptors.push_back({STDERR_FILENO, error.Theirs.Get()});
    ours = {std::move(input.Ours), std::move(output.Ours), std::move(error.Ours)};
    return CChildProcess(start);
}

CProcessDevice::CProcessDevice(SChildStart start)
    : m_program(start.Program),
      m_child(StartWithStreams(std::move(start), m_streams)),
      m_stream(CChannel::Pipes(m_streams.Output.Get(), m_streams.Input.Get()), *this),
      m_watch(m_streams.Output.Get(), {m_streams.Error.Get(), m_child.EndToPoll()}) {}

std::string CProcessDevice::ReadRawText(unsigned long maxBytes, bool& flag) {
    return m_stream.ReadRawText(maxBytes, flag);
}

std::string CProcessDevice::ReadString() {
    return m_stream.ReadString();
}

std::string_view CProcessDevice::ReadMessage(std::string& room) {
    return m_stream.ReadMessage(room);
}

void CProcessDevice::WriteString(const std::string& text) {
    m_stream.WriteString(text);
}

void CProcessDevice::WriteLater(const std::string& text) {
    m_stream.WriteLater(text);
}

void CProcessDevice::SendQueued() {
    m_stream.SendQueued();
}

void CProcessDevice::SetDeadline(Clock::time_point deadline) {
    m_stream.SetDeadline(deadline);
}

void CProcessDevice::CloseInput(std::string_view reason) noexcept {
    m_stream.GiveUp(reason);
    m_streams.Input.Close();
}

void CProcessDevice::CloseInputAndOutput(std::string_view reason) noexcept {
    CloseInput(reason);
    m_watch.Close();
    m_streams.Output.Close();
}

void CProcessDevice::CloseAll(std::string_view reason) {
    CloseInputAndOutput(reason);
    DrainError(ErrorRestBytes);
    m_streams.Error.Close();
}

void CProcessDevice::RequireEnd() {
    const auto* const event = m_stream.Event();
    if (AwaitEnd(m_stream.Deadline(), EOutput::Discard, event)) return;
    const std::string attempt = "Cannot get the exit code of " + Description() + ": ";
    if (m_stream.IsInterrupted()) throw InterruptedError(attempt + event->Reason() + LastWords());
    throw TimeoutError(attempt + "it did not end in time" + LastWords());
}

bool CProcessDevice::AwaitEnd(Clock::time_point deadline, EOutput output, const io::event::IEvent* event) {
    while (!m_child.HasEnded()) {
        if (IsPast(deadline) || (event != nullptr && event->IsSet())) return false;
        std::array<pollfd, 3> set{pollfd{m_streams.Error.Get(), POLLIN, 0},
                                  pollfd{output == EOutput::Discard ? m_streams.Output.Get() : -1, POLLIN, 0},
                                  pollfd{event != nullptr ? event->Descriptor() : -1, POLLIN, 0}};
        m_child.AwaitNews(set.data(), set.size(), deadline);
        if (set[0].revents != 0) DrainError(RoundBytes);
        if (set[1].revents != 0) DiscardOutput();
    }
    DrainError(ErrorRestBytes);
    return true;
}

void CProcessDevice::DrainError(std::size_t maxBytes) {
    DrainPipe(m_streams.Error, maxBytes, [this](std::string_view text) { m_tail.Append(text); });
    if (!m_streams.Error) m_watch.Close();
}

void CProcessDevice::DiscardOutput() {
    DrainPipe(m_streams.Output, RoundBytes, [](std::string_view /*text*/) {});
    if (!m_streams.Output) m_watch.Close();
}

std::string CProcessDevice::Description() const {
    return Quoted(m_program) + " (pid " + std::to_string(m_child.Pid()) + ')';
}

std::string CProcessDevice::Peer() const {
    return Quoted(m_program);
}

short CProcessDevice::Wait(short events, Clock::time_point deadline) {
    const bool isWatched = events == POLLIN && m_watch && m_stream.EventToPoll().fd < 0;
    if (isWatched && m_watch.AwaitOnlyInput(deadline)) return POLLIN;
    for (;;) {
        const auto ends = m_stream.PollSet(events);
        std::array<pollfd, 4> set{ends[0], ends[1], pollfd{m_streams.Error.Get(), POLLIN, 0},
                                  m_stream.EventToPoll()};
        const bool mayHaveEnded = m_child.AwaitNews(set.data(), set.size(), deadline);
        if (set[2].revents != 0) DrainError(RoundBytes);
        const short ready = CChannel::Ready(set.data());
        if (ready != 0 || IsPast(deadline) || m_stream.IsInterrupted()) return ready;
        if (!mayHaveEnded || !m_child.HasEnded()) continue;
        // It may have written its last words after the streams were looked at and before its end was.
        auto input = m_stream.PollSet(static_cast<short>(events & POLLIN));
        PollPatiently(input.data(), input.size(), 0);
        return CChannel::Ready(input.data()) != 0 ? POLLIN : POLLHUP;
    }
}

std::string CProcessDevice::WhyEnded() {
    if (m_child.HasEnded()) return Description() + ' ' + EndingText(m_child.WaitStatus()) + LastWords();
    if (!m_streams.Output) return Description() + " was given up";
    auto set = m_stream.PollSet(POLLIN);
    ::poll(set.data(), set.size(), 0);
    return (set[0].revents & POLLHUP) != 0 ? Description() + " has closed its output" + LastWords()
                                           : std::string();
}

std::string CProcessDevice::Epitaph(bool isGone) {
    if (!isGone) return LastWords();
    const auto deadline = std::min(m_stream.Deadline(), DeadlineAfter(FatePatience));
    std::string fate = AwaitEnd(deadline, EOutput::Keep, nullptr) ? ". It " + EndingText(m_child.WaitStatus())
                                                                  : std::string();
    return fate + LastWords();
}

std::string CProcessDevice::LastWords() {
    DrainError(RoundBytes);
    const std::string tail = m_tail.Text();
    return tail.empty() ? tail : ". Its last words: " + tail;
}

}  // namespace apigen::common
