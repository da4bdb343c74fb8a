// SPDX-License-Identifier: Apache-2.0
// The agent as its clients see it: tool, daemon, engine and all, through the public library.
#include "tests/agent/api/ApiFixture.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* Password = "geheim-93b1-und-lang";

TEST_F(CAgentApiTest, TheAgentTellsWhatItIs) {
    const auto control = Connect();
    const auto info = control->GetProductInfo();
    EXPECT_NE(info.InstanceGuid, apigen::Guid{});
    EXPECT_NE(info.ProductId, apigen::Guid{});
    EXPECT_NE(info.Name, "");
    EXPECT_NE(info.Version, "");
    const auto run = control->GetSessionId();
    EXPECT_NE(run, apigen::Guid{});
    EXPECT_EQ(Product(control)->GetSessionId(), run);
    EXPECT_FALSE(control->IsOsxFDAGranted());
    EXPECT_EQ(control->GetEventConfig().v1->socketPath, Home("run/events.sock"));
    EXPECT_TRUE(std::filesystem::is_socket(Home("run/events.sock")));

    CrashAgent();
    const auto again = Connect();
    EXPECT_EQ(again->GetProductInfo().InstanceGuid, info.InstanceGuid) << "the agent is the same";
    EXPECT_NE(again->GetSessionId(), run);
}

TEST_F(CAgentApiTest, ARefusedOwnerIsToldWhoHoldsControl) {
    const auto control = Connect();
    EXPECT_EQ(control->GetCurrentOwner(), SZamControlOwnerInfo{});
    const auto product = Product(control, Owner("console"));
    EXPECT_EQ(control->GetCurrentOwner(), Owner("console"));
    const auto other = Connect();
    EXPECT_THAT(FailureOf([&] { Product(other, Owner("other")); }), HasSubstr("console"));

    const auto forced = other->RequestControl(Owner("other"), true);
    EXPECT_EQ(control->GetCurrentOwner(), Owner("other"));
    EXPECT_NE(FailureOf([&] { Repository(*product); }), "");
    Repository(*forced);
    other->SetOwnerMode(Owner("other").Id, ZAMOwnerMode::Shared);
    EXPECT_EQ(control->GetCurrentOwner().Mode, ZAMOwnerMode::Shared);
    EXPECT_NE(FailureOf([&] { control->SetOwnerMode(Owner("console").Id, ZAMOwnerMode::Shared); }), "");
    other->ReleaseControl(Owner("other"));
    EXPECT_EQ(control->GetCurrentOwner(), SZamControlOwnerInfo{});
}

TEST_F(CAgentApiTest, ControlOutlivesConnectionsAndTheDaemon) {
    Product(Connect(), Owner("console"));
    EXPECT_EQ(Connect()->GetCurrentOwner(), Owner("console"));
    CrashAgent();
    const auto control = Connect();
    EXPECT_EQ(control->GetCurrentOwner(), Owner("console"));
    EXPECT_THAT(FailureOf([&] { Product(control, Owner("other")); }), HasSubstr("console"));
    Repository(*Product(control, Owner("console")));
}

TEST_F(CAgentApiTest, WhatWasAnsweredIsThereAfterAKill) {
    auto control = Connect();
    auto product = Product(control);
    auto config = Config(Repository(*product).Id);
    SEncryptionSettings encryption;
    encryption.Password = std::string(Password);
    encryption.PasswordHint = "the usual one";
    config.StorageInfo.EncryptionSettings = encryption;
    config.UserData = "data of\nthe user's";
    config.RetriesInfo = SRetriesInfo{3, 1000};
    auto job = product->CreateBackupJob(config);
    const auto id = job->GetInfo().Id;
    EXPECT_TRUE(job->Disable());
    EXPECT_FALSE(job->Disable());
    job->SetUserData("other data");
    product->SetSchedulerPermissionToRunJobs(false);
    CrashAgent();

    control = Connect();
    product = Product(control);
    job = product->FindBackupJob(id);
    ASSERT_NE(job, nullptr);
    EXPECT_FALSE(job->GetInfo().Enabled);
    EXPECT_EQ(job->GetUserData(), "other data");
    EXPECT_FALSE(product->IsSchedulerAllowedToRunJobs());
    config.UserData = "other data";
    config.StorageInfo.EncryptionSettings->Password = {};
    EXPECT_EQ(job->GetConfigurationInfo(), config);
    EXPECT_THAT(product->GetBackupJobs(), SizeIs(1));
    EXPECT_THAT(product->GetRepositoryManager()->GetRepositories(), SizeIs(1));
}

// An empty one became the only key of the job's chains, and the engine takes none that is empty.
TEST_F(CAgentApiTest, APasswordThatTheEngineCantUseLocksNobodyOut) {
    const auto control = Connect();
    const auto product = Product(control);
    auto config = Config(Repository(*product).Id);
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{};
    config.StorageInfo.EncryptionSettings->Password = std::string(Password);
    const auto job = product->CreateBackupJob(config);
    ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
    for (const char* const odd : {"", " ", "ends in white space\n"}) {
        config.JobName = "renamed";
        config.StorageInfo.EncryptionSettings->Password = std::string(odd);
        EXPECT_THAT(FailureOf([&] { job->UpdateConfigurationInfo(config); }),
                    HasSubstr("password can't be used"));
    }
    EXPECT_NE(job->GetInfo().Name, "renamed");
    EXPECT_THAT(job->CheckValidity(), testing::IsEmpty());
    const auto second = Finished(*job->Start({}));
    EXPECT_EQ(second.Result, JobResult::Success) << LinesOf(second);
    EXPECT_EQ(second.SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(CAgentApiTest, AnObjectShowsTheJobAsItIsWhoeverHasChangedIt) {
    const auto control = Connect();
    const auto product = Product(control, Owner("one", ZAMOwnerMode::Shared));
    const auto job = Job(*product);
    const auto guest = Connect();
    const auto other = Product(guest, Owner("two"))->FindBackupJob(job->GetInfo().Id);
    auto config = job->GetConfigurationInfo();
    config.JobName = "weekly";
    other->UpdateConfigurationInfo(config);
    EXPECT_EQ(job->GetInfo().Name, "weekly");
    EXPECT_EQ(job->GetConfigurationInfo(), config);
    EXPECT_TRUE(other->Disable());
    EXPECT_FALSE(job->GetInfo().Enabled);
}

TEST_F(CAgentApiTest, WhatIsNotThereIsEmptyAndWhatWasDeletedIsRefused) {
    const auto product = Product(Connect());
    EXPECT_EQ(product->FindBackupJob({}), nullptr);
    EXPECT_EQ(product->FindBackupJobSessionById({}), nullptr);
    EXPECT_THAT(product->GetBackupJobs(), IsEmpty());
    const auto job = Job(*product);
    const auto id = job->GetInfo().Id;
    EXPECT_EQ(job->FindLastBackupJobSession(), nullptr);
    EXPECT_THAT(job->GetBackupJobSessions(), IsEmpty());
    EXPECT_THAT(job->GetOibsForRestore(), IsEmpty());
    EXPECT_FALSE(job->GetInfo().LastBackupTimeUtc.HasValue());
    EXPECT_TRUE(product->DeleteBackupJob(id));
    EXPECT_FALSE(product->DeleteBackupJob(id));
    EXPECT_EQ(product->FindBackupJob(id), nullptr);
    EXPECT_THAT(FailureOf([&] { job->GetInfo(); }), HasSubstr("There is no job"));
}

TEST_F(CAgentApiTest, AJobNeedsANameThatNoOtherHas) {
    const auto product = Product(Connect());
    const auto job = Job(*product);
    EXPECT_THAT(FailureOf([&] { product->CreateBackupJob(job->GetConfigurationInfo()); }),
                HasSubstr("nightly"));
    auto config = job->GetConfigurationInfo();
    config.JobName = "";
    EXPECT_NE(FailureOf([&] { product->CreateBackupJob(config); }), "");
}

TEST_F(CAgentApiTest, TwoRunsMakeTwoPointsAndEveryFigureIsTrue) {
    const auto control = Connect();
    const auto product = Product(control);
    CEventsStream events(control->GetEventConfig(), nullptr);
    const auto job = Job(*product);
    EXPECT_THAT(job->CheckValidity(), IsEmpty());

    const auto session = job->Start({});
    const auto info = Finished(*session);
    ASSERT_EQ(info.Result, JobResult::Success) << LinesOf(info);
    EXPECT_EQ(info.JobUid, job->GetInfo().Id);
    EXPECT_EQ(info.JobName, "nightly");
    EXPECT_EQ(info.SessionAlgorithm, JobSessionAlgorithm::Full);
    EXPECT_EQ(info.TypeOfJob, JobType::Backup);
    EXPECT_EQ(info.PercentCompleted, 100);
    EXPECT_EQ(info.ReadSizeBytes, 5000U);
    EXPECT_EQ(info.BackedUpSizeBytes, 5000);
    EXPECT_GT(info.TransferredSizeBytes, 0);
    EXPECT_EQ(info.BackupDestination, Home("repo"));
    EXPECT_GE(std::pair(info.EndTimeUtc.seconds, info.EndTimeUtc.milliseconds),
              std::pair(info.StartTimeUtc.seconds, info.StartTimeUtc.milliseconds));
    ASSERT_TRUE(info.RepositorySizeInfo.HasValue());
    EXPECT_GT(info.RepositorySizeInfo->Capacity, 0);
    EXPECT_EQ(info.OriginalSessionId, apigen::Guid{});
    EXPECT_THAT(info.JobDetails, Not(IsEmpty()));
    EXPECT_EQ(job->GetInfo().LastBackupTimeUtc.HasValue(), true);

    Write("source/second", "a little more");
    const auto second = Finished(*job->Start({}));
    ASSERT_EQ(second.Result, JobResult::Success) << LinesOf(second);
    EXPECT_EQ(second.SessionAlgorithm, JobSessionAlgorithm::Increment);
    EXPECT_EQ(second.BackedUpSizeBytes, 5013);
    EXPECT_EQ(second.ReadSizeBytes, 13U);

    const auto points = job->GetOibsForRestore();
    ASSERT_THAT(points, SizeIs(2));
    EXPECT_EQ(points[0].Type, RestorePointType::Full);
    EXPECT_EQ(points[1].Type, RestorePointType::Increment);
    EXPECT_EQ(points[0].ApproxSize, 5000U);
    EXPECT_EQ(points[1].ApproxSize, 5013U);
    EXPECT_EQ(points[0].Id, info.PointId);
    EXPECT_EQ(points[1].Id, second.PointId);

    EXPECT_THAT(job->GetBackupJobSessions(), SizeIs(2));
    EXPECT_THAT(job->GetBackupJobSessions(info.Usn), SizeIs(1));
    EXPECT_THAT(job->GetBackupJobSessions(second.Usn), IsEmpty());
    EXPECT_EQ(job->FindLastBackupJobSession()->GetInfo().Uid, second.Uid);
    EXPECT_EQ(product->FindBackupJobSessionById(info.Uid)->GetInfo(), session->GetInfo());

    std::vector<EEventType> types;
    unsigned long last = 0;
    while (types.size() < 5) {
        const auto event = events.ReadUntil(std::chrono::steady_clock::now() + 20s);
        ASSERT_TRUE(event.HasValue());
        EXPECT_GT(event->Id, last);
        last = event->Id;
        types.push_back(event->Type);
        if (event->eventBackupJobCreated) {
            EXPECT_EQ(event->eventBackupJobCreated->JobId, info.JobUid);
            EXPECT_EQ(event->eventBackupJobCreated->Username, "root");
        }
        if (event->eventBackupJobFinished) {
            EXPECT_EQ(event->eventBackupJobFinished->Status, JobSessionTaskStatus::Success);
        }
    }
    EXPECT_THAT(types, ElementsAre(EEventType::BackupJobCreated, EEventType::BackupJobStarted,
                                   EEventType::BackupJobFinished, EEventType::BackupJobStarted,
                                   EEventType::BackupJobFinished));
}

TEST_F(CAgentApiTest, ARunningJobRefusesWhatItsRunDoesNotAllowAndStopsWithinSeconds) {
    const auto product = Product(Connect());
    const auto job = WaitingJob(*product);
    const auto session = job->Start({});
    EXPECT_THROW(job->Start({}), CJobIsRunning);
    EXPECT_THROW(job->UpdateConfigurationInfo(job->GetConfigurationInfo()), CJobIsRunning);
    EXPECT_THROW(product->DeleteBackupJob(job->GetInfo().Id), CJobIsRunning);
    EXPECT_TRUE(job->Disable());
    job->SetUserData("while it runs");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(session->Stop("enough"));
    const auto info = Finished(*session);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    EXPECT_EQ(info.Result, JobResult::Failed);
    EXPECT_THAT(LinesOf(info), HasSubstr("enough"));
    EXPECT_FALSE(session->Stop("again"));
    EXPECT_THAT(job->GetOibsForRestore(), IsEmpty());
}

TEST_F(CAgentApiTest, TheDaemonsEndStopsARunWithinSecondsAndItIsMarked) {
    const auto product = Product(Connect());
    const auto job = WaitingJob(*product);
    const auto id = job->Start({})->GetInfo().Uid;
    const pid_t pid = DaemonPid();
    const auto before = std::chrono::steady_clock::now();
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(AwaitNoDaemon());
    EXPECT_LT(std::chrono::steady_clock::now() - before, 8s);
    const auto info = Product(Connect())->FindBackupJobSessionById(id)->GetInfo();
    EXPECT_EQ(info.State, JobState::Stopped);
    EXPECT_EQ(info.Result, JobResult::Failed);
}

TEST_F(CAgentApiTest, ARepositoryMakesItsLastFolderAndIsKeptWhileItIsUsed) {
    const auto product = Product(Connect());
    const auto repositories = product->GetRepositoryManager();
    auto repository = Repository(*product, "new");
    struct stat status {};
    ASSERT_EQ(::stat(Home("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    EXPECT_THAT(FailureOf([&] { Repository(*product, "missing/new"); }), HasSubstr("missing"));
    EXPECT_THAT(FailureOf([&] { Repository(*product, "new"); }), HasSubstr("new"));

    const auto size = repositories->RequestSizeInfo(repository.Id);
    ASSERT_TRUE(size.HasValue());
    EXPECT_GT(size->Capacity, size->FreeSpace);
    repository.Name = "renamed";
    EXPECT_EQ(repositories->UpdateRepository(repository), repository);
    EXPECT_EQ(repositories->FindRepository(repository.Id)->Name, "renamed");
    EXPECT_TRUE(repositories->CanBeDeleted(repository.Id));
    const auto job = product->CreateBackupJob(Config(repository.Id));
    EXPECT_FALSE(repositories->CanBeDeleted(repository.Id));
    EXPECT_NE(FailureOf([&] { repositories->DeleteRepository(repository.Id); }), "");
    product->DeleteBackupJob(job->GetInfo().Id);
    repositories->DeleteRepository(repository.Id);
    EXPECT_FALSE(repositories->FindRepository(repository.Id).HasValue());
}

TEST_F(CAgentApiTest, ServersAndProvidersAreKeptAndTheirPasswordsNeverComeOut) {
    auto product = Product(Connect());
    SBackupServerInfo server;
    server.Name = "server";
    server.Connection = {{"backup.example", 10006}};
    server.Password = std::string(Password);
    server = product->GetBackupServerManager()->AddBackupServer(server);
    EXPECT_NE(server.Id, apigen::Guid{});
    SCloudServiceProviderInfo provider;
    provider.Name = "provider";
    provider.Connection = {{"one.example", 6180}, {"two.example", 6180}};
    provider.Password = SCloudServiceProviderPassword{Password, ECloudServiceProviderPasswordType::Plain};
    provider = product->GetCloudServiceProviderManager()->AddCloudServiceProvider(provider);
    CrashAgent();

    product = Product(Connect());
    const auto servers = product->GetBackupServerManager();
    const auto providers = product->GetCloudServiceProviderManager();
    EXPECT_THAT(servers->GetBackupServers(), ElementsAre(server));
    EXPECT_FALSE(server.Password.HasValue());
    EXPECT_THAT(providers->GetCloudServiceProviders(), ElementsAre(provider));
    EXPECT_THAT(providers->GetCloudServiceProviderGateways(provider.Id), SizeIs(2));
    server.Username = "somebody";
    servers->UpdateBackupServer(server);
    EXPECT_EQ(*servers->FindBackupServer(server.Id), server);
    provider.TrustedThumbprint = "ab:cd";
    providers->UpdateCloudServiceProvider(provider);
    EXPECT_EQ(*providers->FindCloudServiceProvider(provider.Id), provider);
    EXPECT_TRUE(servers->DeleteBackupServer(server.Id));
    EXPECT_FALSE(servers->DeleteBackupServer(server.Id));
    EXPECT_TRUE(providers->DeleteCloudServiceProvider(provider.Id));
    EXPECT_FALSE(providers->DeleteCloudServiceProvider(provider.Id));
}

TEST_F(CAgentApiTest, AJobThatCannotSucceedSaysWhyAndIsNotStarted) {
    const auto product = Product(Connect());
    apigen::Guid nowhere;
    nowhere.Data1 = 7;
    auto config = Config(nowhere);
    config.Source.IncludeDirs = {Home("missing")};
    const auto job = product->CreateBackupJob(config);
    const auto findings = job->CheckValidity();
    EXPECT_THAT(findings,
                Contains(testing::Field(&SCheckJobValidityMessage::MessageType, ELogDetailType::Error)));
    EXPECT_NE(FailureOf([&] { job->Start({}); }), "");
    EXPECT_THAT(job->GetBackupJobSessions(), IsEmpty());
}

TEST_F(CAgentApiTest, NamesThatAUserTypedAreResolved) {
    const auto product = Product(Connect());
    const auto resolved = product->ResolveUserInput(
        {{"/", {}}, {Home("source"), {}}, {Home("source/file"), {}}, {"no such thing", {}}});
    ASSERT_THAT(resolved, SizeIs(4));
    EXPECT_EQ(resolved[0].SourceInput, "/");
    EXPECT_EQ(resolved[1].ObjectType, EVolumeBackupObjectType::Directory);
    EXPECT_EQ(resolved[2].ObjectType, EVolumeBackupObjectType::File);
    EXPECT_EQ(resolved[3].ObjectType, EVolumeBackupObjectType::Unknown);
    for (const auto& each : resolved)
        EXPECT_NE(each.ResolveDetails, "") << each.SourceInput;
}

TEST_F(CAgentApiTest, GatheredLogsAreAnArchiveWithoutASecret) {
    const auto control = Connect();
    const auto product = Product(control);
    auto config = Config(Repository(*product).Id);
    SEncryptionSettings encryption;
    encryption.Password = std::string(Password);
    config.StorageInfo.EncryptionSettings = encryption;
    const auto info = Finished(*product->CreateBackupJob(config)->Start({}));
    EXPECT_EQ(info.Result, JobResult::Success) << LinesOf(info);
    control->GrabLogs(Home("logs/all.tar.gz"));
    ASSERT_EQ(std::system(("tar -xzf " + Home("logs/all.tar.gz") + " -C " + Home("logs")).c_str()), 0);
    struct stat status {};
    ASSERT_EQ(::stat(Home("logs/all.tar.gz").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    std::string all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Home("logs"))) {
        if (entry.is_regular_file() && entry.path().extension() != ".gz") all += TextOf(entry.path());
    }
    EXPECT_THAT(all, AllOf(HasSubstr("Ready: process"), HasSubstr("nightly"), Not(HasSubstr(Password))));
    // Nor does anything else that the agent has written, but the file that is there for it.
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Home())) {
        if (entry.is_regular_file() && TextOf(entry.path()).find(Password) != std::string::npos) {
            found.push_back(entry.path());
        }
    }
    for (const auto& path : found)
        EXPECT_THAT(path, HasSubstr("/state/secrets/"));
    EXPECT_THAT(found, Not(IsEmpty()));

    EXPECT_NE(FailureOf([&] { control->GrabLogs(Home("logs/all.tar.gz")); }), "") << "it is there already";
    EXPECT_NE(FailureOf([&] { control->GrabLogs("relative.tar.gz"); }), "");
    EXPECT_NE(FailureOf([&] { control->GrabLogs(Home("missing/x.tar.gz")); }), "");
}

TEST_F(CAgentApiTest, AnswersComeWhileABackupRunsAndClientsMayGo) {
    const auto product = Product(Connect());
    const auto job = WaitingJob(*product);
    const auto id = job->Start({})->GetInfo().Uid;
    {
        const auto guest = Connect();
        EXPECT_EQ(guest->GetCurrentOwner(), Owner());
    }
    CChild tool(ToolWords());
    EXPECT_NE(tool.Read(), "");
    tool.Kill(SIGKILL);
    EXPECT_EQ(tool.Ended(), 1000 + SIGKILL);
    Write("go");
    const auto info = Finished(*product->FindBackupJobSessionById(id));
    EXPECT_EQ(info.Result, JobResult::Success) << LinesOf(info);
}

TEST_F(CAgentApiTest, ChangesNeedControlThatStillStands) {
    const auto control = Connect();
    const auto product = Product(control);
    const auto job = Job(*product);
    control->ReleaseControl(Owner());
    EXPECT_NE(FailureOf([&] { job->Disable(); }), "");
    EXPECT_NE(FailureOf([&] { product->SetSchedulerPermissionToRunJobs(false); }), "");
    EXPECT_TRUE(job->GetInfo().Enabled);
}

}  // namespace
}  // namespace tests
