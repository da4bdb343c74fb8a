// SPDX-License-Identifier: Apache-2.0
#include "verbs/JobRow.h"

#include <zamclientlib/Chrono.h>

#include "agent/NextRun.h"
#include "show/Words.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

SJobView ViewOf(const SFoundJob& job) {
    SJobView view;
    view.Info = job.Info;
    view.Config = job.Job->GetConfigurationInfo();
    if (const auto session = job.Job->FindLastBackupJobSession()) {
        view.HasRun = true;
        view.Last = session->GetInfo();
    }
    return view;
}

Json RowOf(const SJobView& view) {
    Json row = ToJson(view.Info);
    Json& last = row["LastSession"];
    if (view.HasRun) {
        const Json whole = ToJson(view.Last);
        for (const char* const key :
             {"Uid", "State", "Result", "StartTimeUtc", "EndTimeUtc", "PercentCompleted"})
            last[key] = whole.at(key);
    }
    const auto now = std::chrono::system_clock::now();
    const auto next = view.Info.Enabled ? NextRun(view.Config.ScheduleInfo, now) : std::nullopt;
    row["NextRunTimeUtc"] = next ? Json(TimeText(ToDateTime(*next))) : Json();
    std::optional<Moment> success;
    if (view.Info.LastBackupTimeUtc) success = ToTimePoint(*view.Info.LastBackupTimeUtc);
    row["IsOverdue"] = view.Info.Enabled && IsOverdue(view.Config.ScheduleInfo, success, now);
    return row;
}

std::string LastWords(const SJobView& view) {
    if (!view.HasRun) return "never run";
    if (view.Last.State != JobState::Stopped)
        return std::string(NameOf(view.Last.State)) + " " + std::to_string(view.Last.PercentCompleted) + " %";
    return std::string(NameOf(view.Last.Result));
}

}  // namespace zamctl
