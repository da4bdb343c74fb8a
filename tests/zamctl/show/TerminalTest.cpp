// SPDX-License-Identifier: Apache-2.0
// Questions, passwords, pagers and progress on a terminal of the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

#include "Failure.h"
#include "show/COutput.h"
#include "show/CProgress.h"
#include "show/Terminal.h"

namespace zamctl {
namespace {

using testing::HasSubstr;
using testing::Not;

struct SReply {
    std::string When;  ///< this has been shown
    std::string Input;
};

struct SSeen {
    std::string Text;
    int Exit = -1;
    bool HasEcho = false;  ///< the terminal echoes at the end
};

/// Runs `body` in a process of its own, at a terminal. What it throws becomes text, and its exit status.
SSeen AtTerminal(const std::function<int()>& body, const std::vector<SReply>& replies,
                 unsigned short width = 80, unsigned short height = 24) {
    winsize size{};
    size.ws_col = width;
    size.ws_row = height;
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        int exit = 0;
        ::signal(SIGPIPE, SIG_IGN);
        try {
            exit = body();
        } catch (const CFailure& failure) {
            ::dprintf(STDERR_FILENO, "FAILURE %s\n", failure.what());
            exit = static_cast<int>(failure.Exit());
        } catch (const COutputGone&) {
            ::dprintf(STDERR_FILENO, "GONE\n");
            exit = 99;
        }
        termios state{};
        ::tcgetattr(STDIN_FILENO, &state);
        ::dprintf(STDERR_FILENO, "ECHO%d\n", (state.c_lflag & ECHO) != 0 ? 1 : 0);
        ::tcdrain(STDERR_FILENO);
        ::_exit(exit);
    }
    SSeen seen;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    std::size_t next = 0;
    std::size_t from = 0;
    for (;;) {
        pollfd ready{terminal, POLLIN, 0};
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "no end of it: " << seen.Text;
            ::kill(child, SIGKILL);
            break;
        }
        if (::poll(&ready, 1, 100) == 0) continue;
        char buffer[4096];
        const ssize_t count = ::read(terminal, buffer, sizeof(buffer));
        if (count <= 0) break;
        seen.Text.append(buffer, static_cast<std::size_t>(count));
        while (next < replies.size()) {
            const std::size_t at = seen.Text.find(replies[next].When, from);
            if (at == std::string::npos) break;
            from = at + replies[next].When.size();
            const SReply& reply = replies[next++];
            EXPECT_EQ(::write(terminal, reply.Input.data(), reply.Input.size()),
                      static_cast<ssize_t>(reply.Input.size()));
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    EXPECT_EQ(next, replies.size()) << "what was not shown is answered by nobody: " << seen.Text;
    seen.Exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    seen.HasEcho = seen.Text.find("ECHO1") != std::string::npos;
    return seen;
}

/// Without a terminal altogether.
std::string FailureWithoutTerminal(const std::function<void()>& body) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        try {
            body();
        } catch (const CFailure& failure) {
            ::dprintf(ends[1], "%d %s; %s", static_cast<int>(failure.Exit()), failure.what(),
                      failure.Hint().c_str());
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    std::string text;
    char buffer[512];
    for (ssize_t count; (count = ::read(ends[0], buffer, sizeof(buffer))) > 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return text;
}

TEST(Confirm, TakesYesForAnAnswerAndNothingElse) {
    const auto ask = [] { return Confirm("Delete the job?") ? 1 : 0; };
    const std::string prompt = "Delete the job? [y/N] ";
    for (const char* const yes : {"y\n", "yes\n", "Y\n", " YES \n"})
        EXPECT_EQ(AtTerminal(ask, {{prompt, yes}}).Exit, 1) << yes;
    for (const char* const no : {"\n", "n\n", "no\n", "yep\n", "\x04"})
        EXPECT_EQ(AtTerminal(ask, {{prompt, no}}).Exit, 0) << no;
}

TEST(Confirm, IsEndedByCtrlC) {
    const SSeen seen = AtTerminal([] { return Confirm("Delete?") ? 1 : 0; }, {{"[y/N] ", "\x03"}});
    EXPECT_EQ(seen.Exit, 130);
    EXPECT_TRUE(seen.HasEcho);
}

TEST(Confirm, SaysWhatToDoWithoutATerminal) {
    EXPECT_EQ(FailureWithoutTerminal([] { static_cast<void>(Confirm("Delete?")); }),
              "2 there is no terminal to ask on; say --yes to answer the question beforehand");
    EXPECT_EQ(FailureWithoutTerminal([] { static_cast<void>(AskPassword("Password", false)); }),
              "2 there is no terminal to ask on; give the password with --password-file");
}

TEST(Confirm, AsksTheTerminalThoughTheStreamsAreRedirected) {
    const auto ask = [] {
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDOUT_FILENO);
        const int terminal = ::dup(STDIN_FILENO);
        ::dup2(nothing, STDIN_FILENO);
        const bool answer = Confirm("Delete?");
        ::dup2(terminal, STDIN_FILENO);
        return answer ? 1 : 0;
    };
    EXPECT_EQ(AtTerminal(ask, {{"[y/N] ", "y\n"}}).Exit, 1);
}

TEST(Password, IsAskedForWithoutEcho) {
    const auto ask = [] { return AskPassword("Password of \033me", false) == "hush hush" ? 1 : 0; };
    const SSeen seen = AtTerminal(ask, {{"Password of \\x1bme: ", "hush hush\n"}});
    EXPECT_EQ(seen.Exit, 1);
    EXPECT_THAT(seen.Text, Not(HasSubstr("hush")));
    EXPECT_TRUE(seen.HasEcho);
}

TEST(Password, ThatIsNewIsAskedForTwice) {
    const auto ask = [] { return AskPassword("New password", true) == "hush" ? 1 : 0; };
    EXPECT_EQ(AtTerminal(ask, {{"New password: ", "hush\n"}, {"once more: ", "hush\n"}}).Exit, 1);
    const SSeen differs = AtTerminal(ask, {{"New password: ", "hush\n"}, {"once more: ", "hash\n"}});
    EXPECT_EQ(differs.Exit, 2);
    EXPECT_THAT(differs.Text, HasSubstr("FAILURE the two passwords differ"));
}

TEST(Password, LeavesTheTerminalAsItWasHoweverThePromptEnds) {
    const auto ask = [] { return AskPassword("Password", false).empty() ? 0 : 1; };
    const SSeen interrupted = AtTerminal(ask, {{"Password: ", "hu\x03"}});
    EXPECT_EQ(interrupted.Exit, 130);
    EXPECT_TRUE(interrupted.HasEcho);
    const SSeen ended = AtTerminal(ask, {{"Password: ", "\x04"}});
    EXPECT_EQ(ended.Exit, 2);
    EXPECT_TRUE(ended.HasEcho);

    // A signal that ends the process does so, but not before the echo is there again.
    const SSeen terminated = AtTerminal(
        [&] {
            ::signal(SIGTERM, SIG_IGN);
            const pid_t child = ::fork();
            if (child == 0) {
                ::signal(SIGTERM, SIG_DFL);
                ::_exit(ask());
            }
            // Who reads the prompt from the terminal is the child; it is asked to end once it waits there.
            termios state{};
            do {
                ::usleep(1000);
                ::tcgetattr(STDIN_FILENO, &state);
            } while ((state.c_lflag & ECHO) != 0);
            ::kill(child, SIGTERM);
            int status = 0;
            ::waitpid(child, &status, 0);
            return WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM ? 1 : 0;
        },
        {});
    EXPECT_EQ(terminated.Exit, 1);
    EXPECT_TRUE(terminated.HasEcho);
}

class PasswordFile : public testing::Test {
protected:
    static std::string Holding(const std::string& text) {
        const int file = ::memfd_create("password", MFD_CLOEXEC);
        EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::lseek(file, 0, SEEK_SET);
        return std::to_string(file);
    }
    static std::string Read(const std::string& path) {
        try {
            return PasswordFrom(path);
        } catch (const CFailure& failure) {
            EXPECT_EQ(failure.Exit(), EExit::Usage);
            return std::string("FAILURE ") + failure.what();
        }
    }
};

TEST_F(PasswordFile, GivesItsFirstLine) {
    EXPECT_EQ(Read("fd:" + Holding("hush hush\nmore\n")), "hush hush");
    EXPECT_EQ(Read("/dev/fd/" + Holding("hush")), "hush");
    EXPECT_EQ(Read("fd:" + Holding("hush\r\n")), "hush");
    EXPECT_EQ(Read("fd:" + Holding(std::string(65536, 'x') + '\n')), std::string(65536, 'x'));
}

TEST_F(PasswordFile, OfADescriptorKeepsWhatFollowsForOthers) {
    const std::string number = Holding("one\ntwo\n");
    EXPECT_EQ(Read("fd:" + number), "one");
    EXPECT_EQ(Read("fd:" + number), "two");
}

TEST_F(PasswordFile, ThatGivesNoneSaysWhy) {
    const std::string empty = Holding("");
    EXPECT_EQ(Read("fd:" + empty), "FAILURE the first line of \"fd:" + empty + "\" is empty");
    const std::string blank = Holding("\nhush\n");
    EXPECT_EQ(Read("fd:" + blank), "FAILURE the first line of \"fd:" + blank + "\" is empty");
    const std::string large = Holding(std::string(65537, 'x'));
    EXPECT_EQ(Read("fd:" + large), "FAILURE the first line of \"fd:" + large + "\" is longer than 64 KiB");
    EXPECT_EQ(Read("/nowhere/at\tall"),
              "FAILURE the password can't be read from \"/nowhere/at\\tall\": No such file or directory");
    EXPECT_EQ(Read("/"), "FAILURE the password can't be read from \"/\": Is a directory");
    EXPECT_EQ(Read("fd:9999"), "FAILURE the password can't be read from \"fd:9999\": Bad file descriptor");
    EXPECT_EQ(Read("fd:x"), "FAILURE \"fd:x\" names no descriptor");
    EXPECT_EQ(Read("fd:-1"), "FAILURE \"fd:-1\" names no descriptor");
}

TEST(Terminal, TellsItsSize) {
    for (const unsigned short width : {20, 40, 81, 200}) {
        const SSeen seen = AtTerminal([] { return static_cast<int>(TerminalWidth()); }, {}, width);
        EXPECT_EQ(seen.Exit, std::max<int>(width, 40));
    }
    EXPECT_EQ(AtTerminal([] { return static_cast<int>(TerminalHeight()); }, {}, 80, 33).Exit, 33);
    EXPECT_EQ(AtTerminal([] { return static_cast<int>(ErrorWidth()); }, {}, 77).Exit, 77);
    EXPECT_EQ(AtTerminal(
                  [] {
                      ::setenv("TERM", "xterm", 1);
                      ::unsetenv("NO_COLOR");
                      const bool has = HasColours();
                      ::setenv("NO_COLOR", "1", 1);
                      const bool hasStill = HasColours();
                      ::unsetenv("NO_COLOR");
                      ::setenv("TERM", "dumb", 1);
                      return (has ? 1 : 0) + (hasStill ? 2 : 0) + (HasColours() ? 4 : 0);
                  },
                  {})
                  .Exit,
              1);
}

/// A list of so many rows, behind a pager.
std::function<int()> ListThrough(const char* pager, int rows, bool hasPager = true) {
    return [=] {
        if (pager != nullptr) {
            ::setenv("ZAMCTL_PAGER", pager, 1);
        } else {
            ::unsetenv("ZAMCTL_PAGER");
            ::unsetenv("PAGER");
            ::setenv("TERM", "xterm", 1);
            ::setenv("LESS", "--no-such-option", 1);
        }
        SOutputOptions options;
        options.HasPager = hasPager;
        COutput output(options);
        const std::vector<SColumn> columns{{"Name", "Name"}};
        for (int i = 1; i <= rows; ++i)
            output.Row(columns, Json{{"Name", "row " + std::to_string(i) + "日"}});
        output.EndRows(columns);
        output.Say("the end");
        output.Flush();
        return 0;
    };
}

TEST(Pager, GetsAListThatIsLongerThanTheScreen) {
    const SSeen seen = AtTerminal(ListThrough("sed 's/^/> /'", 1200), {});
    EXPECT_EQ(seen.Exit, 0);
    EXPECT_THAT(seen.Text, HasSubstr("> Name"));
    EXPECT_THAT(seen.Text, HasSubstr("> row 1日"));
    EXPECT_THAT(seen.Text, HasSubstr("> row 1200日"));
    EXPECT_THAT(seen.Text, HasSubstr("> the end"));
}

TEST(Pager, IsNotUsedForAListThatFitsNorWhenItIsNotWanted) {
    for (const auto& list : {ListThrough("sed 's/^/> /'", 20), ListThrough("sed 's/^/> /'", 100, false),
                             ListThrough("", 100), ListThrough("cat", 100)}) {
        const SSeen seen = AtTerminal(list, {});
        EXPECT_THAT(seen.Text, HasSubstr("row 20日"));
        EXPECT_THAT(seen.Text, Not(HasSubstr("> row")));
    }
}

TEST(Pager, ThatCannotBeStartedIsDoneWithout) {
    for (const int rows : {100, 600, 20000}) {
        const SSeen seen = AtTerminal(ListThrough("/no/such/pager -x", rows), {});
        EXPECT_EQ(seen.Exit, 0);
        EXPECT_THAT(seen.Text, HasSubstr("row 1日"));
        EXPECT_THAT(seen.Text, HasSubstr("row " + std::to_string(rows) + "日"));
        EXPECT_THAT(seen.Text, HasSubstr("the end"));
        EXPECT_GT(std::count(seen.Text.begin(), seen.Text.end(), '\n'), rows);
    }
}

TEST(Pager, ThatTheUserLeavesEndsTheOutputQuietly) {
    const SSeen seen = AtTerminal(ListThrough("head -1", 20000), {});
    EXPECT_EQ(seen.Exit, 99);
    EXPECT_THAT(seen.Text, HasSubstr("GONE"));
}

TEST(Pager, IsLessWithoutTheUsersOwnOptionsWhereNoneIsNamed) {
    const SSeen seen = AtTerminal(ListThrough(nullptr, 100), {{"row 20", "q"}});
    EXPECT_EQ(seen.Exit, 0) << seen.Text;
    EXPECT_THAT(seen.Text, HasSubstr("日"));
    EXPECT_THAT(seen.Text, Not(HasSubstr("row 90")));
}

TEST(Pager, IsDoneWithoutInSilenceOnAHostThatHasNoLess) {
    const auto list = ListThrough(nullptr, 100);
    const SSeen seen = AtTerminal(
        [&] {
            ::setenv("PATH", "/no/such/folder", 1);
            return list();
        },
        {});
    EXPECT_EQ(seen.Exit, 0);
    EXPECT_THAT(seen.Text, HasSubstr("row 100日"));
    EXPECT_THAT(seen.Text, Not(HasSubstr("less")));
}

TEST(Progress, IsDrawnOverItselfAndTakenAway) {
    const SSeen seen = AtTerminal(
        [] {
            zamclientlib::SBackupJobSessionInfo info;
            info.State = zamclientlib::JobState::Working;
            CProgress progress(true, true);
            info.PercentCompleted = 50;
            progress.Show(info);
            progress.Show(info);
            progress.ShowWord("the agent is away\n");
            progress.Clear();
            progress.Clear();
            progress.Show(info);
            return 0;
        },
        {}, 40);
    const std::string bar =
        "\r[\033[32m" + std::string(15, '#') + "\033[0m" + std::string(16, ' ') + "]  50 %\033[K";
    EXPECT_EQ(seen.Text.substr(0, seen.Text.find("ECHO")),
              bar + "\rthe agent is away\\n\033[K" + "\r\033[K" + bar + "\r\033[K");
}

}  // namespace
}  // namespace zamctl
