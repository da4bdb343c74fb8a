// SPDX-License-Identifier: Apache-2.0
#include "agent/AgentCommand.h"

#include <fcntl.h>
#include <poll.h>
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

/// A stream cut into lines.
struct SLines {
    int Descriptor;
    const std::function<void(std::string_view)>& OnLine;
    std::string Held = {};

    /// False at its end.
    bool Read() {
        std::array<char, 65536> piece{};
        const ssize_t got = ::read(Descriptor, piece.data(), piece.size());
        if (got < 0 && errno == EINTR) return true;
        if (got <= 0) {
            if (!Held.empty()) OnLine(Held);
            Descriptor = -1;
            return false;
        }
        Held.append(piece.data(), static_cast<std::size_t>(got));
        std::size_t start = 0;
        for (std::size_t end = Held.find('\n'); end != std::string::npos; end = Held.find('\n', start)) {
            OnLine(std::string_view(Held).substr(start, end - start));
            start = end + 1;
        }
        Held.erase(0, start);
        return true;
    }
};

void ReadAll(std::array<SLines, 2> streams) {
    while (streams[0].Descriptor >= 0 || streams[1].Descriptor >= 0) {
        std::array<pollfd, 2> ready{{{streams[0].Descriptor, POLLIN, 0}, {streams[1].Descriptor, POLLIN, 0}}};
        if (::poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) return;
        for (std::size_t i = 0; i < streams.size(); ++i)
            if (ready[i].revents != 0) streams[i].Read();
    }
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
                    const std::function<void(std::string_view)>& onLine,
                    const std::function<void(std::string_view)>& onError) {
    SPipe output;
    SPipe errors;
    if ((onLine && ::pipe2(output.Ends.data(), O_CLOEXEC) != 0) ||
        ::pipe2(errors.Ends.data(), O_CLOEXEC) != 0)
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
    posix_spawn_file_actions_adddup2(&actions, errors.Ends[1], STDERR_FILENO);
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
    errors.Close(1);
    const std::function<void(std::string_view)> onErrorLine = [&](std::string_view line) {
        constexpr std::string_view Own = "tarvod: ";
        if (line.starts_with(Own)) line.remove_prefix(Own.size());
        onError(line);
    };
    ReadAll({SLines{output.Ends[0], onLine}, SLines{errors.Ends[0], onErrorLine}});
    return child.Wait();
}

}  // namespace zamctl
