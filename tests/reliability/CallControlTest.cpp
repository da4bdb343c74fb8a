// SPDX-License-Identifier: Apache-2.0
// Deadlines and cancellations of single calls, and what becomes of the connection.
#include <apigen/CCancellation.h>
#include <apigen/CallControl.h>

#include <gmock/gmock.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

using apigen::CCallDeadline;
using apigen::CCallTimeout;
using apigen::CCancellableCalls;
using apigen::CCancellation;
using testing::HasSubstr;

/// The failure of an expected kind.
template <class E, class Action>
std::optional<E> Failure(Action&& action) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const E& error) {
        return error;
    } catch (const std::exception& error) {
        ADD_FAILURE() << "something else was thrown: " << error.what();
    }
    return {};
}

class CallControl : public CReliabilityTest {
protected:
    /// Answers with its argument; to "slow" late, to "never" never.
    Packages Echo(std::chrono::seconds timeout = 60s) const {
        return ConnectPackages({"answer=echo", "record=" + m_folder.Path("record")}, timeout);
    }
    std::string Record() const {
        std::ifstream file(m_folder.Path("record"));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void ExpectUsable(const Packages& packages) { EXPECT_EQ(Ask(packages, "a"), "a"); }
    static void ExpectLost(const Packages& packages) {
        const auto error = Failure<apigen::PeerGoneError>([&] { Ask(packages, "a"); });
        ASSERT_TRUE(error);
        EXPECT_TRUE(error->IsConnectionLost());
    }
    static std::string Ask(const Packages& packages, const std::string& text) {
        return packages->GetPackageNameFromFile(text);
    }
    /// A call that lasts until the connection is given up.
    std::future<SOutcome> Occupy(const Packages& packages,
                                 std::shared_ptr<const apigen::io::event::IEvent> end) const {
        auto call = std::async(std::launch::async, [packages, end = std::move(end)] {
            const CCancellableCalls scope(end);
            return OutcomeOf([&] { Ask(packages, "never"); });
        });
        EXPECT_TRUE(Eventually([&] { return Record().find("request") != std::string::npos; }));
        return call;
    }
};

TEST_F(CallControl, EndsACallAtADeadlineThatIsEarlierThanTheConnections) {
    const auto packages = Echo(60s);
    const CCallDeadline deadline(100ms);
    const auto start = Clock::now();
    const auto error = Failure<apigen::TimeoutError>([&] { Ask(packages, "never"); });
    EXPECT_LT(Clock::now() - start, 20s);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->IsConnectionLost())
        << "the answer may still come, and must not be taken for another's";
    EXPECT_THAT(error->what(), HasSubstr("GetPackageNameFromFile"));
    // What the call had left when it began.
    EXPECT_THAT(error->what(), ::testing::ContainsRegex("limit of (100|[0-9][0-9]) ms"));
    EXPECT_THAT(error->what(), HasSubstr("ReliabilityPeer"));
    ExpectLost(packages);
}

TEST_F(CallControl, GivesACallMoreTimeThanTheConnectionHas) {
    const auto packages = Echo(1s);
    for (int turn = 0; turn < 2; ++turn) {
        std::optional<CCallDeadline> deadline;
        std::optional<CCallTimeout> timeout;
        turn == 0 ? (void)deadline.emplace(60s) : (void)timeout.emplace(0ms);
        // Five slow answers take longer than the connection's second, and are in time for the stretch as a whole.
        for (int call = 0; call < 2; ++call)
            EXPECT_EQ(Ask(packages, "slow"), "slow");
    }
    const auto cause = std::make_shared<CCancellation>();
    std::thread late([&] {
        ::poll(nullptr, 0, 1500);
        cause->Cancel();
    });
    const CCallTimeout hour(std::chrono::hours(1));
    const CCancellableCalls scope(cause);
    const auto start = Clock::now();
    EXPECT_TRUE(Failure<apigen::InterruptedError>([&] { Ask(packages, "never"); }));
    EXPECT_GE(Clock::now() - start, 1400ms) << "the connection's own second was not to count";
    late.join();
}

TEST_F(CallControl, MeasuresEachCallByItsOwnDeadline) {
    const auto packages = Echo(60s);
    {
        const CCallDeadline soon(100ms);
        ExpectUsable(packages);
    }
    // The deadline of the call before passes meanwhile, then while nothing is called.
    EXPECT_EQ(Ask(packages, "slow"), "slow");
    {
        const CCallDeadline soon(100ms);
        ExpectUsable(packages);
    }
    ::poll(nullptr, 0, 200);
    EXPECT_EQ(Ask(packages, "slow"), "slow");
    const CCallDeadline soon(100ms);
    const auto start = Clock::now();
    EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { Ask(packages, "never"); }));
    EXPECT_GE(Clock::now() - start, 99ms);
    EXPECT_LT(Clock::now() - start, 20s);
}

TEST_F(CallControl, WaitsAtRestForAToolThatClosedItsStandardError) {
    const auto used = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto packages = ConnectPackages({"answer=echo", "mute=1"});
    ExpectUsable(packages);
    const auto before = used();
    EXPECT_EQ(Ask(packages, "slow"), "slow");
    EXPECT_LT(used() - before, 100ms);
}

TEST_F(CallControl, FailsACallAloneThatHasNoTimeLeftBeforeItBegins) {
    const auto packages = Echo();
    for (const auto limit : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        const CCallDeadline deadline(limit);
        const auto error = Failure<apigen::TimeoutError>([&] { Ask(packages, "a"); });
        ASSERT_TRUE(error);
        EXPECT_FALSE(error->IsConnectionLost());
        EXPECT_THAT(error->what(), HasSubstr("GetPackageNameFromFile"));
    }
    {
        const CCallDeadline past(Clock::time_point::min());
        EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { Ask(packages, "a"); }));
    }
    ExpectUsable(packages);
}

TEST_F(CallControl, TakesAHugeLimitForNone) {
    const auto packages = Echo();
    const CCallDeadline most(std::chrono::milliseconds::max());
    ExpectUsable(packages);
    const CCallDeadline never(Clock::time_point::max());
    ExpectUsable(packages);
    const CCallTimeout longest(std::chrono::milliseconds::max());
    ExpectUsable(packages);
}

TEST_F(CallControl, RefusesANegativeTimeoutAndAnEventThatIsNotThere) {
    EXPECT_TRUE(Failure<apigen::ApiInternalError>([] { const CCallTimeout scope(-1ms); }));
    EXPECT_TRUE(Failure<apigen::ApiInternalError>([] { const CCancellableCalls scope(nullptr); }));
    ExpectUsable(Echo());
}

TEST_F(CallControl, OfNestedDeadlinesHeedsTheEarliestAndOfNestedTimeoutsTheInnermost) {
    const auto packages = Echo();
    {
        const CCallDeadline outer(0ms);
        const CCallDeadline inner(60s);
        const CCallTimeout timeout(60s);
        EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { Ask(packages, "a"); }));
    }
    {
        const CCallDeadline outer(60s);
        {
            const CCallDeadline inner(0ms);
            EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { Ask(packages, "a"); }));
        }
        ExpectUsable(packages);
    }
    const CCallTimeout outer(1ms);
    const CCallTimeout inner(60s);
    EXPECT_EQ(Ask(packages, "slow"), "slow");
}

TEST_F(CallControl, EndsWithTheScopeInWhateverOrderScopesEnd) {
    const auto packages = Echo();
    auto first = std::make_unique<CCallDeadline>(0ms);
    auto second = std::make_unique<CCallDeadline>(60s);
    first.reset();
    ExpectUsable(packages);
    second.reset();
    ExpectUsable(packages);
}

TEST_F(CallControl, ActsOnItsOwnThreadOnlyAndMayEndInAnother) {
    const auto packages = Echo();
    auto scope = std::make_unique<CCallDeadline>(0ms);
    std::thread([&] {
        ExpectUsable(packages);
        scope.reset();
        ExpectUsable(packages);
    }).join();
    ExpectUsable(packages);
    const CCallDeadline another(60s);  // what the other thread left behind goes with this one
    ExpectUsable(packages);
}

TEST_F(CallControl, SendsReleasesUnderADeadlineThatHasPassedAndLosesNone) {
    const auto count = [&] {
        const std::string all = Record();
        std::size_t found = 0;
        for (std::size_t at = all.find("request"); at != std::string::npos; at = all.find("request", at + 1))
            ++found;
        return found;
    };
    auto root = Connect({"answer=<Data><__handle>7</__handle></Data>", "record=" + m_folder.Path("record")});
    auto first = root->GetPackageManager();
    auto second = root->GetPackageManager();
    {
        const CCallDeadline past(0ms);
        first.reset();
        EXPECT_TRUE(Failure<apigen::TimeoutError>([&] { second = root->GetPackageManager(); }));
        second.reset();
    }
    const auto third = root->GetPackageManager();
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(count(), 5U) << "three calls and two releases";
    root.reset();
}

TEST_F(CallControl, IsCancelledFromAnotherThreadWhileItWaitsForItsAnswer) {
    const auto packages = Echo(0s);
    const auto cancellation = std::make_shared<CCancellation>();
    auto call = Occupy(packages, cancellation);
    cancellation->Cancel();
    const auto outcome = call.get();
    EXPECT_EQ(outcome.Kind, EOutcome::Internal) << outcome;
    EXPECT_THAT(outcome.Text, HasSubstr("cancelled by the caller"));
    EXPECT_THAT(outcome.Text, HasSubstr("GetPackageNameFromFile"));
    ExpectLost(packages);
}

TEST_F(CallControl, IsCancelledAloneWhileItWaitsForItsTurn) {
    const auto packages = Echo(0s);
    const auto end = std::make_shared<CCancellation>();
    auto other = Occupy(packages, end);

    const auto cancellation = std::make_shared<apigen::io::event::CAtomicEvent>();
    std::promise<void> begun;
    auto waiting = std::async(std::launch::async, [&] {
        const CCancellableCalls scope(cancellation);
        begun.set_value();
        return Failure<apigen::InterruptedError>([&] { Ask(packages, "a"); });
    });
    begun.get_future().wait();
    cancellation->Set("the window was closed");
    const auto error = waiting.get();
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->IsConnectionLost());
    EXPECT_THAT(error->what(), HasSubstr("the window was closed"));
    EXPECT_EQ(other.wait_for(0s), std::future_status::timeout) << "the other call was not to notice";
    EXPECT_TRUE(zamclientlib::GetConnectionState(packages));
    end->Cancel();
    other.get();
}

TEST_F(CallControl, HandsItsTurnOnWhenItIsCancelledJustAsItComes) {
    const auto packages = Echo();
    for (int turn = 0; turn < FullOr(300, 60); ++turn) {
        std::vector<std::future<SOutcome>> calls;
        std::vector<std::shared_ptr<CCancellation>> cancellations;
        for (int each = 0; each < 6; ++each) {
            cancellations.push_back(each % 2 == 0 ? std::make_shared<CCancellation>() : nullptr);
            calls.push_back(std::async(std::launch::async, [&packages, end = cancellations.back()] {
                std::optional<CCancellableCalls> scope;
                if (end != nullptr) scope.emplace(end);
                return OutcomeOf([&] { EXPECT_EQ(Ask(packages, "a"), "a"); });
            }));
        }
        std::atomic<bool> isLost = false;
        for (const auto& each : cancellations)
            if (each != nullptr) each->Cancel();
        for (auto& call : calls) {
            const auto outcome = call.get();
            if (outcome.Kind == EOutcome::Gone) isLost = true;
            EXPECT_NE(outcome.Kind, EOutcome::Timeout) << outcome;
        }
        // A call that had begun may have been hit: then all the others failed for that reason.
        if (!apigen::SConnectionState(zamclientlib::GetConnectionState(packages)).IsAlive) return;
        EXPECT_FALSE(isLost);
    }
}

TEST_F(CallControl, SucceedsWhenItsAnswerHasComeByTheTimeOfItsCancellation) {
    for (int turn = 0; turn < FullOr(400, 60); ++turn) {
        const auto packages = Echo();
        const auto cancellation = std::make_shared<CCancellation>();
        std::thread other([&, turn] {
            const auto moment = Clock::now() + turn * 3us;
            while (Clock::now() < moment) {
            }
            cancellation->Cancel();
        });
        const CCancellableCalls scope(cancellation);
        const auto outcome = OutcomeOf([&] { EXPECT_EQ(Ask(packages, "a"), "a"); });
        other.join();
        EXPECT_TRUE(outcome.Kind == EOutcome::Success || outcome.Kind == EOutcome::Internal) << outcome;
        // Whatever it was, no later call gets this one's answer.
        const auto state = zamclientlib::GetConnectionState(packages);
        EXPECT_TRUE(outcome.Kind != EOutcome::Success || state.IsAlive) << state.Reason;
    }
}

TEST_F(CallControl, FailsAloneUnderACancellationThatCameBeforeIt) {
    const auto packages = Echo();
    {
        const auto cancellation = std::make_shared<CCancellation>();
        cancellation->Cancel();
        cancellation->Cancel();
        const CCancellableCalls scope(cancellation);
        const auto error = Failure<apigen::InterruptedError>([&] { Ask(packages, "a"); });
        ASSERT_TRUE(error);
        EXPECT_FALSE(error->IsConnectionLost());
    }
    ExpectUsable(packages);
}

TEST_F(CallControl, OutlivesTheCallersHoldOnTheCancellation) {
    const auto packages = Echo();
    auto cancellation = std::make_shared<CCancellation>();
    const CCancellableCalls scope(cancellation);
    cancellation.reset();
    ExpectUsable(packages);
}

TEST_F(CallControl, HeedsAnyOfNestedCancellations) {
    for (int which = 0; which < 2; ++which) {
        const auto packages = Echo(0s);
        const std::vector both{std::make_shared<CCancellation>(), std::make_shared<CCancellation>()};
        const CCancellableCalls outer(both[0]);
        const CCancellableCalls inner(both[1]);
        const CCancellableCalls same(both[1]);
        ExpectUsable(packages);
        std::thread other([&] { both[static_cast<std::size_t>(which)]->Cancel(); });
        EXPECT_TRUE(Failure<apigen::InterruptedError>([&] { Ask(packages, "never"); }));
        other.join();
    }
}

std::shared_ptr<CCancellation>* g_cancellation = nullptr;  // NOLINT: for a signal handler

TEST_F(CallControl, IsCancelledByASignalHandler) {
    const auto packages = Echo(0s);
    auto cancellation = std::make_shared<CCancellation>();
    g_cancellation = &cancellation;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { (*g_cancellation)->Cancel(); };
    ::sigaction(SIGUSR1, &action, &before);
    const CCancellableCalls scope(cancellation);
    const pthread_t self = ::pthread_self();
    std::thread other([&] {
        ::poll(nullptr, 0, 20);
        ::pthread_kill(self, SIGUSR1);
    });
    EXPECT_TRUE(Failure<apigen::InterruptedError>([&] { Ask(packages, "never"); }));
    other.join();
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(CallControl, IsNotEndedBySignalsThatMeanNothing) {
    const auto packages = Echo(0s);
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, &before);
    const auto cancellation = std::make_shared<CCancellation>();
    const CCancellableCalls scope(cancellation);
    const pthread_t self = ::pthread_self();
    std::atomic<bool> isDone = false;
    std::thread other([&] {
        while (!isDone) {
            ::pthread_kill(self, SIGUSR1);
            ::poll(nullptr, 0, 1);
        }
    });
    EXPECT_EQ(Ask(packages, "slow"), "slow");
    isDone = true;
    other.join();
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(CallControl, OfAForkedCopyDisturbsNoCallOfTheOriginal) {
    const auto packages = Echo();
    const auto cancellation = std::make_shared<CCancellation>();
    const CCancellableCalls scope(cancellation);
    const int result = InAProcessOfItsOwn([&] {
        cancellation->Cancel();
        return cancellation->IsSet() ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(cancellation->IsSet());
    EXPECT_EQ(Ask(packages, "slow"), "slow");
}

TEST_F(CallControl, ActsInAForkedCopyOnConnectionsOfItsOwn) {
    const auto cancellation = std::make_shared<CCancellation>();
    const int result = InAProcessOfItsOwn([&] {
        auto packages = Echo(0s);
        const CCancellableCalls scope(cancellation);
        std::thread other([&] { cancellation->Cancel(); });
        const auto outcome = OutcomeOf([&] { Ask(packages, "never"); });
        other.join();
        packages.reset();
        return outcome.Kind == EOutcome::Internal ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(CallControl, BoundsTheConnectingAsWell) {
    const CCallDeadline deadline(100ms);
    const auto start = Clock::now();
    const auto outcome = OutcomeOf([] { ConnectPackages({"out=0", "then=stall"}, 60s); });
    EXPECT_EQ(outcome.Kind, EOutcome::Timeout) << outcome;
    EXPECT_LT(Clock::now() - start, 20s);
    EXPECT_THAT(outcome.Text, HasSubstr("the greeting"));
}

TEST_F(CallControl, CancelsTheSendingToAToolThatReadsNothing) {
    const auto packages = ConnectPackages({"in=10", "then=stall"}, 0s);
    const std::string text(1024 * 1024, 'x');
    // On a busy machine the cancellation may come before the call has begun, which then fails alone.
    for (int turn = 0; turn < 100; ++turn) {
        const auto cancellation = std::make_shared<CCancellation>();
        const CCancellableCalls scope(cancellation);
        std::thread other([&] {
            ::poll(nullptr, 0, 20);
            cancellation->Cancel();
        });
        const auto error = Failure<apigen::InterruptedError>([&] { Ask(packages, text); });
        other.join();
        ASSERT_TRUE(error);
        if (error->IsConnectionLost()) break;
    }
    ExpectLost(packages);
}

}  // namespace
}  // namespace reliability
