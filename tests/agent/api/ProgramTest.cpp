// SPDX-License-Identifier: Apache-2.0
// The command line of the daemon, as far as it is about the daemon itself.
#include <sstream>

#include "tests/agent/api/ApiFixture.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class CProgramTest : public CAgentApiTest {
protected:
    struct SRun {
        int Status;
        std::string Output;
        std::string Errors;
    };
    static SRun Run(std::vector<std::string> words) {
        words.insert(words.begin(), Daemon());
        return RunWords(words);
    }
    static SRun RunWords(const std::vector<std::string>& words) {
        CChild child(words);
        std::string output = ReadBytes(child.Out, 100'000);
        std::string errors = child.ReadErrors();
        return {child.Ended(), std::move(output), std::move(errors)};
    }
};

TEST_F(CProgramTest, SettingsAreCheckedWithoutADaemon) {
    Write("tarvod.conf", "[sessions]\nat_once = 3\n");
    auto run = Run({"--check-config"});
    EXPECT_EQ(run.Status, 0) << run.Errors;
    EXPECT_THAT(run.Output, HasSubstr(Home("tarvod.conf")));
    Write("other.conf", "[session]\nat_once = 3\n");
    run = Run({"--check-config", Home("other.conf")});
    EXPECT_EQ(run.Status, 1);
    EXPECT_THAT(run.Errors, AllOf(StartsWith(Home("other.conf:1:")), HasSubstr("session")));
    EXPECT_EQ(DaemonPid(), 0);
}

TEST_F(CProgramTest, SettingsThatAreNotThereAreNotCalledSound) {
    auto run = Run({"--check-config"});
    EXPECT_EQ(run.Status, 0);
    EXPECT_THAT(run.Output, HasSubstr("the defaults are used"));
    run = Run({"--check-config", Home("mistyped.conf")});
    EXPECT_EQ(run.Status, 1);
    EXPECT_THAT(run.Errors, HasSubstr("mistyped.conf: there is no such file"));
    EXPECT_EQ(Run({"--check-config", ""}).Status, 1);
}

TEST_F(CProgramTest, TheShippedSettingsAreTheDefaultsAndWithoutAMistake) {
    EXPECT_EQ(Run({"--check-config", SHIPPED_SETTINGS}).Status, 0);
    // As they are when somebody takes the signs of comment away.
    std::string text = TextOf(SHIPPED_SETTINGS);
    std::string active;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        active += (line.size() > 1 && line[0] == '#' && line[1] != ' ' ? line.substr(1) : line) + '\n';
    Write("active.conf", active);
    const auto run = Run({"--check-config", Home("active.conf")});
    EXPECT_EQ(run.Status, 0) << run.Errors;
    EXPECT_THAT(active, HasSubstr("\nat_once = 2\n"));
}

TEST_F(CProgramTest, VersionAndHelpAreToldAndAnythingElseIsAUsageError) {
    EXPECT_THAT(Run({"--version"}).Output, StartsWith("tarvod "));
    const auto help = Run({"--help"});
    EXPECT_EQ(help.Status, 0);
    EXPECT_THAT(help.Output, HasSubstr("--check-config"));
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"--chek-config"},
                                               {"nonsense"},
                                               {"--version=1"},
                                               {"--check-config", "--help"},
                                               {"--help", "more"}}) {
        const auto run = Run(words);
        EXPECT_EQ(run.Status, 2) << words.back();
        EXPECT_EQ(run.Output, "") << words.back();
        EXPECT_THAT(run.Errors, HasSubstr(words.back()));
    }
    EXPECT_THAT(Run({"pionts", "--job", "x"}).Errors, HasSubstr("can't understand \"pionts\""));
}

TEST_F(CProgramTest, TextThatCannotBeWrittenIsAFailure) {
    for (const std::string& words :
         {Daemon() + " --version", Daemon() + " --help", Daemon() + " points --help",
          Daemon() + " --check-config", ToolWords()[0] + " --help"}) {
        EXPECT_EQ(RunWords({"/bin/sh", "-c", words + " > /dev/full"}).Status, 1) << words;
    }
}

TEST_F(CProgramTest, TheToolTellsHowItIsUsed) {
    const auto help = RunWords({ToolWords()[0], "--help"});
    EXPECT_EQ(help.Status, 0) << help.Errors;
    EXPECT_THAT(help.Output, HasSubstr("extended startCommandInvoker"));
    const auto odd = RunWords({ToolWords()[0], "nonsense"});
    EXPECT_EQ(odd.Status, 2);
    EXPECT_EQ(odd.Output, "");
}

TEST_F(CProgramTest, AMissingEngineIsAFindingAndItsPathIsTakenUpOnSighup) {
    Write("tarvod.conf", "[engine]\nrestic = \"" + Home("nowhere/restic") + "\"\n");
    const auto product = Product(Connect());
    const auto job = Job(*product);
    const auto textsOf = [&] {
        std::string texts;
        for (const auto& finding : job->CheckValidity())
            texts += finding.Message + '\n';
        return texts;
    };
    EXPECT_THAT(textsOf(), HasSubstr("restic"));
    EXPECT_NE(FailureOf([&] { job->Start({}); }), "");
    Write("tarvod.conf");
    ::kill(DaemonPid(), SIGHUP);
    EXPECT_TRUE(Eventually([&] { return textsOf().empty(); })) << textsOf();
    EXPECT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
}

// The engine died with its parent and left a lock that was in everybody's way. Asked to end it leaves one only in its
// first moments, as here.
TEST_F(CProgramTest, ACommandThatIsInterruptedLocksNobodyOut) {
    const auto product = Product(Connect());
    const auto job = Job(*product);
    ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
    const auto locks = [&] {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(Home("repo")))
            if (entry.path().parent_path().filename() == "locks") return true;
        return false;
    };
    CChild verify({Daemon(), "verify"});
    ASSERT_TRUE(Eventually(locks));
    ::kill(verify.Pid(), SIGINT);
    EXPECT_THAT(verify.ReadErrors(), HasSubstr("was stopped"));
    EXPECT_EQ(verify.Ended(), 1);
    const auto restore = Run({"restore", "latest", "--to", Home("restored")});
    EXPECT_EQ(restore.Status, 0) << restore.Errors;
}

TEST_F(CProgramTest, TheToolIsSmallAndBringsNoLibraryOfTheDaemonsAlong) {
    CChild child({"ldd", ToolWords()[0]});
    const std::string libraries = ReadBytes(child.Out, 100'000);
    EXPECT_THAT(libraries, HasSubstr("libc.so"));
    for (const char* const foreign : {"sqlite", "systemd", "archive", "libZam", "libApiGen"})
        EXPECT_THAT(libraries, testing::Not(HasSubstr(foreign)));
}

TEST_F(CProgramTest, ADatabaseOfALaterVersionIsRefusedWithAWordOnIt) {
    Connect();
    ::kill(DaemonPid(), SIGTERM);
    ASSERT_TRUE(AwaitNoDaemon());
    {
        // Where SQLite's file format has PRAGMA user_version.
        constexpr std::streamoff Place = 60;
        std::fstream database(Home("state/state.db"), std::ios::in | std::ios::out | std::ios::binary);
        database.seekp(Place);
        database.write("\0\0\x27\x0f", 4);  // 9999
        ASSERT_TRUE(database.good());
    }
    EXPECT_THAT(FailureOf([] { Connect(); }), HasSubstr("9999"));
}

}  // namespace
}  // namespace tests
