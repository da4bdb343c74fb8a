// SPDX-License-Identifier: Apache-2.0
/// \file
/// Tool and daemon as processes, in a home of the test's own.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/Sanitized.h"
#include "tests/api/TemporaryFolder.h"

namespace tests {

using namespace std::chrono_literals;  // NOLINT: for tests alone

/// Waits until `condition` holds; false when it does not in time.
inline bool Eventually(const std::function<bool()>& condition, std::chrono::seconds limit = 20s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

/// What an action fails with.
inline std::string FailureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

inline std::string TextOf(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline std::string Frame(const std::string& text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    std::string frame;
    for (unsigned shift = 0; shift < 32; shift += 8)
        frame += static_cast<char>(size >> shift & 0xFFU);
    return frame + text;
}

/// A call of a method of the root object.
inline std::string Call(const std::string& method) {
    return Frame("<Data><__handle>1</__handle><__method>" + method + "</__method></Data>");
}

inline const std::string GetSessionId = "GetSessionId_16415403617493696513";        // NOLINT: for tests alone
inline const std::string GetCurrentOwner = "GetCurrentOwner_11295716727182803303";  // NOLINT

/// What comes within some seconds, until `count` bytes are there or the stream ends.
inline std::string ReadBytes(int from, std::size_t count) {
    constexpr int Patience = 20000;
    std::string bytes(count, '\0');
    std::size_t done = 0;
    while (done < count) {
        pollfd readable{from, POLLIN, 0};
        if (::poll(&readable, 1, Patience) <= 0) break;
        const ssize_t got = ::read(from, bytes.data() + done, count - done);
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

/// The next message; empty at the end.
inline std::string ReadMessage(int from) {
    const std::string header = ReadBytes(from, 4);
    if (header.size() < 4) return {};
    std::size_t size = 0;
    for (std::size_t i = 0; i < 4; ++i)
        size |= static_cast<std::size_t>(static_cast<unsigned char>(header[i])) << 8 * i;
    return ReadBytes(from, size);
}

/// A child with pipes on its standard streams, or with what the test gives it.
class CChild {
public:
    explicit CChild(std::vector<std::string> words, int in = -1, int out = -1) {
        std::array<int, 2> input{-1, -1};
        std::array<int, 2> output{-1, -1};
        std::array<int, 2> errors{-1, -1};
        if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0 ||
            ::pipe2(errors.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipes");
        }
        posix_spawn_file_actions_t actions{};
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, in >= 0 ? in : input[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, out >= 0 ? out : output[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
        std::vector<char*> arguments;
        for (auto& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        const int error = ::posix_spawnp(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        for (const int theirs : {input[0], output[1], errors[1]})
            ::close(theirs);
        In = input[1];
        Out = output[0];
        Errors = errors[0];
        if (error != 0) throw std::runtime_error("can't start " + words[0]);
    }
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;
    ~CChild() {
        Leave();
        ::close(Errors);
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }

    void CloseInput() { ::close(std::exchange(In, -1)); }

    /// What a client's death closes.
    void Leave() {
        for (int* const end : {&In, &Out}) {
            if (*end >= 0) ::close(std::exchange(*end, -1));
        }
    }

    void Send(const std::string& bytes) const {
        EXPECT_EQ(::write(In, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string Read() const { return ReadMessage(Out); }
    std::string ReadErrors() const { return ReadBytes(Errors, 4096); }
    pid_t Pid() const { return m_pid; }
    void Kill(int signal) const { ::kill(m_pid, signal); }

    /// The exit status, or 1000 and the signal; -1 when it does not end.
    int Ended() {
        int status = 0;
        if (!Eventually([&] { return ::waitpid(m_pid, &status, WNOHANG) == m_pid; })) return -1;
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    int In = -1;
    int Out = -1;
    int Errors = -1;

private:
    pid_t m_pid = -1;
};

class CDaemonTest : public testing::Test {
protected:
    CDaemonTest() {
        ::setenv("PATH", (std::string(PROGRAMS_FOLDER) + ":" + m_path).c_str(), 1);
        ::setenv("TARVO_HOME", Home().c_str(), 1);
        std::filesystem::create_directory(Home());
    }
    ~CDaemonTest() override {
        for (const int signal : {SIGTERM, SIGKILL}) {
            const pid_t pid = DaemonPid();
            if (pid > 0) ::kill(pid, signal);
            if (AwaitNoDaemon(5s)) break;
        }
        ::setenv("PATH", m_path.c_str(), 1);
        ::unsetenv("TARVO_HOME");
    }

    std::string Home(const std::string& name = {}) const {
        return m_folder.Path("h") + (name.empty() ? "" : "/" + name);
    }
    std::string Socket() const { return Home("run/control.sock"); }
    std::string Log() const { return TextOf(Home("log/tarvod.log")); }
    void Write(const std::string& name, const std::string& text = {}) const {
        std::ofstream(Home(name)) << text;
    }

    static std::shared_ptr<zamclientlib::IZamControl> Connect(std::chrono::seconds timeout = 60s) {
        return zamclientlib::GetZamControl(timeout, false, nullptr);
    }
    static std::vector<std::string> ToolWords() {
        return {std::string(PROGRAMS_FOLDER) + "/tarvoconfig", "extended", "startCommandInvoker",
                "--logFileName", "tool.log"};
    }
    static std::string Daemon() { return std::string(PROGRAMS_FOLDER) + "/tarvod"; }

    /// That of the daemon that has the lock; 0 when none has.
    pid_t DaemonPid() const {
        const int lock = ::open(Home("run/tarvod.lock").c_str(), O_RDONLY | O_CLOEXEC);
        if (lock < 0) return 0;
        const bool isFree = ::flock(lock, LOCK_EX | LOCK_NB) == 0;
        ::close(lock);
        return isFree ? 0 : std::atoi(TextOf(Home("run/tarvod.lock")).c_str());
    }
    bool AwaitNoDaemon(std::chrono::seconds limit = 20s) const {
        return Eventually([&] { return DaemonPid() == 0; }, limit);
    }

    std::size_t CountOf(const char* what) const {
        const std::string folder = "/proc/" + std::to_string(DaemonPid()) + "/" + what;
        std::error_code ignored;
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder, ignored), {}));
    }
    /// The thread sanitizer has one of its own.
    std::size_t Threads() const { return CountOf("task") - (IsThreadSanitized ? 1 : 0); }
    std::size_t Descriptors() const { return CountOf("fd"); }

    /// A connection to the control socket without a tool.
    int ConnectToSocket() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, Socket().c_str(), sizeof address.sun_path - 1);
        const int control = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::connect(control, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return control;
    }

    static void SendWord(int control, const std::string& word, const std::vector<int>& descriptors) {
        std::string text = word;
        iovec part{text.data(), text.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        std::vector<char> attachment(CMSG_SPACE(descriptors.size() * sizeof(int)));
        if (!descriptors.empty()) {
            message.msg_control = attachment.data();
            message.msg_controllen = attachment.size();
            cmsghdr* const header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
            std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size() * sizeof(int));
        }
        EXPECT_GT(::sendmsg(control, &message, MSG_NOSIGNAL), 0);
    }

    zamtest::CTemporaryFolder m_folder;

private:
    std::string m_path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
};

}  // namespace tests
