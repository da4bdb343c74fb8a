// SPDX-License-Identifier: Apache-2.0
// Sessions: what runs, and what has run.
#include <algorithm>
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/Following.h"
#include "verbs/Verb.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr std::array OneSession{
    SArgument{"SESSION", "its id or a unique beginning; a job, whose last one is meant; or \"latest\"",
              EWord::Session}};

using Sessions = std::vector<std::shared_ptr<IBackupJobSession>>;

EExit List(CCall& call) {
    const auto product = call.Agent.Look();
    const auto jobs = FindJobs(*product, call.Values("JOB"));
    const auto limit = call.Number("--limit", 1, 1'000'000'000);
    const bool isRunningOnly = call.Has("--running");
    long shown = 0;
    for (const auto& job : jobs) {
        Sessions sessions = job.Job->GetBackupJobSessions();
        // The agent lists them in the order of their making; people want the newest first.
        std::reverse(sessions.begin(), sessions.end());
        for (auto& session : sessions) {
            if (limit && shown >= *limit) break;
            if (session == nullptr) continue;
            const auto info = session->GetInfo();
            // Let go as they are shown: thousands would be held at the other end, too.
            session.reset();
            if (isRunningOnly && info.State == JobState::Stopped) continue;
            call.Out.Row(SessionListColumns(), SessionRow(call.Out, info));
            ++shown;
        }
    }
    call.Out.EndRows(SessionListColumns(), isRunningOnly ? "nothing is running" : "nothing has run yet");
    return EExit::Done;
}

EExit Show(CCall& call) {
    const auto found = FindSession(*call.Agent.Look(), call.Value("SESSION"));
    call.Out.Item(SessionColumns(), SessionRow(call.Out, found.Info));
    if (call.Out.IsForPeople() && !found.Info.JobDetails.empty()) {
        call.Out.Heading("Log");
        for (const auto& line : found.Info.JobDetails)
            call.Out.Say("  " + LogLine(call.Out, line));
    }
    return EExit::Done;
}

EExit Log(CCall& call) {
    const auto found = FindSession(*call.Agent.Look(), call.Value("SESSION"));
    static const std::vector<SColumn> columns{{"WEIGHT", "Type", EKind::Outcome}, {"LINE", "Message"}};
    for (const auto& line : found.Info.JobDetails) {
        if (call.Has("--errors") && line.Type != ELogDetailType::Error &&
            line.Type != ELogDetailType::Warning)
            continue;
        if (call.Out.IsForPeople()) {
            call.Out.Say(LogLine(call.Out, line));
        } else {
            call.Out.Row(columns, ToJson(line));
        }
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows(columns);
    return EExit::Done;
}

EExit Follow(CCall& call) {
    const auto found = FindSession(*call.Agent.Look(), call.Value("SESSION"));
    return WatchSession(call, found.Info.Uid);
}

EExit Stop(CCall& call) {
    auto change = call.Change();
    const auto found = FindSession(*change, call.Value("SESSION"));
    if (!found.Session->Stop(call.Optional("--message").value_or("stopped from zamctl")))
        throw CFailure(EExit::Refused, "the session " + IdText(found.Info.Uid) + " of " +
                                           Quoted(found.Info.JobName) + " is not running");
    call.Out.Say("Asked the session of " + Quoted(found.Info.JobName) + " to stop");
    if (!call.Out.IsForPeople()) call.Out.Item(SessionListColumns(), ToJson(found.Session->GetInfo()));
    return EExit::Done;
}

constexpr std::array ListArguments{SArgument{"JOB", "only its sessions", EWord::Job, true, true}};
constexpr std::array ListOptions{
    SOption{.Name = "--limit", .Value = "NUMBER", .Help = "so many at most", .Short = 'n'},
    SOption{.Name = "--running", .Help = "only those under way"}};
constexpr std::array LogOptions{SOption{.Name = "--errors", .Help = "only warnings and errors"}};
constexpr std::array StopOptions{
    SOption{.Name = "--message", .Value = "TEXT", .Help = "goes into the session's log"}, ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "session",
          .Name = "list",
          .Help = "lists sessions, the newest of each job first",
          .Example = "zamctl session list home --limit 10",
          .Arguments = ListArguments,
          .Options = ListOptions,
          .Run = List,
          .Shape = "[SBackupJobSessionInfo]"},
    SVerb{.Noun = "session",
          .Name = "show",
          .Help = "shows how a session went, with its log: why it failed, for instance",
          .Example = "zamctl session show home",
          .Arguments = OneSession,
          .Run = Show,
          .Shape = "SBackupJobSessionInfo"},
    SVerb{.Noun = "session",
          .Name = "log",
          .Help = "shows a session's log",
          .Example = "zamctl session log latest --errors",
          .Arguments = OneSession,
          .Options = LogOptions,
          .Run = Log,
          .Shape = "[SLogDetail]"},
    SVerb{.Noun = "session",
          .Name = "follow",
          .Help = "watches a session to its end; the exit status tells its result",
          .Details = "Ctrl-C asks whether to stop the session or only to stop watching. When the agent goes "
                     "away, it is "
                     "waited for. Programs get the session each time that it has changed, a line each "
                     "(--output jsonl or tsv).",
          .Example = "zamctl session follow latest",
          .Arguments = OneSession,
          .Run = Follow,
          .Shape = "[SBackupJobSessionInfo]",
          .IsFollowing = true},
    SVerb{.Noun = "session",
          .Name = "stop",
          .Help = "asks a session to stop",
          .Example = "zamctl session stop home --message \"not now\"",
          .Arguments = OneSession,
          .Options = StopOptions,
          .Run = Stop,
          .Shape = "SBackupJobSessionInfo"},
};

}  // namespace

std::span<const SVerb> SessionVerbs() {
    return Table;
}

}  // namespace zamctl
