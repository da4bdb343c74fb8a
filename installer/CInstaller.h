// SPDX-License-Identifier: Apache-2.0
// The root object of the installer tool.
#pragma once

#include <zamclientlib/Installer.h>

#include <memory>
#include <string>

#include "installer/SInstallerContext.h"

namespace installer {

class CInstaller final : public zamclientlib::ITarvoInstaller {
public:
    explicit CInstaller(SInstallerContext context) : m_context(std::move(context)) {}

    zamclientlib::SSystemInformation GetSystemInformation() const override;
    bool IsSystemSupported() const override;
    zamclientlib::SVersion GetToolVersion() const override;
    std::shared_ptr<zamclientlib::IPackageManager> GetPackageManager() override;
    std::shared_ptr<zamclientlib::IService> FindService(std::string serviceName) override;
    std::shared_ptr<zamclientlib::IService> GetZAMService() override;
    std::shared_ptr<zamclientlib::IZAMDeployer> GetZAMDeployer() override;

private:
    SInstallerContext m_context;
};

}  // namespace installer
