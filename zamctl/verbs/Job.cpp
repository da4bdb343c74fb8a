// SPDX-License-Identifier: Apache-2.0
// Jobs: made, changed, started, looked at.
#include <unistd.h>

#include <array>

#include "agent/Find.h"
#include "agent/NextRun.h"
#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/Enums.h"
#include "verbs/Following.h"
#include "verbs/JobFile.h"
#include "verbs/JobOptions.h"
#include "verbs/JobRow.h"
#include "verbs/Verb.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr std::array<const char*, 3> Priorities{"low", "normal", "high"};

constexpr std::array OneJob{SArgument{"JOB", "its name or id, or a unique beginning", EWord::Job}};

const std::vector<SColumn>& JobColumns() {
    static const std::vector<SColumn> columns{
        {"JOB", "Name"},
        {"ID", "Id", EKind::Id, true},
        {"ENABLED", "Enabled", EKind::Truth},
        {"STATE", "LastSession.State", EKind::Text, true},
        {"RESULT", "LastSession.Result", EKind::Outcome},
        {"LAST SUCCESS", "LastBackupTimeUtc", EKind::Time},
        {"NEXT RUN", "NextRunTimeUtc", EKind::Time},
    };
    return columns;
}

const std::vector<SColumn>& FindingColumns() {
    static const std::vector<SColumn> columns{{"WEIGHT", "MessageType", EKind::Outcome},
                                              {"FINDING", "Message", EKind::Sentence}};
    return columns;
}

std::string Described(const SBackupJobInfo& info) {
    return "Job " + Quoted(info.Name) + " (" + IdText(info.Id) + ")";
}

/// For programs: a row where the verb gives a list.
void ShowForPrograms(CCall& call, const std::vector<SColumn>& columns, const Json& item) {
    if (call.Out.IsForPeople()) return;
    if (call.Verb().Shape[0] == '[') {
        call.Out.Row(columns, item);
    } else {
        call.Out.Item(columns, item);
    }
}

/// What happened, for people; the job as it is now, for programs.
void ShowChanged(CCall& call, const IBackupJob& job, const std::string& what) {
    const auto info = job.GetInfo();
    call.Out.Say(Described(info) + " " + what);
    ShowForPrograms(call, {{"Id", "Id"}, {"Name", "Name"}, {"Enabled", "Enabled"}}, ToJson(info));
}

void SayFindings(CCall& call, const std::vector<SCheckJobValidityMessage>& findings) {
    for (const auto& finding : findings) {
        if (finding.MessageType != ELogDetailType::Warning && finding.MessageType != ELogDetailType::Error)
            continue;
        call.Out.Note(std::string(finding.MessageType == ELogDetailType::Error ? "error: " : "warning: ") +
                      Escaped(finding.Message));
    }
}

/// A dry run: what would be sent, and what the agent says of it. Only of a job that it has can it say that; so it is given
/// one of another name, for a moment.
EExit DryRun(CCall& call, IZamProduct& product, const SBackupJobConfigurationInfo& config) {
    SBackupJobConfigurationInfo copy = config;
    copy.JobName = config.JobName + " (dry run " + std::to_string(::getpid()) + ")";
    // One that is kept as it is need not be given, and is not known.
    if (copy.StorageInfo.EncryptionSettings && !copy.StorageInfo.EncryptionSettings->Password)
        copy.StorageInfo.EncryptionSettings->Password = "dry run";
    const auto job = product.CreateBackupJob(copy);
    if (job == nullptr) throw CFailure(EExit::Refused, "the agent makes no job");
    const apigen::Guid id = job->GetInfo().Id;
    std::vector<SCheckJobValidityMessage> findings;
    try {
        findings = job->CheckValidity();
    } catch (const apigen::ApiException&) {
        (void)product.DeleteBackupJob(id);
        throw;
    }
    (void)product.DeleteBackupJob(id);

    Json result;
    result["Configuration"] = ExportOf(product, config);
    result["Findings"] = Json::array();
    bool hasError = false;
    for (const auto& finding : findings) {
        result["Findings"].push_back(ToJson(finding));
        hasError = hasError || finding.MessageType == ELogDetailType::Error;
    }
    if (!call.Out.IsForPeople()) {
        ShowForPrograms(call, {{"Configuration", "Configuration"}, {"Findings", "Findings"}}, result);
    } else {
        call.Out.Heading("This would be sent:");
        call.Out.Raw(JsonText(result["Configuration"], true) + "\n");
        call.Out.Heading(findings.empty() ? "The agent has nothing to say against it." : "The agent says:");
        for (const auto& finding : result["Findings"])
            call.Out.Row(FindingColumns(), finding);
        if (!findings.empty()) call.Out.EndRows(FindingColumns());
    }
    return hasError ? EExit::Refused : EExit::Done;
}

EExit List(CCall& call) {
    const auto product = call.Agent.Look();
    for (const auto& job : AllJobs(*product))
        call.Out.Row(JobColumns(), RowOf(ViewOf(job)));
    call.Out.EndRows(JobColumns(), "there are no jobs yet: zamctl job create --help");
    return EExit::Done;
}

std::string SourceWords(const SBackupSourceInfo& source) {
    if (source.BackupMode == JobBackupMode::EntireMachine) return "the entire machine";
    std::vector<std::string> words = source.IncludeDirs;
    for (const auto& object : source.Objects)
        words.push_back(object.Object);
    return words.empty() ? "nothing" : Joined(words);
}

std::string RetentionWords(const SBackupJobRetentionInfo& retention) {
    std::string words;
    if (retention.RestorePointsCount > 0)
        words = "the newest " + Counted(static_cast<std::size_t>(retention.RestorePointsCount), "point");
    if (retention.RetainDays)
        words += std::string(words.empty() ? "" : ", and ") + "all of the last " +
                 Counted(*retention.RetainDays, "day");
    return words.empty() ? "all points" : words;
}

EExit Show(CCall& call) {
    const auto product = call.Agent.Look();
    const auto job = FindJob(*product, call.Value("JOB"));
    const auto view = ViewOf(job);
    Json item = RowOf(view);
    item["Configuration"] = ExportOf(*product, view.Config);
    if (call.Out.IsForPeople()) {
        // In words; programs have the definition itself.
        item["Last"] = LastWords(view);
        item["Source"] = SourceWords(view.Config.Source);
        item["Without"] = Joined(view.Config.Source.ExcludeDirs);
        item["Schedule"] = ScheduleWords(view.Config.ScheduleInfo);
        item["Keeps"] = RetentionWords(view.Config.RetentionInfo);
        item["IsEncrypted"] = view.Config.StorageInfo.EncryptionSettings.HasValue();
    }
    std::vector<SColumn> columns{
        {"Job", "Name"},
        {"Id", "Id"},
        {"Enabled", "Enabled", EKind::Truth},
        {"Source", "Source"},
        {"Left out", "Without"},
        {"Repository", "Configuration.RepositoryName"},
        {"Schedule", "Schedule"},
        {"Next run", "NextRunTimeUtc", EKind::Time},
        {"Keeps", "Keeps"},
        {"Encrypted", "IsEncrypted", EKind::Truth},
        {"Last run", "Last", EKind::Outcome},
        {"Last success", "LastBackupTimeUtc", EKind::Time},
    };
    if (view.Config.Source.ExcludeDirs.empty()) columns.erase(columns.begin() + 4);
    if (!call.Out.IsForPeople()) columns = {JobColumns()};
    call.Out.Item(columns, item);
    return EExit::Done;
}

EExit Create(CCall& call) {
    auto change = call.Change();
    SBackupJobConfigurationInfo config;
    if (const auto file = call.Optional("--file")) {
        const auto objects = ObjectsIn(ReadText(*file));
        if (objects.size() != 1)
            throw CFailure(EExit::Usage, "the file holds " + Counted(objects.size(), "job") + ", not one");
        ImportInto(*change, objects.front(), config);
    } else {
        config.Source.BackupMode = JobBackupMode::FileLevel;
        config.StorageInfo.CompressionLevel = JobCompressionLevel::Optimal;
        config.RetentionInfo.RestorePointsCount = 14;
        if (!call.Has("--repo"))
            throw CFailure(EExit::Usage, "where are the backups to go?",
                           "say --repo REPOSITORY; zamctl repo list shows what there is");
        if (!call.Has("--dir") && !call.Has("--volume") && !call.Has("--machine"))
            throw CFailure(EExit::Usage, "what is to be backed up?",
                           "say --dir DIR, --volume VOLUME or --machine");
    }
    if (const auto name = call.Optional("NAME")) config.JobName = *name;
    ApplyJobOptions(call, *change, config);
    if (call.Has("--dry-run")) return DryRun(call, *change, config);
    const auto job = change->CreateBackupJob(config);
    if (job == nullptr) throw CFailure(EExit::Refused, "the agent makes no job");
    ShowChanged(call, *job, "created");
    SayFindings(call, job->CheckValidity());
    return EExit::Done;
}

void Change(CCall& call, IBackupJob& job, const SBackupJobConfigurationInfo& config) {
    job.UpdateConfigurationInfo(config);
    ShowChanged(call, job, "changed");
    SayFindings(call, job.CheckValidity());
}

EExit Update(CCall& call) {
    if (!HasJobOptions(call) && !call.Has("--name"))
        throw CFailure(EExit::Usage, "what is to be changed?", "see zamctl job update --help");
    auto change = call.Change();
    const auto job = FindJob(*change, call.Value("JOB"));
    auto config = job.Job->GetConfigurationInfo();
    if (const auto file = call.Optional("--file")) {
        const auto objects = ObjectsIn(ReadText(*file));
        if (objects.size() != 1)
            throw CFailure(EExit::Usage, "the file holds " + Counted(objects.size(), "job") + ", not one");
        ImportInto(*change, objects.front(), config);
    }
    if (const auto name = call.Optional("--name")) config.JobName = *name;
    ApplyJobOptions(call, *change, config);
    if (call.Has("--dry-run")) return DryRun(call, *change, config);
    Change(call, *job.Job, config);
    return EExit::Done;
}

EExit Export(CCall& call) {
    const auto product = call.Agent.Look();
    const auto words = call.Values("JOB");
    Json all = Json::array();
    for (const auto& job : FindJobs(*product, words))
        all.push_back(ExportOf(*product, job.Job->GetConfigurationInfo()));
    call.Out.Raw(JsonText(words.size() == 1 ? all.front() : all, true) + "\n");
    return EExit::Done;
}

EExit Import(CCall& call) {
    const std::string file = call.Value("FILE");
    const auto objects = ObjectsIn(ReadText(file));
    if (objects.empty()) throw CFailure(EExit::Usage, "the file " + Quoted(file) + " holds no job");
    auto change = call.Change();
    // A mistake in the last one keeps the first from being made.
    std::vector<SBackupJobConfigurationInfo> configs(objects.size());
    for (std::size_t i = 0; i < objects.size(); ++i)
        ImportInto(*change, objects[i], configs[i]);
    EExit exit = EExit::Done;
    for (const auto& config : configs) {
        const auto jobs = AllJobs(*change);
        const auto same = std::find_if(jobs.begin(), jobs.end(),
                                       [&](const SFoundJob& job) { return job.Info.Name == config.JobName; });
        if (call.Has("--dry-run")) {
            exit = std::max(exit, DryRun(call, *change, config));
        } else if (same != jobs.end()) {
            call.RequireYes("Replace the definition of the job " + Quoted(config.JobName) + "?");
            Change(call, *same->Job, config);
        } else if (const auto job = change->CreateBackupJob(config)) {
            ShowChanged(call, *job, "created");
            SayFindings(call, job->CheckValidity());
        }
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows({{"Id", "Id"}, {"Name", "Name"}, {"Enabled", "Enabled"}});
    return exit;
}

EExit Edit(CCall& call) {
    // Others may go on while somebody thinks in an editor: control is taken for the change alone.
    const auto product = call.Agent.Look();
    const auto job = FindJob(*product, call.Value("JOB"));
    const Json before = ExportOf(*product, job.Job->GetConfigurationInfo());
    const bool isChanged = EditText(JsonText(before, true) + "\n", [&](const std::string& text) {
        auto change = call.Change();
        const auto present = change->FindBackupJob(job.Info.Id);
        if (present == nullptr) throw CFailure(EExit::Refused, "the job was deleted meanwhile");
        auto config = present->GetConfigurationInfo();
        if (ExportOf(*change, config) != before)
            throw CFailure(EExit::Refused, "the job was changed by somebody else meanwhile", "begin again");
        ImportInto(*change, ParseJson(text), config);
        Change(call, *present, config);
    });
    if (!isChanged) call.Out.Note("nothing was changed");
    return EExit::Done;
}

EExit Diff(CCall& call) {
    const auto objects = ObjectsIn(ReadText(call.Value("FILE")));
    if (objects.size() != 1)
        throw CFailure(EExit::Usage, "the file holds " + Counted(objects.size(), "job") + ", not one");
    const auto product = call.Agent.Look();
    const auto job = FindJob(*product, call.Value("JOB"));
    auto config = job.Job->GetConfigurationInfo();
    const Json present = ToJson(config);
    ImportInto(*product, objects.front(), config);
    static const std::vector<SColumn> columns{
        {"FIELD", "Path"}, {"PRESENT", "Present", EKind::Sentence}, {"IN THE FILE", "New", EKind::Sentence}};
    for (const auto& difference : Differences(present, ToJson(config)))
        call.Out.Row(
            columns,
            Json{{"Path", difference.Path}, {"Present", difference.Present}, {"New", difference.New}});
    call.Out.EndRows(columns, "no difference");
    return EExit::Done;
}

EExit Delete(CCall& call) {
    const auto product = call.Agent.Look();
    std::vector<SBackupJobInfo> jobs;
    for (const auto& job : FindJobs(*product, call.Values("JOB")))
        jobs.push_back(job.Info);
    for (const auto& job : jobs)
        call.RequireYes("Delete the job " + Quoted(job.Name) + "? Its restore points stay.");
    auto change = call.Change();
    for (const auto& job : jobs) {
        if (!change->DeleteBackupJob(job.Id))
            throw CFailure(EExit::NotFound, "the job " + Quoted(job.Name) + " is gone already");
        call.Out.Say(Described(job) + " deleted");
        if (!call.Out.IsForPeople()) call.Out.Row({{"Id", "Id"}, {"Name", "Name"}}, ToJson(job));
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows({{"Id", "Id"}, {"Name", "Name"}});
    return EExit::Done;
}

EExit Start(CCall& call) {
    apigen::Guid session;
    {
        auto change = call.Change();
        const auto job = FindJob(*change, call.Value("JOB"));
        SJobStartOptions options;
        if (call.Has("--full")) options.ActiveFull = EJobStartActiveFullMode::Enabled;
        if (call.Has("--no-retries")) options.Retries = EJobStartRetriesMode::Disabled;
        if (const auto priority = EnumOption<EJobStartPriorityMode>(call, "--priority"))
            options.Priority = *priority;
        const auto started = job.Job->Start(options);
        if (started == nullptr) throw CFailure(EExit::Refused, "the agent tells of no session");
        const auto info = started->GetInfo();
        session = info.Uid;
        if (!call.Has("--follow")) {
            call.Out.Say("Session " + IdText(session) + " of " + Quoted(job.Info.Name) +
                         " started; zamctl session follow " + IdText(session).substr(0, 8) + " watches it");
            if (!call.Out.IsForPeople()) call.Out.Item(SessionListColumns(), ToJson(info));
            return EExit::Done;
        }
    }
    return WatchSession(call, session);
}

EExit Stop(CCall& call) {
    auto change = call.Change();
    const auto job = FindJob(*change, call.Value("JOB"));
    const auto session = job.Job->FindLastBackupJobSession();
    if (session == nullptr || !session->Stop(call.Optional("--message").value_or("stopped from zamctl")))
        throw CFailure(EExit::Refused, "the job " + Quoted(job.Info.Name) + " is not running");
    call.Out.Say("Asked the session of " + Quoted(job.Info.Name) + " to stop");
    if (!call.Out.IsForPeople()) call.Out.Item(SessionListColumns(), ToJson(session->GetInfo()));
    return EExit::Done;
}

EExit Switch(CCall& call, bool isOn) {
    auto change = call.Change();
    const auto job = FindJob(*change, call.Value("JOB"));
    const bool hasChanged = isOn ? job.Job->Enable() : job.Job->Disable();
    ShowChanged(call, *job.Job,
                std::string(hasChanged ? "" : "was already ") + (isOn ? "enabled" : "disabled"));
    return EExit::Done;
}

EExit Note(CCall& call) {
    if (!call.Has("TEXT")) {
        const auto product = call.Agent.Look();
        const auto job = FindJob(*product, call.Value("JOB"));
        const std::string text = job.Job->GetUserData();
        if (call.Out.IsForPeople()) {
            call.Out.Say(Escaped(text));
        } else {
            call.Out.Item({{"UserData", "UserData"}}, Json{{"UserData", text}});
        }
        return EExit::Done;
    }
    auto change = call.Change();
    const auto job = FindJob(*change, call.Value("JOB"));
    job.Job->SetUserData(call.Value("TEXT"));
    ShowChanged(call, *job.Job, "has the note");
    return EExit::Done;
}

EExit Resolve(CCall& call) {
    static const std::vector<SColumn> columns{{"GIVEN", "SourceInput"},
                                              {"IS", "DisplayName"},
                                              {"TYPE", "ObjectType"},
                                              {"DETAILS", "ResolveDetails", EKind::Text, true}};
    for (const auto& resolved : call.Agent.Look()->ResolveUserInput(ObjectsCalled(call.Values("OBJECT"))))
        call.Out.Row(columns, ToJson(resolved));
    call.Out.EndRows(columns);
    return EExit::Done;
}

constexpr std::array SomeJobs{
    SArgument{"JOB", "its name or id, or a unique beginning", EWord::Job, true, true}};
constexpr std::array DeletedJobs{
    SArgument{"JOB", "its name or id, or a unique beginning", EWord::Job, false, true}};
constexpr std::array NewJob{
    SArgument{"NAME", "the job's name; with --file, that of the file unless it is said", EWord::Text, true}};
constexpr std::array ImportedFile{SArgument{"FILE", "the definitions; \"-\": standard input", EWord::File}};
constexpr std::array DiffArguments{SArgument{"JOB", "the job", EWord::Job},
                                   SArgument{"FILE", "a definition; \"-\": standard input", EWord::File}};
constexpr std::array NoteArguments{
    SArgument{"JOB", "the job", EWord::Job},
    SArgument{"TEXT", "the new text; without it, the present one is shown", EWord::Text, true}};
constexpr std::array Objects{
    SArgument{"OBJECT", "a disk, a volume, a mount point or a path", EWord::Folder, false, true}};

constexpr std::array ChangeOnly{ForceOption};
constexpr std::array ImportOptions{
    SOption{.Name = "--dry-run",
            .Help = "shows what would be sent and what the agent says of it, and changes nothing"},
    ForceOption};
constexpr std::array StartOptions{
    SOption{.Name = "--follow",
            .Help = "watches the session to its end; the exit status tells its result",
            .Short = 'f'},
    SOption{.Name = "--full", .Help = "makes a new full backup"},
    SOption{.Name = "--no-retries", .Help = "does not try again when it fails"},
    SOption{.Name = "--priority",
            .Value = "LEVEL",
            .Help = "low, normal or high",
            .Word = EWord::Choice,
            .Choices = Priorities},
    ForceOption};
constexpr std::array StopOptions{
    SOption{.Name = "--message", .Value = "TEXT", .Help = "goes into the session's log"}, ForceOption};

/// Those of a definition, and the name.
std::span<const SOption> UpdateOptions() {
    static const auto options = [] {
        std::vector<SOption> all{SOption{.Name = "--name", .Value = "NAME", .Help = "the job's new name"}};
        all.insert(all.end(), JobOptions().begin(), JobOptions().end());
        return all;
    }();
    return options;
}

constexpr const char* DefinitionDetails =
    "Without --file the job keeps 14 points, compresses, and runs only when it is started. Paths may be "
    "relative to the "
    "folder that you are in.\n"
    "With --dry-run, the agent is asked about a copy of the job under another name, which is deleted at "
    "once.";

}  // namespace

std::span<const SVerb> JobVerbs() {
    static const std::array verbs{
        SVerb{.Noun = "job",
              .Name = "list",
              .Help = "lists the jobs, with their last and next runs",
              .Example = "zamctl job list",
              .Run = List,
              .Shape = "[JobRow]"},
        SVerb{.Noun = "job",
              .Name = "show",
              .Help = "shows a job",
              .Details = "Programs get the whole definition as \"Configuration\".",
              .Example = "zamctl job show home",
              .Arguments = OneJob,
              .Run = Show,
              .Shape = "Job"},
        SVerb{.Noun = "job",
              .Name = "create",
              .Help = "makes a job",
              .Details = DefinitionDetails,
              .Example = "zamctl job create home --repo disk --dir /home --exclude /home/me/.cache --daily "
                         "22:00 --keep 30\n"
                         "zamctl job create home --repo disk --dir /home --dry-run\n"
                         "zamctl job create --file home.json",
              .Arguments = NewJob,
              .Options = JobOptions(),
              .Run = Create,
              .Shape = "SBackupJobInfo|DryRun"},
        SVerb{.Noun = "job",
              .Name = "update",
              .Help = "changes what is said, and leaves the rest",
              .Details = "An option that lists things, --dir for instance, replaces the whole list.",
              .Example = "zamctl job update home --keep 60 --weekly mon,thu@01:30",
              .Arguments = OneJob,
              .Options = UpdateOptions(),
              .Run = Update,
              .Shape = "SBackupJobInfo|DryRun"},
        SVerb{.Noun = "job",
              .Name = "edit",
              .Help = "changes the definition in $EDITOR",
              .Details = "A mistake brings the text back with its place marked. Leave the text as it is to "
                         "give up. Passwords "
                         "are not shown; null leaves the one that there is.",
              .Example = "zamctl job edit home",
              .Arguments = OneJob,
              .Options = ChangeOnly,
              .Run = Edit,
              .Shape = "SBackupJobInfo"},
        SVerb{.Noun = "job",
              .Name = "start",
              .Help = "starts a run",
              .Details = "With --follow, Ctrl-C asks whether to stop the session or only to stop watching. "
                         "Programs get the session each time that it has changed, a line each (--output "
                         "jsonl or tsv); without it, the session as it begins.",
              .Example = "zamctl job start home --follow",
              .Arguments = OneJob,
              .Options = StartOptions,
              .Run = Start,
              .Shape = "SBackupJobSessionInfo"},
        SVerb{.Noun = "job",
              .Name = "stop",
              .Help = "stops the run that is under way",
              .Example = "zamctl job stop home",
              .Arguments = OneJob,
              .Options = StopOptions,
              .Run = Stop,
              .Shape = "SBackupJobSessionInfo"},
        SVerb{.Noun = "job",
              .Name = "enable",
              .Help = "lets the schedule start it",
              .Example = "zamctl job enable home",
              .Arguments = OneJob,
              .Options = ChangeOnly,
              .Run = [](CCall& call) { return Switch(call, true); },
              .Shape = "SBackupJobInfo"},
        SVerb{.Noun = "job",
              .Name = "disable",
              .Help = "keeps the schedule from starting it",
              .Example = "zamctl job disable home",
              .Arguments = OneJob,
              .Options = ChangeOnly,
              .Run = [](CCall& call) { return Switch(call, false); },
              .Shape = "SBackupJobInfo"},
        SVerb{.Noun = "job",
              .Name = "delete",
              .Help = "deletes jobs; their restore points stay",
              .Example = "zamctl job delete home",
              .Arguments = DeletedJobs,
              .Options = ChangeOnly,
              .Run = Delete,
              .Shape = "[SBackupJobInfo]"},
        SVerb{.Noun = "job",
              .Name = "export",
              .Help = "writes definitions as JSON: one, some, or all of them",
              .Details = "Passwords are not part of it.",
              .Example = "zamctl job export home > home.json",
              .Arguments = SomeJobs,
              .Run = Export,
              .HasForms = false},
        SVerb{.Noun = "job",
              .Name = "import",
              .Help = "makes jobs from JSON; one of the same name is replaced, after a question",
              .Details = "A repository that this agent does not know by its id is found by its name "
                         "(\"RepositoryName\").",
              .Example = "zamctl job import home.json",
              .Arguments = ImportedFile,
              .Options = ImportOptions,
              .Run = Import,
              .Shape = "[SBackupJobInfo|DryRun]"},
        SVerb{.Noun = "job",
              .Name = "diff",
              .Help = "tells in what a job differs from a file",
              .Example = "zamctl job diff home home.json",
              .Arguments = DiffArguments,
              .Run = Diff,
              .Shape = "[Difference]"},
        SVerb{.Noun = "job",
              .Name = "note",
              .Help = "shows or replaces the text that is kept with a job",
              .Example = "zamctl job note home \"asked for by the office\"",
              .Arguments = NoteArguments,
              .Options = ChangeOnly,
              .Run = Note,
              .Shape = "Note|SBackupJobInfo"},
        SVerb{.Noun = "job",
              .Name = "resolve",
              .Help = "tells what the agent makes of names of disks, volumes and folders",
              .Example = "zamctl job resolve / /dev/vda1",
              .Arguments = Objects,
              .Run = Resolve,
              .Shape = "[SResolveObjectInfo]"},
    };
    return verbs;
}

}  // namespace zamctl
