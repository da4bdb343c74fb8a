// SPDX-License-Identifier: Apache-2.0
// The agent's process: what a connection and a call cost through the daemon, against an agent that is the tool's own
// process; and what the daemon weighs.
#include <zamclientlib/CEventsStream.h>
#include <zamclientlib/Control.h>

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

#include "bench/AgentHome.h"
#include "bench/Areas.h"
#include "bench/Children.h"

namespace zambench {
namespace {

namespace fs = std::filesystem;

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

/// A job over many small files, and the same files under the bare engine.
class CBackups {
public:
    explicit CBackups(std::size_t files) : m_control(ConnectTo(AGENT_FOLDER)) {
        for (const char* const folder : {"/source", "/repository", "/bare"})
            fs::create_directory(m_home.Path() + folder);
        for (std::size_t i = 0; i < files; ++i)
            std::ofstream(m_home.Path() + "/source/" + std::to_string(i)) << std::string(2000, 'x') << i;
        zamclientlib::SZamControlOwnerInfo owner;
        owner.Id.Data1 = 1;
        const auto product = m_control->RequestControl(owner, true);
        zamclientlib::SBackupRepositoryInfo repository;
        repository.Name = "bench";
        repository.Type = zamclientlib::BackupTargetType::LocalFolder;
        repository.Location = m_home.Path() + "/repository";
        zamclientlib::SBackupJobConfigurationInfo config;
        config.JobName = "bench";
        config.RepositoryId = product->GetRepositoryManager()->CreateRepository(repository).Id;
        config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
        config.Source.IncludeDirs = {m_home.Path() + "/source"};
        m_job = product->CreateBackupJob(config);
        m_events = std::make_unique<zamclientlib::CEventsStream>(m_control->GetEventConfig(), nullptr);
        Restic("init");
        RunSession();
        RunBare();
    }

    /// One more file each time, so that there is something to store.
    void Touch() {
        ++m_touched;
        std::ofstream(m_home.Path() + "/source/new" + std::to_string(m_touched)) << m_touched;
    }

    std::shared_ptr<zamclientlib::IBackupJobSession> Start() { return m_job->Start({}); }

    void RunSession() {
        const auto session = Start();
        while (!m_events->Read().eventBackupJobFinished.HasValue()) {
        }
        Require(session->GetInfo().Result == zamclientlib::JobResult::Success, "a backup of the agent's");
    }

    void RunBare() const { Restic("backup --json --host tarvo " + m_home.Path() + "/source"); }

    zamclientlib::IZamControl& Control() { return *m_control; }
    const CHome& Home() const { return m_home; }

private:
    void Restic(const std::string& words) const {
        const std::string command = "RESTIC_PASSWORD=bench RESTIC_PROGRESS_FPS=4 nice restic -r " +
                                    m_home.Path() + "/bare --cache-dir " + m_home.Path() + "/bare-cache " +
                                    words + " >/dev/null";
        Require(std::system(command.c_str()) == 0, "a command of the bare engine's");
    }

    CHome m_home;
    std::shared_ptr<zamclientlib::IZamControl> m_control;
    std::shared_ptr<zamclientlib::IBackupJob> m_job;
    std::unique_ptr<zamclientlib::CEventsStream> m_events;
    unsigned m_touched = 0;
};

SRound RoundOf(double ours, double floor) {
    return {ours, floor, ours / floor};
}

void CompareSessions(const CBench& bench) {
    CBackups backups(bench.IsOnce() ? 50 : 3000);
    const auto timeOf = [](const auto& run) {
        const double before = Now(EClock::Wall);
        run();
        return Now(EClock::Wall) - before;
    };
    bench.CompareRounds("whole session, 3000 files, ns; to the bare engine", 1.1, 5, [&](bool isOursFirst) {
        backups.Touch();
        const auto ours = [&] { return timeOf([&] { backups.RunSession(); }); };
        const auto bare = [&] { return timeOf([&] { backups.RunBare(); }); };
        const double first = isOursFirst ? ours() : bare();
        const double second = isOursFirst ? bare() : ours();
        return isOursFirst ? RoundOf(first, second) : RoundOf(second, first);
    });
    std::printf("  the daemon's memory, at most%s\n", StatusOf(backups.Home().Daemon(), "VmHWM").c_str());
}

void CompareCallsInBackups(const CBench& bench) {
    const CPinned pinned(EPlace::OneCpu);
    CBackups backups(bench.IsOnce() ? 50 : 3000);
    const auto medianOf = [&](const auto& isOver) {
        constexpr int Burst = 20;
        std::vector<double> times;
        while (times.size() < 10 || !isOver()) {
            const double before = Now(EClock::Wall);
            for (int i = 0; i < Burst; ++i)
                backups.Control().GetSessionId();
            times.push_back((Now(EClock::Wall) - before) / Burst);
            if (times.size() > 100'000) break;
        }
        std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                         times.end());
        return times[times.size() / 2];
    };
    bench.CompareRounds(
        "small call while a backup runs, on one CPU, ns; to idle", 2, 5, [&](bool /*isOursFirst*/) {
            backups.Touch();
            const double idle = medianOf([] { return true; });
            const auto session = backups.Start();
            const double busy =
                medianOf([&] { return session->GetInfo().State == zamclientlib::JobState::Stopped; });
            return RoundOf(busy, idle);
        });
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
    CompareSessions(bench);
    CompareCallsInBackups(bench);
}

}  // namespace zambench
