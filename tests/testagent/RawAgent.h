// SPDX-License-Identifier: Apache-2.0
/// \file
/// The test agent without the library at its other end, and programs as a shell starts them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/api/TemporaryFolder.h"
#include "tests/testagent/AgentFixture.h"

namespace tests {

/// A connection to the agent of which a test holds both pipes.
class CRawAgent {
public:
    CRawAgent() {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipes");
        }
        posix_spawn_file_actions_t actions{};
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::array<std::string, 5> words = {"tarvoconfig", "extended", "startCommandInvoker", "--logFileName",
                                            "raw"};
        std::array<char*, 6> arguments{};
        for (std::size_t i = 0; i < words.size(); ++i)
            arguments[i] = words[i].data();
        const std::string program = std::string(TEST_AGENT_FOLDER) + "/tarvoconfig";
        const int error =
            ::posix_spawn(&m_pid, program.c_str(), &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        m_in = in[1];
        m_out = out[0];
        if (error != 0) throw std::runtime_error("no agent");
    }
    CRawAgent(const CRawAgent&) = delete;
    CRawAgent& operator=(const CRawAgent&) = delete;
    ~CRawAgent() {
        Leave();
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }

    /// What a client's death closes.
    void Leave() {
        for (int* const end : {&m_in, &m_out}) {
            if (*end >= 0) ::close(std::exchange(*end, -1));
        }
    }

    void Send(const std::string& bytes) const {
        EXPECT_EQ(::write(m_in, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    static std::string Frame(const std::string& text) {
        const auto size = static_cast<std::uint32_t>(text.size());
        std::string frame;
        for (unsigned shift = 0; shift < 32; shift += 8)
            frame += static_cast<char>(size >> shift & 0xFFU);
        return frame + text;
    }

    /// A call of a method of the root object.
    static std::string Call(const std::string& method, const std::string& arguments = {}) {
        return Frame("<Data>" + arguments + "<__handle>1</__handle><__method>" + method +
                     "</__method></Data>");
    }

    /// The next message of the agent; empty when none has come within ten seconds.
    std::string Read() const {
        const std::string header = ReadBytes(4);
        if (header.size() < 4) return {};
        std::size_t size = 0;
        for (std::size_t i = 0; i < 4; ++i)
            size |= static_cast<std::size_t>(static_cast<unsigned char>(header[i])) << 8 * i;
        return ReadBytes(size);
    }

    void Kill(int signal) const { ::kill(m_pid, signal); }

    /// How the process ended, as `waitpid` says it; -1 when it has not within ten seconds.
    int Ended() {
        int status = -1;
        if (!Eventually([&] { return ::waitpid(m_pid, &status, WNOHANG) == m_pid; })) return -1;
        m_pid = -1;
        return status;
    }

private:
    std::string ReadBytes(std::size_t count) const {
        constexpr int Patience = 10000;
        std::string bytes(count, '\0');
        std::size_t done = 0;
        while (done < count) {
            pollfd readable{m_out, POLLIN, 0};
            if (::poll(&readable, 1, Patience) <= 0) break;
            const ssize_t got = ::read(m_out, bytes.data() + done, count - done);
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        bytes.resize(done);
        return bytes;
    }

    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
};

struct SRun {
    int Status = -1;  ///< the exit status; -1 after a death by a signal
    std::string Output;
    std::string Error;
};

/// Runs a command of the shell to its end.
inline SRun RunInShell(const std::string& command) {
    const zamtest::CTemporaryFolder folder;
    const std::string whole =
        "{ " + command + " ; } >" + folder.Path("out") + " 2>" + folder.Path("err") + " </dev/null";
    const int status = std::system(whole.c_str());
    const auto textOf = [&](const char* name) {
        std::ifstream file(folder.Path(name));
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, textOf("out"), textOf("err")};
}

inline const std::string& Agent() {
    static const std::string path = std::string(TEST_AGENT_FOLDER) + "/tarvoconfig";
    return path;
}

}  // namespace tests
