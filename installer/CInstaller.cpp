// SPDX-License-Identifier: Apache-2.0
#include "installer/CInstaller.h"

#include "installer/CDebianPackageManager.h"
#include "installer/CDeployer.h"
#include "installer/CHostInformation.h"
#include "installer/CSystemdService.h"
#include "installer/ProductNames.h"
#include "installer/VersionText.h"

namespace installer {

zamclientlib::SSystemInformation CInstaller::GetSystemInformation() const {
    return CHostInformation(m_context).Read();
}

bool CInstaller::IsSystemSupported() const {
    return CHostInformation(m_context).IsSupported();
}

zamclientlib::SVersion CInstaller::GetToolVersion() const {
    return LeadingVersion(ZAM_VERSION);
}

std::shared_ptr<zamclientlib::IPackageManager> CInstaller::GetPackageManager() {
    return std::make_shared<CDebianPackageManager>(m_context);
}

std::shared_ptr<zamclientlib::IService> CInstaller::FindService(std::string serviceName) {
    return CSystemdService::Find(m_context, serviceName);
}

std::shared_ptr<zamclientlib::IService> CInstaller::GetZAMService() {
    return FindService(agentService);
}

std::shared_ptr<zamclientlib::IZAMDeployer> CInstaller::GetZAMDeployer() {
    return std::make_shared<CDeployer>(m_context);
}

}  // namespace installer
