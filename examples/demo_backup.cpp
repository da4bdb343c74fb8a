// SPDX-License-Identifier: Apache-2.0
// Backs up folders of this host in two points, and shows progress and events as they come.
//
//   demo_backup REPOSITORY NOTES FOLDER...
//
// REPOSITORY is an empty folder for the backups. NOTES is backed up with the folders; before the second point a file is
// written there, so that the points differ.
#include <zamclientlib/ZamClientLib.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace zamclientlib;
using namespace std::chrono_literals;

namespace {

std::shared_ptr<IBackupJob> MakeJob(IZamProduct& product, const std::string& location,
                                    const std::vector<std::string>& folders) {
    SBackupRepositoryInfo repository;
    repository.Name = "Demo repository";
    repository.Type = BackupTargetType::LocalFolder;
    repository.Location = location;
    repository = product.GetRepositoryManager()->CreateRepository(repository);

    SBackupJobConfigurationInfo config;
    config.JobName = "Demo";
    config.RepositoryId = repository.Id;
    config.Source.BackupMode = JobBackupMode::FileLevel;
    config.Source.IncludeDirs = folders;
    config.StorageInfo.CompressionLevel = JobCompressionLevel::Optimal;
    config.RetentionInfo.RestorePointsCount = 7;
    auto job = product.CreateBackupJob(config);
    for (const auto& finding : job->CheckValidity())
        std::cout << "finding, " << NameOf(finding.MessageType) << ": " << finding.Message << '\n';
    return job;
}

/// Events and progress of a run, until it has ended.
SBackupJobSessionInfo Follow(CEventsStream& events, const IBackupJobSession& session) {
    constexpr auto Round = 200ms;
    int shown = -1;
    auto state = JobState::Unknown;
    while (true) {
        if (const auto event = events.ReadUntil(std::chrono::steady_clock::now() + Round)) {
            std::cout << "event " << event->Id << ": " << NameOf(event->Type) << '\n';
        }
        auto info = session.GetInfo();
        if (info.PercentCompleted != shown || info.State != state) {
            shown = info.PercentCompleted;
            state = info.State;
            std::cout << "  " << NameOf(info.State) << ", " << shown << " %, " << info.ReadSizeBytes
                      << " bytes read\n"
                      << std::flush;
        }
        if (info.State == JobState::Stopped) return info;
    }
}

void BackUp(CEventsStream& events, IBackupJob& job) {
    const auto info = Follow(events, *job.Start({}));
    std::cout << NameOf(info.SessionAlgorithm) << " backup: " << NameOf(info.Result) << ", "
              << info.BackedUpSizeBytes << " bytes of files, " << info.TransferredSizeBytes
              << " bytes stored\n";
    for (const auto& line : info.JobDetails)
        std::cout << "    " << NameOf(line.Type) << ": " << line.Message << '\n';
    if (info.Result != JobResult::Success && info.Result != JobResult::Warning) {
        throw std::runtime_error("the backup failed");
    }
}

/// Gives control back, whatever happens.
struct SReturnedControl {
    IZamControl& Control;
    const SZamControlOwnerInfo& Owner;

    ~SReturnedControl() {
        try {
            Control.ReleaseControl(Owner);
        } catch (const std::exception& error) {
            std::cerr << "control was not given back: " << error.what() << '\n';
        }
    }
};

void Run(const std::vector<std::string>& arguments) {
    const std::string& notes = arguments[1];
    const auto control = GetZamControl(60s, false, nullptr);
    const auto what = control->GetProductInfo();
    std::cout << "agent: " << what.Name << ' ' << what.Version << '\n';

    SZamControlOwnerInfo owner;
    owner.Id = apigen::Guid::Random();
    owner.Name = "demo";
    owner.Type = ZAMOwnerType::Local;
    owner.Mode = ZAMOwnerMode::Exclusive;
    const auto product = control->RequestControl(owner, false);
    // Control outlives this program: another run would be refused.
    const SReturnedControl returned{*control, owner};
    if (product == nullptr) throw std::runtime_error("the agent does not hand out its product");

    // Before anything happens, so that nothing is missed.
    CEventsStream events(control->GetEventConfig(), nullptr);
    const auto job = MakeJob(*product, arguments[0], {arguments.begin() + 1, arguments.end()});
    std::ofstream(notes + "/first") << "written before the first point\n";
    BackUp(events, *job);
    std::ofstream(notes + "/second") << "written before the second point\n";
    BackUp(events, *job);

    const auto points = job->GetOibsForRestore();
    for (const auto& point : points) {
        std::cout << "point " << point.Id.Serialize() << ": " << NameOf(point.Type) << ", "
                  << point.ApproxSize << " bytes, " << point.StorageSize << " stored\n";
    }
    if (points.size() != 2) throw std::runtime_error("there are not two points");
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() < 3) {
        std::cerr << "usage: demo_backup REPOSITORY NOTES FOLDER...\n";
        return 2;
    }
    try {
        Run(arguments);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "demo_backup: " << error.what() << '\n';
        return 1;
    }
}
