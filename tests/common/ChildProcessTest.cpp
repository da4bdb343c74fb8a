// SPDX-License-Identifier: Apache-2.0
// The supervised child itself: what it is given, how it is asked to end, and what of its end can be told.
#include <apigen/ApiException.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>

#include "support/common/CChildProcess.h"
#include "support/common/CProcessDevice.h"
#include "support/common/Text.h"
#include "tests/MessageOf.h"

namespace apigen::common {
namespace {

using namespace std::chrono_literals;
using tests::MessageOf;
using EGroup = SChildStart::EGroup;

SChildStart Shell(const std::string& script) {
    SChildStart start;
    start.Program = "/bin/sh";
    start.Arguments = {"-c", script};
    return start;
}

std::string OutputOf(SChildStart start) {
    CProcessDevice device(std::move(start));
    device.SetDeadline(DeadlineAfter(30s));
    bool ended = false;
    const std::string output = device.ReadRawText(65536, ended);
    EXPECT_TRUE(ended);
    EXPECT_TRUE(device.AwaitEnd(DeadlineAfter(30s)));
    return output;
}

TEST(ChildProcess, GetsFurtherDescriptorsAndNoneOfTheCallers) {
    const CDescriptor secret(::memfd_create("secret", MFD_CLOEXEC));
    ASSERT_EQ(::write(secret.Get(), "hunter2", 7), 7);
    ASSERT_EQ(::lseek(secret.Get(), 0, SEEK_SET), 0);
    const CDescriptor leaked(::open("/dev/null", O_RDONLY));  // not close-on-exec
    const CDescriptor between(::fcntl(leaked.Get(), F_DUPFD, 4));
    auto start = Shell("cat <&6; ls /proc/self/fd | tr '\\n' ' '");
    start.Environment = {"PATH=/usr/bin:/bin"};
    start.Descriptors = {{6, secret.Get()}};
    // ls itself has its folder open as well, under the first free number.
    EXPECT_EQ(OutputOf(std::move(start)), "hunter20 1 2 3 6 ");
}

TEST(ChildProcess, IsSentNothingThatACallerPrintsWhoHasClosedItsStandardStreams) {
    const pid_t caller = ::fork();
    if (caller == 0) {
        for (int fd = 0; fd < 3; ++fd)
            ::close(fd);
        const SPipe input = MakePipeToWrite("it");
        const SPipe output = MakePipeToRead("it");
        bool isClear = true;
        for (int fd = 0; fd < 3; ++fd)
            isClear = isClear && ::fcntl(fd, F_GETFD) == -1;
        ::_exit(isClear ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(caller, &status, 0), caller);
    EXPECT_EQ(status, 0);
}

TEST(ChildProcess, HasASessionOfItsOwnAGroupOfItsOwnOrTheCallers) {
    const auto idsOf = [](EGroup group) {
        auto start = Shell("cut -d' ' -f1,5,6 /proc/$$/stat");
        start.Environment = {"PATH=/usr/bin:/bin"};
        start.Group = group;
        std::array<pid_t, 3> ids{};  // the process, its group, its session
        std::istringstream(OutputOf(std::move(start))) >> ids[0] >> ids[1] >> ids[2];
        return ids;
    };
    const auto session = idsOf(EGroup::OwnSession);
    EXPECT_EQ(session[1], session[0]);
    EXPECT_EQ(session[2], session[0]);
    const auto group = idsOf(EGroup::OwnGroup);
    EXPECT_EQ(group[1], group[0]);
    EXPECT_EQ(group[2], ::getsid(0));
    const auto callers = idsOf(EGroup::CallersGroup);
    EXPECT_EQ(callers[1], ::getpgrp());
}

TEST(ChildProcess, StartsInItsFolderWithItsEnvironmentAlone) {
    auto start = Shell("pwd; /usr/bin/env | grep -c .; echo $WORD");
    start.Environment = {"WORD=only", "PWD=/"};
    start.Folder = "/usr";
    EXPECT_EQ(OutputOf(std::move(start)), "/usr\n2\nonly\n");
}

TEST(ChildProcess, InAFolderThatIsNotThereIsRefusedWithTheReason) {
    auto start = Shell("true");
    start.Folder = "/nonexistent";
    EXPECT_THAT(MessageOf<ProcessLaunchError>([&] { CChildProcess child(start); }),
                testing::HasSubstr("No such file"));
}

TEST(ChildProcess, IsAskedToEndByTheSignalOfItsChoice) {
    auto start = Shell("trap 'exit 42' INT; echo ready; while :; do sleep 0.01; done");
    start.Environment = {"PATH=/usr/bin:/bin"};
    start.EndSignal = SIGINT;
    CProcessDevice device(std::move(start));
    bool ended = false;
    EXPECT_EQ(device.ReadRawText(5, ended), "ready");
    device.Child().AskToEnd();
    ASSERT_TRUE(device.AwaitEnd(DeadlineAfter(30s)));
    EXPECT_EQ(WEXITSTATUS(device.Child().WaitStatus()), 42);
}

TEST(ChildProcess, ThatSomebodyElseCollectedHasAnUnknownEndAndNoSuccess) {
    CChildProcess child(Shell("exit 0"));
    ASSERT_EQ(::waitpid(child.Pid(), nullptr, 0), child.Pid());
    ASSERT_TRUE(child.AwaitEnd(DeadlineAfter(30s)));
    EXPECT_EQ(child.WaitStatus(), CChildProcess::UnknownStatus);
    EXPECT_THAT(EndingText(child.WaitStatus()), testing::HasSubstr("unknown"));
}

TEST(ChildProcess, ThatSomebodyElseCollectedIsNotTakenForTheNextOneOfItsNumber) {
    CChildProcess child(Shell("exit 0"));
    if (child.EndToPoll() < 0) GTEST_SKIP() << "nothing but the number tells children apart here";
    ASSERT_EQ(::waitpid(child.Pid(), nullptr, 0), child.Pid());
    pid_t number = child.Pid();
    clone_args next{};
    next.exit_signal = SIGCHLD;
    next.set_tid = reinterpret_cast<std::uintptr_t>(&number);
    next.set_tid_size = 1;
    const auto pid = ::syscall(SYS_clone3, &next, sizeof next);
    if (pid == 0) ::_exit(7);
    if (pid < 0) GTEST_SKIP() << "only root can choose the number of a process";
    EXPECT_TRUE(child.AwaitEnd(DeadlineAfter(30s)));
    EXPECT_EQ(child.WaitStatus(), CChildProcess::UnknownStatus);
    int status = -1;
    ASSERT_EQ(::waitpid(number, &status, 0), number) << "the caller's own child was collected";
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(ChildProcess, EndsOfEveryKindAreToldAsTheyAre) {
    for (const auto& [script, isAsExpected] :
         {std::pair(
              "exit 200", +[](int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 200; }),
          std::pair(
              "kill -KILL $$",
              +[](int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL; }),
          std::pair(
              "kill -SEGV $$",
              +[](int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV; })}) {
        CChildProcess child(Shell(script));
        ASSERT_TRUE(child.AwaitEnd(DeadlineAfter(30s)));
        EXPECT_TRUE(isAsExpected(child.WaitStatus())) << script << ": " << child.WaitStatus();
    }
}

TEST(ChildProcess, OutputEndsWithTheChildThoughItsOffspringHoldsItOpen) {
    auto start = Shell("echo whole; sleep 60 & echo $! >&2");
    start.Environment = {"PATH=/usr/bin:/bin"};
    CProcessDevice device(std::move(start));
    device.SetDeadline(DeadlineAfter(30s));
    bool ended = false;
    EXPECT_EQ(device.ReadRawText(65536, ended), "whole\n");
    EXPECT_TRUE(ended);
    ASSERT_TRUE(device.AwaitEnd(DeadlineAfter(30s)));
    ::kill(std::stoi(device.ErrorTail()), SIGKILL);
}

TEST(ChildProcess, InACopyOfItsStarterIsLeftAlone) {
    auto start = Shell("while :; do sleep 1; done");
    start.Environment = {"PATH=/usr/bin:/bin"};
    CChildProcess child(start);
    const pid_t copy = ::fork();
    if (copy == 0) {
        child.Kill();
        child.~CChildProcess();
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(copy, nullptr, 0), copy);
    EXPECT_FALSE(child.AwaitEnd(DeadlineAfter(50ms)));
}

/// A program that its caller may not signal: it belongs to root, its caller to nobody.
TEST(ChildProcess, ThatMayNotBeSignalledHoldsItsOwnerForABoundedTimeOnly) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make such a program";
    namespace fs = std::filesystem;
    std::string folder = (fs::temp_directory_path() / "unkillable.XXXXXX").string();
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    fs::permissions(folder, fs::perms(0755));
    const std::string program = folder + "/tool";
    fs::copy_file(ODD_TOOL, program);
    fs::permissions(program, fs::perms(04755));

    const pid_t caller = ::fork();
    if (caller == 0) {
        ::alarm(60);
        if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0) ::_exit(2);
        const auto begun = Clock::now();
        pid_t tool = -1;
        {
            SChildStart start;
            start.Program = program;
            start.Arguments = {"become-root-and-stay"};
            CChildProcess child(start);
            tool = child.Pid();
            ::poll(nullptr, 0, 300);  // until it has become root's
        }
        const bool isBounded = Clock::now() - begun < 10s;
        const bool mayNotSignal = ::kill(tool, 0) != 0 && errno == EPERM;
        ::_exit(!isBounded ? 1 : mayNotSignal ? 0 : 3);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(caller, &status, 0), caller);
    fs::remove_all(folder);
    if (WEXITSTATUS(status) == 3) GTEST_SKIP() << "the folder for temporary files allows no such program";
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace apigen::common
