// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every enumeration of the API, for what is instantiated for each.
#pragma once

#define ZAM_FOR_EACH_ENUM(apply)                                                                             \
    apply(OSHardwarePlatform) apply(KELPlatform) apply(EthInterfaceStatus) apply(ZAMOwnerType)               \
        apply(ZAMOwnerMode) apply(RestorePointType) apply(BackupAlgorithm) apply(BackupIndexingType)         \
            apply(BackupTargetType) apply(SharedFolderType) apply(DaysOfWeek) apply(MonthType)               \
                apply(ScheduleType) apply(WeekDayNumberType) apply(JobType) apply(JobState) apply(JobResult) \
                    apply(JobAlgorithm) apply(JobCompressionLevel) apply(JobBackupMode)                      \
                        apply(JobSessionAlgorithm) apply(JobSessionTaskStatus)                               \
                            apply(JobSessionTaskAlgorithm) apply(EEventType) apply(EEventSourceType)         \
                                apply(EVolumeBackupObjectType) apply(ECloudServiceProviderPasswordType)      \
                                    apply(EKbBlockSize) apply(ESnapshotMode) apply(EAapType)                 \
                                        apply(EArchivedLogsTruncationMode) apply(EMySQLAuthType)             \
                                            apply(EPostgreSQLAuthType) apply(EJobStartRetriesMode)           \
                                                apply(EJobStartPriorityMode) apply(EJobStartActiveFullMode)  \
                                                    apply(EJobStartSnapshotMode) apply(ELogDetailType)       \
                                                        apply(EServiceStatus) apply(EOsType)                 \
                                                            apply(EIndexingDependency)
