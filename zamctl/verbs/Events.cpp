// SPDX-License-Identifier: Apache-2.0
// zamctl events: what happens at the agent, as it happens.
#include <zamclientlib/Chrono.h>
#include <zamclientlib/EventVisit.h>
#include <zamclientlib/RecordText.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <map>

#include "agent/Find.h"
#include "agent/Follow.h"
#include "show/Words.h"
#include "verbs/Enums.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// The names of jobs. Of a deleted one the event has the id only.
class CJobNames {
public:
    explicit CJobNames(CCall& call) : m_call(call) {
        try {
            for (const auto& job : AllJobs(*call.Agent.Look()))
                m_names[job.Info.Id] = job.Info.Name;
        } catch (const CFailure& failure) {
            if (failure.Exit() != EExit::Refused) throw;
            call.Out.Note(std::string("jobs are shown by their ids: ") + failure.what());
            m_isClosed = true;
        }
    }

    /// Empty when it can't be found out.
    std::string Of(const apigen::Guid& job) {
        if (const auto found = m_names.find(job); found != m_names.end()) return found->second;
        if (!Ask(job)) return {};
        return m_names[job];
    }

    /// It may have another one now.
    void Renew(const apigen::Guid& job) { Ask(job); }

private:
    bool Ask(const apigen::Guid& id) {
        if (m_isClosed) return false;
        try {
            const auto job = m_call.Agent.Look()->FindBackupJob(id);
            if (job == nullptr) return false;
            m_names[id] = job->GetInfo().Name;
            return true;
        } catch (const apigen::InterruptedError&) {
            throw;
        } catch (const std::exception&) {  // deleted meanwhile, an agent that is away: the event counts
            return false;
        }
    }

    CCall& m_call;
    std::map<apigen::Guid, std::string> m_names;
    bool m_isClosed = false;  ///< an owner lets nobody look
};

/// What the events' data have in common, as far as one has it.
struct SData {
    apigen::Optional<apigen::Guid> JobId;
    apigen::Optional<apigen::Guid> SessionId;
    apigen::Optional<std::string> Username;
    apigen::Optional<JobSessionTaskStatus> Status;
};

SData DataOf(const SBaseEvent& event) {
    SData data;
    const auto take = [&](const auto& from) {
        apigen::ForEachField(from, [&](const apigen::FieldInfo& info, const auto& value) {
            using Value = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Value, apigen::Guid>) {
                if (info.Key == "JobId") data.JobId = value;
                if (info.Key == "SessionId") data.SessionId = value;
            } else if constexpr (std::is_same_v<Value, std::string>) {
                if (info.Key == "Username") data.Username = value;
            } else if constexpr (std::is_same_v<Value, JobSessionTaskStatus>) {
                data.Status = value;
            }
        });
    };
    Visit(event,
          Overloaded{[&](const SEventBackupJobCreated& from) { take(from); },
                     [&](const SEventBackupJobDeleted& from) { take(from); },
                     [&](const SEventBackupJobModified& from) { take(from); },
                     [&](const SEventBackupSourceUpdated& from) { take(from); },
                     [&](const SEventBackupModeChanged& from) { take(from); },
                     [&](const SEventBackupJobFinished& from) { take(from); },
                     [&](const SEventBackupJobStarted& from) { take(from); },
                     [&](const SEventBackupJobRetried& from) { take(from); }, [](const SBaseEvent&) {}});
    return data;
}

/// "job "home" started by root  session 1a2b3c4d"
std::string Words(const SBaseEvent& event, const SData& data, const std::string& name) {
    if (!data.JobId) return "an event of the kind " + ToText(event.Type);
    const std::string job = "job " + (name.empty() ? IdText(*data.JobId) : Quoted(name));
    std::string words;
    switch (event.Type) {
        case EEventType::BackupJobCreated:
            words = job + " created";
            break;
        case EEventType::BackupJobDeleted:
            words = job + " deleted";
            break;
        case EEventType::BackupJobModified:
            words = job + " changed";
            break;
        case EEventType::BackupSourceUpdated:
            words = "source of " + job + " changed";
            break;
        case EEventType::BackupModeChanged:
            words = "backup mode of " + job + " changed";
            break;
        case EEventType::BackupJobFinished:
            words = job + " ended";
            break;
        case EEventType::BackupJobStarted:
            words = job + " started";
            break;
        case EEventType::BackupJobRetried:
            words = job + " is tried again";
            break;
        default:
            words = job + ": " + ToText(event.Type);
    }
    if (data.Username && !data.Username->empty()) words += " by " + Escaped(*data.Username);
    if (data.Status) words += ": " + ToText(*data.Status);
    constexpr std::size_t Digits = 8;
    if (data.SessionId) words += "  session " + IdText(*data.SessionId).substr(0, Digits);
    return words;
}

std::string LocalTime(const SDateTime& time, const char* format) {
    const std::time_t seconds = time.seconds;
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr) return "-";
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

SDateTime Now() {
    SDateTime now;
    now.seconds = std::time(nullptr);
    return now;
}

const std::vector<SColumn>& Columns() {
    static const std::vector<SColumn> columns{
        {"TIME", "CreateTimeUTC", EKind::Time},
        {"KIND", "Type"},
        {"JOB", "JobName"},
        {"JOB ID", "JobId", EKind::Id},
        {"SESSION", "SessionId", EKind::Id},
        {"STATUS", "Status", EKind::Outcome},
        {"BY", "Username"},
        {"SOURCE", "SourceType"},
        {"NUMBER", "Id", EKind::Number},
    };
    return columns;
}

Json RowOf(const SBaseEvent& event, const SData& data, const std::string& name) {
    Json row = ToJson(event);
    row["JobId"] = data.JobId ? Json(IdText(*data.JobId)) : Json(nullptr);
    row["JobName"] = name.empty() ? Json(nullptr) : Json(name);
    row["SessionId"] = data.SessionId ? Json(IdText(*data.SessionId)) : Json(nullptr);
    row["Status"] = data.Status ? Json(ToText(*data.Status)) : Json(nullptr);
    row["Username"] = data.Username ? Json(*data.Username) : Json(nullptr);
    return row;
}

EExit Events(CCall& call) {
    constexpr long Most = 1'000'000'000;
    const auto count = call.Number("--count", 1, Most);
    const auto seconds = call.Number("--for", 1, Most);
    if (!count && !seconds && !call.Has("--follow")) {
        throw CFailure(EExit::Usage, "the agent keeps no events, so only those to come can be shown",
                       "say how long to watch: --follow (until Ctrl-C), --count N or --for SECONDS");
    }
    std::vector<EEventType> kinds;
    for (const auto& kind : call.Values("--kind"))
        kinds.push_back(EnumNamed<EEventType>("--kind", kind));
    const auto until = seconds ? std::chrono::steady_clock::now() + std::chrono::seconds(*seconds)
                               : std::chrono::steady_clock::time_point::max();

    CJobNames names(call);
    long shown = 0;
    std::string day = LocalTime(Now(), "%Y-%m-%d");
    const auto onEvent = [&](const SBaseEvent& event) {
        const SData data = DataOf(event);
        if (data.JobId && event.Type == EEventType::BackupJobModified) names.Renew(*data.JobId);
        const std::string name = data.JobId ? names.Of(*data.JobId) : std::string();
        if (!kinds.empty() && std::find(kinds.begin(), kinds.end(), event.Type) == kinds.end()) return true;
        if (call.Out.IsForPeople()) {
            const std::string today = LocalTime(event.CreateTimeUTC, "%Y-%m-%d");
            if (std::exchange(day, today) != today) call.Out.Raw(today + "\n");
            call.Out.Raw(LocalTime(event.CreateTimeUTC, "%H:%M:%S") + "  " + Words(event, data, name) + "\n");
        } else {
            call.Out.Row(Columns(), RowOf(event, data, name));
        }
        call.Out.Flush();
        return !count || ++shown < *count;
    };
    const auto onAway = [&](const std::string& reason) {
        // The agent may as well live, and have sent what can't be told into events.
        call.Out.Note(reason.empty() ? "events come again; some may have been missed"
                                     : "events have broken off (" + reason + "); waiting for the agent");
    };
    const auto onUnreadable = [&](const std::string& reason) {
        call.Out.Note("an event that can't be read is left out: " + reason);
    };
    try {
        FollowEvents(
            call.Agent, onEvent, onUnreadable, onAway, [] { return false; }, until);
    } catch (const CFailure& failure) {
        // It has been asked for, and there is nothing to say about it.
        if (failure.Exit() != EExit::Interrupted) throw;
        if (!call.Out.IsForPeople()) call.Out.EndRows(Columns());
        return EExit::Interrupted;
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows(Columns());
    return EExit::Done;
}

constexpr std::array<const char*, 8> Kinds{
    "BackupJobCreated",  "BackupJobDeleted",  "BackupJobModified", "BackupSourceUpdated",
    "BackupModeChanged", "BackupJobFinished", "BackupJobStarted",  "BackupJobRetried",
};

constexpr std::array Options{
    SOption{.Name = "--follow", .Help = "until Ctrl-C", .Short = 'f'},
    SOption{.Name = "--count", .Value = "N", .Help = "until so many events have come", .Short = 'n'},
    SOption{.Name = "--for", .Value = "SECONDS", .Help = "for so long"},
    SOption{.Name = "--kind",
            .Value = "KIND",
            .Help = "only events of this kind, BackupJobFinished for instance",
            .Word = EWord::Choice,
            .Choices = Kinds,
            .IsRepeated = true},
};

constexpr std::array Table{
    SVerb{
        .Noun = "",
        .Name = "events",
        .Help = "shows what happens at the agent, as it happens",
        .Details =
            "The agent keeps no events: those that come from now on are shown, a line each. How long is said "
            "by "
            "--follow, --count or --for, of which the first to be over counts. An agent that is restarted is "
            "waited for, for a minute; what happened meanwhile is not told. An event that can't be read is "
            "left "
            "out, with a line on standard error, and does not count.",
        .Example = "zamctl events --follow\n"
                   "zamctl events --count 1 --kind BackupJobFinished --output jsonl",
        .Arguments = {},
        .Options = Options,
        .Run = Events,
        .Shape = "[Event]",
        .IsFollowing = true},
};

}  // namespace

std::span<const SVerb> EventVerbs() {
    return Table;
}

}  // namespace zamctl
