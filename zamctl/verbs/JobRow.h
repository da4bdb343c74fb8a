// SPDX-License-Identifier: Apache-2.0
/// \file
/// A job with what people want to know of it: the last run, or the one under way, and the next.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include "agent/Find.h"
#include "show/Json.h"

namespace zamctl {

struct SJobView {
    zamclientlib::SBackupJobInfo Info;
    zamclientlib::SBackupJobConfigurationInfo Config;
    bool HasRun = false;
    zamclientlib::SBackupJobSessionInfo Last;  ///< the newest session, when there is one
};

/// Asks the agent for all of it.
[[nodiscard]] SJobView ViewOf(const SFoundJob& job);

/// What programs get: the job's info, "LastSession" in short, "NextRunTimeUtc", "IsOverdue".
[[nodiscard]] Json RowOf(const SJobView& view);

/// "Working 42 %" of a run under way, else the last result; "never run".
[[nodiscard]] std::string LastWords(const SJobView& view);

}  // namespace zamctl
