// SPDX-License-Identifier: Apache-2.0
#include "support/common/CChildProcess.h"

#include <apigen/ApiException.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string_view>
#include <utility>

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

void RequireZero(int error) {
    if (error != 0) throw SLaunchFailure{error};
}

/// The descriptor, moved out of 0..2: there the child's own streams are put, and a caller that has closed
/// its standard streams must not find ours in their place.
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
    return {std::move(ours), AwayFromStandardStreams(theirs.Release())};
}

class CSpawnActions {
public:
    CSpawnActions(int input, int output, int error) {
        RequireZero(::posix_spawn_file_actions_init(&m_actions));
        try {
            RequireZero(::posix_spawn_file_actions_adddup2(&m_actions, input, STDIN_FILENO));
            RequireZero(::posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO));
            RequireZero(::posix_spawn_file_actions_adddup2(&m_actions, error, STDERR_FILENO));
            RequireZero(::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1));
        } catch (...) {
            ::posix_spawn_file_actions_destroy(&m_actions);
            throw;
        }
    }
    CSpawnActions(const CSpawnActions&) = delete;
    CSpawnActions& operator=(const CSpawnActions&) = delete;
    ~CSpawnActions() { ::posix_spawn_file_actions_destroy(&m_actions); }

    const posix_spawn_file_actions_t* Get() const noexcept { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions;
};

/// No signal blocked, none ignored.
class CSpawnAttributes {
public:
    CSpawnAttributes() {
        RequireZero(::posix_spawnattr_init(&m_attributes));
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        // sigfillset leaves out two signals of the C library, which the child would then get ignored.
        std::memset(&all, 0xff, sizeof all);
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &all);
        ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    CSpawnAttributes(const CSpawnAttributes&) = delete;
    CSpawnAttributes& operator=(const CSpawnAttributes&) = delete;
    ~CSpawnAttributes() { ::posix_spawnattr_destroy(&m_attributes); }

    const posix_spawnattr_t* Get() const noexcept { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
};

/// A text that C strings carry whole; `what` names it, since the text itself may be a secret.
const std::string& WithoutNul(const std::string& text, const char* what) {
    if (text.find('\0') != std::string::npos)
        throw SLaunchFailure{EINVAL, std::string(what) + " holds a NUL character"};
    return text;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
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

    const CSpawnActions actions(input.theirs.Get(), output.theirs.Get(), error.theirs.Get());
    const CSpawnAttributes attributes;
    pid_t pid = -1;
    RequireZero(::posix_spawnp(&pid, program.c_str(), actions.Get(), attributes.Get(),
                               Pointers(argumentTexts).data(), Pointers(environmentTexts).data()));
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
