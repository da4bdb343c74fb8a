// SPDX-License-Identifier: Apache-2.0
// Every method of every interface, over a real process.
#include <fstream>
#include <sstream>

#include "tests/testagent/AgentFixture.h"
#include "tests/testagent/AgentMethodIds.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using apigen::Guid;

class EveryMethodOfTheAgent : public CAgentTest {
protected:
    EveryMethodOfTheAgent() { Script(R"({"clock": {"mode": "calls", "steps": 4}})"); }
};

void UseRepositories(IZamProduct& product, const SBackupRepositoryInfo& wanted) {
    const auto manager = product.GetRepositoryManager();
    auto created = manager->CreateRepository(wanted);
    EXPECT_NE(created.Id, Guid{});
    EXPECT_EQ(created.Location, wanted.Location);
    created.Name = "renamed";
    EXPECT_EQ(manager->UpdateRepository(created), created);
    EXPECT_EQ(manager->GetRepositories(), std::vector{created});
    EXPECT_EQ(manager->FindRepository(created.Id), apigen::Optional<SBackupRepositoryInfo>(created));
    EXPECT_FALSE(manager->FindRepository(Guid{}));
    const auto size = manager->RequestSizeInfo(created.Id);
    ASSERT_TRUE(size);
    EXPECT_EQ(size->FreeSpace, size->Capacity);
    EXPECT_FALSE(manager->RequestSizeInfo(Guid{}));
    EXPECT_TRUE(manager->CanBeDeleted(created.Id));
    manager->DeleteRepository(created.Id);
    EXPECT_TRUE(manager->GetRepositories().empty());
    EXPECT_FALSE(manager->CanBeDeleted(created.Id));
}

void UseServers(IZamProduct& product) {
    const auto manager = product.GetBackupServerManager();
    SBackupServerInfo wanted;
    wanted.Name = "backup.example";
    wanted.Connection = {{"10.0.0.1", 10006}, {"fe80::1", 10007}};
    wanted.Username = "admin";
    wanted.Password = std::string("s3cret");
    auto server = manager->AddBackupServer(wanted);
    EXPECT_NE(server.Id, Guid{});
    EXPECT_EQ(server.Connection, wanted.Connection);
    EXPECT_FALSE(server.Password) << "passwords never come back";
    manager->ResyncBackupServerRepositoriesList(server.Id);
    const auto repositories = product.GetRepositoryManager()->GetRepositories();
    ASSERT_EQ(repositories.size(), 1U);
    EXPECT_EQ(repositories[0].ServerId, apigen::Optional<Guid>(server.Id));
    server.Name = "renamed.example";
    manager->UpdateBackupServer(server);
    EXPECT_EQ(manager->GetBackupServers(), std::vector{server});
    EXPECT_EQ(manager->FindBackupServer(server.Id), apigen::Optional<SBackupServerInfo>(server));
    EXPECT_FALSE(manager->FindBackupServer(Guid{}));
    EXPECT_TRUE(manager->DeleteBackupServer(server.Id));
    EXPECT_FALSE(manager->DeleteBackupServer(server.Id));
    EXPECT_TRUE(product.GetRepositoryManager()->GetRepositories().empty());
}

void UseProviders(IZamProduct& product) {
    const auto manager = product.GetCloudServiceProviderManager();
    SCloudServiceProviderInfo wanted;
    wanted.Name = "cloud.example";
    wanted.Connection = {{"gw1.example", 6180}, {"gw2.example", 6181}};
    wanted.Password = SCloudServiceProviderPassword{"s3cret", ECloudServiceProviderPasswordType::Token};
    wanted.TrustedThumbprint = "AB12";
    auto provider = manager->AddCloudServiceProvider(wanted);
    EXPECT_FALSE(provider.Password) << "passwords never come back";
    manager->ResyncCloudRepositoriesList(provider.Id);
    EXPECT_EQ(product.GetRepositoryManager()->GetRepositories().at(0).Type, BackupTargetType::Cloud);
    const auto gateways = manager->GetCloudServiceProviderGateways(provider.Id);
    ASSERT_EQ(gateways.size(), 2U);
    EXPECT_EQ(gateways[1].Connection, wanted.Connection[1]);
    EXPECT_EQ(gateways[1].Priority, 2);
    provider.TrustedThumbprint = "CD34";
    manager->UpdateCloudServiceProvider(provider);
    EXPECT_EQ(manager->GetCloudServiceProviders(), std::vector{provider});
    EXPECT_EQ(manager->FindCloudServiceProvider(provider.Id),
              apigen::Optional<SCloudServiceProviderInfo>(provider));
    EXPECT_TRUE(manager->DeleteCloudServiceProvider(provider.Id));
    EXPECT_FALSE(manager->DeleteCloudServiceProvider(provider.Id));
}

void UseSessions(IZamProduct& product, IBackupJob& job) {
    EXPECT_EQ(job.FindLastBackupJobSession(), nullptr);
    EXPECT_TRUE(job.GetBackupJobSessions().empty());
    const auto session = job.Start(job.GetDefaultJobStartOptions());
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(job.GetBackupJobSessions().size(), 1U);
    auto info = session->GetInfo();
    EXPECT_EQ(info.State, JobState::Working);
    EXPECT_EQ(info.PercentCompleted, 25);
    const long usn = info.Usn;
    EXPECT_EQ(job.GetBackupJobSessions(usn).size(), 0U);
    while (info.State != JobState::Stopped) {
        info = session->GetInfo();
    }
    EXPECT_EQ(info.Result, JobResult::Success);
    EXPECT_EQ(info.PercentCompleted, 100);
    EXPECT_EQ(info.ReadSizeBytes, job.GetOibsForRestore().at(0).ApproxSize);
    EXPECT_EQ(job.GetBackupJobSessions(usn).size(), 1U);
    EXPECT_EQ(job.GetOibsForRestore().size(), 1U);
    EXPECT_TRUE(job.GetInfo().LastBackupTimeUtc);
    EXPECT_FALSE(session->Stop("too late"));

    const auto second = job.Start({});
    EXPECT_TRUE(second->Stop("enough"));
    EXPECT_EQ(second->GetInfo().Result, JobResult::Failed);
    EXPECT_EQ(job.FindLastBackupJobSession()->GetInfo().Uid, second->GetInfo().Uid);
    EXPECT_EQ(product.FindBackupJobSessionById(info.Uid)->GetInfo(), info);
    EXPECT_EQ(product.FindBackupJobSessionById(Guid{}), nullptr);
}

void UseJobs(IZamProduct& product, SBackupJobConfigurationInfo config) {
    const auto job = product.CreateBackupJob(config);
    ASSERT_NE(job, nullptr);
    const auto info = job->GetInfo();
    EXPECT_EQ(info.Name, config.JobName);
    EXPECT_TRUE(info.Enabled);
    ASSERT_EQ(product.GetBackupJobs().size(), 1U);
    EXPECT_EQ(product.GetBackupJobs()[0]->GetInfo(), info);
    EXPECT_EQ(product.FindBackupJob(info.Id)->GetInfo(), info);
    EXPECT_EQ(product.FindBackupJob(Guid{}), nullptr);
    EXPECT_TRUE(job->Disable());
    EXPECT_FALSE(job->Disable());
    EXPECT_FALSE(job->GetInfo().Enabled);
    EXPECT_TRUE(job->Enable());
    EXPECT_EQ(job->GetConfigurationInfo(), config);
    config.Source.IncludeDirs.emplace_back("/home");
    job->UpdateConfigurationInfo(config);
    EXPECT_EQ(job->GetConfigurationInfo(), config);
    EXPECT_TRUE(job->CheckValidity().empty());
    job->SetUserData(" kept as it is\r\n\1 ");
    EXPECT_EQ(job->GetUserData(), " kept as it is\r\n\1 ");
    job->SetUserData("");
    EXPECT_EQ(job->GetUserData(), "");
    UseSessions(product, *job);
    EXPECT_TRUE(product.DeleteBackupJob(info.Id));
    EXPECT_FALSE(product.DeleteBackupJob(info.Id));
    EXPECT_TRUE(product.GetBackupJobs().empty());
}

TEST_F(EveryMethodOfTheAgent, WorksOverAConnectionToAProcess) {
    const auto control = Connect();
    EXPECT_EQ(control->GetCurrentOwner(), SZamControlOwnerInfo{});
    const auto product = control->RequestControl(Owner(), false);
    ASSERT_NE(product, nullptr);
    EXPECT_EQ(control->GetCurrentOwner(), Owner());
    control->SetOwnerMode(Owner().Id, ZAMOwnerMode::Shared);
    EXPECT_EQ(control->GetCurrentOwner().Mode, ZAMOwnerMode::Shared);
    EXPECT_EQ(control->GetProductInfo().Name, "Test agent");
    EXPECT_FALSE(control->IsOsxFDAGranted());
    EXPECT_NE(control->GetSessionId(), Guid{});
    EXPECT_EQ(control->GetSessionId(), product->GetSessionId());
    EXPECT_TRUE(control->GetEventConfig().v1);

    EXPECT_TRUE(product->IsSchedulerAllowedToRunJobs());
    product->SetSchedulerPermissionToRunJobs(false);
    EXPECT_FALSE(product->IsSchedulerAllowedToRunJobs());
    const auto resolved = product->ResolveUserInput({{"/dev/sda", EVolumeBackupObjectType::Unknown},
                                                     {"/dev/sda1", EVolumeBackupObjectType::Unknown},
                                                     {"/etc", EVolumeBackupObjectType::Unknown},
                                                     {"nonsense", EVolumeBackupObjectType::Unknown}});
    ASSERT_EQ(resolved.size(), 4U);
    EXPECT_EQ(resolved[0].ObjectType, EVolumeBackupObjectType::Disk);
    EXPECT_EQ(resolved[1].ObjectType, EVolumeBackupObjectType::Volume);
    EXPECT_EQ(resolved[2].ObjectType, EVolumeBackupObjectType::Directory);
    EXPECT_EQ(resolved[3].ObjectType, EVolumeBackupObjectType::Unknown);

    UseRepositories(*product, LocalRepository("first"));
    UseServers(*product);
    UseProviders(*product);
    const auto repository = product->GetRepositoryManager()->CreateRepository(LocalRepository("second"));
    UseJobs(*product, JobConfig("nightly", repository.Id));

    control->ReleaseControl(Owner());
    EXPECT_EQ(control->GetCurrentOwner(), SZamControlOwnerInfo{});

    // The agent's log names every method that was called: none may be missing.
    const std::string path = testing::TempDir() + "grabbed-" + std::to_string(::getpid()) + ".log";
    control->GrabLogs(path);
    std::ifstream file(path);
    std::set<std::string> called;
    bool hasPassword = false;
    for (std::string line; std::getline(file, line);) {
        hasPassword = hasPassword || line.find("s3cret") != std::string::npos;
        called.insert(line);
    }
    std::remove(path.c_str());
    EXPECT_FALSE(hasPassword);
    for (const auto& id : AgentMethodIds()) {
        EXPECT_TRUE(called.count(id)) << id << " was not called";
    }
}

}  // namespace
}  // namespace tests
