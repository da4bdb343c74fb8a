// SPDX-License-Identifier: Apache-2.0
#include "agent/NextRun.h"

#include <algorithm>
#include <ctime>

namespace zamctl {

using namespace std::chrono;
using zamclientlib::SBackupScheduleInfo;
using zamclientlib::SCalendarInfo;
using zamclientlib::ScheduleType;
using zamclientlib::WeekDayNumberType;

namespace {

bool IsIn(unsigned set, unsigned bit) {
    return (set >> bit & 1U) != 0;
}

bool FallsOn(const SCalendarInfo& calendar, year_month_day date) {
    const unsigned day = static_cast<unsigned>(date.day());
    const unsigned last = static_cast<unsigned>((date.year() / date.month() / std::chrono::last).day());
    const bool isWeekDay = IsIn(calendar.Days, weekday(local_days(date)).iso_encoding() - 1);
    const bool isMonth = IsIn(calendar.Months, static_cast<unsigned>(date.month()) - 1);
    switch (calendar.Type) {
        case ScheduleType::Daily:
            return isWeekDay;
        case ScheduleType::MonthlyByDay:
            return isMonth && calendar.DayOfMonth != 0 && day == std::min(calendar.DayOfMonth, last);
        case ScheduleType::MonthlyByWeekDay:
            if (!isMonth || !isWeekDay) return false;
            if (calendar.WeekDayNumber == WeekDayNumberType::Last) return day + 7 > last;
            return static_cast<int>((day - 1) / 7 + 1) == static_cast<int>(calendar.WeekDayNumber);
        case ScheduleType::None:
            break;
    }
    return false;
}

/// A local time as a moment: of one that comes twice the first, one that is left out as much later.
Moment MomentOf(year_month_day date, seconds timeOfDay) {
    std::tm local{};
    local.tm_year = static_cast<int>(date.year()) - 1900;
    local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    local.tm_sec = static_cast<int>(timeOfDay.count());
    local.tm_isdst = -1;
    return system_clock::from_time_t(std::mktime(&local));
}

}  // namespace

std::optional<Moment> NextRun(const SBackupScheduleInfo& schedule, Moment after) {
    if (!schedule.IsEnabled) return std::nullopt;
    const std::time_t start = system_clock::to_time_t(after);
    std::tm local{};
    if (::localtime_r(&start, &local) == nullptr) return std::nullopt;
    const seconds timeOfDay(std::clamp<long>(schedule.TimeOfDay.seconds, 0, 24 * 3600 - 1));
    local_days day = local_days(year(local.tm_year + 1900) / (local.tm_mon + 1) / local.tm_mday);
    // The rarest day, the fifth Thursday in a February, comes within forty years; one within ten is near enough.
    for (const local_days end = day + days(3660); day < end; day += days(1)) {
        if (!FallsOn(schedule.Calendar, year_month_day(day))) continue;
        const Moment due = MomentOf(year_month_day(day), timeOfDay);
        if (due > after) return due;
    }
    return std::nullopt;
}

bool IsOverdue(const SBackupScheduleInfo& schedule, std::optional<Moment> lastSuccess, Moment now) {
    if (!lastSuccess) return true;
    const auto first = NextRun(schedule, *lastSuccess);
    if (!first) return now - *lastSuccess > days(7);
    const auto second = NextRun(schedule, *first);
    return second && *second < now;
}

}  // namespace zamctl
