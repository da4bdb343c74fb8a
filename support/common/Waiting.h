// SPDX-License-Identifier: Apache-2.0
/// \file
/// Deadlines and interrupted system calls.
#pragma once

#include <apigen/IIoDev.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>

namespace apigen::common {

using Clock = IIoDev::Clock;

/// Calls `systemCall` until a signal handler no longer cuts it short.
template <class F>
auto RetryInterrupted(F systemCall) noexcept {
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

/// `duration` from now: now for a negative one, the end of time for one that is longer than time.
template <class Rep, class Period>
Clock::time_point DeadlineAfter(std::chrono::duration<Rep, Period> duration) noexcept {
    const auto now = Clock::now();
    if (!(duration > duration.zero())) return now;
    // Compared as floating point, which no unit overflows; the second makes up for its rounding.
    using Seconds = std::chrono::duration<double>;
    const Seconds left = Clock::time_point::max() - now - std::chrono::seconds(1);
    if (Seconds(duration) >= left) return Clock::time_point::max();
    return now + std::chrono::duration_cast<Clock::duration>(duration);
}

}  // namespace apigen::common
