// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <set>
#include <vector>

#include "agent/core/Schedule.h"
#include "tests/Sanitized.h"
#include "tests/agent/core/FakeClock.h"

using namespace std::chrono;
using namespace zamclientlib;
using namespace tarvo;
using tarvo::tests::CFakeClock;

namespace {

constexpr unsigned EveryDay = static_cast<unsigned>(DaysOfWeek::EveryDay);
constexpr unsigned EveryMonth = static_cast<unsigned>(MonthType::EveryMonth);

Moment Utc(int y, unsigned m, unsigned d, int h = 0, int min = 0, int s = 0) {
    return sys_days(year(y) / m / d) + hours(h) + minutes(min) + seconds(s);
}

year_month_day Day(int y, unsigned m, unsigned d) {
    return year(y) / m / d;
}

SBackupScheduleInfo Daily(int hour, int minute = 0, unsigned days = EveryDay) {
    SBackupScheduleInfo schedule;
    schedule.IsEnabled = true;
    schedule.TimeOfDay = {hour * 3600L + minute * 60L, 0};
    schedule.Calendar = {ScheduleType::Daily, days, 0, {}, 0};
    return schedule;
}

/// Central Europe in 2026: an hour is left out on March 29 at 2:00, and comes twice on October 25 from 2:00 on.
class CEurope : public CFakeClock {
public:
    CEurope() : CFakeClock(Utc(2026, 1, 1), 1h) {
        Add(Utc(2026, 3, 29, 1), 2h);
        Add(Utc(2026, 10, 25, 1), 1h);
    }
};

}  // namespace

TEST(CalendarTest, BitZeroOfTheDaysIsMonday) {
    const SCalendarInfo mondays{ScheduleType::Daily, 1, 0, {}, 0};
    EXPECT_TRUE(HasDay(mondays, Day(2026, 11, 16)));
    EXPECT_FALSE(HasDay(mondays, Day(2026, 11, 15)));
    const SCalendarInfo sundays{ScheduleType::Daily, 1U << 6, 0, {}, 0};
    EXPECT_TRUE(HasDay(sundays, Day(2026, 11, 15)));
    EXPECT_FALSE(HasDay(sundays, Day(2026, 11, 16)));
}

TEST(CalendarTest, BitZeroOfTheMonthsIsJanuary) {
    const SCalendarInfo januaries{ScheduleType::MonthlyByDay, 0, 1, {}, 15};
    EXPECT_TRUE(HasDay(januaries, Day(2026, 1, 15)));
    EXPECT_FALSE(HasDay(januaries, Day(2026, 2, 15)));
    EXPECT_FALSE(HasDay(januaries, Day(2026, 1, 14)));
    const SCalendarInfo decembers{ScheduleType::MonthlyByDay, 0, 1U << 11, {}, 15};
    EXPECT_TRUE(HasDay(decembers, Day(2026, 12, 15)));
}

TEST(CalendarTest, TheLastDayStandsInForADayThatAMonthDoesNotHave) {
    const SCalendarInfo calendar{ScheduleType::MonthlyByDay, 0, EveryMonth, {}, 31};
    EXPECT_TRUE(HasDay(calendar, Day(2026, 2, 28)));
    EXPECT_FALSE(HasDay(calendar, Day(2028, 2, 28)));
    EXPECT_TRUE(HasDay(calendar, Day(2028, 2, 29)));
    EXPECT_TRUE(HasDay(calendar, Day(2026, 4, 30)));
    EXPECT_FALSE(HasDay(calendar, Day(2026, 5, 30)));
    EXPECT_TRUE(HasDay(calendar, Day(2026, 5, 31)));
}

TEST(CalendarTest, TheFirstToFourthAndLastWeekDayOfAMonthAreFound) {
    // Fridays of May 2026: 1, 8, 15, 22, 29.
    const auto fridays = [](WeekDayNumberType number) {
        const SCalendarInfo calendar{ScheduleType::MonthlyByWeekDay, 1U << 4, EveryMonth, number, 0};
        std::set<unsigned> days;
        for (unsigned day = 1; day <= 31; ++day) {
            if (HasDay(calendar, Day(2026, 5, day))) days.insert(day);
        }
        return days;
    };
    EXPECT_EQ(fridays(WeekDayNumberType::First), std::set<unsigned>{1});
    EXPECT_EQ(fridays(WeekDayNumberType::Second), std::set<unsigned>{8});
    EXPECT_EQ(fridays(WeekDayNumberType::Third), std::set<unsigned>{15});
    EXPECT_EQ(fridays(WeekDayNumberType::Fourth), std::set<unsigned>{22});
    EXPECT_EQ(fridays(WeekDayNumberType::Last), std::set<unsigned>{29});
}

TEST(CalendarTest, TheLastWeekDayIsTheFourthWhereThereIsNoFifth) {
    const SCalendarInfo calendar{ScheduleType::MonthlyByWeekDay, 1, EveryMonth, WeekDayNumberType::Last, 0};
    EXPECT_TRUE(HasDay(calendar, Day(2026, 2, 23)));
    EXPECT_FALSE(HasDay(calendar, Day(2026, 2, 16)));
}

TEST(CalendarTest, OfSeveralWeekDaysEachHasItsOwnFirst) {
    const SCalendarInfo calendar{ScheduleType::MonthlyByWeekDay, 0b11, EveryMonth, WeekDayNumberType::First,
                                 0};
    EXPECT_TRUE(HasDay(calendar, Day(2026, 11, 2)));  // Monday
    EXPECT_TRUE(HasDay(calendar, Day(2026, 11, 3)));  // Tuesday
    EXPECT_FALSE(HasDay(calendar, Day(2026, 11, 9)));
}

TEST(CalendarTest, WhatHasNoDayIsToldApart) {
    EXPECT_NE(Fault({}), "");
    EXPECT_NE(Fault({ScheduleType::Daily, 0, 0, {}, 0}), "");
    EXPECT_NE(Fault({ScheduleType::Daily, 1U << 7, 0, {}, 0}), "");
    EXPECT_NE(Fault({ScheduleType::MonthlyByDay, 0, 0, {}, 1}), "");
    EXPECT_NE(Fault({ScheduleType::MonthlyByDay, 0, EveryMonth, {}, 0}), "");
    EXPECT_NE(Fault({ScheduleType::MonthlyByDay, 0, EveryMonth, {}, 32}), "");
    EXPECT_NE(Fault({ScheduleType::MonthlyByWeekDay, 1, EveryMonth, {}, 0}), "");
    EXPECT_NE(Fault({ScheduleType::MonthlyByWeekDay, 1, EveryMonth, static_cast<WeekDayNumberType>(6), 0}),
              "");
    EXPECT_NE(Fault({static_cast<ScheduleType>(99), 1, 1, {}, 1}), "");
    EXPECT_EQ(Fault({ScheduleType::Daily, EveryDay, 0, {}, 0}), "");
    EXPECT_EQ(Fault({ScheduleType::MonthlyByWeekDay, 1, 1, WeekDayNumberType::Last, 0}), "");
}

TEST(ScheduleTest, TheNextRunIsAtItsLocalTime) {
    const CEurope clock;
    EXPECT_EQ(FirstAfter(Daily(3), Utc(2026, 1, 10), clock), Utc(2026, 1, 10, 2));
    EXPECT_EQ(FirstAfter(Daily(3), Utc(2026, 1, 10, 2), clock), Utc(2026, 1, 11, 2));
    EXPECT_EQ(FirstAfter(Daily(3), Utc(2026, 7, 10), clock), Utc(2026, 7, 10, 1));
    EXPECT_EQ(FirstAfter(Daily(0), Utc(2026, 7, 10, 22), clock), Utc(2026, 7, 11, 22));
}

TEST(ScheduleTest, ATimeThatTheClocksLeaveOutRunsOnce) {
    const CEurope clock;
    const auto schedule = Daily(2, 30);
    const auto first = FirstAfter(schedule, Utc(2026, 3, 28, 12), clock);
    EXPECT_EQ(first, Utc(2026, 3, 29, 1, 30));  // half past three
    EXPECT_EQ(FirstAfter(schedule, *first, clock), Utc(2026, 3, 30, 0, 30));
}

TEST(ScheduleTest, ATimeThatComesTwiceRunsOnce) {
    const CEurope clock;
    const auto schedule = Daily(2, 30);
    const auto first = FirstAfter(schedule, Utc(2026, 10, 24, 12), clock);
    EXPECT_EQ(first, Utc(2026, 10, 25, 0, 30));
    EXPECT_EQ(FirstAfter(schedule, *first, clock), Utc(2026, 10, 26, 1, 30));
    EXPECT_EQ(PromiseOf(schedule, *first, Utc(2026, 10, 25, 1, 30), clock).Due, std::nullopt);
}

TEST(ScheduleTest, AMidnightThatTheClocksLeaveOutRunsOnceAndOnItsDay) {
    CFakeClock clock(Utc(2026, 1, 1), -4h);
    clock.Add(Utc(2026, 9, 6, 4), -3h);  // midnight becomes one o'clock
    const auto first = FirstAfter(Daily(0), Utc(2026, 9, 5, 12), clock);
    EXPECT_EQ(first, Utc(2026, 9, 6, 4));
    EXPECT_EQ(FirstAfter(Daily(0), *first, clock), Utc(2026, 9, 7, 3));
}

TEST(ScheduleTest, ADayThatAZoneLeavesOutIsMadeUpFor) {
    CFakeClock clock(Utc(2011, 1, 1), -10h);
    clock.Add(Utc(2011, 12, 30, 10), 14h);  // from December 29 to 31
    const auto first = FirstAfter(Daily(12), Utc(2011, 12, 29, 22), clock);
    ASSERT_TRUE(first);
    EXPECT_EQ(*first, Utc(2011, 12, 30, 22));
    const auto second = FirstAfter(Daily(12), *first, clock);
    EXPECT_EQ(second, Utc(2011, 12, 31, 22));
}

TEST(ScheduleTest, NothingIsPromisedWithoutADay) {
    const CEurope clock;
    auto schedule = Daily(3);
    schedule.IsEnabled = false;
    EXPECT_EQ(FirstAfter(schedule, clock.Now(), clock), std::nullopt);
    schedule = Daily(3, 0, 0);
    EXPECT_EQ(FirstAfter(schedule, clock.Now(), clock), std::nullopt);
    EXPECT_EQ(LastUpTo(schedule, Utc(2020, 1, 1), clock.Now(), clock), std::nullopt);
    EXPECT_EQ(PromiseOf(schedule, {}, clock.Now(), clock).Next, std::nullopt);
}

TEST(ScheduleTest, ATimeOutsideOfTheDayIsTakenAtItsNearestEnd) {
    const CEurope clock;
    auto schedule = Daily(0);
    schedule.TimeOfDay = {-5, 0};
    EXPECT_EQ(FirstAfter(schedule, Utc(2026, 1, 10, 12), clock), Utc(2026, 1, 10, 23));
    for (const long seconds : {9'000'000'000'000'000L, 9'300'000'000'000'000L, LONG_MAX}) {
        schedule.TimeOfDay = {seconds, 999};
        EXPECT_EQ(FirstAfter(schedule, Utc(2026, 1, 10, 12), clock), Utc(2026, 1, 10, 23) - 1ms) << seconds;
    }
    schedule.TimeOfDay = {LONG_MIN, 999};
    EXPECT_EQ(FirstAfter(schedule, Utc(2026, 1, 10, 12), clock), Utc(2026, 1, 10, 23));
}

TEST(ScheduleTest, RunsThatWereMissedAreCaughtUpOnce) {
    const CEurope clock;
    const auto schedule = Daily(3);
    const auto promise = PromiseOf(schedule, Utc(2026, 1, 10, 2), Utc(2026, 1, 15, 8), clock);
    EXPECT_EQ(promise.Due, Utc(2026, 1, 15, 2));
    EXPECT_EQ(promise.Next, Utc(2026, 1, 16, 2));
    const auto after = PromiseOf(schedule, *promise.Due, Utc(2026, 1, 15, 8), clock);
    EXPECT_EQ(after.Due, std::nullopt);
    EXPECT_EQ(after.Next, Utc(2026, 1, 16, 2));
}

TEST(ScheduleTest, AClockThatIsSetBackRepeatsNothing) {
    const CEurope clock;
    const auto schedule = Daily(3);
    const Moment done = Utc(2026, 1, 10, 2);
    const auto promise = PromiseOf(schedule, done, done - 2h, clock);
    EXPECT_EQ(promise.Due, std::nullopt);
    EXPECT_EQ(promise.Next, Utc(2026, 1, 11, 2));
}

TEST(ScheduleTest, AClockThatWasFarAheadDoesNotStopTheScheduleForYears) {
    const CEurope clock;
    const auto schedule = Daily(3);
    const auto promise = PromiseOf(schedule, Utc(2040, 1, 1, 2), Utc(2026, 1, 10, 8), clock);
    EXPECT_EQ(promise.Due, std::nullopt);
    EXPECT_EQ(promise.Next, Utc(2026, 1, 11, 2));
}

TEST(ScheduleTest, AClockThatIsSetFarAheadRunsOnce) {
    const CEurope clock;
    const auto promise = PromiseOf(Daily(3), Utc(2026, 1, 10, 2), Utc(2040, 6, 1, 8), clock);
    ASSERT_TRUE(promise.Due);
    EXPECT_EQ(DayOf(*promise.Due, clock), local_days(Day(2040, 6, 1)));
}

TEST(ScheduleTest, JitterStaysInItsBoundsAndIsTheSameAtEveryAsking) {
    std::set<seconds> seen;
    const Guid job = Guid::Random();
    for (int day = 0; day < 100; ++day) {
        const auto jitter = JitterOf(job, Utc(2026, 1, 1) + days(day), 300s);
        EXPECT_GE(jitter, 0s);
        EXPECT_LE(jitter, 300s);
        EXPECT_EQ(jitter, JitterOf(job, Utc(2026, 1, 1) + days(day), 300s));
        seen.insert(jitter);
    }
    EXPECT_GT(seen.size(), 20U);
    EXPECT_EQ(JitterOf(job, Utc(2026, 1, 1), 0s), 0s);
    EXPECT_EQ(JitterOf(job, Utc(2026, 1, 1), -5s), 0s);
}

TEST(ScheduleTest, AnActiveFullBackupIsDueOnItsDayAndMadeUpForLater) {
    const CEurope clock;
    const SActiveFullScheduleInfo sundays{true, {ScheduleType::Daily, 1U << 6, 0, {}, 0}};
    const Moment sunday = Utc(2026, 11, 15, 8);
    EXPECT_TRUE(IsActiveFullDue(sundays, std::nullopt, sunday, clock));
    EXPECT_FALSE(IsActiveFullDue(sundays, std::nullopt, sunday + days(1), clock));
    EXPECT_FALSE(IsActiveFullDue(sundays, sunday - 1h, sunday, clock));  // today's is made
    EXPECT_FALSE(IsActiveFullDue(sundays, sunday, sunday + days(6), clock));
    EXPECT_TRUE(IsActiveFullDue(sundays, sunday, sunday + days(7), clock));
    EXPECT_TRUE(IsActiveFullDue(sundays, sunday, sunday + days(9), clock));  // the host was off on that day
    EXPECT_TRUE(IsActiveFullDue(sundays, sunday + days(5000), sunday, clock));  // the clock was wrong then
    EXPECT_FALSE(IsActiveFullDue({false, sundays.Calendar}, std::nullopt, sunday, clock));
}

TEST(ScheduleTest, LatenessIsToldWhenItIsWorthAWord) {
    const Moment promise = Utc(2026, 1, 1);
    EXPECT_EQ(LateText(promise, promise - 5s), "");
    EXPECT_EQ(LateText(promise, promise + 2s), "");
    EXPECT_EQ(LateText(promise, promise + 3s), "late by 3 s");
    EXPECT_EQ(LateText(promise, promise + 125min), "late by 2 h 5 min");
    EXPECT_EQ(LateText(promise, promise + 120min), "late by 2 h");
    EXPECT_EQ(LateText(promise, promise + days(3) + 4s), "late by 3 d");
}

// Whatever the schedule and the zone: runs come in order, on days of the calendar, once a day, and what the search
// forwards finds is what the search backwards finds.
TEST(ScheduleTest, GeneratedSchedulesKeepTheirPromises) {
    std::mt19937 random(20260301);
    const auto pick = [&](unsigned below) { return static_cast<unsigned>(random() % below); };
    for (int round = 0; round < ::tests::Tries(300); ++round) {
        CFakeClock clock(Utc(2026, 1, 1), minutes(static_cast<int>(pick(27 * 4)) * 15 - 12 * 60));
        // Two changes of an hour or half an hour, at any hour of a day.
        const auto base = clock.OffsetAt(clock.Now());
        const minutes change(pick(2) == 0 ? 60 : 30);
        clock.Add(Utc(2026, 3, 1 + pick(28)) + hours(pick(24)), base + change);
        clock.Add(Utc(2026, 10, 1 + pick(28)) + hours(pick(24)), base);

        SBackupScheduleInfo schedule;
        schedule.IsEnabled = true;
        schedule.TimeOfDay = {static_cast<long>(pick(24 * 60)) * 60, 0};
        schedule.Calendar = {static_cast<ScheduleType>(1 + pick(3)), 1 + pick(127), 1 + pick(4095),
                             static_cast<WeekDayNumberType>(1 + pick(5)), 1 + pick(31)};
        ASSERT_EQ(Fault(schedule.Calendar), "");

        std::vector<Moment> expected;
        for (local_days day = local_days(Day(2026, 1, 3)); day < local_days(Day(2026, 12, 29));
             day += days(1)) {
            if (!HasDay(schedule.Calendar, year_month_day(day))) continue;
            expected.push_back(MomentOf(day + seconds(schedule.TimeOfDay.seconds) + 0ms, clock));
        }
        std::vector<Moment> got;
        Moment latest = MomentOf(local_days(Day(2026, 1, 3)) + 0ms, clock) - 1ms;
        while (const auto next = FirstAfter(schedule, latest, clock)) {
            ASSERT_GT(*next, latest);
            if (*next >= MomentOf(local_days(Day(2026, 12, 29)) + 0ms, clock)) break;
            got.push_back(*next);
            EXPECT_EQ(LastUpTo(schedule, latest, *next, clock), *next);
            EXPECT_EQ(LastUpTo(schedule, latest, *next - 1ms, clock), std::nullopt);
            const auto promise = PromiseOf(schedule, latest, *next + 1min, clock);
            EXPECT_EQ(promise.Due, *next);
            EXPECT_EQ(promise.Next, FirstAfter(schedule, *next + 1min, clock));
            latest = *next;
        }
        EXPECT_EQ(got, expected) << "round " << round;
        if (HasFailure()) return;
    }
}

// The zones of a host are as its C library has them.
TEST(ScheduleTest, TheHostsOwnClockKnowsSummerTime) {
    const char* const before = ::getenv("TZ");
    const std::string kept = before != nullptr ? before : "";
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const CSystemClock clock;
    EXPECT_EQ(clock.OffsetAt(Utc(2026, 1, 1)), 1h);
    EXPECT_EQ(clock.OffsetAt(Utc(2026, 7, 1)), 2h);
    EXPECT_EQ(FirstAfter(Daily(2, 30), Utc(2026, 3, 28, 12), clock), Utc(2026, 3, 29, 1, 30));
    EXPECT_EQ(FirstAfter(Daily(2, 30), Utc(2026, 10, 24, 12), clock), Utc(2026, 10, 25, 0, 30));
    before != nullptr ? ::setenv("TZ", kept.c_str(), 1) : ::unsetenv("TZ");
}
