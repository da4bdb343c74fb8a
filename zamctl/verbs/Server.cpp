// SPDX-License-Identifier: Apache-2.0
// zamctl server: the backup servers.
#include <array>

#include "agent/Find.h"
#include "verbs/Offering.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

struct SServers {
    using Record = SBackupServerInfo;
    using IManager = IBackupServerManager;
    static constexpr const char* Word = "server";
    static constexpr const char* Title = "Server";
    static constexpr const char* Argument = "SERVER";
    static constexpr const char* None = "no backup servers";
    static constexpr const char* AddExample = "zamctl server add main --address backup.example:9392";

    static constexpr auto Manager = &ServersOf;
    static constexpr auto Called = &FindServer;
    static constexpr auto All = &IManager::GetBackupServers;
    static constexpr auto Find = &IManager::FindBackupServer;
    static constexpr auto Add = &IManager::AddBackupServer;
    static constexpr auto Update = &IManager::UpdateBackupServer;
    static constexpr auto Delete = &IManager::DeleteBackupServer;
    static constexpr auto Resync = &IManager::ResyncBackupServerRepositoriesList;

    static const std::vector<SColumn>& ListColumns() {
        static const std::vector<SColumn> columns{
            {"NAME", "Name"},
            {"ADDRESSES", AddressesKey},
            {"USER", "Username", EKind::Text, true},
            {"ONLY FOR RESTORE", "OnlyForRestore", EKind::Truth, true},
            {"ID", "Id", EKind::Id, true},
        };
        return columns;
    }

    static const std::vector<SColumn>& OneColumns() {
        static const std::vector<SColumn> columns{
            {"Name", "Name"},     {"Id", "Id"},         {"Addresses", AddressesKey},
            {"User", "Username"}, {"Domain", "Domain"}, {"Only for restore", "OnlyForRestore", EKind::Truth},
        };
        return columns;
    }

    static void ApplyOwn(const CCall& call, Record& server) {
        if (const auto domain = call.Optional("--domain")) server.Domain = *domain;
        if (call.Has("--only-for-restore") && call.Has("--for-backup"))
            throw CFailure(EExit::Usage, "--only-for-restore and --for-backup can't go together");
        if (call.Has("--only-for-restore")) server.OnlyForRestore = true;
        if (call.Has("--for-backup")) server.OnlyForRestore = false;
    }

    static void ApplyPassword(const CCall& /*call*/, Record& server,
                              const std::optional<std::string>& password, bool /*isNew*/) {
        if (password) server.Password = *password;
    }
};

constexpr std::array OneArguments{
    SArgument{.Name = "SERVER", .Help = "the server, by name or id", .Word = EWord::Server}};

constexpr SOption RestoreOption{.Name = "--only-for-restore",
                                .Help = "backups may be read from it, not written to it"};
constexpr std::array AddOptions{AddressOption, SignInOption, DomainOption, PasswordFileOption,
                                RestoreOption, FileOption,   DryRunOption, ForceOption};
constexpr std::array UpdateOptions{
    NameOption,         AddressOption,
    SignInOption,       DomainOption,
    PasswordFileOption, AskPasswordOption,
    RestoreOption,      SOption{.Name = "--for-backup", .Help = "takes --only-for-restore back"},
    FileOption,         DryRunOption,
    ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "server",
          .Name = "list",
          .Help = "lists the backup servers",
          .Example = "zamctl server list",
          .Run = ListOffering<SServers>,
          .Shape = "[Server]"},
    SVerb{.Noun = "server",
          .Name = "show",
          .Help = "shows a backup server",
          .Example = "zamctl server show main",
          .Arguments = OneArguments,
          .Run = ShowOffering<SServers>,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "add",
          .Help = "makes a backup server known to the agent",
          .Details = OfferingAddDetails,
          .Example =
              "zamctl server add main --address backup.example:9392 --user backup --password-file ~/.main\n"
              "zamctl server add main --file server.json",
          .Arguments = OfferingAddArguments,
          .Options = AddOptions,
          .Run = AddOffering<SServers>,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "update",
          .Help = "changes a backup server",
          .Details = OfferingUpdateDetails,
          .Example = "zamctl server update main --address backup2.example:9392\n"
                     "zamctl server update main --ask-password",
          .Arguments = OneArguments,
          .Options = UpdateOptions,
          .Run = UpdateOffering<SServers>,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "delete",
          .Help = "makes the agent forget a backup server",
          .Details = OfferingDeleteDetails,
          .Example = "zamctl server delete main",
          .Arguments = OneArguments,
          .Options = OfferingForceOptions,
          .Run = DeleteOffering<SServers>,
          .Shape = "Server"},
    SVerb{.Noun = "server",
          .Name = "resync",
          .Help = "reads a backup server's list of repositories anew",
          .Example = "zamctl server resync main && zamctl repo list",
          .Arguments = OneArguments,
          .Options = OfferingForceOptions,
          .Run = ResyncOffering<SServers>,
          .Shape = "Server"},
};

}  // namespace

std::span<const SVerb> ServerVerbs() {
    return Table;
}

}  // namespace zamctl
