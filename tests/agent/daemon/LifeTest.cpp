// SPDX-License-Identifier: Apache-2.0
// The daemon from its start to its end, by hand, by a tool and under systemd, and what keeps it from starting.
#include <sys/timex.h>

#include "tests/agent/daemon/DaemonFixture.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The other end of sd_notify.
class CNotifySocket {
public:
    explicit CNotifySocket(const std::string& path)
        : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    CNotifySocket(const CNotifySocket&) = delete;
    CNotifySocket& operator=(const CNotifySocket&) = delete;
    ~CNotifySocket() {
        ::close(m_socket);
        ::unsetenv("NOTIFY_SOCKET");
        ::unsetenv("WATCHDOG_USEC");
    }

    std::string Next(int patience = 20000) const {
        pollfd readable{m_socket, POLLIN, 0};
        if (::poll(&readable, 1, patience) <= 0) return {};
        std::string text(1000, '\0');
        const ssize_t got = ::recv(m_socket, text.data(), text.size(), 0);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }

private:
    int m_socket;
};

/// Moves the host's clock by a nanosecond, and back at its end. To the system it was set, and nobody else notices.
class CNudgedClock {
public:
    CNudgedClock() : m_isMoved(Move(1)) {}
    CNudgedClock(const CNudgedClock&) = delete;
    CNudgedClock& operator=(const CNudgedClock&) = delete;
    ~CNudgedClock() { Restore(); }

    bool IsMoved() const noexcept { return m_isMoved; }
    void Restore() { EXPECT_TRUE(!std::exchange(m_isMoved, false) || Move(-1)); }

private:
    static bool Move(long nanoseconds) {
        constexpr long Second = 1'000'000'000;
        timex now{};
        ::clock_adjtime(CLOCK_REALTIME, &now);
        if ((static_cast<unsigned>(now.status) & STA_UNSYNC) == 0) return false;  // somebody keeps it exact
        timex change{};
        change.modes = ADJ_SETOFFSET | ADJ_NANO;
        change.time.tv_sec = nanoseconds < 0 ? -1 : 0;
        change.time.tv_usec = nanoseconds < 0 ? Second + nanoseconds : nanoseconds;
        return ::clock_adjtime(CLOCK_REALTIME, &change) >= 0;
    }

    bool m_isMoved;
};

using CDaemonLifeTest = CDaemonTest;

TEST_F(CDaemonLifeTest, SigtermEndsTheDaemonInOrder) {
    CChild daemon({Daemon()});
    ASSERT_TRUE(Eventually([&] { return DaemonPid() == daemon.Pid(); }));
    const auto control = Connect();
    daemon.Kill(SIGTERM);
    EXPECT_EQ(daemon.Ended(), 0);
    EXPECT_FALSE(std::filesystem::exists(Socket()));
    EXPECT_THROW(control->GetSessionId(), apigen::PeerGoneError);
    EXPECT_THAT(Log(), AllOf(HasSubstr("Ready: process "), HasSubstr("Ended")));
}

TEST_F(CDaemonLifeTest, SigintEndsTheDaemonInOrder) {
    CChild daemon({Daemon()});
    ASSERT_TRUE(Eventually([&] { return DaemonPid() == daemon.Pid(); }));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    daemon.Kill(SIGINT);
    EXPECT_EQ(daemon.Ended(), 0);
}

TEST_F(CDaemonLifeTest, ASecondDaemonSaysThatOneRunsAndLeavesItAlone) {
    Connect();
    CChild second({Daemon()});
    EXPECT_THAT(second.ReadErrors(),
                AllOf(HasSubstr("Another daemon runs already"), HasSubstr(std::to_string(DaemonPid()))));
    EXPECT_EQ(second.Ended(), 1);
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
}

TEST_F(CDaemonLifeTest, AToolFindsADaemonThatSomebodyElseStartsInTheSameMoment) {
    Write("slow");
    CChild daemon({Daemon()});
    ASSERT_TRUE(Eventually([&] { return DaemonPid() == daemon.Pid(); }));
    CChild tool(ToolWords());
    Write("go");
    EXPECT_NE(tool.Read(), "");
    EXPECT_EQ(DaemonPid(), daemon.Pid());
}

TEST_F(CDaemonLifeTest, AClientThatComesWhileADaemonEndsGetsTheNextOne) {
    const auto control = Connect();
    const auto run = control->GetSessionId();
    // A call that does not return holds the end up for a while.
    std::thread caller([&] { EXPECT_THROW(control->GrabLogs(Home("never")), apigen::PeerGoneError); });
    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Home("never.begun")); }));
    const pid_t pid = DaemonPid();
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(Eventually([&] { return !std::filesystem::exists(Socket()); }));
    EXPECT_EQ(DaemonPid(), pid) << "it ends still";
    EXPECT_NE(Connect()->GetSessionId(), run);
    caller.join();
}

TEST_F(CDaemonLifeTest, EachTimeThatSomebodySetsTheClockTheWorkIsTold) {
    Connect();
    const auto isTold = [&](const std::string& times) {
        return Eventually([&] { return TextOf(Home("clock")) == times; });
    };
    CNudgedClock clock;
    if (!clock.IsMoved()) GTEST_SKIP() << "no right to set the clock, or it is kept exact";
    EXPECT_TRUE(isTold("1"));
    clock.Restore();
    EXPECT_TRUE(isTold("2"));
    EXPECT_THAT(Log(), HasSubstr("The host's clock was set"));
}

TEST_F(CDaemonLifeTest, SocketsOfTheDeadAreReplaced) {
    std::filesystem::create_directory(Home("run"));
    const int dead = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, Socket().c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(dead);
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
}

TEST_F(CDaemonLifeTest, AnotherFileInTheSocketsPlaceIsLeftAloneAndNamed) {
    std::filesystem::create_directory(Home("run"));
    Write("run/control.sock", "something");
    EXPECT_THAT(FailureOf([] { Connect(); }), AllOf(HasSubstr(Socket()), HasSubstr("another file")));
    EXPECT_EQ(TextOf(Socket()), "something");
}

TEST_F(CDaemonLifeTest, WhatKeepsTheDaemonFromRunningIsWhatItsClientIsGreetedWith) {
    Write("broken");
    EXPECT_THAT(FailureOf([] { Connect(); }), HasSubstr("broken on purpose"));
    EXPECT_THAT(Log(), HasSubstr("E The agent can't run: broken on purpose"));
    EXPECT_THAT(TextOf(Home("log/tarvoconfig_api.log")), HasSubstr("broken on purpose"));
    std::filesystem::remove(Home("broken"));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
}

TEST_F(CDaemonLifeTest, AMistakeInTheSettingsIsWhatTheClientIsGreetedWith) {
    Write("tarvod.conf", "[sessions]\nat_onse = 3\n");
    EXPECT_THAT(FailureOf([] { Connect(); }), AllOf(HasSubstr("tarvod.conf:2:1"), HasSubstr("at_onse")));
}

TEST_F(CDaemonLifeTest, ATooLongHomeIsAClearErrorForToolAndDaemon) {
    const std::string home = Home(std::string(100, 'l'));
    ::setenv("TARVO_HOME", home.c_str(), 1);
    EXPECT_THAT(FailureOf([] { Connect(); }), AllOf(HasSubstr("too long"), HasSubstr("TARVO_HOME")));
    CChild daemon({Daemon()});
    EXPECT_THAT(daemon.ReadErrors(), HasSubstr("too long"));
    EXPECT_EQ(daemon.Ended(), 1);
    EXPECT_FALSE(std::filesystem::exists(home));
}

TEST_F(CDaemonLifeTest, AHomeThatIsNoAbsolutePathIsAClearError) {
    ::setenv("TARVO_HOME", "somewhere", 1);
    EXPECT_THAT(FailureOf([] { Connect(); }), HasSubstr("absolute"));
}

TEST_F(CDaemonLifeTest, AHomeThatCannotBeMadeIsAClearError) {
    Write("file");
    ::setenv("TARVO_HOME", Home("file").c_str(), 1);
    EXPECT_THAT(FailureOf([] { Connect(); }), AllOf(HasSubstr(Home("file")), HasSubstr("Not a directory")));
}

TEST_F(CDaemonLifeTest, AMissingDaemonIsNamed) {
    std::filesystem::copy(ToolWords()[0], Home("tarvoconfig"));
    ::setenv("PATH", Home().c_str(), 1);
    EXPECT_THAT(FailureOf([] { Connect(); }), AllOf(HasSubstr("tarvod"), HasSubstr("No such file")));
}

TEST_F(CDaemonLifeTest, TheStarterIsToldWhenTheDaemonIsReady) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const int given = ::dup(pipe[1]);
    ::close(pipe[1]);
    CChild daemon({Daemon(), "--ready-fd", std::to_string(given)});
    ::close(given);
    EXPECT_EQ(ReadBytes(pipe[0], 100), "ready\n");
    EXPECT_EQ(DaemonPid(), daemon.Pid());
    ::close(pipe[0]);
}

TEST_F(CDaemonLifeTest, WhatItPrintsGoesToNoFileOfItsOwnWhenItsStreamsAreClosed) {
    CChild daemon({"sh", "-c", "exec \"$0\" <&- >&- 2>&-", Daemon()});
    ASSERT_TRUE(Eventually([&] { return DaemonPid() == daemon.Pid(); }));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    for (const char* const stream : {"0", "1", "2"}) {
        const std::string path = "/proc/" + std::to_string(daemon.Pid()) + "/fd/" + stream;
        EXPECT_EQ(std::filesystem::read_symlink(path), "/dev/null");
    }
}

TEST_F(CDaemonLifeTest, SighupTakesUpNewSettingsAndAMistakeChangesNothing) {
    Write("tarvod.conf", "[sessions]\nat_once = 3\n");
    const auto control = Connect();
    EXPECT_EQ(control->GetProductInfo().Version, "3");
    Write("tarvod.conf", "[sessions]\nat_once = 4\n");
    ::kill(DaemonPid(), SIGHUP);
    EXPECT_TRUE(Eventually([&] { return control->GetProductInfo().Version == "4"; }));
    Write("tarvod.conf", "[sessions]\nat_once = 0\n");
    ::kill(DaemonPid(), SIGHUP);
    EXPECT_TRUE(
        Eventually([&] { return Log().find("E The settings stay as they were") != std::string::npos; }));
    EXPECT_THAT(Log(), HasSubstr("tarvod.conf:2:11"));
    EXPECT_EQ(control->GetProductInfo().Version, "4");
}

TEST_F(CDaemonLifeTest, SystemdIsToldOfReadinessReloadsAndTheEnd) {
    const CNotifySocket notified(Home("notify"));
    CChild daemon({Daemon()});
    EXPECT_EQ(notified.Next(), "READY=1");
    daemon.Kill(SIGHUP);
    EXPECT_THAT(notified.Next(), AllOf(StartsWith("RELOADING=1\n"), HasSubstr("MONOTONIC_USEC=")));
    EXPECT_EQ(notified.Next(), "READY=1");
    daemon.Kill(SIGTERM);
    EXPECT_EQ(notified.Next(), "STOPPING=1");
    EXPECT_EQ(daemon.Ended(), 0);
}

TEST_F(CDaemonLifeTest, ADaemonThatAToolHasStartedTellsNothingToTheSystemdOfItsClient) {
    const CNotifySocket notified(Home("notify"));
    ::setenv("WATCHDOG_USEC", "200000", 1);
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    ::kill(DaemonPid(), SIGTERM);
    EXPECT_TRUE(AwaitNoDaemon());
    EXPECT_EQ(notified.Next(0), "");
}

TEST_F(CDaemonLifeTest, TheWatchdogIsFed) {
    const CNotifySocket notified(Home("notify"));
    ::setenv("WATCHDOG_USEC", "200000", 1);
    const CChild daemon({Daemon()});
    std::string said;
    EXPECT_TRUE(Eventually([&] { return (said = notified.Next()) == "WATCHDOG=1"; })) << said;
    EXPECT_TRUE(Eventually([&] { return (said = notified.Next()) == "WATCHDOG=1"; })) << said;
}

TEST_F(CDaemonLifeTest, ASocketOfSystemdsIsTakenOverAndStaysWhenTheDaemonEnds) {
    std::filesystem::create_directory(Home("run"));
    CChild systemd({"systemd-socket-activate", "-E", "TARVO_HOME", "-l", Socket(), Daemon()});
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(Socket()); }));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    EXPECT_EQ(DaemonPid(), systemd.Pid());
    EXPECT_THAT(Log(), HasSubstr("for systemd"));
    systemd.Kill(SIGTERM);
    EXPECT_EQ(systemd.Ended(), 0);
    EXPECT_TRUE(std::filesystem::exists(Socket()));
}

TEST_F(CDaemonLifeTest, ADaemonStartedByHandLeavesASocketOfSystemdsAlone) {
    std::filesystem::create_directory(Home("run"));
    const int other = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, Socket().c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(other, 10), 0);
    CChild daemon({Daemon()});
    EXPECT_THAT(daemon.ReadErrors(), HasSubstr("another process does"));
    EXPECT_EQ(daemon.Ended(), 1);
    EXPECT_TRUE(std::filesystem::exists(Socket()));
    ::close(other);
}

TEST_F(CDaemonLifeTest, FoldersAndSocketsAreClosedToOthers) {
    Connect();
    struct stat status {};
    for (const char* const folder : {"run", "state", "log"}) {
        ASSERT_EQ(::stat(Home(folder).c_str(), &status), 0) << folder;
        EXPECT_EQ(status.st_mode & 0777U, 0700U) << folder;
    }
    for (const char* const file : {"run/control.sock", "run/tarvod.lock", "log/tarvod.log"}) {
        ASSERT_EQ(::stat(Home(file).c_str(), &status), 0) << file;
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << file;
    }
}

TEST_F(CDaemonLifeTest, ALineOfTheLogIsOneLineWhateverIsSaid) {
    Connect();
    EXPECT_THAT(Log(), HasSubstr("I a stand-in\\nin \\x1b[31m two lines\n"));
}

TEST_F(CDaemonLifeTest, ALogNamePathOfAClientIsNotFollowed) {
    auto words = ToolWords();
    words.back() = "../../elsewhere";
    CChild tool(words);
    EXPECT_NE(tool.Read(), "");
    EXPECT_FALSE(std::filesystem::exists(Home("../elsewhere")));
}

/// As somebody else: needs root to become one.
class CForeignUserTest : public CDaemonTest {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
        // The build's folders may be closed to others.
        for (const char* const program : {"tarvoconfig", "tarvod"}) {
            std::filesystem::copy(std::string(PROGRAMS_FOLDER) + "/" + program, m_folder.Path(program));
        }
    }

    std::vector<std::string> AsNobody(std::vector<std::string> words) const {
        std::vector<std::string> all = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    std::vector<std::string> Tool() const {
        auto words = ToolWords();
        words[0] = m_folder.Path("tarvoconfig");
        return words;
    }

    /// Takes down what keeps others out, so that they come as far as the daemon.
    void Open() const {
        namespace fs = std::filesystem;
        fs::permissions(Home("run"), fs::perms(0755));
        fs::permissions(Socket(), fs::perms(0666));
    }
};

TEST_F(CForeignUserTest, FoldersKeepAForeignUserOutAndTheToolSaysSo) {
    Connect();
    CChild tool(AsNobody(Tool()));
    EXPECT_THAT(tool.Read(), AllOf(HasSubstr("CGenericException"), HasSubstr("user 65534 may not open"),
                                   HasSubstr("another user")));
    EXPECT_EQ(tool.Ended(), 1);
}

TEST_F(CForeignUserTest, TheDaemonGreetsAForeignUserWithAnError) {
    Connect();
    Open();
    CChild tool(AsNobody(Tool()));
    EXPECT_THAT(tool.Read(),
                AllOf(HasSubstr("CGenericException"), HasSubstr("The agent serves user root, and not user"),
                      Not(HasSubstr("__handle"))));
    EXPECT_EQ(tool.Ended(), 1);
    EXPECT_THAT(Log(), HasSubstr("was refused: the agent serves its own user and root"));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
}

TEST_F(CForeignUserTest, AToolHandsNothingToADaemonOfAForeignUser) {
    std::filesystem::permissions(m_folder.Path(), std::filesystem::perms::all);
    ASSERT_EQ(::chown(Home().c_str(), 65534, 65534), 0);
    CChild daemon(AsNobody({m_folder.Path("tarvod")}));
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(Socket()); }));
    EXPECT_THAT(FailureOf([] { Connect(); }),
                AllOf(HasSubstr("another user's (65534)"), HasSubstr(Socket())));
    // The user's own client and root's, who comes by himself, are served.
    CChild own(AsNobody(Tool()));
    EXPECT_THAT(own.Read(), HasSubstr("<__handle>1<"));
    daemon.Kill(SIGTERM);
    EXPECT_EQ(daemon.Ended(), 0);
}

TEST_F(CForeignUserTest, AHomeWithoutPermissionIsAClearError) {
    std::filesystem::permissions(Home(), std::filesystem::perms(0755));
    CChild tool(AsNobody(Tool()));
    EXPECT_THAT(tool.Read(), AllOf(HasSubstr("no daemon runs, and none can be started"), HasSubstr(Home())));
    EXPECT_EQ(tool.Ended(), 1);
}

}  // namespace
}  // namespace tests
