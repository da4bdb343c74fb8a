// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IIoDev.h>
#include <apigen/ILogger.h>
#include <apigen/Owned.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace apigen APIGEN_API {

/// How a child process ended. True when it exited with 0. A caller that ignores SIGCHLD, or collects every
/// child itself, may make that unknown, which counts as a failure.
class CProcessExitCode {
public:
    /// \param waitStatus the status as `waitpid` reports it; -1 when it is not known
    /// \param program    what ran
    /// \param lastWords  the end of what it said on standard error, fit to be shown
    CProcessExitCode(int waitStatus, std::string program, std::string lastWords = {});

    /// True when it exited with 0.
    explicit operator bool() const noexcept;

    /// False when nobody can tell any more how the child ended.
    bool IsKnown() const noexcept;

    /// \throws ProcessFailedError that says what ran, how it ended and its last words. Always throws.
    [[noreturn]] void GenerateException() const;

private:
    int m_waitStatus;
    std::string m_program;
    std::string m_lastWords;
};

/// A child process whose standard streams belong to this object.
///
/// Nothing leaks into the child: signal mask and dispositions are reset, and of the caller's descriptors
/// it gets its three standard streams only, which are pipes. It is in a process group of its own, so
/// that a Ctrl-C or a hang-up on the caller's terminal is the caller's business alone. The last lines of its standard error are
/// kept for error messages.
///
/// In a copy of the caller made by `fork` the object does nothing to the child: it closes its descriptors, no more.
class CProcess {
public:
    /// Starts `program`, looked up in the caller's `PATH` unless its name holds a `/`.
    /// \param environment variables added to the caller's environment
    /// \param logger      may be empty
    /// \throws ProcessLaunchError when it can't be started.
    CProcess(const std::string& program, const std::vector<std::string>& arguments,
             std::unordered_map<std::string, std::string> environment, std::shared_ptr<ILogger> logger);
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    /// Ends and reaps the child: closes its input, gives it 2 s to exit, sends SIGTERM, and SIGKILL 1 s
    /// later. One that can't be ended, because it runs as another user say, is left behind after one more second,
    /// which the logger is told.
    ~CProcess();

    /// The device on the child's standard input and output; valid as long as somebody holds it.
    std::shared_ptr<IIoDev> GetIoDev() const;

    /// Closes the child's streams and waits for its end.
    /// \throws TimeoutError when the child is still running at the device's deadline, InterruptedError when it is once
    /// the device's event has been set.
    CProcessExitCode GetExitCode();

    /// Gives the child up: closes its streams and sends SIGTERM. A child that ends at once, as most do, is reaped;
    /// for any other, `Tend` or the destructor finishes the work.
    void Abandon() noexcept;

    /// As `Abandon`, with SIGKILL and without waiting: for a child that has no work worth finishing.
    void Kill() noexcept;

    /// Takes care of a child that was given up, without waiting: reaps it when it has ended, and sends SIGKILL when
    /// it should have by now.
    void Tend() noexcept;

    /// The process id; meaningful until the child is reaped.
    int Pid() const noexcept;

private:
    class Impl;
    detail::COwned<Impl> m_impl;
};

}  // namespace apigen
