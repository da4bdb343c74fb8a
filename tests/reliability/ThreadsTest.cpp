// SPDX-License-Identifier: Apache-2.0
// Many connections at once, and threads that are cancelled in the middle of a call.
#include <zamclientlib/CSimpleLogger.h>
#include <zamservice/EventSource.h>

#include <pthread.h>

#include <atomic>
#include <set>
#include <sstream>
#include <thread>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

class ManyConnections : public CReliabilityTest {};

TEST_F(ManyConnections, OfManyThreadsLendNoToolADescriptorOfAnother) {
    constexpr int Threads = 8;
    const int each = FullOr(1000, IsSanitized ? 15 : 40);
    std::atomic<int> right = 0;
    std::atomic<int> quick = 0;
    std::vector<std::thread> threads;
    for (int id = 0; id < Threads; ++id) {
        threads.emplace_back([&] {
            for (int i = 0; i < each; ++i) {
                Packages packages = ConnectPackages({"answer=fds"}, 60s);
                std::istringstream found(packages->GetPackageNameFromFile("x"));
                std::set<int> open;
                for (int descriptor = 0; found >> descriptor;)
                    open.insert(descriptor);
                right += open == std::set<int>{0, 1, 2};
                const auto start = Clock::now();
                packages.reset();
                // A descriptor in another tool's hands would keep this one's input from ending.
                quick += Clock::now() - start < 1800ms;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, Threads * each);
    EXPECT_EQ(quick, Threads * each);
}

TEST_F(ManyConnections, HeldTogetherLendNoToolADescriptorOfAnother) {
    std::vector<Packages> all;
    for (int i = 0; i < 20; ++i)
        all.push_back(ConnectPackages({"answer=fds"}));
    for (const Packages& packages : all)
        EXPECT_EQ(packages->GetPackageNameFromFile("x").size(), std::string("0 1 2 ").size());
    for (Packages& packages : all) {  // the oldest first: no later tool keeps it alive
        const auto start = Clock::now();
        packages.reset();
        EXPECT_LT(Clock::now() - start, 1800ms);
    }
}

/// A thread that can be cancelled.
class CCancellable {
public:
    explicit CCancellable(std::function<void()> action) : m_action(std::move(action)) {
        if (::pthread_create(&m_thread, nullptr, &Run, this) != 0) std::abort();
    }
    CCancellable(const CCancellable&) = delete;
    CCancellable& operator=(const CCancellable&) = delete;

    /// Whether the thread ended by being cancelled.
    bool Cancel() {
        ::pthread_cancel(m_thread);
        void* result = nullptr;
        ::pthread_join(m_thread, &result);
        return result == PTHREAD_CANCELED;
    }

private:
    static void* Run(void* self) {
        static_cast<CCancellable*>(self)->m_action();
        return nullptr;
    }

    std::function<void()> m_action;
    pthread_t m_thread{};
};

class CancelledThreads : public CReliabilityTest {
protected:
    void SetUp() override {
        if (IsThreadSanitized)
            GTEST_SKIP() << "it loses sight of locks once a thread is cancelled in a system call";
    }

    /// How many requests the tool has seen.
    static std::ptrdiff_t RequestsIn(const std::string& record) {
        const auto lines = zamtest::LinesOf(record);
        return std::count_if(lines.begin(), lines.end(),
                             [](const std::string& line) { return line.rfind("request", 0) == 0; });
    }
};

TEST_F(CancelledThreads, InMidCallLeaveOthersTheirOwnAnswersOrNone) {
    for (const std::string argument : {"slow", "never"}) {
        for (int round = 0; round < FullOr(20, 3) && !HasFailure(); ++round) {
            const std::string record = m_folder.Path(argument + std::to_string(round));
            Packages packages = ConnectPackages({"answer=echo", "record=" + record}, 5s);
            CCancellable thread([&] { packages->GetPackageNameFromFile(argument); });
            EXPECT_TRUE(Eventually([&] { return RequestsIn(record) == 1; }));
            EXPECT_TRUE(thread.Cancel());
            for (int i = 0; i < 2; ++i) {
                std::string answer;
                const SOutcome outcome =
                    OutcomeOf([&] { answer = packages->GetPackageNameFromFile("mine"); });
                if (outcome.Kind == EOutcome::Success) {
                    EXPECT_EQ(answer, "mine") << "the answer to the cancelled call";
                } else {
                    EXPECT_EQ(outcome.Kind, EOutcome::Gone) << outcome;
                }
                EXPECT_LT(outcome.Took, 2s);
            }
            packages.reset();
            ExpectNothingLeft(argument);
        }
    }
}

TEST_F(CancelledThreads, LetThoseWhoWaitForTheirTurnGoOn) {
    const std::string record = m_folder.Path("record");
    const Packages packages = ConnectPackages({"answer=echo", "record=" + record}, 30s);
    CCancellable thread([&] { packages->GetPackageNameFromFile("never"); });
    EXPECT_TRUE(Eventually([&] { return RequestsIn(record) == 1; }));
    SOutcome outcome{EOutcome::Foreign};
    std::atomic<bool> hasBegun = false;
    std::thread other([&] {
        hasBegun = true;
        outcome = OutcomeOf([&] { EXPECT_EQ(packages->GetPackageNameFromFile("mine"), "mine"); });
    });
    EXPECT_TRUE(Eventually([&] { return hasBegun.load(); }));
    EXPECT_TRUE(thread.Cancel());
    other.join();
    EXPECT_TRUE(outcome.Kind == EOutcome::Success || outcome.Kind == EOutcome::Gone) << outcome;
    EXPECT_LT(outcome.Took, 5s);
}

TEST_F(CancelledThreads, ThatWaitForTheirTurnLoseNobodyElses) {
    const std::string record = m_folder.Path("record");
    const Packages packages = ConnectPackages({"answer=echo", "record=" + record}, 30s);
    SOutcome outcome{EOutcome::Foreign};
    std::thread caller(
        [&] { outcome = OutcomeOf([&] { EXPECT_EQ(packages->GetPackageNameFromFile("slow"), "slow"); }); });
    EXPECT_TRUE(Eventually([&] { return RequestsIn(record) == 1; }));
    CCancellable waiting([&] { packages->GetPackageNameFromFile("waiting"); });
    EXPECT_TRUE(waiting.Cancel());
    caller.join();
    EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
    EXPECT_EQ(packages->GetPackageNameFromFile("mine"), "mine");
}

TEST_F(CancelledThreads, AtAnyMomentOfConnectsCallsAndClosingsLeaveNothing) {
    for (int round = 0; round < FullOr(2000, 60) && !HasFailure(); ++round) {
        const Packages shared = ConnectPackages({"answer=echo"}, 30s);
        std::atomic<int> calls = 0;
        CCancellable thread([&] {
            for (;;) {
                const Packages own = ConnectPackages({"answer=echo"}, 30s);
                own->GetPackageNameFromFile("own");
                for (int i = 0; i < 10; ++i, ++calls)
                    shared->GetPackageNameFromFile("theirs");
                ::pthread_testcancel();
            }
        });
        const auto end = Clock::now() + std::chrono::microseconds(round % 30 * 173);
        while (Clock::now() < end) {
        }
        EXPECT_TRUE(thread.Cancel());
        std::string answer = "mine";
        const SOutcome outcome = OutcomeOf([&] { answer = shared->GetPackageNameFromFile("mine"); });
        EXPECT_TRUE(outcome.Kind == EOutcome::Success || outcome.Kind == EOutcome::Gone) << outcome;
        EXPECT_EQ(answer, "mine");
        EXPECT_LT(outcome.Took, 5s);
    }
    EXPECT_FALSE(HasChild());
}

TEST_F(CancelledThreads, AtAnyMomentOfEventStreamsAndLogsLeaveNothing) {
    zamservice::CEventSource source(m_folder.Path("events"));
    for (int round = 0; round < FullOr(2000, 60); ++round) {
        CCancellable thread([&] {
            for (unsigned long id = 1;; ++id) {
                zamclientlib::CEventsStream stream(source.Config(), nullptr);
                source.Publish(tests::NumberedEvent(id));
                stream.ReadUntil(Clock::now() + 1ms);
                zamclientlib::CSimpleLogger(m_folder.Path(), "a.log").Info("a line");
                std::filesystem::remove(m_folder.Path("a.log"));
                ::pthread_testcancel();
            }
        });
        const auto end = Clock::now() + std::chrono::microseconds(round % 30 * 173);
        while (Clock::now() < end) {
        }
        EXPECT_TRUE(thread.Cancel());
        std::filesystem::remove(m_folder.Path("a.log"));
    }
    EXPECT_TRUE(Eventually([&] { return source.SubscriberCount() == 0; }));
    source.Stop();
}

TEST_F(CancelledThreads, InMidConnectLeaveNothing) {
    const std::string record = m_folder.Path("record");
    CCancellable thread([&] { Connect({"out=10", "then=stall", "record=" + record}, 60s); });
    EXPECT_TRUE(Eventually([&] { return !zamtest::LinesOf(record).empty(); }));
    EXPECT_TRUE(thread.Cancel());
    EXPECT_TRUE(Eventually([] { return !HasChild(); }, 3s));
}

TEST_F(CancelledThreads, InAReadOfEventsLeaveTheStreamToOthers) {
    const std::string path = m_folder.Path("socket");
    const tests::CRawServer server(path);
    zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
    const tests::CSocket socket = server.Accept();
    const std::string frame = tests::EventFrame(1);
    socket.Send(frame.substr(0, 20));
    CCancellable thread([&] { stream.Read(); });
    EXPECT_TRUE(thread.Cancel());
    socket.Send(frame.substr(20) + tests::EventFrame(2));
    const SOutcome outcome = OutcomeOf([&] {
        EXPECT_EQ(stream.Read().Id, 1U);
        EXPECT_EQ(stream.Read().Id, 2U);
    });
    EXPECT_TRUE(outcome.Kind == EOutcome::Success || outcome.Kind == EOutcome::Gone) << outcome;
}

class WaitingForATurn : public CReliabilityTest {};

TEST_F(WaitingForATurn, EndsWithTheTimeLimitToo) {
    const Packages packages = ConnectPackages({"answer=echo"}, 1s);
    std::vector<std::thread> threads;
    std::atomic<int> late = 0;
    std::atomic<int> failed = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const SOutcome outcome = OutcomeOf([&] { packages->GetPackageNameFromFile("never"); });
            failed += outcome.Kind == EOutcome::Timeout || outcome.Kind == EOutcome::Gone;
            late += outcome.Took > 1800ms;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 4);
    EXPECT_EQ(late, 0) << "each waits its own second, not those before it too";
}

TEST_F(WaitingForATurn, IsNothingThatAReleaseDoes) {
    const std::string record = m_folder.Path("record");
    const auto invoker = Invoker({"answer=echo", "record=" + record}, 2s);
    const auto packages =
        std::make_shared<zamclientlib::IPackageManager_Proxy>(invoker, invoker->GetRootHandle());
    std::vector<std::shared_ptr<zamclientlib::IService_Proxy>> others;
    for (std::uint64_t handle = 2; handle < 20'000; ++handle)
        others.push_back(std::make_shared<zamclientlib::IService_Proxy>(invoker, apigen::Handle{handle}));
    std::thread caller([&] { OutcomeOf([&] { packages->GetPackageNameFromFile("never"); }); });
    EXPECT_TRUE(Eventually([&] { return zamtest::LinesOf(record).size() == 2; }));
    const auto start = Clock::now();
    others.clear();  // more of them than a pipe holds
    EXPECT_LT(Clock::now() - start, 1500ms);
    caller.join();
}

TEST_F(WaitingForATurn, IsNothingThatAReleaseDoesToAToolThatReadsNoMore) {
    const auto invoker = Invoker({"in=0", "then=stall"}, 5s);
    std::vector<std::shared_ptr<zamclientlib::IService_Proxy>> others;
    for (std::uint64_t handle = 2; handle < 20'000; ++handle)
        others.push_back(std::make_shared<zamclientlib::IService_Proxy>(invoker, apigen::Handle{handle}));
    const auto start = Clock::now();
    others.clear();
    EXPECT_LT(Clock::now() - start, 4s);
}

}  // namespace
}  // namespace reliability
