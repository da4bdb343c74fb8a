// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <vector>

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
        EXPECT_EQ(result.Failure(), "exited with status 3: err. Its output: out");
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
    EXPECT_EQ(result.Failure(), "was ended by signal 9 (Killed)");
}

TEST(CommandRunner, FailureShowsTheLastLinesOnly) {
    const SCommandResult result = RunQuery(Shell("seq 1 100000 >&2; exit 1"));
    const std::string failure = result.Failure();
    EXPECT_TRUE(failure.starts_with("exited with status 1: ... / 99981 / ")) << failure;
    EXPECT_TRUE(failure.ends_with(" / 99999 / 100000")) << failure;
    EXPECT_LE(result.ErrorText.size(), 64U * 1024);
}

TEST(CommandRunner, RefusesEndlessOutput) {
    EXPECT_THROW_WITH(RunQuery(Shell("head -c 5000000 /dev/zero")), CGenericException, "more than 4194304");
    EXPECT_TRUE(RunQuery({"head", {"-c", "5000000", "/dev/zero"}, /*DropOutput=*/true}).Output.empty());
}

TEST(CommandRunner, AQueryThatFloodsIsStoppedAtTheLimitAndNotAfterItsTime) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW_WITH(RunQuery({"cat", {"/dev/zero"}}), CGenericException,
                      "\"cat\" gave more than 4194304 bytes");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie stays";
    const SCommandResult result = RunQuery(Shell("head -c 50000000 /dev/zero >&2; echo end >&2"));
    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.ErrorText.size(), 64U * 1024);
    EXPECT_TRUE(result.ErrorText.ends_with("end\n"));
}

TEST(CommandRunner, AQueryEndsWithItselfAndNotWithWhatItLeavesBehind) {
    const CTestFolder folder;
    ASSERT_EQ(mkfifo((folder.Path() / "go").c_str(), 0600), 0);
    const auto start = std::chrono::steady_clock::now();
    const SCommandResult result = RunQuery(
        Shell("(read word < " + (folder.Path() / "go").string() + ") & echo answer; echo aside >&2"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    std::ofstream(folder.Path() / "go") << "now\n";
    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.Output, "answer\n");
    EXPECT_EQ(result.ErrorText, "aside\n");
}

TEST(CommandRunner, AScriptThatOpensItsOutputAnewSpoilsNothing) {
    const SCommandResult result =
        RunChange(Shell("echo a longer first line >&2; echo two > /dev/stderr; echo three >&2"));
    EXPECT_EQ(result.ErrorText, "two\nthree\n");
}

TEST(CommandRunner, AChangeThatFloodsTakesNoMemoryForIt) {
    const CTestFolder folder;
    ASSERT_EQ(mkfifo((folder.Path() / "go").c_str(), 0600), 0);
    auto change = std::async(std::launch::async, [&] {
        return RunChange(
            Shell("head -c 100000000 /dev/zero; echo end; read word < " + (folder.Path() / "go").string()));
    });
    // The file in memory is one that this process has open: of its 100 MB few stay.
    const auto isTrimmed = [] {
        for (int descriptor = 0; descriptor < 100; ++descriptor) {
            std::error_code error;
            const auto name =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error).string();
            struct stat status {};
            if (name.starts_with("/memfd:output") && fstat(descriptor, &status) == 0) {
                return status.st_size > 100000000 && status.st_blocks * 512 < 1000000;
            }
        }
        return false;
    };
    EXPECT_TRUE(Eventually(isTrimmed));
    std::ofstream(folder.Path() / "go") << "now\n";
    const SCommandResult result = change.get();
    EXPECT_EQ(result.Output.size(), 64U * 1024);
    EXPECT_TRUE(result.Output.ends_with("end\n"));
}

TEST(CommandRunner, AQueryThatHangsIsEnded) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW_WITH(RunQuery({"sleep", {"1000"}}, std::chrono::milliseconds(50)), CGenericException,
                      "\"sleep\" did not answer within 50 ms");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie stays";
}

TEST(CommandRunner, AMissingProgramIsNamed) {
    EXPECT_THROW_WITH(RunQuery({"no-such-program-here", {}}), CGenericException,
                      "Cannot start \"no-such-program-here\": No such file");
    EXPECT_EQ(FindProgram("no-such-program-here"), "");
}

TEST(CommandRunner, AProgramThatCannotBeStartedSaysWhy) {
    const CTestFolder folder;
    const auto noProgram = folder.Write("no program", std::string("\0\1\2\3", 4));
    std::filesystem::permissions(noProgram, std::filesystem::perms::owner_all);
    const auto orphan = folder.Write("orphan", "#!/no/such/interpreter\n");
    std::filesystem::permissions(orphan, std::filesystem::perms::owner_all);
    for (const auto& run : {+[](const SCommand& command) { return RunQuery(command); },
                            +[](const SCommand& command) { return RunChange(command); }}) {
        EXPECT_THROW_WITH(run({"/etc/passwd", {}}), CGenericException,
                          "Cannot start \"/etc/passwd\": Permission denied");
        EXPECT_THROW_WITH(run({noProgram.string(), {}}), CGenericException,
                          "no program\": Exec format error");
        EXPECT_THROW_WITH(run({orphan.string(), {}}), CGenericException, "orphan\": No such file");
        EXPECT_THROW_WITH(run({folder.Path().string(), {}}), CGenericException, "Permission denied");
        EXPECT_THROW_WITH(run({"no\nsuch\x1b[31m", {}}), CGenericException, "\"no\\nsuch\\x1b[31m\"");
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie stays";
}

TEST(CommandRunner, AnEndThatNobodyCanTellIsNoSuccess) {
    // So it is with SIGCHLD ignored: the kernel collects the child and keeps its status to itself.
    const auto oldHandler = signal(SIGCHLD, SIG_IGN);
    const SCommandResult change = RunChange(Shell("echo why >&2; exit 3"));
    const SCommandResult query = RunQuery(Shell("exit 3"));
    signal(SIGCHLD, oldHandler);
    EXPECT_FALSE(change.Succeeded());
    EXPECT_EQ(change.ExitStatus(), std::nullopt);
    EXPECT_NE(change.Failure().find("unknown"), std::string::npos) << change.Failure();
    EXPECT_NE(change.Failure().find(": why"), std::string::npos) << change.Failure();
    EXPECT_FALSE(query.Succeeded());
    EXPECT_FALSE(SCommandResult().Succeeded());
}

TEST(CommandRunner, WhatAToolSaysBecomesOneHarmlessLine) {
    const SCommandResult result =
        RunQuery(Shell("printf 'one\\033[31m\\r\\n\\n 5%%\\r10%%\\rtwo\\n\\302\\233x\\n' >&2; printf "
                       "'three\\007\\n\\tfour'; exit 1"));
    EXPECT_EQ(result.Failure(),
              "exited with status 1: one\\x1b[31m / two / \\xc2\\x9bx. Its output: three\\x07 / four");
    EXPECT_EQ(
        RunQuery(Shell("printf 'W: careful\\nE: broken\\n' >&2; echo 'Reading package lists...'; exit 1"))
            .Failure(),
        "exited with status 1: E: broken");
}

TEST(CommandRunner, VariablesThatSteerToolsStayBehind) {
    std::vector<std::unique_ptr<CEnvironmentVariable>> variables;
    for (const char* const name :
         {"APT_CONFIG", "TAR_OPTIONS", "DPKG_FORCE", "DPKG_ANYTHING", "LD_LIBRARY_PATH", "PERL5OPT", "IFS",
          "ENV", "BASH_ENV", "PYTHONPATH", "LANG", "LANGUAGE", "LC_MESSAGES", "DEBIAN_FRONTEND",
          "DEBCONF_DEBUG", "XZ_OPT", "COLUMNS", "TERM", "SOMETHING"}) {
        variables.push_back(std::make_unique<CEnvironmentVariable>(name, "/bad"));
    }
    for (const char* const name : {"HOME", "TMPDIR", "USER", "LOGNAME", "http_proxy", "https_proxy",
                                   "ftp_proxy", "no_proxy", "HTTPS_PROXY"}) {
        variables.push_back(std::make_unique<CEnvironmentVariable>(name, "/good"));
    }
    for (const std::string& output : {RunQuery({"env", {}}).Output, RunChange({"env", {}}).Output}) {
        EXPECT_EQ(output.find("/bad"), std::string::npos) << output;
        for (const char* const line :
             {"HOME=/good\n", "TMPDIR=/good\n", "USER=/good\n", "LOGNAME=/good\n", "http_proxy=/good\n",
              "https_proxy=/good\n", "ftp_proxy=/good\n", "no_proxy=/good\n", "HTTPS_PROXY=/good\n",
              "LC_ALL=C\n", "TERM=dumb\n", "DEBIAN_FRONTEND=noninteractive\n"}) {
            EXPECT_NE(("\n" + output).find(std::string("\n") + line), std::string::npos) << line << output;
        }
    }
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
        EXPECT_NE(output.find("open:\n0\n1\n2\n"), std::string::npos) << output;
        EXPECT_EQ(output.find("\n3\n"), std::string::npos) << "what a package starts would inherit it";
    }
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
