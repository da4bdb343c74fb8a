// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a run goes: its first state, its end, whether it is tried again, and which chain it writes to.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "agent/core/Values.h"

namespace tarvo {

/// How many attempts may follow the first one.
unsigned long RetriesOf(const zamclientlib::SBackupJobConfigurationInfo& config,
                        const zamclientlib::SJobStartOptions& options);

/// What holds for a start that says nothing else.
zamclientlib::SJobStartOptions DefaultOptionsOf(const zamclientlib::SBackupJobConfigurationInfo& config);

/// A new session, about to start. With `previous`, the next attempt of that one's run.
SSession NewSession(const SJob& job, const zamclientlib::SJobStartOptions& options, const SOrigin& origin,
                    Moment now, const SSession* previous = nullptr);

/// A line of a session's log.
zamclientlib::SLogDetail LogLine(zamclientlib::ELogDetailType type, std::string message);

zamclientlib::JobResult ResultOf(zamclientlib::JobSessionTaskStatus status);

/// Ends the session. After a failure that may be repeated, `RetryAt` says when.
void Finish(SSession& session, zamclientlib::JobSessionTaskStatus status, Moment now,
            std::chrono::milliseconds retryAfter);

/// When an awaited attempt begins, for a clock that may have been set back meanwhile: it is never awaited for longer
/// than the configured time from now on.
bool IsRetryDue(Moment retryAt, std::chrono::milliseconds retryAfter, Moment now);

/// Why the next point begins a chain of its own.
enum class ENewChain {
    No,
    First,           ///< the job has none
    ActiveFull,      ///< was asked for
    Damaged,         ///< the last one was found damaged
    Lost,            ///< the last one isn't where it was
    OtherPlace,      ///< the job writes to another repository now
    OtherProtection  ///< a password was added or removed
};

/// \param current the job's newest chain, if there is one
ENewChain NeedsNewChain(const SChain* current, const Guid& repository, bool hasPassword, bool isActiveFull);

/// For the session's log.
std::string ReasonText(ENewChain reason);

}  // namespace tarvo
