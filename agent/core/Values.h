// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the agent knows, as plain values: jobs, their sessions, restore points and the chains that hold them.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "agent/core/IClock.h"

namespace tarvo {

using apigen::Guid;

/// Lower-case digits without braces: as folders and tags have it.
std::string PlainText(const Guid& guid);

/// "1 file", "2 files".
std::string Counted(std::uint64_t count, const char* one, const char* many);

/// The process at the other end of a connection.
struct SPeer {
    uid_t User{};
    std::string UserName;
    pid_t Process{};
};

struct SJob {
    Guid Id;
    zamclientlib::SBackupJobConfigurationInfo Config;  ///< without its secrets
    bool IsEnabled = true;
    bool IsDeleted = false;  ///< kept for the sake of its points
    std::optional<Moment> LastBackup;

    /// What the schedule has come to: everything up to here was run or dropped.
    Moment PromisedUntil{};
    std::optional<Moment> NextRun;  ///< the promise that comes next
    std::optional<Moment> CatchUp;  ///< the promise of a run that our own end interrupted
    std::optional<Moment> LastActiveFull;
};

/// Who brought a session about.
struct SOrigin {
    enum class EKind {
        Caller = 0,
        Scheduler = 1,
    };

    EKind Kind = EKind::Caller;
    std::string UserName;           ///< the caller's account; empty for the scheduler
    Guid ControlSession;            ///< nil for the scheduler
    std::optional<Moment> Promise;  ///< for when the scheduler had promised the run
};

struct SSession {
    zamclientlib::SBackupJobSessionInfo Info;  ///< its log lines are kept apart
    zamclientlib::SJobStartOptions Options;
    SOrigin Origin;
    zamclientlib::JobSessionTaskStatus Status{};  ///< how it ended
    std::optional<Moment> RetryAt;                ///< when the next attempt begins, while it is awaited
    int Chain = 0;                                ///< the chain that it writes to; 0 before it knows
    bool IsInterrupted = false;                   ///< by our own end

    bool HasEnded() const noexcept { return Info.State == zamclientlib::JobState::Stopped; }
    bool AwaitsRetry() const noexcept { return RetryAt.has_value(); }
};

enum class EChainState {
    Preparing = 0,  ///< its folder is being made; holds no point
    Open = 1,       ///< the job's next point goes here
    Closed = 2,     ///< another one has taken its place
    Damaged = 3,    ///< was found damaged
    Lost = 4,       ///< was not where it should be
};

/// The engine divides a chain into so many parts at most.
inline constexpr unsigned MostVerifyParts = 256;

/// What is remembered of reading a chain in parts.
struct SVerifyProgress {
    unsigned Part = 0;   ///< the one that was read last, 1 to `Parts`
    unsigned Parts = 0;  ///< 0: none yet
    std::optional<Moment> Last;
};

/// A repository of the engine's own, which holds a row of restore points of one job.
struct SChain {
    Guid Job;
    int Number = 0;  ///< counts up from 1
    Guid Repository;
    std::string Location;  ///< of the repository that it stands in
    EChainState State = EChainState::Preparing;
    bool HasPassword = false;  ///< false: the well-known one
    Moment Created{};
    std::string Damage;  ///< what was found
    SVerifyProgress Verified;
};

struct SPoint {
    Guid Id;
    Guid Job;
    int Chain = 0;
    Guid Session;
    Moment Created{};
    zamclientlib::RestorePointType Type{};
    std::uint64_t SourceBytes = 0;
    std::uint64_t StoredBytes = 0;
    std::string EngineId;  ///< what the engine calls it
};

}  // namespace tarvo
