// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "TestFolder.h"
#include "installer/CommandRunner.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;

SCommand Shell(const std::string& script) {
    return {"sh", {"-c", script}};
}

TEST(CommandRunner, CollectsOutputErrorsAndStatus) {
    for (const auto& run : {+[](const SCommand& command) { return RunQuery(command); },
                            +[](const SCommand& command) { return RunChange(command); }}) {
        const SCommandResult result = run(Shell("echo out; echo err >&2; exit 3"));
        EXPECT_FALSE(result.Succeeded());
        EXPECT_EQ(result.ExitStatus(), 3);
        EXPECT_EQ(result.Output, "out\n");
        EXPECT_EQ(result.ErrorText, "err\n");
        EXPECT_EQ(result.Failure(), "exit status 3: err");
        EXPECT_TRUE(run(Shell("exit 0")).Succeeded());
    }
}

TEST(CommandRunner, ArgumentsAreNoShellText) {
    const SCommandResult result = RunQuery({"printf", {"%s|", "a b", "$(id)", "", "*", "'\"\n"}});
    EXPECT_EQ(result.Output, "a b|$(id)||*|'\"\n|");
}

TEST(CommandRunner, TellsOfADeathBySignal) {
    const SCommandResult result = RunQuery(Shell("kill -9 $$"));
    EXPECT_EQ(result.ExitStatus(), std::nullopt);
    EXPECT_EQ(result.Failure(), "ended by signal 9");
}

TEST(CommandRunner, FailureShowsTheLastLinesOnly) {
    const SCommandResult result = RunQuery(Shell("seq 1 100000 >&2; exit 1"));
    EXPECT_EQ(result.Failure(), "exit status 1: 99993\n99994\n99995\n99996\n99997\n99998\n99999\n100000");
    EXPECT_LE(result.ErrorText.size(), 64U * 1024);
}

TEST(CommandRunner, RefusesEndlessOutput) {
    EXPECT_THROW_WITH(RunQuery(Shell("head -c 5000000 /dev/zero")), CGenericException, "more than 4194304");
    EXPECT_TRUE(RunQuery({"head", {"-c", "5000000", "/dev/zero"}, /*DropOutput=*/true}).Output.empty());
}

TEST(CommandRunner, AQueryThatHangsIsEnded) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW_WITH(RunQuery({"sleep", {"1000"}}, std::chrono::milliseconds(50)), CGenericException,
                      "'sleep' did not answer within 50 ms");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie stays";
}

TEST(CommandRunner, AMissingProgramIsNamed) {
    EXPECT_THROW_WITH(RunQuery({"no-such-program-here", {}}), CGenericException,
                      "Can't run 'no-such-program-here': No such file");
    EXPECT_THROW_WITH(RunChange({"/etc/passwd", {}}), CGenericException,
                      "Can't run '/etc/passwd': Permission denied");
    EXPECT_EQ(FindProgram("no-such-program-here"), "");
}

TEST(CommandRunner, SystemToolsAreFoundWhateverThePath) {
    for (const char* const path : {"", "/nonexistent", ".", "relative:/nonexistent"}) {
        const CEnvironmentVariable variable("PATH", path);
        EXPECT_NE(FindProgram("ldconfig"), "") << path;
        EXPECT_NE(FindProgram("sh"), "") << path;
    }
}

TEST(CommandRunner, ACommandStartsWithNothingOfOurs) {
    const CEnvironmentVariable locale("LC_ALL", "de_DE.UTF-8");
    const CEnvironmentVariable root("DPKG_ROOT", "/elsewhere");
    const int leak = open("/dev/null", O_RDONLY);
    ASSERT_GE(leak, 0);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigset_t old;
    sigprocmask(SIG_BLOCK, &blocked, &old);
    const auto oldHandler = signal(SIGPIPE, SIG_IGN);

    const std::string script =
        "grep -E 'SigBlk|SigIgn' /proc/self/status; echo \"$LC_ALL,$DEBIAN_FRONTEND,$DPKG_ROOT\";"
        "pwd; readlink /proc/self/fd/0; echo open:; ls /proc/$$/fd; test $$ = $(ps -o sid= -p $$) && echo "
        "leader";
    const std::string query = RunQuery(Shell(script)).Output;
    const std::string change = RunChange(Shell(script)).Output;

    signal(SIGPIPE, oldHandler);
    sigprocmask(SIG_SETMASK, &old, nullptr);
    close(leak);
    for (const std::string& output : {query, change}) {
        EXPECT_NE(output.find("SigBlk:\t0000000000000000"), std::string::npos) << output;
        // Two signals of the C library's own are beyond everybody's reach.
        const std::size_t ignored = output.find("SigIgn:\t");
        ASSERT_NE(ignored, std::string::npos) << output;
        EXPECT_EQ(std::stoull(output.substr(ignored + 8, 16), nullptr, 16) & ~0x180000000ULL, 0U) << output;
        EXPECT_NE(output.find("\nC,noninteractive,\n/\n/dev/null\n"), std::string::npos) << output;
        EXPECT_NE(output.find("leader"), std::string::npos) << output;
    }
    EXPECT_NE(query.find("open:\n0\n1\n2\n3\n"), std::string::npos) << query;
    EXPECT_EQ(query.find("\n4\n"), std::string::npos) << query;
    EXPECT_NE(change.find("open:\n0\n1\n2\n"), std::string::npos) << change;
    EXPECT_EQ(change.find("\n3\n"), std::string::npos) << "what a package starts would inherit it";
}

TEST(CommandRunner, AChangeGoesOnWhenItsStarterIsKilled) {
    const CTestFolder folder;
    const std::string path = folder.Path().string();
    ASSERT_EQ(mkfifo((folder.Path() / "go").c_str(), 0600), 0);
    const pid_t starter = fork();
    if (starter == 0) {
        setpgid(0, 0);
        RunChange(Shell("echo > " + path + "/started; read word < " + path +
                        "/go; seq 1 100000; seq 1 100000 >&2;"
                        "echo $word > " +
                        path + "/end; mv " + path + "/end " + path + "/done"));
        _exit(0);
    }
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(folder.Path() / "started"); }));
    kill(-starter, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(starter, &status, 0), starter);
    EXPECT_TRUE(WIFSIGNALED(status));

    std::ofstream(folder.Path() / "go") << "finished\n";
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(folder.Path() / "done"); }));
    EXPECT_EQ(ReadAll(folder.Path() / "done"), "finished\n");
}

}  // namespace
}  // namespace installer::test
