// SPDX-License-Identifier: Apache-2.0
// How the test agent behaves: owners, running jobs, retries, events, passwords.
#include "tests/testagent/AgentFixture.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using apigen::Guid;
using testing::ElementsAre;

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
