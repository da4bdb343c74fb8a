// SPDX-License-Identifier: Apache-2.0
// zamctl provider: the cloud service providers.
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/Enums.h"
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
        {"ID", "Id", EKind::Id, true},
    };
    return columns;
}

const std::vector<SColumn>& OneColumns() {
    static const std::vector<SColumn> columns{
        {"Name", "Name"},
        {"Id", "Id"},
        {"Addresses", AddressesKey},
        {"User", "Username"},
        {"Thumbprint", "TrustedThumbprint"},
    };
    return columns;
}

Json Item(const SCloudServiceProviderInfo& provider) {
    Json json = ToJson(provider);
    json[AddressesKey] = AddressWords(provider.Connection);
    return json;
}

EExit List(CCall& call) {
    for (const auto& one : ProvidersOf(*call.Agent.Look())->GetCloudServiceProviders())
        call.Out.Row(ListColumns(), Item(one));
    call.Out.EndRows(ListColumns(), "no cloud service providers");
    return EExit::Done;
}

EExit Show(CCall& call) {
    call.Out.Item(OneColumns(), Item(FindProvider(*call.Agent.Look(), call.Value("PROVIDER"))));
    return EExit::Done;
}

EExit Gateways(CCall& call) {
    static const std::vector<SColumn> columns{
        {"PRIORITY", "Priority", EKind::Number},
        {"ADDRESS", "Connection.Address"},
        {"PORT", "Connection.Port", EKind::Number},
    };
    const auto product = call.Agent.Look();
    const auto provider = FindProvider(*product, call.Value("PROVIDER"));
    const auto manager = ProvidersOf(*product);
    for (const auto& gateway : manager->GetCloudServiceProviderGateways(provider.Id))
        call.Out.Row(columns, ToJson(gateway));
    call.Out.EndRows(columns, "no gateways");
    return EExit::Done;
}

void Apply(CCall& call, SCloudServiceProviderInfo& provider, bool isNew) {
    using Type = ECloudServiceProviderPasswordType;
    ApplyFile(call, provider, {AddressesKey});
    if (const auto name = call.Optional(isNew ? "NAME" : "--name")) provider.Name = *name;
    if (call.Has("--address")) provider.Connection = AddressesOf(call);
    if (const auto user = call.Optional("--user")) provider.Username = *user;
    if (const auto thumbprint = call.Optional("--thumbprint")) provider.TrustedThumbprint = *thumbprint;
    const auto type = EnumOption<Type>(call, "--password-type");
    if (const auto password = PasswordOf(call, provider.Username, isNew)) {
        provider.Password = SCloudServiceProviderPassword{*password, type.value_or(Type::Plain)};
    } else if (type && !call.Has("--dry-run")) {
        throw CFailure(
            EExit::Usage, "--password-type needs a password as well",
            "say --password-file FILE" + std::string(isNew ? " or --user USER" : " or --ask-password"));
    }
}

EExit Add(CCall& call) {
    SCloudServiceProviderInfo provider;
    if (!call.Has("NAME") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "NAME is missing, and no file has one",
                       "zamctl provider add cloud --address cloud.example:6180");
    if (!call.Has("--address") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "where is the provider?", "say --address HOST[:PORT] or --file FILE");
    Apply(call, provider, true);
    provider.Id = {};  // of the one that was the file's model
    if (call.Has("--dry-run")) {
        ShowUnsent(call, OneColumns(), ToJson(provider), provider.Password.HasValue());
        return EExit::Done;
    }
    auto change = call.Change();
    const auto added = ProvidersOf(*change)->AddCloudServiceProvider(provider);
    call.Out.Say("Provider " + Quoted(added.Name) + " added (" + IdText(added.Id) + ")");
    ShowForPrograms(call, OneColumns(), Item(added));
    return EExit::Done;
}

EExit Update(CCall& call) {
    RequireOneOf(call, {"--name", "--address", "--user", "--thumbprint", "--password-file", "--ask-password",
                        "--file"});
    if (call.Has("--dry-run")) {
        auto provider = FindProvider(*call.Agent.Look(), call.Value("PROVIDER"));
        // The agent tells that there is a password, and never which: it keeps the one that it has.
        provider.Password.Reset();
        Apply(call, provider, false);
        ShowUnsent(call, OneColumns(), ToJson(provider), provider.Password.HasValue());
        return EExit::Done;
    }
    auto change = call.Change();
    const auto manager = ProvidersOf(*change);
    auto provider = FindProvider(*change, call.Value("PROVIDER"));
    provider.Password.Reset();
    Apply(call, provider, false);
    manager->UpdateCloudServiceProvider(provider);
    const auto updated = manager->FindCloudServiceProvider(provider.Id).value_or(provider);
    call.Out.Say("Provider " + Quoted(updated.Name) + " updated (" + IdText(updated.Id) + ")");
    ShowForPrograms(call, OneColumns(), Item(updated));
    return EExit::Done;
}

EExit Delete(CCall& call) {
    auto change = call.Change();
    const auto provider = FindProvider(*change, call.Value("PROVIDER"));
    call.RequireYes("Delete the provider " + Quoted(provider.Name) +
                    ", and the repositories that it offers?");
    if (!ProvidersOf(*change)->DeleteCloudServiceProvider(provider.Id))
        throw CFailure(EExit::NotFound, "the provider " + Quoted(provider.Name) + " has gone meanwhile");
    call.Out.Say("Provider " + Quoted(provider.Name) + " deleted");
    ShowForPrograms(call, OneColumns(), Item(provider));
    return EExit::Done;
}

EExit Resync(CCall& call) {
    auto change = call.Change();
    const auto provider = FindProvider(*change, call.Value("PROVIDER"));
    ProvidersOf(*change)->ResyncCloudRepositoriesList(provider.Id);
    call.Out.Say("The repositories of the provider " + Quoted(provider.Name) + " were read anew");
    ShowForPrograms(call, OneColumns(), Item(provider));
    return EExit::Done;
}

constexpr std::array OneArguments{
    SArgument{.Name = "PROVIDER", .Help = "the provider, by name or id", .Word = EWord::Provider}};
constexpr std::array AddArguments{
    SArgument{.Name = "NAME", .Help = "what it is to be called", .IsOptional = true}};

constexpr std::array<const char*, 3> PasswordTypes{"plain", "hashed", "token"};
constexpr SOption UserOption{.Name = "--user", .Value = "USER", .Help = "who signs in"};
constexpr SOption TypeOption{.Name = "--password-type",
                             .Value = "TYPE",
                             .Help = "what the password is: plain (the default), hashed or token",
                             .Word = EWord::Choice,
                             .Choices = PasswordTypes};
constexpr SOption ThumbprintOption{
    .Name = "--thumbprint", .Value = "TEXT", .Help = "of the provider's certificate, which is trusted then"};
constexpr std::array AddOptions{AddressOption,    UserOption, PasswordFileOption, TypeOption,
                                ThumbprintOption, FileOption, DryRunOption,       ForceOption};
constexpr std::array UpdateOptions{
    SOption{.Name = "--name", .Value = "NAME", .Help = "what it is to be called"},
    AddressOption,
    UserOption,
    PasswordFileOption,
    AskPasswordOption,
    TypeOption,
    ThumbprintOption,
    FileOption,
    DryRunOption,
    ForceOption};
constexpr std::array ForceOptions{ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "provider",
          .Name = "list",
          .Help = "lists the cloud service providers",
          .Details = "",
          .Example = "zamctl provider list",
          .Arguments = {},
          .Options = {},
          .Run = List,
          .Shape = "[Provider]"},
    SVerb{.Noun = "provider",
          .Name = "show",
          .Help = "shows a cloud service provider",
          .Details = "",
          .Example = "zamctl provider show cloud",
          .Arguments = OneArguments,
          .Options = {},
          .Run = Show,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "gateways",
          .Help = "lists the gateways through which a provider is reached",
          .Details = "The one with the lowest priority number goes first.",
          .Example = "zamctl provider gateways cloud",
          .Arguments = OneArguments,
          .Options = {},
          .Run = Gateways,
          .Shape = "[SGatewayInfo]"},
    SVerb{
        .Noun = "provider",
        .Name = "add",
        .Help = "makes a cloud service provider known to the agent",
        .Details =
            "The password is asked for when a user is named, or read from --password-file; an empty first "
            "line is none. It never stands on a command line.",
        .Example =
            "zamctl provider add cloud --address cloud.example:6180 --user tenant --password-file ~/.cloud\n"
            "zamctl provider add cloud --file provider.json",
        .Arguments = AddArguments,
        .Options = AddOptions,
        .Run = Add,
        .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "update",
          .Help = "changes a cloud service provider",
          .Details =
              "What the options, or the file, don't speak of stays as it is: the password as well. --address "
              "replaces all addresses.",
          .Example = "zamctl provider update cloud --address cloud2.example:6180\n"
                     "zamctl provider update cloud --ask-password --password-type token",
          .Arguments = OneArguments,
          .Options = UpdateOptions,
          .Run = Update,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "delete",
          .Help = "makes the agent forget a cloud service provider",
          .Details = "The repositories that it offers go with it, unless a job uses one: then it is refused.",
          .Example = "zamctl provider delete cloud",
          .Arguments = OneArguments,
          .Options = ForceOptions,
          .Run = Delete,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "resync",
          .Help = "reads a provider's list of repositories anew",
          .Details = "",
          .Example = "zamctl provider resync cloud && zamctl repo list",
          .Arguments = OneArguments,
          .Options = ForceOptions,
          .Run = Resync,
          .Shape = "Provider"},
};

}  // namespace

std::span<const SVerb> ProviderVerbs() {
    return Table;
}

}  // namespace zamctl
