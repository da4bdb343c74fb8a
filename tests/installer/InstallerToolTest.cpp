// SPDX-License-Identifier: Apache-2.0
// The tool as a process: its command line, and its objects through the client library.
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/Exceptions.h>

#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "CTestSystem.h"
#include "TestFolder.h"
#include "installer/CommandRunner.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::CPackageManagerIsLocked;
using zamclientlib::SVersion;

const std::string tool = ZAM_INSTALLER;

TEST(InstallerTool, PrintsTheProtocolVersionAsOneDocument) {
    const SCommandResult result = RunQuery({tool, {"protocol-version"}});
    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(
        result.Output,
        "<Data><SCompatibilityInfo><protocolVersion><major>2</major><minor>0</minor><revision>0</revision>"
        "<build>0</build></protocolVersion></SCompatibilityInfo></Data>");
    EXPECT_EQ(result.ErrorText, "");
    EXPECT_TRUE(zamclientlib::IsInstallerApiCompatible(tool));
}

TEST(InstallerTool, TellsItsVersionAndItsUsage) {
    EXPECT_EQ(RunQuery({tool, {"--version"}}).Output, "tarvoinstaller " ZAM_VERSION "\n");
    const SCommandResult help = RunQuery({tool, {"--help"}});
    EXPECT_TRUE(help.Succeeded());
    EXPECT_NE(help.Output.find("start-command-invoker"), std::string::npos) << help.Output;
}

TEST(InstallerTool, TextThatCannotBeWrittenIsAFailure) {
    for (const char* const request : {"--version", "--help", "protocol-version"}) {
        EXPECT_EQ(RunQuery({"sh", {"-c", "exec \"$0\" " + std::string(request) + " > /dev/full", tool}})
                      .ExitStatus(),
                  1)
            << request;
    }
}

TEST(InstallerTool, AWrongCommandLineIsAnsweredWithTheUsage) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "A subcommand is required"},
        {{"bogus"}, "bogus"},
        {{""}, "not expected"},
        {{"--bogus"}, "--bogus"},
        {{"protocol-version", "extra"}, "extra"},
        {{"protocol-version", "start-command-invoker", "--log-name", "a"}, "start-command-invoker"},
        {{"start-command-invoker"}, "--log-name is required"},
        {{"start-command-invoker", "--log-name"}, "--log-name"},
        {{"start-command-invoker", "--log-name", ""}, "--log-name"},
        {{"start-command-invoker", "--log-name", "../a"}, "--log-name"},
        {{"start-command-invoker", "--log-name", ".."}, "--log-name"},
        {{"--root"}, "--root"},
    };
    EXPECT_EQ(RunQuery({tool, {"odd\x1b[31m\nword"}}).ErrorText.find("\x1b"), std::string::npos);
    for (const auto& [arguments, part] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const SCommandResult result = RunQuery({tool, arguments});
        EXPECT_EQ(result.ExitStatus(), 2);
        EXPECT_EQ(result.Output, "");
        EXPECT_NE(result.ErrorText.find(part), std::string::npos) << result.ErrorText;
        EXPECT_NE(result.ErrorText.find("Usage: tarvoinstaller"), std::string::npos) << result.ErrorText;
    }
}

class RemoteInstaller : public testing::Test {
protected:
    std::shared_ptr<zamclientlib::ITarvoInstaller> Connect(const std::string& root) const {
        const auto script =
            m_folder.WriteScript("tool", "echo $$ > '" + (m_folder.Path() / "pid").string() + "'\nexec " +
                                             m_launcher + " '" + tool + "' --root '" + root + "' \"$@\"\n");
        return zamclientlib::GetTarvoInstaller(script, std::chrono::seconds(60), false, nullptr);
    }

    std::string m_launcher;  // a command that starts the tool
    CTestFolder m_folder;
    CTestSystem m_system;
};

TEST_F(RemoteInstaller, DescribesTheHost) {
    m_system.Folder().Write("etc/os-release", "ID=debian\nVERSION_ID=12\nPRETTY_NAME='Test & <System>'\n");
    const auto installer = Connect(m_system.Root().string());
    const auto information = installer->GetSystemInformation();
    EXPECT_EQ(information.OsName, "Test & <System>");
    EXPECT_EQ(information.OsVersion, (SVersion{12, 0, 0, 0}));
    EXPECT_FALSE(information.NetworkInterfaces.empty());
    EXPECT_TRUE(installer->IsSystemSupported());
    EXPECT_GE(installer->GetToolVersion().major, 2);
}

TEST_F(RemoteInstaller, DrivesPackagesAndTheProduct) {
    const auto installer = Connect(m_system.Root().string());
    const auto packages = installer->GetPackageManager();
    const auto deployer = installer->GetZAMDeployer();
    EXPECT_FALSE(packages->FindInstalledPackage("tarvo-agent").HasValue());
    const auto file = m_system.Build({"tarvo-agent", "6.1.0.27-1", "The agent\n It <&> backs up."});
    EXPECT_EQ(packages->GetPackageNameFromFile(file), "tarvo-agent");
    packages->InstalLocalPackages({file});
    EXPECT_EQ(packages->FindInstalledPackage("tarvo-agent")->Description, "The agent\n It <&> backs up.");
    EXPECT_EQ(deployer->GetAgentVersion(), (SVersion{6, 1, 0, 27}));
    EXPECT_TRUE(deployer->IsProductInstalled());
    deployer->Uninstall();
    EXPECT_FALSE(deployer->IsProductInstalled());
    EXPECT_EQ(m_system.DpkgStatus("tarvo-agent").find("installed"), std::string::npos);
}

TEST_F(RemoteInstaller, FailuresArriveWithTheirType) {
    const auto installer = Connect(m_system.Root().string());
    const auto packages = installer->GetPackageManager();
    EXPECT_THROW_WITH(packages->RemovePackages({"absent"}), CGenericException,
                      "'absent': it is not installed");
    EXPECT_THROW_WITH(installer->FindService("a/b"), CGenericException, "is no service name");
    EXPECT_THROW_WITH(installer->GetZAMService(), CGenericException, "it is not the running system");
    const CLockHolder lock(m_system.Root() / "var/lib/dpkg/lock");
    EXPECT_THROW(packages->InstalLocalPackages({m_system.Build({"foo"})}), CPackageManagerIsLocked);
    EXPECT_TRUE(installer->IsSystemSupported()) << "a failed call leaves the connection usable";
}

TEST_F(RemoteInstaller, ARootThatIsNotThereIsReportedOnConnecting) {
    EXPECT_THROW_WITH(Connect("/no/such/root"), CGenericException,
                      "Can't manage the system in \"/no/such/root\"");
}

TEST_F(RemoteInstaller, AFailureIsOneAlsoWhenTheToolWasStartedWithSigchldIgnored) {
    m_launcher = "env --ignore-signal=CHLD";
    const auto packages = Connect(m_system.Root().string())->GetPackageManager();
    EXPECT_THROW_WITH(
        packages->InstalLocalPackages({m_system.Build({"needy", "1", "d", "Depends: missing-one\n"})}),
        CGenericException, "dpkg exited with status 1: ");
    packages->InstalLocalPackages({m_system.Build({"foo"})});
    EXPECT_TRUE(packages->FindInstalledPackage("foo").HasValue());
}

TEST_F(RemoteInstaller, SigtermEndsTheToolWhateverItsStarterDidToIt) {
    for (const char* const launcher : {"env --ignore-signal=TERM", "env --block-signal=TERM"}) {
        SCOPED_TRACE(launcher);
        m_launcher = launcher;
        const auto installer = Connect(m_system.Root().string());
        EXPECT_EQ(kill(std::stoi(ReadAll(m_folder.Path() / "pid")), SIGTERM), 0);
        EXPECT_THROW_WITH(installer->IsSystemSupported(), apigen::PeerGoneError, "signal 15");
    }
}

TEST_F(RemoteInstaller, AnInstallationGoesOnWhenTheToolIsEnded) {
    const std::string path = m_folder.Path().string();
    ASSERT_EQ(mkfifo((m_folder.Path() / "go").c_str(), 0600), 0);
    const std::string dpkg = FindProgram("dpkg");
    const auto slow = m_folder.WriteScript(
        "slow/dpkg", "case \"$*\" in *--install*) echo $PPID > " + path + "/pid; mv " + path + "/pid " +
                         path + "/started; read word < " + path +
                         "/go; seq 1 10000; seq 1 10000 >&2;; esac\nexec " + dpkg + " \"$@\"\n");
    const CEnvironmentVariable search("PATH", slow.parent_path().string() + ":" + std::getenv("PATH"));
    const auto file = m_system.Build({"foo"});
    const auto packages = Connect(m_system.Root().string())->GetPackageManager();

    auto call = std::async(std::launch::async, [&] { packages->InstalLocalPackages({file}); });
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(m_folder.Path() / "started"); }));
    const pid_t toolPid = std::stoi(ReadAll(m_folder.Path() / "started"));
    EXPECT_EQ(kill(toolPid, SIGTERM), 0);
    EXPECT_THROW(call.get(), apigen::PeerGoneError);

    std::ofstream(m_folder.Path() / "go") << "go\n";
    EXPECT_TRUE(Eventually([&] { return m_system.DpkgStatus("foo") == "install ok installed 1.0"; }));
}

}  // namespace
}  // namespace installer::test
