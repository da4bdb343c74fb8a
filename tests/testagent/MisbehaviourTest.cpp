// SPDX-License-Identifier: Apache-2.0
// What a client meets when the agent fails or breaks down.
#include "tests/testagent/AgentFixture.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::HasSubstr;

class AMisbehavingAgent : public CAgentTest {};

std::string RuleFor(const std::string& method, const std::string& action) {
    return R"({"rules": [{"method": ")" + method + R"(", )" + action + "}]}";
}

TEST_F(AMisbehavingAgent, ReportsEachTypedFailureAsItsType) {
    Script(R"({"rules": [
        {"method": "GetProductInfo", "times": 1, "action": "throw", "type": "CGenericException", "message": "one"},
        {"method": "GetProductInfo", "skip": 1, "times": 1, "action": "throw", "type": "CJobIsRunning", "message": "two"},
        {"method": "GetProductInfo", "skip": 2, "times": 1, "action": "throw", "type": "CPackageManagerIsLocked", "message": "three"},
        {"method": "GetProductInfo", "skip": 3, "times": 1, "action": "throw", "type": "CIndexingUnmetDependencies",
         "missedPackage": "Tar", "message": "four"},
        {"method": "GetProductInfo", "skip": 4, "times": 1, "action": "throw", "type": "CFromTheFuture", "message": "five"},
        {"method": "GetProductInfo", "skip": 5, "times": 1, "action": "internal-error", "message": "six"}
    ]})");
    const auto control = Connect();
    const auto call = [&] { control->GetProductInfo(); };
    EXPECT_STREQ(Thrown<CGenericException>(call).what(), "one");
    EXPECT_STREQ(Thrown<CJobIsRunning>(call).what(), "two");
    EXPECT_STREQ(Thrown<CPackageManagerIsLocked>(call).what(), "three");
    const auto unmet = Thrown<CIndexingUnmetDependencies>(call);
    EXPECT_STREQ(unmet.what(), "four");
    EXPECT_EQ(unmet.MissedPackage, EIndexingDependency::Tar);
    EXPECT_STREQ(Thrown<apigen::ApiException>(call).what(),
                 "Cannot deserialize exception: Unknown exception type.");
    EXPECT_THAT(Thrown<apigen::ServiceInternalError>(call).what(), HasSubstr("six"));
    EXPECT_EQ(control->GetProductInfo().Name, "Test agent") << "the connection is as good as new";
}

TEST_F(AMisbehavingAgent, IsToldByItsWholeIdentifierToo) {
    Script(RuleFor("IsOsxFDAGranted_16988824051704448109", R"("action": "throw", "message": "no")"));
    const auto control = Connect();
    EXPECT_THROW(control->IsOsxFDAGranted(), CGenericException);
    EXPECT_NO_THROW(control->GetProductInfo());
}

TEST_F(AMisbehavingAgent, ThatIsSlowRunsIntoTheTimeOutAndIsGivenUp) {
    Script(RuleFor("GetProductInfo", R"("action": "delay", "ms": 30000)"));
    const auto control = Connect(1s);
    const auto before = std::chrono::steady_clock::now();
    Thrown<apigen::TimeoutError>([&] { control->GetProductInfo(); });
    EXPECT_GE(std::chrono::steady_clock::now() - before, 1s);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    EXPECT_THROW(control->GetSessionId(), apigen::ApiInternalError) << "the stream can't be trusted any more";
}

TEST_F(AMisbehavingAgent, ThatIsTerminatedLeavesNothingBehind) {
    Script(RuleFor("GetProductInfo", R"("action": "delay", "ms": 30000)"));
    std::string folder;
    {
        const auto control = Connect(1s);
        const std::string socket = control->GetEventConfig().v1->socketPath;
        folder = socket.substr(0, socket.rfind('/'));
        Thrown<apigen::TimeoutError>([&] { control->GetProductInfo(); });
    }
    EXPECT_TRUE(Eventually([&] { return ::access(folder.c_str(), F_OK) != 0; }));
}

TEST_F(AMisbehavingAgent, ThatIsALittleSlowIsWaitedFor) {
    Script(RuleFor("GetProductInfo", R"("action": "delay", "ms": 100)"));
    EXPECT_EQ(Connect()->GetProductInfo().Name, "Test agent");
}

TEST_F(AMisbehavingAgent, ThatExitsIsReportedGoneWithItsCode) {
    Script(RuleFor("GetProductInfo", R"("action": "exit", "code": 7)"));
    const auto control = Connect();
    EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { control->GetProductInfo(); }).what(),
                HasSubstr("status 7"));
    Thrown<apigen::PeerGoneError>([&] { control->GetSessionId(); });
}

TEST_F(AMisbehavingAgent, ThatIsKilledIsReportedGoneWithItsSignal) {
    Script(RuleFor("GetProductInfo", R"("action": "kill")"));
    const auto control = Connect();
    EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { control->GetProductInfo(); }).what(),
                HasSubstr("signal 9"));
}

TEST_F(AMisbehavingAgent, ThatPrintsGarbageIsQuoted) {
    Script(RuleFor("GetProductInfo", R"("action": "garbage", "message": "Usage: something else\n")"));
    const auto control = Connect();
    EXPECT_THAT(Thrown<apigen::BrokenMessageError>([&] { control->GetProductInfo(); }).what(),
                HasSubstr("Usage: something else"));
}

TEST_F(AMisbehavingAgent, ThatSendsAMalformedDocumentBreaksTheConnection) {
    Script(RuleFor("GetProductInfo", R"("action": "malformed")"));
    const auto control = Connect();
    Thrown<apigen::BrokenMessageError>([&] { control->GetProductInfo(); });
    EXPECT_THROW(control->GetSessionId(), apigen::ApiInternalError);
}

TEST_F(AMisbehavingAgent, SendsEnumerationsThatNoMemberNames) {
    Script(R"({"clock": {"mode": "held"}, "rules": [{"method": "GetInfo", "action": "unknown-enum"},
               {"method": "GetCurrentOwner", "action": "unknown-enum"},
               {"method": "GetDefaultJobStartOptions", "action": "unknown-enum"}]})");
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    const auto info = job->Start({})->GetInfo();
    EXPECT_EQ(info.State, static_cast<JobState>(99));
    EXPECT_EQ(info.Result, static_cast<JobResult>(99));
    EXPECT_EQ(info.JobDetails.at(0).Type, static_cast<ELogDetailType>(99));
    EXPECT_EQ(info.JobName, "nightly");
    EXPECT_EQ(control->GetCurrentOwner().Mode, static_cast<ZAMOwnerMode>(99));
    EXPECT_EQ(*job->GetDefaultJobStartOptions().Priority, static_cast<EJobStartPriorityMode>(99));
}

// A gateway has a number under the key that is an enumeration's in the options of a start.
TEST_F(AMisbehavingAgent, LeavesNumbersAloneThatAreNoEnumerations) {
    Script(RuleFor("GetCloudServiceProviderGateways", R"("action": "unknown-enum")"));
    const auto control = Connect();
    const auto providers = control->RequestControl(Owner(), false)->GetCloudServiceProviderManager();
    SCloudServiceProviderInfo provider;
    provider.Name = "cloud.example";
    provider.Connection = {{"gw1.example", 6180}};
    const auto id = providers->AddCloudServiceProvider(provider).Id;
    EXPECT_EQ(providers->GetCloudServiceProviderGateways(id).at(0).Priority, 1);
}

TEST_F(AMisbehavingAgent, ThatHandsOutNoObjectAnswersWithTheHandleOfNone) {
    Script(R"({"rules": [{"method": "RequestControl", "times": 1, "action": "null-object"},
               {"method": "FindBackupJob", "action": "null-object"},
               {"method": "GetRepositoryManager", "action": "null-object"}]})");
    const auto control = Connect();
    EXPECT_EQ(control->RequestControl(Owner(), false), nullptr);
    EXPECT_EQ(control->GetCurrentOwner().Id, apigen::Guid{}) << "the call was not carried out";
    const auto product = control->RequestControl(Owner(), false);
    ASSERT_NE(product, nullptr);
    EXPECT_EQ(product->FindBackupJob({}), nullptr);
    EXPECT_EQ(product->GetRepositoryManager(), nullptr);
    EXPECT_NE(product->GetBackupServerManager(), nullptr);
}

TEST_F(AMisbehavingAgent, CarriesOutTheFirstRuleThatIsDueAndCountsForAll) {
    Script(R"({"rules": [
        {"method": "GetProductInfo", "skip": 1, "times": 2, "action": "throw", "message": "a"},
        {"method": "GetProductInfo_4746724914348084655", "skip": 2, "times": 3, "action": "throw", "message": "b"},
        {"method": "GetProductInfo", "skip": 6, "action": "throw", "message": "c"},
        {"method": "GetSessionId", "skip": 1, "times": 18446744073709551615, "action": "throw", "message": "d"},
        {"method": "GetCurrentOwner", "skip": 18446744073709551615, "action": "kill"},
        {"method": "IsOsxFDAGranted", "times": 1, "action": "delay", "ms": 1},
        {"method": "IsOsxFDAGranted", "times": 2, "action": "throw", "message": "e"}
    ]})");
    const auto control = Connect();
    const auto answers = [](int count, const std::function<void()>& call) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            try {
                call();
                all += "-";
            } catch (const CGenericException& error) {
                all += error.what();
            }
        }
        return all;
    };
    EXPECT_EQ(answers(9, [&] { control->GetProductInfo(); }), "-aabb-ccc");
    EXPECT_EQ(answers(4, [&] { control->GetSessionId(); }), "-ddd");
    EXPECT_EQ(answers(3, [&] { control->GetCurrentOwner(); }), "---");
    EXPECT_EQ(answers(3, [&] { control->IsOsxFDAGranted(); }), "-e-");
}

TEST_F(AMisbehavingAgent, MayDieOfTheReleaseOfAnObject) {
    Script(RuleFor("__dtr", R"("action": "kill")"));
    const auto control = Connect();
    EXPECT_NO_THROW(control->RequestControl(Owner(), false));
    EXPECT_THROW(control->GetProductInfo(), apigen::PeerGoneError);
}

TEST_F(AMisbehavingAgent, FailsBeforeTheFirstCall) {
    Script(RuleFor("greeting", R"("action": "throw", "message": "not today")"));
    EXPECT_STREQ(Thrown<CGenericException>([] { Connect(); }).what(), "not today");
    Script(RuleFor("greeting", R"("action": "exit", "code": 3)"));
    EXPECT_THAT(Thrown<apigen::PeerGoneError>([] { Connect(); }).what(), HasSubstr("status 3"));
    Script(RuleFor("greeting", R"("action": "garbage", "message": "no such option\n")"));
    EXPECT_THAT(Thrown<apigen::BrokenMessageError>([] { Connect(); }).what(), HasSubstr("no such option"));
    Script(RuleFor("greeting", R"("action": "delay", "ms": 30000)"));
    Thrown<apigen::TimeoutError>([] { Connect(1s); });
}

TEST_F(AMisbehavingAgent, RefusesAScriptWithAMistake) {
    const auto reason = [&](const std::string& script) {
        Script(script);
        return std::string(Thrown<CGenericException>([] { Connect(); }).what());
    };
    EXPECT_THAT(reason("{"), HasSubstr("can't be used"));
    EXPECT_THAT(reason(R"({"rulez": []})"), HasSubstr("rulez"));
    EXPECT_THAT(reason(R"({"rules": [{"method": "GetInfo", "action": "dance"}]})"), HasSubstr("dance"));
    EXPECT_THAT(reason(R"({"rules": [{"action": "kill"}]})"), HasSubstr("needs a method"));
    EXPECT_THAT(reason(R"({"rules": [{"method": "GetInfo", "action": "kill", "code": 1}]})"),
                HasSubstr("code"));
    EXPECT_THAT(reason(R"({"rules": 7})"), HasSubstr("a list is expected"));
    EXPECT_THAT(reason(R"({"clock": {"stepMs": "soon"}})"), HasSubstr("stepMs"));
}

TEST_F(AMisbehavingAgent, SpeaksTheProtocolVersionOfTheScript) {
    EXPECT_TRUE(IsControlApiCompatible());
    Script(R"({"protocolVersion": "3.1.0.0"})");
    EXPECT_FALSE(IsControlApiCompatible());
}

}  // namespace
}  // namespace tests
