// SPDX-License-Identifier: Apache-2.0
// zamctl server: the backup servers.
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/Places.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr const char* AddressesKey = "Addresses";  // which the record lacks

const std::vector<SColumn>& ListColumns() {
    static const std::vector<SColumn> columns{
        {"NAME", "Name"},
        {"ADDRESSES", AddressesKey},
        {"USER", "Username", EKind::Text, true},
        {"ONLY FOR RESTORE", "OnlyForRestore", EKind::Truth, true},
        {"ID", "Id", EKind::Id, true},
    };
    return columns;
}

const std::vector<SColumn>& OneColumns() {
    static const std::vector<SColumn> columns{
        {"Name", "Name"},     {"Id", "Id"},         {"Addresses", AddressesKey},
        {"User", "Username"}, {"Domain", "Domain"}, {"Only for restore", "OnlyForRestore", EKind::Truth},
    };
    return columns;
}

Json Item(const SBackupServerInfo& server) {
    Json json = ToJson(server);
    json[AddressesKey] = AddressWords(server.Connection);
    return json;
}

EExit List(CCall& call) {
    for (const auto& server : ServersOf(*call.Agent.Look())->GetBackupServers())
        call.Out.Row(ListColumns(), Item(server));
    call.Out.EndRows(ListColumns(), "no backup servers");
    return EExit::Done;
}

EExit Show(CCall& call) {
    call.Out.Item(OneColumns(), Item(FindServer(*call.Agent.Look(), call.Value("SERVER"))));
    return EExit::Done;
}

void Apply(CCall& call, SBackupServerInfo& server, bool isNew) {
    ApplyFile(call, server, {AddressesKey});
    if (const auto name = call.Optional(isNew ? "NAME" : "--name")) server.Name = *name;
    if (call.Has("--address")) server.Connection = AddressesOf(call);
    if (const auto user = call.Optional("--user")) server.Username = *user;
    if (const auto domain = call.Optional("--domain")) server.Domain = *domain;
    if (call.Has("--only-for-restore") && call.Has("--for-backup"))
        throw CFailure(EExit::Usage, "--only-for-restore and --for-backup can't go together");
    if (call.Has("--only-for-restore")) server.OnlyForRestore = true;
    if (call.Has("--for-backup")) server.OnlyForRestore = false;
    if (const auto password = PasswordOf(call, server.Username, isNew)) server.Password = *password;
}

EExit Add(CCall& call) {
    SBackupServerInfo server;
    if (!call.Has("NAME") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "NAME is missing, and no file has one",
                       "zamctl server add main --address backup.example:9392");
    if (!call.Has("--address") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "where is the server?", "say --address HOST[:PORT] or --file FILE");
    Apply(call, server, true);
    server.Id = {};  // of the one that was the file's model
    if (call.Has("--dry-run")) {
        ShowUnsent(call, OneColumns(), ToJson(server), server.Password.HasValue());
        return EExit::Done;
    }
    auto change = call.Change();
    const auto added = ServersOf(*change)->AddBackupServer(server);
    call.Out.Say("Server " + Quoted(added.Name) + " added (" + IdText(added.Id) + ")");
    ShowForPrograms(call, OneColumns(), Item(added));
    return EExit::Done;
}

EExit Update(CCall& call) {
    RequireOneOf(call, {"--name", "--address", "--user", "--domain", "--password-file", "--ask-password",
                        "--only-for-restore", "--for-backup", "--file"});
    if (call.Has("--dry-run")) {
        auto server = FindServer(*call.Agent.Look(), call.Value("SERVER"));
        Apply(call, server, false);
        ShowUnsent(call, OneColumns(), ToJson(server), server.Password.HasValue());
        return EExit::Done;
    }
    auto change = call.Change();
    const auto manager = ServersOf(*change);
    auto server = FindServer(*change, call.Value("SERVER"));
    Apply(call, server, false);
    manager->UpdateBackupServer(server);
    const auto updated = manager->FindBackupServer(server.Id).value_or(server);
    call.Out.Say("Server " + Quoted(updated.Name) + " updated (" + IdText(updated.Id) + ")");
    ShowForPrograms(call, OneColumns(), Item(updated));
    return EExit::Done;
}

EExit Delete(CCall& call) {
    auto change = call.Change();
    const auto server = FindServer(*change, call.Value("SERVER"));
    call.RequireYes("Delete the server " + Quoted(server.Name) + ", and the repositories that it offers?");
    if (!ServersOf(*change)->DeleteBackupServer(server.Id))
        throw CFailure(EExit::NotFound, "the server " + Quoted(server.Name) + " has gone meanwhile");
    call.Out.Say("Server " + Quoted(server.Name) + " deleted");
    ShowForPrograms(call, OneColumns(), Item(server));
    return EExit::Done;
}

EExit Resync(CCall& call) {
    auto change = call.Change();
    const auto server = FindServer(*change, call.Value("SERVER"));
    ServersOf(*change)->ResyncBackupServerRepositoriesList(server.Id);
    call.Out.Say("The repositories of the server " + Quoted(server.Name) + " were read anew");
    ShowForPrograms(call, OneColumns(), Item(server));
    return EExit::Done;
}

constexpr std::array OneArguments{
    SArgument{.Name = "SERVER", .Help = "the server, by name or id", .Word = EWord::Server}};
constexpr std::array AddArguments{
    SArgument{.Name = "NAME", .Help = "what it is to be called", .IsOptional = true}};

constexpr SOption UserOption{.Name = "--user", .Value = "USER", .Help = "who signs in"};
constexpr SOption DomainOption{.Name = "--domain", .Value = "DOMAIN", .Help = "the domain of the user"};
constexpr SOption RestoreOption{.Name = "--only-for-restore",
                                .Help = "backups may be read from it, not written to it"};
constexpr std::array AddOptions{AddressOption, UserOption, DomainOption, PasswordFileOption,
                                RestoreOption, FileOption, DryRunOption, ForceOption};
constexpr std::array UpdateOptions{
    SOption{.Name = "--name", .Value = "NAME", .Help = "what it is to be called"},
    AddressOption,
    UserOption,
    DomainOption,
    PasswordFileOption,
    AskPasswordOption,
    RestoreOption,
    SOption{.Name = "--for-backup", .Help = "takes --only-for-restore back"},
    FileOption,
    DryRunOption,
    ForceOption};
constexpr std::array ForceOptions{ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "server",
          .Name = "list",
          .Help = "lists the backup servers",
          .Details = "",
          .Example = "zamctl server list",
          .Arguments = {},
          .Options = {},
          .Run = List,
          .Shape = "[Server]"},
    SVerb{.Noun = "server",
          .Name = "show",
          .Help = "shows a backup server",
          .Details = "",
          .Example = "zamctl server show main",
          .Arguments = OneArguments,
          .Options = {},
          .Run = Show,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "add",
          .Help = "makes a backup server known to the agent",
          .Details =
              "The password is asked for when a user is named, or read from --password-file; an empty first "
              "line is none. It never stands on a command line.",
          .Example =
              "zamctl server add main --address backup.example:9392 --user backup --password-file ~/.main\n"
              "zamctl server add main --file server.json",
          .Arguments = AddArguments,
          .Options = AddOptions,
          .Run = Add,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "update",
          .Help = "changes a backup server",
          .Details =
              "What the options, or the file, don't speak of stays as it is: the password as well. --address "
              "replaces all addresses.",
          .Example = "zamctl server update main --address backup2.example:9392\n"
                     "zamctl server update main --ask-password",
          .Arguments = OneArguments,
          .Options = UpdateOptions,
          .Run = Update,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "delete",
          .Help = "makes the agent forget a backup server",
          .Details = "The repositories that it offers go with it, unless a job uses one: then it is refused.",
          .Example = "zamctl server delete main",
          .Arguments = OneArguments,
          .Options = ForceOptions,
          .Run = Delete,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "resync",
          .Help = "reads a backup server's list of repositories anew",
          .Details = "",
          .Example = "zamctl server resync main && zamctl repo list",
          .Arguments = OneArguments,
          .Options = ForceOptions,
          .Run = Resync,
          .Shape = "Server"},
};

}  // namespace

std::span<const SVerb> ServerVerbs() {
    return Table;
}

}  // namespace zamctl
