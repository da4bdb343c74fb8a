// SPDX-License-Identifier: Apache-2.0
/// \file
/// Watching a session to its end, and the agent's events, across restarts of the agent.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <chrono>
#include <functional>

#include "agent/CAgent.h"

namespace zamctl {

/// Who watches is told; each may throw, which ends the watching.
struct SWatcher {
    /// The session has moved on; `newLines` of its log have come since.
    std::function<void(const zamclientlib::SBackupJobSessionInfo& info,
                       const std::vector<zamclientlib::SLogDetail>& newLines)>
        OnChange;
    /// The agent is away (the reason), or there again (an empty text).
    std::function<void(const std::string& reason)> OnAway;
    /// Ctrl-C: whether to go on. It has been asked for once more when this is called again.
    std::function<bool()> OnInterrupt;
};

/// How long an agent that went away is waited for.
inline constexpr std::chrono::seconds AwayLimit{60};

/// Follows a session until it has ended: woken by the agent's events, looking twice a second while it works. A retry
/// of it is followed, too: the answer is the last attempt's.
/// \throws CFailure (NoAgent) when the agent stays away; CFailure (Interrupted) when OnInterrupt says so
zamclientlib::SBackupJobSessionInfo FollowSession(CAgent& agent, const apigen::Guid& sessionId,
                                                  const SWatcher& watcher);

/// Gives every event to `onEvent` until that returns false or it is `until`, across restarts of the agent. One that can't
/// be read is left out: `onUnreadable` is told why.
void FollowEvents(CAgent& agent, const std::function<bool(const zamclientlib::SBaseEvent&)>& onEvent,
                  const std::function<void(const std::string& reason)>& onUnreadable,
                  const std::function<void(const std::string& reason)>& onAway,
                  const std::function<bool()>& onInterrupt,
                  std::chrono::steady_clock::time_point until = std::chrono::steady_clock::time_point::max());

}  // namespace zamctl
