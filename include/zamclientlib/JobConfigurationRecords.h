// SPDX-License-Identifier: Apache-2.0
/// \file
/// The definition of a backup job. Nothing is validated here; the service judges.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/JobRecords.h>
#include <zamclientlib/RecordEquality.h>

#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// An account that a job uses.
struct SCredentials {
    std::string Login{};
    std::string Domain{};
    apigen::Optional<std::string> Password{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Login", &SCredentials::Login);
        field("Domain", &SCredentials::Domain);
        field(apigen::Secret("Password"), &SCredentials::Password);
    }
};

/// What a job backs up.
struct SBackupSourceInfo {
    JobBackupMode BackupMode{};
    std::vector<SVolumeBackupObject> Objects{};
    std::vector<std::string> IncludeDirs{};
    std::vector<std::string> ExcludeDirs{};
    std::vector<std::string> IncludeMasks{};  ///< file name patterns, "*.txt" for instance
    std::vector<std::string> ExcludeMasks{};
    bool shouldBackupUsbDrives = false;
    bool shouldBackupUserProfiles = false;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("BackupMode", &SBackupSourceInfo::BackupMode);
        field("Objects", &SBackupSourceInfo::Objects);
        field("IncludeDirs", &SBackupSourceInfo::IncludeDirs);
        field("ExcludeDirs", &SBackupSourceInfo::ExcludeDirs);
        field("IncludeMasks", &SBackupSourceInfo::IncludeMasks);
        field("ExcludeMasks", &SBackupSourceInfo::ExcludeMasks);
        field("shouldBackupUsbDrives", &SBackupSourceInfo::shouldBackupUsbDrives);
        field("shouldBackupUserProfiles", &SBackupSourceInfo::shouldBackupUserProfiles);
    }
};

/// Encryption of the backup data.
struct SEncryptionSettings {
    apigen::Optional<std::string> Password{};
    std::string PasswordHint{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field(apigen::Secret("Password"), &SEncryptionSettings::Password);
        field("PasswordHint", &SEncryptionSettings::PasswordHint);
    }
};

/// How backup data is stored.
struct SBackupStorageInfo {
    JobCompressionLevel CompressionLevel{};
    EKbBlockSize BlockSize{};
    ESnapshotMode snapshotMode{};
    apigen::Optional<SEncryptionSettings> EncryptionSettings{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("CompressionLevel", &SBackupStorageInfo::CompressionLevel);
        field("BlockSize", &SBackupStorageInfo::BlockSize);
        field("snapshotMode", &SBackupStorageInfo::snapshotMode);
        field("EncryptionSettings", &SBackupStorageInfo::EncryptionSettings);
    }
};

/// Which files the backup's index lists.
struct SBackupIndexingInfo {
    BackupIndexingType IndexingType{};
    std::vector<std::string> IncludedFolders{};
    std::vector<std::string> ExcludedFolders{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("IndexingType", &SBackupIndexingInfo::IndexingType);
        field("IncludedFolders", &SBackupIndexingInfo::IncludedFolders);
        field("ExcludedFolders", &SBackupIndexingInfo::ExcludedFolders);
    }
};

/// Scripts that run around the job and around its snapshot; an empty path means none.
struct SBackupJobScriptInfo {
    std::string PreJobScript{};
    std::string PostJobScript{};
    std::string PreFreezeScript{};
    std::string PostThawScript{};
    bool IgnoreSnapshotScriptsFailures = false;
    STimeSpan ExecutionTimeout{};  ///< of each script

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("PreJobScript", &SBackupJobScriptInfo::PreJobScript);
        field("PostJobScript", &SBackupJobScriptInfo::PostJobScript);
        field("PreFreezeScript", &SBackupJobScriptInfo::PreFreezeScript);
        field("PostThawScript", &SBackupJobScriptInfo::PostThawScript);
        field("IgnoreSnapshotScriptsFailures", &SBackupJobScriptInfo::IgnoreSnapshotScriptsFailures);
        field("ExecutionTimeout", &SBackupJobScriptInfo::ExecutionTimeout);
    }
};

/// How long restore points are kept.
struct SBackupJobRetentionInfo {
    int RestorePointsCount = 0;                    ///< the newest so many are kept
    apigen::Optional<unsigned long> RetainDays{};  ///< restore points younger than this are kept

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("RestorePointsCount", &SBackupJobRetentionInfo::RestorePointsCount);
        field("RetainDays", &SBackupJobRetentionInfo::RetainDays);
    }
};

/// On which days a schedule fires.
struct SCalendarInfo {
    ScheduleType Type{};
    unsigned int Days = 0;    ///< bits of `DaysOfWeek`
    unsigned int Months = 0;  ///< bits of `MonthType`
    WeekDayNumberType WeekDayNumber{};
    unsigned int DayOfMonth = 0;  ///< 1 to 31

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Type", &SCalendarInfo::Type);
        field("Days", &SCalendarInfo::Days);
        field("Months", &SCalendarInfo::Months);
        field("WeekDayNumber", &SCalendarInfo::WeekDayNumber);
        field("DayOfMonth", &SCalendarInfo::DayOfMonth);
    }
};

/// When a run makes an active full backup.
struct SActiveFullScheduleInfo {
    bool IsEnabled = false;
    SCalendarInfo Calendar{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("IsEnabled", &SActiveFullScheduleInfo::IsEnabled);
        field("Calendar", &SActiveFullScheduleInfo::Calendar);
    }
};

/// When a job runs by itself.
struct SBackupScheduleInfo {
    bool IsEnabled = false;
    STimeSpan TimeOfDay{};  ///< since local midnight
    SCalendarInfo Calendar{};
    SActiveFullScheduleInfo ActiveFullSchedule{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("IsEnabled", &SBackupScheduleInfo::IsEnabled);
        field("TimeOfDay", &SBackupScheduleInfo::TimeOfDay);
        field("Calendar", &SBackupScheduleInfo::Calendar);
        field("ActiveFullSchedule", &SBackupScheduleInfo::ActiveFullSchedule);
    }
};

/// Which archived logs are deleted after a backup.
struct SOracleArchivedLogsTruncationConfig {
    EArchivedLogsTruncationMode TruncationMode{};
    unsigned long SizeGB = 0;         ///< limit of `BySize`, in gigabytes
    unsigned long LifetimeHours = 0;  ///< limit of `ByAge`, in hours

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("TruncationMode", &SOracleArchivedLogsTruncationConfig::TruncationMode);
        field("SizeGB", &SOracleArchivedLogsTruncationConfig::SizeGB);
        field("LifetimeHours", &SOracleArchivedLogsTruncationConfig::LifetimeHours);
    }
};

/// Processing of Oracle databases.
struct SOracleInfo {
    EAapType ProcessingType{};
    SCredentials Credentials{};
    SOracleArchivedLogsTruncationConfig TruncationConfig{};
    bool UseOracleCredential = false;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("ProcessingType", &SOracleInfo::ProcessingType);
        field("Credentials", &SOracleInfo::Credentials);
        field("TruncationConfig", &SOracleInfo::TruncationConfig);
        field("UseOracleCredential", &SOracleInfo::UseOracleCredential);
    }
};

/// Processing of MySQL databases.
struct SMySQLInfo {
    EAapType ProcessingType{};
    apigen::Optional<SCredentials> Credentials{};
    EMySQLAuthType AuthType{};
    apigen::Optional<std::string> PasswordFilePath{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("ProcessingType", &SMySQLInfo::ProcessingType);
        field("Credentials", &SMySQLInfo::Credentials);
        field("AuthType", &SMySQLInfo::AuthType);
        field("PasswordFilePath", &SMySQLInfo::PasswordFilePath);
    }
};

/// Processing of PostgreSQL databases.
struct SPostgreSQLInfo {
    EAapType ProcessingType{};
    SCredentials Credentials{};
    EPostgreSQLAuthType AuthType{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("ProcessingType", &SPostgreSQLInfo::ProcessingType);
        field("Credentials", &SPostgreSQLInfo::Credentials);
        field("AuthType", &SPostgreSQLInfo::AuthType);
    }
};

/// Application-aware processing; each kind of database is present only when it is configured.
struct SAapInfo {
    apigen::Optional<SOracleInfo> OracleInfo{};
    apigen::Optional<SMySQLInfo> MySQLInfo{};
    apigen::Optional<SPostgreSQLInfo> PostgreSQLInfo{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("OracleInfo", &SAapInfo::OracleInfo);
        field("MySQLInfo", &SAapInfo::MySQLInfo);
        field("PostgreSQLInfo", &SAapInfo::PostgreSQLInfo);
    }
};

/// Automatic retries of a failed run.
struct SRetriesInfo {
    unsigned long AttemptsNum = 0;
    unsigned long TimeoutMs = 0;  ///< between two attempts, in milliseconds

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("AttemptsNum", &SRetriesInfo::AttemptsNum);
        field("TimeoutMs", &SRetriesInfo::TimeoutMs);
    }
};

/// The complete definition of a backup job.
struct SBackupJobConfigurationInfo {
    std::string JobName{};
    SBackupSourceInfo Source{};
    apigen::Guid RepositoryId{};  ///< where the backups go
    SBackupStorageInfo StorageInfo{};
    SBackupIndexingInfo IndexingInfo{};
    apigen::Optional<SBackupJobScriptInfo> ScriptInfo{};
    SBackupJobRetentionInfo RetentionInfo{};
    SBackupScheduleInfo ScheduleInfo{};
    SAapInfo AapInfo{};
    std::string UserData{};  ///< kept with the job for the caller, never interpreted
    apigen::Optional<SRetriesInfo> RetriesInfo{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobName", &SBackupJobConfigurationInfo::JobName);
        field("Source", &SBackupJobConfigurationInfo::Source);
        field("RepositoryId", &SBackupJobConfigurationInfo::RepositoryId);
        field("StorageInfo", &SBackupJobConfigurationInfo::StorageInfo);
        field("IndexingInfo", &SBackupJobConfigurationInfo::IndexingInfo);
        field("ScriptInfo", &SBackupJobConfigurationInfo::ScriptInfo);
        field("RetentionInfo", &SBackupJobConfigurationInfo::RetentionInfo);
        field("ScheduleInfo", &SBackupJobConfigurationInfo::ScheduleInfo);
        field("AapInfo", &SBackupJobConfigurationInfo::AapInfo);
        field("UserData", &SBackupJobConfigurationInfo::UserData);
        field("RetriesInfo", &SBackupJobConfigurationInfo::RetriesInfo);
    }
};

}  // namespace zamclientlib
