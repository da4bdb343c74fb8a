// SPDX-License-Identifier: Apache-2.0
// The entry points with real tools, good ones and bad ones.
#include <apigen/ApiException.h>
#include <apigen/ProxyBase.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/Exceptions.h>

#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "tests/api/CMemoryLogger.h"
#include "tests/api/OwnProcess.h"
#include "tests/service/ToolTest.h"

namespace zamtest {
namespace {

using namespace std::chrono_literals;
using apigen::ApiInternalError;
using apigen::BrokenMessageError;
using apigen::PeerGoneError;
using apigen::ProcessLaunchError;
using apigen::TimeoutError;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

const std::string ToolPath = SCRIPTED_TOOL;

class Connection : public ToolTest {
protected:
    /// The message of the E that connecting to a tool with this script ends with, soon.
    template <class E>
    std::string Refusal(const std::string& script, std::chrono::seconds timeout = 30s) {
        std::string message;
        EXPECT_LT(SecondsOf([&] { message = MessageOf<E>([&] { Connect(script, timeout); }); }), 8);
        return message;
    }
};

// --- Good tools ---

TEST_F(Connection, StartsTheToolWithItsExactArgumentsAndServesCalls) {
    {
        const auto root = Connect("serve");
        EXPECT_EQ(root->GetToolVersion(), (zamclientlib::SVersion{2, 0, 5, 12}));
        EXPECT_EQ(root->GetPackageManager()->GetPackageNameFromFile("x"), "name of x");
        EXPECT_EQ(root->FindService("nothing"), nullptr);
    }
    const auto lines = Recorded();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "arguments [start-command-invoker] [--log-name] [tarvoinstaller_api.log]");
    EXPECT_EQ(lines.back(), "served 0");
}

TEST_F(Connection, FindsABareNameInPathAndTakesAPathAsItIs) {
    std::filesystem::create_symlink(ToolPath, m_folder.Path("odd tool"));
    Set("ZAM_SCRIPT", "serve");
    EXPECT_TRUE(
        zamclientlib::GetTarvoInstaller(m_folder.Path("odd tool"), 30s, false, nullptr)->IsSystemSupported());
    EXPECT_THROW(zamclientlib::GetTarvoInstaller("odd tool", 30s, false, nullptr), ProcessLaunchError);
    Set("PATH", m_folder.Path());
    EXPECT_TRUE(zamclientlib::GetTarvoInstaller("odd tool", 30s, false, nullptr)->IsSystemSupported());
}

TEST_F(Connection, ReleasesEveryObjectOnceAndTheRootToo) {
    {
        const auto root = Connect("serve");
        const auto first = root->GetZAMService();
        auto second = root->GetZAMService();
        EXPECT_NE(first, second);
        second.reset();
        const auto deployer = root->GetZAMDeployer();
    }
    std::vector<std::string> ends;
    for (const std::string& line : Recorded())
        if (line.rfind("end ", 0) == 0) ends.push_back(line);
    EXPECT_THAT(ends, UnorderedElementsAre("end IService", "end IService", "end IZAMDeployer",
                                           "end ITarvoInstaller"));
}

TEST_F(Connection, LastsAsLongAsAnyObjectHadFromIt) {
    std::shared_ptr<zamclientlib::IPackageManager> packages;
    {
        const auto root = Connect("serve");
        packages = root->GetPackageManager();
    }
    EXPECT_EQ(packages->GetPackageNameFromFile("a"), "name of a");
    EXPECT_THAT(Recorded(), AllOf(Contains("end ITarvoInstaller"), Not(Contains("served 0"))));
    packages.reset();
    EXPECT_THAT(Recorded(), Contains("served 0"));
}

TEST_F(Connection, WithoutATimeLimitServesToo) {
    EXPECT_TRUE(Connect("serve", 0s)->IsSystemSupported());
    EXPECT_TRUE(Connect("serve", std::chrono::seconds::max())->IsSystemSupported());
}

TEST_F(Connection, CarriesWhatALibraryPrintsBesideTheStream) {
    const auto packages = Connect("serve")->GetPackageManager();
    EXPECT_EQ(packages->GetPackageNameFromFile("print"), "name of print");
    EXPECT_EQ(packages->GetPackageNameFromFile("read"), "name of read");
    EXPECT_EQ(packages->GetPackageNameFromFile("after"), "name of after");
    EXPECT_THAT(Recorded(), Contains("input gave 0"));
}

TEST_F(Connection, CarriesAnArgumentOfManyBytesOfEveryValue) {
    const auto packages = Connect("serve")->GetPackageManager();
    std::string odd(3'000'000, '\0');
    for (std::size_t i = 0; i < odd.size(); ++i)
        odd[i] = static_cast<char>(i * 31 + i / 257);
    EXPECT_TRUE(packages->GetPackageNameFromFile(odd) == "name of " + odd);
}

TEST_F(Connection, SurvivesAFloodOnStandardError) {
    EXPECT_TRUE(Connect("flood-error-and-serve")->IsSystemSupported());
}

TEST_F(Connection, TakesAnswersThatAreWrittenInOtherWays) {
    const std::string plain = "<major>2</major><minor>0</minor><revision>5</revision><build>12</build>";
    for (const std::string& answer :
         {"<Data><__result>" + plain + "</__result></Data>",
          "<?xml version=\"1.0\"?>\n<Data>\n <__result>" + plain + "</__result>\n</Data>\n",
          "\xEF\xBB\xBF<Data><__result>" + plain + "</__result></Data>",
          "<Answer a='b'><__result>" + plain + "</__result></Answer>",
          "<Data><!-- done --><__result>" + plain + "</__result></Data>",
          "<Data><took>1 ms</took><__result>" + plain + "</__result><later/></Data>",
          "<Data><__result>" + plain + "<later>1</later></__result></Data>",
          "<Data><__result>" + plain + "</__result><__result><major>9</major></__result></Data>",
          std::string("<Data><__result><build>1&#50;</build><revision><![CDATA[5]]></revision><minor></minor>"
                      "<major> 2</major></__result></Data>")}) {
        Set("ZAM_OUTPUT", answer);
        EXPECT_EQ(Connect("greet-and-answer")->GetToolVersion(), (zamclientlib::SVersion{2, 0, 5, 12}))
            << answer;
    }
}

TEST_F(Connection, ReportsAFailureThatComesWithAResult) {
    const std::string result = "<__result>true</__result>";
    const std::string failure = "<__api_internal_err><msg>no memory</msg></__api_internal_err>";
    for (const std::string& answer : {result + failure, failure + result, failure}) {
        Set("ZAM_OUTPUT", "<Data>" + answer + "</Data>");
        const auto root = Connect("greet-and-answer");
        EXPECT_THAT(MessageOf<ApiInternalError>([&] { root->IsSystemSupported(); }), HasSubstr("no memory"));
    }
}

TEST_F(Connection, NeedsTheResultThatTheMethodHas) {
    for (const std::string answer : {"<Data/>", "<Data></Data>", "<Data><result>true</result></Data>",
                                     "<Data><__result><a>true</a></__result></Data>"}) {
        Set("ZAM_OUTPUT", answer);
        const auto root = Connect("greet-and-answer");
        EXPECT_THAT(MessageOf<ApiInternalError>([&] { root->IsSystemSupported(); }), HasSubstr("__result"))
            << answer;
        EXPECT_THAT(MessageOf<ApiInternalError>([&] { root->IsSystemSupported(); }), HasSubstr("__result"))
            << "the connection stays usable after " << answer;
    }
}

TEST_F(Connection, PassesAFailureOfTheServiceOnAndStaysUsable) {
    const auto packages = Connect("serve")->GetPackageManager();
    EXPECT_EQ(
        MessageOf<zamclientlib::CPackageManagerIsLocked>([&] { packages->GetPackageNameFromFile("locked"); }),
        "held by another");
    EXPECT_EQ(packages->GetPackageNameFromFile("x"), "name of x");
}

TEST_F(Connection, LeavesSignalsAndFolderOfTheCallerAlone) {
    const auto folder = std::filesystem::current_path();
    struct sigaction before {};
    struct sigaction after {};
    ::sigaction(SIGPIPE, nullptr, &before);
    { Connect("serve")->IsSystemSupported(); }
    ::sigaction(SIGPIPE, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
    EXPECT_EQ(std::filesystem::current_path(), folder);
}

// --- Tools that can't be started ---

TEST_F(Connection, ToAMissingToolIsRefusedWithItsErrno) {
    for (const std::string path : {"/no/such/tool", "no-such-tool-at-all", "./no-such-tool", ""}) {
        try {
            zamclientlib::GetTarvoInstaller(path, 5s, false, nullptr);
            ADD_FAILURE() << path;
        } catch (const ProcessLaunchError& error) {
            EXPECT_EQ(error.ErrorNumber(), ENOENT);
            EXPECT_THAT(error.what(), HasSubstr('"' + path + '"'));
        }
    }
}

TEST_F(Connection, ToAFileWithoutPermissionOrAFolderIsRefusedWithItsErrno) {
    m_folder.Write("plain", "#!/bin/sh\n");
    for (const std::string& path : {m_folder.Path("plain"), m_folder.Path()}) {
        try {
            zamclientlib::GetTarvoInstaller(path, 5s, false, nullptr);
            ADD_FAILURE() << path;
        } catch (const ProcessLaunchError& error) {
            EXPECT_EQ(error.ErrorNumber(), EACCES) << path;
        }
    }
}

// --- Tools that don't greet as they should ---

TEST_F(Connection, NeedsAHandleInTheGreeting) {
    for (const char* const greeting :
         {"<Data/>", "<Data><__handle>0</__handle></Data>", "<Data><__handle></__handle></Data>",
          "<Data><__handle>x</__handle></Data>", "<Data><__handle><item>1</item></__handle></Data>",
          "<Data><handle>1</handle></Data>"}) {
        Set("ZAM_OUTPUT", greeting);
        EXPECT_THAT(Refusal<BrokenMessageError>("greet"), HasSubstr(ToolPath)) << greeting;
    }
}

TEST_F(Connection, ThrowsTheFailureThatTheToolGreetsWith) {
    EXPECT_EQ(Refusal<zamclientlib::CPackageManagerIsLocked>("fail-to-make-a-service"), "held by process 7");
    Set("ZAM_OUTPUT",
        "<Data><__exception_obj><type>CGenericException</type><Exception><ApiException>"
        "<exc_msg>closed today</exc_msg></ApiException></Exception></__exception_obj>"
        "<__handle>1</__handle></Data>");
    EXPECT_EQ(Refusal<zamclientlib::CGenericException>("greet"), "closed today");
    Set("ZAM_OUTPUT", "<Data><__exception_obj><type>CNewFailure</type></__exception_obj></Data>");
    EXPECT_EQ(Refusal<apigen::ApiException>("greet"),
              "Cannot deserialize exception: Unknown exception type.");
    Set("ZAM_OUTPUT", "<Data><__api_internal_err><msg>no memory</msg></__api_internal_err></Data>");
    EXPECT_THAT(Refusal<ApiInternalError>("greet"), AllOf(HasSubstr("no memory"), HasSubstr(ToolPath)));
}

TEST_F(Connection, ShowsTheUsageTextOfAToolThatPrintsOne) {
    Set("ZAM_OUTPUT", "Usage: tool [--help]\n");
    EXPECT_THAT(Refusal<BrokenMessageError>("say"), HasSubstr("Usage: tool [--help]"));
}

TEST_F(Connection, RefusesAGreetingThatIsNoDocument) {
    for (const char* const text : {"garbage", "<Data>", "<!DOCTYPE a><Data><__handle>1</__handle></Data>",
                                   "<Data><__handle>1</__handle></Data>trailing"}) {
        Set("ZAM_OUTPUT", text);
        EXPECT_NE(Refusal<BrokenMessageError>("greet"), "") << text;
    }
    Set("ZAM_OUTPUT", "");
    EXPECT_NE(Refusal<BrokenMessageError>("greet"), "");
}

TEST_F(Connection, QuotesTheLastWordsAndTheExitCodeOfAToolThatEndsAtOnce) {
    EXPECT_THAT(Refusal<PeerGoneError>("exit-at-once"), AllOf(HasSubstr("no licence found"), HasSubstr("3")));
}

TEST_F(Connection, NoticesADeathInMidFrame) {
    EXPECT_THAT(Refusal<PeerGoneError>("die-in-frame"), HasSubstr(ToolPath));
}

TEST_F(Connection, RefusesAnOverlongFrameAtOnce) {
    EXPECT_THAT(Refusal<BrokenMessageError>("announce-4-gib"), HasSubstr("4294967295"));
}

TEST_F(Connection, GivesUpOnASilentToolAfterTheTimeLimit) {
    std::string message;
    const double seconds =
        SecondsOf([&] { message = MessageOf<TimeoutError>([&] { Connect("silent", 1s); }); });
    EXPECT_GE(seconds, 0.99);
    EXPECT_LT(seconds, 5);
    EXPECT_THAT(message, HasSubstr(ToolPath));
}

// --- Tools that go wrong later ---

TEST_F(Connection, IsGivenUpForGoodWhenTheToolDiesInACall) {
    const auto packages = Connect("serve")->GetPackageManager();
    const std::string first = MessageOf<PeerGoneError>([&] { packages->GetPackageNameFromFile("die"); });
    EXPECT_THAT(first, AllOf(HasSubstr("assertion failed: x == y"), HasSubstr("signal 9")));
    const std::string second = MessageOf<PeerGoneError>([&] { packages->GetPackageNameFromFile("x"); });
    EXPECT_THAT(second, HasSubstr(first));
}

TEST_F(Connection, QuotesTheExitCodeOfAToolThatEndsInACall) {
    const auto packages = Connect("serve")->GetPackageManager();
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { packages->GetPackageNameFromFile("exit"); }),
                AllOf(HasSubstr("giving up"), HasSubstr("7")));
}

TEST_F(Connection, IsGivenUpForGoodWhenACallTakesTooLong) {
    const auto packages = Connect("serve", 1s)->GetPackageManager();
    double seconds =
        SecondsOf([&] { MessageOf<TimeoutError>([&] { packages->GetPackageNameFromFile("hang"); }); });
    EXPECT_GE(seconds, 0.99);
    EXPECT_LT(seconds, 3);
    seconds = SecondsOf([&] { MessageOf<PeerGoneError>([&] { packages->GetPackageNameFromFile("x"); }); });
    EXPECT_LT(seconds, 0.5) << "a connection that was given up fails at once";
}

TEST_F(Connection, IsGivenUpWhenAnAnswerIsNoFrame) {
    const std::string text = "Segmentation fault (core dumped)";
    Set("ZAM_OUTPUT", text);
    const auto root = Connect("greet-and-say");
    const std::string first = MessageOf<BrokenMessageError>([&] { root->IsSystemSupported(); });
    EXPECT_THAT(first, HasSubstr(text));
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { root->IsSystemSupported(); }), HasSubstr(first));
}

TEST_F(Connection, IsGivenUpWhenAnAnswerIsNoDocument) {
    for (const std::string answer :
         {"", "true", "<Data><__result>true</__result>", "<Data><__result>true</__result></Data>x",
          "<Data><__result>true</__result></Daten>", "<Data><__result>tr\x01ue</__result></Data>",
          "<Data><__result>tr\xFFue</__result></Data>", "<Data><__result>a & b</__result></Data>",
          "<!DOCTYPE Data><Data><__result>true</__result></Data>"}) {
        Set("ZAM_OUTPUT", answer);
        const auto root = Connect("greet-and-answer");
        const std::string first = MessageOf<BrokenMessageError>([&] { root->IsSystemSupported(); });
        EXPECT_THAT(MessageOf<PeerGoneError>([&] { root->IsSystemSupported(); }), HasSubstr(first)) << answer;
    }
}

TEST_F(Connection, ToAToolWithAClosedInputFailsWithoutASignal) {
    const auto root = Connect("close-input", 2s);
    EXPECT_LT(SecondsOf([&] { EXPECT_THROW(root->IsSystemSupported(), ApiInternalError); }), 4);
}

TEST_F(Connection, DropsReleasesToADeadToolQuietly) {
    const auto root = Connect("serve");
    auto service = root->GetZAMService();
    const auto packages = root->GetPackageManager();
    EXPECT_THROW(packages->GetPackageNameFromFile("die"), PeerGoneError);
    EXPECT_NO_THROW(service.reset());
}

// --- Logging ---

TEST_F(Connection, LogsThroughTheGivenLogger) {
    const auto logger = std::make_shared<CMemoryLogger>();
    {
        const auto packages = Connect("serve", 30s, logger)->GetPackageManager();
        EXPECT_THROW(packages->GetPackageNameFromFile("locked"), zamclientlib::CPackageManagerIsLocked);
    }
    EXPECT_THAT(logger->Lines(),
                AllOf(Contains("I Exception of CPackageManagerIsLocked type was received."),
                      Contains("E Generating exception. / held by another"), Contains(HasSubstr(ToolPath))));
}

TEST_F(Connection, KeepsLoggerAndGeneratorOnlyAsLongAsItLasts) {
    const auto logger = std::make_shared<CMemoryLogger>();
    { Connect("serve", 30s, logger); }
    EXPECT_EQ(logger.use_count(), 1);
    EXPECT_THROW(Connect("exit-at-once", 30s, logger), ApiInternalError);
    EXPECT_EQ(logger.use_count(), 1);
}

TEST_F(Connection, DropsTheGivenLoggerWhenLoggingIsOff) {
    const auto logger = std::make_shared<CMemoryLogger>();
    Set("ZAM_SCRIPT", "serve");
    {
        const auto root = zamclientlib::GetTarvoInstaller(ToolPath, 30s, false, logger);
        EXPECT_EQ(logger.use_count(), 1);
        const auto packages = root->GetPackageManager();
        EXPECT_THROW(packages->GetPackageNameFromFile("locked"), zamclientlib::CPackageManagerIsLocked);
        EXPECT_THROW(packages->GetPackageNameFromFile("die"), PeerGoneError);
    }
    EXPECT_THROW(zamclientlib::GetTarvoInstaller("/no/such/tool", 30s, false, logger), ProcessLaunchError);
    EXPECT_THAT(logger->Lines(), IsEmpty());
}

TEST_F(Connection, MakesItsOwnLogFileBeforeItStartsTheTool) {
    const std::string file = "/var/log/tarvo/apiclient_installer.log";
    constexpr int CannotHideTheRealFolder = 77;
    const int result = ResultInAProcessOfItsOwn([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", "/var/log", "tmpfs", 0, nullptr) != 0)
            return CannotHideTheRealFolder;
        try {
            zamclientlib::GetTarvoInstaller("/no/such/tool", 5s, true, nullptr);
            return 2;
        } catch (const ProcessLaunchError&) {  // and no file, since its folder is missing
        }
        if (std::filesystem::exists(file)) return 3;
        std::filesystem::create_directories("/var/log/tarvo");
        try {
            zamclientlib::GetTarvoInstaller("/no/such/tool", 5s, true, nullptr);
            return 4;
        } catch (const ProcessLaunchError&) {
        }
        const auto lines = LinesOf(file);
        if (lines.empty() || lines[0].find("Log has been started") == std::string::npos) return 5;
        ::setenv("ZAM_SCRIPT", "serve", 1);
        zamclientlib::GetTarvoInstaller(ToolPath, 30s, true, nullptr)->IsSystemSupported();
        if (!std::filesystem::exists("/var/log/tarvo/apiclient_installer_1.log")) return 6;
        return 0;
    });
    if (result == CannotHideTheRealFolder) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(result, 0);
}

// --- The version query ---

std::string VersionDocument(const std::string& major, const std::string& rest) {
    return "<Data><SCompatibilityInfo><protocolVersion><major>" + major + "</major>" + rest +
           "</protocolVersion></SCompatibilityInfo></Data>";
}

const std::string Zeros = "<minor>0</minor><revision>0</revision><build>0</build>";

class VersionQuery : public ToolTest {
protected:
    VersionQuery() {
        Set("ZAM_SCRIPT", "print");
        Set("ZAM_EXIT", "0");
        std::filesystem::create_symlink(ToolPath, m_folder.Path("tarvoconfig"));
        Set("PATH", m_folder.Path());
    }

    bool IsCompatible(const std::string& output) {
        Set("ZAM_OUTPUT", output);
        const bool isInstaller = zamclientlib::IsInstallerApiCompatible(ToolPath);
        EXPECT_EQ(zamclientlib::IsControlApiCompatible(), isInstaller);
        return isInstaller;
    }

    template <class E>
    std::string Refusal(const std::string& output) {
        Set("ZAM_OUTPUT", output);
        MessageOf<E>([] { zamclientlib::IsControlApiCompatible(); });
        return MessageOf<E>([] { zamclientlib::IsInstallerApiCompatible(ToolPath); });
    }
};

TEST_F(VersionQuery, ComparesTheMajorNumberAlone) {
    EXPECT_TRUE(IsCompatible(VersionDocument("2", Zeros)));
    EXPECT_TRUE(
        IsCompatible(VersionDocument("2", "<minor>99</minor><revision>7</revision><build>1</build>")));
    EXPECT_FALSE(
        IsCompatible(VersionDocument("1", "<minor>9</minor><revision>0</revision><build>0</build>")));
    EXPECT_FALSE(IsCompatible(VersionDocument("3", Zeros)));
    EXPECT_FALSE(IsCompatible(VersionDocument("0", Zeros)));
    EXPECT_FALSE(IsCompatible(VersionDocument("22", Zeros)));
    EXPECT_FALSE(IsCompatible(VersionDocument("x", Zeros)));
}

TEST_F(VersionQuery, AsksEachToolInItsOwnWords) {
    IsCompatible(VersionDocument("2", Zeros));
    EXPECT_THAT(Recorded(),
                ElementsAre("arguments [protocol-version]", "arguments [extended] [protocolVersion]"));
}

TEST_F(VersionQuery, TakesADocumentWithDeclarationAndWhiteSpace) {
    EXPECT_TRUE(IsCompatible("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Anything>\n  " +
                             VersionDocument("2", Zeros).substr(6, VersionDocument("2", Zeros).size() - 13) +
                             "\n</Anything>\n"));
}

TEST_F(VersionQuery, ThrowsTheFailureOfTheTool) {
    Set("ZAM_EXIT", "4");
    EXPECT_THAT(Refusal<apigen::ProcessFailedError>(VersionDocument("2", Zeros)),
                AllOf(HasSubstr("4"), HasSubstr("diagnostics")));
}

TEST_F(VersionQuery, RefusesAnOutputThatIsNoDocumentOrLacksAKey) {
    for (const std::string text : {"", "2.0.0.0", "<Data>", "<Data/>", "<Data><SCompatibilityInfo/></Data>",
                                   "<Data><protocolVersion><major>2</major></protocolVersion></Data>"}) {
        EXPECT_NE(Refusal<ApiInternalError>(text), "") << text;
    }
    EXPECT_THAT(Refusal<ApiInternalError>(VersionDocument("2", "<minor>0</minor>")), HasSubstr("revision"));
}

TEST_F(VersionQuery, ReadsFourMebibytesAndNoMore) {
    const std::string document = VersionDocument("2", Zeros);
    constexpr std::size_t Limit = 4194304;
    Set("ZAM_PADDING", std::to_string(Limit - document.size()));
    EXPECT_TRUE(IsCompatible(document));
    for (const std::size_t padding : {Limit - document.size() + 1, 2 * Limit}) {
        Set("ZAM_PADDING", std::to_string(padding));
        Set("ZAM_OUTPUT", document);
        EXPECT_THROW(zamclientlib::IsInstallerApiCompatible(ToolPath), ApiInternalError) << padding;
    }
}

TEST_F(VersionQuery, OfAMissingToolIsRefused) {
    Set("PATH", "/nowhere");
    MessageOf<ProcessLaunchError>([] { zamclientlib::IsControlApiCompatible(); });
    MessageOf<ProcessLaunchError>([] { zamclientlib::IsInstallerApiCompatible("/no/such/tool"); });
}

}  // namespace
}  // namespace zamtest
