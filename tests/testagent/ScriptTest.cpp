// SPDX-License-Identifier: Apache-2.0
// Mistakes in a script are told, never taken for something else.
#include <sys/stat.h>

#include <algorithm>

#include "tests/testagent/RawAgent.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::AllOf;
using testing::HasSubstr;

class AScript : public CAgentTest {
protected:
    /// What the client is greeted with.
    static std::string Greeting() {
        return Thrown<CGenericException>([] { Connect(); }).what();
    }

    /// The greeting for a script that holds a mistake.
    std::string Refusal(const std::string& json) {
        Script(json);
        return Greeting();
    }

    void Name(const std::string& path) { ::setenv("ZAM_TESTAGENT_SCRIPT", path.c_str(), 1); }
};

std::string Rule(const std::string& members) {
    return R"({"rules": [{)" + members + "}]}";
}

struct SMistake {
    std::string Script;
    std::string Place;
    std::string Accepted;
};

std::string Clock(const std::string& members) {
    return R"({"clock": {)" + members + "}}";
}

TEST_F(AScript, WithARuleThatNoCallOrActionCanMeetIsRefusedWithPlaceAndChoice) {
    const std::vector<SMistake> mistakes = {
        {Rule(R"("method": "GetInf", "action": "kill")"), "rules[0].method", "GetInfo"},
        {Rule(R"("method": "GetInfo_1", "action": "kill")"), "GetInfo_1", "identifier"},
        {Rule(R"("method": "Greeting", "action": "kill")"), "\"Greeting\"", "greeting"},
        {Rule(R"("method": "", "action": "kill")"), "rules[0]", "needs a method"},
        {Rule(R"("method": "GetInfo")"), "rules[0]", "needs an action"},
        {Rule(R"("method": "GetInfo", "action": "dance")"), "rules[0].action", "unknown-enum"},
        {Rule(R"("method": "GetInfo", "action": "kill", "code": 1)"), "\"code\"", "action, method, skip"},
        {Rule(R"("method": "GetInfo", "action": "exit", "message": "x")"), "\"message\"", "code"},
        {Rule(R"("method": "GetInfo", "action": "delay", "code": 1)"), "\"code\"", "ms"},
        {Rule(R"("method": "GetInfo", "action": "malformed", "message": "x")"), "\"message\"", "skip"},
        {Rule(R"("method": "GetInfo", "action": "throw", "type": "CJobIsRunning", "missedPackage": "Tar")"),
         "\"missedPackage\"", "message"},
        {Rule(R"("method": "GetInfo", "action": "throw", "type": "CIndexingUnmetDependencies",
                 "missedPackage": "Tat")"),
         "rules[0].missedPackage", "Tar"},
        {Rule(R"("method": "GetInfo", "action": "null-object")"), "rules[0].action", "RequestControl"},
        {Rule(R"("method": "greeting", "action": "internal-error")"), "rules[0].action", "garbage"},
        {Rule(R"("method": "greeting", "action": "malformed")"), "rules[0].action", "garbage"},
        {Rule(R"("method": "greeting", "action": "unknown-enum")"), "rules[0].action", "garbage"},
        {Rule(R"("method": "greeting", "action": "null-object")"), "rules[0].action", "garbage"},
        {Rule(R"("method": "greeting", "action": "throw", "type": "CJobIsRunning")"), "rules[0].type",
         "CGenericException"},
    };
    for (const auto& [script, place, accepted] : mistakes) {
        EXPECT_THAT(Refusal(script), AllOf(HasSubstr("testagent-"), HasSubstr("can't be used"),
                                           HasSubstr(place), HasSubstr(accepted)))
            << script;
    }
}

TEST_F(AScript, WithARuleThatNoEventCanMeetIsRefusedWithPlaceAndChoice) {
    const auto rule = [](const std::string& members) { return R"({"events": [{)" + members + "}]}"; };
    const std::vector<SMistake> mistakes = {
        {rule(""), "script.events[0]", "needs an action"},
        {rule(R"("action": "exit")"), "script.events[0].action", "half-frame, garbage"},
        {rule(R"("action": "kill", "event": "JobCreated")"), "script.events[0].event", "BackupJobCreated"},
        {rule(R"("action": "kill", "event": "Unknown")"), "script.events[0].event", "no event of this kind"},
        {rule(R"("action": "kill", "message": "x")"), "\"message\"", "action, event, skip, times"},
        {rule(R"("action": "kill", "method": "GetInfo")"), "\"method\"", "action, event, skip, times"},
        {rule(R"("action": "garbage")"), "script.events[0]", "needs a message"},
        {rule(R"("action": "stall", "ms": 5)"), "\"ms\"", "times"},
        {rule(R"("action": "stall", "skip": -1)"), "script.events[0].skip", "a whole number"},
        {rule(R"("action": "stall", "times": 1.5)"), "script.events[0].times", "a whole number"},
        {R"({"events": {"action": "kill"}})", "script.events", "a list is expected"},
        {R"({"shared": {"idle": 5}})", "script.shared", "idleMs"},
        {R"({"shared": {"idleMs": "5"}})", "script.shared.idleMs", "a whole number"},
    };
    for (const auto& [script, place, accepted] : mistakes) {
        EXPECT_THAT(Refusal(script), AllOf(HasSubstr("can't be used"), HasSubstr(place), HasSubstr(accepted)))
            << script;
    }
}

TEST_F(AScript, WithANumberThatDoesNotFitIsRefusedInsteadOfBeingTurnedIntoAnother) {
    const std::vector<std::string> numbers = {"-1",     "1.5",  "2.0",  "1e3", "99999999999999999999999",
                                              R"("5")", "true", "null", "[1]"};
    for (const auto& number : numbers) {
        for (const char* const name : {"stepMs", "steps", "failedAttempts"}) {
            EXPECT_THAT(Refusal(Clock('"' + std::string(name) + "\": " + number)),
                        AllOf(HasSubstr("script.clock." + std::string(name)), HasSubstr("a whole number")))
                << number;
        }
        for (const char* const name : {"attempts", "timeoutMs"}) {
            EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "retries": {")" + std::string(name) +
                                "\": " + number + "}}]}"),
                        HasSubstr("script.jobs[0].retries." + std::string(name)))
                << number;
        }
        for (const char* const name : {"skip", "times"}) {
            EXPECT_THAT(Refusal(Rule(R"("method": "GetInfo", "action": "kill", ")" + std::string(name) +
                                     "\": " + number)),
                        HasSubstr("script.rules[0]." + std::string(name)))
                << number;
        }
    }
    for (const char* const bad :
         {R"("stepMs": 0)", R"("steps": 0)", R"("stepMs": 1099511627776)", R"("steps": 1099511627777)"}) {
        EXPECT_THAT(Refusal(Clock(bad)), HasSubstr("a whole number from 1 to")) << bad;
    }
    EXPECT_THAT(Refusal(Clock(R"("steps": NaN)")), HasSubstr("line 1, column"));
    EXPECT_THAT(Refusal(Clock(R"("steps": 1e400)")), HasSubstr("1e400"));
    for (const char* const code : {"-1", "256", "4294967296"}) {
        EXPECT_THAT(Refusal(Rule(R"("method": "GetInfo", "action": "exit", "code": )" + std::string(code))),
                    AllOf(HasSubstr("rules[0].code"), HasSubstr("from 0 to 255")));
    }
    EXPECT_THAT(Refusal(Rule(R"("method": "GetInfo", "action": "delay", "ms": 1e9)")),
                HasSubstr("rules[0].ms"));
}

TEST_F(AScript, WithAVersionThatIsNoneIsRefusedInsteadOfBeingFilledWithZeros) {
    for (const std::string version :
         {"", "2", "2.0", "2.0.0", "x.y", "2.0.0.x", "1.2.3.4.5", "2.0.0.0 ", " 2.0.0.0", "2,0,0,0", "2..0.0",
          "70000.0.0.0", "2.0.0.70000", "-1.0.0.0", "2.0.0.-1", "+2.0.0.0", "2.0.0.0.", "2.0.0."}) {
        EXPECT_THAT(Refusal(R"({"protocolVersion": ")" + version + "\"}"),
                    AllOf(HasSubstr("script.protocolVersion: \"" + version), HasSubstr("2.0.0.0")))
            << version;
    }
    EXPECT_THAT(Refusal(R"({"protocolVersion": 2})"), HasSubstr("a text is expected, not 2"));
}

TEST_F(AScript, WithAnIdThatIsNoneIsRefusedInsteadOfBeingReadInPart) {
    for (const std::string id :
         {"", "1", "{}", "11111111222233334444555555555555", "{11111111-2222-3333-4444-555555555555",
          "11111111-2222-3333-4444-555555555555}", "(11111111-2222-3333-4444-555555555555)",
          "{11111111-2222-3333-4444-55555555555g}", "{11111111-2222-3333-4444-5555555555555}",
          "{1111111-12222-3333-4444-555555555555}", "{11111111_2222_3333_4444_555555555555}",
          " 11111111-2222-3333-4444-555555555555"}) {
        EXPECT_THAT(Refusal(R"({"owner": {"id": ")" + id + "\"}}"),
                    AllOf(HasSubstr("script.owner.id"), HasSubstr("hexadecimal")))
            << id;
        EXPECT_THAT(Refusal(R"({"repositories": [{"name": "a", "id": ")" + id + "\"}]}"),
                    HasSubstr("script.repositories[0].id"))
            << id;
    }
    EXPECT_THAT(Refusal(R"({"owner": {"name": "console"}})"),
                HasSubstr("script.owner: an owner needs an id"));
    Script(R"({"owner": {"id": "ABCDEFab-2222-3333-4444-555555555555", "mode": "Shared"}})");
    EXPECT_EQ(Connect()->GetCurrentOwner().Id.Serialize(), "{abcdefab-2222-3333-4444-555555555555}");
}

TEST_F(AScript, ThatSaysAThingTwiceIsRefused) {
    EXPECT_THAT(Refusal(R"({"clock": {"steps": 2, "stepMs": 5, "steps": 3}})"),
                HasSubstr("script.clock.steps: stands there twice"));
    EXPECT_THAT(Refusal(R"({"rules": [], "jobs": [], "rules": []})"), HasSubstr("script.rules"));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a"}, {"name": "b", "name": "c"}]})"),
                HasSubstr("script.jobs[1].name"));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a"}, {"name": "a"}]})"),
                AllOf(HasSubstr("script.jobs[1].name"), HasSubstr("already")));
    EXPECT_THAT(Refusal(R"({"repositories": [{"name": "a"}, {"name": "a"}]})"),
                AllOf(HasSubstr("script.repositories[1].name"), HasSubstr("already")));
    const std::string id = R"("id": "11111111-2222-3333-4444-555555555555")";
    EXPECT_THAT(Refusal(R"({"repositories": [{"name": "a", )" + id + R"(}, {"name": "b", )" + id + "}]}"),
                AllOf(HasSubstr("script.repositories[1].id"), HasSubstr("\"a\"")));
}

TEST_F(AScript, WithANameThatNothingHasIsRefused) {
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "repository": "mian"}],
                            "repositories": [{"name": "main"}]})"),
                AllOf(HasSubstr("script.jobs[0].repository"), HasSubstr("mian"), HasSubstr("main")));
    EXPECT_THAT(Refusal(R"({"jobs": [{"repository": "x"}]})"), HasSubstr("a job needs a name"));
    EXPECT_THAT(Refusal(R"({"repositories": [{"location": "/srv"}]})"),
                HasSubstr("a repository needs a name"));
    EXPECT_THAT(Refusal(R"({"repositories": [{"name": "a", "type": "Tape"}]})"),
                AllOf(HasSubstr("script.repositories[0].type"), HasSubstr("LocalFolder")));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "backupMode": ""}]})"),
                AllOf(HasSubstr("script.jobs[0].backupMode"), HasSubstr("FileLevel")));
    EXPECT_THAT(Refusal(Clock(R"("mode": "Time")")), AllOf(HasSubstr("clock.mode"), HasSubstr("calls")));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "retries": {"timeout": 1}}]})"),
                AllOf(HasSubstr("script.jobs[0].retries"), HasSubstr("attempts, timeoutMs")));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "includeDirs": "/etc"}]})"), HasSubstr("a list"));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "includeDirs": [1]}]})"), HasSubstr("a list of texts"));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": "a", "enabled": "no"}]})"), HasSubstr("true or false"));
    EXPECT_THAT(Refusal(R"({"jobs": [{"name": 7}]})"), HasSubstr("a text is expected, not 7"));
    EXPECT_THAT(Refusal(R"({"jobs": null})"), HasSubstr("a list is expected, not null"));
    EXPECT_THAT(Refusal(R"({"clock": []})"), HasSubstr("an object is expected, not a list"));
}

TEST_F(AScript, ThatIsNoWholeDocumentIsRefusedWithLineAndColumn) {
    for (const char* const text : {"{", "{} {}", "{}x", "{,}", "// nothing\n{}", "{/* nothing */}",
                                   "{'rules': []}", "\n\n", "{\"rules\": [],}", "{\"\xff\": 1}"}) {
        EXPECT_THAT(Refusal(text), AllOf(HasSubstr("line "), HasSubstr("column "))) << text;
    }
    EXPECT_THAT(Refusal("[]"), HasSubstr("an object is expected"));
    EXPECT_THAT(Refusal("{\"x\": " + std::string(100000, '[')), HasSubstr("nested too deeply"));
    EXPECT_LT(Refusal("{\"" + std::string(100000, 'x') + "\": 1}").size(), 1000U);
    EXPECT_LT(Refusal("{\"" + std::string(100000, 'x')).size(), 1000U);
}

TEST_F(AScript, ThatIsNoFileOrNoneOfABearableSizeIsRefusedAtOnce) {
    const zamtest::CTemporaryFolder folder;
    Name(folder.Path());
    EXPECT_THAT(Greeting(), HasSubstr("no regular file"));
    const std::string pipe = folder.Path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), S_IRWXU), 0);
    Name(pipe);
    EXPECT_THAT(Greeting(), AllOf(HasSubstr(pipe), HasSubstr("no regular file")));
    Name("/dev/zero");
    EXPECT_THAT(Greeting(), HasSubstr("no regular file"));
    Name(folder.Path("missing"));
    EXPECT_THAT(Greeting(), HasSubstr("can't be opened: No such file"));
    folder.Write("empty", "");
    Name(folder.Path("empty"));
    EXPECT_THAT(Greeting(), HasSubstr("it is empty"));
    folder.Write("huge", "{}" + std::string(2UL * 1024 * 1024, ' '));
    Name(folder.Path("huge"));
    EXPECT_THAT(Greeting(), HasSubstr("larger than 1048576 bytes"));
    folder.Write("large", "{}" + std::string(1024UL * 1024 - 2, ' '));
    Name(folder.Path("large"));
    EXPECT_NO_THROW(Connect());
}

TEST_F(AScript, WithAMistakeFailsTheVersionQueryToo) {
    Script(R"({"protocolVersion": "2"})");
    const SRun run = RunInShell(Agent() + " extended protocolVersion");
    EXPECT_EQ(run.Status, 1);
    EXPECT_EQ(run.Output, "");
    EXPECT_THAT(run.Error, AllOf(HasSubstr("script.protocolVersion"), HasSubstr("2.0.0.0")));
    EXPECT_EQ(std::count(run.Error.begin(), run.Error.end(), '\n'), 1);
}

TEST_F(AScript, ThatThePageShowsIsAccepted) {
    std::ifstream page(TEST_AGENT_PAGE);
    std::string script;
    bool isInside = false;
    int count = 0;
    for (std::string line; std::getline(page, line);) {
        if (line == "```json") {
            isInside = true;
            script.clear();
        } else if (line == "```" && isInside) {
            isInside = false;
            ++count;
            Script(script);
            EXPECT_NO_THROW(Connect()) << script;
        } else if (isInside) {
            script += line + "\n";
        }
    }
    EXPECT_GE(count, 5);
}

}  // namespace
}  // namespace tests
