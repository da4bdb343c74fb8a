// SPDX-License-Identifier: Apache-2.0
// A whole round with the agent: take control, make a repository and a job, run it and follow its events.
#include <zamclientlib/ZamClientLib.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <random>
#include <string>

using namespace zamclientlib;

namespace {

apigen::Guid RandomGuid() {
    std::random_device random;
    apigen::Guid guid;
    guid.Data1 = random();
    guid.Data2 = static_cast<std::uint16_t>(random());
    guid.Data3 = static_cast<std::uint16_t>(random());
    for (auto& byte : guid.Data4) {
        byte = static_cast<std::uint8_t>(random());
    }
    return guid;
}

std::shared_ptr<IBackupJob> MakeJob(IZamProduct& product, const std::string& name) {
    SBackupRepositoryInfo repository;
    repository.Name = name + " repository";
    repository.Type = BackupTargetType::LocalFolder;
    repository.Location = "/tmp/" + name;
    repository = product.GetRepositoryManager()->CreateRepository(repository);

    SBackupJobConfigurationInfo config;
    config.JobName = name;
    config.RepositoryId = repository.Id;
    config.Source.BackupMode = JobBackupMode::FileLevel;
    config.Source.IncludeDirs = {"/etc"};
    config.RetentionInfo.RestorePointsCount = 7;
    return product.CreateBackupJob(config);
}

/// Prints events until the session has finished.
void Follow(CEventsStream& events, const apigen::Guid& session) {
    while (true) {
        const SBaseEvent event = events.Read();
        std::cout << "event " << event.Id << ": " << NameOf(event.Type) << '\n';
        if (event.eventBackupJobFinished && event.eventBackupJobFinished->SessionId == session) return;
    }
}

void PrintSessions(const IBackupJob& job) {
    for (const auto& session : job.GetBackupJobSessions()) {
        const SBackupJobSessionInfo info = session->GetInfo();
        std::cout << "session " << info.Uid.Serialize() << ": " << NameOf(info.State) << ", "
                  << NameOf(info.Result) << ", " << info.ReadSizeBytes << " bytes read\n";
        for (const auto& line : info.JobDetails) {
            std::cout << "    " << NameOf(line.Type) << ": " << line.Message << '\n';
        }
    }
}

void Run() {
    const auto control = GetZamControl(std::chrono::seconds(30), false, nullptr);
    std::cout << "agent: " << control->GetProductInfo().Name << '\n';

    SZamControlOwnerInfo owner;
    owner.Id = RandomGuid();
    owner.Name = "demo";
    owner.Type = ZAMOwnerType::Local;
    owner.Mode = ZAMOwnerMode::Exclusive;
    const auto product = control->RequestControl(owner, false);

    // Before anything happens, so that nothing is missed.
    CEventsStream events(control->GetEventConfig(), nullptr);

    const auto job = MakeJob(*product, "demo-" + owner.Id.Serialize().substr(1, 8));
    const auto session = job->Start({});
    Follow(events, session->GetInfo().Uid);
    PrintSessions(*job);

    // A refusal of the agent arrives as an exception of its type; the connection goes on.
    try {
        product->CreateBackupJob(job->GetConfigurationInfo());
    } catch (const CGenericException& error) {
        std::cout << "refused, as expected: " << error.what() << '\n';
    }

    product->DeleteBackupJob(job->GetInfo().Id);
    control->ReleaseControl(owner);
}

}  // namespace

int main() {
    try {
        Run();
        return 0;
    } catch (const apigen::ApiInternalError& error) {
        std::cerr << "The connection to the agent failed: " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "The agent refused: " << error.what() << '\n';
    }
    return 1;
}
