// SPDX-License-Identifier: Apache-2.0
/// \file
/// The interfaces of the installer tool. `GetTarvoInstaller` connects to one.
///
/// Every method is a remote call. It throws the exception that the service reported (Exceptions.h), or
/// `apigen::ApiInternalError` when the transport failed; a failed call leaves the object usable, but for a
/// connection that is gone for good. Objects may be used from several threads; their calls take turns.
#pragma once

#include <apigen/Export.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/InstallerRecords.h>

#include <memory>
#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// The package system of the host.
class IPackageManager {
public:
    /// The package, or empty when it is not installed.
    [[nodiscard]] virtual apigen::Optional<SPackageInfo> FindInstalledPackage(
        std::string packageName) const = 0;

    /// Installs packages from local files. (The name's spelling is part of the wire.)
    ///
    /// Takes what `IZAMDeployer::GetInstallationInfo` offers as it is:
    /// \code
    /// const auto offer = installer->GetZAMDeployer()->GetInstallationInfo("/srv/release/index.xml");
    /// if (offer.IsInstallationSupported)
    ///     installer->GetPackageManager()->InstalLocalPackages(offer.PackageForInstall);
    /// \endcode
    /// It installs the list, all of it or nothing unless the package system itself fails half-way. A package of which an
    /// older version is installed is updated; a newer one is never replaced.
    /// \param pkgPaths what holds a `/` or ends in `.deb` is a file on the tool's host, also when the tool manages a
    ///        system in another folder; give absolute paths, and let nobody change the files until the call returns.
    ///        Anything else is the name of a package of the distribution: it stays as it is when it is installed;
    ///        otherwise the running system fetches it, and a system in another folder refuses the list.
    /// \throws CGenericException when a file, or a package by its name, can't be installed; it tells which and why
    /// \throws CPackageManagerIsLocked when another program holds the package system.
    virtual void InstalLocalPackages(std::vector<std::string> pkgPaths) const = 0;

    /// Updates installed packages from local files. As `InstalLocalPackages`, but refuses the list when one of its
    /// packages is not installed.
    /// \throws CPackageManagerIsLocked when another program holds the package system.
    virtual void UpdateLocalPackages(std::vector<std::string> pkgPaths) const = 0;

    /// Removes packages by name.
    /// \throws CPackageManagerIsLocked when another program holds the package system.
    virtual void RemovePackages(std::vector<std::string> pkgNames) const = 0;

    /// The name of the package in a package file.
    [[nodiscard]] virtual std::string GetPackageNameFromFile(std::string pkgPath) const = 0;

    virtual ~IPackageManager() = default;
};

/// A service of the host's service manager.
class IService {
public:
    /// The service's name, as the service manager knows it.
    [[nodiscard]] virtual std::string GetName() const = 0;
    /// What it does at this moment.
    [[nodiscard]] virtual EServiceStatus GetServiceStatus() const = 0;

    /// Starts the service and returns once it runs.
    virtual void Start() = 0;

    /// Stops the service and returns once it has ended.
    virtual void Stop() = 0;

    virtual ~IService() = default;
};

/// The agent product on the host. A package index is a local XML file that lists what can be installed.
class IZAMDeployer {
public:
    /// Version of the installed agent; all zeros when none is installed.
    [[nodiscard]] virtual SVersion GetAgentVersion() const = 0;

    /// Version of the installed driver; all zeros when none is installed.
    [[nodiscard]] virtual SVersion GetDriverVersion() const = 0;

    /// Whether the index offers something for this host.
    /// \param packageIndexXmlPath a file on the tool's host
    [[nodiscard]] virtual bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const = 0;

    /// What the index offers this host; its `PackageForInstall` is for `IPackageManager::InstalLocalPackages`.
    /// \param packageIndexXmlPath a file on the tool's host
    [[nodiscard]] virtual SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const = 0;

    /// Whether the product is installed on this host.
    [[nodiscard]] virtual bool IsProductInstalled() const = 0;

    /// Removes the product's packages.
    virtual void Uninstall() = 0;

    virtual ~IZAMDeployer() = default;
};

/// Root of the installer's objects.
class ITarvoInstaller {
public:
    /// What the host is: its name, system, processors and network interfaces.
    [[nodiscard]] virtual SSystemInformation GetSystemInformation() const = 0;

    /// Whether the tool can manage this host.
    [[nodiscard]] virtual bool IsSystemSupported() const = 0;

    /// The version of the tool itself.
    [[nodiscard]] virtual SVersion GetToolVersion() const = 0;
    /// The host's package system.
    [[nodiscard]] virtual std::shared_ptr<IPackageManager> GetPackageManager() = 0;

    /// The service called `serviceName`, or an empty pointer when the host has none.
    [[nodiscard]] virtual std::shared_ptr<IService> FindService(std::string serviceName) = 0;

    /// The agent's own service, or an empty pointer when the host has none.
    [[nodiscard]] virtual std::shared_ptr<IService> GetZAMService() = 0;

    /// The product on this host.
    [[nodiscard]] virtual std::shared_ptr<IZAMDeployer> GetZAMDeployer() = 0;

    virtual ~ITarvoInstaller() = default;
};

}  // namespace zamclientlib
