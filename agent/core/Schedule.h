// SPDX-License-Identifier: Apache-2.0
/// \file
/// When a job runs by itself. Pure functions: of a schedule, of what it has come to, and of now.
#pragma once

#include <zamclientlib/JobConfigurationRecords.h>

#include <chrono>
#include <optional>
#include <string>

#include "agent/core/IClock.h"
#include "agent/core/Values.h"

namespace tarvo {

/// Whether the calendar has that day. A calendar whose sets are empty, or which names no member, has none.
bool HasDay(const zamclientlib::SCalendarInfo& calendar, std::chrono::year_month_day day);

/// What is wrong with the calendar; empty when it has a day.
std::string Fault(const zamclientlib::SCalendarInfo& calendar);

/// The moment of a local time. One that comes twice is taken the first time; one that is left out becomes as much
/// later as the clocks leave out.
Moment MomentOf(std::chrono::local_time<std::chrono::milliseconds> local, const IClock& zone);

/// The local day of a moment.
std::chrono::local_days DayOf(Moment moment, const IClock& zone);

/// The schedule's first time after `moment`; none where there is none within some ten years.
std::optional<Moment> FirstAfter(const zamclientlib::SBackupScheduleInfo& schedule, Moment moment,
                                 const IClock& zone);

/// Its last time up to `moment`, but after `since`.
std::optional<Moment> LastUpTo(const zamclientlib::SBackupScheduleInfo& schedule, Moment since, Moment moment,
                               const IClock& zone);

/// Where a schedule goes on from. Clocks are set back: what was promised a little ahead of now has been done
/// already, and isn't done again; what was promised far ahead came of a clock that was wrong.
Moment GoesOnFrom(Moment promisedUntil, Moment now);

struct SPromise {
    /// The newest time that has come without a run; those before it are made up for by the same run.
    std::optional<Moment> Due;

    /// The next one; in the future when nothing is due.
    std::optional<Moment> Next;
};

/// What is due now and what comes next, for a schedule that has come to `promisedUntil`.
SPromise PromiseOf(const zamclientlib::SBackupScheduleInfo& schedule, Moment promisedUntil, Moment now,
                   const IClock& zone);

/// How much later than promised a job begins where the settings ask for it: the same at every asking, so that a
/// restart doesn't draw again.
std::chrono::seconds JitterOf(const Guid& job, Moment promise, std::chrono::seconds most);

/// Whether a run that begins now makes an active full backup: when its day is one of the calendar's, or when such a
/// day has passed without a run since `last`.
bool IsActiveFullDue(const zamclientlib::SActiveFullScheduleInfo& schedule, std::optional<Moment> last,
                     Moment now, const IClock& zone);

/// "late by 2 h 5 min", when it is worth a word.
std::string LateText(Moment promise, Moment now);

}  // namespace tarvo
