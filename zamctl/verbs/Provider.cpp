// SPDX-License-Identifier: Apache-2.0
// zamctl provider: the cloud service providers.
#include <array>

#include "agent/Find.h"
#include "verbs/Enums.h"
#include "verbs/Offering.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

struct SProviders {
    using Record = SCloudServiceProviderInfo;
    using IManager = ICloudServiceProviderManager;
    static constexpr const char* Word = "provider";
    static constexpr const char* Title = "Provider";
    static constexpr const char* Argument = "PROVIDER";
    static constexpr const char* None = "no cloud service providers";
    static constexpr const char* AddExample = "zamctl provider add cloud --address cloud.example:6180";

    static constexpr auto Manager = &ProvidersOf;
    static constexpr auto Called = &FindProvider;
    static constexpr auto All = &IManager::GetCloudServiceProviders;
    static constexpr auto Find = &IManager::FindCloudServiceProvider;
    static constexpr auto Add = &IManager::AddCloudServiceProvider;
    static constexpr auto Update = &IManager::UpdateCloudServiceProvider;
    static constexpr auto Delete = &IManager::DeleteCloudServiceProvider;
    static constexpr auto Resync = &IManager::ResyncCloudRepositoriesList;

    static const std::vector<SColumn>& ListColumns() {
        static const std::vector<SColumn> columns{
            {"NAME", "Name"},
            {"ADDRESSES", AddressesKey},
            {"USER", "Username", EKind::Text, true},
            {"ID", "Id", EKind::Id, true},
        };
        return columns;
    }

    static const std::vector<SColumn>& OneColumns() {
        static const std::vector<SColumn> columns{
            {"Name", "Name"},
            {"Id", "Id"},
            {"Addresses", AddressesKey},
            {"User", "Username"},
            {"Thumbprint", "TrustedThumbprint"},
        };
        return columns;
    }

    static void ApplyOwn(const CCall& call, Record& provider) {
        if (const auto thumbprint = call.Optional("--thumbprint")) provider.TrustedThumbprint = *thumbprint;
    }

    static void ApplyPassword(const CCall& call, Record& provider, const std::optional<std::string>& password,
                              bool isNew) {
        using Type = ECloudServiceProviderPasswordType;
        const auto type = EnumOption<Type>(call, "--password-type");
        if (password) {
            provider.Password = SCloudServiceProviderPassword{*password, type.value_or(Type::Plain)};
        } else if (type && !call.Has("--dry-run")) {
            throw CFailure(
                EExit::Usage, "--password-type needs a password as well",
                "say --password-file FILE" + std::string(isNew ? " or --user USER" : " or --ask-password"));
        }
    }
};

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

constexpr std::array OneArguments{
    SArgument{.Name = "PROVIDER", .Help = "the provider, by name or id", .Word = EWord::Provider}};

constexpr std::array<const char*, 3> PasswordTypes{"plain", "hashed", "token"};
constexpr SOption TypeOption{.Name = "--password-type",
                             .Value = "TYPE",
                             .Help = "what the password is: plain (the default), hashed or token",
                             .Word = EWord::Choice,
                             .Choices = PasswordTypes};
constexpr SOption ThumbprintOption{
    .Name = "--thumbprint", .Value = "TEXT", .Help = "of the provider's certificate, which is trusted then"};
constexpr std::array AddOptions{AddressOption,    SignInOption, PasswordFileOption, TypeOption,
                                ThumbprintOption, FileOption,   DryRunOption,       ForceOption};
constexpr std::array UpdateOptions{NameOption,        AddressOption, SignInOption,     PasswordFileOption,
                                   AskPasswordOption, TypeOption,    ThumbprintOption, FileOption,
                                   DryRunOption,      ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "provider",
          .Name = "list",
          .Help = "lists the cloud service providers",
          .Example = "zamctl provider list",
          .Run = ListOffering<SProviders>,
          .Shape = "[Provider]"},
    SVerb{.Noun = "provider",
          .Name = "show",
          .Help = "shows a cloud service provider",
          .Example = "zamctl provider show cloud",
          .Arguments = OneArguments,
          .Run = ShowOffering<SProviders>,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "gateways",
          .Help = "lists the gateways through which a provider is reached",
          .Details = "The one with the lowest priority number goes first.",
          .Example = "zamctl provider gateways cloud",
          .Arguments = OneArguments,
          .Run = Gateways,
          .Shape = "[SGatewayInfo]"},
    SVerb{
        .Noun = "provider",
        .Name = "add",
        .Help = "makes a cloud service provider known to the agent",
        .Details = OfferingAddDetails,
        .Example =
            "zamctl provider add cloud --address cloud.example:6180 --user tenant --password-file ~/.cloud\n"
            "zamctl provider add cloud --file provider.json",
        .Arguments = OfferingAddArguments,
        .Options = AddOptions,
        .Run = AddOffering<SProviders>,
        .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "update",
          .Help = "changes a cloud service provider",
          .Details = OfferingUpdateDetails,
          .Example = "zamctl provider update cloud --address cloud2.example:6180\n"
                     "zamctl provider update cloud --ask-password --password-type token",
          .Arguments = OneArguments,
          .Options = UpdateOptions,
          .Run = UpdateOffering<SProviders>,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "delete",
          .Help = "makes the agent forget a cloud service provider",
          .Details = OfferingDeleteDetails,
          .Example = "zamctl provider delete cloud",
          .Arguments = OneArguments,
          .Options = OfferingForceOptions,
          .Run = DeleteOffering<SProviders>,
          .Shape = "Provider"},
    SVerb{.Noun = "provider",
          .Name = "resync",
          .Help = "reads a provider's list of repositories anew",
          .Example = "zamctl provider resync cloud && zamctl repo list",
          .Arguments = OneArguments,
          .Options = OfferingForceOptions,
          .Run = ResyncOffering<SProviders>,
          .Shape = "Provider"},
};

}  // namespace

std::span<const SVerb> ProviderVerbs() {
    return Table;
}

}  // namespace zamctl
