// SPDX-License-Identifier: Apache-2.0
/// \file
/// Deadlines and interrupted system calls.
#pragma once

#include <apigen/IIoDev.h>

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <limits>

namespace apigen::common {

using Clock = IIoDev::Clock;

// Nothing that waits is `noexcept`: the cancellation of a thread unwinds out of it.

/// Calls `systemCall` until a signal handler no longer cuts it short.
template <class F>
auto RetryInterrupted(F systemCall) {
    for (;;) {
        const auto result = systemCall();
        if (result != -1 || errno != EINTR) return result;
    }
}

/// Reads the clock only when there is a deadline.
inline bool IsPast(Clock::time_point deadline) noexcept {
    return deadline != Clock::time_point::max() && Clock::now() >= deadline;
}

/// The time-out for `poll` that ends at the deadline, not before it; -1 when there is none.
inline int PollTimeout(Clock::time_point deadline) noexcept {
    if (deadline == Clock::time_point::max()) return -1;
    const auto now = Clock::now();
    if (deadline <= now) return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return static_cast<int>(std::min<decltype(left)>(left, std::numeric_limits<int>::max()));
}

/// As `poll`, which also fails when the set is larger than the caller may have descriptors open. Rather than to wait
/// for nothing at full speed, it takes a short rest then, and has everything looked at.
inline int PollPatiently(pollfd* set, std::size_t count, int timeout) {
    const int ready = ::poll(set, count, timeout);
    if (ready >= 0) return ready;
    const bool isInterrupted = errno == EINTR;
    if (!isInterrupted) ::poll(nullptr, 0, timeout < 0 ? 10 : std::min(timeout, 10));
    for (std::size_t i = 0; i < count; ++i)
        set[i].revents = isInterrupted || set[i].fd < 0 ? short{0} : set[i].events;
    return isInterrupted ? 0 : static_cast<int>(count);
}

/// The deadline that is so far away; none for a duration that the clock can't count, now for a negative one.
template <class Rep, class Period>
Clock::time_point DeadlineAfter(std::chrono::duration<Rep, Period> limit) noexcept {
    const auto now = Clock::now();
    if (!(limit > limit.zero())) return now;
    // Compared in floating point, where no unit overflows; the second makes up for its rounding.
    const auto most = Clock::time_point::max() - now - std::chrono::seconds(1);
    using Seconds = std::chrono::duration<double>;
    if (Seconds(limit) >= Seconds(most)) return Clock::time_point::max();
    return now + std::chrono::ceil<Clock::duration>(limit);
}

}  // namespace apigen::common
