// SPDX-License-Identifier: Apache-2.0
// A whole round with the agent: take control, make a repository and a job, run it and follow its events.
#include <zamclientlib/ZamClientLib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
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

/// An agent may answer a call for an object with none.
template <class Object>
std::shared_ptr<Object> Required(std::shared_ptr<Object> object, const std::string& name) {
    if (object == nullptr) throw std::runtime_error("it handed out no " + name);
    return object;
}

/// A message may quote several lines of the agent's.
std::string InOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

std::shared_ptr<IBackupJob> MakeJob(IZamProduct& product, const std::string& name) {
    SBackupRepositoryInfo repository;
    repository.Name = name + " repository";
    repository.Type = BackupTargetType::LocalFolder;
    repository.Location = "/tmp/" + name;
    const auto repositories = Required(product.GetRepositoryManager(), "repository manager");
    repository = repositories->CreateRepository(repository);

    SBackupJobConfigurationInfo config;
    config.JobName = name;
    config.RepositoryId = repository.Id;
    config.Source.BackupMode = JobBackupMode::FileLevel;
    config.Source.IncludeDirs = {"/etc"};
    config.RetentionInfo.RestorePointsCount = 7;
    return Required(product.CreateBackupJob(config), "job");
}

/// Prints events until the session has finished.
void Follow(CEventsStream& events, const apigen::Guid& session) {
    constexpr std::chrono::seconds Patience(30);
    while (true) {
        const auto event = events.ReadUntil(std::chrono::steady_clock::now() + Patience);
        if (!event) throw std::runtime_error("no event has come for a long time");
        std::cout << "event " << event->Id << ": " << NameOf(event->Type) << '\n';
        if (event->eventBackupJobFinished && event->eventBackupJobFinished->SessionId == session) return;
    }
}

void PrintSessions(const IBackupJob& job) {
    for (const auto& session : job.GetBackupJobSessions()) {
        const SBackupJobSessionInfo info = Required(session, "session")->GetInfo();
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
    const auto product = Required(control->RequestControl(owner, false), "product");

    // Before anything happens, so that nothing is missed.
    CEventsStream events(control->GetEventConfig(), nullptr);

    const auto job = MakeJob(*product, "demo-" + owner.Id.Serialize().substr(1, 8));
    const auto session = Required(job->Start({}), "session");
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
        std::cerr << "The connection to the agent failed: " << InOneLine(error.what()) << '\n';
    } catch (const apigen::ApiException& error) {
        std::cerr << "The agent refused: " << InOneLine(error.what()) << '\n';
    } catch (const std::exception& error) {
        std::cerr << "The agent does not do as expected: " << InOneLine(error.what()) << '\n';
    }
    return 1;
}
