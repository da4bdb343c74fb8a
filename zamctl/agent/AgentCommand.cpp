// SPDX-License-Identifier: Apache-2.0
#include "agent/AgentCommand.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "Failure.h"
#include "agent/Interrupt.h"

extern char** environ;

namespace zamctl {
namespace {

constexpr const char* Program = "tarvod";

/// Beside this program, as both are installed; else whatever PATH has.
std::string ProgramPath() {
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const auto beside = own.parent_path() / Program;
        if (::access(beside.c_str(), X_OK) == 0) return beside;
    }
    return Program;
}

/// Ends of a pipe, closed when it goes.
struct SPipe {
    std::array<int, 2> Ends{-1, -1};

    void Close(std::size_t end) {
        if (Ends[end] >= 0) ::close(std::exchange(Ends[end], -1));
    }
    ~SPipe() {
        Close(0);
        Close(1);
    }
};

void ReadLines(int descriptor, const std::function<void(std::string_view)>& onLine) {
    std::string held;
    std::array<char, 65536> piece{};
    while (true) {
        const ssize_t got = ::read(descriptor, piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        held.append(piece.data(), static_cast<std::size_t>(got));
        std::size_t start = 0;
        for (std::size_t end = held.find('\n'); end != std::string::npos; end = held.find('\n', start)) {
            onLine(std::string_view(held).substr(start, end - start));
            start = end + 1;
        }
        held.erase(0, start);
    }
    if (!held.empty()) onLine(held);
}

/// The child, collected when this goes, whatever the reading of its output threw.
struct SChild {
    pid_t Pid = 0;
    int Status = 0;

    int Wait() {
        while (Pid != 0 && ::waitpid(Pid, &Status, 0) < 0 && errno == EINTR) {
        }
        Pid = 0;
        return WIFSIGNALED(Status) ? 128 + WTERMSIG(Status) : WEXITSTATUS(Status);
    }
    ~SChild() {
        if (Pid == 0) return;
        ::kill(Pid, SIGTERM);
        Wait();
    }
};

}  // namespace

int RunAgentCommand(const std::vector<std::string>& arguments,
                    const std::function<void(std::string_view)>& onLine) {
    SPipe output;
    if (onLine && ::pipe2(output.Ends.data(), O_CLOEXEC) != 0)
        throw CFailure(EExit::Refused, std::string("no pipe can be made: ") + std::strerror(errno));

    const std::string path = ProgramPath();
    std::string name = Program;
    std::vector<char*> words{name.data()};
    std::vector<std::string> own = arguments;
    for (auto& argument : own)
        words.push_back(argument.data());
    words.push_back(nullptr);

    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    if (onLine) posix_spawn_file_actions_adddup2(&actions, output.Ends[1], STDOUT_FILENO);
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);  // which we ignore
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    SChild child;
    const int error = ::posix_spawnp(&child.Pid, path.c_str(), &actions, &attributes, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        child.Pid = 0;
        throw CFailure(
            EExit::NoAgent,
            std::string("the agent's own command, ") + Program + ", can't be run: " + std::strerror(error),
            "this needs the agent's programs on this host");
    }
    output.Close(1);
    if (onLine) ReadLines(output.Ends[0], onLine);
    return child.Wait();
}

}  // namespace zamctl
