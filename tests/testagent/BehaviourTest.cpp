// SPDX-License-Identifier: Apache-2.0
// How the test agent behaves: owners, running jobs, retries, events, passwords.
#include <filesystem>

#include "tests/testagent/RawAgent.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using apigen::Guid;
using testing::ElementsAre;
using testing::HasSubstr;

class TheTestAgent : public CAgentTest {
protected:
    /// Reads events up to and with the one of the type `last`.
    static std::vector<SBaseEvent> ReadUpTo(CEventsStream& stream, EEventType last) {
        std::vector<SBaseEvent> events;
        do {
            const auto event = stream.ReadUntil(std::chrono::steady_clock::now() + 20s);
            if (!event) {
                ADD_FAILURE() << "no event has come";
                break;
            }
            events.push_back(*event);
        } while (events.back().Type != last);
        return events;
    }

    static std::vector<EEventType> TypesOf(const std::vector<SBaseEvent>& events) {
        std::vector<EEventType> types;
        for (const auto& event : events) {
            types.push_back(event.Type);
        }
        return types;
    }
};

TEST_F(TheTestAgent, GivesControlToOneOwnerAtATime) {
    const auto control = Connect();
    const auto first = control->RequestControl(Owner(), false);
    EXPECT_NO_THROW(control->RequestControl(Owner(), false)) << "again by the same owner";
    EXPECT_THROW(control->RequestControl(OtherOwner(), false), CGenericException);
    EXPECT_THROW(control->ReleaseControl(OtherOwner()), CGenericException);
    EXPECT_THROW(control->SetOwnerMode(OtherOwner().Id, ZAMOwnerMode::Shared), CGenericException);
    EXPECT_THROW(control->RequestControl({}, true), CGenericException) << "without an id";

    const auto second = control->RequestControl(OtherOwner(), true);
    EXPECT_EQ(control->GetCurrentOwner().Name, "another");
    EXPECT_THROW(first->SetSchedulerPermissionToRunJobs(false), CGenericException);
    EXPECT_NO_THROW(first->GetBackupJobs());
    EXPECT_NO_THROW(second->SetSchedulerPermissionToRunJobs(false));
    control->ReleaseControl(OtherOwner());
    EXPECT_THROW(second->SetSchedulerPermissionToRunJobs(true), CGenericException);
}

TEST_F(TheTestAgent, LetsOthersDoWhatTheOwnersModeAllows) {
    const auto control = Connect();
    control->RequestControl(Owner(), false);
    control->SetOwnerMode(Owner().Id, ZAMOwnerMode::ReadOnly);
    const auto other = control->RequestControl(OtherOwner(), false);
    EXPECT_EQ(control->GetCurrentOwner().Id, Owner().Id);
    EXPECT_NO_THROW(other->GetBackupJobs());
    EXPECT_THROW(other->SetSchedulerPermissionToRunJobs(false), CGenericException);
    control->SetOwnerMode(Owner().Id, ZAMOwnerMode::Shared);
    EXPECT_NO_THROW(other->SetSchedulerPermissionToRunJobs(false));
}

TEST_F(TheTestAgent, LetsNobodyInBesideAnOwnerWithoutAMode) {
    const auto control = Connect();
    control->RequestControl(Owner(), false);
    for (const auto mode : {ZAMOwnerMode::None, ZAMOwnerMode::Exclusive, static_cast<ZAMOwnerMode>(99)}) {
        control->SetOwnerMode(Owner().Id, mode);
        EXPECT_THAT(Thrown<CGenericException>([&] { control->RequestControl(OtherOwner(), false); }).what(),
                    HasSubstr("tester"));
    }
}

TEST_F(TheTestAgent, BelongsToTheOwnerOfTheScript) {
    Script(R"({"owner": {"id": "11111111-2222-3333-4444-555555555555", "name": "console",
                         "type": "ManagementConsole", "mode": "Exclusive"}})");
    const auto control = Connect();
    EXPECT_EQ(control->GetCurrentOwner().Name, "console");
    EXPECT_THROW(control->RequestControl(OtherOwner(), false), CGenericException);
    EXPECT_NO_THROW(control->RequestControl(Owner(), false)->SetSchedulerPermissionToRunJobs(false));
}

// The new owner shares control, so the old product could change things behind its back.
TEST_F(TheTestAgent, ClosesTheProductsOfAnOwnerDisplacedByForceEvenWhenTheNewOneShares) {
    Script(R"({"clock": {"mode": "held"}})");
    const auto control = Connect();
    const auto displaced = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*displaced, "nightly");
    const auto session = job->Start({});
    auto sharing = OtherOwner();
    sharing.Mode = ZAMOwnerMode::Shared;
    control->RequestControl(sharing, true);

    EXPECT_THROW(displaced->SetSchedulerPermissionToRunJobs(false), CGenericException);
    EXPECT_THROW(displaced->CreateBackupJob(JobConfig("second", {})), CGenericException);
    EXPECT_THROW(displaced->GetRepositoryManager()->CreateRepository(LocalRepository("x")),
                 CGenericException);
    EXPECT_THROW(job->SetUserData("x"), CGenericException);
    EXPECT_THROW(session->Stop("x"), CGenericException);
    EXPECT_THROW(control->SetOwnerMode(Owner().Id, ZAMOwnerMode::Exclusive), CGenericException);
    EXPECT_THROW(control->ReleaseControl(Owner()), CGenericException);
    EXPECT_EQ(displaced->GetBackupJobs().size(), 1U) << "it can still be looked at";
    EXPECT_EQ(displaced->GetRepositoryManager()->GetRepositories().size(), 1U);
    EXPECT_EQ(job->GetUserData(), "");
    EXPECT_EQ(session->GetInfo().State, JobState::Starting);

    const auto asGuest = control->RequestControl(Owner(), false);
    EXPECT_EQ(control->GetCurrentOwner().Id, OtherOwner().Id);
    EXPECT_NO_THROW(asGuest->SetSchedulerPermissionToRunJobs(false));
    EXPECT_THROW(displaced->SetSchedulerPermissionToRunJobs(true), CGenericException);
}

TEST_F(TheTestAgent, OpensNoOldProductAgainWhenItsOwnerReturns) {
    const auto control = Connect();
    const auto first = control->RequestControl(Owner(), false);
    control->ReleaseControl(Owner());
    EXPECT_THROW(first->SetSchedulerPermissionToRunJobs(false), CGenericException);
    const auto second = control->RequestControl(Owner(), false);
    EXPECT_THROW(first->SetSchedulerPermissionToRunJobs(false), CGenericException);
    EXPECT_NO_THROW(second->SetSchedulerPermissionToRunJobs(false));

    control->RequestControl(OtherOwner(), true);
    EXPECT_THROW(control->RequestControl(Owner(), false), CGenericException) << "the other is exclusive";
    const auto third = control->RequestControl(Owner(), true);
    EXPECT_THROW(second->SetSchedulerPermissionToRunJobs(true), CGenericException);
    EXPECT_NO_THROW(third->SetSchedulerPermissionToRunJobs(true));
    EXPECT_NO_THROW(first->GetBackupJobs());

    const auto again = control->RequestControl(Owner(), true);
    EXPECT_NO_THROW(third->SetSchedulerPermissionToRunJobs(true))
        << "its own owner's force takes nothing away";
    EXPECT_NO_THROW(again->SetSchedulerPermissionToRunJobs(true));
}

TEST_F(TheTestAgent, LetsAGuestWhoTakesControlKeepItsProduct) {
    const auto control = Connect();
    auto sharing = Owner();
    sharing.Mode = ZAMOwnerMode::Shared;
    control->RequestControl(sharing, false);
    const auto guest = control->RequestControl(OtherOwner(), false);
    control->RequestControl(OtherOwner(), true);
    EXPECT_NO_THROW(guest->SetSchedulerPermissionToRunJobs(false));
    control->ReleaseControl(OtherOwner());
    EXPECT_THROW(guest->SetSchedulerPermissionToRunJobs(false), CGenericException);
}

TEST_F(TheTestAgent, GathersNothingButTheIdentifiersOfMethods) {
    const zamtest::CTemporaryFolder folder;
    CRawAgent agent;
    EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
    const std::string evil = "evil\nline &#10; GetInfo";
    for (const auto& call :
         {CRawAgent::Call("GetProductInfo_4746724914348084655"), CRawAgent::Call(evil), CRawAgent::Frame("x"),
          CRawAgent::Call("GrabLogs_7987703423994357771", "<path>" + folder.Path("log") + "</path>")}) {
        agent.Send(call);
        EXPECT_NE(agent.Read(), "");
    }
    EXPECT_THAT(zamtest::LinesOf(folder.Path("log")),
                ElementsAre("GetProductInfo_4746724914348084655", "GrabLogs_7987703423994357771"));
}

TEST_F(TheTestAgent, GathersLogsInANewFileAlone) {
    namespace fs = std::filesystem;
    const zamtest::CTemporaryFolder folder;
    folder.Write("kept", "mine");
    fs::create_symlink(folder.Path("kept"), folder.Path("link"));
    fs::create_symlink(folder.Path("nowhere"), folder.Path("dangling"));
    const auto control = Connect();
    const auto reason = [&](const std::string& path) {
        return std::string(Thrown<CGenericException>([&] { control->GrabLogs(path); }).what());
    };
    EXPECT_THAT(reason(folder.Path("kept")), HasSubstr("File exists"));
    EXPECT_THAT(reason(folder.Path("link")), HasSubstr("File exists"));
    EXPECT_THAT(reason(folder.Path("dangling")), HasSubstr("File exists"));
    EXPECT_THAT(reason(folder.Path()), HasSubstr("File exists"));
    EXPECT_THAT(reason(folder.Path("missing/log")), HasSubstr("No such file"));
    EXPECT_THAT(reason(folder.Path("kept/log")), HasSubstr("Not a directory"));
    EXPECT_THAT(reason("relative"), HasSubstr("absolute"));
    EXPECT_THAT(reason(folder.Path("cut") + std::string(1, '\0') + "off"), HasSubstr("absolute"));
    EXPECT_EQ(zamtest::LinesOf(folder.Path("kept")), std::vector<std::string>{"mine"});
    EXPECT_FALSE(fs::exists(folder.Path("nowhere")));
    EXPECT_FALSE(fs::exists(folder.Path("cut")));
    EXPECT_NO_THROW(control->GrabLogs(folder.Path("log")));
    EXPECT_EQ(zamtest::LinesOf(folder.Path("log")).size(), 9U);
}

TEST_F(TheTestAgent, KeepsAsManyRestorePointsAsAnUpdateHasLeftIt) {
    Script(R"({"clock": {"mode": "calls", "steps": 1}})");
    const auto control = Connect();
    const auto job = MakeJob(*control->RequestControl(Owner(), false), "nightly");
    auto config = job->GetConfigurationInfo();
    for (const int kept : {4, 4, 4, 4, 4, 2}) {
        config.RetentionInfo.RestorePointsCount = kept;
        job->UpdateConfigurationInfo(config);
        EXPECT_EQ(job->Start({})->GetInfo().Result, JobResult::Success);
    }
    const auto points = job->GetOibsForRestore();
    ASSERT_EQ(points.size(), 2U);
    EXPECT_EQ(points[0].Type, RestorePointType::Full);
    EXPECT_EQ(points[1].Type, RestorePointType::Increment);
}

TEST_F(TheTestAgent, GivesOfferedRepositoriesNamesOfTheirOwn) {
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto repositories = product->GetRepositoryManager();
    repositories->CreateRepository(LocalRepository("x repository"));
    SBackupServerInfo server;
    server.Name = "x";
    const auto servers = product->GetBackupServerManager();
    servers->ResyncBackupServerRepositoriesList(servers->AddBackupServer(server).Id);
    SCloudServiceProviderInfo provider;
    provider.Name = "x";
    const auto providers = product->GetCloudServiceProviderManager();
    providers->ResyncCloudRepositoriesList(providers->AddCloudServiceProvider(provider).Id);
    std::vector<std::string> names;
    for (const auto& repository : repositories->GetRepositories())
        names.push_back(repository.Name);
    EXPECT_THAT(names, ElementsAre("x repository", "x repository 2", "x repository 3"));
}

TEST_F(TheTestAgent, StepsASessionWithItsOwnGetInfoAlone) {
    Script(R"({"clock": {"mode": "calls", "steps": 3, "stepMs": 1}})");
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    const auto other = MakeJob(*product, "weekly")->Start({});
    const auto session = job->Start({});
    for (int i = 0; i < 5; ++i) {
        job->GetInfo();
        other->GetInfo();
        job->FindLastBackupJobSession();
    }
    EXPECT_EQ(session->GetInfo().PercentCompleted, 33);
    EXPECT_EQ(session->GetInfo().PercentCompleted, 66);
    EXPECT_EQ(session->GetInfo().State, JobState::Stopped);
    EXPECT_EQ(session->GetInfo().Result, JobResult::Success);
    const auto stopped = job->Start({});
    EXPECT_TRUE(stopped->Stop("enough"));
    EXPECT_EQ(stopped->GetInfo().State, JobState::Stopped);
}

TEST_F(TheTestAgent, TakesAStepEachStepMsAndNoSooner) {
    Script(R"({"clock": {"stepMs": 50, "steps": 4}})");
    const auto control = Connect();
    CEventsStream stream(control->GetEventConfig(), nullptr);
    const auto job = MakeJob(*control->RequestControl(Owner(), false), "nightly");
    job->Start({});
    ReadUpTo(stream, EEventType::BackupJobStarted);
    const auto before = std::chrono::steady_clock::now();
    ReadUpTo(stream, EEventType::BackupJobFinished);
    // The first step may come at once.
    EXPECT_GT(std::chrono::steady_clock::now() - before, 3 * 50ms - 20ms);
}

TEST_F(TheTestAgent, StartsADisabledJobByHandAndLetsARunningOneBeDisabled) {
    Script(R"({"clock": {"mode": "held"}})");
    const auto control = Connect();
    const auto job = MakeJob(*control->RequestControl(Owner(), false), "nightly");
    EXPECT_TRUE(job->Disable());
    EXPECT_NO_THROW(job->Start({}));
    EXPECT_TRUE(job->Enable());
    EXPECT_NO_THROW(job->SetUserData("x"));
    EXPECT_THROW(job->Start({}), CJobIsRunning);
}

TEST_F(TheTestAgent, CallsARetryOffThatIsStoppedBeforeItBegins) {
    Script(R"({"clock": {"mode": "calls", "steps": 1, "failedAttempts": 9},
               "repositories": [{"name": "main"}],
               "jobs": [{"name": "nightly", "repository": "main", "retries": {"attempts": 2}}]})");
    const auto control = Connect();
    const auto job = control->RequestControl(Owner(), false)->GetBackupJobs().at(0);
    const auto session = job->Start({});
    EXPECT_TRUE(session->GetInfo().RetriesInfo->IsJobAwaitingForRetry);
    EXPECT_THROW(job->Start({}), CJobIsRunning);
    EXPECT_TRUE(session->Stop("enough"));
    EXPECT_FALSE(session->GetInfo().RetriesInfo->IsJobAwaitingForRetry);
    EXPECT_EQ(job->GetBackupJobSessions().size(), 1U);
    SJobStartOptions options;
    options.Retries = EJobStartRetriesMode::Disabled;
    const auto once = job->Start(options);
    EXPECT_FALSE(once->GetInfo().RetriesInfo);
    EXPECT_FALSE(once->Stop("it has ended"));
}

TEST_F(TheTestAgent, RefusesChangesToAJobThatRuns) {
    Script(R"({"clock": {"mode": "held", "stepMs": 5}})");
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    const auto session = job->Start({});
    EXPECT_THROW(job->Start({}), CJobIsRunning);
    EXPECT_THROW(job->UpdateConfigurationInfo(job->GetConfigurationInfo()), CJobIsRunning);
    EXPECT_THROW(product->DeleteBackupJob(job->GetInfo().Id), CJobIsRunning);
    EXPECT_EQ(session->GetInfo().State, JobState::Starting);
    EXPECT_TRUE(session->Stop("enough"));
    EXPECT_TRUE(Eventually([&] { return session->GetInfo().State == JobState::Stopped; }));
    EXPECT_EQ(session->GetInfo().Result, JobResult::Failed);
    EXPECT_NO_THROW(job->UpdateConfigurationInfo(job->GetConfigurationInfo()));
    EXPECT_TRUE(product->DeleteBackupJob(job->GetInfo().Id));
    EXPECT_THROW(job->GetInfo(), CGenericException);
}

TEST_F(TheTestAgent, TellsOfEveryChange) {
    Script(R"({"clock": {"mode": "time", "stepMs": 5}})");
    const auto control = Connect();
    CEventsStream stream(control->GetEventConfig(), nullptr);
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    auto config = job->GetConfigurationInfo();
    config.Source.IncludeDirs.emplace_back("/home");
    config.Source.BackupMode = JobBackupMode::VolumeLevel;
    job->UpdateConfigurationInfo(config);
    const Guid session = job->Start({})->GetInfo().Uid;
    auto events = ReadUpTo(stream, EEventType::BackupJobFinished);
    ASSERT_THAT(TypesOf(events), ElementsAre(EEventType::BackupJobCreated, EEventType::BackupJobModified,
                                             EEventType::BackupSourceUpdated, EEventType::BackupModeChanged,
                                             EEventType::BackupJobStarted, EEventType::BackupJobFinished));
    const Guid id = job->GetInfo().Id;
    EXPECT_EQ(events[0].eventBackupJobCreated->JobId, id);
    EXPECT_EQ(events[0].eventBackupJobCreated->Username, "tester");
    EXPECT_EQ(events[1].eventBackupJobModified->JobId, id);
    EXPECT_TRUE(events[2].eventBackupSourceUpdated);
    EXPECT_TRUE(events[3].eventBackupModeChanged);
    EXPECT_EQ(events[4].eventBackupJobStarted->SessionId, session);
    EXPECT_EQ(events[5].eventBackupJobFinished->SessionId, session);
    EXPECT_EQ(events[5].eventBackupJobFinished->Status, JobSessionTaskStatus::Success);
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].Id, i + 1);
        EXPECT_EQ(events[i].ControlSessionId, control->GetSessionId());
    }
    product->DeleteBackupJob(id);
    events = ReadUpTo(stream, EEventType::BackupJobDeleted);
    EXPECT_EQ(events.at(0).eventBackupJobDeleted->JobId, id);
}

TEST_F(TheTestAgent, RetriesAFailedRunInASessionOfItsOwn) {
    Script(R"({"clock": {"stepMs": 5, "steps": 2, "failedAttempts": 1},
               "repositories": [{"name": "main", "location": "/srv/main"}],
               "jobs": [{"name": "nightly", "repository": "main", "includeDirs": ["/etc"],
                         "retries": {"attempts": 2}}]})");
    const auto control = Connect();
    CEventsStream stream(control->GetEventConfig(), nullptr);
    const auto job = control->RequestControl(Owner(), false)->GetBackupJobs().at(0);
    const Guid first = job->Start({})->GetInfo().Uid;
    auto events = ReadUpTo(stream, EEventType::BackupJobRetried);
    ASSERT_THAT(TypesOf(events), ElementsAre(EEventType::BackupJobStarted, EEventType::BackupJobFinished,
                                             EEventType::BackupJobRetried));
    EXPECT_EQ(events[1].eventBackupJobFinished->Status, JobSessionTaskStatus::Failed);
    const Guid second = events[2].eventBackupJobRetried->SessionId;
    EXPECT_NE(second, first);
    events = ReadUpTo(stream, EEventType::BackupJobFinished);
    EXPECT_EQ(events.back().eventBackupJobFinished->SessionId, second);
    EXPECT_EQ(events.back().eventBackupJobFinished->Status, JobSessionTaskStatus::Success);
    const auto info = job->FindLastBackupJobSession()->GetInfo();
    EXPECT_EQ(info.OriginalSessionId, first);
    EXPECT_EQ(info.RetriesInfo->CurrentAttemptNumber, 1U);
    EXPECT_EQ(job->GetBackupJobSessions().size(), 2U);
}

TEST_F(TheTestAgent, HandsOutNoPassword) {
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto repositories = product->GetRepositoryManager();
    auto share = LocalRepository("share");
    share.Type = BackupTargetType::SharedFolder;
    share.SharedFolderInfo = SSharedFolderInfo{};
    share.SharedFolderInfo->Password = std::string("s3cret");
    const auto created = repositories->CreateRepository(share);
    EXPECT_FALSE(created.SharedFolderInfo->Password);
    EXPECT_FALSE(repositories->UpdateRepository(created).SharedFolderInfo->Password);

    auto config = JobConfig("nightly", created.Id);
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("s3cret"), "the usual"};
    config.AapInfo.PostgreSQLInfo = SPostgreSQLInfo{};
    config.AapInfo.PostgreSQLInfo->Credentials.Password = std::string("s3cret");
    const auto job = product->CreateBackupJob(config);
    auto shown = job->GetConfigurationInfo();
    EXPECT_FALSE(shown.StorageInfo.EncryptionSettings->Password);
    EXPECT_EQ(shown.StorageInfo.EncryptionSettings->PasswordHint, "the usual");
    EXPECT_FALSE(shown.AapInfo.PostgreSQLInfo->Credentials.Password);
}

TEST_F(TheTestAgent, RefusesWhatMakesNoSense) {
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    const Guid repository = job->GetConfigurationInfo().RepositoryId;
    const auto repositories = product->GetRepositoryManager();
    EXPECT_THROW(product->CreateBackupJob({}), CGenericException) << "no name";
    EXPECT_THROW(product->CreateBackupJob(JobConfig("nightly", repository)), CGenericException)
        << "a second of that name";
    EXPECT_THROW(repositories->CreateRepository({}), CGenericException);
    EXPECT_THROW(repositories->DeleteRepository(repository), CGenericException) << "in use";
    EXPECT_FALSE(repositories->CanBeDeleted(repository));
    EXPECT_THROW(repositories->DeleteRepository(Guid{}), CGenericException);
    EXPECT_THROW(product->GetBackupServerManager()->ResyncBackupServerRepositoriesList(Guid{}),
                 CGenericException);
    EXPECT_THROW(product->GetCloudServiceProviderManager()->GetCloudServiceProviderGateways(Guid{}),
                 CGenericException);
    EXPECT_THROW(control->GrabLogs(""), CGenericException);
    EXPECT_THROW(control->GrabLogs("/nowhere/at/all"), CGenericException);
    const auto lost = product->CreateBackupJob(JobConfig("lost", Guid{}));
    EXPECT_THROW(lost->Start({}), CGenericException);
    ASSERT_EQ(lost->CheckValidity().size(), 1U);
    EXPECT_EQ(lost->CheckValidity()[0].MessageType, ELogDetailType::Error);
}

TEST_F(TheTestAgent, LeavesNothingBehind) {
    std::string socket;
    {
        const auto control = Connect();
        socket = control->GetEventConfig().v1->socketPath;
        EXPECT_EQ(::access(socket.c_str(), F_OK), 0);
    }
    EXPECT_NE(::access(socket.c_str(), F_OK), 0);
    EXPECT_NE(::access(socket.substr(0, socket.rfind('/')).c_str(), F_OK), 0);
}

}  // namespace
}  // namespace tests
