// SPDX-License-Identifier: Apache-2.0
/// \file
/// Points in time and durations of the API as those of `std::chrono`, and back.
///
/// Nothing is thrown. What the other side can't hold becomes the nearest that it can; the system's clock reaches
/// from the year 1677 to 2262. Before 1970, and below zero, milliseconds still count forwards: half a second less than
/// nothing is -1 second and 500 milliseconds. 1000 milliseconds and more, which a service should not send, count as
/// the seconds that they are.
#pragma once

#include <apigen/Export.h>
#include <zamclientlib/CommonRecords.h>

#include <chrono>
#include <cstdint>
#include <limits>

namespace zamclientlib APIGEN_API {

namespace detail {
constexpr std::chrono::milliseconds Total(std::int64_t seconds, unsigned short milliseconds) {
    using Limits = std::numeric_limits<std::int64_t>;
    std::int64_t total = 0;
    // A time before zero begins with a second that may be half out of range.
    const int borrowed = seconds < 0 ? 1 : 0;
    if (__builtin_mul_overflow(seconds + borrowed, 1000, &total) ||
        __builtin_add_overflow(total, milliseconds - 1000 * borrowed, &total)) {
        total = seconds < 0 ? Limits::min() : Limits::max();
    }
    return std::chrono::milliseconds(total);
}

template <class Record>
constexpr Record Parted(std::chrono::milliseconds total) {
    // By numbers: the first second of the range is out of it as milliseconds.
    std::int64_t seconds = total.count() / 1000;
    std::int64_t rest = total.count() % 1000;
    if (rest < 0) {
        --seconds;
        rest += 1000;
    }
    return {static_cast<long>(seconds), static_cast<unsigned short>(rest)};
}
}  // namespace detail

/// The whole duration, in milliseconds.
[[nodiscard]] constexpr std::chrono::milliseconds ToMilliseconds(const STimeSpan& span) {
    return detail::Total(span.seconds, span.milliseconds);
}

/// Every duration of whole milliseconds, `std::chrono::hours(2)` for instance; cast finer ones as you would have them
/// rounded.
[[nodiscard]] constexpr STimeSpan ToTimeSpan(std::chrono::milliseconds duration) {
    return detail::Parted<STimeSpan>(duration);
}

/// The same point in time on the system's clock.
[[nodiscard]] constexpr std::chrono::system_clock::time_point ToTimePoint(const SDateTime& time) {
    using std::chrono::milliseconds;
    using Duration = std::chrono::system_clock::duration;
    const milliseconds total = detail::Total(time.seconds, time.milliseconds);
    if (total > std::chrono::floor<milliseconds>(Duration::max())) {
        return std::chrono::system_clock::time_point::max();
    }
    if (total < std::chrono::ceil<milliseconds>(Duration::min())) {
        return std::chrono::system_clock::time_point::min();
    }
    return std::chrono::system_clock::time_point(total);
}

/// What is finer than a millisecond is cut off, towards the past.
[[nodiscard]] constexpr SDateTime ToDateTime(std::chrono::system_clock::time_point time) {
    return detail::Parted<SDateTime>(std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()));
}

}  // namespace zamclientlib
