// SPDX-License-Identifier: Apache-2.0
// Storms of signals, and what the library leaves of a caller's signals and children.
#include <apigen/CCancellation.h>
#include <apigen/CallControl.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CSimpleLogger.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <array>
#include <atomic>
#include <clocale>
#include <cstring>
#include <thread>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

extern char** environ;  // NOLINT: the C library's

namespace reliability {
namespace {

const char* const VersionDocument =
    "<Data><SCompatibilityInfo><protocolVersion><major>2</major><minor>0</minor><revision>0</revision>"
    "<build>0</build></protocolVersion></SCompatibilityInfo></Data>";

/// A tool for the version query, which passes no arguments of ours.
std::string VersionTool(const zamtest::CTemporaryFolder& folder) {
    const std::string path = folder.Path("tool");
    folder.Write("tool",
                 std::string("#!/bin/sh\nexec '") + RELIABILITY_PEER + "' 'print=" + VersionDocument + "'\n");
    std::filesystem::permissions(path, std::filesystem::perms::all);
    return path;
}

std::atomic<unsigned long> g_signals = 0;  // NOLINT: counted by a handler

extern "C" void CountSignal(int /*signal*/) {
    g_signals.fetch_add(1, std::memory_order_relaxed);
}

/// A signal every 100 us to the process, and to this thread from another one, for as long as the object lives.
class CStorm {
public:
    explicit CStorm(int flags) : m_target(::pthread_self()) {
        struct sigaction action {};
        action.sa_handler = &CountSignal;
        action.sa_flags = flags;
        ::sigaction(SIGALRM, &action, &m_alarmBefore);
        ::sigaction(SIGUSR1, &action, &m_userBefore);
        const itimerval every{{0, 100}, {0, 100}};
        ::setitimer(ITIMER_REAL, &every, nullptr);
        m_thread = std::thread([this] {
            sigset_t alarm;
            ::sigemptyset(&alarm);
            ::sigaddset(&alarm, SIGALRM);
            ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);  // they are the target's
            const timespec pause{0, 100'000};
            while (!m_over) {
                ::pthread_kill(m_target, SIGUSR1);
                ::nanosleep(&pause, nullptr);
            }
        });
    }
    CStorm(const CStorm&) = delete;
    CStorm& operator=(const CStorm&) = delete;
    ~CStorm() {
        m_over = true;
        m_thread.join();
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &m_alarmBefore, nullptr);
        ::sigaction(SIGUSR1, &m_userBefore, nullptr);
    }

private:
    pthread_t m_target;
    std::atomic<bool> m_over = false;
    struct sigaction m_alarmBefore {};
    struct sigaction m_userBefore {};
    std::thread m_thread;
};

class SignalStorm : public CReliabilityTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutRestart, SignalStorm, testing::Values(0, SA_RESTART),
                         [](const auto& test) { return test.param == 0 ? "Interrupting" : "Restarting"; });

TEST_P(SignalStorm, DoesNotTouchConnectsCallsAndClosings) {
    const auto before = g_signals.load();
    const std::string large = TextOfSize(FullOr(3'000'000U, 300'000U));
    for (int round = 0; round < FullOr(200, 12) && !HasFailure(); ++round) {
        const CStorm storm(GetParam());
        Packages packages;
        const SOutcome outcome = OutcomeOf([&] {
            packages = ConnectPackages({"answer=echo"});
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(packages->GetPackageNameFromFile(std::to_string(i)), std::to_string(i));
            EXPECT_TRUE(packages->GetPackageNameFromFile(large) == large);
            EXPECT_EQ(packages->GetPackageNameFromFile("slow"), "slow");
        });
        EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
        const auto start = Clock::now();
        packages.reset();
        EXPECT_LT(Clock::now() - start, 1500ms) << "the tool goes as soon as its input ends";
    }
    EXPECT_GT(g_signals - before, 100U) << "there was no storm";
}

TEST_P(SignalStorm, DoesNotStretchATimeLimit) {
    const CStorm storm(GetParam());
    const Packages packages = ConnectPackages({"answer=echo"}, 1s);
    const SOutcome outcome = OutcomeOf([&] { packages->GetPackageNameFromFile("never"); });
    EXPECT_EQ(outcome.Kind, EOutcome::Timeout) << outcome;
    EXPECT_GE(outcome.Took, 990ms);
    EXPECT_LT(outcome.Took, 3s);
}

TEST_P(SignalStorm, DoesNotTouchAFailure) {
    const CStorm storm(GetParam());
    for (int at = 0; at < 80 && !HasFailure(); at += 7) {
        const SOutcome outcome = OutcomeOf([&] {
            ConnectPackages({"out=" + std::to_string(at), "then=kill"})->GetPackageNameFromFile("a");
        });
        EXPECT_EQ(outcome.Kind, EOutcome::Gone) << at << ": " << outcome;
        EXPECT_LT(outcome.Took, 3s);
    }
}

TEST_P(SignalStorm, DoesNotTouchTheVersionQuery) {
    const std::string tool = VersionTool(m_folder);
    const CStorm storm(GetParam());
    for (int round = 0; round < 5; ++round)
        EXPECT_TRUE(zamclientlib::IsInstallerApiCompatible(tool));
}

TEST_P(SignalStorm, DoesNotTouchEvents) {
    const std::string path = m_folder.Path("socket");
    const CStorm storm(GetParam());
    for (int round = 0; round < FullOr(50, 5); ++round) {
        const tests::CRawServer server(path);
        zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
        std::thread source([&] {
            sigset_t all;
            ::sigfillset(&all);
            ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
            const tests::CSocket socket = server.Accept();
            for (unsigned long id = 1; id <= 200; ++id)
                socket.Send(tests::EventFrame(id));
        });
        const SOutcome outcome = OutcomeOf([&] {
            for (unsigned long id = 1; id <= 200; ++id)
                EXPECT_EQ(stream.Read().Id, id);
        });
        EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
        source.join();
        std::filesystem::remove(path);
    }
}

// --- What belongs to the caller ---

/// Everything of a process that the library must leave alone.
struct SCaller {
    std::vector<std::string> Dispositions;
    std::string Mask;
    std::string Pending;
    std::string Folder;
    std::string Locale;
    std::string Environment;
    std::ptrdiff_t Threads = 0;
    mode_t FileMask = 0;
    std::array<rlim_t, 4> Limits{};

    bool operator==(const SCaller&) const = default;
};

std::string SignalsOf(const sigset_t& set) {
    std::string all;
    for (int signal = 1; signal <= 64; ++signal)
        all += ::sigismember(&set, signal) == 1 ? '1' : '0';
    return all;
}

SCaller Caller() {
    SCaller caller;
    for (int signal = 1; signal <= 64; ++signal) {
        struct sigaction action {};
        std::string text = "none";
        if (::sigaction(signal, nullptr, &action) == 0) {
            text = std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) + '/' +
                   std::to_string(action.sa_flags) + '/' + SignalsOf(action.sa_mask);
        }
        caller.Dispositions.push_back(text);
    }
    sigset_t set;
    ::sigemptyset(&set);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &set);
    caller.Mask = SignalsOf(set);
    ::sigpending(&set);
    caller.Pending = SignalsOf(set);
    caller.Folder = std::filesystem::current_path().string();
    caller.Locale = std::setlocale(LC_ALL, nullptr);  // NOLINT(concurrency-mt-unsafe): one thread
    for (char** entry = environ; *entry != nullptr; ++entry)
        caller.Environment += std::string(*entry) + '\n';
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    caller.Threads = std::distance(begin(tasks), end(tasks));
    caller.FileMask = ::umask(0);
    ::umask(caller.FileMask);
    rlimit files{};
    rlimit core{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    ::getrlimit(RLIMIT_CORE, &core);
    caller.Limits = {files.rlim_cur, files.rlim_max, core.rlim_cur, core.rlim_max};
    return caller;
}

class TheCaller : public CReliabilityTest {
protected:
    /// Runs `action` with an odd set of signals blocked, and checks that nothing of the caller has changed.
    template <class Action>
    void ExpectUntouchedBy(const std::string& what, Action&& action) {
        const SCaller before = Caller();
        action();
        EXPECT_TRUE(Caller() == before) << what;
        sigset_t odd;
        sigset_t mask;
        ::sigemptyset(&odd);
        for (const int signal : {SIGPIPE, SIGCHLD, SIGTERM, SIGRTMIN + 3})
            ::sigaddset(&odd, signal);
        ::pthread_sigmask(SIG_BLOCK, &odd, &mask);
        const SCaller blocked = Caller();
        action();
        const SCaller after = Caller();
        EXPECT_EQ(after.Mask, blocked.Mask) << what;
        EXPECT_TRUE(after.Dispositions == blocked.Dispositions) << what;
        EXPECT_EQ(after.Pending[SIGPIPE - 1], '0') << what;
        const timespec atOnce{};
        sigset_t children;
        ::sigemptyset(&children);
        ::sigaddset(&children, SIGCHLD);
        ::sigtimedwait(&children, nullptr, &atOnce);  // the ends of our tools: the one thing that has come
        ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }
};

TEST_F(TheCaller, FindsSignalsAndEverythingElseAsTheyWereAfterConnectCallAndClose) {
    ExpectUntouchedBy("a connection", [] {
        const Packages packages = ConnectPackages({"answer=echo"});
        EXPECT_EQ(packages->GetPackageNameFromFile("a"), "a");
    });
}

TEST_F(TheCaller, FindsEverythingAsItWasInMidConnection) {
    Packages packages;
    const SCaller before = Caller();
    packages = ConnectPackages({"answer=echo"});
    EXPECT_TRUE(Caller() == before) << "no thread, no handler, no mask";
    EXPECT_EQ(packages->GetPackageNameFromFile("a"), "a");
    EXPECT_TRUE(Caller() == before);
}

TEST_F(TheCaller, FindsEverythingAsItWasAfterFailures) {
    ExpectUntouchedBy("a missing tool", [] {
        EXPECT_THROW(Invoker({}, 1s, nullptr, "/no/such/tool"), apigen::ProcessLaunchError);
    });
    ExpectUntouchedBy("a tool that ends at once",
                      [] { EXPECT_THROW(Connect({"out=3"}), apigen::PeerGoneError); });
    ExpectUntouchedBy("a tool that closes its input", [] {
        const Packages packages = ConnectPackages({"in=0", "then=hang-up"});
        EXPECT_THROW(packages->GetPackageNameFromFile(TextOfSize(200'000)), apigen::PeerGoneError);
    });
    ExpectUntouchedBy("a time-out", [] {
        const Packages packages = ConnectPackages({"answer=echo"}, 1s);
        EXPECT_THROW(packages->GetPackageNameFromFile("never"), apigen::TimeoutError);
    });
    ExpectUntouchedBy("an event source that ends", [this] {
        const std::string path = m_folder.Path("socket");
        const tests::CRawServer server(path);
        zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
        server.Accept().Close();
        EXPECT_THROW(stream.Read(), apigen::PeerGoneError);
        std::filesystem::remove(path);
    });
}

TEST_F(TheCaller, FindsEverythingAsItWasAfterTheVersionQuery) {
    const std::string tool = VersionTool(m_folder);
    ExpectUntouchedBy("the version query",
                      [&] { EXPECT_TRUE(zamclientlib::IsInstallerApiCompatible(tool)); });
}

TEST_F(TheCaller, GetsNoSignalOfATerminalThatTheToolWouldGetToo) {
    const std::string record = m_folder.Path("record");
    const Packages packages = ConnectPackages({"answer=echo", "record=" + record});
    const pid_t pid = std::atoi(zamtest::LinesOf(record).at(0).c_str() + 4);
    EXPECT_NE(::getpgid(pid), ::getpgrp()) << "Ctrl-C would end the tool in mid-call";
}

TEST_F(TheCaller, IsNotHeldUpForEverByAToolThatItMayNotEnd) {
    constexpr uid_t Nobody = 65534;
    constexpr int NotPossibleHere = 77;
    const std::string record = m_folder.Path("record");
    const int result = InAProcessOfItsOwn(
        [&] {
            Packages packages = ConnectPackages({"deaf=1", "answer=echo", "record=" + record});
            if (packages->GetPackageNameFromFile("a") != "a") return 2;
            // As a daemon that gives up its rights once it has connected: the tool keeps its own.
            if (::setresuid(Nobody, Nobody, Nobody) != 0) return NotPossibleHere;
            const auto start = Clock::now();
            packages.reset();
            return Clock::now() - start < 8s ? 0 : 3;
        },
        20);
    const auto lines = zamtest::LinesOf(record);
    if (!lines.empty()) ::kill(std::atoi(lines[0].c_str() + 4), SIGKILL);
    if (result == NotPossibleHere) GTEST_SKIP() << "needs the right to become another user";
    EXPECT_EQ(result, 0);
}

TEST_F(TheCaller, MayIgnoreTheEndOfChildren) {
    const std::string tool = VersionTool(m_folder);
    const int result = InAProcessOfItsOwn([&] {
        ::signal(SIGCHLD, SIG_IGN);
        for (int round = 0; round < 10; ++round) {
            Packages packages = ConnectPackages({"answer=echo"});
            if (packages->GetPackageNameFromFile("a") != "a") return 2;
            const auto start = Clock::now();
            packages.reset();
            if (Clock::now() - start > 1500ms) return 3;
        }
        const SOutcome gone = OutcomeOf([] {
            ConnectPackages({"out=45", "then=kill"})->GetPackageNameFromFile("a");
        });
        if (gone.Kind != EOutcome::Gone || gone.Took > 3s) return 4;
        if (!zamclientlib::IsInstallerApiCompatible(tool)) return 5;
        return 0;
    });
    EXPECT_EQ(result, 0);
}

/// A thread that collects every child of the process, as a supervisor's may.
class CReaper {
public:
    CReaper()
        : m_thread([this] {
              while (!m_over)
                  if (::waitpid(-1, nullptr, 0) < 0) ::poll(nullptr, 0, 1);
          }) {}
    CReaper(const CReaper&) = delete;
    CReaper& operator=(const CReaper&) = delete;
    ~CReaper() {
        m_over = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_over = false;
    std::thread m_thread;
};

TEST_F(TheCaller, MayCollectEveryChildInAThreadOfItsOwn) {
    const std::string tool = VersionTool(m_folder);
    const CReaper reaper;
    for (int round = 0; round < FullOr(500, 20) && !HasFailure(); ++round) {
        Packages packages = ConnectPackages({"answer=echo"});
        EXPECT_EQ(packages->GetPackageNameFromFile("a"), "a");
        auto start = Clock::now();
        packages.reset();
        EXPECT_LT(Clock::now() - start, 1500ms);
        const SOutcome gone = OutcomeOf([] {
            ConnectPackages({"out=45", "then=kill"})->GetPackageNameFromFile("a");
        });
        EXPECT_EQ(gone.Kind, EOutcome::Gone) << gone;
        EXPECT_LT(gone.Took, 3s);
        const SOutcome version =
            OutcomeOf([&] { EXPECT_TRUE(zamclientlib::IsInstallerApiCompatible(tool)); });
        EXPECT_EQ(version.Kind, EOutcome::Success) << version;
    }
}

bool AreStandardStreamsClosed() {
    return ::fcntl(0, F_GETFD) == -1 && ::fcntl(1, F_GETFD) == -1 && ::fcntl(2, F_GETFD) == -1;
}

/// Looks, whenever a call asks whether it is cancelled, what the call has opened.
class CLookingEvent final : public apigen::io::event::IEvent {
public:
    bool IsSet() const override {
        if (!AreStandardStreamsClosed()) HasFoundAny = true;
        return false;
    }
    std::string Reason() const override { return {}; }
    int Descriptor() const noexcept override { return m_never.Descriptor(); }

    mutable std::atomic<bool> HasFoundAny = false;

private:
    apigen::CCancellation m_never;
};

TEST_F(TheCaller, WhoHasClosedItsStandardStreamsFindsNothingInTheirPlace) {
    const std::string path = m_folder.Path("socket");
    const tests::CRawServer server(path);
    const int result = InAProcessOfItsOwn([&] {
        for (int fd = 0; fd < 3; ++fd)
            ::close(fd);
        const Packages packages = ConnectPackages({"answer=echo"});
        const auto event = std::make_shared<CLookingEvent>();
        const apigen::CCancellableCalls outer(event);
        if (packages->GetPackageNameFromFile("a") != "a" || event->HasFoundAny) return 2;
        const apigen::CCancellableCalls inner(std::make_shared<apigen::CCancellation>());
        if (packages->GetPackageNameFromFile("a") != "a" || event->HasFoundAny) return 3;
        const zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
        if (!AreStandardStreamsClosed()) return 4;
        const zamclientlib::CSimpleLogger logger(m_folder.Path(), "a.log");
        if (logger.GetError() || !AreStandardStreamsClosed()) return 5;

        std::thread other([&] {
            const apigen::CCallTimeout timeout(2s);
            OutcomeOf([&] { packages->GetPackageNameFromFile("never"); });
        });
        const apigen::CCallTimeout timeout(100ms);
        while (OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind == EOutcome::Success) {
        }
        other.join();
        return event->HasFoundAny ? 6 : 0;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(TheCaller, IsRefusedANegativeTimeLimit) {
    for (const auto limit : {-1s, std::chrono::seconds::min()}) {
        const SOutcome outcome =
            OutcomeOf([&] { zamclientlib::GetTarvoInstaller(RELIABILITY_PEER, limit, false, nullptr); });
        EXPECT_EQ(outcome.Kind, EOutcome::Internal) << outcome;
    }
}

}  // namespace
}  // namespace reliability
