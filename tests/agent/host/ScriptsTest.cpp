// SPDX-License-Identifier: Apache-2.0
// Scripts around a job.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "agent/host/Scripts.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using namespace tarvo;
using tests::ContentOf;
using tests::CTemporaryFolder;

class Scripts : public testing::Test {
protected:
    SScriptResult Run(const std::string& text, std::chrono::milliseconds limit = 0ms,
                      const std::stop_token& stop = {}) {
        SScript script;
        script.Path = m_folder.Write("a script", text, 0755);
        script.Limit = limit;
        script.Environment = {{"TARVO_RESULT", "Success; rm -rf $HOME"}};
        script.OnLine = [this](const std::string& line) { m_lines.push_back(line); };
        return RunScript(script, stop);
    }

    /// Waits until nobody of the group is left: whoever adopts the children collects them.
    static bool IsGroupGone(pid_t group) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (::kill(-group, 0) == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return ::kill(-group, 0) != 0;
    }

    CTemporaryFolder m_folder;
    std::vector<std::string> m_lines;
};

TEST_F(Scripts, TellWhatBecameOfThemInTheirEnvironmentAndTheirLines) {
    const auto result = Run("#!/bin/sh\necho \"$TARVO_RESULT\"; printf 'err\\033[1m\\n' >&2; printf last\n");
    EXPECT_TRUE(result.Succeeded) << result.Ending;
    EXPECT_EQ(m_lines, (std::vector<std::string>{"Success; rm -rf $HOME", "err\\x1b[1m", "last"}));
}

TEST_F(Scripts, FailWithTheirStatusOrSignal) {
    const auto result = Run("#!/bin/sh\nexit 3");
    EXPECT_FALSE(result.Succeeded);
    EXPECT_EQ(result.Ending, "exited with status 3");
    EXPECT_EQ(Run("#!/bin/sh\nkill -9 $$").Ending, "was ended by signal 9 (Killed)");
}

TEST_F(Scripts, ThatTakeTooLongAreEndedWithAllTheyStarted) {
    const auto result = Run("#!/bin/sh\necho $$ > " + (m_folder / "pid") +
                                "\ntrap '' TERM INT\nsleep 1000 &\nwhile :; do sleep 1; done",
                            300ms);
    EXPECT_TRUE(result.TimedOut);
    EXPECT_EQ(result.Ending, "did not end within 300 ms and was ended");
    EXPECT_TRUE(IsGroupGone(std::stoi(ContentOf(m_folder / "pid"))));
}

TEST_F(Scripts, LeaveNothingRunningBehindThemselves) {
    const auto begin = std::chrono::steady_clock::now();
    const auto result = Run("#!/bin/sh\necho $$ > " + (m_folder / "pid") + "\nsleep 1000 &\n");
    EXPECT_TRUE(result.Succeeded);
    EXPECT_TRUE(IsGroupGone(std::stoi(ContentOf(m_folder / "pid"))));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST_F(Scripts, AreStoppedWhenTheSessionIs) {
    std::stop_source source;
    std::jthread stopper([&] {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!std::filesystem::exists(m_folder / "up") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        source.request_stop();
    });
    const auto result =
        Run("#!/bin/sh\ntouch " + (m_folder / "up") + "\nsleep 1000", 0ms, source.get_token());
    EXPECT_TRUE(result.Stopped);
    EXPECT_FALSE(result.Succeeded);
}

TEST_F(Scripts, SayALotAndOnlyTheBeginningIsKept) {
    EXPECT_TRUE(Run("#!/bin/sh\ni=0; while [ $i -lt 1000 ]; do echo line $i; i=$((i+1)); done").Succeeded);
    EXPECT_EQ(m_lines.size(), 201U);
    m_lines.clear();
    EXPECT_TRUE(Run("#!/bin/sh\nhead -c 20000000 /dev/zero").Succeeded);
    ASSERT_EQ(m_lines.size(), 1U);
    EXPECT_LT(m_lines[0].size(), 10'000U);
}

TEST_F(Scripts, ThatCanNotRunSayWhy) {
    EXPECT_EQ(ScriptProblem("relative"), "the path is not absolute");
    EXPECT_EQ(ScriptProblem(m_folder / "missing"), "No such file or directory");
    EXPECT_EQ(ScriptProblem(m_folder.Path()), "it is no file");
    EXPECT_NE(ScriptProblem(m_folder.Write("plain", "x")), "");
    const auto result = Run("#!/no/such/interpreter\n");
    EXPECT_FALSE(result.Succeeded);
    EXPECT_EQ(result.Ending, "can't be started: No such file or directory");
    // Not handed to a shell: what is no program does not run.
    EXPECT_EQ(Run("exit 0").Ending, "can't be started: Exec format error");
}

TEST_F(Scripts, RunAsNicelyAsTheThreadThatStartsThem) {
    std::thread session([this] {
        LowerThisThread(7, true);
        EXPECT_TRUE(Run("#!/bin/sh\nnice; ionice").Succeeded);
    });
    session.join();
    ASSERT_FALSE(m_lines.empty());
    EXPECT_EQ(m_lines[0], "7");
    if (m_lines.size() > 1) {
        EXPECT_EQ(m_lines[1], "idle");
    }
    EXPECT_LT(::getpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid))), 20);
}

}  // namespace
