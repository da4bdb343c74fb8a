// SPDX-License-Identifier: Apache-2.0
/// \file
/// An implementation of the installer's interfaces that writes down what it is asked, and fails on demand.
#pragma once

#include <zamclientlib/Installer.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/api/FakeJournal.h"

namespace zamtest {

inline std::string Joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "[" : "|[") + text + ']';
    return all;
}

class CFakePackageManager final : public zamclientlib::IPackageManager {
public:
    explicit CFakePackageManager(Journal journal) : m_journal(std::move(journal)) {}
    ~CFakePackageManager() override { m_journal->NoteEnd("IPackageManager"); }

    apigen::Optional<zamclientlib::SPackageInfo> FindInstalledPackage(
        std::string packageName) const override {
        m_journal->Note("FindInstalledPackage(" + packageName + ')');
        if (packageName == "nothing") return {};
        return zamclientlib::SPackageInfo{packageName, "a package", "1.5-2"};
    }
    void InstalLocalPackages(std::vector<std::string> pkgPaths) const override {
        m_journal->Note("InstalLocalPackages(" + Joined(pkgPaths) + ')');
    }
    void UpdateLocalPackages(std::vector<std::string> pkgPaths) const override {
        m_journal->Note("UpdateLocalPackages(" + Joined(pkgPaths) + ')');
    }
    void RemovePackages(std::vector<std::string> pkgNames) const override {
        m_journal->Note("RemovePackages(" + Joined(pkgNames) + ')');
    }
    std::string GetPackageNameFromFile(std::string pkgPath) const override {
        m_journal->Note("GetPackageNameFromFile(" + pkgPath + ')');
        return "name of " + pkgPath;
    }

private:
    Journal m_journal;
};

class CFakeService final : public zamclientlib::IService {
public:
    CFakeService(Journal journal, std::string name)
        : m_journal(std::move(journal)), m_name(std::move(name)) {}
    ~CFakeService() override { m_journal->NoteEnd("IService"); }

    std::string GetName() const override {
        m_journal->Note("GetName()");
        return m_name;
    }
    zamclientlib::EServiceStatus GetServiceStatus() const override {
        m_journal->Note("GetServiceStatus()");
        return zamclientlib::EServiceStatus::Stopping;
    }
    void Start() override { m_journal->Note("Start()"); }
    void Stop() override { m_journal->Note("Stop()"); }

private:
    Journal m_journal;
    std::string m_name;
};

class CFakeDeployer final : public zamclientlib::IZAMDeployer {
public:
    explicit CFakeDeployer(Journal journal) : m_journal(std::move(journal)) {}
    ~CFakeDeployer() override { m_journal->NoteEnd("IZAMDeployer"); }

    zamclientlib::SVersion GetAgentVersion() const override {
        m_journal->Note("GetAgentVersion()");
        return {6, 1, 2, 1498};
    }
    zamclientlib::SVersion GetDriverVersion() const override {
        m_journal->Note("GetDriverVersion()");
        return {7, 8, 9, 10};
    }
    bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const override {
        m_journal->Note("IsSystemSupportedByProduct(" + packageIndexXmlPath + ')');
        return true;
    }
    zamclientlib::SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const override {
        m_journal->Note("GetInstallationInfo(" + packageIndexXmlPath + ')');
        return {{4, 3, 2, 1}, {"a.deb", "b.deb"}, true, false};
    }
    bool IsProductInstalled() const override {
        m_journal->Note("IsProductInstalled()");
        return false;
    }
    void Uninstall() override { m_journal->Note("Uninstall()"); }

private:
    Journal m_journal;
};

class CFakeInstaller final : public zamclientlib::ITarvoInstaller {
public:
    explicit CFakeInstaller(Journal journal) : m_journal(std::move(journal)) {}
    ~CFakeInstaller() override { m_journal->NoteEnd("ITarvoInstaller"); }

    zamclientlib::SSystemInformation GetSystemInformation() const override {
        m_journal->Note("GetSystemInformation()");
        zamclientlib::SSystemInformation information;
        information.SystemUID.Data1 = 1;
        information.OsName = "Debian";
        information.OsVersion = {12, 7, 0, 0};
        information.OsHardwarePlatform = static_cast<zamclientlib::OSHardwarePlatform>(99);
        information.NetworkInterfaces = {{"lo", zamclientlib::EthInterfaceStatus::Up, "", {"127.0.0.1"}}};
        information.FQDN = "a.example";
        return information;
    }
    bool IsSystemSupported() const override {
        m_journal->Note("IsSystemSupported()");
        return true;
    }
    zamclientlib::SVersion GetToolVersion() const override {
        m_journal->Note("GetToolVersion()");
        return {2, 0, 5, 12};
    }
    std::shared_ptr<zamclientlib::IPackageManager> GetPackageManager() override {
        m_journal->Note("GetPackageManager()");
        return std::make_shared<CFakePackageManager>(m_journal);
    }
    std::shared_ptr<zamclientlib::IService> FindService(std::string serviceName) override {
        m_journal->Note("FindService(" + serviceName + ')');
        if (serviceName == "nothing") return nullptr;
        return std::make_shared<CFakeService>(m_journal, serviceName);
    }
    std::shared_ptr<zamclientlib::IService> GetZAMService() override {
        m_journal->Note("GetZAMService()");
        return std::make_shared<CFakeService>(m_journal, "tarvo");
    }
    std::shared_ptr<zamclientlib::IZAMDeployer> GetZAMDeployer() override {
        m_journal->Note("GetZAMDeployer()");
        return std::make_shared<CFakeDeployer>(m_journal);
    }

private:
    Journal m_journal;
};

}  // namespace zamtest
