// SPDX-License-Identifier: Apache-2.0
/// \file
/// Records as an agent has them.
#pragma once

#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zambench {

inline apigen::Guid IdOf(std::size_t number) {
    return {static_cast<std::uint32_t>(number), 0x4a1e, 0x9c07, {0x8f, 0x21, 3, 4, 5, 6, 7, 0xfe}};
}

template <class Record>
Record Sample(std::size_t number);

/// Every third one is on a server, every fourth is a shared folder.
template <>
inline zamclientlib::SBackupRepositoryInfo Sample(std::size_t number) {
    zamclientlib::SBackupRepositoryInfo info;
    info.Id = IdOf(number);
    info.Name = "Repository " + std::to_string(number);
    info.Type = zamclientlib::BackupTargetType::LocalFolder;
    info.Location = "/srv/backups/repository-" + std::to_string(number);
    if (number % 3 == 0) {
        info.ServerId = IdOf(number / 3);
        info.OriginalName = std::string("Default Backup Repository");
    }
    if (number % 4 == 0) {
        info.Type = zamclientlib::BackupTargetType::SharedFolder;
        info.SharedFolderInfo = zamclientlib::SSharedFolderInfo{
            zamclientlib::SharedFolderType::Smb, "//filer.example/backups & more", "backup", "EXAMPLE", {}};
    }
    return info;
}

template <>
inline zamclientlib::SBackupJobSessionInfo Sample(std::size_t number) {
    zamclientlib::SBackupJobSessionInfo info;
    info.Uid = IdOf(number);
    info.JobUid = IdOf(number % 10);
    info.PointId = IdOf(number + 1);
    info.OibId = IdOf(number + 2);
    info.Usn = static_cast<long>(number);
    info.JobName = "Nightly backup of host " + std::to_string(number % 10);
    info.JobDetails = {{zamclientlib::ELogDetailType::Info, IdOf(1), "Preparing for backup"},
                       {zamclientlib::ELogDetailType::Success, IdOf(2), "Backed up /home <1.2 GB>"}};
    info.State = zamclientlib::JobState::Stopped;
    info.Result = zamclientlib::JobResult::Success;
    info.StartTimeUtc = {1'700'000'000, 12};
    info.EndTimeUtc = {1'700'000'600, 999};
    info.SourceLoad = 57;
    info.TargetLoad = 99;
    info.ReadSizeBytes = 1'288'490'188;
    info.BackedUpSizeBytes = 612'345'678;
    info.TransferredSizeBytes = 312'345'678;
    info.ProcessingRateByteInSec = 98'765'432;
    info.PercentCompleted = 100;
    info.BackupDestination = "/srv/backups/repository-1";
    return info;
}

template <>
inline zamclientlib::SBackupJobConfigurationInfo Sample(std::size_t number) {
    zamclientlib::SBackupJobConfigurationInfo config;
    config.JobName = "Nightly backup of host " + std::to_string(number);
    config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
    config.Source.Objects = {{"/home", zamclientlib::EVolumeBackupObjectType::Directory},
                             {"/etc", zamclientlib::EVolumeBackupObjectType::Directory}};
    config.Source.IncludeDirs = {"/home/a", "/home/b"};
    config.Source.ExcludeMasks = {"*.tmp", "*.o"};
    config.RepositoryId = IdOf(number);
    config.StorageInfo.EncryptionSettings =
        zamclientlib::SEncryptionSettings{std::string("not a <secret>"), "none"};
    config.ScriptInfo = zamclientlib::SBackupJobScriptInfo{};
    config.UserData = "kept for the caller";
    config.RetriesInfo = zamclientlib::SRetriesInfo{};
    return config;
}

template <>
inline zamclientlib::SBaseEvent Sample(std::size_t number) {
    zamclientlib::SBaseEvent event;
    event.Type = zamclientlib::EEventType::BackupJobStarted;
    event.Id = number;
    event.CreateTimeUTC = {1'700'000'000, 12};
    event.SourceType = zamclientlib::EEventSourceType::User;
    event.ControlSessionId = IdOf(1);
    event.eventBackupJobStarted = zamclientlib::SEventBackupJobStarted{
        IdOf(number), IdOf(number + 1), "root", zamclientlib::JobBackupMode::FileLevel};
    return event;
}

template <class Record>
std::vector<Record> Samples(std::size_t size) {
    std::vector<Record> records;
    records.reserve(size);
    for (std::size_t i = 0; i < size; ++i)
        records.push_back(Sample<Record>(i));
    return records;
}

}  // namespace zambench
