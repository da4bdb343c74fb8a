// SPDX-License-Identifier: Apache-2.0
/// \file
/// Starting, watching and collecting a child process: every child of ours is one of these.
#pragma once

#include <apigen/Export.h>

#include <poll.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"
#include "support/common/Waiting.h"

namespace apigen::common {

/// What a child is made of.
struct SChildStart {
    enum class EGroup {
        OwnSession,  ///< without a terminal
        OwnGroup,    ///< neither Ctrl-C nor a hang-up of the caller's terminal reaches it, as in a session
        CallersGroup,
    };

    /// A descriptor that the child has under another number; it stays its owner's.
    struct SGiven {
        int Target;
        int Source;
    };

    std::string Program;                   ///< looked up in the caller's PATH when it holds no slash
    std::vector<std::string> Arguments;    ///< without the program's name
    std::vector<std::string> Environment;  ///< entries NAME=VALUE, all that the child gets
    std::string Folder;                    ///< where it starts; empty: where the caller is
    std::vector<SGiven> Descriptors;       ///< all that the child has open
    EGroup Group = EGroup::OwnSession;
    int EndSignal = SIGTERM;  ///< what asks it to end
};

/// The caller's environment with the additions in place of variables of the same name.
/// \throws ProcessLaunchError that names `program` when an addition can't be a variable
APIGEN_API std::vector<std::string> EnvironmentWith(
    const std::string& program, const std::unordered_map<std::string, std::string>& additions);

/// A pipe to a child, clear of the standard streams' numbers: our end is non-blocking, the child's is as programs
/// expect it.
struct SPipe {
    CDescriptor Ours;
    CDescriptor Theirs;
};

/// \throws ProcessLaunchError that names `program`
APIGEN_API SPipe MakePipeToRead(const std::string& program);
APIGEN_API SPipe MakePipeToWrite(const std::string& program);

/// Takes what a child has written, so many bytes at most: its offspring may write for ever. Closes our end when nobody
/// has the other one any more.
/// \param take called with each piece
/// \return whether anything had come
template <class Take>
bool DrainPipe(CDescriptor& ours, std::size_t maxBytes, Take&& take) {
    std::array<char, std::size_t{16} * 1024> bytes;
    bool hasCome = false;
    while (ours && maxBytes != 0) {
        const ssize_t count = RetryInterrupted(
            [&] { return ::read(ours.Get(), bytes.data(), std::min(bytes.size(), maxBytes)); });
        if (count < 0 && errno == EAGAIN) break;
        if (count <= 0) {
            ours.Close();
            break;
        }
        hasCome = true;
        maxBytes -= static_cast<std::size_t>(count);
        take(std::string_view(bytes.data(), static_cast<std::size_t>(count)));
    }
    return hasCome;
}

/// A running child. It has no signal blocked, none ignored and no descriptor but those that it is given, whatever
/// its caller has set or leaked. In a copy of the caller made by `fork` the child is left alone.
///
/// A thread at a time.
class APIGEN_API CChildProcess {
public:
    /// The wait status of a child whose ending nobody can tell any more: the caller ignores SIGCHLD, or has
    /// collected the child elsewhere.
    static constexpr int UnknownStatus = -1;

    /// \throws ProcessLaunchError
    explicit CChildProcess(const SChildStart& start);
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    /// Kills and collects a child that is still running, unless it can't be killed.
    ~CChildProcess();

    pid_t Pid() const noexcept { return m_pid; }

    /// True when the child has ended; it is collected then.
    bool HasEnded();

    /// As `waitpid` reports it; of a child that has ended.
    int WaitStatus() const noexcept { return m_waitStatus; }

    /// Waits until the child has ended, one of `others` is ready, or the deadline has passed. May return early.
    /// \return whether the child may have ended: `HasEnded` is worth asking
    bool AwaitNews(pollfd* others, std::size_t count, Clock::time_point deadline);

    /// What becomes readable when the child ends; -1 where the system has no such thing.
    int EndToPoll() const noexcept { return m_pidfd.Get(); }

    /// Waits for the end; false when the child is still running at the deadline.
    bool AwaitEnd(Clock::time_point deadline);

    void AskToEnd() { Signal(m_endSignal); }
    void Kill() { Signal(SIGKILL); }

private:
    void Signal(int signal);

    pid_t m_pid = -1;
    int m_endSignal;
    CDescriptor m_pidfd;  ///< becomes readable when the child ends; none where the system has none
    bool m_ended = false;
    int m_waitStatus = UnknownStatus;
    CProcessMark m_origin;
};

}  // namespace apigen::common
