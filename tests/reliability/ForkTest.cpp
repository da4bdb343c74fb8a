// SPDX-License-Identifier: Apache-2.0
// Copies of a process that is connected: what the copy does to its objects is nothing to the original.
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

/// The result of `check` in a copy of this process, which then ends as `end` says; -1 when it hung or died.
template <class Check>
int InACopy(Check&& check, void (*end)(int)) {
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(20);
        end(check());
    }
    int status = -1;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void EndAtOnce(int result) {
    ::_exit(result);
}
void EndWithDestructors(int result) {
    std::exit(result);  // NOLINT(concurrency-mt-unsafe): that is the point
}

/// What a program keeps until its end.
struct SKept {
    Packages Object;
    std::unique_ptr<zamclientlib::CEventsStream> Stream;
};
SKept& Kept() {
    static SKept kept;
    return kept;
}

class ForkedCopy : public CReliabilityTest {
protected:
    ~ForkedCopy() override { Kept() = {}; }

    /// What the tool has seen so far.
    std::size_t Seen() const { return zamtest::LinesOf(m_folder.Path("record")).size(); }

    Arguments Echo() const { return {"answer=echo", "record=" + m_folder.Path("record")}; }

    static void ExpectUsable(zamclientlib::IPackageManager& packages, const std::string& after) {
        for (const std::string text : {"a", "b"}) {
            const SOutcome outcome =
                OutcomeOf([&] { EXPECT_EQ(packages.GetPackageNameFromFile(text), text); });
            EXPECT_EQ(outcome.Kind, EOutcome::Success) << after << ": " << outcome;
        }
    }
};

TEST_F(ForkedCopy, MayDropItsObjectsWithoutTheOriginalNoticing) {
    Packages packages = ConnectPackages(Echo());
    EXPECT_EQ(packages->GetPackageNameFromFile("before"), "before");
    const std::size_t seen = Seen();
    EXPECT_EQ(InACopy(
                  [&] {
                      packages.reset();
                      return 0;
                  },
                  &EndAtOnce),
              0);
    ExpectUsable(*packages, "a copy that dropped its objects");
    EXPECT_EQ(Seen(), seen + 2) << "the tool heard of the copy";
}

TEST_F(ForkedCopy, MayExitWithItsStaticObjectsWithoutTheOriginalNoticing) {
    Kept().Object = ConnectPackages(Echo());
    EXPECT_EQ(Kept().Object->GetPackageNameFromFile("before"), "before");
    const std::size_t seen = Seen();
    EXPECT_EQ(InACopy([] { return 0; }, &EndWithDestructors), 0);
    ExpectUsable(*Kept().Object, "a copy that exited");
    EXPECT_EQ(Seen(), seen + 2) << "the tool heard of the copy";
}

TEST_F(ForkedCopy, IsRefusedCallsAtOnceAndTheOriginalGoesOn) {
    const Packages packages = ConnectPackages(Echo());
    EXPECT_EQ(packages->GetPackageNameFromFile("before"), "before");
    const std::size_t seen = Seen();
    EXPECT_EQ(InACopy(
                  [&] {
                      for (int i = 0; i < 3; ++i) {
                          const SOutcome outcome =
                              OutcomeOf([&] { packages->GetPackageNameFromFile("in the copy"); });
                          if (outcome.Kind < EOutcome::Launch || outcome.Kind > EOutcome::Refused) return 2;
                          if (outcome.Took > 2s) return 3;
                      }
                      return 0;
                  },
                  &EndAtOnce),
              0);
    ExpectUsable(*packages, "a copy that tried to call");
    EXPECT_EQ(Seen(), seen + 2) << "the tool heard of the copy";
}

TEST_F(ForkedCopy, OfAProcessInMidCallNeitherHangsNorDisturbs) {
    const Packages packages = ConnectPackages({"answer=echo"});
    std::atomic<bool> isOver = false;
    std::thread caller([&] {
        for (int i = 0; !isOver; ++i) {
            const SOutcome outcome = OutcomeOf(
                [&] { EXPECT_EQ(packages->GetPackageNameFromFile(std::to_string(i)), std::to_string(i)); });
            EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
        }
    });
    // Without a sanitizer, whose own locks another thread may hold.
    for (int round = 0; round < (IsSanitized ? 0 : FullOr(200, 20)) && !HasFailure(); ++round) {
        EXPECT_EQ(
            InACopy(
                [copy = packages]() mutable {
                    const SOutcome outcome = OutcomeOf([&] { copy->GetPackageNameFromFile("in the copy"); });
                    copy.reset();
                    return outcome.Kind >= EOutcome::Launch && outcome.Kind <= EOutcome::Refused ? 0 : 2;
                },
                &EndAtOnce),
            0);
    }
    isOver = true;
    caller.join();
}

TEST_F(ForkedCopy, MayConnectAnew) {
    const Packages packages = ConnectPackages({"answer=echo"});
    EXPECT_EQ(InACopy(
                  [&] {
                      const Packages own = ConnectPackages({"answer=echo"});
                      return own->GetPackageNameFromFile("own") == "own" ? 0 : 2;
                  },
                  &EndAtOnce),
              0);
    ExpectUsable(*packages, "a copy that connected anew");
}

TEST_F(ForkedCopy, ThatLivesOnDoesNotKeepTheOriginalFromClosing) {
    Packages packages = ConnectPackages({"answer=echo"});
    std::fflush(nullptr);
    const pid_t copy = ::fork();
    if (copy == 0) {
        ::alarm(60);
        for (;;)
            ::pause();
    }
    const auto start = Clock::now();
    packages.reset();
    EXPECT_LT(Clock::now() - start, 5s);
    ::kill(copy, SIGKILL);
    EXPECT_EQ(::waitpid(copy, nullptr, 0), copy);
}

TEST_F(ForkedCopy, MayDropOrExitWithAnEventStreamWithoutTheOriginalNoticing) {
    const std::string path = m_folder.Path("socket");
    const tests::CRawServer server(path);
    Kept().Stream = std::make_unique<zamclientlib::CEventsStream>(tests::ConfigFor(path), nullptr);
    auto& stream = *Kept().Stream;
    const tests::CSocket socket = server.Accept();
    socket.Send(tests::EventFrame(1));
    EXPECT_EQ(stream.Read().Id, 1U);
    EXPECT_EQ(InACopy(
                  [] {
                      Kept().Stream.reset();
                      return 0;
                  },
                  &EndAtOnce),
              0);
    socket.Send(tests::EventFrame(2));
    EXPECT_EQ(stream.Read().Id, 2U);
    EXPECT_EQ(InACopy([] { return 0; }, &EndWithDestructors), 0);
    socket.Send(tests::EventFrame(3) + tests::EventFrame(4));
    EXPECT_EQ(stream.Read().Id, 3U);
    EXPECT_EQ(stream.Read().Id, 4U);
}

TEST_F(ForkedCopy, IsRefusedTheEventsAndStoppingThereStopsNothingHere) {
    const std::string path = m_folder.Path("socket");
    const tests::CRawServer server(path);
    zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
    const tests::CSocket socket = server.Accept();
    socket.Send(tests::EventFrame(1));
    EXPECT_EQ(InACopy(
                  [&] {
                      const SOutcome outcome = OutcomeOf([&] { stream.ReadUntil(Clock::now() + 1s); });
                      stream.Stop();
                      return outcome.Kind >= EOutcome::Launch && outcome.Kind <= EOutcome::Refused ? 0 : 2;
                  },
                  &EndAtOnce),
              0);
    EXPECT_FALSE(stream.IsStopped());
    const SOutcome outcome = OutcomeOf([&] {
        const auto event = stream.ReadUntil(Clock::now() + 5s);
        ASSERT_TRUE(event) << "the copy took it";
        EXPECT_EQ(event->Id, 1U);
    });
    EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
}

TEST_F(ForkedCopy, ReleasesAStaticObjectOfItsOwnAtExit) {
    const std::string record = m_folder.Path("record");
    EXPECT_EQ(InACopy(
                  [&] {
                      // Made before anything of the library that it could outlive.
                      static Packages kept;
                      kept = ConnectPackages({"answer=echo", "record=" + record});
                      return kept->GetPackageNameFromFile("a") == "a" ? 0 : 2;
                  },
                  &EndWithDestructors),
              0);
    EXPECT_TRUE(Eventually([&] {
        const auto lines = zamtest::LinesOf(record);
        return !lines.empty() && lines.back() == "end";
    })) << "the tool was not told the end";
}

}  // namespace
}  // namespace reliability
