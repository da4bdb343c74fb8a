// SPDX-License-Identifier: Apache-2.0
#include "agent/host/RunChild.h"

#include <apigen/ApiException.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "support/common/CDescriptor.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using apigen::common::CChildProcess;
using apigen::common::CDescriptor;
using apigen::common::Clock;
using apigen::common::RetryInterrupted;

constexpr std::size_t LongestLine = 256 * 1024;

/// How long a child that is killed may take, and how much one says between two looks for a stop.
constexpr auto KillPatience = std::chrono::seconds(5);
constexpr std::size_t RoundBytes = 256 * 1024;
constexpr int MostRounds = 256;

/// Bytes in, lines out.
class CLines {
public:
    CLines(CDescriptor pipe, const SChildTask::LineHandler& handler)
        : m_pipe(std::move(pipe)), m_handler(handler) {}

    int Descriptor() const noexcept { return m_pipe.Get(); }

    /// True when something came.
    bool Read() {
        return apigen::common::DrainPipe(m_pipe, RoundBytes, [this](std::string_view bytes) { Take(bytes); });
    }

    /// What stays in the pipe when the child has ended.
    void Finish() {
        // Bounded: somebody who has left the group may go on writing.
        for (int rounds = 0; rounds < MostRounds && m_pipe && Read(); ++rounds) {
        }
        if (!m_line.empty()) Hand();
    }

private:
    void Take(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto end = bytes.find('\n');
            const auto part = bytes.substr(0, end);
            m_line.append(part.substr(0, std::min(part.size(), LongestLine - m_line.size())));
            if (end == std::string_view::npos) return;
            Hand();
            bytes.remove_prefix(end + 1);
        }
    }

    void Hand() {
        if (m_line.ends_with('\r')) m_line.pop_back();
        if (m_handler) m_handler(m_line);
        m_line.clear();
    }

    CDescriptor m_pipe;
    const SChildTask::LineHandler& m_handler;
    std::string m_line;
};

/// The child's group, which it leads: ended with it, whatever becomes of us.
class CGroup {
public:
    explicit CGroup(CChildProcess& child) noexcept : m_child(child) {}
    CGroup(const CGroup&) = delete;
    CGroup& operator=(const CGroup&) = delete;
    ~CGroup() {
        if (m_isCollected) return;
        Signal(SIGKILL);
        m_child.AwaitEnd(apigen::common::DeadlineAfter(KillPatience));
    }

    /// Only before the child is collected: its number is nobody else's until then.
    void Signal(int signal) const noexcept { ::kill(-m_child.Pid(), signal); }

    /// True when the child has ended; those that it has left behind are killed first.
    bool HasEnded() {
        if (m_isCollected) return true;
        siginfo_t info{};
        const int result = RetryInterrupted([&] {
            return ::waitid(P_PID, static_cast<id_t>(m_child.Pid()), &info, WEXITED | WNOHANG | WNOWAIT);
        });
        if (result == 0 && info.si_pid == 0) return false;
        if (result == 0) Signal(SIGKILL);
        return m_isCollected = m_child.HasEnded();
    }

private:
    CChildProcess& m_child;
    bool m_isCollected = false;
};

CDescriptor OpenNull(const std::string& program) {
    CDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!null)
        throw apigen::ProcessLaunchError("Cannot start \"" + program + "\": /dev/null can't be opened",
                                         errno);
    return null;
}

}  // namespace

SChildOutcome RunChild(const SChildTask& task, const std::stop_token& stop) {
    using apigen::common::DeadlineAfter;
    using apigen::common::MakePipeToRead;
    using apigen::common::SChildStart;

    const CDescriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const std::stop_callback waker(stop, [&wake]() noexcept {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(wake.Get(), &one, sizeof one);
    });
    const bool isOutputKept = task.OutputFile >= 0;
    const bool isJoined = !task.OnErrors;
    SChildStart start = task.Start;
    start.Group = SChildStart::EGroup::OwnGroup;
    CDescriptor null = OpenNull(start.Program);
    auto output = MakePipeToRead(start.Program);
    auto errors = MakePipeToRead(start.Program);
    start.Descriptors.push_back({STDIN_FILENO, null.Get()});
    start.Descriptors.push_back({STDOUT_FILENO, isOutputKept ? task.OutputFile : output.Theirs.Get()});
    start.Descriptors.push_back({STDERR_FILENO, isJoined ? output.Theirs.Get() : errors.Theirs.Get()});

    CChildProcess child(start);
    CGroup group(child);
    if (task.OnStart) task.OnStart(child.Pid());
    output.Theirs.Close();
    errors.Theirs.Close();
    null.Close();
    CLines outputLines(std::move(output.Ours), task.OnOutput);
    CLines errorLines(std::move(errors.Ours), task.OnErrors);

    const auto limit = task.Limit ? DeadlineAfter(*task.Limit) : Clock::time_point::max();
    const auto nextSilence = [&] {
        return task.SilenceLimit ? DeadlineAfter(*task.SilenceLimit) : Clock::time_point::max();
    };
    auto silence = nextSilence();
    auto kill = Clock::time_point::max();
    bool isKilled = false;
    SChildOutcome outcome;
    const auto end = [&](EChildEnd reason, bool isPolite) {
        if (outcome.End != EChildEnd::ByItself) return;
        outcome.End = reason;
        if (isPolite) group.Signal(start.EndSignal);
        kill = isPolite ? DeadlineAfter(task.StopPatience) : Clock::now();
    };

    while (!group.HasEnded()) {
        const bool isEnding = outcome.End != EChildEnd::ByItself;
        std::array<pollfd, 3> set{pollfd{outputLines.Descriptor(), POLLIN, 0},
                                  pollfd{errorLines.Descriptor(), POLLIN, 0},
                                  pollfd{isEnding ? -1 : wake.Get(), POLLIN, 0}};
        auto deadline = isEnding ? kill : std::min(limit, silence);
        if (isKilled) deadline = DeadlineAfter(KillPatience);
        child.AwaitNews(set.data(), set.size(), deadline);
        const bool hasOutput = outputLines.Read();
        const bool hasSpoken = errorLines.Read() || hasOutput;
        if (hasSpoken) silence = nextSilence();
        if (stop.stop_requested()) end(EChildEnd::Stopped, true);
        if (hasSpoken && task.ShouldEnd && task.ShouldEnd()) end(EChildEnd::GivenUp, true);
        if (apigen::common::IsPast(limit)) end(EChildEnd::TimedOut, true);
        if (apigen::common::IsPast(silence)) end(EChildEnd::Silent, true);
        if (isKilled && apigen::common::IsPast(deadline)) break;  // hangs in the system; left behind
        if (!isKilled && apigen::common::IsPast(kill)) {
            group.Signal(SIGKILL);
            isKilled = true;
        }
    }
    outputLines.Finish();
    errorLines.Finish();
    outcome.WaitStatus = child.WaitStatus();
    return outcome;
}

}  // namespace tarvo
