// SPDX-License-Identifier: Apache-2.0
/// \file
/// Starting, watching and collecting a child process.
#pragma once

#include <sys/types.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "support/common/CDescriptor.h"

namespace apigen::common {

/// Our ends of a child's standard streams. `input` is what we write to.
struct SChildStreams {
    CDescriptor input;
    CDescriptor output;
    CDescriptor error;
};

class CChildProcess {
public:
    /// The wait status of a child whose ending nobody can tell any more.
    static constexpr int UnknownStatus = -1;

    /// Starts `program` and fills in our ends of its streams.
    /// \throws ProcessLaunchError
    CChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                  const std::unordered_map<std::string, std::string>& environment, SChildStreams& streams);
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    /// Kills and collects a child that is still running.
    ~CChildProcess();

    pid_t Pid() const noexcept { return m_pid; }

    /// Becomes readable when the child ends; -1 on a system that can't tell.
    int EndDescriptor() const noexcept { return m_pidfd.Get(); }

    /// True when the child has ended; it is collected then.
    bool HasEnded() noexcept;

    /// As `waitpid` reports it; of a child that has ended.
    int WaitStatus() const noexcept { return m_waitStatus; }

    void Signal(int signal) noexcept;

private:
    pid_t m_pid = -1;
    CDescriptor m_pidfd;
    bool m_ended = false;
    int m_waitStatus = UnknownStatus;
};

}  // namespace apigen::common
