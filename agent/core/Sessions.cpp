// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Sessions.h"

#include <algorithm>
#include <utility>

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

unsigned long RetriesOf(const SBackupJobConfigurationInfo& config, const SJobStartOptions& options) {
    const bool isForbidden = options.Retries && *options.Retries == EJobStartRetriesMode::Disabled;
    return config.RetriesInfo && !isForbidden ? config.RetriesInfo->AttemptsNum : 0;
}

SJobStartOptions DefaultOptionsOf(const SBackupJobConfigurationInfo& config) {
    const bool hasRetries = config.RetriesInfo.HasValue() && config.RetriesInfo->AttemptsNum != 0;
    // Files are read as they are: no snapshot of a volume is taken.
    return {hasRetries ? EJobStartRetriesMode::Enabled : EJobStartRetriesMode::Disabled,
            EJobStartPriorityMode::Normal, EJobStartActiveFullMode::Disabled,
            EJobStartSnapshotMode::Disabled};
}

SSession NewSession(const SJob& job, const SJobStartOptions& options, const SOrigin& origin, Moment now,
                    const SSession* previous) {
    SSession session;
    session.Options = options;
    session.Origin = origin;
    auto& info = session.Info;
    info.Uid = Guid::Random();
    info.JobUid = job.Id;
    info.PointId = Guid::Random();
    info.OibId = info.PointId;
    info.JobName = job.Config.JobName;
    info.State = JobState::Starting;
    info.StartTimeUtc = ToRecord(now);
    info.SessionAlgorithm = JobSessionAlgorithm::Increment;
    info.TypeOfJob = JobType::Backup;
    if (const unsigned long retries = RetriesOf(job.Config, options); retries != 0) {
        info.RetriesInfo = SJobSessionRetriesInfo{false, retries, 0};
    }
    if (previous != nullptr) {
        const auto& before = previous->Info;
        info.OriginalSessionId = before.OriginalSessionId == Guid{} ? before.Uid : before.OriginalSessionId;
        info.RetriesInfo = before.RetriesInfo ? *before.RetriesInfo : SJobSessionRetriesInfo{};
        info.RetriesInfo->IsJobAwaitingForRetry = false;
        ++info.RetriesInfo->CurrentAttemptNumber;
    }
    return session;
}

SLogDetail LogLine(ELogDetailType type, std::string message) {
    return {type, Guid::Random(), std::move(message)};
}

JobResult ResultOf(JobSessionTaskStatus status) {
    switch (status) {
        case JobSessionTaskStatus::Success:
            return JobResult::Success;
        case JobSessionTaskStatus::Warning:
            return JobResult::Warning;
        case JobSessionTaskStatus::Failed:
        case JobSessionTaskStatus::Canceled:
            return JobResult::Failed;
        case JobSessionTaskStatus::None:
        case JobSessionTaskStatus::Pending:
        case JobSessionTaskStatus::InProgress:
            break;
    }
    return JobResult::None;
}

void Finish(SSession& session, JobSessionTaskStatus status, Moment now,
            std::chrono::milliseconds retryAfter) {
    auto& info = session.Info;
    session.Status = status;
    info.State = JobState::Stopped;
    info.Result = ResultOf(status);
    info.EndTimeUtc = ToRecord(std::max(now, FromRecord(info.StartTimeUtc)));  // clocks are set back
    if (info.Result != JobResult::Failed) info.PercentCompleted = 100;
    const bool isRetried = status == JobSessionTaskStatus::Failed && info.RetriesInfo &&
                           info.RetriesInfo->CurrentAttemptNumber < info.RetriesInfo->InitialRetriesNumber;
    if (isRetried) {
        info.RetriesInfo->IsJobAwaitingForRetry = true;
        session.RetryAt = now + retryAfter;
    }
}

bool IsRetryDue(Moment retryAt, std::chrono::milliseconds retryAfter, Moment now) {
    return retryAt <= now || retryAt > now + retryAfter;
}

ENewChain NeedsNewChain(const SChain* current, const Guid& repository, bool hasPassword, bool isActiveFull) {
    if (current == nullptr) return ENewChain::First;
    if (current->Repository != repository) return ENewChain::OtherPlace;
    if (current->State == EChainState::Damaged) return ENewChain::Damaged;
    if (current->State == EChainState::Lost) return ENewChain::Lost;
    if (current->HasPassword != hasPassword) return ENewChain::OtherProtection;
    if (isActiveFull || current->State != EChainState::Open) return ENewChain::ActiveFull;
    return ENewChain::No;
}

std::string ReasonText(ENewChain reason) {
    switch (reason) {
        case ENewChain::No:
            return {};
        case ENewChain::First:
            return "The job's first chain begins";
        case ENewChain::ActiveFull:
            return "A new chain begins: an active full backup is due";
        case ENewChain::Damaged:
            return "A new chain begins: the last one is damaged";
        case ENewChain::Lost:
            return "A new chain begins: the last one is no longer where it was";
        case ENewChain::OtherPlace:
            return "A new chain begins: the job writes to another repository now";
        case ENewChain::OtherProtection:
            return "A new chain begins: a password was added or removed";
    }
    return {};
}

}  // namespace tarvo
