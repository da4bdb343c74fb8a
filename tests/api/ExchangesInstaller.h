// SPDX-License-Identifier: Apache-2.0
/// \file
/// The installer's methods as they travel.
#pragma once

#include "tests/api/Exchanges.h"

namespace zamtest {

inline const std::vector<SExchange> InstallerExchanges{
    // ITarvoInstaller
    {"ITarvoInstaller_GetSystemInformation", Request("", 1, "GetSystemInformation_14796640772420918772"),
     Response("<__result><SystemUID>{00000001-0000-0000-0000-000000000000}</SystemUID>"
              "<BiosUID>{00000000-0000-0000-0000-000000000000}</BiosUID><OsName>Debian</OsName><OsId></OsId>"
              "<OsVersion><major>12</major><minor>7</minor><revision>0</revision><build>0</build></OsVersion>"
              "<OsCodeName></OsCodeName><OsKernelVersion></OsKernelVersion><OsType>0</OsType>"
              "<OsHardwarePlatform>99</OsHardwarePlatform><HostName></HostName><NetworkInterfaces><item>"
              "<Name>lo</Name><Status>1</Status><MacAddress></MacAddress><IpAddresses><item>127.0.0.1</item>"
              "</IpAddresses></item></NetworkInterfaces><FQDN>a.example</FQDN></__result>"),
     "GetSystemInformation()", ZAM_ACT(Installer->GetSystemInformation()),
     "<Data><K><SystemUID>{00000001-0000-0000-0000-000000000000}</SystemUID>"
     "<BiosUID>{00000000-0000-0000-0000-000000000000}</BiosUID><OsName>Debian</OsName><OsId></OsId>"
     "<OsVersion><major>12</major><minor>7</minor><revision>0</revision><build>0</build></OsVersion>"
     "<OsCodeName></OsCodeName><OsKernelVersion></OsKernelVersion><OsType>0</OsType>"
     "<OsHardwarePlatform>99</OsHardwarePlatform><HostName></HostName><NetworkInterfaces><item>"
     "<Name>lo</Name><Status>1</Status><MacAddress></MacAddress><IpAddresses><item>127.0.0.1</item>"
     "</IpAddresses></item></NetworkInterfaces><FQDN>a.example</FQDN></K></Data>"},
    {"ITarvoInstaller_IsSystemSupported", Request("", 1, "IsSystemSupported_6523745946180482134"),
     Response("<__result>true</__result>"), "IsSystemSupported()", ZAM_ACT(Installer->IsSystemSupported()),
     "true"},
    {"ITarvoInstaller_GetToolVersion", Request("", 1, "GetToolVersion_9650153311793924748"),
     Response("<__result><major>2</major><minor>0</minor><revision>5</revision><build>12</build></__result>"),
     "GetToolVersion()", ZAM_ACT(Installer->GetToolVersion()),
     "<Data><K><major>2</major><minor>0</minor><revision>5</revision><build>12</build></K></Data>"},
    {"ITarvoInstaller_GetPackageManager", Request("", 1, "GetPackageManager_1628991831313356514"),
     Response("<__handle>5</__handle>"), "GetPackageManager()", ZAM_ACT(Installer->GetPackageManager()),
     "object"},
    {"ITarvoInstaller_FindService",
     Request("<serviceName>a &lt;b&gt;</serviceName>", 1, "FindService_15620865180769635232"),
     Response("<__handle>5</__handle>"), "FindService(a <b>)", ZAM_ACT(Installer->FindService("a <b>")),
     "object"},
    {"ITarvoInstaller_FindServiceOfNothing",
     Request("<serviceName>nothing</serviceName>", 1, "FindService_15620865180769635232"),
     Response("<__handle>0</__handle>"), "FindService(nothing)", ZAM_ACT(Installer->FindService("nothing")),
     "null"},
    {"ITarvoInstaller_GetZAMService", Request("", 1, "GetZAMService_7046161401573418507"),
     Response("<__handle>5</__handle>"), "GetZAMService()", ZAM_ACT(Installer->GetZAMService()), "object"},
    {"ITarvoInstaller_GetZAMDeployer", Request("", 1, "GetZAMDeployer_6155923443671149866"),
     Response("<__handle>5</__handle>"), "GetZAMDeployer()", ZAM_ACT(Installer->GetZAMDeployer()), "object"},
    // IPackageManager
    {"IPackageManager_FindInstalledPackage",
     Request("<packageName>zstd</packageName>", 2, "FindInstalledPackage_16791466557512328961"),
     Response("<__result><opt><Name>zstd</Name><Description>a package</Description>"
              "<VersionRaw>1.5-2</VersionRaw></opt></__result>"),
     "FindInstalledPackage(zstd)", ZAM_ACT(Packages->FindInstalledPackage("zstd")),
     "<Data><K><Name>zstd</Name><Description>a "
     "package</Description><VersionRaw>1.5-2</VersionRaw></K></Data>"},
    {"IPackageManager_FindInstalledPackageOfNothing",
     Request("<packageName>nothing</packageName>", 2, "FindInstalledPackage_16791466557512328961"),
     Response(""), "FindInstalledPackage(nothing)", ZAM_ACT(Packages->FindInstalledPackage("nothing")),
     "none"},
    {"IPackageManager_InstalLocalPackages",
     Request("<pkgPaths><item>/a b.deb</item></pkgPaths><pkgPaths><item></item></pkgPaths>"
             "<pkgPaths><item encoding=\"base64\">/w==</item></pkgPaths>",
             2, "InstalLocalPackages_18177456428110118300"),
     Response(""), "InstalLocalPackages([/a b.deb]|[]|[\xff])",
     ZAM_ACT_VOID(Packages->InstalLocalPackages({"/a b.deb", "", "\xff"})), ""},
    {"IPackageManager_UpdateLocalPackages",
     Request("<pkgPaths><item>/u.deb</item></pkgPaths>", 2, "UpdateLocalPackages_15359749623785971304"),
     Response(""), "UpdateLocalPackages([/u.deb])", ZAM_ACT_VOID(Packages->UpdateLocalPackages({"/u.deb"})),
     ""},
    {"IPackageManager_RemovePackages",
     Request("<pkgNames><item>x</item></pkgNames><pkgNames><item>y</item></pkgNames>", 2,
             "RemovePackages_16476592220287799532"),
     Response(""), "RemovePackages([x]|[y])", ZAM_ACT_VOID(Packages->RemovePackages({"x", "y"})), ""},
    {"IPackageManager_RemovePackagesOfAnEmptyList", Request("", 2, "RemovePackages_16476592220287799532"),
     Response(""), "RemovePackages()", ZAM_ACT_VOID(Packages->RemovePackages({})), ""},
    {"IPackageManager_GetPackageNameFromFile",
     Request("<pkgPath>/p.deb</pkgPath>", 2, "GetPackageNameFromFile_2448479667004574270"),
     Response("<__result>name of /p.deb</__result>"), "GetPackageNameFromFile(/p.deb)",
     ZAM_ACT(Packages->GetPackageNameFromFile("/p.deb")), "name of /p.deb"},
    // IService
    {"IService_GetName", Request("", 3, "GetName_12671373201279964889"),
     Response("<__result>tarvo</__result>"), "GetName()", ZAM_ACT(Service->GetName()), "tarvo"},
    {"IService_GetServiceStatus", Request("", 3, "GetServiceStatus_11547550400782890202"),
     Response("<__result>4</__result>"), "GetServiceStatus()", ZAM_ACT(Service->GetServiceStatus()), "4"},
    {"IService_Start", Request("", 3, "Start_11243714758416590425"), Response(""), "Start()",
     ZAM_ACT_VOID(Service->Start()), ""},
    {"IService_Stop", Request("", 3, "Stop_11506971857825673697"), Response(""), "Stop()",
     ZAM_ACT_VOID(Service->Stop()), ""},
    // IZAMDeployer
    {"IZAMDeployer_GetAgentVersion", Request("", 4, "GetAgentVersion_6425147347192826487"),
     Response(
         "<__result><major>6</major><minor>1</minor><revision>2</revision><build>1498</build></__result>"),
     "GetAgentVersion()", ZAM_ACT(Deployer->GetAgentVersion()),
     "<Data><K><major>6</major><minor>1</minor><revision>2</revision><build>1498</build></K></Data>"},
    {"IZAMDeployer_GetDriverVersion", Request("", 4, "GetDriverVersion_11268104998534781400"),
     Response("<__result><major>7</major><minor>8</minor><revision>9</revision><build>10</build></__result>"),
     "GetDriverVersion()", ZAM_ACT(Deployer->GetDriverVersion()),
     "<Data><K><major>7</major><minor>8</minor><revision>9</revision><build>10</build></K></Data>"},
    {"IZAMDeployer_IsSystemSupportedByProduct",
     Request("<packageIndexXmlPath>/i.xml</packageIndexXmlPath>", 4,
             "IsSystemSupportedByProduct_9145649959737313651"),
     Response("<__result>true</__result>"), "IsSystemSupportedByProduct(/i.xml)",
     ZAM_ACT(Deployer->IsSystemSupportedByProduct("/i.xml")), "true"},
    {"IZAMDeployer_GetInstallationInfo",
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
    {"IZAMDeployer_IsProductInstalled", Request("", 4, "IsProductInstalled_10605168130514402176"),
     Response("<__result>false</__result>"), "IsProductInstalled()", ZAM_ACT(Deployer->IsProductInstalled()),
     "false"},
    {"IZAMDeployer_Uninstall", Request("", 4, "Uninstall_18146462495559910883"), Response(""), "Uninstall()",
     ZAM_ACT_VOID(Deployer->Uninstall()), ""},
};

}  // namespace zamtest
