// SPDX-License-Identifier: Apache-2.0
/// \file
/// Watching a session on a terminal, for the verbs that do.
#pragma once

#include <zamclientlib/JobRecords.h>

#include "verbs/Verb.h"

namespace zamctl {

/// Shows the session to its end: progress and log lines for people, the record as it changes for programs.
/// \return by its result: Done, Warnings, SessionFailed
EExit WatchSession(CCall& call, const apigen::Guid& sessionId);

/// What a session's result means for the exit status. One that has not ended is Done.
[[nodiscard]] EExit ExitOf(const zamclientlib::SBackupJobSessionInfo& info);

/// The record, for people without the point that it has not made.
[[nodiscard]] Json SessionRow(const COutput& out, const zamclientlib::SBackupJobSessionInfo& info);

/// A log line for people: "warning: text".
[[nodiscard]] std::string LogLine(const COutput& out, const zamclientlib::SLogDetail& line);

/// The columns of a session on its own, and of a list.
[[nodiscard]] const std::vector<SColumn>& SessionColumns();
[[nodiscard]] const std::vector<SColumn>& SessionListColumns();

}  // namespace zamctl
