// SPDX-License-Identifier: Apache-2.0
#include "support/common/CChildProcess.h"

#include <apigen/ApiException.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "support/common/CSpawn.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace apigen::common {

namespace {

/// An errno on its way to the one place that words the message.
struct SLaunchFailure {
    int errorNumber;
    std::string detail = {};
};

void Require(bool success) {
    if (!success) throw SLaunchFailure{errno};
}

/// The descriptor, moved out of 0..2: a caller that has closed its standard streams must not find ours in
/// their place.
CDescriptor AwayFromStandardStreams(int fd) {
    CDescriptor descriptor(fd);
    if (fd > STDERR_FILENO) return descriptor;
    CDescriptor moved(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    Require(static_cast<bool>(moved));
    return moved;
}

struct SPipe {
    CDescriptor ours;
    CDescriptor theirs;
};

/// \param ourEnd 0 to read, 1 to write. Our end is non-blocking; the child's is as programs expect it.
SPipe MakePipe(int ourEnd) {
    int fds[2];
    Require(::pipe2(fds, O_CLOEXEC) == 0);
    CDescriptor theirs(fds[1 - ourEnd]);
    CDescriptor ours = AwayFromStandardStreams(fds[ourEnd]);
    Require(::fcntl(ours.Get(), F_SETFL, O_NONBLOCK) == 0);
    return {std::move(ours), std::move(theirs)};
}

/// A text that C strings carry whole; `what` names it, since the text itself may be a secret.
const std::string& WithoutNul(const std::string& text, const char* what) {
    if (text.find('\0') != std::string::npos)
        throw SLaunchFailure{EINVAL, std::string(what) + " holds a NUL character"};
    return text;
}

std::vector<std::string> ArgumentTexts(const std::string& program,
                                       const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{WithoutNul(program, "its name")};
    for (const std::string& argument : arguments)
        texts.push_back(WithoutNul(argument, "an argument"));
    return texts;
}

/// The caller's environment with the additions in place of variables of the same name.
std::vector<std::string> EnvironmentTexts(const std::unordered_map<std::string, std::string>& additions) {
    std::vector<std::string> texts;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (additions.count(std::string(text.substr(0, text.find('=')))) == 0) texts.emplace_back(text);
    }
    for (const auto& [name, value] : additions) {
        if (name.empty() || name.find('=') != std::string::npos)
            throw SLaunchFailure{EINVAL,
                                 "\"" + Escaped(name) + "\" can't be the name of an environment variable"};
        texts.push_back(WithoutNul(name, "the name of an environment variable") + '=' +
                        WithoutNul(value, "the value of an environment variable"));
    }
    return texts;
}

pid_t Spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::unordered_map<std::string, std::string>& environment, SChildStreams& streams) {
    std::vector<std::string> argumentTexts = ArgumentTexts(program, arguments);
    std::vector<std::string> environmentTexts = EnvironmentTexts(environment);
    SPipe input = MakePipe(1);
    SPipe output = MakePipe(0);
    SPipe error = MakePipe(0);

    CSpawn spawn;
    spawn.Give(STDIN_FILENO, input.theirs);
    spawn.Give(STDOUT_FILENO, output.theirs);
    spawn.Give(STDERR_FILENO, error.theirs);
    pid_t pid = -1;
    const int failure = spawn.Run(pid, program, std::move(argumentTexts), std::move(environmentTexts));
    if (failure != 0) throw SLaunchFailure{failure};
    streams = {std::move(input.ours), std::move(output.ours), std::move(error.ours)};
    return pid;
}

}  // namespace

CChildProcess::CChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                             const std::unordered_map<std::string, std::string>& environment,
                             SChildStreams& streams) {
    try {
        m_pid = Spawn(program, arguments, environment, streams);
    } catch (const SLaunchFailure& failure) {
        throw ProcessLaunchError("Cannot start " + Quoted(program) + ": " + ErrorText(failure.errorNumber) +
                                     (failure.detail.empty() ? "" : ": " + failure.detail),
                                 failure.errorNumber);
    }
    // Without it (an old kernel, no descriptor left) the end is found by asking now and then.
    // By number, since the C library's wrapper is not declared for C++ everywhere.
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
    if (pidfd > STDERR_FILENO || pidfd < 0) {
        m_pidfd = CDescriptor(pidfd);
    } else {
        m_pidfd = CDescriptor(::fcntl(pidfd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        ::close(pidfd);
    }
}

CChildProcess::~CChildProcess() {
    if (HasEnded()) return;
    Signal(SIGKILL);
    RetryInterrupted([this] { return ::waitpid(m_pid, nullptr, 0); });
}

bool CChildProcess::HasEnded() noexcept {
    if (m_ended) return true;
    int status = 0;
    const pid_t pid = RetryInterrupted([&] { return ::waitpid(m_pid, &status, WNOHANG); });
    if (pid == 0) return false;
    // Otherwise ECHILD: the caller ignores SIGCHLD or has collected the child itself.
    if (pid == m_pid) m_waitStatus = status;
    return m_ended = true;
}

void CChildProcess::Signal(int signal) noexcept {
    if (HasEnded()) return;  // its process id may be another's by now
    if (m_pidfd) {
        ::syscall(SYS_pidfd_send_signal, m_pidfd.Get(), signal, nullptr, 0);
    } else {
        ::kill(m_pid, signal);
    }
}

}  // namespace apigen::common
