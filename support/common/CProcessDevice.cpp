// SPDX-License-Identifier: Apache-2.0
#include "support/common/CProcessDevice.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "support/common/Text.h"

namespace apigen::common {

namespace {

using namespace std::chrono_literals;

// A tool that dies closes its streams a moment before it can be collected.
constexpr auto FatePatience = 100ms;

// How often the end is asked for on a system that does not announce it.
constexpr int PollRoundMilliseconds = 10;

// What is read of standard error in one go. A tool's offspring may write to it for ever.
constexpr std::size_t ErrorRoundBytes = 64 * 1024;
constexpr std::size_t ErrorRestBytes = 1024 * 1024;

}  // namespace

CProcessDevice::CProcessDevice(const std::string& program, const std::vector<std::string>& arguments,
                               const std::unordered_map<std::string, std::string>& environment)
    : m_program(program),
      m_child(program, arguments, environment, m_streams),
      m_stream(CChannel::Pipes(m_streams.output.Get(), m_streams.input.Get()), *this) {}

std::string CProcessDevice::ReadRawText(unsigned long maxBytes, bool& flag) {
    return m_stream.ReadRawText(maxBytes, flag);
}

std::string CProcessDevice::ReadString() {
    return m_stream.ReadString();
}

void CProcessDevice::WriteString(const std::string& text) {
    m_stream.WriteString(text);
}

void CProcessDevice::SetDeadline(Clock::time_point deadline) {
    m_stream.SetDeadline(deadline);
}

void CProcessDevice::CloseInput(std::string_view reason) noexcept {
    m_stream.GiveUp(reason);
    m_streams.input.Close();
}

void CProcessDevice::CloseInputAndOutput(std::string_view reason) noexcept {
    CloseInput(reason);
    m_streams.output.Close();
}

void CProcessDevice::CloseAll(std::string_view reason) noexcept {
    CloseInputAndOutput(reason);
    DrainError(ErrorRestBytes);
    m_streams.error.Close();
}

bool CProcessDevice::AwaitEnd(Clock::time_point deadline, EOutput output) noexcept {
    while (!m_child.HasEnded()) {
        if (IsPast(deadline)) return false;
        std::array<pollfd, 3> set{
            pollfd{m_child.EndDescriptor(), POLLIN, 0}, pollfd{m_streams.error.Get(), POLLIN, 0},
            pollfd{output == EOutput::Discard ? m_streams.output.Get() : -1, POLLIN, 0}};
        int timeout = PollTimeout(deadline);
        if (m_child.EndDescriptor() < 0)
            timeout = timeout < 0 ? PollRoundMilliseconds : std::min(timeout, PollRoundMilliseconds);
        if (::poll(set.data(), set.size(), timeout) <= 0) continue;
        if (set[1].revents != 0) DrainError(ErrorRoundBytes);
        if (set[2].revents != 0) DiscardOutput();
    }
    DrainError(ErrorRestBytes);
    return true;
}

void CProcessDevice::DrainError(std::size_t maxBytes) noexcept {
    std::array<char, 16 * 1024> bytes;
    while (m_streams.error && maxBytes != 0) {
        const ssize_t count = RetryInterrupted(
            [&] { return ::read(m_streams.error.Get(), bytes.data(), std::min(bytes.size(), maxBytes)); });
        if (count < 0 && errno == EAGAIN) return;
        if (count <= 0) return m_streams.error.Close();
        m_tail.Append({bytes.data(), static_cast<std::size_t>(count)});
        maxBytes -= static_cast<std::size_t>(count);
    }
}

void CProcessDevice::DiscardOutput() noexcept {
    std::array<char, 16 * 1024> bytes;
    const ssize_t count =
        RetryInterrupted([&] { return ::read(m_streams.output.Get(), bytes.data(), bytes.size()); });
    if (count == 0 || (count < 0 && errno != EAGAIN)) m_streams.output.Close();
}

std::string CProcessDevice::Description() const {
    return Quoted(m_program) + " (pid " + std::to_string(m_child.Pid()) + ')';
}

std::string CProcessDevice::Peer() const {
    return Quoted(m_program);
}

void CProcessDevice::Watch(std::vector<pollfd>& set) {
    set.push_back({m_streams.error.Get(), POLLIN, 0});
    set.push_back({m_child.EndDescriptor(), POLLIN, 0});
}

void CProcessDevice::Woken() {
    DrainError(ErrorRoundBytes);
}

std::string CProcessDevice::Fate() {
    const auto deadline = std::min(m_stream.Deadline(), Clock::now() + FatePatience);
    std::string fate =
        AwaitEnd(deadline, EOutput::Keep) ? ". It " + EndingText(m_child.WaitStatus()) : std::string();
    return fate + LastWords();
}

std::string CProcessDevice::LastWords() {
    DrainError(ErrorRoundBytes);
    const std::string tail = m_tail.Text();
    return tail.empty() ? tail : ". Its last words: " + tail;
}

}  // namespace apigen::common
