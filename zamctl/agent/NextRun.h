// SPDX-License-Identifier: Apache-2.0
/// \file
/// When a schedule comes due, by this host's local time. The agent has no call for it; it follows the same rules.
#pragma once

#include <zamclientlib/JobConfigurationRecords.h>

#include <chrono>
#include <optional>

namespace zamctl {

using Moment = std::chrono::system_clock::time_point;

/// The first time after `after` at which the schedule comes due; none when it is off, or never does.
[[nodiscard]] std::optional<Moment> NextRun(const zamclientlib::SBackupScheduleInfo& schedule, Moment after);

/// Whether the last success is too long ago: two scheduled runs have come due since, or, without a schedule, a week has
/// passed.
[[nodiscard]] bool IsOverdue(const zamclientlib::SBackupScheduleInfo& schedule,
                             std::optional<Moment> lastSuccess, Moment now);

}  // namespace zamctl
