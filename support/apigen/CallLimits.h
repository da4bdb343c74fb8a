// SPDX-License-Identifier: Apache-2.0
/// \file
/// What bounds a call: the connection's own time-out, or the scopes of its thread.
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/CallControl.h>
#include <apigen/Export.h>

#include <chrono>
#include <memory>
#include <string>

#include "support/common/Waiting.h"

namespace apigen {

struct SCallLimits {
    common::Clock::time_point Deadline = common::Clock::time_point::max();
    std::chrono::milliseconds Limit{};  ///< how long that was when the call began, for messages
    std::shared_ptr<const io::event::IEvent> Event;
    bool IsOfScope = false;  ///< the deadline may have passed, and the event been set, before the call began

    bool IsCancelled() const { return Event != nullptr && Event->IsSet(); }
};

/// The scopes of a thread, the latest first.
extern constinit thread_local SCallScopeEntry* t_callScopes;

/// \param timeout of the connection; 0 means none
APIGEN_API SCallLimits LimitsOfScopedCall(std::chrono::milliseconds timeout);

/// The same, at the price of a look at a pointer where there are no scopes.
inline SCallLimits LimitsOfCall(std::chrono::milliseconds timeout) {
    if (t_callScopes != nullptr) return LimitsOfScopedCall(timeout);
    return {timeout.count() == 0 ? common::Clock::time_point::max() : common::DeadlineAfter(timeout),
            timeout,
            {},
            false};
}

}  // namespace apigen
