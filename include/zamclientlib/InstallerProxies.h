// SPDX-License-Identifier: Apache-2.0
/// \file
/// The client's side of the installer interfaces: objects of a service at the other end of an invoker.
#pragma once

#include <apigen/Export.h>
#include <apigen/ProxyBase.h>
#include <zamclientlib/Installer.h>

#include <memory>
#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// The host's package system at the other end of an invoker.
class IPackageManager_Proxy final : public IPackageManager, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    apigen::Optional<SPackageInfo> FindInstalledPackage(std::string packageName) const override;
    void InstalLocalPackages(std::vector<std::string> pkgPaths) const override;
    void UpdateLocalPackages(std::vector<std::string> pkgPaths) const override;
    void RemovePackages(std::vector<std::string> pkgNames) const override;
    std::string GetPackageNameFromFile(std::string pkgPath) const override;
};

/// A service of the host at the other end of an invoker.
class IService_Proxy final : public IService, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    std::string GetName() const override;
    EServiceStatus GetServiceStatus() const override;
    void Start() override;
    void Stop() override;
};

/// The product on the host at the other end of an invoker.
class IZAMDeployer_Proxy final : public IZAMDeployer, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SVersion GetAgentVersion() const override;
    SVersion GetDriverVersion() const override;
    bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const override;
    SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const override;
    bool IsProductInstalled() const override;
    void Uninstall() override;
};

/// The installer's root object at the other end of an invoker.
class ITarvoInstaller_Proxy final : public ITarvoInstaller, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SSystemInformation GetSystemInformation() const override;
    bool IsSystemSupported() const override;
    SVersion GetToolVersion() const override;
    std::shared_ptr<IPackageManager> GetPackageManager() override;
    std::shared_ptr<IService> FindService(std::string serviceName) override;
    std::shared_ptr<IService> GetZAMService() override;
    std::shared_ptr<IZAMDeployer> GetZAMDeployer() override;
};

}  // namespace zamclientlib
