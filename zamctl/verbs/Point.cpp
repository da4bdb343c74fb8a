// SPDX-License-Identifier: Apache-2.0
// Restore points: what is there, what is in them, and getting it back. The files in a point are the business of the
// agent's own command on this host, which needs no agent to run.
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/HostCommand.h"
#include "verbs/JobOptions.h"
#include "verbs/Verb.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

void AddOption(const CCall& call, std::vector<std::string>& arguments, const char* name) {
    if (const auto value = call.Optional(name)) arguments.insert(arguments.end(), {name, *value});
}

EExit List(CCall& call) {
    const auto product = call.Agent.Look();
    const auto jobs = FindJobs(*product, call.Values("JOB"));
    static const std::vector<SColumn> columns{
        {"POINT", "Id", EKind::Id},
        {"JOB", "JobName"},
        {"MADE", "CreationTimeUtc", EKind::Time},
        {"TYPE", "Type", EKind::Text, true},
        {"FILES", "ApproxSize", EKind::Bytes},
        {"STORED", "StorageSize", EKind::Bytes, true},
    };
    for (const auto& job : jobs) {
        for (const auto& point : job.Job->GetOibsForRestore()) {
            Json row = ToJson(point);
            row["JobName"] = job.Info.Name;
            call.Out.Row(columns, row);
        }
    }
    call.Out.EndRows(columns, "there are no restore points yet");
    return EExit::Done;
}

EExit Files(CCall& call) {
    std::vector<std::string> arguments{"files", call.Value("POINT"), "--json"};
    AddOption(call, arguments, "--job");
    AddOption(call, arguments, "--password-file");
    for (const auto& path : call.Values("PATH"))
        arguments.insert(arguments.end(), {"--path", path});
    static const std::vector<SColumn> columns{
        {"TYPE", "type", EKind::Text, true},
        {"MODE", "mode", EKind::Text, true},
        {"USER", "user", EKind::Number, true},
        {"GROUP", "group", EKind::Number, true},
        {"SIZE", "size", EKind::Bytes},
        {"CHANGED", "changed", EKind::Time},
        {"PATH", "path"},
    };
    const EExit exit = RunHostCommand(
        call, arguments, [&](std::string_view line) { call.Out.Row(columns, ParseJson(std::string(line))); });
    call.Out.EndRows(columns, "the point is empty");
    return exit;
}

EExit Restore(CCall& call) {
    std::vector<std::string> arguments{"restore", call.Value("POINT"), "--to",
                                       AbsolutePath(call.Value("--to"))};
    AddOption(call, arguments, "--job");
    AddOption(call, arguments, "--password-file");
    if (call.Has("--dry-run")) arguments.emplace_back("--dry-run");
    for (const auto& path : call.Values("PATH"))
        arguments.insert(arguments.end(), {"--path", path});
    return RunHostCommand(call, arguments, [&](std::string_view line) { call.Out.Say(Escaped(line)); });
}

EExit Verify(CCall& call) {
    std::vector<std::string> arguments{"verify"};
    if (const auto job = call.Optional("JOB")) arguments.insert(arguments.end(), {"--job", *job});
    AddOption(call, arguments, "--parts");
    AddOption(call, arguments, "--password-file");
    return RunHostCommand(call, arguments, [&](std::string_view line) { call.Out.Say(Escaped(line)); });
}

EExit Forget(CCall& call) {
    std::vector<std::string> arguments{"forget", "--orphans"};
    if (call.Has("--dry-run")) {
        arguments.emplace_back("--dry-run");
    } else {
        call.RequireYes("Remove all points of jobs that were deleted, for good?");
    }
    return RunHostCommand(call, arguments, [&](std::string_view line) { call.Out.Say(Escaped(line)); });
}

constexpr const char* PointHelp = "its id, a unique beginning of it, or \"latest\"";
constexpr const char* HostDetails =
    "This needs the agent's programs on this host, but no agent that runs: it works with the agent's "
    "folders.";

constexpr std::array ListArguments{SArgument{"JOB", "only its points", EWord::Job, true, true}};
constexpr std::array FilesArguments{
    SArgument{"POINT", PointHelp, EWord::Point},
    SArgument{"PATH", "only this file or folder, from the root on", EWord::Text, true, true}};
constexpr std::array RestoreArguments{
    SArgument{"POINT", PointHelp, EWord::Point},
    SArgument{"PATH", "only this file or folder, from the root on; all without one", EWord::Text, true,
              true}};
constexpr std::array VerifyArguments{SArgument{"JOB", "only its points", EWord::Job, true}};

constexpr SOption JobOption{
    .Name = "--job", .Value = "JOB", .Help = "whose \"latest\" is meant", .Word = EWord::Job};
constexpr SOption PasswordOption{.Name = "--password-file",
                                 .Value = "FILE",
                                 .Help = "file with the password, where the agent does not have it",
                                 .Word = EWord::File};
constexpr std::array FilesOptions{JobOption, PasswordOption};
constexpr std::array RestoreOptions{
    SOption{.Name = "--to",
            .Value = "DIR",
            .Help = "the folder below which each entry lands with its whole original path",
            .Word = EWord::Folder,
            .IsRequired = true},
    SOption{.Name = "--dry-run", .Help = "only tells what would be restored"}, JobOption, PasswordOption};
constexpr std::array VerifyOptions{SOption{.Name = "--parts",
                                           .Value = "NUMBER",
                                           .Help = "only the next of so many parts; which one is remembered"},
                                   PasswordOption};

constexpr std::array ForgetOptions{
    SOption{.Name = "--orphans", .Help = "the points of all jobs that were deleted", .IsRequired = true},
    SOption{.Name = "--dry-run", .Help = "only tells what would be removed"}};

constexpr std::array Table{
    SVerb{.Noun = "point",
          .Name = "list",
          .Help = "lists restore points",
          .Example = "zamctl point list home",
          .Arguments = ListArguments,
          .Run = List,
          .Shape = "[PointRow]"},
    SVerb{.Noun = "point",
          .Name = "files",
          .Help = "lists what is in a point",
          .Details = HostDetails,
          .Example = "zamctl point files latest --job home /home/me",
          .Arguments = FilesArguments,
          .Options = FilesOptions,
          .Run = Files,
          .Shape = "[FileRow]"},
    SVerb{.Noun = "point",
          .Name = "restore",
          .Help = "brings back a point, or a part of it",
          .Details = HostDetails,
          .Example = "zamctl point restore latest --job home --to /tmp/restored /home/me/notes.txt\n"
                     "zamctl point restore 1a2b3c4d --to /mnt/restored --dry-run",
          .Arguments = RestoreArguments,
          .Options = RestoreOptions,
          .Run = Restore,
          .HasForms = false},
    SVerb{.Noun = "point",
          .Name = "verify",
          .Help = "reads what is stored and tells whether it is sound",
          .Details = HostDetails,
          .Example = "zamctl point verify home --parts 10",
          .Arguments = VerifyArguments,
          .Options = VerifyOptions,
          .Run = Verify,
          .HasForms = false},
    SVerb{.Noun = "point",
          .Name = "forget",
          .Help = "removes the points of deleted jobs, and frees their space",
          .Details = HostDetails,
          .Example = "zamctl point forget --orphans --dry-run",
          .Options = ForgetOptions,
          .Run = Forget,
          .HasForms = false},
};

}  // namespace

std::span<const SVerb> PointVerbs() {
    return Table;
}

}  // namespace zamctl
