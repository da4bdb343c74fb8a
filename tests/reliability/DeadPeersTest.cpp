// SPDX-License-Identifier: Apache-2.0
// Tools and event sources that end, or stall, at every byte of what they send and take.
#include <signal.h>

#include <atomic>
#include <thread>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

constexpr std::size_t LargeText = 300 * 1024;
const std::size_t LargeAnswer = LargeText + std::string("<Data><__result></__result></Data>").size();

std::string Text(std::size_t number) {
    return std::to_string(number);
}

class DeadPeers : public CReliabilityTest {
protected:
    /// A tool that ends `how` after `at` bytes of output: what the client gets is a typed error at once, or
    /// everything. `call` is right when the answer is.
    template <class Call>
    void EndAfterOutput(const std::string& how, std::size_t at, const Arguments& answer,
                        std::size_t answerBytes, Call&& call) {
        Arguments arguments = answer;
        arguments.insert(arguments.end(), {"out=" + Text(at), "then=" + how});
        const std::size_t greetingEnd = HeaderBytes + Greeting.size();
        Packages packages;
        const SOutcome connecting = OutcomeOf([&] { packages = ConnectPackages(arguments); });
        if (at < greetingEnd) {
            EXPECT_EQ(connecting.Kind, EOutcome::Gone) << connecting;
            EXPECT_LT(connecting.Took, 5s);
        } else {
            EXPECT_EQ(connecting.Kind, EOutcome::Success) << connecting;
        }
        if (packages != nullptr) {
            const SOutcome calling = OutcomeOf([&] { call(*packages); });
            const bool isWhole = at >= greetingEnd + HeaderBytes + answerBytes;
            EXPECT_EQ(calling.Kind, isWhole ? EOutcome::Success : EOutcome::Gone) << calling;
            EXPECT_LT(calling.Took, 5s);
            ExpectClosedForGood(*packages);
        }
        packages.reset();
        ExpectNothingLeft(how + " after " + Text(at) + " bytes of output");
    }

    static void ExpectClosedForGood(zamclientlib::IPackageManager& packages) {
        const SOutcome later = OutcomeOf([&] { packages.GetPackageNameFromFile("x"); });
        EXPECT_EQ(later.Kind, EOutcome::Gone) << later;
        EXPECT_LT(later.Took, 2s);
    }

    /// Likewise after bytes of input, until an offset lies behind the request of `call`.
    template <class Call>
    void EndAfterInput(const std::string& how, const std::vector<std::size_t>& offsets, Call&& call) {
        bool isBehind = false;
        for (const std::size_t at : offsets) {
            Packages packages;
            const SOutcome connecting = OutcomeOf([&] {
                packages = ConnectPackages({"in=" + Text(at), "then=" + how});
            });
            ASSERT_EQ(connecting.Kind, EOutcome::Success) << at << ": " << connecting;
            const SOutcome calling = OutcomeOf([&] { call(*packages); });
            EXPECT_TRUE(calling.Kind == EOutcome::Gone || calling.Kind == EOutcome::Success)
                << at << ": " << calling;
            EXPECT_LT(calling.Took, 5s);
            if (calling.Kind == EOutcome::Gone) ExpectClosedForGood(*packages);
            isBehind = calling.Kind == EOutcome::Success;
            packages.reset();
            if (!ExpectNothingLeft(how + " after " + Text(at) + " bytes of input")) return;
        }
        EXPECT_TRUE(isBehind) << "the last offset lies in the request";
    }
};

void ExpectTrueText(const zamclientlib::IPackageManager& packages) {
    EXPECT_EQ(packages.GetPackageNameFromFile("a"), "true");
}

TEST_F(DeadPeers, ThatExitAtAnyByteOfGreetingAndAnswerCostAClientATypedErrorAndNothingElse) {
    const std::size_t all = 2 * HeaderBytes + Greeting.size() + TrueAnswer.size();
    for (std::size_t at = 0; at <= all && !HasFailure(); ++at)
        EndAfterOutput("exit", at, {}, TrueAnswer.size(), ExpectTrueText);
}

TEST_F(DeadPeers, ThatAreKilledAtAnyByteOfGreetingAndAnswerCostAClientATypedErrorAndNothingElse) {
    const std::size_t all = 2 * HeaderBytes + Greeting.size() + TrueAnswer.size();
    for (std::size_t at = 0; at <= all && !HasFailure(); ++at)
        EndAfterOutput("kill", at, {}, TrueAnswer.size(), ExpectTrueText);
}

TEST_F(DeadPeers, ThatHangUpAtAnyByteAndStayAreGivenUpAllTheSame) {
    const std::size_t all = 2 * HeaderBytes + Greeting.size() + TrueAnswer.size();
    for (std::size_t at = 0; at <= all && !HasFailure(); at += FullOr(1U, 7U))
        EndAfterOutput("hang-up", at, {}, TrueAnswer.size(), ExpectTrueText);
}

TEST_F(DeadPeers, ThatEndInALargeAnswerCostAClientATypedErrorAndNothingElse) {
    const std::string expected = TextOfSize(LargeText);
    const std::size_t ahead = 2 * HeaderBytes + Greeting.size();
    std::size_t turn = 0;
    for (const std::size_t at : Offsets(LargeAnswer, 9973)) {
        EndAfterOutput(
            ++turn % 2 == 0 ? "exit" : "kill", ahead + at, {"answer-size=" + Text(LargeText)}, LargeAnswer,
            [&](const auto& packages) { EXPECT_TRUE(packages.GetPackageNameFromFile("a") == expected); });
        if (HasFailure()) return;
    }
}

TEST_F(DeadPeers, ThatEndInASmallRequestCostAClientATypedErrorAndNothingElse) {
    // A request of some 120 bytes, and the release behind it.
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at < 200; ++at)
        offsets.push_back(at);
    EndAfterInput("exit", offsets, ExpectTrueText);
    EndAfterInput("kill", offsets, ExpectTrueText);
}

TEST_F(DeadPeers, ThatEndInALargeRequestCostAClientATypedErrorAndNothingElse) {
    const std::string argument = TextOfSize(LargeText);
    std::vector<std::size_t> offsets = Offsets(LargeText, 9973);
    offsets.push_back(LargeText + 150);  // the request is over by then
    EndAfterInput("kill", offsets, [&](const auto& packages) {
        EXPECT_EQ(packages.GetPackageNameFromFile(argument), "true");
    });
}

TEST_F(DeadPeers, ThatAreKilledFromOutsideDuringCallsCostAClientATypedErrorAndNothingElse) {
    for (int round = 0; round < FullOr(300, 30) && !HasFailure(); ++round) {
        const std::string record = m_folder.Path("record" + std::to_string(round));
        Packages packages = ConnectPackages({"answer=echo", "record=" + record});
        const auto lines = zamtest::LinesOf(record);
        ASSERT_FALSE(lines.empty());
        const pid_t pid = std::atoi(lines[0].c_str() + 4);
        std::thread killer([&] {
            ::poll(nullptr, 0, round % 5);
            ::kill(pid, SIGKILL);
        });
        const SOutcome outcome = OutcomeOf([&] {
            for (int i = 0;; ++i)
                EXPECT_EQ(packages->GetPackageNameFromFile(std::to_string(i)), std::to_string(i));
        });
        killer.join();
        EXPECT_EQ(outcome.Kind, EOutcome::Gone) << outcome;
        EXPECT_LT(outcome.Took, 5s);
        ExpectClosedForGood(*packages);
        packages.reset();
        ExpectNothingLeft("round " + std::to_string(round));
    }
}

/// Wants nothing of a caller but to look at the connection once more.
TEST_F(DeadPeers, LeaveNoZombieToACallerWhoKeepsItsObjects) {
    const Packages packages = ConnectPackages({"out=50", "then=kill"});
    EXPECT_EQ(OutcomeOf([&] { ExpectTrueText(*packages); }).Kind, EOutcome::Gone);
    EXPECT_TRUE(Eventually(
        [&] {
            ExpectClosedForGood(*packages);
            return !HasZombie();
        },
        5s));
}

TEST_F(DeadPeers, ThatIgnoreEverythingAreKilledAtTheEnd) {
    Packages packages = ConnectPackages({"deaf=1", "answer=echo"});
    EXPECT_EQ(packages->GetPackageNameFromFile("a"), "a");
    const auto start = Clock::now();
    packages.reset();
    EXPECT_LT(Clock::now() - start, 8s);
    EXPECT_FALSE(HasChild());
}

// --- Stalling ---

class StalledPeers : public CReliabilityTest {
protected:
    /// Every tool of `peers` stalls somewhere; each one's client has to get its time-out in time.
    static void ExpectTimeouts(const std::vector<Arguments>& peers, const std::string& argument) {
        std::vector<std::thread> clients;
        for (const Arguments& arguments : peers) {
            clients.emplace_back([&arguments, &argument] {
                Packages packages;
                SOutcome outcome = OutcomeOf([&] { packages = ConnectPackages(arguments, 1s); });
                if (packages != nullptr)
                    outcome = OutcomeOf([&] { packages->GetPackageNameFromFile(argument); });
                EXPECT_EQ(outcome.Kind, EOutcome::Timeout) << testing::PrintToString(arguments) << outcome;
                EXPECT_GE(outcome.Took, 990ms);
                EXPECT_LT(outcome.Took, 5s);
                if (packages == nullptr) return;
                const SOutcome later = OutcomeOf([&] { packages->GetPackageNameFromFile("x"); });
                EXPECT_EQ(later.Kind, EOutcome::Gone) << later;
                EXPECT_LT(later.Took, 500ms);
            });
        }
        for (std::thread& client : clients)
            client.join();
    }
};

TEST_F(StalledPeers, AtAByteOfGreetingOrAnswerAreGivenUpInTime) {
    const std::size_t all = 2 * HeaderBytes + Greeting.size() + TrueAnswer.size();
    std::vector<Arguments> peers;
    for (std::size_t at = 0; at < all; at += FullOr(1U, 6U))
        peers.push_back({"out=" + Text(at), "then=stall"});
    for (const std::size_t at : {65536U, 100'000U, 300'000U})
        peers.push_back({"answer-size=" + Text(LargeText), "out=" + Text(at), "then=stall"});
    ExpectTimeouts(peers, "a");
}

TEST_F(StalledPeers, AtAByteOfARequestAreGivenUpInTime) {
    std::vector<Arguments> peers;
    for (const std::size_t at : {0U, 1U, 3U, 4U, 5U, 4096U, 65535U, 65536U, 65537U, 200'000U})
        peers.push_back({"in=" + Text(at), "then=stall"});
    ExpectTimeouts(peers, TextOfSize(LargeText));
}

TEST_F(StalledPeers, ThatTrickleDoNotOutlastTheTimeLimit) {
    Packages packages;
    const SOutcome outcome = OutcomeOf([&] {
        packages = ConnectPackages({"answer-size=30000000", "piece=1"}, 1s);
        packages->GetPackageNameFromFile("a");
    });
    EXPECT_EQ(outcome.Kind, EOutcome::Timeout) << outcome;
    EXPECT_LT(outcome.Took, 5s);
}

// --- Short reads and writes ---

class ShortPieces : public CReliabilityTest {};

TEST_F(ShortPieces, OfAnySizeMakeUpTheSameAnswers) {
    for (std::size_t piece = 1; piece <= HeaderBytes + Greeting.size() && !HasFailure(); ++piece) {
        Packages packages = ConnectPackages({"piece=" + Text(piece), "answer=echo"});
        for (const char* const text : {"a", "", "a longer text than the pieces are", "b"})
            EXPECT_EQ(packages->GetPackageNameFromFile(text), text) << piece;
        packages.reset();
        ExpectNothingLeft("pieces of " + Text(piece));
    }
}

TEST_F(ShortPieces, OfAnySizeMakeUpTheSameRequests) {
    for (std::size_t piece = 1; piece <= 130 && !HasFailure(); piece += FullOr(1U, 3U)) {
        Packages packages = ConnectPackages({"read-piece=" + Text(piece), "answer=echo"});
        for (const char* const text : {"a", "", "a longer text than the pieces are", "b"})
            EXPECT_EQ(packages->GetPackageNameFromFile(text), text) << piece;
        packages.reset();
        ExpectNothingLeft("pieces of " + Text(piece));
    }
}

TEST_F(ShortPieces, MakeUpLargeMessages) {
    const std::string text = TextOfSize(LargeText);
    std::vector<std::size_t> pieces{61, 1000, 4095, 4096, 4097, 65535, 65536, 65537, 131072, 200'000};
    if (IsFull()) pieces.insert(pieces.begin(), {1, 2, 3, 5, 7, 16, 17});
    for (const std::size_t piece : pieces) {
        const Packages packages =
            ConnectPackages({"piece=" + Text(piece), "read-piece=" + Text(piece), "answer=echo"}, 60s);
        EXPECT_TRUE(packages->GetPackageNameFromFile(text) == text) << piece;
        EXPECT_EQ(packages->GetPackageNameFromFile("after"), "after") << piece;
    }
}

// --- Event sources ---

zamclientlib::SBaseEvent LargeEvent(unsigned long id) {
    auto event = tests::NumberedEvent(id);
    event.eventBackupJobCreated->Username = TextOfSize(LargeText);
    return event;
}

class EventSources : public CReliabilityTest {
protected:
    EventSources() : m_path(m_folder.Path("socket")) {}

    /// Of a process that is gone: a reader would wait a while for the end of one that lives.
    tests::CRawServer Server() const {
        return tests::CRawServer(m_path, 8, tests::CRawServer::EProcess::IsGone);
    }

    /// Calls `check` with a stream and the server's end of it, which has read the opening word.
    template <class Check>
    void WithStream(Check&& check) {
        const tests::CRawServer server = Server();
        zamclientlib::CEventsStream stream(tests::ConfigFor(m_path), nullptr);
        tests::CSocket socket = server.Accept();
        EXPECT_EQ(socket.Receive(4), tests::OpeningWord);
        check(stream, socket);
        std::filesystem::remove(m_path);
    }

    std::string m_path;
};

TEST_F(EventSources, ThatEndAtAnyByteOfAnEventCostAReaderATypedErrorAndNothingElse) {
    for (const bool isLarge : {false, true}) {
        const auto event = isLarge ? LargeEvent(2) : tests::NumberedEvent(2);
        const std::string frames = tests::EventFrame(1) + tests::EventFrame(event);
        const std::size_t first = tests::EventFrame(1).size();
        for (const std::size_t at : Offsets(frames.size(), 9973)) {
            WithStream([&](auto& stream, auto& socket) {
                std::thread sender([&] {
                    socket.Send(frames.substr(0, at));
                    socket.Close();
                });
                std::vector<unsigned long> ids;
                const SOutcome outcome = OutcomeOf([&] {
                    for (;;)
                        ids.push_back(stream.Read().Id);
                });
                sender.join();
                EXPECT_EQ(outcome.Kind, EOutcome::Gone) << at << ": " << outcome;
                EXPECT_EQ(ids.size(), at < first ? 0U : at < frames.size() ? 1U : 2U) << at;
                EXPECT_EQ(OutcomeOf([&] { stream.Read(); }).Kind, EOutcome::Gone);
            });
            if (!ExpectNothingLeft("byte " + Text(at))) return;
        }
    }
}

TEST_F(EventSources, ThatEndBeforeTheyTakeTheOpeningWordCostAReaderATypedError) {
    for (int round = 0; round < 20; ++round) {
        const tests::CRawServer server = Server();
        zamclientlib::CEventsStream stream(tests::ConfigFor(m_path), nullptr);
        server.Accept().Close();  // with input unread: the reader's end is reset
        const SOutcome outcome = OutcomeOf([&] { stream.Read(); });
        EXPECT_EQ(outcome.Kind, EOutcome::Gone) << outcome;
        std::filesystem::remove(m_path);
    }
}

TEST_F(EventSources, ThatStallAtAnyByteLoseNothingOfTheEvent) {
    for (const bool isLarge : {false, true}) {
        const auto event = isLarge ? LargeEvent(7) : tests::NumberedEvent(7);
        const std::string frame = tests::EventFrame(event);
        for (const std::size_t at : Offsets(frame.size() - 1, 19997)) {
            WithStream([&](auto& stream, auto& socket) {
                std::atomic<bool> mayGoOn = false;
                std::thread sender([&] {
                    socket.Send(frame.substr(0, at));
                    Eventually([&] { return mayGoOn.load(); });
                    socket.Send(frame.substr(at));
                });
                // Often enough that some of it meets the middle of the message.
                for (int i = 0; i < 3; ++i)
                    EXPECT_FALSE(stream.ReadUntil(Clock::now() + std::chrono::microseconds(200 * i)));
                mayGoOn = true;
                EXPECT_TRUE(stream.Read() == event) << at;
                sender.join();
            });
            if (!ExpectNothingLeft("byte " + Text(at))) return;
        }
    }
}

TEST_F(EventSources, ThatSendPiecesOfAnySizeDeliverTheSameEvents) {
    const std::string frames = tests::EventFrame(1) + tests::EventFrame(2) + tests::EventFrame(3);
    for (std::size_t piece = 1; piece <= frames.size(); piece += FullOr(1U, 5U)) {
        WithStream([&](auto& stream, auto& socket) {
            std::thread sender([&] {
                for (std::size_t at = 0; at < frames.size(); at += piece)
                    socket.Send(frames.substr(at, piece));
            });
            for (unsigned long id = 1; id <= 3; ++id)
                EXPECT_EQ(stream.Read().Id, id) << piece;
            sender.join();
        });
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace reliability
