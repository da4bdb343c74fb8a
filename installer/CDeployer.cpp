// SPDX-License-Identifier: Apache-2.0
#include "installer/CDeployer.h"

#include <zamclientlib/Exceptions.h>

#include <vector>

#include "installer/CHostInformation.h"
#include "installer/CPackageIndex.h"
#include "installer/ProductNames.h"
#include "installer/VersionText.h"

namespace installer {

zamclientlib::SVersion CDeployer::GetAgentVersion() const {
    return InstalledVersion(agentPackage);
}

zamclientlib::SVersion CDeployer::GetDriverVersion() const {
    return InstalledVersion(driverPackage);
}

bool CDeployer::IsSystemSupportedByProduct(std::string packageIndexXmlPath) const {
    return GetInstallationInfo(std::move(packageIndexXmlPath)).IsInstallationSupported;
}

zamclientlib::SInstallationInfo CDeployer::GetInstallationInfo(std::string packageIndexXmlPath) const {
    return CPackageIndex(packageIndexXmlPath).OfferFor(CHostInformation(m_context).ReadOs(), HostPlatform());
}

bool CDeployer::IsProductInstalled() const {
    return m_packages.FindInstalledPackage(agentPackage).HasValue();
}

void CDeployer::Uninstall() {
    std::vector<std::string> present;
    for (const char* const name : {agentPackage, driverPackage}) {
        // A package that was left half-way is removed too: that is what mends it.
        if (m_packages.IsPresent(name)) present.emplace_back(name);
    }
    if (present.empty()) {
        throw zamclientlib::CGenericException("Can't uninstall the product: none of its packages (" +
                                              std::string(agentPackage) + ", " + driverPackage +
                                              ") is installed.");
    }
    m_packages.RemovePackages(std::move(present));
}

zamclientlib::SVersion CDeployer::InstalledVersion(const char* packageName) const {
    const auto package = m_packages.FindInstalledPackage(packageName);
    return package ? SoftwareVersion(package->VersionRaw) : zamclientlib::SVersion{};
}

}  // namespace installer
