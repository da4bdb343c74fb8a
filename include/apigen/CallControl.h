// SPDX-License-Identifier: Apache-2.0
/// \file
/// Time and cancellation for single calls, beside the connection's own time-out.
///
/// A scope acts on the calls that its thread makes while it lives, over whatever connection; connecting counts as a
/// call. Releases never wait, and heed no scope. What ends a call early has one rule for the connection: before the
/// call's first byte has gone out the call fails alone; from then on, until its answer is whole, the connection is
/// lost with it. `ApiException::IsConnectionLost` tells which it was. A call whose answer has come succeeds.
#pragma once

#include <apigen/Export.h>

#include <chrono>
#include <memory>

namespace apigen APIGEN_API {

namespace io {
namespace event {
class IEvent;
}
}  // namespace io

struct SCallScopeEntry;

/// What the scopes share. One belongs to the thread that made it, and ends there: one that another thread ends stays
/// without effect from then on. They may end in any order.
class CCallScope {
public:
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;

protected:
    /// For the scopes below: begins one in this thread.
    explicit CCallScope(SCallScopeEntry&& entry);
    ~CCallScope();

private:
    SCallScopeEntry* m_entry;
};

/// The calls of a stretch of code have to end by a point in time, all together.
///
/// Takes the place of the connection's own time-out, which may be shorter or longer. Of nested ones the earliest
/// counts: nobody gets more time than those around it have promised.
class CCallDeadline final : public CCallScope {
public:
    /// \param limit from now on. None that is left, 0 or less, fails every call at once, with nothing sent; a limit
    ///              that the clock can't count is none
    explicit CCallDeadline(std::chrono::milliseconds limit);
    /// \param deadline `time_point::max()` is none
    explicit CCallDeadline(std::chrono::steady_clock::time_point deadline);
};

/// Each call of a stretch of code has this long, in place of the connection's own time-out; 0 means no limit. Of
/// nested ones the innermost counts. Deadlines around it, or in it, bound it all the same.
class CCallTimeout final : public CCallScope {
public:
    /// \throws ApiInternalError for a negative limit
    explicit CCallTimeout(std::chrono::milliseconds limit);
};

/// The calls of a stretch of code end early, with InterruptedError, once an event has been set: a `CCancellation`, an
/// `io::event::CAtomicEvent`, or one of one's own. Of nested ones any counts.
class CCancellableCalls final : public CCallScope {
public:
    /// \throws ApiInternalError when there is no event
    explicit CCancellableCalls(std::shared_ptr<const io::event::IEvent> event);
};

}  // namespace apigen
