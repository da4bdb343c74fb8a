// SPDX-License-Identifier: Apache-2.0
// Connecting with options, and what connections and errors tell.
#include <apigen/CCancellation.h>
#include <apigen/CallControl.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/Jobs.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>

#include "tests/api/CMemoryLogger.h"
#include "tests/api/TemporaryFolder.h"

namespace zamclientlib {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

/// The failure of exactly this class.
template <class E, class Action>
E Failure(Action&& action, E otherwise = E("nothing was thrown")) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const E& error) {
        EXPECT_EQ(typeid(error), typeid(E)) << error.what();
        return error;
    } catch (const std::exception& error) {
        ADD_FAILURE() << typeid(error).name() << " was thrown: " << error.what();
    }
    return otherwise;
}

class Connect : public testing::Test {
protected:
    /// The test agent, doing what a script says.
    SConnectOptions Agent(const std::string& script = "{}") const {
        m_folder.Write("script.json", script);
        SConnectOptions options;
        options.Tool = TEST_AGENT;
        options.CallTimeout = 60s;
        options.Environment["ZAM_TESTAGENT_SCRIPT"] = m_folder.Path("script.json");
        return options;
    }

    /// A shell script for a tool.
    SConnectOptions Tool(const std::string& script) const {
        const std::string path = m_folder.Path("tool");
        m_folder.Write("tool", "#!/bin/sh\n" + script + "\n");
        EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
        SConnectOptions options;
        options.Tool = path;
        return options;
    }

    zamtest::CTemporaryFolder m_folder;
};

TEST_F(Connect, StartsTheToolOfTheOptionsWithFurtherVariables) {
    const auto agent = ConnectToAgent(Agent(
        R"({"owner": {"id": "{11111111-2222-3333-4444-555555555555}", "name": "console", "mode": "Shared"}})"));
    EXPECT_EQ(agent->GetCurrentOwner().Name, "console");
    EXPECT_TRUE(GetConnectionState(agent));
    EXPECT_TRUE(GetConnectionState(*agent));
    EXPECT_THAT(GetConnectionState(agent).Reason, IsEmpty());
}

TEST_F(Connect, RefusesVariablesThatCantBe) {
    for (const auto& [name, value] : {std::pair<std::string, std::string>{"", "x"},
                                      {"A=B", "x"},
                                      {std::string("A\0B", 3), "x"},
                                      {"A", std::string("a\0b", 3)}}) {
        auto options = Agent();
        options.Environment[name] = value;
        const auto error = Failure<apigen::ProcessLaunchError>([&] { (void)ConnectToAgent(options); },
                                                               apigen::ProcessLaunchError("", 0));
        EXPECT_EQ(error.ErrorNumber(), EINVAL);
        EXPECT_THAT(error.what(), HasSubstr("tarvoconfig"));
    }
    auto options = Agent();
    options.Environment["EMPTY"] = "";
    EXPECT_TRUE(GetConnectionState(ConnectToAgent(options)));
}

TEST_F(Connect, BoundsTheGreetingAndTheCallsEachByItsOwnTimeout) {
    auto options = Agent(R"({"rules": [{"method": "GetSessionId", "action": "delay", "ms": 60000}]})");
    options.CallTimeout = 100ms;
    const auto agent = ConnectToAgent(options);
    const auto error = Failure<apigen::TimeoutError>([&] { (void)agent->GetSessionId(); });
    EXPECT_TRUE(error.IsConnectionLost());
    EXPECT_THAT(error.what(), HasSubstr("GetSessionId"));
    EXPECT_THAT(error.what(), HasSubstr("100 ms"));
    EXPECT_FALSE(GetConnectionState(agent));
    EXPECT_THAT(GetConnectionState(agent).Reason, HasSubstr("GetSessionId"));

    auto slow = Agent(R"({"rules": [{"method": "greeting", "action": "delay", "ms": 60000}]})");
    slow.ConnectTimeout = 100ms;
    slow.CallTimeout = 0s;
    const auto start = Clock::now();
    const auto late = Failure<apigen::TimeoutError>([&] { (void)ConnectToAgent(slow); });
    EXPECT_LT(Clock::now() - start, 30s);
    EXPECT_TRUE(late.IsConnectionLost());
    EXPECT_THAT(late.what(), HasSubstr("tarvoconfig"));
}

TEST_F(Connect, RefusesNegativeTimeoutsAndStartsNothing) {
    for (const bool isOfCalls : {false, true}) {
        auto options = Tool("touch " + m_folder.Path("started"));
        (isOfCalls ? options.CallTimeout : options.ConnectTimeout) = -1ms;
        EXPECT_THAT(Failure<apigen::ApiInternalError>([&] { (void)ConnectToAgent(options); }).what(),
                    HasSubstr("-1 ms is negative"));
        EXPECT_NE(::access(m_folder.Path("started").c_str(), F_OK), 0);
    }
}

TEST_F(Connect, TakesADelayedAnswerUnderADeadlineOfItsOwn) {
    auto options = Agent(R"({"rules": [{"method": "GetSessionId", "action": "delay", "ms": 400}]})");
    options.CallTimeout = 100ms;
    const auto agent = ConnectToAgent(options);
    const apigen::CCallDeadline deadline(60s);
    (void)agent->GetSessionId();
    EXPECT_TRUE(GetConnectionState(agent));
}

TEST_F(Connect, RefusesAToolOfAnotherMajorVersionWhenAskedTo) {
    auto options = Agent(R"({"protocolVersion": "3.1.0.0"})");
    EXPECT_TRUE(GetConnectionState(ConnectToAgent(options))) << "nobody asked for the check";
    EXPECT_EQ(GetAgentApiVersion(options).major, 3);

    options.IsVersionChecked = true;
    const auto error =
        Failure<IncompatibleToolError>([&] { (void)ConnectToAgent(options); }, IncompatibleToolError("", {}));
    EXPECT_EQ(error.ToolVersion().major, 3);
    EXPECT_EQ(error.ToolVersion().minor, 1);
    EXPECT_THAT(error.what(), HasSubstr("3.1.0.0"));
    EXPECT_THAT(error.what(), HasSubstr("2.0.0.0"));
    EXPECT_THAT(error.what(), HasSubstr("tarvoconfig"));

    auto fitting = Agent();
    fitting.IsVersionChecked = true;
    EXPECT_TRUE(GetConnectionState(ConnectToAgent(fitting)));
    EXPECT_EQ(GetAgentApiVersion(fitting).major, GetLibraryApiVersion().major);
}

TEST_F(Connect, SaysWhichToolGaveNoVersion) {
    const auto silent = Tool("exit 3");
    EXPECT_THAT(Failure<apigen::ProcessFailedError>([&] { (void)GetInstallerApiVersion(silent); }).what(),
                HasSubstr(silent.Tool));
    const auto odd = Tool("echo hello");
    EXPECT_THAT(Failure<apigen::BrokenMessageError>([&] { (void)GetInstallerApiVersion(odd); }).what(),
                testing::AllOf(StartsWith("Malformed document: "), HasSubstr(odd.Tool)));
    auto stalled = Tool("exec sleep 60");
    stalled.ConnectTimeout = 100ms;
    EXPECT_THAT(Failure<apigen::TimeoutError>([&] { (void)GetAgentApiVersion(stalled); }).what(),
                HasSubstr(stalled.Tool));
    SConnectOptions missing;
    missing.Tool = m_folder.Path("missing");
    missing.IsVersionChecked = true;
    EXPECT_EQ(Failure<apigen::ProcessLaunchError>([&] { (void)ConnectToInstaller(missing); },
                                                  apigen::ProcessLaunchError("", 0))
                  .ErrorNumber(),
              ENOENT);
}

TEST_F(Connect, WaitsForNoAgreementOfAToolThatGaveNoVersionInTime) {
    for (const char* const stall : {"exec sleep 60", "exec >&-; exec sleep 60"}) {
        auto options = Tool(stall);
        options.ConnectTimeout = 100ms;
        const auto logger = std::make_shared<zamtest::CMemoryLogger>();
        options.Logger = logger;
        (void)Failure<apigen::TimeoutError>([&] { (void)GetAgentApiVersion(options); });
        EXPECT_THAT(logger->Lines(), testing::Contains(HasSubstr("signal 9")))
            << "the caller's time would go on while it was asked to end";
    }
}

TEST_F(Connect, HasNoConnectionToGoOnWithWhicheverStepOfItFailed) {
    for (const bool isVersionChecked : {false, true}) {
        auto stalled = Tool("exec sleep 60");
        stalled.ConnectTimeout = 100ms;
        stalled.IsVersionChecked = isVersionChecked;
        EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { (void)ConnectToAgent(stalled); }).IsConnectionLost());
        auto odd = Tool("echo hello");
        odd.IsVersionChecked = isVersionChecked;
        EXPECT_TRUE(
            Failure<apigen::BrokenMessageError>([&] { (void)ConnectToAgent(odd); }).IsConnectionLost());
    }
}

TEST_F(Connect, IsCancelledWhileAToolThatHasSaidItsVersionDoesNotEnd) {
    auto options = Tool("exec >&- 2>&-; exec sleep 60");
    options.ConnectTimeout = 60s;
    const auto cancellation = std::make_shared<apigen::CCancellation>();
    const apigen::CCancellableCalls scope(cancellation);
    std::thread other([&] {
        ::poll(nullptr, 0, 50);
        cancellation->Cancel();
    });
    (void)Failure<apigen::InterruptedError>([&] { (void)GetAgentApiVersion(options); });
    other.join();
    EXPECT_THAT(Failure<apigen::InterruptedError>([&] { (void)GetAgentApiVersion(options); }).what(),
                HasSubstr("cancelled by the caller"));
}

TEST_F(Connect, NoticesAToolThatDiedWithoutACall) {
    auto options = Agent();
    options.Tool = RELIABILITY_PEER;
    options.Environment.clear();
    const auto script = Tool(std::string("exec ") + RELIABILITY_PEER + " record=" + m_folder.Path("record"));
    const auto installer = ConnectToInstaller(script);
    EXPECT_TRUE(GetConnectionState(installer));
    std::ifstream file(m_folder.Path("record"));
    std::string word;
    pid_t pid = -1;
    file >> word >> pid;
    ASSERT_GT(pid, 1);
    ASSERT_EQ(::kill(pid, SIGKILL), 0);
    const auto limit = Clock::now() + 20s;
    while (GetConnectionState(installer) && Clock::now() < limit)
        ::poll(nullptr, 0, 1);
    const auto state = GetConnectionState(installer);
    EXPECT_FALSE(state);
    EXPECT_THAT(state.Reason, HasSubstr("signal 9"));
    EXPECT_THAT(state.Reason, HasSubstr(script.Tool));
    const auto error = Failure<apigen::PeerGoneError>([&] { (void)installer->GetSystemInformation(); });
    EXPECT_TRUE(error.IsConnectionLost());
    EXPECT_FALSE(GetConnectionState(installer));
}

TEST_F(Connect, NoticesAToolThatHungUpWithoutACall) {
    const auto script = Tool(std::string("exec ") + RELIABILITY_PEER +
                             " out=39 then=hang-up 'greet=<Data><__handle>1</__handle></Data>'");
    const auto installer = ConnectToInstaller(script);
    const auto limit = Clock::now() + 20s;
    while (GetConnectionState(installer) && Clock::now() < limit)
        ::poll(nullptr, 0, 1);
    EXPECT_THAT(GetConnectionState(installer).Reason, HasSubstr("closed its output"));
}

TEST_F(Connect, IsDeadInAForkedCopyAndAliveInTheOriginal) {
    const auto agent = ConnectToAgent(Agent());
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(GetConnectionState(agent) ? 1 : 0);
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(GetConnectionState(agent));
    (void)agent->GetSessionId();
}

TEST_F(Connect, IsDeadWithoutAnObject) {
    EXPECT_FALSE(GetConnectionState(std::shared_ptr<IZamControl>()));
}

TEST_F(Connect, StaysUsableAfterAFailureInTheServicesMachinery) {
    const auto agent = ConnectToAgent(Agent(
        R"({"rules": [{"method": "GetSessionId", "times": 1, "action": "internal-error", "message": "oops"}]})"));
    const auto error = Failure<apigen::ServiceInternalError>([&] { (void)agent->GetSessionId(); });
    EXPECT_FALSE(error.IsConnectionLost());
    EXPECT_STREQ(error.what(),
                 "Method call apigen::Guid GetSessionId() const ended up with internal API error: oops");
    (void)agent->GetSessionId();
}

TEST_F(Connect, IsLostWithABrokenMessageWhichNamesItsMethodAndItsTool) {
    const auto agent =
        ConnectToAgent(Agent(R"({"rules": [{"method": "GetSessionId", "action": "malformed"}]})"));
    const auto error = Failure<apigen::BrokenMessageError>([&] { (void)agent->GetSessionId(); });
    EXPECT_TRUE(error.IsConnectionLost());
    EXPECT_THAT(error.what(), StartsWith("Malformed document: "));
    EXPECT_THAT(error.what(), HasSubstr("GetSessionId"));
    EXPECT_THAT(error.what(), HasSubstr("tarvoconfig"));
    EXPECT_FALSE(GetConnectionState(agent));
}

TEST_F(Connect, SurvivesAnAnswerThatLacksItsResultAndNamesTheMethod) {
    const auto script =
        Tool(std::string("exec ") + RELIABILITY_PEER + " 'answer=<Data><other>1</other></Data>'");
    const auto installer = ConnectToInstaller(script);
    const auto error = Failure<apigen::ApiInternalError>([&] { (void)installer->GetSystemInformation(); });
    EXPECT_FALSE(error.IsConnectionLost());
    EXPECT_THAT(error.what(), HasSubstr("GetSystemInformation"));
    EXPECT_THAT(error.what(), HasSubstr(script.Tool));
    EXPECT_TRUE(GetConnectionState(installer));
}

TEST_F(Connect, StaysUsableAfterARefusal) {
    const auto agent = ConnectToAgent(
        Agent(R"({"rules": [{"method": "GetSessionId", "times": 1, "action": "throw", "message": "no"}]})"));
    EXPECT_FALSE(Failure<CGenericException>([&] { (void)agent->GetSessionId(); }).IsConnectionLost());
    EXPECT_TRUE(GetConnectionState(agent));
}

TEST(DefaultLog, TellsWhyItCantBeWritten) {
    const zamtest::CTemporaryFolder folder;
    const CSimpleLogger missing(folder.Path("missing"), "a.log");
    EXPECT_EQ(missing.GetError(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(missing.GetPath(), "");

    const CSimpleLogger good(folder.Path(), "a.log");
    EXPECT_FALSE(good.GetError());
    EXPECT_EQ(good.GetPath(), folder.Path("a.log"));

    // Where it stands depends on the host; it can be asked in any case.
    for (const auto& log : {MakeDefaultAgentLog(), MakeDefaultInstallerLog()})
        EXPECT_EQ(log->GetPath().empty(), static_cast<bool>(log->GetError()));
}

}  // namespace
}  // namespace zamclientlib
