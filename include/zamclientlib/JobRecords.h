// SPDX-License-Identifier: Apache-2.0
/// \file
/// The product and its owner, jobs, their sessions and restore points.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/RecordEquality.h>

#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// Identity of the product behind `IZamProduct`.
struct SZamProductInfo {
    apigen::Guid InstanceGuid{};
    apigen::Guid ProductId{};
    std::string Name{};
    std::string Version{};  ///< free text

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("InstanceGuid", &SZamProductInfo::InstanceGuid);
        field("ProductId", &SZamProductInfo::ProductId);
        field("Name", &SZamProductInfo::Name);
        field("Version", &SZamProductInfo::Version);
    }
};

/// Who holds control of the agent.
struct SZamControlOwnerInfo {
    apigen::Guid Id{};
    std::string Name{};
    ZAMOwnerType Type{};
    ZAMOwnerMode Mode{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SZamControlOwnerInfo::Id);
        field("Name", &SZamControlOwnerInfo::Name);
        field("Type", &SZamControlOwnerInfo::Type);
        field("Mode", &SZamControlOwnerInfo::Mode);
    }
};

/// A short description of a job.
struct SBackupJobInfo {
    apigen::Guid Id{};
    std::string Name{};
    bool Enabled = false;
    apigen::Optional<SDateTime> LastBackupTimeUtc{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SBackupJobInfo::Id);
        field("Name", &SBackupJobInfo::Name);
        field("Enabled", &SBackupJobInfo::Enabled);
        field("LastBackupTimeUtc", &SBackupJobInfo::LastBackupTimeUtc);
    }
};

/// Options of a manual job start; an absent one means that the job's own setting applies.
struct SJobStartOptions {
    apigen::Optional<EJobStartRetriesMode> Retries{};
    apigen::Optional<EJobStartPriorityMode> Priority{};
    apigen::Optional<EJobStartActiveFullMode> ActiveFull{};
    apigen::Optional<EJobStartSnapshotMode> SnapshotMode{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Retries", &SJobStartOptions::Retries);
        field("Priority", &SJobStartOptions::Priority);
        field("ActiveFull", &SJobStartOptions::ActiveFull);
        field("SnapshotMode", &SJobStartOptions::SnapshotMode);
    }
};

/// One finding of the check of a job's configuration.
struct SCheckJobValidityMessage {
    std::string Message{};
    ELogDetailType MessageType{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Message", &SCheckJobValidityMessage::Message);
        field("MessageType", &SCheckJobValidityMessage::MessageType);
    }
};

/// One object of a job's source, a volume or a directory for instance.
struct SVolumeBackupObject {
    std::string Object{};
    EVolumeBackupObjectType Type{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Object", &SVolumeBackupObject::Object);
        field("Type", &SVolumeBackupObject::Type);
    }
};

/// What a user's input was resolved to.
struct SResolveObjectInfo {
    std::string SourceInput{};
    std::string DisplayName{};
    std::string ResolveDetails{};
    EVolumeBackupObjectType ObjectType{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("SourceInput", &SResolveObjectInfo::SourceInput);
        field("DisplayName", &SResolveObjectInfo::DisplayName);
        field("ResolveDetails", &SResolveObjectInfo::ResolveDetails);
        field("ObjectType", &SResolveObjectInfo::ObjectType);
    }
};

/// One line of a session's log.
struct SLogDetail {
    ELogDetailType Type{};
    apigen::Guid Usn{};  ///< names the line; unlike the session's number of that name
    std::string Message{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Type", &SLogDetail::Type);
        field("Usn", &SLogDetail::Usn);
        field("Message", &SLogDetail::Message);
    }
};

/// Retry state of a session.
struct SJobSessionRetriesInfo {
    bool IsJobAwaitingForRetry = false;
    unsigned long InitialRetriesNumber = 0;
    unsigned long CurrentAttemptNumber = 0;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("IsJobAwaitingForRetry", &SJobSessionRetriesInfo::IsJobAwaitingForRetry);
        field("InitialRetriesNumber", &SJobSessionRetriesInfo::InitialRetriesNumber);
        field("CurrentAttemptNumber", &SJobSessionRetriesInfo::CurrentAttemptNumber);
    }
};

/// The full state of one run of a job. The load figures are percentages.
struct SBackupJobSessionInfo {
    apigen::Guid Uid{};      ///< the session
    apigen::Guid JobUid{};   ///< its job
    apigen::Guid PointId{};  ///< the restore point that it makes
    apigen::Guid OibId{};    ///< the object in that restore point
    long Usn = 0;            ///< grows with every change of a session
    std::string JobName{};
    std::vector<SLogDetail> JobDetails{};
    JobState State{};
    JobResult Result{};
    SDateTime StartTimeUtc{};
    SDateTime EndTimeUtc{};
    JobSessionAlgorithm SessionAlgorithm{};
    int SourceLoad = 0;
    int ProxyLoad = 0;
    int NetworkLoad = 0;
    int TargetLoad = 0;
    int SourceWanLoad = 0;
    int TargetWanLoad = 0;
    unsigned long ReadSizeBytes = 0;
    long BackedUpSizeBytes = 0;
    long TransferredSizeBytes = 0;
    long ProcessingRateByteInSec = 0;  ///< in bytes a second
    JobType TypeOfJob{};
    apigen::Guid OriginalSessionId{};     ///< the first attempt, when this is a retry
    unsigned short PercentCompleted = 0;  ///< 0 to 100
    std::string BackupDestination{};
    apigen::Optional<SBackupRepositorySizeInfo> RepositorySizeInfo{};
    apigen::Optional<SJobSessionRetriesInfo> RetriesInfo{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Uid", &SBackupJobSessionInfo::Uid);
        field("JobUid", &SBackupJobSessionInfo::JobUid);
        field("PointId", &SBackupJobSessionInfo::PointId);
        field("OibId", &SBackupJobSessionInfo::OibId);
        field("Usn", &SBackupJobSessionInfo::Usn);
        field("JobName", &SBackupJobSessionInfo::JobName);
        field("JobDetails", &SBackupJobSessionInfo::JobDetails);
        field("State", &SBackupJobSessionInfo::State);
        field("Result", &SBackupJobSessionInfo::Result);
        field("StartTimeUtc", &SBackupJobSessionInfo::StartTimeUtc);
        field("EndTimeUtc", &SBackupJobSessionInfo::EndTimeUtc);
        field("SessionAlgorithm", &SBackupJobSessionInfo::SessionAlgorithm);
        field("SourceLoad", &SBackupJobSessionInfo::SourceLoad);
        field("ProxyLoad", &SBackupJobSessionInfo::ProxyLoad);
        field("NetworkLoad", &SBackupJobSessionInfo::NetworkLoad);
        field("TargetLoad", &SBackupJobSessionInfo::TargetLoad);
        field("SourceWanLoad", &SBackupJobSessionInfo::SourceWanLoad);
        field("TargetWanLoad", &SBackupJobSessionInfo::TargetWanLoad);
        field("ReadSizeBytes", &SBackupJobSessionInfo::ReadSizeBytes);
        field("BackedUpSizeBytes", &SBackupJobSessionInfo::BackedUpSizeBytes);
        field("TransferredSizeBytes", &SBackupJobSessionInfo::TransferredSizeBytes);
        field("ProcessingRateByteInSec", &SBackupJobSessionInfo::ProcessingRateByteInSec);
        field("TypeOfJob", &SBackupJobSessionInfo::TypeOfJob);
        field("OriginalSessionId", &SBackupJobSessionInfo::OriginalSessionId);
        field("PercentCompleted", &SBackupJobSessionInfo::PercentCompleted);
        field("BackupDestination", &SBackupJobSessionInfo::BackupDestination);
        field("RepositorySizeInfo", &SBackupJobSessionInfo::RepositorySizeInfo);
        field("RetriesInfo", &SBackupJobSessionInfo::RetriesInfo);
    }
};

/// One restore point.
struct SRestoreOib {
    apigen::Guid Id{};
    SDateTime CreationTimeUtc{};
    unsigned long ApproxSize = 0;   ///< of the source, in bytes
    unsigned long StorageSize = 0;  ///< in the repository, in bytes
    RestorePointType Type{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SRestoreOib::Id);
        field("CreationTimeUtc", &SRestoreOib::CreationTimeUtc);
        field("ApproxSize", &SRestoreOib::ApproxSize);
        field("StorageSize", &SRestoreOib::StorageSize);
        field("Type", &SRestoreOib::Type);
    }
};

}  // namespace zamclientlib
