// SPDX-License-Identifier: Apache-2.0
// zamctl repo: the places that backups go to.
#include <array>
#include <filesystem>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/HostCommand.h"
#include "verbs/JobOptions.h"
#include "verbs/Places.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

// Keys that the record lacks.
constexpr const char* SizeKey = "SizeInfo";
constexpr const char* DeletableKey = "CanBeDeleted";

const std::vector<SColumn>& OneColumns() {
    static const std::vector<SColumn> columns{
        {"Name", "Name"},
        {"Id", "Id"},
        {"Type", "Type"},
        {"Location", "Location"},
        {"Share", "SharedFolderInfo.Directory"},
        {"User", "SharedFolderInfo.Username"},
        {"Server", "ServerId"},
        {"Original name", "OriginalName"},
        {"Free", "SizeInfo.FreeSpace", EKind::Bytes},
        {"Capacity", "SizeInfo.Capacity", EKind::Bytes},
        {"Can be deleted", DeletableKey, EKind::Truth},
    };
    return columns;
}

/// Of the columns of one, those that say something about it. Programs get them all.
std::vector<SColumn> Telling(const CCall& call, const Json& item) {
    std::vector<SColumn> columns;
    for (const auto& column : OneColumns()) {
        const std::string key = column.Key;
        const auto dot = key.find('.');
        const auto top = item.find(key.substr(0, dot));
        if (call.Out.IsForPeople() && (top == item.end() || top->is_null() || *top == "")) continue;
        columns.push_back(column);
    }
    return columns;
}

/// Where its files are, for people.
std::string Place(const SBackupRepositoryInfo& repository) {
    if (repository.Type == BackupTargetType::SharedFolder && repository.SharedFolderInfo)
        return Escaped(repository.SharedFolderInfo->Directory);
    return Escaped(repository.Location);
}

Json WithSize(CCall& call, const IRepositoryManager& manager, const SBackupRepositoryInfo& repository) {
    Json json = ToJson(repository);
    json[SizeKey] = nullptr;
    try {
        if (const auto size = manager.RequestSizeInfo(repository.Id)) json[SizeKey] = ToJson(*size);
    } catch (const CGenericException& error) {
        call.Out.Note("the room of " + Quoted(repository.Name) + " is unknown: " + Escaped(error.what()));
    }
    return json;
}

EExit List(CCall& call) {
    const auto product = call.Agent.Look();
    const auto manager = RepositoriesOf(*product);
    const auto repositories = manager->GetRepositories();
    const bool hasSizes = call.Has("--sizes");
    bool hasShares = !call.Out.IsForPeople();
    for (const auto& repository : repositories)
        hasShares = hasShares || repository.SharedFolderInfo.HasValue();

    std::vector<SColumn> columns{{"NAME", "Name"}, {"TYPE", "Type"}, {"LOCATION", "Location"}};
    if (hasShares) columns.push_back({"SHARE", "SharedFolderInfo.Directory"});
    if (hasSizes) {
        columns.push_back({"FREE", "SizeInfo.FreeSpace", EKind::Bytes});
        columns.push_back({"CAPACITY", "SizeInfo.Capacity", EKind::Bytes});
    }
    columns.push_back({"ID", "Id", EKind::Id, true});
    for (const auto& repository : repositories)
        call.Out.Row(columns, hasSizes ? WithSize(call, *manager, repository) : ToJson(repository));
    call.Out.EndRows(columns, "no repositories yet; \"zamctl repo create NAME --path FOLDER\" makes one");
    return EExit::Done;
}

EExit Show(CCall& call) {
    const auto product = call.Agent.Look();
    const auto manager = RepositoriesOf(*product);
    const auto repository = FindRepository(*product, call.Value("REPO"));
    Json item = WithSize(call, *manager, repository);
    item[DeletableKey] = manager->CanBeDeleted(repository.Id);
    call.Out.Item(Telling(call, item), item);
    return EExit::Done;
}

/// The options that say where a repository is.
void ApplyPlace(CCall& call, SBackupRepositoryInfo& repository, bool isNew) {
    const auto nfs = call.Optional("--nfs");
    const auto smb = call.Optional("--smb");
    if (nfs && smb) throw CFailure(EExit::Usage, "--nfs and --smb can't go together");
    if (nfs || smb) {
        // What else is known of the share goes with it.
        if (repository.Type != BackupTargetType::SharedFolder) repository.Location.clear();
        repository.Type = BackupTargetType::SharedFolder;
        if (!repository.SharedFolderInfo) repository.SharedFolderInfo = SSharedFolderInfo{};
        repository.SharedFolderInfo->FolderType = nfs ? SharedFolderType::Nfs : SharedFolderType::Smb;
        repository.SharedFolderInfo->Directory = nfs ? *nfs : *smb;
    }
    if (const auto path = call.Optional("--path")) {
        repository.Location = AbsolutePath(*path);
        if (repository.Location != *path)
            call.Out.Note("--path " + Escaped(*path) + " is " + Escaped(repository.Location));
        if (isNew && repository.Type == BackupTargetType::Unknown)
            repository.Type = BackupTargetType::LocalFolder;
    }
    const bool isShared = repository.SharedFolderInfo.HasValue();
    for (const char* const option : {"--user", "--domain", "--password-file", "--ask-password"}) {
        if (!isShared && call.Has(option))
            throw CFailure(EExit::Usage, std::string(option) + " is for shared folders only",
                           "say which one with --nfs or --smb");
    }
    if (!isShared) return;
    auto& share = *repository.SharedFolderInfo;
    if (const auto user = call.Optional("--user")) share.Username = *user;
    if (const auto domain = call.Optional("--domain")) share.Domain = *domain;
    if (const auto password = PasswordOf(call, share.Username, isNew)) share.Password = *password;
}

bool HasPassword(const SBackupRepositoryInfo& repository) {
    return repository.SharedFolderInfo && repository.SharedFolderInfo->Password;
}

EExit Create(CCall& call) {
    SBackupRepositoryInfo repository;
    ApplyFile(call, repository, {SizeKey, DeletableKey});
    repository.Id = {};  // of the one that was the file's model
    if (const auto name = call.Optional("NAME")) repository.Name = *name;
    if (!call.Has("NAME") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "NAME is missing, and no file has one",
                       "zamctl repo create disk --path /srv/backup");
    if (!call.Has("--file") && !call.Has("--path") && !call.Has("--nfs") && !call.Has("--smb"))
        throw CFailure(EExit::Usage, "where is the repository to be?",
                       "say --path FOLDER, --nfs SERVER:/EXPORT, --smb //SERVER/SHARE or --file FILE");
    ApplyPlace(call, repository, true);
    if (call.Has("--dry-run")) {
        const Json json = ToJson(repository);
        ShowUnsent(call, Telling(call, json), json, HasPassword(repository));
        return EExit::Done;
    }
    auto change = call.Change();
    const auto created = RepositoriesOf(*change)->CreateRepository(repository);
    call.Out.Say("Repository " + Quoted(created.Name) + " created at " + Place(created) + " (" +
                 IdText(created.Id) + ")");
    ShowForPrograms(call, OneColumns(), ToJson(created));
    return EExit::Done;
}

EExit Update(CCall& call) {
    RequireChange(call);
    const auto apply = [&](SBackupRepositoryInfo repository) {
        ApplyFile(call, repository, {SizeKey, DeletableKey});
        if (const auto name = call.Optional("--name")) repository.Name = *name;
        ApplyPlace(call, repository, false);
        return repository;
    };
    if (call.Has("--dry-run")) {
        const auto product = call.Agent.Look();
        const auto repository = apply(FindRepository(*product, call.Value("REPO")));
        const Json json = ToJson(repository);
        ShowUnsent(call, Telling(call, json), json, HasPassword(repository));
        return EExit::Done;
    }
    auto change = call.Change();
    const auto repository = apply(FindRepository(*change, call.Value("REPO")));
    const auto updated = RepositoriesOf(*change)->UpdateRepository(repository);
    call.Out.Say("Repository " + Quoted(updated.Name) + " updated: " + Place(updated) + " (" +
                 IdText(updated.Id) + ")");
    ShowForPrograms(call, OneColumns(), ToJson(updated));
    return EExit::Done;
}

/// Why it can't be deleted, in more words than the agent has.
[[noreturn]] void ThrowInUse(IZamProduct& product, const SBackupRepositoryInfo& repository) {
    std::string users;
    std::size_t number = 0;
    for (const auto& job : product.GetBackupJobs()) {
        if (job == nullptr || job->GetConfigurationInfo().RepositoryId != repository.Id) continue;
        ++number;
        users += (users.empty() ? "" : ", ") + Quoted(job->GetInfo().Name);
    }
    if (number == 0)
        throw CFailure(EExit::Refused, "the agent does not allow it for " + Quoted(repository.Name));
    throw CFailure(EExit::Refused,
                   "the repository " + Quoted(repository.Name) + " is in use by " + Counted(number, "job") +
                       ": " + users,
                   "delete what uses it, or give it another one: zamctl job update JOB --repo REPO");
}

EExit Delete(CCall& call) {
    auto change = call.Change();
    const auto manager = RepositoriesOf(*change);
    const auto repository = FindRepository(*change, call.Value("REPO"));
    if (!manager->CanBeDeleted(repository.Id)) ThrowInUse(*change, repository);
    call.RequireYes("Delete the repository " + Quoted(repository.Name) + " (" + Place(repository) +
                    ")? Its files stay.");
    manager->DeleteRepository(repository.Id);
    call.Out.Say("Repository " + Quoted(repository.Name) + " deleted; its files stay");
    ShowForPrograms(call, OneColumns(), ToJson(repository));
    return EExit::Done;
}

bool IsFolder(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

/// The folder that a word means: what has a slash in it is one, else the repository of that name, else a folder here.
std::string FolderCalled(CCall& call, const std::string& word) {
    const bool isFolder = IsFolder(word);
    if (word.find('/') != std::string::npos || word == "." || word == "..") return AbsolutePath(word);
    try {
        const auto product = call.Agent.Look();
        const auto repository = FindRepository(*product, word);
        if (!repository.Location.empty()) return repository.Location;
        throw CFailure(EExit::Usage,
                       "it is not known where the repository " + Quoted(repository.Name) + " is mounted",
                       "name the folder instead");
    } catch (const CFailure& failure) {
        const bool isElse = failure.Exit() == EExit::NotFound || failure.Exit() == EExit::NoAgent;
        if (!isElse || !isFolder) throw;
    }
    return AbsolutePath(word);
}

EExit Adopt(CCall& call) {
    std::vector<std::string> words{"adopt", FolderCalled(call, call.Value("REPO-OR-FOLDER"))};
    if (const auto file = call.Optional("--password-file")) {
        words.emplace_back("--password-file");
        words.push_back(*file);
    }
    if (call.Has("--dry-run")) words.emplace_back("--dry-run");
    return RunHostCommand(call, words, [&](std::string_view line) { call.Out.Say(Escaped(line)); });
}

constexpr SArgument RepositoryArgument{
    .Name = "REPO", .Help = "the repository, by name or id", .Word = EWord::Repository};

constexpr SOption PathOption{.Name = "--path",
                             .Value = "FOLDER",
                             .Help = "a folder of this host; of a share, where it is mounted",
                             .Word = EWord::Folder};
constexpr SOption NfsOption{.Name = "--nfs", .Value = "SERVER:/EXPORT", .Help = "a shared folder by NFS"};
constexpr SOption SmbOption{.Name = "--smb", .Value = "//SERVER/SHARE", .Help = "a shared folder by SMB"};
constexpr SOption UserOption{.Name = "--user", .Value = "USER", .Help = "who signs in to the share"};

constexpr std::array ListOptions{
    SOption{.Name = "--sizes", .Help = "asks each repository for its room, which may take a while"}};
constexpr std::array OneArguments{RepositoryArgument};
constexpr std::array CreateArguments{
    SArgument{.Name = "NAME", .Help = "what it is to be called", .IsOptional = true}};
constexpr std::array CreateOptions{PathOption,         NfsOption,  SmbOption,    UserOption, DomainOption,
                                   PasswordFileOption, FileOption, DryRunOption, ForceOption};
constexpr std::array UpdateOptions{NameOption, PathOption,   NfsOption,          SmbOption,
                                   UserOption, DomainOption, PasswordFileOption, AskPasswordOption,
                                   FileOption, DryRunOption, ForceOption};
constexpr std::array DeleteOptions{ForceOption};
constexpr std::array AdoptArguments{SArgument{.Name = "REPO-OR-FOLDER",
                                              .Help = "a repository that the agent knows, or a folder",
                                              .Word = EWord::Folder}};
constexpr std::array AdoptOptions{
    PasswordFileOption, SOption{.Name = "--dry-run", .Help = "only tells what would be taken over"}};

constexpr std::array Table{
    SVerb{.Noun = "repo",
          .Name = "list",
          .Help = "lists the repositories",
          .Details = "",
          .Example = "zamctl repo list\nzamctl repo list --sizes --output json",
          .Arguments = {},
          .Options = ListOptions,
          .Run = List,
          .Shape = "[Repository]"},
    SVerb{.Noun = "repo",
          .Name = "show",
          .Help = "shows a repository, with its room",
          .Details = "",
          .Example = "zamctl repo show disk",
          .Arguments = OneArguments,
          .Options = {},
          .Run = Show,
          .Shape = "Repository"},
    SVerb{
        .Noun = "repo",
        .Name = "create",
        .Help = "makes a repository, a place for backups",
        .Details = "With --path it is a folder of this host: the agent makes the last folder of the path "
                   "where it is "
                   "missing, never those above it. With --nfs or --smb it is a shared folder, which has to "
                   "be mounted on "
                   "this host for jobs to write to it; --path then says where.\n"
                   "\n"
                   "The password of a share is asked for when a user is named, or read from --password-file; "
                   "an empty "
                   "first line is none. It never stands on a command line.",
        .Example =
            "zamctl repo create disk --path /srv/backup\n"
            "zamctl repo create nas --smb //nas/backup --user backup --password-file ~/.nas --path /mnt/nas\n"
            "zamctl repo show disk -o json | zamctl repo create copy --file - --path /srv/copy",
        .Arguments = CreateArguments,
        .Options = CreateOptions,
        .Run = Create,
        .Shape = "SBackupRepositoryInfo"},
    SVerb{.Noun = "repo",
          .Name = "update",
          .Help = "changes a repository",
          .Details = "What the options, or the file, don't speak of stays as it is: the password as well.\n"
                     "\n"
                     "A new --path moves no files: move them while no job of the repository runs.",
          .Example = "zamctl repo update disk --name old-disk\n"
                     "zamctl repo update nas --ask-password",
          .Arguments = OneArguments,
          .Options = UpdateOptions,
          .Run = Update,
          .Shape = "SBackupRepositoryInfo"},
    SVerb{.Noun = "repo",
          .Name = "delete",
          .Help = "takes a repository out of the agent's list",
          .Details = "Its files stay. A repository that a job uses can't be deleted.",
          .Example = "zamctl repo delete old-disk",
          .Arguments = OneArguments,
          .Options = DeleteOptions,
          .Run = Delete,
          .Shape = "SBackupRepositoryInfo"},
    SVerb{
        .Noun = "repo",
        .Name = "adopt",
        .Help = "takes over the backups that another agent has left in a folder",
        .Details =
            "Its jobs' restore points become known to this agent: after a move to a new host, or the loss of "
            "the old one. They are points of jobs that this agent does not have, until \"point forget "
            "--orphans\" removes "
            "them: where another agent still uses the folder, leave that alone. This is the agent's own "
            "command, on this host. A word with a slash is a folder; "
            "another one is a repository, or, where there is none of that name, a folder.",
        .Example = "zamctl repo adopt disk\n"
                   "zamctl repo adopt /mnt/old --password-file ~/.backup-password --dry-run",
        .Arguments = AdoptArguments,
        .Options = AdoptOptions,
        .Run = Adopt,
        .Shape = "",
        .HasForms = false},
};

}  // namespace

std::span<const SVerb> RepositoryVerbs() {
    return Table;
}

}  // namespace zamctl
