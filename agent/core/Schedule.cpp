// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Schedule.h"

#include <algorithm>
#include <functional>

namespace tarvo {

using namespace std::chrono;
using zamclientlib::SCalendarInfo;
using zamclientlib::ScheduleType;
using zamclientlib::WeekDayNumberType;

namespace {

constexpr unsigned AllDays = 0x7f;
constexpr unsigned AllMonths = 0xfff;

/// A calendar that has no day within that time has none: the rarest is a month's.
constexpr days SearchedAhead{366 * 10};

/// How far ahead of now a promise may lie that was kept before the clock was set back.
constexpr hours KeptAhead{25};

bool HasWeekDay(unsigned set, weekday day) {
    return (set >> (day.iso_encoding() - 1) & 1U) != 0;
}

bool HasMonth(unsigned set, month month) {
    return (set >> (static_cast<unsigned>(month) - 1) & 1U) != 0;
}

unsigned LastDayOf(year_month_day day) {
    return static_cast<unsigned>((day.year() / day.month() / last).day());
}

/// Whether the day is that occurrence of its own week day.
bool IsOccurrence(WeekDayNumberType number, year_month_day day) {
    const auto dayOfMonth = static_cast<unsigned>(day.day());
    if (number == WeekDayNumberType::Last) return dayOfMonth + 7 > LastDayOf(day);
    return static_cast<int>((dayOfMonth - 1) / 7 + 1) == static_cast<int>(number);
}

milliseconds TimeOfDay(const zamclientlib::SBackupScheduleInfo& schedule) {
    // The seconds first: there may be more of them than a number of milliseconds can hold.
    const auto whole = std::clamp<seconds>(seconds(schedule.TimeOfDay.seconds), -days(1), days(1));
    return std::clamp<milliseconds>(whole + milliseconds(schedule.TimeOfDay.milliseconds), 0ms,
                                    days(1) - 1ms);
}

Moment OnDay(const zamclientlib::SBackupScheduleInfo& schedule, local_days day, const IClock& zone) {
    return MomentOf(local_time<milliseconds>(day) + TimeOfDay(schedule), zone);
}

}  // namespace

bool HasDay(const SCalendarInfo& calendar, year_month_day day) {
    switch (calendar.Type) {
        case ScheduleType::Daily:
            return HasWeekDay(calendar.Days, weekday(local_days(day)));
        case ScheduleType::MonthlyByDay:
            // In a month that is too short, its last day stands in.
            return HasMonth(calendar.Months, day.month()) && calendar.DayOfMonth != 0 &&
                   static_cast<unsigned>(day.day()) == std::min(calendar.DayOfMonth, LastDayOf(day));
        case ScheduleType::MonthlyByWeekDay:
            return HasMonth(calendar.Months, day.month()) &&
                   HasWeekDay(calendar.Days, weekday(local_days(day))) &&
                   IsOccurrence(calendar.WeekDayNumber, day);
        case ScheduleType::None:
            break;
    }
    return false;
}

std::string Fault(const SCalendarInfo& calendar) {
    const bool hasDays = (calendar.Days & AllDays) != 0;
    const bool hasMonths = (calendar.Months & AllMonths) != 0;
    switch (calendar.Type) {
        case ScheduleType::Daily:
            if (!hasDays) return "it names no day of the week";
            return {};
        case ScheduleType::MonthlyByDay:
            if (!hasMonths) return "it names no month";
            if (calendar.DayOfMonth < 1 || calendar.DayOfMonth > 31) {
                return "the day of the month has to be 1 to 31, not " + std::to_string(calendar.DayOfMonth);
            }
            return {};
        case ScheduleType::MonthlyByWeekDay:
            if (!hasMonths) return "it names no month";
            if (!hasDays) return "it names no day of the week";
            if (calendar.WeekDayNumber < WeekDayNumberType::First ||
                calendar.WeekDayNumber > WeekDayNumberType::Last) {
                return "it doesn't say which such week day of a month is meant";
            }
            return {};
        case ScheduleType::None:
            return "it has no type";
    }
    return "its type " + std::to_string(static_cast<int>(calendar.Type)) + " is not known";
}

Moment MomentOf(local_time<milliseconds> local, const IClock& zone) {
    // Zones change their offset by a whole day at most, and not twice within four days.
    std::optional<Moment> first;
    seconds smallest = seconds::max();
    for (int shift = -48; shift <= 48; shift += 12) {
        const Moment near = Moment(local.time_since_epoch()) + hours(shift);
        const seconds offset = zone.OffsetAt(near);
        const Moment candidate = Moment(local.time_since_epoch()) - offset;
        if (zone.OffsetAt(candidate) == offset && (!first || candidate < *first)) first = candidate;
        smallest = std::min(smallest, offset);
    }
    return first.value_or(Moment(local.time_since_epoch()) - smallest);
}

local_days DayOf(Moment moment, const IClock& zone) {
    return floor<days>(local_time<milliseconds>(moment.time_since_epoch()) + zone.OffsetAt(moment));
}

std::optional<Moment> FirstAfter(const zamclientlib::SBackupScheduleInfo& schedule, Moment moment,
                                 const IClock& zone) {
    if (!schedule.IsEnabled || !Fault(schedule.Calendar).empty()) return {};
    // The day before as well: a time that the clocks leave out may be made up for on the next day.
    const local_days start = DayOf(moment, zone) - days(1);
    for (local_days day = start; day < start + SearchedAhead; day += days(1)) {
        if (!HasDay(schedule.Calendar, year_month_day(day))) continue;
        const Moment time = OnDay(schedule, day, zone);
        if (time > moment) return time;
    }
    return {};
}

std::optional<Moment> LastUpTo(const zamclientlib::SBackupScheduleInfo& schedule, Moment since, Moment moment,
                               const IClock& zone) {
    if (!schedule.IsEnabled || !Fault(schedule.Calendar).empty()) return {};
    const local_days start = DayOf(moment, zone) + days(1);
    const local_days stop = std::max(DayOf(since, zone) - days(1), start - SearchedAhead);
    for (local_days day = start; day >= stop; day -= days(1)) {
        if (!HasDay(schedule.Calendar, year_month_day(day))) continue;
        const Moment time = OnDay(schedule, day, zone);
        if (time <= since) return {};
        if (time <= moment) return time;
    }
    return {};
}

Moment GoesOnFrom(Moment promisedUntil, Moment now) {
    return promisedUntil > now + KeptAhead ? now : promisedUntil;
}

SPromise PromiseOf(const zamclientlib::SBackupScheduleInfo& schedule, Moment promisedUntil, Moment now,
                   const IClock& zone) {
    const Moment since = GoesOnFrom(promisedUntil, now);
    return {LastUpTo(schedule, since, now, zone), FirstAfter(schedule, std::max(since, now), zone)};
}

seconds JitterOf(const Guid& job, Moment promise, seconds most) {
    if (most <= 0s) return 0s;
    const std::string seed = job.Serialize() + std::to_string(promise.time_since_epoch().count());
    return seconds(
        static_cast<long>(std::hash<std::string>()(seed) % (static_cast<unsigned long>(most.count()) + 1)));
}

bool IsActiveFullDue(const zamclientlib::SActiveFullScheduleInfo& schedule, std::optional<Moment> last,
                     Moment now, const IClock& zone) {
    if (!schedule.IsEnabled || !Fault(schedule.Calendar).empty()) return false;
    const local_days today = DayOf(now, zone);
    if (!last || GoesOnFrom(*last, now) != *last) return HasDay(schedule.Calendar, year_month_day(today));
    const local_days stop = std::max(DayOf(*last, zone), today - SearchedAhead);
    for (local_days day = today; day > stop; day -= days(1)) {
        if (HasDay(schedule.Calendar, year_month_day(day))) return true;
    }
    return false;
}

std::string LateText(Moment promise, Moment now) {
    constexpr auto NotWorthAWord = 2s;
    if (now - promise <= NotWorthAWord) return {};
    auto late = floor<seconds>(now - promise);
    std::string text = "late by";
    int parts = 0;
    const auto tell = [&](auto unit, const char* name) {
        const auto count = late / unit;
        if (parts == 2 || (count == 0 && parts == 0)) return;
        ++parts;
        if (count == 0) return;
        text += " " + std::to_string(count) + " " + name;
        late %= unit;
    };
    tell(days(1), "d");
    tell(hours(1), "h");
    tell(minutes(1), "min");
    tell(seconds(1), "s");
    return text;
}

}  // namespace tarvo
