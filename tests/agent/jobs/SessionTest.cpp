// SPDX-License-Identifier: Apache-2.0
// Sessions: how they go, end, are stopped and tried again.
#include <SQLiteCpp/SQLiteCpp.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "agent/core/Validity.h"
#include "agent/jobs/Source.h"
#include "tests/agent/jobs/Fixture.h"

namespace tarvo::tests {

namespace {

void WriteScript(const std::string& path, const std::string& text) {
    std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
    ::chmod(path.c_str(), 0700);
}

std::string Contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST_F(AgentTest, ARunMakesAPointAndTellsWhatItDid) {
    Start();
    const Guid job = MakeJob();
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_EQ(info.PercentCompleted, 100);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_EQ(info.ReadSizeBytes, 2000U);
    EXPECT_EQ(info.BackedUpSizeBytes, 3000);
    EXPECT_EQ(info.TransferredSizeBytes, 700);
    EXPECT_EQ(info.BackupDestination, Home + "/location");
    EXPECT_TRUE(info.RepositorySizeInfo);
    EXPECT_EQ(info.TypeOfJob, JobType::Backup);
    EXPECT_TRUE(Says(info, "Started by tester")) << Lines(info);

    const auto points = Agent->PointsForRestore(job);
    ASSERT_EQ(points.size(), 1U);
    EXPECT_EQ(points[0].Id, info.OibId);
    EXPECT_EQ(points[0].ApproxSize, 3000U);
    EXPECT_EQ(points[0].StorageSize, 700U);
    EXPECT_EQ(points[0].Type, RestorePointType::Full);
    EXPECT_TRUE(Agent->JobInfo(job).LastBackupTimeUtc);

    const auto second = RunJob(job);
    EXPECT_EQ(second.SessionAlgorithm, JobSessionAlgorithm::Increment);
    EXPECT_EQ(Agent->PointsForRestore(job).at(1).Type, RestorePointType::Increment);
    EXPECT_EQ(Engine->m_parents, (std::vector<std::string>{"", "snapshot1"}));
}

TEST(SightingsTest, OneIsToldOfAsOne) {
    SWalkResult walk;
    walk.Unreadable = {1, {"/closed"}};
    walk.SparseFiles = {2, {"/a", "/b"}};
    const auto told = SightingsOf(walk, {});
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].second, "1 folder can't be read: /closed");
    EXPECT_EQ(told[1].second,
              "2 files with holes come back without them with this version of the engine: /a, /b");
}

TEST_F(AgentTest, WhatASessionSaidIsThereAfterARestart) {
    Start();
    const Guid job = MakeJob();
    const auto before = RunJob(job);
    const auto usn = Agent->SessionsSince(job, before.Usn - 1);
    Restart();
    EXPECT_EQ(Agent->Jobs(), std::vector{job});
    const auto after = Agent->SessionInfo(before.Uid);
    EXPECT_EQ(after, before);
    EXPECT_EQ(Agent->SessionsOf(job), std::vector{before.Uid});
    EXPECT_EQ(Agent->LastSessionOf(job), before.Uid);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    EXPECT_EQ(usn, std::vector{before.Uid});
    EXPECT_TRUE(Agent->SessionsSince(job, before.Usn).empty());
}

TEST_F(AgentTest, ProgressIsToldWhileItRuns) {
    Engine->m_progress = {{0, 250, 1000}, {0, 500, 1000}};
    Engine->Hold(true);
    Start();
    const Guid job = MakeJob();
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    const auto working = Agent->SessionInfo(session);
    EXPECT_EQ(working.State, JobState::Working);
    EXPECT_EQ(working.Result, JobResult::None);
    EXPECT_LE(working.PercentCompleted, 99);
    Engine->Hold(false);
    const auto ended = AwaitEnd(session);
    EXPECT_GT(ended.Usn, working.Usn);
}

TEST_F(AgentTest, SizesMoveWithTheEnginesProgressAndEndTrue) {
    Engine->m_progress = {{0, 0, 500, 1000, 1h}};
    Engine->m_cpuTime = 2h;
    Start();
    const Guid job = MakeJob();
    SBackupJobSessionInfo midway;
    Engine->m_isSeen = [&, began = std::chrono::steady_clock::now()] {
        std::this_thread::sleep_for(2ms);
        midway = Agent->SessionInfo(*Agent->LastSessionOf(job));
        return midway.PercentCompleted == 50 || std::chrono::steady_clock::now() - began > 20s;
    };
    RunJob(job);
    EXPECT_EQ(midway.PercentCompleted, 50);
    EXPECT_EQ(midway.ReadSizeBytes, 500U);
    EXPECT_EQ(midway.BackedUpSizeBytes, 500);
    EXPECT_GT(midway.ProcessingRateByteInSec, 0);
    EXPECT_EQ(midway.ProxyLoad, 100);
    const auto second = RunJob(job);
    EXPECT_EQ(midway.ReadSizeBytes, 2U);  // half of the one file that has changed
    EXPECT_EQ(second.ReadSizeBytes, 2000U);
    EXPECT_EQ(second.BackedUpSizeBytes, 3000);
    EXPECT_EQ(second.ProxyLoad, 100);
}

TEST_F(AgentTest, AFailedSessionTellsHowFarItCame) {
    Engine->m_progress = {{0, 0, 100, 1000},
                          {0, 0, 900, 1000}};  // the second comes too soon to be told at once
    Start();
    const Guid job = MakeJob();
    Engine->m_afterBackup = [] { throw CEngineFailed("fault"); };
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_EQ(info.PercentCompleted, 90);
    EXPECT_EQ(info.ReadSizeBytes, 900U);
}

TEST_F(AgentTest, AJobThatRunsRefusesWhatWouldDisturbIt) {
    Engine->Hold(true);
    Start();
    const Guid job = MakeJob();
    const Guid session = Agent->StartJob(Caller, job, {});
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CJobIsRunning);
    EXPECT_THROW(Agent->UpdateJob(Caller, job, Config()), CJobIsRunning);
    EXPECT_THROW(Agent->DeleteJob(Caller, job), CJobIsRunning);
    EXPECT_TRUE(Agent->SetEnabled(Caller, job, false));
    EXPECT_FALSE(Agent->SetEnabled(Caller, job, false));
    Agent->SetUserData(Caller, job, "mine");
    EXPECT_EQ(Agent->UserData(job), "mine");
    Engine->Hold(false);
    EXPECT_EQ(AwaitEnd(session).Result, JobResult::Success);
    EXPECT_EQ(Agent->UserData(job), "mine");
    EXPECT_NO_THROW(RunJob(job));  // by hand, though it is disabled
}

TEST_F(AgentTest, AStopEndsTheSessionAndIsNotRepeated) {
    Engine->Hold(true);
    Start();
    auto config = Config();
    config.RetriesInfo = SRetriesInfo{3, 1};
    const Guid job = Agent->CreateJob(Caller, config);
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    EXPECT_TRUE(Agent->StopSession(Caller, session, "lunch"));
    EXPECT_FALSE(Agent->StopSession(Caller, session, "again"));
    const auto info = AwaitEnd(session);
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_TRUE(Says(info, "lunch")) << Lines(info);
    EXPECT_TRUE(Says(info, "Canceled")) << Lines(info);
    EXPECT_FALSE(Agent->StopSession(Caller, session, ""));
    EXPECT_FALSE(Agent->StopSession(Caller, Guid::Random(), ""));
    EXPECT_EQ(Agent->SessionsOf(job).size(), 1U);
    EXPECT_TRUE(Agent->PointsForRestore(job).empty());
}

TEST_F(AgentTest, AFailedRunIsTriedAgainAfterItsTime) {
    Engine->FailNext<CEngineFailed>("first fault");
    Engine->FailNext<CEngineFailed>("second fault");
    Start();
    auto config = Config();
    config.RetriesInfo = SRetriesInfo{2, 60000};
    const Guid job = Agent->CreateJob(Caller, config);
    const Guid first = Agent->StartJob(Caller, job, {});
    const auto failed = AwaitEnd(first);
    EXPECT_EQ(failed.Result, JobResult::Failed);
    EXPECT_TRUE(Says(failed, "first fault"));
    EXPECT_TRUE(failed.RetriesInfo->IsJobAwaitingForRetry);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CJobIsRunning);
    MoveClock(59s);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 1U);
    MoveClock(2s);
    const auto second = AwaitSession(job, 2);
    EXPECT_EQ(second.OriginalSessionId, first);
    EXPECT_EQ(second.RetriesInfo->CurrentAttemptNumber, 1U);
    EXPECT_FALSE(Agent->SessionInfo(first).RetriesInfo->IsJobAwaitingForRetry);
    MoveClock(61s);
    const auto third = AwaitSession(job, 3);
    EXPECT_EQ(third.Result, JobResult::Success) << Lines(third);
    EXPECT_EQ(third.OriginalSessionId, first);
    EXPECT_EQ(Engine->CountOf("prepare"), 1U);  // attempts share the chain
}

TEST_F(AgentTest, AnAwaitedRetryIsStillAwaitedAfterARestart) {
    Engine->FailNext<CEngineFailed>("fault");
    Start();
    auto config = Config();
    config.RetriesInfo = SRetriesInfo{1, 60000};
    const Guid job = Agent->CreateJob(Caller, config);
    AwaitEnd(Agent->StartJob(Caller, job, {}));
    Restart();
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CJobIsRunning);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 1U);
    MoveClock(61s);
    EXPECT_EQ(AwaitSession(job, 2).Result, JobResult::Success);
}

TEST_F(AgentTest, AStopCallsAnAwaitedRetryOff) {
    Engine->FailNext<CEngineFailed>("fault");
    Start();
    auto config = Config();
    config.RetriesInfo = SRetriesInfo{1, 60000};
    const Guid job = Agent->CreateJob(Caller, config);
    const Guid first = Agent->StartJob(Caller, job, {});
    AwaitEnd(first);
    EXPECT_TRUE(Agent->StopSession(Caller, first, "enough"));
    EXPECT_FALSE(Agent->SessionInfo(first).RetriesInfo->IsJobAwaitingForRetry);
    MoveClock(61s);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

TEST_F(AgentTest, UnreadableFilesMakeAWarningWithTheirPaths) {
    Engine->m_warnings = {"/a: denied", "/b: denied"};
    Start();
    const auto info = RunJob(MakeJob());
    EXPECT_EQ(info.Result, JobResult::Warning);
    EXPECT_TRUE(Says(info, "/a: denied"));
    EXPECT_TRUE(Says(info, "/b: denied"));
}

TEST_F(AgentTest, OneRepositoryHasOneWriterAndTheOthersWait) {
    Engine->Hold(true);
    Settings.AtOnce = 5;
    Start();
    const Guid one = Agent->CreateJob(Caller, Config("one"));
    const Guid two = Agent->CreateJob(Caller, Config("two"));
    const Guid first = Agent->StartJob(Caller, one, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    const Guid second = Agent->StartJob(Caller, two, {});
    EXPECT_TRUE(Await([&] { return Agent->SessionInfo(second).State == JobState::Pending; }));
    Engine->Hold(false);
    EXPECT_EQ(AwaitEnd(first).Result, JobResult::Success);
    EXPECT_EQ(AwaitEnd(second).Result, JobResult::Success);
    EXPECT_EQ(Engine->Most(), 1U);
}

TEST_F(AgentTest, SoManySessionsWorkAtOnceAndNoMore) {
    Engine->Hold(true);
    Settings.AtOnce = 2;
    Start();
    std::vector<Guid> sessions;
    for (int i = 0; i < 4; ++i) {
        const std::string name = std::to_string(i);
        auto config = Config(name);
        config.RepositoryId = MakeRepository(name, "location" + name);
        sessions.push_back(Agent->StartJob(Caller, Agent->CreateJob(Caller, config), {}));
    }
    ASSERT_TRUE(Engine->AwaitRunning(2));
    EXPECT_TRUE(Agent->StopSession(Caller, sessions[3], "while it waits"));
    Engine->Hold(false);
    for (const auto& session : sessions) {
        AwaitEnd(session);
    }
    EXPECT_EQ(Engine->Most(), 2U);
}

TEST_F(AgentTest, MoreSessionsAtOnceAreTakenFromNewSettings) {
    Engine->Hold(true);
    Settings.AtOnce = 1;
    Start();
    auto other = Config("other");
    other.RepositoryId = MakeRepository("other", "other");
    const Guid first = Agent->StartJob(Caller, MakeJob(), {});
    const Guid second = Agent->StartJob(Caller, Agent->CreateJob(Caller, other), {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    Settings.AtOnce = 2;
    Agent->Reload(Settings);
    EXPECT_TRUE(Engine->AwaitRunning(2));
    Engine->Hold(false);
    AwaitEnd(first);
    AwaitEnd(second);
}

// Machines and volumes

/// A host with a disk, a stick, and a file system of which nobody knows where it lies.
class HostTest : public AgentTest {
protected:
    HostTest() {
        std::filesystem::create_directories(Home + "/host/dev");
        AddDisk("sda", "8:0", "pci0/ata1", "disk");
        AddDisk("sdb", "8:16", "pci0/usb1/1-1", "stick");
        AddMount("0:77", "pool", "odd");
        Settings.Host = {Home + "/host/dev", Home + "/host/sys", Home + "/host/mounts"};
        Start();
    }
    void AddDisk(const std::string& name, const std::string& number, const std::string& bus,
                 const std::string& folder) {
        const std::string sys = Home + "/host/sys/";
        std::filesystem::create_directories(sys + "devices/" + bus + "/" + name);
        std::filesystem::create_directories(sys + "dev/block");
        std::ofstream(sys + "devices/" + bus + "/" + name + "/removable") << "0\n";
        std::filesystem::create_symlink("../../devices/" + bus + "/" + name, sys + "dev/block/" + number);
        std::ofstream(Home + "/host/dev/" + name) << number;
        AddMount(number, "/dev/" + name, folder);
    }
    void AddMount(const std::string& number, const std::string& source, const std::string& folder) {
        std::filesystem::create_directory(Home + "/" + folder);
        std::ofstream(Home + "/" + folder + "/file") << "text";
        std::ofstream(Home + "/host/mounts", std::ios::app)
            << "2 1 " << number << " / " << Home << "/" << folder << " rw - ext4 " << source << " rw\n";
    }
    bool BacksUp(const std::string& folder) {
        return Engine->m_lists.back().find(Home + "/" + folder) != std::string::npos;
    }
    SBackupJobConfigurationInfo ConfigOf(JobBackupMode mode) {
        auto config = Config();
        config.Source = {};
        config.Source.BackupMode = mode;
        return config;
    }
};

TEST_F(HostTest, AnEntireMachineIsItsFileSystemsWithoutTheDrivesThatCanBeTakenAway) {
    auto config = ConfigOf(JobBackupMode::EntireMachine);
    const Guid job = Agent->CreateJob(Caller, config);
    std::string findings;
    for (const auto& finding : Agent->CheckValidity(job)) {
        EXPECT_EQ(finding.MessageType, ELogDetailType::Info) << finding.Message;
        findings += finding.Message + "\n";
    }
    EXPECT_NE(findings.find(Home + "/stick\" is left out"), std::string::npos) << findings;
    EXPECT_NE(findings.find(Home + "/odd\" is on a removable or USB drive can't be told"), std::string::npos)
        << findings;
    auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(Says(info, "is left out")) << Lines(info);
    EXPECT_TRUE(BacksUp("disk"));
    EXPECT_TRUE(BacksUp("odd"));
    EXPECT_FALSE(BacksUp("stick"));
    EXPECT_FALSE(BacksUp("source"));
    EXPECT_TRUE(Engine->m_oneFileSystem);

    config.Source.shouldBackupUsbDrives = true;
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(Agent->CheckValidity(job).size(), 1U);
    info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(BacksUp("stick"));
}

TEST_F(HostTest, VolumesAreTheFilesOfWhatIsMountedFromThem) {
    auto config = ConfigOf(JobBackupMode::VolumeLevel);
    config.Source.Objects = {{"sdb", EVolumeBackupObjectType::Unknown}};
    const Guid job = Agent->CreateJob(Caller, config);
    auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(BacksUp("stick"));
    EXPECT_FALSE(BacksUp("disk"));
    EXPECT_TRUE(Engine->m_oneFileSystem);

    config.Source.Objects.push_back({"sda", EVolumeBackupObjectType::Unknown});
    Agent->UpdateJob(Caller, job, config);
    info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(BacksUp("stick"));
    EXPECT_TRUE(BacksUp("disk"));

    config.Source.Objects.push_back({"sdz", EVolumeBackupObjectType::Unknown});
    Agent->UpdateJob(Caller, job, config);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_NE(ErrorsOf(Agent->CheckValidity(job)).find("sdz"), std::string::npos);
}

TEST_F(AgentTest, ADeviceAmongTheFoldersIsRefused) {
    Start();
    auto config = Config();
    config.Source.IncludeDirs.emplace_back("/dev/null");
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_NE(ErrorsOf(Agent->CheckValidity(job)).find("\"/dev/null\" can't be backed up: it is a device"),
              std::string::npos);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
}

// Scripts

TEST_F(AgentTest, ScriptsRunAroundTheSessionAndLearnHowItEnded) {
    Start();
    WriteScript(Home + "/pre", "echo before; echo pre >>" + Home + "/told");
    WriteScript(Home + "/post", "echo \"$TARVO_RESULT $TARVO_JOB_NAME\" >>" + Home + "/told");
    auto config = Config();
    config.ScriptInfo = SBackupJobScriptInfo{};
    config.ScriptInfo->PreJobScript = Home + "/pre";
    config.ScriptInfo->PostJobScript = Home + "/post";
    const Guid job = Agent->CreateJob(Caller, config);
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(Says(info, "before"));
    EXPECT_EQ(Contents(Home + "/told"), "pre\nSuccess nightly\n");
    Engine->FailNext<CEngineFailed>("fault");
    RunJob(job);
    EXPECT_EQ(Contents(Home + "/told"), "pre\nSuccess nightly\npre\nFailed nightly\n");
}

TEST_F(AgentTest, AFailedPreJobScriptFailsTheRunAndIsTriedAgain) {
    Start();
    WriteScript(Home + "/pre", "exit 3");
    auto config = Config();
    config.ScriptInfo = SBackupJobScriptInfo{};
    config.ScriptInfo->PreJobScript = Home + "/pre";
    config.RetriesInfo = SRetriesInfo{1, 1000};
    const Guid job = Agent->CreateJob(Caller, config);
    const auto info = AwaitEnd(Agent->StartJob(Caller, job, {}));
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_TRUE(Says(info, "status 3")) << Lines(info);
    EXPECT_EQ(Engine->CountOf("back up"), 0U);
    WriteScript(Home + "/pre", "exit 0");
    MoveClock(2s);
    EXPECT_EQ(AwaitSession(job, 2).Result, JobResult::Success);
}

TEST_F(AgentTest, AFailedPostJobScriptMakesAWarning) {
    Start();
    WriteScript(Home + "/post", "exit 1");
    auto config = Config();
    config.ScriptInfo = SBackupJobScriptInfo{};
    config.ScriptInfo->PostJobScript = Home + "/post";
    const auto info = RunJob(Agent->CreateJob(Caller, config));
    EXPECT_EQ(info.Result, JobResult::Warning) << Lines(info);
}

TEST_F(AgentTest, AScriptThatTakesTooLongIsEnded) {
    Start();
    WriteScript(Home + "/pre", "sleep 100");
    auto config = Config();
    config.ScriptInfo = SBackupJobScriptInfo{};
    config.ScriptInfo->PreJobScript = Home + "/pre";
    config.ScriptInfo->ExecutionTimeout = {0, 200};
    const auto info = RunJob(Agent->CreateJob(Caller, config));
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_TRUE(Says(info, "pre-job script failed")) << Lines(info);
}

TEST_F(AgentTest, AStopEndsAScriptAndThePostJobScriptIsNotWaitedForLong) {
    Start();
    WriteScript(Home + "/pre", "touch " + Home + "/runs; sleep 100");
    WriteScript(Home + "/post", "touch " + Home + "/posted; sleep 100");
    auto config = Config();
    config.ScriptInfo = SBackupJobScriptInfo{};
    config.ScriptInfo->PreJobScript = Home + "/pre";
    config.ScriptInfo->PostJobScript = Home + "/post";
    const Guid session = Agent->StartJob(Caller, Agent->CreateJob(Caller, config), {});
    ASSERT_TRUE(Await([&] { return std::filesystem::exists(Home + "/runs"); }));
    const auto began = std::chrono::steady_clock::now();
    Agent->StopSession(Caller, session, "");
    const auto info = AwaitEnd(session);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
    EXPECT_TRUE(Says(info, "Canceled")) << Lines(info);
    EXPECT_TRUE(std::filesystem::exists(Home + "/posted"));
}

// Places that go and come

TEST_F(AgentTest, ALocationThatIsAwayFailsTheRunAndIsNotMade) {
    Start();
    const Guid job = MakeJob();
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    std::filesystem::rename(Home + "/location", Home + "/away");
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_FALSE(std::filesystem::exists(Home + "/location"));
    std::filesystem::rename(Home + "/away", Home + "/location");
    const auto info = RunJob(job);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Increment) << Lines(info);
}

TEST_F(AgentTest, ALostChainIsFollowedByANewOneAndComesBackWithItsDisk) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    std::filesystem::rename(Home + "/location", Home + "/away");
    std::filesystem::create_directory(Home + "/location");
    const auto info = RunJob(job);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_TRUE(Says(info, "no longer where it was")) << Lines(info);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    std::filesystem::rename(Home + "/away/tarvo/" + PlainText(job) + "/1",
                            Home + "/location/tarvo/" + PlainText(job) + "/1");
    RunJob(job);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 3U);
}

/// A location that is the mount point of a disk.
class DiskTest : public AgentTest {
protected:
    void SetUp() override {
        std::filesystem::create_directory(Home + "/disk");
        if (!Mount()) GTEST_SKIP() << "may not mount";
        Start();
    }
    ~DiskTest() override {
        Agent.reset();
        Unmount();
    }
    bool Mount() { return ::mount(Disk.c_str(), Location.c_str(), "none", MS_BIND, nullptr) == 0; }
    void Unmount() { ::umount2(Location.c_str(), MNT_DETACH); }

    const std::string Disk = Home + "/disk";
    const std::string Location = Home + "/location";
};

TEST_F(DiskTest, TheEmptyFolderOfAMountPointIsNoLostChain) {
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    Unmount();
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_NE(ErrorsOf(Agent->CheckValidity(job)).find("is not mounted"), std::string::npos);
    MoveClock(1h);
    const auto failed = AwaitSession(job, 2);
    EXPECT_EQ(failed.Result, JobResult::Failed);
    EXPECT_TRUE(Says(failed, "is not mounted")) << Lines(failed);
    EXPECT_TRUE(std::filesystem::is_empty(Location));
    Restart();
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    ASSERT_TRUE(Mount());
    const auto info = RunJob(job);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Increment) << Lines(info);
}

TEST_F(DiskTest, ADiskThatGoesWhileASessionWorksTakesNoChainAlong) {
    const Guid job = MakeJob();
    RunJob(job);
    Engine->Hold(true);
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    Unmount();
    Engine->Hold(false);
    const auto info = AwaitEnd(session);
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_TRUE(Says(info, "not mounted any more")) << Lines(info);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);  // none is listed of a lost chain
    ASSERT_TRUE(Mount());
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(DiskTest, AFirstRunBeginsNothingBelowAMountPointEither) {
    const Guid job = MakeJob();
    Unmount();
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    ASSERT_TRUE(Mount());
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
}

TEST_F(DiskTest, ADiskThatWasEmptiedTakesANewChain) {
    const Guid job = MakeJob();
    RunJob(job);
    std::filesystem::remove_all(Location + "/tarvo");
    const auto info = RunJob(job);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_TRUE(Says(info, "no longer where it was")) << Lines(info);
}

TEST_F(DiskTest, ChainsThatWereMovedBelowTheMountPointAreTaken) {
    const Guid job = MakeJob();
    RunJob(job);
    Unmount();
    std::filesystem::rename(Disk + "/tarvo", Location + "/tarvo");
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
    std::filesystem::remove_all(Location + "/tarvo");  // the folder is the repository's place from now on
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Full);
}

TEST_F(DiskTest, OldPointsOnAnUnmountedDiskAreNotForgotten) {
    auto config = Config();
    config.RetentionInfo.RestorePointsCount = 1;
    const Guid job = Agent->CreateJob(Caller, config);
    RunJob(job);
    config.RepositoryId = MakeRepository("other", "other");
    Agent->UpdateJob(Caller, job, config);
    Unmount();
    const auto info = RunJob(job);
    EXPECT_TRUE(Says(info, "for now")) << Lines(info);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 2U);
    ASSERT_TRUE(Mount());
    RunJob(job);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(Disk + "/tarvo") ||
                !std::filesystem::exists(Disk + "/tarvo/" + PlainText(job) + "/1"));
}

TEST_F(AgentTest, ADamagedChainIsNamedAndFollowedByANewOne) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    Engine->FailNext<CStoreDamaged>("pack 17 is damaged");
    const auto failed = RunJob(job);
    EXPECT_EQ(failed.Result, JobResult::Failed);
    EXPECT_TRUE(Says(failed, "pack 17"));
    const auto info = RunJob(job);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_EQ(info.Result, JobResult::Warning);
    EXPECT_TRUE(Says(info, "damaged")) << Lines(info);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, AnActiveFullBackupBeginsANewChain) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    SJobStartOptions options;
    options.ActiveFull = EJobStartActiveFullMode::Enabled;
    EXPECT_EQ(RunJob(job, options).SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
    EXPECT_TRUE(std::filesystem::exists(Home + "/location/tarvo/" + PlainText(job) + "/2/config"));
}

TEST_F(AgentTest, AStoreThatTheEngineHasWaitedForIsNotWaitedForAgain) {
    Start();
    const Guid job = MakeJob();
    Engine->FailNext<CStoreLocked>("locked by 7");
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_TRUE(Says(info, "locked by 7")) << Lines(info);
    EXPECT_EQ(Engine->CountOf("back up"), 1U);
}

// Retention

TEST_F(AgentTest, OldPointsGoAfterASuccessAndAChainWithoutPointsWithThem) {
    Start();
    auto config = Config();
    config.RetentionInfo.RestorePointsCount = 2;
    const Guid job = Agent->CreateJob(Caller, config);
    RunJob(job);
    Clock.Advance(1h);
    RunJob(job);
    Clock.Advance(1h);
    const auto third = RunJob(job);
    EXPECT_TRUE(Says(third, "not one of the newest 2")) << Lines(third);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 2U);
    EXPECT_EQ(Engine->CountOf("forget"), 1U);
    SJobStartOptions options;
    options.ActiveFull = EJobStartActiveFullMode::Enabled;
    Clock.Advance(1h);
    RunJob(job, options);
    Clock.Advance(1h);
    RunJob(job);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 2U);
    EXPECT_EQ(Engine->CountOf("remove"), 1U);
    EXPECT_FALSE(std::filesystem::exists(Home + "/location/tarvo/" + PlainText(job) + "/1"));
}

TEST_F(AgentTest, OldPointsOnADiskThatIsAwayMakeNoWarningAndGoWhenItIsBack) {
    Start();
    auto config = Config();
    config.RetentionInfo.RestorePointsCount = 1;
    const Guid job = Agent->CreateJob(Caller, config);
    RunJob(job);
    config.RepositoryId = MakeRepository("other", "other");
    Agent->UpdateJob(Caller, job, config);
    std::filesystem::rename(Home + "/location", Home + "/away");
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(Says(info, "for now")) << Lines(info);
    std::filesystem::rename(Home + "/away", Home + "/location");
    RunJob(job);
    EXPECT_FALSE(std::filesystem::exists(Home + "/location/tarvo/" + PlainText(job) + "/1"));
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
}

TEST_F(AgentTest, OldPointsOfADamagedChainGoWithItAsAWhole) {
    Start();
    auto config = Config();
    config.RetentionInfo.RestorePointsCount = 2;
    const Guid job = Agent->CreateJob(Caller, config);
    RunJob(job);
    RunJob(job);
    Engine->FailNext<CStoreDamaged>("pack 17");
    RunJob(job);
    RunJob(job);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 3U);  // one sound point is too few
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 2U);
    EXPECT_EQ(Engine->CountOf("forget"), 0U);
    EXPECT_EQ(Engine->CountOf("remove"), 1U);
}

// Passwords

TEST_F(AgentTest, AnotherPasswordChangesTheKeysOfTheJobsChains) {
    Start();
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("old secret"), "hint"};
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_FALSE(Agent->Configuration(job).StorageInfo.EncryptionSettings->Password);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    auto kept = Agent->Configuration(job);
    kept.UserData = "x";
    Agent->UpdateJob(Caller, job, kept);  // says no password
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
    EXPECT_EQ(Engine->CountOf("change password"), 0U);
    config.StorageInfo.EncryptionSettings->Password = std::string("new secret");
    Agent->UpdateJob(Caller, job, config);
    EXPECT_TRUE(Await([&] { return Engine->Stores().begin()->second.Password == "new secret"; }));
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, APasswordAddedOrRemovedBeginsANewChain) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("secret"), ""};
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Full);
    config.StorageInfo.EncryptionSettings.Reset();
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 3U);
    EXPECT_EQ(Engine->CountOf("change password"), 0U);
}

TEST_F(AgentTest, APasswordChangeThatWasCutShortIsFinishedByTheNextRun) {
    Start();
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("old"), ""};
    const Guid job = Agent->CreateJob(Caller, config);
    RunJob(job);
    Engine->m_afterPassword = [] { throw CEngineFailed("killed before it could say so"); };
    config.StorageInfo.EncryptionSettings->Password = std::string("new");
    Agent->UpdateJob(Caller, job, config);
    ASSERT_TRUE(Await([&] { return Log.Has("can't be changed in its chains yet"); }));
    Engine->m_afterPassword = {};
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
}

// Many at once

TEST_F(AgentTest, ClientsThatChangeAndLookAtOnceDisturbNobody) {
    Settings.AtOnce = 4;
    Start();
    std::vector<Guid> jobs;
    for (int i = 0; i < 4; ++i) {
        const std::string name = std::to_string(i);
        auto config = Config(name);
        config.RepositoryId = MakeRepository(name, "location" + name);
        config.RetentionInfo.RestorePointsCount = 2;
        jobs.push_back(Agent->CreateJob(Caller, config));
    }
    std::vector<std::thread> clients;
    for (unsigned client = 0; client < 4; ++client) {
        clients.emplace_back([&, client] {
            for (unsigned round = 0; round < 12; ++round) {
                const Guid& job = jobs[(client + round) % jobs.size()];
                try {
                    const Guid session = Agent->StartJob(Caller, job, {});
                    if (round % 4 == 3) Agent->StopSession(Caller, session, "enough");
                    Agent->SessionInfo(session);
                } catch (const CJobIsRunning&) {
                }
                Agent->SetUserData(Caller, job, std::to_string(round));
                Agent->SetEnabled(Caller, job, round % 2 == 0);
                for (const auto& session : Agent->SessionsOf(job)) {
                    Agent->SessionInfo(session);
                }
                Agent->PointsForRestore(job);
                Agent->ClockChanged();
                Agent->JobInfo(job);
            }
        });
    }
    for (auto& client : clients) {
        client.join();
    }
    for (const auto& job : jobs) {
        for (const auto& session : Agent->SessionsOf(job)) {
            EXPECT_NE(AwaitEnd(session).Result, JobResult::None);
        }
    }
}

// What can't be written down

/// Makes changes of the state fail from beside, as a full disk does.
class CNothingIsWritten {
public:
    CNothingIsWritten(const std::string& home, const std::string& what)
        : m_database(home + "/state/state.db", SQLite::OPEN_READWRITE, 5000) {
        m_database.exec("CREATE TRIGGER full BEFORE " + what + " BEGIN SELECT RAISE(ABORT, 'full'); END");
    }
    void End() { m_database.exec("DROP TRIGGER full"); }

private:
    SQLite::Database m_database;
};

constexpr const char* Endings = "UPDATE ON session WHEN NEW.is_finished = 1";

TEST_F(AgentTest, AnEndThatCantBeWrittenIsTriedAgainAndNothingElseIsShownBefore) {
    Start();
    const Guid job = MakeJob();
    CNothingIsWritten full(Home, Endings);
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Await([&] { return Says(Agent->SessionInfo(session), "can't be written down yet"); }));
    EXPECT_NE(Agent->SessionInfo(session).State, JobState::Stopped);
    EXPECT_EQ(Agent->SessionInfo(session).Result, JobResult::None);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CJobIsRunning);
    full.End();
    const auto info = AwaitEnd(session);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_EQ(info.PercentCompleted, 100);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    Restart();
    EXPECT_EQ(Agent->SessionInfo(session), info);
}

TEST_F(AgentTest, APointThatCantBeWrittenDownIsNotLost) {
    Start();
    const Guid job = MakeJob();
    CNothingIsWritten full(Home, "INSERT ON point");
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Await([&] { return Says(Agent->SessionInfo(session), "can't be written down yet"); }));
    EXPECT_TRUE(Agent->PointsForRestore(job).empty());
    full.End();
    const auto info = AwaitEnd(session);
    EXPECT_EQ(info.Result, JobResult::Warning) << Lines(info);
    EXPECT_EQ(info.BackedUpSizeBytes, 3000);
    EXPECT_EQ(info.PercentCompleted, 100);
    const auto points = Agent->PointsForRestore(job);
    ASSERT_EQ(points.size(), 1U);
    EXPECT_EQ(points[0].Id, info.OibId);
    EXPECT_TRUE(Agent->JobInfo(job).LastBackupTimeUtc);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, AnEndThatCouldNotBeWrittenIsWrittenWhenTheAgentEnds) {
    Start();
    const Guid job = MakeJob();
    CNothingIsWritten full(Home, Endings);
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Await([&] { return Says(Agent->SessionInfo(session), "can't be written down yet"); }));
    full.End();
    Agent->Stop();
    EXPECT_EQ(Agent->SessionInfo(session).Result, JobResult::Success);
    Restart();
    const auto info = Agent->SessionInfo(session);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
}

// The end of the agent

TEST_F(AgentTest, AnEndInterruptsSessionsAndOnesStartedByHandAreNotRepeated) {
    Engine->Hold(true);
    Start();
    const Guid job = MakeJob();
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    const auto began = std::chrono::steady_clock::now();
    Agent->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
    const auto info = Agent->SessionInfo(session);
    EXPECT_EQ(info.State, JobState::Stopped);
    EXPECT_TRUE(Says(info, "Interrupted")) << Lines(info);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    Engine->Hold(false);
    Restart();
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

}  // namespace tarvo::tests
