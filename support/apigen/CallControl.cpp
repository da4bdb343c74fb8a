// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CallControl.h>

#include <sys/epoll.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>
#include <vector>

#include "support/apigen/CallLimits.h"
#include "support/apigen/Timeout.h"
#include "support/common/CDescriptor.h"

namespace apigen {

using common::Clock;
using Event = std::shared_ptr<const io::event::IEvent>;

/// What a scope asks for. Its thread's list owns it, so that a scope that ends in another thread touches nothing that
/// this one is reading.
struct SCallScopeEntry {
    Clock::time_point Deadline = Clock::time_point::max();
    bool IsDeadline = false;
    std::optional<std::chrono::milliseconds> Timeout = {};
    apigen::Event Event = {};

    SCallScopeEntry* Outer = nullptr;
    const void* List = nullptr;  ///< in which it stands
    std::atomic<bool> IsEnded = false;

    bool IsInForce() const noexcept { return !IsEnded.load(std::memory_order_acquire); }
};

constinit thread_local SCallScopeEntry* t_callScopes = nullptr;

CCallScope::CCallScope(SCallScopeEntry&& entry) : m_entry(new SCallScopeEntry) {
    m_entry->Deadline = entry.Deadline;
    m_entry->IsDeadline = entry.IsDeadline;
    m_entry->Timeout = entry.Timeout;
    m_entry->Event = std::move(entry.Event);
    m_entry->List = &t_callScopes;
    m_entry->Outer = std::exchange(t_callScopes, m_entry);
}

CCallScope::~CCallScope() {
    const bool isHere = m_entry->List == &t_callScopes;
    m_entry->IsEnded.store(true, std::memory_order_release);
    // An entry goes when those that were made after it have ended as well.
    while (isHere && t_callScopes != nullptr && !t_callScopes->IsInForce())
        delete std::exchange(t_callScopes, t_callScopes->Outer);
}

CCallDeadline::CCallDeadline(std::chrono::milliseconds limit) : CCallDeadline(common::DeadlineAfter(limit)) {}

CCallDeadline::CCallDeadline(std::chrono::steady_clock::time_point deadline)
    : CCallScope(SCallScopeEntry{.Deadline = deadline, .IsDeadline = true}) {}

CCallTimeout::CCallTimeout(std::chrono::milliseconds limit)
    : CCallScope(SCallScopeEntry{.Timeout = (RequireTimeout(limit), limit)}) {}

CCancellableCalls::CCancellableCalls(Event event) : CCallScope(SCallScopeEntry{.Event = event}) {
    // Only now, so that this line can name what is missing; the base undoes itself.
    if (event == nullptr)
        throw ApiInternalError("Calls can't be made cancellable by an event that is not there");
}

namespace {

/// Any of several events, for as long as one call takes.
class CAnyEvent final : public io::event::IEvent {
public:
    explicit CAnyEvent(std::vector<Event> events)
        : m_events(std::move(events)),
          m_any(common::AwayFromStandardStreams(::epoll_create1(EPOLL_CLOEXEC))) {
        for (const Event& each : m_events) {
            epoll_event watched{};
            watched.events = EPOLLIN;
            // One descriptor may stand for two events.
            if (!m_any || (::epoll_ctl(m_any.Get(), EPOLL_CTL_ADD, each->Descriptor(), &watched) != 0 &&
                           errno != EEXIST))
                throw ApiInternalError("Cannot watch the events that may cancel a call: " +
                                       std::generic_category().message(errno));
        }
    }

    bool IsSet() const override { return First() != m_events.end(); }
    std::string Reason() const override {
        const auto set = First();
        return set != m_events.end() ? (*set)->Reason() : std::string();
    }
    int Descriptor() const noexcept override { return m_any.Get(); }

private:
    std::vector<Event>::const_iterator First() const {
        return std::find_if(m_events.begin(), m_events.end(),
                            [](const Event& each) { return each->IsSet(); });
    }

    std::vector<Event> m_events;
    common::CDescriptor m_any;
};

}  // namespace

SCallLimits LimitsOfScopedCall(std::chrono::milliseconds timeout) {
    SCallLimits limits;
    std::vector<Event> events;
    bool hasTimeout = false;
    bool hasDeadline = false;
    for (const SCallScopeEntry* each = t_callScopes; each != nullptr; each = each->Outer) {
        if (!each->IsInForce()) continue;
        limits.IsOfScope = true;
        limits.Deadline = std::min(limits.Deadline, each->Deadline);
        hasDeadline = hasDeadline || each->IsDeadline;
        if (each->Timeout && !std::exchange(hasTimeout, true)) timeout = *each->Timeout;
        if (each->Event != nullptr) events.push_back(each->Event);
    }
    if (hasDeadline && !hasTimeout) timeout = {};
    if (timeout.count() != 0) limits.Deadline = std::min(limits.Deadline, common::DeadlineAfter(timeout));
    const auto now = Clock::now();
    // Not the difference of two points that may be too far apart to be counted.
    if (limits.Deadline > now)
        limits.Limit = std::chrono::ceil<std::chrono::milliseconds>(limits.Deadline - now);
    if (events.size() == 1) limits.Event = std::move(events.front());
    if (events.size() > 1) limits.Event = std::make_shared<CAnyEvent>(std::move(events));
    return limits;
}

}  // namespace apigen
