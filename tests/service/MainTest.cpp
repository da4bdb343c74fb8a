// SPDX-License-Identifier: Apache-2.0
// The kit's command line and its base classes: what a service author gets without writing it.
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/Exceptions.h>
#include <zamservice/Bases.h>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"
#include "tests/api/MethodTable.h"
#include "tests/service/ToolTest.h"

namespace zamtest {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using zamclientlib::CGenericException;

struct SRun {
    int Status = -1;
    std::string Output;
    std::string Error;
};

class AToolWithTheKitsMain : public ToolTest {
protected:
    AToolWithTheKitsMain() {
        std::filesystem::create_symlink(MAIN_TOOL, m_folder.Path("tarvoconfig"));
        std::filesystem::create_symlink(MAIN_TOOL, m_folder.Path("installer"));
        const char* const path = std::getenv("PATH");
        Set("PATH", m_folder.Path() + ":" + (path != nullptr ? path : ""));
    }

    SRun Run(const std::string& command) const {
        const std::string whole = "{ " + m_folder.Path(command) + " ; } >" + m_folder.Path("out") + " 2>" +
                                  m_folder.Path("err") + " </dev/null";
        const int status = std::system(whole.c_str());
        const auto textOf = [&](const char* name) {
            std::ifstream file(m_folder.Path(name));
            return std::string(std::istreambuf_iterator<char>(file), {});
        };
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, textOf("out"), textOf("err")};
    }

    std::shared_ptr<zamclientlib::ITarvoInstaller> Installer() const {
        return zamclientlib::GetTarvoInstaller(m_folder.Path("installer"), 30s, false, nullptr);
    }
    static std::shared_ptr<zamclientlib::IZamControl> Agent() {
        return zamclientlib::GetZamControl(30s, false, nullptr);
    }
};

TEST_F(AToolWithTheKitsMain, ServesClientsOfEitherKind) {
    EXPECT_EQ(Agent()->GetProductInfo().Version, "6.1.0.27");
    EXPECT_EQ(Installer()->GetToolVersion(), (zamclientlib::SVersion{1, 2, 3, 4}));
    EXPECT_EQ(Recorded(),
              (std::vector<std::string>{"log tarvoconfig_api.log", "log tarvoinstaller_api.log"}));
    EXPECT_TRUE(zamclientlib::IsControlApiCompatible());
    EXPECT_TRUE(zamclientlib::IsInstallerApiCompatible(m_folder.Path("installer")));
}

TEST_F(AToolWithTheKitsMain, ServesInEveryFormThatPeopleGiveOptionsIn) {
    for (const char* const command : {"tarvoconfig extended startCommandInvoker --logFileName a.log",
                                      "tarvoconfig extended startCommandInvoker --logFileName=a.log",
                                      "tarvoconfig --logFileName a.log extended startCommandInvoker",
                                      "tarvoconfig extended --logFileName=a.log startCommandInvoker",
                                      "installer start-command-invoker --log-name a.log",
                                      "installer --log-name=a.log start-command-invoker"}) {
        const SRun run = Run(command);
        EXPECT_EQ(run.Status, 0) << command << ": " << run.Error;
        EXPECT_THAT(run.Output, HasSubstr("<Data><__handle>1</__handle></Data>")) << command;
        EXPECT_EQ(Recorded().back(), "log a.log");
    }
    EXPECT_EQ(Recorded().size(), 6U);
}

TEST_F(AToolWithTheKitsMain, TellsTheProtocolsVersion) {
    EXPECT_EQ(
        Run("tarvoconfig extended protocolVersion").Output,
        "<Data><SCompatibilityInfo><protocolVersion><major>2</major><minor>0</minor><revision>0</revision>"
        "<build>0</build></protocolVersion></SCompatibilityInfo></Data>");
    EXPECT_THAT(Run("installer protocol-version").Output, HasSubstr("<major>2</major><minor>7</minor>"));
    EXPECT_EQ(Run("installer protocol-version >/dev/full").Status, 1);
}

TEST_F(AToolWithTheKitsMain, HelpsWhoStartsItByHand) {
    for (const char* const command :
         {"installer --help", "installer -h", "installer protocol-version --help"}) {
        const SRun run = Run(command);
        EXPECT_EQ(run.Status, 0) << command;
        EXPECT_EQ(run.Error, "");
        EXPECT_THAT(
            run.Output,
            AllOf(StartsWith(
                      "A tool for tests.\n\nUsage:\n  installer start-command-invoker --log-name NAME\n"),
                  HasSubstr("  installer protocol-version\n"), HasSubstr("  installer --version\n")));
    }
    EXPECT_THAT(Run("tarvoconfig --help").Output,
                AllOf(HasSubstr("  tarvoconfig extended startCommandInvoker --logFileName NAME\n"),
                      Not(HasSubstr("--version"))));
    EXPECT_EQ(Run("installer --version").Output, "installer 1.2.3\n");
    EXPECT_EQ(Run("tarvoconfig --version").Status, 2);
}

TEST_F(AToolWithTheKitsMain, AnswersAWrongCommandLineWithOneLineAndStatusTwo) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"installer", "a command is missing"},
        {"installer ''", "unexpected argument \"\""},
        {"installer bogus", "unexpected argument \"bogus\""},
        {"installer extended protocol-version", "unexpected argument \"extended\""},
        {"installer protocol-version more", "unexpected argument \"more\""},
        {"installer protocol-version start-command-invoker", "unexpected argument \"start-command-invoker\""},
        {"installer protocol-version --log-name=a", "protocol-version takes no --log-name"},
        {"installer protocol-version --logFileName=a", "unknown option \"--logFileName\""},
        {"installer start-command-invoker", "start-command-invoker needs --log-name NAME"},
        {"installer start-command-invoker --log-name", "--log-name needs a NAME"},
        {"installer start-command-invoker --log-name --log-name", "--log-name needs a NAME"},
        {"installer start-command-invoker --log-name a --log-name=b", "--log-name is given twice"},
        {"installer start-command-invoker --log-name=", "--log-name \"\": it must be a file name"},
        {"installer start-command-invoker --log-name ../a",
         "\"../a\": it must be a file name without a folder"},
        {"installer start-command-invoker --log-name ..", "it must be a file name"},
        {"installer -x", "unknown option \"-x\""},
        {"installer \"$(printf 'odd\\033[31m\\nword')\"", "unexpected argument \"odd\\x1b[31m\\nword\""},
        {"tarvoconfig", "a command is missing"},
        {"tarvoconfig extended", "after extended a command is missing"},
        {"tarvoconfig startCommandInvoker", "unexpected argument \"startCommandInvoker\""},
        {"tarvoconfig extended extended", "unexpected argument \"extended\""},
        {"tarvoconfig extended start-command-invoker", "unexpected argument \"start-command-invoker\""},
    };
    for (const auto& [command, part] : cases) {
        SCOPED_TRACE(command);
        const SRun run = Run(command);
        EXPECT_EQ(run.Status, 2);
        EXPECT_EQ(run.Output, "");
        EXPECT_THAT(run.Error, AllOf(HasSubstr(part), HasSubstr(". Usage: "), EndsWith("\n")));
        EXPECT_EQ(std::count(run.Error.begin(), run.Error.end(), '\n'), 1) << run.Error;
    }
    EXPECT_THAT(Recorded(), IsEmpty());
}

TEST_F(AToolWithTheKitsMain, GreetsTheClientWithWhateverKeepsItFromServing) {
    Set("ZAM_SCRIPT", "locked");
    EXPECT_EQ(MessageOf<zamclientlib::CPackageManagerIsLocked>([&] { Installer(); }), "held by process 7");
    Set("ZAM_SCRIPT", "standard");
    EXPECT_EQ(MessageOf<CGenericException>([&] { Installer(); }), "the disk is full");
    Set("ZAM_SCRIPT", "number");
    EXPECT_THAT(MessageOf<CGenericException>([&] { Installer(); }),
                StartsWith("The service can't be made: "));
    EXPECT_THAT(MessageOf<CGenericException>([&] { Agent(); }), StartsWith("The service can't be made: "));
    Set("ZAM_SCRIPT", "nothing");
    EXPECT_EQ(MessageOf<CGenericException>([&] { Agent(); }), "The tool has no object to serve");
}

TEST_F(AToolWithTheKitsMain, ReportsAVersionThatCanNotBeTold) {
    Set("ZAM_SCRIPT", "standard");
    const SRun run = Run("installer protocol-version");
    EXPECT_EQ(run.Status, 1);
    EXPECT_EQ(run.Output, "");
    EXPECT_EQ(run.Error, "installer: no\\nversion\n");
}

TEST_F(AToolWithTheKitsMain, RefusesWithTheMethodsNameWhatItsAuthorDidNotWrite) {
    const auto installer = Installer();
    EXPECT_EQ(MessageOf<CGenericException>([&] { installer->GetSystemInformation(); }),
              "ITarvoInstaller::GetSystemInformation is not implemented by this service");
    const auto packages = installer->GetPackageManager();
    EXPECT_EQ(MessageOf<CGenericException>([&] { packages->RemovePackages({"a"}); }),
              "IPackageManager::RemovePackages is not implemented by this service");
    EXPECT_EQ(installer->GetToolVersion().major, 1) << "a refusal leaves the connection usable";
}

/// Calls each method of the interface on an object of its base class, and collects the refusals.
template <class I, class Base>
void CollectRefusals(std::multiset<std::string>& refusals) {
    Base object;
    const auto call =
        [&]<class Pointer, class R, class... A>(const zamclientlib::Method<I, Pointer, R, A...>& method) {
            refusals.insert(MessageOf<zamservice::CNotImplemented>(
                [&] { static_cast<void>((static_cast<I&>(object).*method.Member)(A{}...)); }));
        };
    zamclientlib::MethodsOf<I>::ForEach(call);
}

TEST(ABaseClass, RefusesEveryMethodOfEveryInterfaceByItsName) {
    std::multiset<std::string> refusals;
    CollectRefusals<zamclientlib::IZamControl, zamservice::CZamControlBase>(refusals);
    CollectRefusals<zamclientlib::IZamProduct, zamservice::CZamProductBase>(refusals);
    CollectRefusals<zamclientlib::IBackupJob, zamservice::CBackupJobBase>(refusals);
    CollectRefusals<zamclientlib::IBackupJobSession, zamservice::CBackupJobSessionBase>(refusals);
    CollectRefusals<zamclientlib::IRepositoryManager, zamservice::CRepositoryManagerBase>(refusals);
    CollectRefusals<zamclientlib::IBackupServerManager, zamservice::CBackupServerManagerBase>(refusals);
    CollectRefusals<zamclientlib::ICloudServiceProviderManager, zamservice::CCloudServiceProviderManagerBase>(
        refusals);
    CollectRefusals<zamclientlib::ITarvoInstaller, zamservice::CTarvoInstallerBase>(refusals);
    CollectRefusals<zamclientlib::IPackageManager, zamservice::CPackageManagerBase>(refusals);
    CollectRefusals<zamclientlib::IService, zamservice::CServiceBase>(refusals);
    CollectRefusals<zamclientlib::IZAMDeployer, zamservice::CZAMDeployerBase>(refusals);

    std::multiset<std::string> expected;
    for (const SMethodRow& row : MethodTable)
        expected.insert(row.Interface + "::" + row.Id.substr(0, row.Id.rfind('_')) +
                        " is not implemented by this service");
    EXPECT_EQ(refusals, expected);
    EXPECT_EQ(refusals.size(), 79U);
}

}  // namespace
}  // namespace zamtest
