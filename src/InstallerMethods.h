// SPDX-License-Identifier: Apache-2.0
/// \file
/// The methods of the installer's interfaces.
#pragma once

#include <zamclientlib/Installer.h>

#include "src/Method.h"

namespace zamclientlib {

namespace installer {
inline constexpr auto GetSystemInformation =
    Describe(&ITarvoInstaller::GetSystemInformation, "GetSystemInformation_14796640772420918772",
             "SSystemInformation GetSystemInformation() const");
inline constexpr auto IsSystemSupported =
    Describe(&ITarvoInstaller::IsSystemSupported, "IsSystemSupported_6523745946180482134",
             "bool IsSystemSupported() const");
inline constexpr auto GetToolVersion =
    Describe(&ITarvoInstaller::GetToolVersion, "GetToolVersion_9650153311793924748",
             "SVersion GetToolVersion() const");
inline constexpr auto GetPackageManager =
    Describe(&ITarvoInstaller::GetPackageManager, "GetPackageManager_1628991831313356514",
             "std::shared_ptr< IPackageManager > GetPackageManager()");
inline constexpr auto FindService =
    Describe(&ITarvoInstaller::FindService, "FindService_15620865180769635232",
             "std::shared_ptr< IService > FindService(std::string serviceName)", "serviceName");
inline constexpr auto GetZAMService =
    Describe(&ITarvoInstaller::GetZAMService, "GetZAMService_7046161401573418507",
             "std::shared_ptr< IService > GetZAMService()");
inline constexpr auto GetZAMDeployer =
    Describe(&ITarvoInstaller::GetZAMDeployer, "GetZAMDeployer_6155923443671149866",
             "std::shared_ptr< IZAMDeployer > GetZAMDeployer()");
}  // namespace installer

template <>
struct MethodsOf<ITarvoInstaller> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(installer::GetSystemInformation);
        visit(installer::IsSystemSupported);
        visit(installer::GetToolVersion);
        visit(installer::GetPackageManager);
        visit(installer::FindService);
        visit(installer::GetZAMService);
        visit(installer::GetZAMDeployer);
    }
};

namespace deployer {
inline constexpr auto GetAgentVersion =
    Describe(&IZAMDeployer::GetAgentVersion, "GetAgentVersion_6425147347192826487",
             "SVersion GetAgentVersion() const");
inline constexpr auto GetDriverVersion =
    Describe(&IZAMDeployer::GetDriverVersion, "GetDriverVersion_11268104998534781400",
             "SVersion GetDriverVersion() const");
inline constexpr auto IsSystemSupportedByProduct =
    Describe(&IZAMDeployer::IsSystemSupportedByProduct, "IsSystemSupportedByProduct_9145649959737313651",
             "bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const", "packageIndexXmlPath");
inline constexpr auto GetInstallationInfo = Describe(
    &IZAMDeployer::GetInstallationInfo, "GetInstallationInfo_4462774100910194631",
    "SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const", "packageIndexXmlPath");
inline constexpr auto IsProductInstalled =
    Describe(&IZAMDeployer::IsProductInstalled, "IsProductInstalled_10605168130514402176",
             "bool IsProductInstalled() const");
inline constexpr auto Uninstall =
    Describe(&IZAMDeployer::Uninstall, "Uninstall_18146462495559910883", "void Uninstall()");
}  // namespace deployer

template <>
struct MethodsOf<IZAMDeployer> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(deployer::GetAgentVersion);
        visit(deployer::GetDriverVersion);
        visit(deployer::IsSystemSupportedByProduct);
        visit(deployer::GetInstallationInfo);
        visit(deployer::IsProductInstalled);
        visit(deployer::Uninstall);
    }
};

namespace service {
inline constexpr auto GetName =
    Describe(&IService::GetName, "GetName_12671373201279964889", "std::string GetName() const");
inline constexpr auto GetServiceStatus =
    Describe(&IService::GetServiceStatus, "GetServiceStatus_11547550400782890202",
             "EServiceStatus GetServiceStatus() const");
inline constexpr auto Start = Describe(&IService::Start, "Start_11243714758416590425", "void Start()");
inline constexpr auto Stop = Describe(&IService::Stop, "Stop_11506971857825673697", "void Stop()");
}  // namespace service

template <>
struct MethodsOf<IService> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(service::GetName);
        visit(service::GetServiceStatus);
        visit(service::Start);
        visit(service::Stop);
    }
};

namespace packages {
inline constexpr auto FindInstalledPackage = Describe(
    &IPackageManager::FindInstalledPackage, "FindInstalledPackage_16791466557512328961",
    "apigen::Optional< SPackageInfo > FindInstalledPackage(std::string packageName) const", "packageName");
inline constexpr auto InstalLocalPackages =
    Describe(&IPackageManager::InstalLocalPackages, "InstalLocalPackages_18177456428110118300",
             "void InstalLocalPackages(std::vector< std::string > pkgPaths) const", "pkgPaths");
inline constexpr auto UpdateLocalPackages =
    Describe(&IPackageManager::UpdateLocalPackages, "UpdateLocalPackages_15359749623785971304",
             "void UpdateLocalPackages(std::vector< std::string > pkgPaths) const", "pkgPaths");
inline constexpr auto RemovePackages =
    Describe(&IPackageManager::RemovePackages, "RemovePackages_16476592220287799532",
             "void RemovePackages(std::vector< std::string > pkgNames) const", "pkgNames");
inline constexpr auto GetPackageNameFromFile =
    Describe(&IPackageManager::GetPackageNameFromFile, "GetPackageNameFromFile_2448479667004574270",
             "std::string GetPackageNameFromFile(std::string pkgPath) const", "pkgPath");
}  // namespace packages

template <>
struct MethodsOf<IPackageManager> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(packages::FindInstalledPackage);
        visit(packages::InstalLocalPackages);
        visit(packages::UpdateLocalPackages);
        visit(packages::RemovePackages);
        visit(packages::GetPackageNameFromFile);
    }
};

}  // namespace zamclientlib
