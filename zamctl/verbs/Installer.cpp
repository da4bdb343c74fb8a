// SPDX-License-Identifier: Apache-2.0
// "zamctl installer": the host, its packages and services, and the agent's product on it. Needs no agent.
#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "show/Words.h"
#include "verbs/Verb.h"

namespace zamctl {
namespace {

using zamclientlib::SVersion;

/// What the tool takes as a file; everything else is a package's name.
bool IsFile(const std::string& word) {
    return word.find('/') != std::string::npos || word.ends_with(".deb");
}

/// The tool has a working folder of its own.
std::string AbsoluteFile(const std::string& word) {
    std::error_code error;
    const auto path = std::filesystem::absolute(word, error);
    if (error)
        throw CFailure(EExit::Refused, "where " + Quoted(word) + " is can't be told: " + error.message());
    if (!std::filesystem::exists(path, error))
        throw CFailure(EExit::NotFound, "there is no file " + Quoted(path.string()));
    return path.lexically_normal();
}

std::vector<std::string> FilesAndNames(const std::vector<std::string>& words) {
    std::vector<std::string> known;
    known.reserve(words.size());
    for (const auto& word : words)
        known.push_back(IsFile(word) ? AbsoluteFile(word) : word);
    return known;
}

std::string NameOfPackage(const zamclientlib::IPackageManager& packages, const std::string& word) {
    return IsFile(word) ? packages.GetPackageNameFromFile(word) : word;
}

/// Packages take as long as they take: no limit unless one was asked for.
apigen::CCallTimeout PatienceOf(const CCall& call) {
    return apigen::CCallTimeout(call.Has("--timeout") ? call.Common().Agent.Timeout
                                                      : std::chrono::milliseconds(0));
}

Json VersionOrNull(const SVersion& version) {
    return SVersion() < version ? Json(ToText(version)) : Json();
}

// --- info ---

const std::vector<SColumn> InfoColumns{
    {"Host", "HostName"},
    {"Full name", "FQDN"},
    {"System", "OsName"},
    {"Kernel", "OsKernelVersion"},
    {"Processor", "OsHardwarePlatform"},
    {"System id", "SystemUID"},
    {"Machine id", "BiosUID"},
    {"Supported", "IsSystemSupported", EKind::Truth},
    {"Installer tool", "ToolVersion"},
};

const std::vector<SColumn> InterfaceColumns{
    {"INTERFACE", "Name"},
    {"STATUS", "Status"},
    {"MAC ADDRESS", "MacAddress"},
    {"ADDRESSES", "IpAddresses"},
};

EExit Info(CCall& call) {
    const auto installer = call.Agent.Installer();
    const auto system = installer->GetSystemInformation();
    Json item = ToJson(system);
    item["IsSystemSupported"] = installer->IsSystemSupported();
    item["ToolVersion"] = ToText(installer->GetToolVersion());
    if (call.Out.IsForPeople() && system.BiosUID.IsNil()) item["BiosUID"] = nullptr;
    call.Out.Item(InfoColumns, item);
    if (!call.Out.IsForPeople() || system.NetworkInterfaces.empty()) return EExit::Done;

    call.Out.Say("");
    for (const auto& network : system.NetworkInterfaces)
        call.Out.Row(InterfaceColumns, ToJson(network));
    call.Out.EndRows(InterfaceColumns);
    return EExit::Done;
}

// --- service ---

const std::vector<SColumn> ServiceColumns{{"Service", "Name"}, {"Status", "Status", EKind::Outcome}};

EExit Service(CCall& call) {
    if (call.Has("--start") && call.Has("--stop"))
        throw CFailure(EExit::Usage, "a service can't be started and stopped at once",
                       "say --start or --stop");
    const auto installer = call.Agent.Installer();
    const auto name = call.Optional("NAME");
    const auto service = name ? installer->FindService(*name) : installer->GetZAMService();
    if (service == nullptr) {
        if (name) throw CFailure(EExit::NotFound, "this host has no service " + Quoted(*name));
        throw CFailure(EExit::NotFound, "this host has no service of the agent",
                       "name another one, or install the agent: zamctl installer deploy INDEX");
    }
    if (call.Has("--start") || call.Has("--stop")) {
        const bool isStart = call.Has("--start");
        if (isStart) {
            service->Start();
        } else {
            service->Stop();
        }
        call.Out.Say("Service " + Quoted(service->GetName()) + (isStart ? " started" : " stopped"));
        if (call.Out.IsForPeople()) return EExit::Done;
    }
    Json item;
    item["Name"] = service->GetName();
    const auto status = service->GetServiceStatus();
    item["Status"] = std::string(NameOf(status));
    if (NameOf(status).empty()) item["Status"] = static_cast<int>(status);
    call.Out.Item(ServiceColumns, item);
    return EExit::Done;
}

// --- packages ---

const std::vector<SColumn> PackageColumns{
    {"Package", "Name"}, {"Version", "VersionRaw"}, {"Description", "Description", EKind::Text, true}};

EExit Package(CCall& call) {
    const auto packages = call.Agent.Installer()->GetPackageManager();
    const std::string word = FilesAndNames({call.Value("PACKAGE")}).front();
    const std::string name = NameOfPackage(*packages, word);
    const auto package = packages->FindInstalledPackage(name);
    if (!package)
        throw CFailure(EExit::NotFound, "the package " + Quoted(name) + " is not installed",
                       "install it: zamctl installer install " + (word == name ? name : Escaped(word)));
    Json item = ToJson(*package);
    if (call.Out.IsForPeople())  // in a line; the paragraphs below it are for who looks for packages
        item["Description"] = package->Description.substr(0, package->Description.find('\n'));
    call.Out.Item(PackageColumns, item);
    return EExit::Done;
}

/// What is installed now, of what was named.
void ShowPackages(CCall& call, const zamclientlib::IPackageManager& packages,
                  const std::vector<std::string>& names, const std::string& done) {
    for (const auto& name : names) {
        const auto package = packages.FindInstalledPackage(name);
        if (!package) continue;
        if (call.Out.IsForPeople()) {
            call.Out.Say("Package " + Quoted(package->Name) + " " + done + ": version " +
                         Escaped(package->VersionRaw));
        } else {
            call.Out.Row(PackageColumns, ToJson(*package));
        }
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows(PackageColumns);
}

std::vector<std::string> NamesOf(const zamclientlib::IPackageManager& packages,
                                 const std::vector<std::string>& words) {
    std::vector<std::string> names;
    names.reserve(words.size());
    for (const auto& word : words)
        names.push_back(NameOfPackage(packages, word));
    return names;
}

EExit Install(CCall& call) {
    const auto packages = call.Agent.Installer()->GetPackageManager();
    const auto words = FilesAndNames(call.Values("PACKAGE"));
    const auto names = NamesOf(*packages, words);
    {
        const auto patience = PatienceOf(call);
        packages->InstalLocalPackages(words);
    }
    ShowPackages(call, *packages, names, "is installed");
    return EExit::Done;
}

EExit Update(CCall& call) {
    const auto packages = call.Agent.Installer()->GetPackageManager();
    std::vector<std::string> files;
    for (const auto& word : call.Values("FILE"))
        files.push_back(AbsoluteFile(word));
    const auto names = NamesOf(*packages, files);
    {
        const auto patience = PatienceOf(call);
        packages->UpdateLocalPackages(files);
    }
    ShowPackages(call, *packages, names, "is up to date");
    return EExit::Done;
}

EExit Remove(CCall& call) {
    const auto packages = call.Agent.Installer()->GetPackageManager();
    const auto names = call.Values("NAME");
    std::vector<zamclientlib::SPackageInfo> found;
    std::string list;
    for (const auto& name : names) {
        const auto package = packages->FindInstalledPackage(name);
        if (!package) throw CFailure(EExit::NotFound, "the package " + Quoted(name) + " is not installed");
        found.push_back(*package);
        list += (list.empty() ? "" : ", ") + Quoted(package->Name);
    }
    call.RequireYes("Remove " + Counted(names.size(), "package") + ", " + list + ", from this host?");
    {
        const auto patience = PatienceOf(call);
        packages->RemovePackages(names);
    }
    for (const auto& package : found) {
        call.Out.Say("Package " + Quoted(package.Name) + " removed");
        if (!call.Out.IsForPeople()) call.Out.Row(PackageColumns, ToJson(package));
    }
    if (!call.Out.IsForPeople()) call.Out.EndRows(PackageColumns);
    return EExit::Done;
}

// --- the product ---

const std::vector<SColumn> DeployerColumns{
    {"Installed", "IsProductInstalled", EKind::Truth},
    {"Agent", "AgentVersion"},
    {"Driver", "DriverVersion"},
};

const std::vector<SColumn> OfferColumns{
    {"For this host", "Offer.IsInstallationSupported", EKind::Truth},
    {"Version offered", "Offer.PackagesVersion"},
    {"Kernel module", "Offer.IsKmodDriver", EKind::Truth},
};

/// \param index empty: none was named
void ShowProduct(CCall& call, zamclientlib::IZAMDeployer& deployer, const std::string& index) {
    Json item;
    item["IsProductInstalled"] = deployer.IsProductInstalled();
    item["AgentVersion"] = VersionOrNull(deployer.GetAgentVersion());
    item["DriverVersion"] = VersionOrNull(deployer.GetDriverVersion());
    item["Offer"] = Json();
    auto columns = DeployerColumns;
    if (!index.empty()) {
        item["Offer"] = ToJson(deployer.GetInstallationInfo(index));
        columns.insert(columns.end(), OfferColumns.begin(), OfferColumns.end());
    }
    call.Out.Item(columns, item);
    if (!call.Out.IsForPeople() || index.empty() || item["Offer"]["PackageForInstall"].empty()) return;
    call.Out.Heading("To be installed:");
    for (const auto& package : item["Offer"]["PackageForInstall"])
        call.Out.Say("  " + Escaped(package.get<std::string>()));
}

EExit Deployer(CCall& call) {
    const auto index = call.Optional("INDEX");
    const std::string file = index ? AbsoluteFile(*index) : "";
    ShowProduct(call, *call.Agent.Installer()->GetZAMDeployer(), file);
    return EExit::Done;
}

EExit Deploy(CCall& call) {
    const std::string index = AbsoluteFile(call.Value("INDEX"));
    const auto installer = call.Agent.Installer();
    const auto deployer = installer->GetZAMDeployer();
    const auto offer = deployer->GetInstallationInfo(index);
    if (!offer.IsInstallationSupported)
        throw CFailure(EExit::Refused, "the index offers nothing for this host",
                       "see what it offers: zamctl installer deployer " + Escaped(index));
    {
        const auto patience = PatienceOf(call);
        installer->GetPackageManager()->InstalLocalPackages(offer.PackageForInstall);
    }
    call.Out.Say("The agent is installed: version " + ToText(deployer->GetAgentVersion()));
    if (!call.Out.IsForPeople()) ShowProduct(call, *deployer, "");
    return EExit::Done;
}

EExit Uninstall(CCall& call) {
    const auto deployer = call.Agent.Installer()->GetZAMDeployer();
    if (!deployer->IsProductInstalled())
        throw CFailure(EExit::NotFound, "the agent is not installed on this host");
    call.RequireYes("Remove the agent, version " + ToText(deployer->GetAgentVersion()) + ", from this host?");
    {
        const auto patience = PatienceOf(call);
        deployer->Uninstall();
    }
    call.Out.Say("The agent is removed");
    if (!call.Out.IsForPeople()) ShowProduct(call, *deployer, "");
    return EExit::Done;
}

// --- the table ---

constexpr std::array ServiceArguments{
    SArgument{.Name = "NAME", .Help = "the service; the agent's own unless said", .IsOptional = true}};
constexpr std::array ServiceOptions{
    SOption{.Name = "--start", .Help = "starts it, and waits until it runs"},
    SOption{.Name = "--stop", .Help = "stops it, and waits until it has ended"},
};
constexpr std::array PackageArguments{
    SArgument{.Name = "PACKAGE", .Help = "its name, or a package file", .Word = EWord::File}};
constexpr std::array InstallArguments{SArgument{.Name = "PACKAGE",
                                                .Help =
                                                    "a package file (with a / or .deb in it), or the name of "
                                                    "a package of the distribution",
                                                .Word = EWord::File,
                                                .IsRepeated = true}};
constexpr std::array UpdateArguments{
    SArgument{.Name = "FILE", .Help = "a package file", .Word = EWord::File, .IsRepeated = true}};
constexpr std::array RemoveArguments{
    SArgument{.Name = "NAME", .Help = "the name of an installed package", .IsRepeated = true}};
constexpr std::array DeployerArguments{SArgument{
    .Name = "INDEX", .Help = "a package index, an XML file", .Word = EWord::File, .IsOptional = true}};
constexpr std::array DeployArguments{
    SArgument{.Name = "INDEX", .Help = "a package index, an XML file", .Word = EWord::File}};

constexpr std::array Table{
    SVerb{.Noun = "installer",
          .Name = "info",
          .Help = "shows what this host is, and whether the agent can be installed on it",
          .Details =
              "Works without an agent, as everything of the installer does: it asks the installer's tool.",
          .Example = "zamctl installer info",
          .Arguments = {},
          .Options = {},
          .Run = Info,
          .Shape = "Host"},
    SVerb{.Noun = "installer",
          .Name = "service",
          .Help = "shows, starts or stops a service of this host",
          .Details = "",
          .Example = "zamctl installer service\nzamctl installer service --stop",
          .Arguments = ServiceArguments,
          .Options = ServiceOptions,
          .Run = Service,
          .Shape = "Service"},
    SVerb{.Noun = "installer",
          .Name = "package",
          .Help = "shows an installed package",
          .Details = "Of a package file, what is installed under the name in it.",
          .Example = "zamctl installer package restic",
          .Arguments = PackageArguments,
          .Options = {},
          .Run = Package,
          .Shape = "SPackageInfo"},
    SVerb{.Noun = "installer",
          .Name = "install",
          .Help = "installs packages, all of them or none",
          .Details =
              "A package of which an older version is installed is updated; a newer one stays. Takes as long "
              "as it takes, unless --timeout says otherwise.",
          .Example = "zamctl installer install ./agent_2.0.0_amd64.deb restic",
          .Arguments = InstallArguments,
          .Options = {},
          .Run = Install,
          .Shape = "[SPackageInfo]"},
    SVerb{.Noun = "installer",
          .Name = "update",
          .Help = "updates installed packages from files, all of them or none",
          .Details = "Takes as long as it takes, unless --timeout says otherwise.",
          .Example = "zamctl installer update ./agent_2.0.1_amd64.deb",
          .Arguments = UpdateArguments,
          .Options = {},
          .Run = Update,
          .Shape = "[SPackageInfo]"},
    SVerb{.Noun = "installer",
          .Name = "remove",
          .Help = "removes packages, after a question",
          .Details = "Programs get the packages as they were.",
          .Example = "zamctl installer remove agent",
          .Arguments = RemoveArguments,
          .Options = {},
          .Run = Remove,
          .Shape = "[SPackageInfo]"},
    SVerb{.Noun = "installer",
          .Name = "deployer",
          .Help = "shows which agent is installed, and what an index offers",
          .Details = "",
          .Example = "zamctl installer deployer /srv/release/index.xml",
          .Arguments = DeployerArguments,
          .Options = {},
          .Run = Deployer,
          .Shape = "Product"},
    SVerb{.Noun = "installer",
          .Name = "deploy",
          .Help = "installs the agent that an index offers this host",
          .Details = "Takes as long as it takes, unless --timeout says otherwise.",
          .Example = "zamctl installer deploy /srv/release/index.xml",
          .Arguments = DeployArguments,
          .Options = {},
          .Run = Deploy,
          .Shape = "Product"},
    SVerb{.Noun = "installer",
          .Name = "uninstall",
          .Help = "removes the agent from this host, after a question",
          .Details = "Backups stay where they are.",
          .Example = "zamctl installer uninstall",
          .Arguments = {},
          .Options = {},
          .Run = Uninstall,
          .Shape = "Product"},
};

}  // namespace

std::span<const SVerb> InstallerVerbs() {
    return Table;
}

}  // namespace zamctl
