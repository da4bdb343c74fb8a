// SPDX-License-Identifier: Apache-2.0
// How a stream ends, what that tells, and its iteration and moves.
#include <apigen/ApiException.h>

#include <signal.h>
#include <sys/wait.h>

#include <future>
#include <optional>
#include <thread>

#include "tests/events/Sockets.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::HasSubstr;

class EventStreamEnd : public testing::Test {
protected:
    CTemporaryFolder m_folder;
    const std::string m_path = m_folder.Path() + "/events.sock";

    /// How the next read fails.
    template <class E>
    static std::string Failure(CEventsStream& stream, bool isLost = true) {
        try {
            stream.Read();
            ADD_FAILURE() << "an event was read";
        } catch (const E& error) {
            EXPECT_EQ(typeid(error), typeid(E)) << error.what();
            EXPECT_EQ(error.IsConnectionLost(), isLost) << error.what();
            return error.what();
        } catch (const std::exception& error) {
            ADD_FAILURE() << typeid(error).name() << ": " << error.what();
        }
        return {};
    }
};

/// An event source in a process of its own, which is killed at the latest with this object.
class CSourceProcess {
public:
    explicit CSourceProcess(const std::string& path) {
        int ends[2];
        if (::pipe(ends) != 0) throw std::runtime_error("pipe");
        m_pid = ::fork();
        if (m_pid == 0) {
            ::alarm(60);
            const CRawServer server(path);
            (void)!::write(ends[1], "x", 1);
            const CSocket first = server.Accept();
            first.Send(EventFrame(1));
            for (;;)
                ::pause();
        }
        char ready = 0;
        (void)!::read(ends[0], &ready, 1);
        ::close(ends[0]);
        ::close(ends[1]);
    }
    CSourceProcess(const CSourceProcess&) = delete;
    CSourceProcess& operator=(const CSourceProcess&) = delete;
    ~CSourceProcess() {
        if (m_pid > 0) Die(SIGKILL);
    }

    void Die(int signal) {
        ::kill(m_pid, signal);
        ::waitpid(std::exchange(m_pid, -1), nullptr, 0);
    }

private:
    pid_t m_pid = -1;
};

TEST_F(EventStreamEnd, ByAnAgentThatDiesIsNotTakenForOneByAnAgentThatLives) {
    CSourceProcess source(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    EXPECT_EQ(stream.Read().Id, 1U);
    // Nobody collects it before the end is seen: a dead process that waits for that is no live one.
    source.Die(SIGKILL);
    EXPECT_THAT(Failure<apigen::PeerGoneError>(stream), HasSubstr(m_path));
    EXPECT_THAT(Failure<apigen::PeerGoneError>(stream), HasSubstr(m_path));
}

TEST_F(EventStreamEnd, ByAnAgentThatLivesAndPublishesOnTellsThatEventsAreLost) {
    const CRawServer server(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    server.Accept();
    EXPECT_THAT(Failure<EventsLostError>(stream), HasSubstr(m_path));
    EXPECT_THAT(Failure<EventsLostError>(stream), HasSubstr("falls behind"));
}

TEST_F(EventStreamEnd, InTheMiddleOfAnEventTellsTheSame) {
    const CRawServer server(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    {
        const CSocket peer = server.Accept();
        EXPECT_EQ(peer.Receive(), OpeningWord);
        peer.Send(EventFrame(1).substr(0, 20));
    }
    EXPECT_THAT(Failure<EventsLostError>(stream), HasSubstr("middle of a message"));
}

TEST_F(EventStreamEnd, ByASourceThatEndsInALivingAgentIsNoLossOfEvents) {
    CEventsStream stream = [&] {
        const CRawServer server(m_path);
        CEventsStream connected(ConfigFor(m_path), nullptr);
        server.Accept();
        std::filesystem::remove(m_path);
        return connected;
    }();
    Failure<apigen::PeerGoneError>(stream);
}

TEST_F(EventStreamEnd, ByASourceWhosePlaceAnotherHasTakenIsNoLossOfEvents) {
    std::optional<CRawServer> server(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    server->Accept();
    std::filesystem::rename(m_path, m_path + "-before");  // so that the number of the file is not used again
    server.emplace(m_path);
    Failure<apigen::PeerGoneError>(stream);
}

TEST_F(EventStreamEnd, IsNotReachedByAMessageThatIsNoEvent) {
    const CRawServer server(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    const CSocket peer = server.Accept();
    peer.Send(Frame("<Data>") + EventFrame(2));
    EXPECT_THAT(Failure<apigen::BrokenMessageError>(stream, false), HasSubstr(m_path));
    EXPECT_EQ(stream.Read().Id, 2U);
    peer.Send(std::string(4, '\xff'));
    EXPECT_THAT(Failure<apigen::BrokenMessageError>(stream), HasSubstr(m_path));
}

TEST_F(EventStreamEnd, ByStopEndsALoop) {
    const CRawServer server(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    const CSocket peer = server.Accept();
    peer.Send(EventFrame(1) + EventFrame(2) + EventFrame(3));
    std::vector<unsigned long> ids;
    std::thread other;
    for (const SBaseEvent& event : stream) {
        ids.push_back(event.Id);
        if (ids.size() == 3) other = std::thread([&] { stream.Stop(); });
    }
    other.join();
    EXPECT_THAT(ids, testing::ElementsAre(1U, 2U, 3U));
    EXPECT_EQ(stream.begin(), stream.end()) << "a stopped stream has nothing more";
}

TEST_F(EventStreamEnd, ByTheAgentIsThrownOutOfALoop) {
    CSourceProcess source(m_path);
    CEventsStream stream(ConfigFor(m_path), nullptr);
    unsigned long last = 0;
    EXPECT_THROW(
        {
            for (const auto& event : stream) {
                last = event.Id;
                source.Die(SIGKILL);
            }
        },
        apigen::PeerGoneError);
    EXPECT_EQ(last, 1U);
}

TEST_F(EventStreamEnd, OfAStreamThatMovedIsBroughtAboutByWhoKnewItBefore) {
    const CRawServer server(m_path);
    CEventsStream before(ConfigFor(m_path), nullptr);
    const CSocket peer = server.Accept();
    const int descriptor = before.Descriptor();
    std::promise<void> isMoved;
    std::thread other([&, moved = isMoved.get_future()] {
        moved.wait();
        before.Stop();
    });
    CEventsStream after(std::move(before));
    EXPECT_EQ(after.Descriptor(), descriptor);
    EXPECT_EQ(before.Descriptor(), -1);  // NOLINT: on purpose
    EXPECT_THROW(before.Read(), apigen::ApiInternalError);
    peer.Send(EventFrame(1));
    EXPECT_EQ(after.Read().Id, 1U);
    isMoved.set_value();
    Failure<apigen::InterruptedError>(after, false);
    EXPECT_TRUE(after.IsStopped());
    EXPECT_TRUE(before.IsStopped());
    other.join();
}

TEST_F(EventStreamEnd, OfTheStreamThatIsAssignedToComesWithTheAssignment) {
    const CRawServer server(m_path);
    CEventsStream first(ConfigFor(m_path), nullptr);
    const CSocket firstPeer = server.Accept();
    CEventsStream second(ConfigFor(m_path), nullptr);
    const CSocket secondPeer = server.Accept();
    EXPECT_EQ(firstPeer.Receive(), OpeningWord);
    first = std::move(second);
    EXPECT_EQ(firstPeer.Receive(), "") << "its connection is closed";
    secondPeer.Send(EventFrame(7));
    EXPECT_EQ(first.Read().Id, 7U);
    auto& same = first;
    first = std::move(same);
    secondPeer.Send(EventFrame(8));
    EXPECT_EQ(first.Read().Id, 8U);
}

}  // namespace
}  // namespace tests
