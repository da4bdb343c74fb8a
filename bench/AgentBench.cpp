// SPDX-License-Identifier: Apache-2.0
// The agent's process: what a connection and a call cost through the daemon, against an agent that is the tool's own
// process; and what the daemon weighs.
#include <zamclientlib/Control.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/Areas.h"
#include "bench/Children.h"

namespace zambench {
namespace {

namespace fs = std::filesystem;

/// A home of the agent's own, with whatever daemon a client has started there.
class CHome {
public:
    CHome() {
        std::string pattern = (fs::temp_directory_path() / "zambench-XXXXXX").string();
        Require(::mkdtemp(pattern.data()) != nullptr, "a folder");
        m_path = pattern;
        ::setenv("TARVO_HOME", m_path.c_str(), 1);
    }
    CHome(const CHome&) = delete;
    CHome& operator=(const CHome&) = delete;
    ~CHome() {
        EndDaemon();
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
        ::unsetenv("TARVO_HOME");
    }

    pid_t Daemon() const {
        pid_t pid = 0;
        std::ifstream(m_path + "/run/tarvod.lock") >> pid;
        return pid;
    }

    /// Returns when it has ended, which frees its lock.
    void EndDaemon() const {
        const int lock = ::open((m_path + "/run/tarvod.lock").c_str(), O_RDONLY | O_CLOEXEC);
        if (lock < 0) return;
        if (::flock(lock, LOCK_EX | LOCK_NB) != 0) {
            ::kill(Daemon(), SIGTERM);
            ::flock(lock, LOCK_EX);
        }
        ::close(lock);
    }

private:
    std::string m_path;
};

/// Whose tool is found in PATH.
class CUsed {
public:
    explicit CUsed(const char* folder) : m_before(std::getenv("PATH")) {
        ::setenv("PATH", (std::string(folder) + ':' + m_before).c_str(), 1);
    }
    CUsed(const CUsed&) = delete;
    CUsed& operator=(const CUsed&) = delete;
    ~CUsed() { ::setenv("PATH", m_before.c_str(), 1); }

private:
    std::string m_before;
};

std::shared_ptr<zamclientlib::IZamControl> ConnectTo(const char* folder) {
    const CUsed used(folder);
    return ConnectToAgent();
}

/// The least of several: see the other measurements of connecting.
double ConnectingTime(const CBench& bench, const char* folder, const CHome* stopped = nullptr) {
    double least = std::numeric_limits<double>::max();
    for (int tries = bench.IsOnce() ? 1 : 15; tries != 0; --tries) {
        if (stopped != nullptr) stopped->EndDaemon();
        const double before = Now(EClock::Wall);
        const auto control = ConnectTo(folder);
        control->GetSessionId();
        least = std::min(least, Now(EClock::Wall) - before);
    }
    return least;
}

void CompareCalls(const CBench& bench) {
    constexpr int Rounds = 51;
    bench.CompareRounds(
        "small call through the daemon, on one CPU, ns; to the kit", 1.1, Rounds, [&](bool isOursFirst) {
            const CPinned pinned(EPlace::OneCpu);
            const CHome home;
            const auto ours = ConnectTo(AGENT_FOLDER);
            const auto kit = ConnectTo(BENCH_TOOL_FOLDER);
            const CBursts bursts(bench.IsOnce(), EClock::Wall, {[&] { ours->GetSessionId(); }},
                                 {[&] { kit->GetSessionId(); }});
            return bursts.MeasureRound(isOursFirst);
        });
}

std::string StatusOf(pid_t pid, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name + ":", 0) == 0) return line.substr(name.size() + 1);
    return " ?";
}

void ServeMany(const CBench& bench) {
    constexpr std::size_t Clients = 100;
    const CHome home;
    std::vector<std::shared_ptr<zamclientlib::IZamControl>> controls(bench.IsOnce() ? 10 : Clients);
    const double before = Now(EClock::Wall);
    std::vector<std::thread> threads;
    const CUsed used(AGENT_FOLDER);
    for (std::size_t first = 0; first < 4; ++first)
        threads.emplace_back([&, first] {
            for (std::size_t i = first; i < controls.size(); i += 4)
                controls[i] = ConnectToAgent();
        });
    for (auto& thread : threads)
        thread.join();
    for (const auto& control : controls)
        control->GetSessionId();
    constexpr double Million = 1e6;
    std::printf("  %zu clients at once: connected and answered in %.0f ms, daemon's memory%s\n",
                controls.size(), (Now(EClock::Wall) - before) / Million,
                StatusOf(home.Daemon(), "VmRSS").c_str());
}

}  // namespace

void MeasureAgent(const CBench& bench) {
    {
        const CPinned pinned(EPlace::OneCpu);
        const CHome home;
        bench.Compare(
            "connect to a running daemon, on one CPU, ns; to the test agent", 1.5,
            [&] { return ConnectingTime(bench, AGENT_FOLDER); },
            [&] { return ConnectingTime(bench, TEST_AGENT_FOLDER); });
        bench.Compare(
            "start a daemon, on one CPU, ns; to connecting to the test agent", 10,
            [&] { return ConnectingTime(bench, AGENT_FOLDER, &home); },
            [&] { return ConnectingTime(bench, TEST_AGENT_FOLDER); });
        const auto control = ConnectTo(AGENT_FOLDER);
        std::printf("  the idle daemon's memory%s\n", StatusOf(home.Daemon(), "VmRSS").c_str());
    }
    CompareCalls(bench);
    ServeMany(bench);
}

}  // namespace zambench
