// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/InstallerProxies.h>

#include "src/InstallerMethods.h"
#include "src/ProxyCall.h"

namespace zamclientlib {

template <>
struct ProxyOf<ITarvoInstaller> {
    using Type = ITarvoInstaller_Proxy;
};

template <>
struct ProxyOf<IZAMDeployer> {
    using Type = IZAMDeployer_Proxy;
};

template <>
struct ProxyOf<IService> {
    using Type = IService_Proxy;
};

template <>
struct ProxyOf<IPackageManager> {
    using Type = IPackageManager_Proxy;
};

SSystemInformation ITarvoInstaller_Proxy::GetSystemInformation() const {
    return Call(*this, installer::GetSystemInformation);
}

bool ITarvoInstaller_Proxy::IsSystemSupported() const {
    return Call(*this, installer::IsSystemSupported);
}

SVersion ITarvoInstaller_Proxy::GetToolVersion() const {
    return Call(*this, installer::GetToolVersion);
}

std::shared_ptr<IPackageManager> ITarvoInstaller_Proxy::GetPackageManager() {
    return Call(*this, installer::GetPackageManager);
}

std::shared_ptr<IService> ITarvoInstaller_Proxy::FindService(std::string serviceName) {
    return Call(*this, installer::FindService, serviceName);
}

std::shared_ptr<IService> ITarvoInstaller_Proxy::GetZAMService() {
    return Call(*this, installer::GetZAMService);
}

std::shared_ptr<IZAMDeployer> ITarvoInstaller_Proxy::GetZAMDeployer() {
    return Call(*this, installer::GetZAMDeployer);
}

SVersion IZAMDeployer_Proxy::GetAgentVersion() const {
    return Call(*this, deployer::GetAgentVersion);
}

SVersion IZAMDeployer_Proxy::GetDriverVersion() const {
    return Call(*this, deployer::GetDriverVersion);
}

bool IZAMDeployer_Proxy::IsSystemSupportedByProduct(std::string packageIndexXmlPath) const {
    return Call(*this, deployer::IsSystemSupportedByProduct, packageIndexXmlPath);
}

SInstallationInfo IZAMDeployer_Proxy::GetInstallationInfo(std::string packageIndexXmlPath) const {
    return Call(*this, deployer::GetInstallationInfo, packageIndexXmlPath);
}

bool IZAMDeployer_Proxy::IsProductInstalled() const {
    return Call(*this, deployer::IsProductInstalled);
}

void IZAMDeployer_Proxy::Uninstall() {
    return Call(*this, deployer::Uninstall);
}

std::string IService_Proxy::GetName() const {
    return Call(*this, service::GetName);
}

EServiceStatus IService_Proxy::GetServiceStatus() const {
    return Call(*this, service::GetServiceStatus);
}

void IService_Proxy::Start() {
    return Call(*this, service::Start);
}

void IService_Proxy::Stop() {
    return Call(*this, service::Stop);
}

apigen::Optional<SPackageInfo> IPackageManager_Proxy::FindInstalledPackage(std::string packageName) const {
    return Call(*this, packages::FindInstalledPackage, packageName);
}

void IPackageManager_Proxy::InstalLocalPackages(std::vector<std::string> pkgPaths) const {
    return Call(*this, packages::InstalLocalPackages, pkgPaths);
}

void IPackageManager_Proxy::UpdateLocalPackages(std::vector<std::string> pkgPaths) const {
    return Call(*this, packages::UpdateLocalPackages, pkgPaths);
}

void IPackageManager_Proxy::RemovePackages(std::vector<std::string> pkgNames) const {
    return Call(*this, packages::RemovePackages, pkgNames);
}

std::string IPackageManager_Proxy::GetPackageNameFromFile(std::string pkgPath) const {
    return Call(*this, packages::GetPackageNameFromFile, pkgPath);
}

}  // namespace zamclientlib
