// SPDX-License-Identifier: Apache-2.0
#include "verbs/Following.h"

#include <unistd.h>

#include <string>

#include "agent/Find.h"
#include "agent/Follow.h"
#include "agent/Interrupt.h"
#include "show/CProgress.h"
#include "show/Terminal.h"
#include "show/Words.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// Whether there is a point of it for certain. The record names one, and its kind, from the beginning on.
bool HasMadePoint(const SBackupJobSessionInfo& info) {
    return info.State == JobState::Stopped && info.Result != JobResult::Failed;
}

std::string Summary(const SBackupJobSessionInfo& info) {
    std::string words = Quoted(info.JobName) + ": " + std::string(NameOf(info.Result));
    if (HasMadePoint(info) && info.SessionAlgorithm != JobSessionAlgorithm::Unknown)
        words += ", " + std::string(NameOf(info.SessionAlgorithm));
    if (HasMadePoint(info) || info.BackedUpSizeBytes != 0 || info.TransferredSizeBytes != 0)
        words += ", " + SizeWords(info.BackedUpSizeBytes) + " of files, " +
                 SizeWords(info.TransferredSizeBytes) + " stored";
    const auto took = std::chrono::milliseconds(
        (info.EndTimeUtc.seconds - info.StartTimeUtc.seconds) * 1000 +
        (info.EndTimeUtc.milliseconds - static_cast<long>(info.StartTimeUtc.milliseconds)));
    if (info.EndTimeUtc.seconds != 0 && took.count() >= 0) words += ", in " + SpanWords(took);
    return words;
}

/// Asked once, when Ctrl-C has come. True when the watching goes on.
bool AskOnInterrupt(CCall& call, const SBackupJobSessionInfo& info) {
    if (!IsInputTerminal() || !IsErrorTerminal()) return false;
    bool isToStop = false;
    try {
        isToStop = Confirm("Stop the session (y), or only stop watching (n)?");
    } catch (const CFailure& failure) {
        if (failure.Exit() != EExit::Interrupted) throw;
    }
    if (!isToStop) {
        call.Out.Note("the session goes on: zamctl session follow " + IdText(info.Uid).substr(0, 8));
        return false;
    }
    auto change = call.Change();
    if (const auto session = change->FindBackupJobSessionById(info.Uid))
        (void)session->Stop("stopped from zamctl");
    call.Out.Note("asked the session to stop");
    return true;
}

}  // namespace

EExit ExitOf(const SBackupJobSessionInfo& info) {
    if (info.State != JobState::Stopped) return EExit::Done;
    switch (info.Result) {
        case JobResult::Warning:
            return EExit::Warnings;
        case JobResult::Failed:
            return EExit::SessionFailed;
        default:
            return EExit::Done;
    }
}

Json SessionRow(const COutput& out, const SBackupJobSessionInfo& info) {
    Json row = ToJson(info);
    if (out.IsForPeople() && !HasMadePoint(info)) {
        row["SessionAlgorithm"] = nullptr;
        row["PointId"] = nullptr;
    }
    return row;
}

std::string LogLine(const COutput& out, const SLogDetail& line) {
    static const SColumn Weight{"", "", EKind::Outcome};
    std::string text = Escaped(line.Message);
    if (line.Type == ELogDetailType::Warning || line.Type == ELogDetailType::Error)
        text = out.Cell(Weight, std::string(NameOf(line.Type))) + ": " + text;
    return text;
}

const std::vector<SColumn>& SessionListColumns() {
    static const std::vector<SColumn> columns{
        {"SESSION", "Uid", EKind::Id},
        {"JOB", "JobName"},
        {"STARTED", "StartTimeUtc", EKind::Time},
        {"STATE", "State", EKind::Text, true},
        {"RESULT", "Result", EKind::Outcome},
        {"MADE", "SessionAlgorithm", EKind::Text, true},
        {"FILES", "BackedUpSizeBytes", EKind::Bytes, true},
        {"STORED", "TransferredSizeBytes", EKind::Bytes, true},
        {"%", "PercentCompleted", EKind::Percent, true},
    };
    return columns;
}

const std::vector<SColumn>& SessionColumns() {
    static const std::vector<SColumn> columns{
        {"Session", "Uid"},
        {"Job", "JobName"},
        {"State", "State"},
        {"Result", "Result", EKind::Outcome},
        {"Made", "SessionAlgorithm"},
        {"Started", "StartTimeUtc", EKind::Time},
        {"Ended", "EndTimeUtc", EKind::Time},
        {"Completed", "PercentCompleted", EKind::Percent},
        {"Files", "BackedUpSizeBytes", EKind::Bytes},
        {"Read", "ReadSizeBytes", EKind::Bytes},
        {"Stored", "TransferredSizeBytes", EKind::Bytes},
        {"Rate", "ProcessingRateByteInSec", EKind::Rate},
        {"Destination", "BackupDestination"},
        {"Point", "PointId"},
    };
    return columns;
}

EExit WatchSession(CCall& call, const apigen::Guid& sessionId) {
    const bool isForPeople = call.Out.IsForPeople();
    CProgress progress(isForPeople && !call.Common().Output.IsQuiet, call.Common().Output.HasColours);
    SBackupJobSessionInfo current;
    current.Uid = sessionId;
    SWatcher watcher;
    watcher.OnChange = [&](const SBackupJobSessionInfo& info, const std::vector<SLogDetail>& newLines) {
        current = info;
        if (!isForPeople) {
            call.Out.Row(SessionListColumns(), ToJson(info));
            call.Out.Flush();
            return;
        }
        if (!newLines.empty()) {
            progress.Clear();
            for (const auto& line : newLines)
                call.Out.Say(LogLine(call.Out, line));
            call.Out.Flush();
        }
        if (info.State != JobState::Stopped) progress.Show(info);
    };
    watcher.OnAway = [&](const std::string& reason) {
        if (reason.empty()) {
            progress.Clear();
            call.Out.Note("the agent is there again");
        } else if (isForPeople && IsErrorTerminal()) {
            progress.ShowWord("the agent is away; waiting for it to come back");
        } else {
            call.Out.Note("the agent is away (" + reason + "); waiting for it");
        }
    };
    watcher.OnInterrupt = [&] {
        progress.Clear();
        return AskOnInterrupt(call, current);
    };
    const auto info = FollowSession(call.Agent, sessionId, watcher);
    progress.Clear();
    call.Out.Say(Summary(info));
    if (!isForPeople) call.Out.EndRows(SessionListColumns());
    return ExitOf(info);
}

}  // namespace zamctl
