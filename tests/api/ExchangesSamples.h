// SPDX-License-Identifier: Apache-2.0
/// \file
/// One value of each record that the agent's methods carry, with its text written down by hand.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <cstdint>
#include <string>

namespace zamtest {

/// The identifier whose only group that is not zero is `number`.
inline apigen::Guid IdOf(std::uint32_t number) {
    return {number, 0, 0, {}};
}
/// The text of `IdOf(digit)`.
#define ZAM_ID(digit) "{0000000" #digit "-0000-0000-0000-000000000000}"

/// A specialisation has `Value()`, and the `Text` of the value: what stands inside its element.
template <class T>
struct SSample;

template <>
struct SSample<apigen::Guid> {
    static apigen::Guid Value() { return {0x0123abcd, 0x4, 0xf00d, {1, 2, 3, 4, 5, 6, 7, 8}}; }
    static constexpr const char* Text = "{0123abcd-0004-f00d-0102-030405060708}";
};

template <>
struct SSample<zamclientlib::SZamControlOwnerInfo> {
    static zamclientlib::SZamControlOwnerInfo Value() {
        return {.Id = IdOf(1),
                .Name = "Ann & <Bob>",
                .Type = zamclientlib::ZAMOwnerType::BackupServer,
                .Mode = static_cast<zamclientlib::ZAMOwnerMode>(-77)};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(1) "</Id><Name>Ann &amp; &lt;Bob&gt;</Name><Type>2</Type><Mode>-77</Mode>";
};

template <>
struct SSample<zamclientlib::SZamProductInfo> {
    static zamclientlib::SZamProductInfo Value() {
        return {.InstanceGuid = IdOf(2), .ProductId = IdOf(3), .Name = "Agent", .Version = "6.1 beta"};
    }
    static constexpr const char* Text =
        "<InstanceGuid>" ZAM_ID(2) "</InstanceGuid><ProductId>" ZAM_ID(3) "</ProductId><Name>Agent</Name>"
                                                                          "<Version>6.1 beta</Version>";
};

template <>
struct SSample<zamclientlib::SEventConfig> {
    static zamclientlib::SEventConfig Value() {
        return {.v1 = zamclientlib::SEventConfigV1{.socketPath = "/run/a b/events"}};
    }
    static constexpr const char* Text = "<v1><opt><socketPath>/run/a b/events</socketPath></opt></v1>";
};

template <>
struct SSample<zamclientlib::SVolumeBackupObject> {
    static zamclientlib::SVolumeBackupObject Value() {
        return {.Object = "/dev/sda1", .Type = zamclientlib::EVolumeBackupObjectType::Volume};
    }
    static constexpr const char* Text = "<Object>/dev/sda1</Object><Type>2</Type>";
    static constexpr const char* DefaultText = "<Object></Object><Type>0</Type>";
};

template <>
struct SSample<zamclientlib::SResolveObjectInfo> {
    static zamclientlib::SResolveObjectInfo Value() {
        return {.SourceInput = "sda1",
                .DisplayName = "sda1 (root)",
                .ResolveDetails = "found",
                .ObjectType = zamclientlib::EVolumeBackupObjectType::Volume};
    }
    static constexpr const char* Text =
        "<SourceInput>sda1</SourceInput><DisplayName>sda1 (root)</DisplayName>"
        "<ResolveDetails>found</ResolveDetails><ObjectType>2</ObjectType>";
    static constexpr const char* DefaultText =
        "<SourceInput></SourceInput><DisplayName></DisplayName><ResolveDetails></ResolveDetails>"
        "<ObjectType>0</ObjectType>";
};

template <>
struct SSample<zamclientlib::SBackupJobInfo> {
    static zamclientlib::SBackupJobInfo Value() {
        return {.Id = IdOf(4),
                .Name = "nightly",
                .Enabled = true,
                .LastBackupTimeUtc = zamclientlib::SDateTime{.seconds = 1700000000, .milliseconds = 999}};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(4) "</Id><Name>nightly</Name><Enabled>true</Enabled><LastBackupTimeUtc><opt>"
                         "<seconds>1700000000</seconds><milliseconds>999</milliseconds></opt>"
                         "</LastBackupTimeUtc>";
};

template <>
struct SSample<zamclientlib::SJobStartOptions> {
    static zamclientlib::SJobStartOptions Value() {
        return {.Retries = zamclientlib::EJobStartRetriesMode::Disabled,
                .Priority = zamclientlib::EJobStartPriorityMode::High,
                .ActiveFull = zamclientlib::EJobStartActiveFullMode::Enabled,
                .SnapshotMode = {}};
    }
    static constexpr const char* Text =
        "<Retries><opt>2</opt></Retries><Priority><opt>3</opt></Priority>"
        "<ActiveFull><opt>1</opt></ActiveFull>";
};

template <>
struct SSample<zamclientlib::SBackupJobConfigurationInfo> {
    static zamclientlib::SBackupJobConfigurationInfo Value() {
        zamclientlib::SBackupJobConfigurationInfo config;
        config.JobName = "nightly";
        config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
        config.Source.Objects = {{"/home", zamclientlib::EVolumeBackupObjectType::Directory}};
        config.Source.IncludeDirs = {"/home/a", "/home/b"};
        config.Source.ExcludeMasks = {"*.tmp"};
        config.Source.shouldBackupUserProfiles = true;
        config.RepositoryId = IdOf(5);
        config.StorageInfo.CompressionLevel = zamclientlib::JobCompressionLevel::High;
        config.StorageInfo.BlockSize = zamclientlib::EKbBlockSize::Kb4096;
        config.StorageInfo.snapshotMode = zamclientlib::ESnapshotMode::NoSnapshot;
        config.StorageInfo.EncryptionSettings =
            zamclientlib::SEncryptionSettings{.Password = std::string(" s<e>c "), .PasswordHint = "spaces"};
        config.IndexingInfo.IndexingType = zamclientlib::BackupIndexingType::Everything;
        config.RetentionInfo.RestorePointsCount = -7;
        config.ScheduleInfo.TimeOfDay = {.seconds = 3600, .milliseconds = 5};
        config.ScheduleInfo.Calendar.Days = 127;
        config.ScheduleInfo.ActiveFullSchedule.IsEnabled = true;
        config.ScheduleInfo.ActiveFullSchedule.Calendar.DayOfMonth = 31;
        config.UserData = "opaque";
        config.RetriesInfo = zamclientlib::SRetriesInfo{.AttemptsNum = 3, .TimeoutMs = 60000};
        return config;
    }
    static constexpr const char* Text =
        "<JobName>nightly</JobName>"
        "<Source><BackupMode>3</BackupMode><Objects><item><Object>/home</Object><Type>5</Type></item></Objects>"
        "<IncludeDirs><item>/home/a</item></IncludeDirs><IncludeDirs><item>/home/b</item></IncludeDirs>"
        "<ExcludeMasks><item>*.tmp</item></ExcludeMasks>"
        "<shouldBackupUsbDrives>false</shouldBackupUsbDrives>"
        "<shouldBackupUserProfiles>true</shouldBackupUserProfiles></Source>"
        "<RepositoryId>" ZAM_ID(5) "</RepositoryId>"
        "<StorageInfo><CompressionLevel>3</CompressionLevel><BlockSize>4</BlockSize>"
        "<snapshotMode>2</snapshotMode><EncryptionSettings><opt><Password><opt> s&lt;e&gt;c </opt></Password>"
        "<PasswordHint>spaces</PasswordHint></opt></EncryptionSettings></StorageInfo>"
        "<IndexingInfo><IndexingType>1</IndexingType></IndexingInfo>"
        "<RetentionInfo><RestorePointsCount>-7</RestorePointsCount></RetentionInfo>"
        "<ScheduleInfo><IsEnabled>false</IsEnabled>"
        "<TimeOfDay><seconds>3600</seconds><milliseconds>5</milliseconds></TimeOfDay>"
        "<Calendar><Type>0</Type><Days>127</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
        "<DayOfMonth>0</DayOfMonth></Calendar>"
        "<ActiveFullSchedule><IsEnabled>true</IsEnabled><Calendar><Type>0</Type><Days>0</Days>"
        "<Months>0</Months><WeekDayNumber>0</WeekDayNumber><DayOfMonth>31</DayOfMonth></Calendar>"
        "</ActiveFullSchedule></ScheduleInfo>"
        "<AapInfo/><UserData>opaque</UserData>"
        "<RetriesInfo><opt><AttemptsNum>3</AttemptsNum><TimeoutMs>60000</TimeoutMs></opt></RetriesInfo>";
};

template <>
struct SSample<zamclientlib::SCheckJobValidityMessage> {
    static zamclientlib::SCheckJobValidityMessage Value() {
        return {.Message = "no such folder", .MessageType = zamclientlib::ELogDetailType::Error};
    }
    static constexpr const char* Text = "<Message>no such folder</Message><MessageType>4</MessageType>";
    static constexpr const char* DefaultText = "<Message></Message><MessageType>0</MessageType>";
};

template <>
struct SSample<zamclientlib::SRestoreOib> {
    static zamclientlib::SRestoreOib Value() {
        return {.Id = IdOf(6),
                .CreationTimeUtc = {.seconds = -1, .milliseconds = 65535},
                .ApproxSize = 18446744073709551615U,
                .StorageSize = 12,
                .Type = zamclientlib::RestorePointType::Increment};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(6) "</Id><CreationTimeUtc><seconds>-1</seconds><milliseconds>65535</milliseconds>"
                         "</CreationTimeUtc><ApproxSize>18446744073709551615</ApproxSize>"
                         "<StorageSize>12</StorageSize><Type>2</Type>";
    static constexpr const char* DefaultText =
        "<Id>" ZAM_ID(0) "</Id><CreationTimeUtc><seconds>0</seconds><milliseconds>0</milliseconds>"
                         "</CreationTimeUtc><ApproxSize>0</ApproxSize><StorageSize>0</StorageSize>"
                         "<Type>0</Type>";
};

template <>
struct SSample<zamclientlib::SBackupJobSessionInfo> {
    static zamclientlib::SBackupJobSessionInfo Value() {
        zamclientlib::SBackupJobSessionInfo info;
        info.Uid = IdOf(1);
        info.JobUid = IdOf(2);
        info.PointId = IdOf(3);
        info.OibId = IdOf(4);
        info.Usn = 42;
        info.JobName = "nightly";
        info.JobDetails = {{zamclientlib::ELogDetailType::Warning, IdOf(5), "slow"}};
        info.State = zamclientlib::JobState::Working;
        info.Result = zamclientlib::JobResult::Warning;
        info.StartTimeUtc = {.seconds = 10, .milliseconds = 1};
        info.EndTimeUtc = {.seconds = 20, .milliseconds = 2};
        info.SessionAlgorithm = zamclientlib::JobSessionAlgorithm::SyntheticFull;
        info.SourceLoad = 11;
        info.ProxyLoad = 12;
        info.NetworkLoad = 13;
        info.TargetLoad = 14;
        info.SourceWanLoad = 15;
        info.TargetWanLoad = -16;
        info.ReadSizeBytes = 101;
        info.BackedUpSizeBytes = 102;
        info.TransferredSizeBytes = 103;
        info.ProcessingRateByteInSec = -104;
        info.TypeOfJob = zamclientlib::JobType::Backup;
        info.OriginalSessionId = IdOf(6);
        info.PercentCompleted = 55;
        info.BackupDestination = "/mnt/x";
        info.RepositorySizeInfo = zamclientlib::SBackupRepositorySizeInfo{.Capacity = 1000, .FreeSpace = 900};
        return info;
    }
    static constexpr const char* Text =
        "<Uid>" ZAM_ID(1) "</Uid><JobUid>" ZAM_ID(2) "</JobUid><PointId>" ZAM_ID(3) "</PointId>"
        "<OibId>" ZAM_ID(4) "</OibId><Usn>42</Usn><JobName>nightly</JobName>"
        "<JobDetails><item><Type>3</Type><Usn>" ZAM_ID(5) "</Usn><Message>slow</Message></item></JobDetails>"
        "<State>4</State><Result>2</Result>"
        "<StartTimeUtc><seconds>10</seconds><milliseconds>1</milliseconds></StartTimeUtc>"
        "<EndTimeUtc><seconds>20</seconds><milliseconds>2</milliseconds></EndTimeUtc>"
        "<SessionAlgorithm>3</SessionAlgorithm><SourceLoad>11</SourceLoad><ProxyLoad>12</ProxyLoad>"
        "<NetworkLoad>13</NetworkLoad><TargetLoad>14</TargetLoad><SourceWanLoad>15</SourceWanLoad>"
        "<TargetWanLoad>-16</TargetWanLoad><ReadSizeBytes>101</ReadSizeBytes>"
        "<BackedUpSizeBytes>102</BackedUpSizeBytes><TransferredSizeBytes>103</TransferredSizeBytes>"
        "<ProcessingRateByteInSec>-104</ProcessingRateByteInSec><TypeOfJob>1</TypeOfJob>"
        "<OriginalSessionId>" ZAM_ID(6) "</OriginalSessionId><PercentCompleted>55</PercentCompleted>"
        "<BackupDestination>/mnt/x</BackupDestination>"
        "<RepositorySizeInfo><opt><Capacity>1000</Capacity><FreeSpace>900</FreeSpace></opt>"
        "</RepositorySizeInfo>";
};

template <>
struct SSample<zamclientlib::SBackupRepositoryInfo> {
    static zamclientlib::SBackupRepositoryInfo Value() {
        return {.Id = IdOf(7),
                .Name = "share",
                .OriginalName = std::string("old"),
                .Type = zamclientlib::BackupTargetType::SharedFolder,
                .Location = "/srv",
                .ServerId = IdOf(8),
                .SharedFolderInfo =
                    zamclientlib::SSharedFolderInfo{.FolderType = zamclientlib::SharedFolderType::Smb,
                                                    .Directory = "//host/share",
                                                    .Username = "ann",
                                                    .Domain = "corp",
                                                    .Password = std::string("p&w")}};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(7) "</Id><Name>share</Name><OriginalName><opt>old</opt></OriginalName><Type>2</Type>"
        "<Location>/srv</Location><ServerId><opt>" ZAM_ID(8) "</opt></ServerId>"
        "<SharedFolderInfo><opt><FolderType>2</FolderType><Directory>//host/share</Directory>"
        "<Username>ann</Username><Domain>corp</Domain><Password><opt>p&amp;w</opt></Password></opt>"
        "</SharedFolderInfo>";
    static constexpr const char* DefaultText =
        "<Id>" ZAM_ID(0) "</Id><Name></Name><Type>0</Type><Location></Location>";
};

template <>
struct SSample<zamclientlib::SBackupRepositorySizeInfo> {
    static zamclientlib::SBackupRepositorySizeInfo Value() {
        return {.Capacity = 9223372036854775807, .FreeSpace = -1};
    }
    static constexpr const char* Text = "<Capacity>9223372036854775807</Capacity><FreeSpace>-1</FreeSpace>";
};

template <>
struct SSample<zamclientlib::SBackupServerInfo> {
    static zamclientlib::SBackupServerInfo Value() {
        return {.Id = IdOf(9),
                .Name = "server",
                .Connection = {{"a.example", 10006}, {"::1", -1}},
                .Username = "ann",
                .Domain = "corp",
                .Password = std::string(),
                .OnlyForRestore = true};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(9) "</Id><Name>server</Name>"
        "<Connection><item><Address>a.example</Address><Port>10006</Port></item></Connection>"
        "<Connection><item><Address>::1</Address><Port>-1</Port></item></Connection>"
        "<Username>ann</Username><Domain>corp</Domain><Password><opt></opt></Password>"
        "<OnlyForRestore>true</OnlyForRestore>";
    static constexpr const char* DefaultText =
        "<Id>" ZAM_ID(0) "</Id><Name></Name><Username></Username><Domain></Domain>"
        "<OnlyForRestore>false</OnlyForRestore>";
};

template <>
struct SSample<zamclientlib::SCloudServiceProviderInfo> {
    static zamclientlib::SCloudServiceProviderInfo Value() {
        return {.Id = IdOf(1),
                .Name = "cloud",
                .Connection = {{"c.example", 6180}},
                .Username = "tenant",
                .Password =
                    zamclientlib::SCloudServiceProviderPassword{
                        .Value = "\x01", .Type = zamclientlib::ECloudServiceProviderPasswordType::Token},
                .TrustedThumbprint = "ab:cd"};
    }
    static constexpr const char* Text =
        "<Id>" ZAM_ID(1) "</Id><Name>cloud</Name>"
        "<Connection><item><Address>c.example</Address><Port>6180</Port></item></Connection>"
        "<Username>tenant</Username>"
        "<Password><opt><Value encoding=\"base64\">AQ==</Value><Type>3</Type></opt></Password>"
        "<TrustedThumbprint>ab:cd</TrustedThumbprint>";
    static constexpr const char* DefaultText =
        "<Id>" ZAM_ID(0) "</Id><Name></Name><Username></Username><TrustedThumbprint></TrustedThumbprint>";
};

template <>
struct SSample<zamclientlib::SGatewayInfo> {
    static zamclientlib::SGatewayInfo Value() {
        return {.Connection = {.Address = "g.example", .Port = 6180}, .Priority = 65535};
    }
    static constexpr const char* Text =
        "<Connection><Address>g.example</Address><Port>6180</Port></Connection><Priority>65535</Priority>";
    static constexpr const char* DefaultText =
        "<Connection><Address></Address><Port>0</Port></Connection><Priority>0</Priority>";
};

template <class T>
concept HasSample = requires {
    SSample<T>::Value();
};

/// The sample in an element called `key`.
template <class T>
std::string Sample(const std::string& key) {
    return '<' + key + '>' + SSample<T>::Text + "</" + key + '>';
}

/// The list of the sample and the default value, under `key`.
template <class T>
std::string SampleAndDefault(const std::string& key) {
    return '<' + key + "><item>" + SSample<T>::Text + "</item></" + key + "><" + key + "><item>" +
           SSample<T>::DefaultText + "</item></" + key + '>';
}

}  // namespace zamtest
