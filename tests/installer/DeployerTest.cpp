// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <fstream>
#include <string>
#include <vector>

#include "CTestSystem.h"
#include "TestFolder.h"
#include "installer/CDeployer.h"
#include "installer/CHostInformation.h"
#include "installer/CInstaller.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::SVersion;

std::string MachineOfTheHost() {
    for (const char* const name : {"x86_64", "i686", "aarch64", "ppc64le", "s390x", "riscv64"}) {
        if (PlatformOf(name) == HostPlatform()) return name;
    }
    return "unknown-machine";
}

class Deployer : public testing::Test {
protected:
    CTestSystem m_system;
    CDebianPackageManager m_packages{m_system.Context()};
    CDeployer m_deployer{m_system.Context()};
};

TEST_F(Deployer, AHostWithoutTheProductHasZeroVersions) {
    EXPECT_FALSE(m_deployer.IsProductInstalled());
    EXPECT_EQ(m_deployer.GetAgentVersion(), SVersion{});
    EXPECT_EQ(m_deployer.GetDriverVersion(), SVersion{});
    EXPECT_THROW_WITH(m_deployer.Uninstall(), CGenericException, "tarvo-agent, tarvo-driver");
}

TEST_F(Deployer, TheProductIsInstalledWhenTheAgentIs) {
    m_packages.InstalLocalPackages({m_system.Build({"tarvo-driver", "6.1.0.26-1"})});
    EXPECT_FALSE(m_deployer.IsProductInstalled());
    m_packages.InstalLocalPackages({m_system.Build({"tarvo-agent", "1:6.1.0.27-2~deb12u1"})});
    EXPECT_TRUE(m_deployer.IsProductInstalled());
    EXPECT_EQ(m_deployer.GetAgentVersion(), (SVersion{6, 1, 0, 27}));
    EXPECT_EQ(m_deployer.GetDriverVersion(), (SVersion{6, 1, 0, 26}));
}

TEST_F(Deployer, UninstallRemovesWhatIsThereAndNothingElse) {
    m_packages.InstalLocalPackages({m_system.Build({"tarvo-agent"}), m_system.Build({"bystander"})});
    m_deployer.Uninstall();
    EXPECT_FALSE(m_deployer.IsProductInstalled());
    EXPECT_FALSE(std::filesystem::exists(m_system.Root() / "usr/share/tarvo-agent"));
    EXPECT_EQ(m_system.DpkgStatus("bystander"), "install ok installed 1.0");

    m_packages.InstalLocalPackages({m_system.Build({"tarvo-agent", "1", "d", "Depends: tarvo-driver\n"}),
                                    m_system.Build({"tarvo-driver"})});
    m_deployer.Uninstall();
    EXPECT_FALSE(m_packages.IsPresent("tarvo-agent"));
    EXPECT_FALSE(m_packages.IsPresent("tarvo-driver"));
}

TEST_F(Deployer, UninstallRemovesAHalfInstalledAgent) {
    const auto agent = m_system.Build({"tarvo-agent", "1", "d", "Depends: tarvo-driver\n"});
    EXPECT_THROW(m_packages.InstalLocalPackages({agent}), CGenericException);
    EXPECT_FALSE(m_deployer.IsProductInstalled());
    m_deployer.Uninstall();
    EXPECT_FALSE(m_packages.IsPresent("tarvo-agent"));
}

TEST_F(Deployer, TheIndexIsReadAgainstTheManagedSystem) {
    m_system.Folder().Write("etc/os-release", "ID=debian\nVERSION_ID=12\n");
    m_system.Folder().Write("etc/debian_version", "12.4\n");
    const std::string machine = MachineOfTheHost();
    const auto index = [&](const std::string& maxVersion) {
        return m_system.Folder()
            .Write("index.xml",
                   "<PackageIndex format='1' version='6.1'><Distribution id='debian' architecture='" +
                       machine + "' maxVersion='" + maxVersion +
                       "'><File>a.deb</File></Distribution></PackageIndex>")
            .string();
    };
    EXPECT_TRUE(m_deployer.IsSystemSupportedByProduct(index("12.4")));
    EXPECT_EQ(m_deployer.GetInstallationInfo(index("12")).PackageForInstall,
              std::vector<std::string>{(m_system.Root() / "a.deb").string()});
    EXPECT_FALSE(m_deployer.IsSystemSupportedByProduct(index("12.3")));
    EXPECT_FALSE(m_deployer.GetInstallationInfo(index("11")).IsInstallationSupported);
    EXPECT_THROW_WITH(m_deployer.IsSystemSupportedByProduct("/no/such/index.xml"), CGenericException,
                      "/no/such/index.xml");
}

TEST_F(Deployer, InstallingWhatAnIndexOffersTakesOneCall) {
    m_system.Folder().Write("etc/os-release", "ID=debian\nVERSION_ID=12\n");
    const auto agent =
        m_system.Build({"tarvo-agent", "6.1", "d", "Depends: tarvo-driver, helper\n"}, "agent.deb");
    const auto driver = m_system.Build({"tarvo-driver", "6.1"}, "driver.deb");
    m_system.Build({"unlisted"}, "unlisted.deb");
    // The index stands with its packages, on the host and not in the root.
    const std::string index = (agent.parent_path() / "index.xml").string();
    std::ofstream(index) << "<PackageIndex format='1' version='6.1'><Distribution id='debian' architecture='"
                         << MachineOfTheHost()
                         << "'><File>agent.deb</File><Package>helper</Package><File>driver.deb</File>"
                            "</Distribution></PackageIndex>";
    const auto list = [&] { return m_deployer.GetInstallationInfo(index).PackageForInstall; };
    EXPECT_EQ(list(), (std::vector<std::string>{agent.string(), "helper", driver.string()}));

    EXPECT_THROW_WITH(m_packages.InstalLocalPackages(list()), CGenericException, "package 'helper'");
    EXPECT_EQ(m_system.DpkgStatus("tarvo-driver"), "");
    m_packages.InstalLocalPackages({m_system.Build({"helper", "3"})});
    m_packages.InstalLocalPackages(list());
    EXPECT_EQ(m_system.DpkgStatus("tarvo-agent"), "install ok installed 6.1");
    EXPECT_EQ(m_system.DpkgStatus("tarvo-driver"), "install ok installed 6.1");
    EXPECT_EQ(m_system.DpkgStatus("helper"), "install ok installed 3");
    EXPECT_EQ(m_system.DpkgStatus("unlisted"), "");

    // The same call updates.
    m_system.Build({"tarvo-agent", "6.2", "d", "Depends: tarvo-driver, helper\n"}, "agent.deb");
    m_packages.InstalLocalPackages(list());
    EXPECT_EQ(m_deployer.GetAgentVersion(), (SVersion{6, 2, 0, 0}));

    std::filesystem::remove(driver);
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages(list()), CGenericException,
                      driver.string() + "\": No such file");
}

TEST_F(Deployer, TheRootObjectLeadsToAllParts) {
    m_packages.InstalLocalPackages({m_system.Build({"tarvo-agent", "6.1"})});
    CInstaller installer(m_system.Context());
    EXPECT_EQ(installer.GetZAMDeployer()->GetAgentVersion(), (SVersion{6, 1, 0, 0}));
    EXPECT_TRUE(installer.GetPackageManager()->FindInstalledPackage("tarvo-agent").HasValue());
    EXPECT_TRUE(installer.IsSystemSupported());
    EXPECT_GE(installer.GetToolVersion().major, 2);
    EXPECT_EQ(installer.GetSystemInformation().OsId, "linux");
    EXPECT_THROW_WITH(installer.GetZAMService(), CGenericException, "it is not the running system");
}

}  // namespace
}  // namespace installer::test
