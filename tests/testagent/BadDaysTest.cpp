// SPDX-License-Identifier: Apache-2.0
// Clients and surroundings that fail: the agent ends, and leaves nothing.
#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <filesystem>

#include "tests/testagent/RawAgent.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::AllOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// An agent whose temporary folder is a test's own.
class TheAgentOnABadDay : public CAgentTest {
protected:
    TheAgentOnABadDay() { UseFolder(m_folder.Path()); }
    ~TheAgentOnABadDay() override {
        if (m_before.empty()) {
            ::unsetenv("TMPDIR");
        } else {
            UseFolder(m_before);
        }
    }

    static void UseFolder(const std::string& path) { ::setenv("TMPDIR", path.c_str(), 1); }

    /// The folders of agents.
    std::vector<fs::path> Folders() const {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(m_folder.Path())) {
            if (entry.is_directory()) found.push_back(entry.path());
        }
        return found;
    }

    void MakeFolder(const std::string& name, fs::perms perms = fs::perms::owner_all) const {
        fs::create_directory(m_folder.Path(name));
        fs::permissions(m_folder.Path(name), perms);
    }

    void LeaveAKilledAgentsFolder() const {
        CRawAgent agent;
        EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
        agent.Kill(SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(agent.Ended()));
    }

    const std::string m_before = std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "";
    zamtest::CTemporaryFolder m_folder;
};

TEST_F(TheAgentOnABadDay, RemovesWhatAKilledAgentHasLeft) {
    LeaveAKilledAgentsFolder();
    LeaveAKilledAgentsFolder();
    ASSERT_EQ(Folders().size(), 1U) << "the second of them has removed what the first one left";
    MakeFolder("testagent-AbCd12");  // killed between making its folder and listening in it
    {
        const auto control = Connect();
        EXPECT_EQ(Folders().size(), 1U);
    }
    EXPECT_TRUE(Folders().empty());
}

TEST_F(TheAgentOnABadDay, RemovesNothingThatIsNotAnAgentsOrWhoseAgentLives) {
    CRawAgent living;
    EXPECT_THAT(living.Read(), HasSubstr("__handle"));
    living.Kill(SIGSTOP);
    ASSERT_EQ(Folders().size(), 1U);
    const fs::path ofTheLiving = Folders()[0];

    MakeFolder("testagent-open12", fs::perms::owner_all | fs::perms::group_all);
    MakeFolder("testagent-full12");
    m_folder.Write("testagent-full12/notes", "mine");
    MakeFolder("testagent-file12");
    m_folder.Write("testagent-file12/events.sock", "no socket");
    MakeFolder("testagent-longer-than-ours");
    MakeFolder("another-abc123");
    MakeFolder("elsewhere");
    fs::create_symlink(m_folder.Path("elsewhere"), m_folder.Path("testagent-link12"));
    m_folder.Write("testagent-text12", "a file");
    ASSERT_EQ(::mkfifo(m_folder.Path("testagent-pipe12").c_str(), S_IRWXU), 0);

    EXPECT_NO_THROW(Connect());
    EXPECT_TRUE(fs::is_socket(ofTheLiving / "events.sock"));
    for (const char* const name :
         {"testagent-open12", "testagent-full12/notes", "testagent-file12/events.sock",
          "testagent-longer-than-ours", "another-abc123", "elsewhere", "testagent-link12", "testagent-text12",
          "testagent-pipe12"}) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(m_folder.Path(name)))) << name;
    }
    living.Kill(SIGCONT);
    living.Leave();
    EXPECT_EQ(living.Ended(), 0);
    EXPECT_FALSE(fs::exists(ofTheLiving));
}

TEST_F(TheAgentOnABadDay, DoesNotRemoveTheFolderOfOneThatStartsAtTheSameTime) {
    constexpr int Rounds = 10;
    constexpr std::size_t Agents = 12;
    for (int round = 0; round < Rounds; ++round) {
        std::deque<CRawAgent> agents(Agents);
        for (auto& agent : agents)
            EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
        const auto folders = Folders();
        EXPECT_EQ(folders.size(), Agents);
        for (const auto& folder : folders)
            EXPECT_TRUE(fs::is_socket(folder / "events.sock")) << folder;
        for (auto& agent : agents)
            agent.Leave();
        for (auto& agent : agents)
            EXPECT_EQ(agent.Ended(), 0);
        EXPECT_TRUE(Folders().empty());
    }
}

TEST_F(TheAgentOnABadDay, LeavesNothingWhenASignalEndsIt) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        CRawAgent agent;
        EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
        EXPECT_EQ(Folders().size(), 1U);
        agent.Kill(signal);
        const int status = agent.Ended();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(Folders().empty());
    }
}

TEST_F(TheAgentOnABadDay, EndsInTheMiddleOfADelayWhenItsClientDies) {
    Script(R"({"rules": [{"method": "GetSessionId", "action": "delay", "ms": 600000}]})");
    CRawAgent agent;
    EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
    agent.Send(CRawAgent::Call("GetSessionId_16415403617493696513"));
    agent.Leave();
    EXPECT_TRUE(WIFEXITED(agent.Ended()));
    EXPECT_TRUE(Folders().empty());

    Script(R"({"rules": [{"method": "greeting", "action": "delay", "ms": 600000}]})");
    CRawAgent slow;
    slow.Leave();
    EXPECT_TRUE(WIFEXITED(slow.Ended()));
    EXPECT_TRUE(Folders().empty());
}

TEST_F(TheAgentOnABadDay, EndsWithAClientThatDiesAtAnyPoint) {
    const std::string call = CRawAgent::Call("GetProductInfo_4746724914348084655");
    for (const std::size_t sent :
         {std::size_t{0}, std::size_t{2}, std::size_t{4}, call.size() / 2, call.size()}) {
        CRawAgent agent;
        EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
        agent.Send(call.substr(0, sent));
        agent.Leave();
        EXPECT_TRUE(WIFEXITED(agent.Ended())) << sent;
        EXPECT_TRUE(Folders().empty()) << sent;
    }
    CRawAgent unread;
    unread.Leave();
    EXPECT_TRUE(WIFEXITED(unread.Ended()));
    EXPECT_TRUE(Folders().empty());
}

TEST_F(TheAgentOnABadDay, OutlivesGarbageInAFrameAndEndsAtGarbageWithoutOne) {
    CRawAgent agent;
    EXPECT_THAT(agent.Read(), HasSubstr("__handle"));
    for (const std::string garbage : {"", "hello", "<Data>", "<Data/>", "\xff\xfe"}) {
        agent.Send(CRawAgent::Frame(garbage));
        EXPECT_THAT(agent.Read(), HasSubstr("__api_internal_err")) << garbage;
    }
    agent.Send("GET / HTTP/1.1\r\n\r\n");
    const int status = agent.Ended();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    EXPECT_TRUE(Folders().empty());
}

TEST_F(TheAgentOnABadDay, EndsWhenAStandardStreamIsMissing) {
    const std::string serve = "timeout 20 " + Agent() + " extended startCommandInvoker --logFileName x ";
    const SRun noInput = RunInShell(serve + "<&-");
    EXPECT_EQ(noInput.Status, 0);
    EXPECT_THAT(noInput.Output, HasSubstr("__handle"));
    const SRun noOutput = RunInShell(serve + ">&-");
    EXPECT_EQ(noOutput.Status, 1);
    EXPECT_THAT(noOutput.Error, HasSubstr("standard stream"));
    EXPECT_EQ(RunInShell(serve + "<&- >&- 2>&-").Status, 1);
    EXPECT_TRUE(Folders().empty());
}

TEST_F(TheAgentOnABadDay, IsTwoForTwoClientsAtOnce) {
    const auto first = Connect();
    const auto second = Connect();
    EXPECT_NE(first->GetSessionId(), second->GetSessionId());
    EXPECT_NE(first->GetEventConfig().v1->socketPath, second->GetEventConfig().v1->socketPath);
    const auto product = first->RequestControl(Owner(), false);
    MakeJob(*product, "nightly");
    EXPECT_EQ(second->GetCurrentOwner().Id, apigen::Guid{});
    EXPECT_TRUE(second->RequestControl(OtherOwner(), false)->GetBackupJobs().empty());
    EXPECT_EQ(product->GetBackupJobs().size(), 1U);
}

TEST_F(TheAgentOnABadDay, TellsOfATemporaryFolderThatItCantUse) {
    const auto greeting = [](const std::string& folder) {
        UseFolder(folder);
        return std::string(Thrown<CGenericException>([] { Connect(); }).what());
    };
    EXPECT_THAT(greeting(m_folder.Path("missing")),
                AllOf(HasSubstr(m_folder.Path("missing")), HasSubstr("$TMPDIR"), HasSubstr("No such file")));
    EXPECT_THAT(greeting("/dev/null"), AllOf(HasSubstr("/dev/null"), HasSubstr("Not a directory")));
    EXPECT_THAT(greeting("/proc"), AllOf(HasSubstr("/proc"), HasSubstr("$TMPDIR")));
    const std::string longName(120, 'x');
    fs::create_directory(m_folder.Path(longName));
    EXPECT_THAT(greeting(m_folder.Path(longName)),
                AllOf(HasSubstr(longName), HasSubstr("107"), HasSubstr("$TMPDIR")));
    EXPECT_TRUE(fs::is_empty(m_folder.Path(longName)));
    MakeFolder("closed", fs::perms::owner_read | fs::perms::owner_exec);
    if (::geteuid() != 0) {
        EXPECT_THAT(greeting(m_folder.Path("closed")), HasSubstr("Permission denied"));
    }
}

TEST_F(TheAgentOnABadDay, SaysHowItIsUsedWhenStartedByHand) {
    for (const char* const arguments : {"", " extended", " extended startCommandInvoker"}) {
        const SRun run = RunInShell(Agent() + arguments);
        EXPECT_EQ(run.Status, 2) << arguments;
        EXPECT_EQ(run.Output, "");
        EXPECT_THAT(run.Error, HasSubstr("Usage:"));
    }
}

/// The examples are what programs begin as.
class AnExample : public TheAgentOnABadDay {
protected:
    static void ExpectOneLineAndFailure(const SRun& run, const std::string& reason) {
        EXPECT_EQ(run.Status, 1);
        EXPECT_THAT(run.Error, HasSubstr(reason));
        EXPECT_EQ(std::count(run.Error.begin(), run.Error.end(), '\n'), 1) << run.Error;
    }

    /// A tool that is a shell script.
    std::string Tool(const std::string& name, const std::string& commands) const {
        m_folder.Write(name, "#!/bin/sh\n" + commands + "\n");
        fs::permissions(m_folder.Path(name), fs::perms::all);
        return m_folder.Path(name);
    }
};

TEST_F(AnExample, SurvivesAnAgentThatHandsOutNoObject) {
    for (const char* const method : {"RequestControl", "GetRepositoryManager", "CreateBackupJob", "Start"}) {
        Script(R"({"rules": [{"method": ")" + std::string(method) + R"(", "action": "null-object"}]})");
        ExpectOneLineAndFailure(RunInShell(DEMO_AGENT), "handed out no");
    }
}

TEST_F(AnExample, SurvivesAnAgentThatRefusesOrDiesOrIsNone) {
    for (const char* const method :
         {"greeting", "GetProductInfo", "RequestControl", "GetEventConfig", "GetInfo", "DeleteBackupJob"}) {
        const auto rule = [&](const char* action) {
            return R"({"rules": [{"method": ")" + std::string(method) + R"(", "action": )" + action + "}]}";
        };
        Script(rule(R"("throw", "message": "no\nand no")"));
        ExpectOneLineAndFailure(RunInShell(DEMO_AGENT), "The agent refused: no and no");
        Script(rule(R"("kill")"));
        ExpectOneLineAndFailure(RunInShell(DEMO_AGENT), "ended by signal 9");
        Script(rule(R"("garbage", "message": "Usage:\n  none\n")"));
        ExpectOneLineAndFailure(RunInShell(DEMO_AGENT), "The connection to the agent failed");
    }
    ::unsetenv("ZAM_TESTAGENT_SCRIPT");
    ExpectOneLineAndFailure(RunInShell("PATH=/nowhere; " DEMO_AGENT), "Cannot start");
    EXPECT_TRUE(Folders().empty());
}

TEST_F(AnExample, SurvivesAnInstallerToolThatIsMissingOrTalksNonsense) {
    const std::string demo = DEMO_HOST " ";
    ExpectOneLineAndFailure(RunInShell(demo + m_folder.Path("missing")), "Cannot start");
    ExpectOneLineAndFailure(RunInShell(demo + m_folder.Path()), "Cannot start");
    ExpectOneLineAndFailure(RunInShell(demo + Tool("silent", "exit 0")), "demo_host: ");
    ExpectOneLineAndFailure(RunInShell(demo + Tool("chatty", "echo hello; echo there")), "demo_host: ");
    ExpectOneLineAndFailure(RunInShell(demo + Tool("broken", "echo one >&2; echo two >&2; exit 3")),
                            "one two");
}

}  // namespace
}  // namespace tests
