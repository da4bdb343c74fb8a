// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every method as it travels, written down by hand: the client must send these requests and understand
/// these responses, the service the other way round.
#pragma once

#include <zamclientlib/Installer.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/api/FieldWalk.h"

namespace zamtest {

/// One object of each interface: proxies at the client, implementations at the service. On the wire they
/// have the handles 1 to 4, in this order.
struct SObjects {
    std::shared_ptr<zamclientlib::ITarvoInstaller> Root;
    std::shared_ptr<zamclientlib::IPackageManager> Packages;
    std::shared_ptr<zamclientlib::IService> Service;
    std::shared_ptr<zamclientlib::IZAMDeployer> Deployer;
};

/// What a result is for a test's table.
inline std::string Shown(bool value) {
    return value ? "true" : "false";
}
inline std::string Shown(const std::string& text) {
    return text;
}
template <class E>
requires std::is_enum_v<E> std::string Shown(E value) {
    return std::to_string(static_cast<int>(value));
}
template <class R, class = decltype(R::Fields(zamclientlib::detail::NoVisit{}))>
std::string Shown(const R& record) {
    return DocumentOf(record);
}
template <class T>
std::string Shown(const apigen::Optional<T>& value) {
    return value ? Shown(*value) : "none";
}
template <class I>
std::string Shown(const std::shared_ptr<I>& object) {
    return object ? "object" : "null";
}

struct SExchange {
    std::string_view Name;
    std::string Request;
    std::string Response;
    std::string Call;                     ///< what the implementation must have been asked
    std::string (*Act)(const SObjects&);  ///< makes the call and shows its result
    std::string Result;
};

inline std::string Request(const std::string& arguments, int handle, const std::string& method) {
    return "<Data>" + arguments + "<__handle>" + std::to_string(handle) + "</__handle><__method>" + method +
           "</__method></Data>";
}
inline std::string Response(const std::string& inside) {
    return inside.empty() ? "<Data/>" : "<Data>" + inside + "</Data>";
}

#define ZAM_ACT(expression) [](const SObjects& o) -> std::string { return Shown(o.expression); }
#define ZAM_ACT_VOID(expression)           \
    [](const SObjects& o) -> std::string { \
        o.expression;                      \
        return {};                         \
    }

inline const std::vector<SExchange> Exchanges{
    // ITarvoInstaller
    {"GetSystemInformation", Request("", 1, "GetSystemInformation_14796640772420918772"),
     Response("<__result><SystemUID>{00000001-0000-0000-0000-000000000000}</SystemUID>"
              "<BiosUID>{00000000-0000-0000-0000-000000000000}</BiosUID><OsName>Debian</OsName><OsId></OsId>"
              "<OsVersion><major>12</major><minor>7</minor><revision>0</revision><build>0</build></OsVersion>"
              "<OsCodeName></OsCodeName><OsKernelVersion></OsKernelVersion><OsType>0</OsType>"
              "<OsHardwarePlatform>99</OsHardwarePlatform><HostName></HostName><NetworkInterfaces><item>"
              "<Name>lo</Name><Status>1</Status><MacAddress></MacAddress><IpAddresses><item>127.0.0.1</item>"
              "</IpAddresses></item></NetworkInterfaces><FQDN>a.example</FQDN></__result>"),
     "GetSystemInformation()", ZAM_ACT(Root->GetSystemInformation()),
     "<Data><K><SystemUID>{00000001-0000-0000-0000-000000000000}</SystemUID>"
     "<BiosUID>{00000000-0000-0000-0000-000000000000}</BiosUID><OsName>Debian</OsName><OsId></OsId>"
     "<OsVersion><major>12</major><minor>7</minor><revision>0</revision><build>0</build></OsVersion>"
     "<OsCodeName></OsCodeName><OsKernelVersion></OsKernelVersion><OsType>0</OsType>"
     "<OsHardwarePlatform>99</OsHardwarePlatform><HostName></HostName><NetworkInterfaces><item>"
     "<Name>lo</Name><Status>1</Status><MacAddress></MacAddress><IpAddresses><item>127.0.0.1</item>"
     "</IpAddresses></item></NetworkInterfaces><FQDN>a.example</FQDN></K></Data>"},
    {"IsSystemSupported", Request("", 1, "IsSystemSupported_6523745946180482134"),
     Response("<__result>true</__result>"), "IsSystemSupported()", ZAM_ACT(Root->IsSystemSupported()),
     "true"},
    {"GetToolVersion", Request("", 1, "GetToolVersion_9650153311793924748"),
     Response("<__result><major>2</major><minor>0</minor><revision>5</revision><build>12</build></__result>"),
     "GetToolVersion()", ZAM_ACT(Root->GetToolVersion()),
     "<Data><K><major>2</major><minor>0</minor><revision>5</revision><build>12</build></K></Data>"},
    {"GetPackageManager", Request("", 1, "GetPackageManager_1628991831313356514"),
     Response("<__handle>5</__handle>"), "GetPackageManager()", ZAM_ACT(Root->GetPackageManager()), "object"},
    {"FindService", Request("<serviceName>a &lt;b&gt;</serviceName>", 1, "FindService_15620865180769635232"),
     Response("<__handle>5</__handle>"), "FindService(a <b>)", ZAM_ACT(Root->FindService("a <b>")), "object"},
    {"FindServiceOfNothing",
     Request("<serviceName>nothing</serviceName>", 1, "FindService_15620865180769635232"),
     Response("<__handle>0</__handle>"), "FindService(nothing)", ZAM_ACT(Root->FindService("nothing")),
     "null"},
    {"GetZAMService", Request("", 1, "GetZAMService_7046161401573418507"), Response("<__handle>5</__handle>"),
     "GetZAMService()", ZAM_ACT(Root->GetZAMService()), "object"},
    {"GetZAMDeployer", Request("", 1, "GetZAMDeployer_6155923443671149866"),
     Response("<__handle>5</__handle>"), "GetZAMDeployer()", ZAM_ACT(Root->GetZAMDeployer()), "object"},
    // IPackageManager
    {"FindInstalledPackage",
     Request("<packageName>zstd</packageName>", 2, "FindInstalledPackage_16791466557512328961"),
     Response("<__result><opt><Name>zstd</Name><Description>a package</Description>"
              "<VersionRaw>1.5-2</VersionRaw></opt></__result>"),
     "FindInstalledPackage(zstd)", ZAM_ACT(Packages->FindInstalledPackage("zstd")),
     "<Data><K><Name>zstd</Name><Description>a "
     "package</Description><VersionRaw>1.5-2</VersionRaw></K></Data>"},
    {"FindInstalledPackageOfNothing",
     Request("<packageName>nothing</packageName>", 2, "FindInstalledPackage_16791466557512328961"),
     Response(""), "FindInstalledPackage(nothing)", ZAM_ACT(Packages->FindInstalledPackage("nothing")),
     "none"},
    {"InstalLocalPackages",
     Request("<pkgPaths><item>/a b.deb</item></pkgPaths><pkgPaths><item></item></pkgPaths>"
             "<pkgPaths><item encoding=\"base64\">/w==</item></pkgPaths>",
             2, "InstalLocalPackages_18177456428110118300"),
     Response(""), "InstalLocalPackages([/a b.deb]|[]|[\xff])",
     ZAM_ACT_VOID(Packages->InstalLocalPackages({"/a b.deb", "", "\xff"})), ""},
    {"UpdateLocalPackages",
     Request("<pkgPaths><item>/u.deb</item></pkgPaths>", 2, "UpdateLocalPackages_15359749623785971304"),
     Response(""), "UpdateLocalPackages([/u.deb])", ZAM_ACT_VOID(Packages->UpdateLocalPackages({"/u.deb"})),
     ""},
    {"RemovePackages",
     Request("<pkgNames><item>x</item></pkgNames><pkgNames><item>y</item></pkgNames>", 2,
             "RemovePackages_16476592220287799532"),
     Response(""), "RemovePackages([x]|[y])", ZAM_ACT_VOID(Packages->RemovePackages({"x", "y"})), ""},
    {"RemovePackagesOfAnEmptyList", Request("", 2, "RemovePackages_16476592220287799532"), Response(""),
     "RemovePackages()", ZAM_ACT_VOID(Packages->RemovePackages({})), ""},
    {"GetPackageNameFromFile",
     Request("<pkgPath>/p.deb</pkgPath>", 2, "GetPackageNameFromFile_2448479667004574270"),
     Response("<__result>name of /p.deb</__result>"), "GetPackageNameFromFile(/p.deb)",
     ZAM_ACT(Packages->GetPackageNameFromFile("/p.deb")), "name of /p.deb"},
    // IService
    {"GetName", Request("", 3, "GetName_12671373201279964889"), Response("<__result>tarvo</__result>"),
     "GetName()", ZAM_ACT(Service->GetName()), "tarvo"},
    {"GetServiceStatus", Request("", 3, "GetServiceStatus_11547550400782890202"),
     Response("<__result>4</__result>"), "GetServiceStatus()", ZAM_ACT(Service->GetServiceStatus()), "4"},
    {"Start", Request("", 3, "Start_11243714758416590425"), Response(""), "Start()",
     ZAM_ACT_VOID(Service->Start()), ""},
    {"Stop", Request("", 3, "Stop_11506971857825673697"), Response(""), "Stop()",
     ZAM_ACT_VOID(Service->Stop()), ""},
    // IZAMDeployer
    {"GetAgentVersion", Request("", 4, "GetAgentVersion_6425147347192826487"),
     Response(
         "<__result><major>6</major><minor>1</minor><revision>2</revision><build>1498</build></__result>"),
     "GetAgentVersion()", ZAM_ACT(Deployer->GetAgentVersion()),
     "<Data><K><major>6</major><minor>1</minor><revision>2</revision><build>1498</build></K></Data>"},
    {"GetDriverVersion", Request("", 4, "GetDriverVersion_11268104998534781400"),
     Response("<__result><major>7</major><minor>8</minor><revision>9</revision><build>10</build></__result>"),
     "GetDriverVersion()", ZAM_ACT(Deployer->GetDriverVersion()),
     "<Data><K><major>7</major><minor>8</minor><revision>9</revision><build>10</build></K></Data>"},
    {"IsSystemSupportedByProduct",
     Request("<packageIndexXmlPath>/i.xml</packageIndexXmlPath>", 4,
             "IsSystemSupportedByProduct_9145649959737313651"),
     Response("<__result>true</__result>"), "IsSystemSupportedByProduct(/i.xml)",
     ZAM_ACT(Deployer->IsSystemSupportedByProduct("/i.xml")), "true"},
    {"GetInstallationInfo",
     Request("<packageIndexXmlPath>/j.xml</packageIndexXmlPath>", 4,
             "GetInstallationInfo_4462774100910194631"),
     Response("<__result><PackagesVersion><major>4</major><minor>3</minor><revision>2</revision>"
              "<build>1</build></PackagesVersion><PackageForInstall><item>a.deb</item></PackageForInstall>"
              "<PackageForInstall><item>b.deb</item></PackageForInstall><IsKmodDriver>true</IsKmodDriver>"
              "<IsInstallationSupported>false</IsInstallationSupported></__result>"),
     "GetInstallationInfo(/j.xml)", ZAM_ACT(Deployer->GetInstallationInfo("/j.xml")),
     "<Data><K><PackagesVersion><major>4</major><minor>3</minor><revision>2</revision>"
     "<build>1</build></PackagesVersion><PackageForInstall><item>a.deb</item></PackageForInstall>"
     "<PackageForInstall><item>b.deb</item></PackageForInstall><IsKmodDriver>true</IsKmodDriver>"
     "<IsInstallationSupported>false</IsInstallationSupported></K></Data>"},
    {"IsProductInstalled", Request("", 4, "IsProductInstalled_10605168130514402176"),
     Response("<__result>false</__result>"), "IsProductInstalled()", ZAM_ACT(Deployer->IsProductInstalled()),
     "false"},
    {"Uninstall", Request("", 4, "Uninstall_18146462495559910883"), Response(""), "Uninstall()",
     ZAM_ACT_VOID(Deployer->Uninstall()), ""},
};

inline std::ostream& operator<<(std::ostream& out, const SExchange& exchange) {
    return out << exchange.Name;
}

struct SExchangeName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return std::string(info.param.Name);
    }
};

}  // namespace zamtest
