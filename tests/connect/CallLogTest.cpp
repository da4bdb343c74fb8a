// SPDX-License-Identifier: Apache-2.0
// The log of calls: off unless asked for, and never about an argument.
#include <apigen/CallControl.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/api/CMemoryLogger.h"
#include "tests/api/TemporaryFolder.h"

namespace zamclientlib {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class CallLog : public testing::Test {
protected:
    SConnectOptions Agent(std::shared_ptr<apigen::ILogger> logger, const std::string& script = "{}") const {
        m_folder.Write("script.json", script);
        SConnectOptions options;
        options.Tool = TEST_AGENT;
        options.CallTimeout = 60s;
        options.Logger = std::move(logger);
        options.IsEachCallLogged = true;
        options.Environment["ZAM_TESTAGENT_SCRIPT"] = m_folder.Path("script.json");
        return options;
    }

    static SZamControlOwnerInfo Owner() {
        SZamControlOwnerInfo owner;
        owner.Id = apigen::Guid::Deserialize("{11111111-2222-3333-4444-555555555555}");
        owner.Name = "an argument";
        owner.Mode = ZAMOwnerMode::Exclusive;
        return owner;
    }

    zamtest::CTemporaryFolder m_folder;
    std::shared_ptr<zamtest::CMemoryLogger> m_logger = std::make_shared<zamtest::CMemoryLogger>();
};

TEST_F(CallLog, SaysNothingOfCallsUnlessAskedTo) {
    auto options = Agent(m_logger);
    options.IsEachCallLogged = false;
    (void)ConnectToAgent(options)->GetSessionId();
    EXPECT_THAT(m_logger->Lines(), Not(Contains(HasSubstr("Call of"))));
}

TEST_F(CallLog, TellsMethodOutcomeAndDurationOfEachCall) {
    const auto agent = ConnectToAgent(Agent(m_logger));
    (void)agent->GetSessionId();
    EXPECT_THAT(m_logger->Lines(),
                Contains(MatchesRegex("I Call of the greeting: answered after [0-9]+ us")));
    EXPECT_THAT(m_logger->Lines(),
                Contains(MatchesRegex("I Call of GetSessionId: answered after [0-9]+ us")));
}

TEST_F(CallLog, NeverHoldsAnArgument) {
    const auto agent = ConnectToAgent(Agent(m_logger));
    (void)agent->RequestControl(Owner(), false);
    EXPECT_THAT(m_logger->Lines(), Contains(HasSubstr("Call of RequestControl: answered")));
    EXPECT_THAT(m_logger->Lines(), Not(Contains(HasSubstr("an argument"))));
}

TEST_F(CallLog, TellsHowCallsFailed) {
    const auto agent = ConnectToAgent(Agent(m_logger, R"({"rules": [
        {"method": "GetSessionId", "action": "internal-error", "message": "oops"},
        {"method": "GetCurrentOwner", "action": "throw", "message": "no"},
        {"method": "GetProductInfo", "action": "exit", "code": 7}]})"));
    EXPECT_THROW((void)agent->GetSessionId(), apigen::ServiceInternalError);
    EXPECT_THROW((void)agent->GetCurrentOwner(), CGenericException);
    {
        const apigen::CCallDeadline past(0ms);
        EXPECT_THROW((void)agent->GetEventConfig(), apigen::TimeoutError);
    }
    EXPECT_THROW((void)agent->GetProductInfo(), apigen::PeerGoneError);
    const auto lines = m_logger->Lines();
    EXPECT_THAT(lines, Contains(HasSubstr("Call of GetSessionId: failed in the service after")));
    EXPECT_THAT(
        lines, Contains(HasSubstr(
                   "Call of GetCurrentOwner: refused by the service with CGenericException, \"no\", after")));
    EXPECT_THAT(lines, Contains(HasSubstr("Call of GetEventConfig: failed: The time for the call was up")));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("Call of GetProductInfo: failed: "), HasSubstr("status 7"))));
}

TEST_F(CallLog, HasNameAndMessageOfAnExceptionThatTheClientDoesntKnow) {
    auto options = Agent(m_logger, R"({"rules": [
        {"method": "GetSessionId", "action": "throw", "type": "CFromTheFuture", "message": "too\nnew"}]})");
    const auto agent = ConnectToAgent(options);
    try {
        (void)agent->GetSessionId();
        FAIL();
    } catch (const apigen::ApiException& error) {
        EXPECT_STREQ(error.what(), "Cannot deserialize exception: Unknown exception type.");
        EXPECT_FALSE(error.IsConnectionLost());
    }
    EXPECT_THAT(m_logger->Lines(), Contains(HasSubstr("Call of GetSessionId: refused by the service with "
                                                      "CFromTheFuture, \"too\\nnew\", after")));
}

/// Fails, and calls while it is at it.
class CBadLogger final : public apigen::ILogger {
public:
    void Info(const std::string& message) override { Do(message); }
    void Error(const std::string& message, std::exception& /*error*/) override { Do(message); }

    std::shared_ptr<IZamControl> Agent;
    int Calls = 0;

private:
    void Do(const std::string& message) {
        if (Agent != nullptr && message.find("Call of") != std::string::npos) {
            ++Calls;
            (void)Agent->GetSessionId();
        }
        throw std::runtime_error("the disk is full");
    }
};

TEST_F(CallLog, SurvivesALoggerThatThrowsAndOneThatCallsItself) {
    const auto logger = std::make_shared<CBadLogger>();
    const auto agent = ConnectToAgent(Agent(logger));
    logger->Agent = agent;
    (void)agent->GetSessionId();
    EXPECT_EQ(logger->Calls, 1) << "what a logger calls is not logged";
    (void)agent->GetCurrentOwner();
    EXPECT_EQ(logger->Calls, 2);
    logger->Agent.reset();
}

}  // namespace
}  // namespace zamclientlib
