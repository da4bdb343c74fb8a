// SPDX-License-Identifier: Apache-2.0
// The product's own packages.
#pragma once

#include <zamclientlib/Installer.h>

#include <string>

#include "installer/CDebianPackageManager.h"
#include "installer/SInstallerContext.h"

namespace installer {

class CDeployer final : public zamclientlib::IZAMDeployer {
public:
    explicit CDeployer(const SInstallerContext& context) : m_context(context), m_packages(context) {}

    zamclientlib::SVersion GetAgentVersion() const override;
    zamclientlib::SVersion GetDriverVersion() const override;
    bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const override;
    zamclientlib::SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const override;
    bool IsProductInstalled() const override;
    void Uninstall() override;

private:
    zamclientlib::SVersion InstalledVersion(const char* packageName) const;

    SInstallerContext m_context;
    CDebianPackageManager m_packages;
};

}  // namespace installer
