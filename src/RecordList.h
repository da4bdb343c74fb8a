// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every record of the API, for what is instantiated for each.
#pragma once

#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#define ZAM_FOR_EACH_RECORD(apply)                                                                           \
    apply(SVersion) apply(SCompatibilityInfo) apply(SDateTime) apply(STimeSpan) apply(SServerConnectionInfo) \
        apply(SGatewayInfo) apply(SSharedFolderInfo) apply(SBackupRepositoryInfo) apply(                     \
            SBackupRepositorySizeInfo) apply(SBackupServerInfo) apply(SCloudServiceProviderPassword)         \
            apply(SCloudServiceProviderInfo) apply(SZamProductInfo) apply(SZamControlOwnerInfo) apply(       \
                SBackupJobInfo) apply(SJobStartOptions) apply(SCheckJobValidityMessage)                      \
                apply(SVolumeBackupObject) apply(SResolveObjectInfo) apply(SLogDetail) apply(                \
                    SJobSessionRetriesInfo) apply(SBackupJobSessionInfo) apply(SRestoreOib)                  \
                    apply(SCredentials) apply(SBackupSourceInfo) apply(SEncryptionSettings) apply(           \
                        SBackupStorageInfo) apply(SBackupIndexingInfo) apply(SBackupJobScriptInfo)           \
                        apply(SBackupJobRetentionInfo) apply(SCalendarInfo) apply(SActiveFullScheduleInfo)   \
                            apply(SBackupScheduleInfo) apply(SOracleArchivedLogsTruncationConfig) apply(     \
                                SOracleInfo) apply(SMySQLInfo) apply(SPostgreSQLInfo) apply(SAapInfo)        \
                                apply(SRetriesInfo) apply(SBackupJobConfigurationInfo) apply(SEventConfigV1) \
                                    apply(SEventConfig) apply(SEventBackupJobCreated)                        \
                                        apply(SEventBackupJobDeleted) apply(SEventBackupJobModified)         \
                                            apply(SEventBackupSourceUpdated) apply(SEventBackupModeChanged)  \
                                                apply(SEventBackupJobFinished) apply(SEventBackupJobStarted) \
                                                    apply(SEventBackupJobRetried) apply(SBaseEvent)          \
                                                        apply(SEthInterfaceInfo) apply(SSystemInformation)   \
                                                            apply(SInstallationInfo) apply(SPackageInfo)
