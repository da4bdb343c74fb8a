// SPDX-License-Identifier: Apache-2.0
// Control, jobs, places, events, and what an end without a farewell leaves.
#include <archive.h>
#include <archive_entry.h>
#include <malloc.h>
#include <sys/mount.h>

#include <map>

#include "agent/state/CStore.h"
#include "tests/Sanitized.h"
#include "tests/agent/jobs/Fixture.h"

namespace tarvo::tests {

namespace {

class CEvents {
public:
    explicit CEvents(const CAgent& agent) : m_stream(agent.EventConfig(), nullptr) {}

    SBaseEvent Next() {
        const auto event = m_stream.ReadUntil(std::chrono::steady_clock::now() + 20s);
        EXPECT_TRUE(event);
        return event ? *event : SBaseEvent{};
    }

    std::vector<EEventType> Types(std::size_t count) {
        std::vector<EEventType> types;
        while (types.size() < count) {
            types.push_back(Next().Type);
        }
        return types;
    }

private:
    CEventsStream m_stream;
};

using Types = std::vector<EEventType>;

std::map<std::string, std::string> Unpacked(const std::string& path) {
    std::map<std::string, std::string> files;
    archive* const packed = ::archive_read_new();
    ::archive_read_support_filter_gzip(packed);
    ::archive_read_support_format_tar(packed);
    EXPECT_EQ(::archive_read_open_filename(packed, path.c_str(), 65536), ARCHIVE_OK);
    archive_entry* entry = nullptr;
    while (::archive_read_next_header(packed, &entry) == ARCHIVE_OK) {
        std::string text(static_cast<std::size_t>(::archive_entry_size(entry)), '\0');
        ::archive_read_data(packed, text.data(), text.size());
        files[::archive_entry_pathname(entry)] = text;
    }
    ::archive_read_free(packed);
    return files;
}

}  // namespace

// Events

TEST_F(AgentTest, EveryChangeIsToldInItsOrderAndByWhom) {
    Start();
    CEvents events(*Agent);
    const Guid job = MakeJob();
    const auto created = events.Next();
    EXPECT_EQ(created.Type, EEventType::BackupJobCreated);
    EXPECT_EQ(created.eventBackupJobCreated->JobId, job);
    EXPECT_EQ(created.eventBackupJobCreated->Username, "tester");
    EXPECT_EQ(created.ControlSessionId, Agent->SessionId());
    EXPECT_EQ(created.SourceType, EEventSourceType::Owner);

    auto config = Config();
    config.Source.ExcludeMasks = {"*.tmp"};
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(events.Types(2), (Types{EEventType::BackupJobModified, EEventType::BackupSourceUpdated}));
    config.Source.BackupMode = JobBackupMode::EntireMachine;
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(events.Types(2), (Types{EEventType::BackupJobModified, EEventType::BackupModeChanged}));
    config = Config();
    Agent->UpdateJob(Caller, job, config);
    EXPECT_EQ(events.Types(3), (Types{EEventType::BackupJobModified, EEventType::BackupSourceUpdated,
                                      EEventType::BackupModeChanged}));
    Agent->SetEnabled(Caller, job, false);
    Agent->SetUserData(Caller, job, "x");
    EXPECT_EQ(events.Types(2), (Types{EEventType::BackupJobModified, EEventType::BackupJobModified}));

    const auto info = RunJob(job);
    const auto started = events.Next();
    EXPECT_EQ(started.eventBackupJobStarted->SessionId, info.Uid);
    EXPECT_EQ(started.eventBackupJobStarted->Username, "tester");
    EXPECT_EQ(started.eventBackupJobStarted->JobMode, JobBackupMode::FileLevel);
    const auto finished = events.Next();
    EXPECT_EQ(finished.eventBackupJobFinished->Status, JobSessionTaskStatus::Success);
    EXPECT_EQ(finished.ControlSessionId, Agent->SessionId());

    Agent->DeleteJob(Caller, job);
    const auto deleted = events.Next();
    EXPECT_EQ(deleted.eventBackupJobDeleted->JobId, job);
    EXPECT_GT(deleted.Id, created.Id);
}

TEST_F(AgentTest, TheSchedulersEventsHaveNoControlSession) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    Agent->CreateJob(Caller, config);
    CEvents events(*Agent);
    MoveClock(1h);
    const auto started = events.Next();
    EXPECT_EQ(started.Type, EEventType::BackupJobStarted);
    EXPECT_EQ(started.SourceType, EEventSourceType::Scheduler);
    EXPECT_EQ(started.ControlSessionId, Guid{});
    EXPECT_EQ(events.Next().ControlSessionId, Guid{});
}

TEST_F(AgentTest, ARetryIsToldBeforeItsStart) {
    Engine->FailNext<CEngineFailed>("fault");
    Start();
    auto config = Config();
    config.RetriesInfo = SRetriesInfo{1, 1000};
    const Guid job = Agent->CreateJob(Caller, config);
    CEvents events(*Agent);
    AwaitEnd(Agent->StartJob(Caller, job, {}));
    MoveClock(2s);
    AwaitSession(job, 2);
    EXPECT_EQ(events.Types(5), (Types{EEventType::BackupJobStarted, EEventType::BackupJobFinished,
                                      EEventType::BackupJobRetried, EEventType::BackupJobStarted,
                                      EEventType::BackupJobFinished}));
}

TEST_F(AgentTest, EventsGoOnCountingAfterARestart) {
    Start();
    unsigned long last = 0;
    {
        CEvents events(*Agent);
        const Guid job = MakeJob();
        Agent->SetUserData(Caller, job, "x");
        events.Next();
        last = events.Next().Id;
    }
    Restart();
    CEvents events(*Agent);
    Agent->SetUserData(Caller, Agent->Jobs().at(0), "y");
    EXPECT_GT(events.Next().Id, last);
}

// Control

TEST_F(AgentTest, ControlOutlivesARestart) {
    Start();
    Owner.Mode = ZAMOwnerMode::Exclusive;
    Agent->RequestControl(Peer, Owner, false);
    const auto grant = Caller.Grant;
    Agent.reset();
    Agent = std::make_unique<CAgent>(Folders, Settings, Engine, Clock, Log);
    EXPECT_EQ(Agent->CurrentOwner(), Owner);
    SZamControlOwnerInfo other{Guid::Random(), "other", {}, ZAMOwnerMode::Shared};
    EXPECT_THROW(Agent->RequestControl(Peer, other, false), CGenericException);
    EXPECT_NO_THROW(Agent->RequestControl(Peer, Owner, false));
    Agent->ReleaseControl(Peer, Owner);
    EXPECT_NO_THROW(Agent->RequestControl(Peer, other, false));
}

TEST_F(AgentTest, WhoHasLostControlChangesNothing) {
    Start();
    const Guid job = MakeJob();
    Agent->RequestControl(Peer, {Guid::Random(), "thief", {}, ZAMOwnerMode::Shared}, true);
    EXPECT_THROW(Agent->CreateJob(Caller, Config("b")), CGenericException);
    EXPECT_THROW(Agent->DeleteJob(Caller, job), CGenericException);
    EXPECT_THROW(Agent->SetEnabled(Caller, job, false), CGenericException);
    EXPECT_THROW(Agent->SetUserData(Caller, job, ""), CGenericException);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_THROW(Agent->SetSchedulerAllowed(Caller, false), CGenericException);
    EXPECT_THROW(Agent->DeleteRepository(Caller, Repository), CGenericException);
    EXPECT_THROW(Agent->StopSession(Caller, Guid::Random(), ""), CGenericException);
    EXPECT_EQ(Agent->JobInfo(job).Name, "nightly");
}

// Jobs

TEST_F(AgentTest, NamesOfJobsAreUniqueAndNeeded) {
    Start();
    const Guid job = MakeJob();
    EXPECT_THROW(Agent->CreateJob(Caller, Config("nightly")), CGenericException);
    EXPECT_THROW(Agent->CreateJob(Caller, Config("")), CGenericException);
    Agent->DeleteJob(Caller, job);
    EXPECT_FALSE(Agent->DeleteJob(Caller, job));
    EXPECT_THROW(Agent->JobInfo(job), CGenericException);
    EXPECT_NO_THROW(Agent->CreateJob(Caller, Config("nightly")));
}

TEST_F(AgentTest, ADeletedJobsPointsStayInTheStore) {
    Start();
    const Guid job = MakeJob();
    const auto session = RunJob(job);
    EXPECT_TRUE(Agent->DeleteJob(Caller, job));
    EXPECT_FALSE(Agent->HasJob(job));
    EXPECT_FALSE(Agent->HasSession(session.Uid));
    Restart();
    EXPECT_TRUE(Agent->Jobs().empty());
    CStore store(Folders.State, {true, 5s});
    EXPECT_EQ(store.PointsOf(job).size(), 1U);
    EXPECT_TRUE(store.FindJob(job)->IsDeleted);
    EXPECT_TRUE(std::filesystem::exists(Home + "/location/tarvo/" + PlainText(job) + "/1/config"));
}

TEST_F(AgentTest, AStartThatCanNotSucceedIsRefusedWithTheReason) {
    Start();
    auto config = Config();
    config.Source.IncludeDirs = {Home + "/nothing"};
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_EQ(Agent->CheckValidity(job).size(), 1U);
    try {
        Agent->StartJob(Caller, job, {});
        FAIL();
    } catch (const CGenericException& error) {
        EXPECT_NE(std::string(error.what()).find("does not exist"), std::string::npos) << error.what();
    }
    EXPECT_TRUE(Agent->SessionsOf(job).empty());
    Agent->UpdateJob(Caller, job, Config());
    EXPECT_TRUE(Agent->CheckValidity(job).empty());
}

TEST_F(AgentTest, AMissingEngineIsAFinding) {
    Engine->m_fault = "restic is not installed";
    Start();
    const Guid job = MakeJob();
    ASSERT_EQ(Agent->CheckValidity(job).size(), 1U);
    EXPECT_EQ(Agent->CheckValidity(job)[0].MessageType, ELogDetailType::Error);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
}

TEST_F(AgentTest, SomeFoldersMissingMakeAWarningAndTheRunGoesOn) {
    Start();
    auto config = Config();
    config.Source.IncludeDirs.push_back(Home + "/nothing");
    const auto info = RunJob(Agent->CreateJob(Caller, config));
    EXPECT_EQ(info.Result, JobResult::Warning);
    EXPECT_TRUE(Says(info, "nothing")) << Lines(info);
}

// Places

TEST_F(AgentTest, ARepositorysLastFolderIsMadeForItsUserAloneAndMissingParentsAreRefused) {
    Start();
    MakeRepository("new", "fresh");
    EXPECT_EQ(std::filesystem::status(Home + "/fresh").permissions(), std::filesystem::perms::owner_all);
    EXPECT_THROW(MakeRepository("deep", "a/b"), CGenericException);
    EXPECT_THROW(MakeRepository("new", "other"), CGenericException);
    EXPECT_FALSE(std::filesystem::exists(Home + "/other"));
    SBackupRepositoryInfo info;
    info.Name = "relative";
    info.Type = BackupTargetType::LocalFolder;
    info.Location = "backups";
    EXPECT_THROW(Agent->CreateRepository(Caller, info), CGenericException);
}

TEST_F(AgentTest, ARepositoryThatAJobUsesStays) {
    Start();
    const Guid job = MakeJob();
    EXPECT_FALSE(Agent->CanRepositoryBeDeleted(Repository));
    EXPECT_THROW(Agent->DeleteRepository(Caller, Repository), CGenericException);
    EXPECT_TRUE(Agent->RepositorySize(Repository));
    EXPECT_FALSE(Agent->RepositorySize(Guid::Random()));
    Agent->DeleteJob(Caller, job);
    EXPECT_TRUE(Agent->CanRepositoryBeDeleted(Repository));
    Agent->DeleteRepository(Caller, Repository);
    EXPECT_TRUE(Agent->Repositories().empty());
}

TEST_F(AgentTest, ARepositoryThatWasMovedTakesItsChainsAlong) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    std::filesystem::rename(Home + "/location", Home + "/moved");
    auto info = *Agent->FindRepository(Repository);
    info.Location = Home + "/moved";
    Agent->UpdateRepository(Caller, info);
    // The fake knows its stores by their folders, so this is all that it can show.
    CStore store(Folders.State, {true, 5s});
    EXPECT_EQ(store.ChainsOf(job).at(0).Location, Home + "/moved");
}

TEST_F(AgentTest, PasswordsOfPlacesGoInAndNeverComeOut) {
    Start();
    SCloudServiceProviderInfo provider;
    provider.Name = "cloud";
    provider.Connection = {{"host", 1}, {"host2", 2}};
    provider.Password = SCloudServiceProviderPassword{"token", ECloudServiceProviderPasswordType::Token};
    const auto added = Agent->AddProvider(Caller, provider);
    EXPECT_EQ(added.Password->Value, "");
    EXPECT_EQ(Agent->GatewaysOf(added.Id).size(), 2U);
    auto update = added;
    update.Password.Reset();
    update.Username = "me";
    Agent->UpdateProvider(Caller, update);
    {
        CStore store(Folders.State, {true, 5s});
        EXPECT_EQ(store.PlaceSecrets(added.Id), (Secrets{{"Password.Value", "token"}}));
    }
    Restart();
    EXPECT_EQ(Agent->FindProvider(added.Id)->Username, "me");
    EXPECT_THROW(Agent->ResyncProvider(Caller, added.Id), CGenericException);
    EXPECT_TRUE(Agent->DeleteProvider(Caller, added.Id));
    EXPECT_FALSE(Agent->DeleteProvider(Caller, added.Id));
}

TEST_F(AgentTest, APasswordThatTheStateHasLostCanBeGivenAgain) {
    Start();
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("secret"), ""};
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    SBackupServerInfo server;
    server.Name = "server";
    server.Password = std::string("secret");
    const auto added = Agent->AddServer(Caller, server);
    SCloudServiceProviderInfo provider;
    provider.Name = "cloud";
    provider.Password = SCloudServiceProviderPassword{"token", ECloudServiceProviderPasswordType::Token};
    auto cloud = Agent->AddProvider(Caller, provider);

    std::filesystem::remove_all(Folders.State + "/secrets");
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    // Who says none would lose them without a word.
    EXPECT_THROW(Agent->UpdateJob(Caller, job, Agent->Configuration(job)), CGenericException);
    EXPECT_THROW(Agent->UpdateServer(Caller, added), CGenericException);
    cloud.Password.Reset();
    EXPECT_THROW(Agent->UpdateProvider(Caller, cloud), CGenericException);

    Agent->UpdateJob(Caller, job, config);
    server.Id = added.Id;
    Agent->UpdateServer(Caller, server);
    cloud.Password = provider.Password;
    Agent->UpdateProvider(Caller, cloud);
    // The password opens what is there: the chain goes on.
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, APathWithANulCharacterStandsForNoOtherPath) {
    Start();
    const std::string odd = std::string(1, '\0') + "odd";
    SBackupRepositoryInfo info;
    info.Name = "odd";
    info.Type = BackupTargetType::LocalFolder;
    info.Location = Home + "/cut" + odd;
    EXPECT_THROW(Agent->CreateRepository(Caller, info), CGenericException);
    EXPECT_FALSE(std::filesystem::exists(Home + "/cut"));
    EXPECT_THROW(Agent->GrabLogs(Peer, Home + "/logs" + odd), CGenericException);
    EXPECT_FALSE(std::filesystem::exists(Home + "/logs"));
    auto config = Config();
    config.Source.IncludeDirs = {Home + "/source" + odd};
    EXPECT_THROW(Agent->StartJob(Caller, Agent->CreateJob(Caller, config), {}), CGenericException);
    config = Config("other");
    config.Source.IncludeDirs.clear();
    config.Source.Objects = {{Home + "/source" + odd}};
    EXPECT_THROW(Agent->StartJob(Caller, Agent->CreateJob(Caller, config), {}), CGenericException);
}

TEST_F(AgentTest, AServerGoesWithTheRepositoriesThatItOffersUnlessAJobUsesThem) {
    Start();
    SBackupServerInfo server;
    server.Name = "server";
    server.Password = std::string("secret");
    const auto added = Agent->AddServer(Caller, server);
    EXPECT_FALSE(added.Password);
    SBackupRepositoryInfo repository;
    repository.Name = "behind";
    repository.Type = BackupTargetType::BackupServer;
    repository.ServerId = added.Id;
    auto config = Config();
    config.RepositoryId = Agent->CreateRepository(Caller, repository).Id;
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CGenericException);
    EXPECT_THROW(Agent->DeleteServer(Caller, added.Id), CGenericException);
    Agent->DeleteJob(Caller, job);
    EXPECT_TRUE(Agent->DeleteServer(Caller, added.Id));
    EXPECT_EQ(Agent->Repositories().size(), 1U);
}

// Logs

TEST_F(AgentTest, GrabbedLogsHoldWhatHappenedAndNoSecret) {
    Start();
    std::ofstream(Folders.Log + "/tarvod.log") << "a line\n";
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("hochgeheim"), ""};
    RunJob(Agent->CreateJob(Caller, config));
    const std::string path = Home + "/logs.tar.gz";
    Agent->GrabLogs(Peer, path);
    const auto files = Unpacked(path);
    ASSERT_TRUE(files.contains("log/tarvod.log"));
    EXPECT_EQ(files.at("log/tarvod.log"), "a line\n");
    ASSERT_TRUE(files.contains("jobs.txt"));
    EXPECT_NE(files.at("jobs.txt").find("nightly"), std::string::npos);
    for (const auto& [name, text] : files) {
        EXPECT_EQ(text.find("hochgeheim"), std::string::npos) << name;
    }
    EXPECT_THROW(Agent->GrabLogs(Peer, path), CGenericException);
    EXPECT_THROW(Agent->GrabLogs(Peer, "logs.tar.gz"), CGenericException);
    EXPECT_THROW(Agent->GrabLogs(Peer, Home + "/no/logs.tar.gz"), CGenericException);
}

TEST_F(AgentTest, GrabbingLogsHoldsLittleHoweverMuchThereIs) {
    if (::tests::IsSanitized) GTEST_SKIP() << "watched memory is no measure";
    constexpr long Mb = 1024;
    Start();
    const auto info = RunJob(MakeJob());
    {
        CStore store(Folders.State);
        const std::vector<SLogDetail> lines(
            1000, SLogDetail{ELogDetailType::Info, Guid::Random(), std::string(16000, 'x')});
        for (int i = 0; i < 4; ++i) {
            store.AddLines(info.Uid, lines);
        }
        store.AddLines(info.Uid, {{ELogDetailType::Info, Guid::Random(), "the last line"}});
    }
    std::ofstream(Folders.Log + "/tarvod.log") << "the first line of the log\n";
    std::filesystem::resize_file(Folders.Log + "/tarvod.log", 100ULL << 20);
    const auto peak = [] {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
        }
        return 0L;
    };
    ::malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = peak();
    const std::string path = Home + "/logs.tar.gz";
    Agent->GrabLogs(Peer, path);
    EXPECT_LT(peak() - before, 30 * Mb);
    const auto files = Unpacked(path);
    EXPECT_EQ(files.at("log/tarvod.log").size(), 100ULL << 20);
    EXPECT_EQ(files.at("log/tarvod.log").find("the first line"), 0U);
    const auto told = files.find("sessions/" + PlainText(info.JobUid) + "/1.txt");
    ASSERT_NE(told, files.end());
    EXPECT_NE(told->second.find("the last line"), std::string::npos);
}

// After a crash

TEST_F(AgentTest, APointThatWasCompleteWhenTheAgentWasKilledIsAdopted) {
    Guid job;
    Guid sessionId;
    Start();
    job = MakeJob();
    const auto first = RunJob(job);
    sessionId = first.Uid;
    Agent.reset();
    {
        // As it stood a moment before the agent could note the point.
        CStore store(Folders.State);
        const auto point = store.FindPoint(first.PointId);
        store.RemovePoint(point->Id);
        auto session = *store.FindSession(first.Uid);
        session.Info.State = JobState::Working;
        session.Info.Result = JobResult::None;
        store.SaveSession(session);
    }
    Open();
    EXPECT_EQ(Agent->SessionInfo(sessionId).State, JobState::Working);
    EXPECT_THROW(Agent->StartJob(Caller, job, {}), CJobIsRunning);
    CEvents events(*Agent);
    Agent->Start();
    const auto info = AwaitEnd(sessionId);
    EXPECT_EQ(info.Result, JobResult::Warning) << Lines(info);
    const auto points = Agent->PointsForRestore(job);
    ASSERT_EQ(points.size(), 1U);
    EXPECT_EQ(points[0].Id, first.OibId);
    EXPECT_EQ(points[0].ApproxSize, 3000U);
    EXPECT_EQ(Engine->CountOf("unlock"), 1U);
    EXPECT_EQ(events.Next().eventBackupJobFinished->Status, JobSessionTaskStatus::Warning);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, ASessionWithoutAPointIsInterruptedByACrashAndAScheduledOneCaughtUp) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    Engine->FailNext<CEngineFailed>("fault");
    MoveClock(1h);
    const auto first = AwaitSession(job, 1);
    Agent.reset();
    {
        CStore store(Folders.State);
        auto session = *store.FindSession(first.Uid);
        session.Info.State = JobState::Working;
        store.SaveSession(session);
    }
    Clock.Advance(10min);
    Start();
    const auto second = AwaitSession(job, 2);
    EXPECT_TRUE(Says(second, "late by 10 min")) << Lines(second);
    EXPECT_TRUE(Says(AwaitSession(job, 1), "Interrupted"));
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
}

TEST_F(AgentTest, AChainThatWasNeverFinishedIsClearedUp) {
    Start();
    const Guid job = MakeJob();
    Agent.reset();
    const std::string folder = Home + "/location/tarvo/" + PlainText(job) + "/1";
    {
        CStore store(Folders.State);
        SChain chain;
        chain.Job = job;
        chain.Number = 1;
        chain.Repository = Repository;
        chain.Location = Home + "/location";
        store.AddChain(chain, {});
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/rubbish") << "x";
    }
    Start();
    const auto info = RunJob(job);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_FALSE(std::filesystem::exists(folder + "/rubbish"));
    CStore store(Folders.State, {true, 5s});
    EXPECT_EQ(store.ChainsOf(job).size(), 1U);
}

TEST_F(AgentTest, APointThatWasBeingForgottenWhenTheAgentWasKilledIsNotOffered) {
    Start();
    const Guid job = MakeJob();
    RunJob(job);
    const auto second = RunJob(job);
    Agent.reset();
    {
        CStore store(Folders.State);
        auto session = *store.FindSession(second.Uid);
        session.Info.State = JobState::Postprocessing;
        store.SaveSession(session);
        // The store has forgotten the first one already.
        SEngineStore engine;
        engine.Folder = Home + "/location/tarvo/" + PlainText(job) + "/1";
        Engine->Forget(engine, {"snapshot1"}, {});
    }
    Start();
    EXPECT_EQ(AwaitEnd(second.Uid).Result, JobResult::Warning);
    const auto points = Agent->PointsForRestore(job);
    ASSERT_EQ(points.size(), 1U);
    EXPECT_EQ(points[0].Id, second.OibId);
}

TEST_F(AgentTest, APointThatAFullDiskKeptFromBeingNotedIsNotedWhenThereIsRoom) {
    if (::mount("none", Folders.State.c_str(), "tmpfs", 0, "size=2m") != 0) GTEST_SKIP() << "may not mount";
    Start();
    const Guid job = MakeJob();
    Engine->m_afterBackup = [&] {
        std::ofstream filling(Folders.State + "/filling");
        const std::string block(4096, 'x');
        while (filling.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    };
    const Guid session = Agent->StartJob(Caller, job, {});
    EXPECT_TRUE(Await([&] { return Says(Agent->SessionInfo(session), "can't be written down yet"); }));
    Engine->m_afterBackup = {};
    EXPECT_TRUE(Says(Agent->SessionInfo(session), "make room"));
    EXPECT_EQ(Agent->SessionInfo(session).Result, JobResult::None);
    EXPECT_TRUE(Agent->PointsForRestore(job).empty());
    EXPECT_THROW(Agent->SetUserData(Caller, job, std::string(100000, 'x')), CStateError);
    EXPECT_EQ(Agent->UserData(job), "");
    std::filesystem::remove(Folders.State + "/filling");
    Agent->SetUserData(Caller, job, "there is room again");
    const auto info = AwaitEnd(session);
    EXPECT_EQ(info.Result, JobResult::Warning) << Lines(info);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    Restart();
    EXPECT_EQ(Agent->SessionInfo(session), info);
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Increment);
    Agent.reset();
    ::umount2(Folders.State.c_str(), MNT_DETACH);
}

TEST_F(AgentTest, AStateOfALaterVersionIsRefused) {
    Start();
    Agent.reset();
    { CStore store(Folders.State); }
    std::ofstream(Folders.Database(), std::ios::in | std::ios::out | std::ios::binary)
        .seekp(60)
        .write("\0\0\0\x63", 4);
    EXPECT_THROW(Open(), CStateError);
}

}  // namespace tarvo::tests
