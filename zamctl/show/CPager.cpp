// SPDX-License-Identifier: Apache-2.0
#include "show/CPager.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"

namespace zamctl {
namespace {

/// 0, or what went wrong.
int Write(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            pollfd ready{descriptor, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

const char* Variable(const char* name) {
    const char* const value = ::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes it
    return value;
}

}  // namespace

void WriteAll(int descriptor, std::string_view text) {
    const int error = Write(descriptor, text);
    if (error == EPIPE) throw COutputGone();
    if (error != 0) {
        throw CFailure(EExit::Refused,
                       "the output can't be written: " + std::generic_category().message(error));
    }
}

CPager::~CPager() {
    if (m_pipe >= 0) ::close(m_pipe);
    Wait();
}

bool CPager::Start() {
    const char* command = Variable("ZAMCTL_PAGER");
    if (command == nullptr) command = Variable("PAGER");
    const bool isOurs = command == nullptr;
    // Not every host has it, and of one that has not, the shell would tell the user each time.
    const std::string_view words =
        isOurs ? "command -v less >/dev/null || exit 127; exec less -FRX" : command;
    if (words.empty() || words == "cat") return false;

    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        // The user's own options may not go with ours.
        if (!isOurs || std::string_view(*variable).rfind("LESS=", 0) != 0) variables.emplace_back(*variable);
    }
    if (isOurs && Variable("LESSCHARSET") == nullptr) variables.emplace_back("LESSCHARSET=utf-8");
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables)
        environment.push_back(variable.data());
    environment.push_back(nullptr);

    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    ::posix_spawnattr_init(&attributes);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    ::sigaddset(&signals, SIGPIPE);  // ignored here
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string shell = "sh";
    std::string option = "-c";
    std::string line(words);
    const std::array<char*, 4> arguments{shell.data(), option.data(), line.data(), nullptr};
    const int error =
        ::posix_spawn(&m_process, "/bin/sh", &actions, &attributes, arguments.data(), environment.data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[0]);
    if (error != 0) {
        m_process = -1;
        ::close(ends[1]);
        return false;
    }
    m_pipe = ends[1];
    const int capacity = ::fcntl(m_pipe, F_GETPIPE_SZ);
    m_capacity = capacity > 0 ? static_cast<std::size_t>(capacity) : 0;
    return true;
}

void CPager::Write(std::string_view text) {
    if (m_isMissing) return WriteAll(STDOUT_FILENO, text);
    if (m_pipe < 0) throw COutputGone();
    if (m_copy.size() <= m_capacity) m_copy.append(text);
    const int error = zamctl::Write(m_pipe, text);
    if (error == 0) return;
    ::close(std::exchange(m_pipe, -1));
    m_isMissing = Wait();
    if (!m_isMissing) throw COutputGone();
    WriteAll(STDOUT_FILENO, m_copy);
}

void CPager::Close() {
    if (m_pipe < 0) return;
    ::close(std::exchange(m_pipe, -1));
    m_isMissing = Wait();
    if (m_isMissing) WriteAll(STDOUT_FILENO, m_copy);
}

bool CPager::Wait() noexcept {
    if (m_process < 0) return false;
    int status = 0;
    const pid_t process = std::exchange(m_process, -1);
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    // A shell's words for "can't be run" and "not found".
    return WIFEXITED(status) && (WEXITSTATUS(status) == 126 || WEXITSTATUS(status) == 127);
}

}  // namespace zamctl
