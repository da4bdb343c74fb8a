// SPDX-License-Identifier: Apache-2.0
/// \file
/// An agent with a home of its own, a clock that the test moves, and an engine that does what it is told.
#pragma once

#include <zamclientlib/CEventsStream.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/host/Folders.h"
#include "agent/jobs/CAgent.h"
#include "tests/agent/core/FakeClock.h"
#include "tests/agent/jobs/CFakeEngine.h"

namespace tarvo::tests {

using namespace std::chrono_literals;  // NOLINT: for tests alone
using namespace zamclientlib;          // NOLINT: likewise

class CMemoryLog final : public ILog {
public:
    void Info(const std::string& text) noexcept override { Add("I " + text); }
    void Warning(const std::string& text) noexcept override { Add("W " + text); }
    void Error(const std::string& text) noexcept override { Add("E " + text); }

    bool Has(const std::string& part) const {
        const std::lock_guard lock(m_mutex);
        for (const auto& line : m_lines) {
            if (line.find(part) != std::string::npos) return true;
        }
        return false;
    }

private:
    void Add(std::string line) {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(std::move(line));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

/// Waits for a condition, for as long as a session of the real engine may take on a host that has much else to do; false
/// when it doesn't come.
template <class Condition>
bool Await(Condition&& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 120s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

class AgentTest : public ::testing::Test {
protected:
    AgentTest() {
        char pattern[] = "/tmp/tarvo-XXXXXX";
        Home = ::mkdtemp(pattern);
        SFoldersSource source;
        source.TarvoHome = Home;
        Folders = FoldersOf(source);
        MakeFolders(Folders);
        std::filesystem::create_directory(Home + "/source");
        std::ofstream(Home + "/source/file") << "text";
        std::filesystem::create_directory(Home + "/location");
    }
    ~AgentTest() override {
        Agent.reset();
        std::filesystem::remove_all(Home);
    }

    void Open() {
        Agent = std::make_unique<CAgent>(Folders, Settings, Engine, Clock, Log);
        Owner.Name = "test";
        Owner.Mode = ZAMOwnerMode::Shared;
        Owner.Type = ZAMOwnerType::ManagementConsole;
        Caller = {Peer, Agent->RequestControl(Peer, Owner, false)};
    }

    void Start() {
        Open();
        Agent->Start();
    }

    /// As a crash leaves it: what is under way is never ended.
    void Restart() {
        Agent.reset();
        Start();
    }

    Guid MakeRepository(const std::string& name = "main", const std::string& folder = "location") {
        SBackupRepositoryInfo info;
        info.Name = name;
        info.Type = BackupTargetType::LocalFolder;
        info.Location = Home + "/" + folder;
        return Agent->CreateRepository(Caller, info).Id;
    }

    SBackupJobConfigurationInfo Config(const std::string& name = "nightly") {
        SBackupJobConfigurationInfo config;
        config.JobName = name;
        config.Source.BackupMode = JobBackupMode::FileLevel;
        config.Source.IncludeDirs = {Home + "/source"};
        config.RepositoryId = Repository == Guid{} ? Repository = MakeRepository() : Repository;
        return config;
    }

    Guid MakeJob() { return Agent->CreateJob(Caller, Config()); }

    /// At that minute of each day, in UTC.
    static SBackupScheduleInfo EveryDayAt(int hour, int minute = 0) {
        SBackupScheduleInfo schedule;
        schedule.IsEnabled = true;
        schedule.TimeOfDay = {hour * 3600L + minute * 60L, 0};
        schedule.Calendar = {ScheduleType::Daily, 127, 0, {}, 0};
        return schedule;
    }

    bool HasEnded(const Guid& session) {
        const auto info = Agent->SessionInfo(session);
        return info.State == JobState::Stopped;
    }

    /// Runs the job to its end.
    SBackupJobSessionInfo RunJob(const Guid& job, const SJobStartOptions& options = {}) {
        const Guid session = Agent->StartJob(Caller, job, options);
        EXPECT_TRUE(Await([&] { return HasEnded(session); }));
        return Agent->SessionInfo(session);
    }

    SBackupJobSessionInfo AwaitEnd(const Guid& session) {
        EXPECT_TRUE(Await([&] { return HasEnded(session); }));
        return Agent->SessionInfo(session);
    }

    /// The job's session of that number, from 1, when it is there and has ended.
    SBackupJobSessionInfo AwaitSession(const Guid& job, std::size_t number) {
        EXPECT_TRUE(Await([&] { return Agent->SessionsOf(job).size() >= number; }));
        const auto sessions = Agent->SessionsOf(job);
        return sessions.size() < number ? SBackupJobSessionInfo{} : AwaitEnd(sessions[number - 1]);
    }

    void MoveClock(std::chrono::milliseconds by) {
        Clock.Advance(by);
        Agent->ClockChanged();
    }

    static std::string Lines(const SBackupJobSessionInfo& info) {
        std::string text;
        for (const auto& line : info.JobDetails) {
            text += std::string(NameOf(line.Type)) + ": " + line.Message + "\n";
        }
        return text;
    }

    static bool Says(const SBackupJobSessionInfo& info, const std::string& part) {
        return Lines(info).find(part) != std::string::npos;
    }

    std::string Home;
    SFolders Folders;
    SWorkSettings Settings;
    std::shared_ptr<CFakeEngine> Engine = std::make_shared<CFakeEngine>();
    CFakeClock Clock{std::chrono::sys_days(std::chrono::year(2026) / 3 / 2) + 12h};
    CMemoryLog Log;
    SPeer Peer{::getuid(), "tester", ::getpid()};
    SZamControlOwnerInfo Owner{Guid::Random(), "", {}, {}};
    SCaller Caller;
    Guid Repository;
    std::unique_ptr<CAgent> Agent;
};

}  // namespace tarvo::tests
