// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <string>

#include "CTestSystem.h"
#include "TestFolder.h"
#include "installer/CDeployer.h"
#include "installer/CHostInformation.h"
#include "installer/CInstaller.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::SVersion;

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
    std::string machine = "unknown-machine";
    for (const char* const name : {"x86_64", "i686", "aarch64", "ppc64le", "s390x", "riscv64"}) {
        if (PlatformOf(name) == HostPlatform()) machine = name;
    }
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
