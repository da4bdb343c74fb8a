// SPDX-License-Identifier: Apache-2.0
// The service's end of the events: who gets them, and what becomes of subscribers that misbehave.
#include <apigen/ApiException.h>
#include <zamservice/EventSource.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "tests/api/OwnProcess.h"
#include "tests/events/Sockets.h"

namespace tests {
namespace {

using zamclientlib::CEventsStream;
using zamservice::CEventSource;
using zamservice::SEventSourceOptions;

constexpr uid_t Nobody = 65534;

class EventSource : public testing::Test {
protected:
    CTemporaryFolder m_folder;

    void Make(const SEventSourceOptions& options = {}) {
        m_source.reset();
        m_source = std::make_unique<CEventSource>(m_folder.Path(), "events.sock", options);
    }

    bool IsClosed(const CSocket& socket) const { return socket.Receive().empty(); }

    std::unique_ptr<CEventSource> m_source;
};

/// A source that takes what comes.
class ReadyEventSource : public EventSource {
protected:
    ReadyEventSource() { Make(); }
};

TEST_F(ReadyEventSource, SendsEveryEventToEverySubscriberInOrder) {
    m_source->Publish(NumberedEvent(0));  // nobody is there
    CEventsStream first(m_source->Config(), nullptr);
    CEventsStream second(m_source->Config(), nullptr);
    for (unsigned long id = 1; id <= 50; ++id) {
        m_source->Publish(NumberedEvent(id));
    }
    EXPECT_EQ(m_source->SubscriberCount(), 2U);
    for (unsigned long id = 1; id <= 50; ++id) {
        ASSERT_EQ(first.Read(), NumberedEvent(id));
        ASSERT_EQ(second.Read(), NumberedEvent(id));
    }
}

TEST_F(ReadyEventSource, MissesNoEventForASubscriberThatConnectedBeforeIt) {
    for (unsigned long id = 1; id <= 200; ++id) {
        CEventsStream stream(m_source->Config(), nullptr);
        m_source->Publish(NumberedEvent(id));
        ASSERT_EQ(stream.Read().Id, id);
    }
}

TEST_F(ReadyEventSource, SendsTheExactFrames) {
    const CSocket client = Connected(m_source->SocketPath());
    m_source->Publish(NumberedEvent(1));
    EXPECT_EQ(client.Receive(), EventFrame(1));
}

TEST_F(ReadyEventSource, TakesTheOpeningWordInPieces) {
    const CSocket client = Connected(m_source->SocketPath(), "");
    for (int i = 0; i < 3; ++i) {
        client.Send({'\0'});
        EXPECT_EQ(m_source->SubscriberCount(), 0U);
    }
    client.Send({'\0'});
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
}

TEST_F(ReadyEventSource, ClosesConnectionsThatSendAnythingElse) {
    using namespace std::string_literals;
    for (const auto& opening : {"\1\0\0\0"s, "\0\0\0\1"s, "GET / HTTP/1.1\r\n"s, "\0\0\0\0\0"s, "\0\0x"s}) {
        EXPECT_TRUE(IsClosed(Connected(m_source->SocketPath(), opening)));
    }
    const CSocket talkative = Connected(m_source->SocketPath());
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
    talkative.Send("more");
    EXPECT_TRUE(IsClosed(talkative));
    EXPECT_EQ(m_source->SubscriberCount(), 0U);
}

TEST_F(ReadyEventSource, ServesAClientThatHasClosedItsOwnDirection) {
    const CSocket client = Connected(m_source->SocketPath());
    ASSERT_EQ(::shutdown(client.Fd(), SHUT_WR), 0);
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
    m_source->Publish(NumberedEvent(1));
    EXPECT_EQ(client.Receive(), EventFrame(1));
}

TEST_F(ReadyEventSource, ForgetsSubscribersThatLeave) {
    {
        CEventsStream stream(m_source->Config(), nullptr);
        EXPECT_EQ(m_source->SubscriberCount(), 1U);
    }
    EXPECT_TRUE(Eventually([this] { return m_source->SubscriberCount() == 0; }));
    m_source->Publish(NumberedEvent(1));
}

TEST_F(EventSource, ClosesAConnectionThatTakesTooLongToOpen) {
    SEventSourceOptions options;
    options.OpeningLimit = 20ms;
    Make(options);
    const CSocket mute = Connected(m_source->SocketPath(), "");
    const CSocket half = Connected(m_source->SocketPath(), std::string(2, '\0'));
    const CSocket good = Connected(m_source->SocketPath());
    EXPECT_TRUE(IsClosed(mute));
    EXPECT_TRUE(IsClosed(half));
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
}

TEST_F(EventSource, ClosesALateConnectionThatAnotherThreadAccepted) {
    SEventSourceOptions options;
    options.OpeningLimit = 1ms;
    Make(options);
    for (int round = 0; round < 200; ++round) {
        const CSocket mute = Connected(m_source->SocketPath(), "");
        // Often quicker than the source's own thread, which sleeps on then.
        EXPECT_EQ(m_source->SubscriberCount(), 0U);
        ASSERT_TRUE(IsClosed(mute)) << round;
    }
}

TEST_F(EventSource, TakesTheLongestTimesForNoLimit) {
    constexpr auto Count = 2000UL;
    SEventSourceOptions options;
    options.OpeningLimit = options.FlushLimit = options.StartLimit = std::chrono::milliseconds::max();
    options.MaxQueuedBytes = options.MaxSubscribers = std::numeric_limits<std::size_t>::max();
    Make(options);
    const CSocket late = Connected(m_source->SocketPath(), "");
    // Once this one is closed, the source's thread has looked for late ones as well.
    EXPECT_TRUE(IsClosed(Connected(m_source->SocketPath(), "x")));
    EXPECT_EQ(m_source->SubscriberCount(), 0U);
    late.Send(OpeningWord);
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
    const std::string frame = EventFrame(1);
    for (unsigned long i = 0; i < Count; ++i) {
        m_source->Publish(NumberedEvent(1));
    }
    std::thread stopper([this] { m_source->Stop(); });
    std::size_t received = 0;
    for (std::string bytes; !(bytes = late.Receive()).empty();) {
        received += bytes.size();
    }
    stopper.join();
    EXPECT_EQ(received, Count * frame.size());
}

TEST_F(EventSource, TakesTimesBelowZeroForZero) {
    SEventSourceOptions options;
    options.OpeningLimit = options.FlushLimit = options.StartLimit = std::chrono::milliseconds::min();
    Make(options);
    EXPECT_TRUE(IsClosed(Connected(m_source->SocketPath(), "")));
    const auto before = std::chrono::steady_clock::now();
    m_source->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, Patience);
}

TEST_F(EventSource, MayHaveNoSubscribersAtAll) {
    SEventSourceOptions options;
    options.MaxSubscribers = 0;
    options.MaxQueuedBytes = 0;
    Make(options);
    EXPECT_TRUE(IsClosed(Connected(m_source->SocketPath(), "")));
    m_source->Publish(NumberedEvent(1));
    EXPECT_EQ(m_source->SubscriberCount(), 0U);
}

TEST_F(EventSource, ClosesConnectionsBeyondItsLimit) {
    SEventSourceOptions options;
    options.MaxSubscribers = 2;
    Make(options);
    const CSocket first = Connected(m_source->SocketPath());
    const CSocket second = Connected(m_source->SocketPath());
    EXPECT_EQ(m_source->SubscriberCount(), 2U);
    EXPECT_TRUE(IsClosed(Connected(m_source->SocketPath(), "")));
}

TEST_F(EventSource, DisconnectsASlowSubscriberWhileAnotherGetsEverything) {
    SEventSourceOptions options;
    options.MaxQueuedBytes = 64 * 1024;
    Make(options);
    const CSocket slow = Connected(m_source->SocketPath());
    CEventsStream quick(m_source->Config(), nullptr);
    EXPECT_EQ(m_source->SubscriberCount(), 2U);
    unsigned long published = 0;
    while (m_source->SubscriberCount() == 2 && published < 1'000'000) {
        m_source->Publish(NumberedEvent(++published));
        ASSERT_EQ(quick.Read().Id, published);
    }
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
    EXPECT_GT(published * EventFrame(1).size(), options.MaxQueuedBytes);
    for (unsigned long more = 0; more < 100; ++more) {
        m_source->Publish(NumberedEvent(++published));
        ASSERT_EQ(quick.Read().Id, published);
    }

    // What went out before stands at the beginning; then the stream ends, instead of going on with a gap.
    std::string received;
    for (std::string bytes; !(bytes = slow.Receive()).empty();) {
        received += bytes;
    }
    std::string expected;
    for (unsigned long id = 1; expected.size() < received.size(); ++id) {
        expected += EventFrame(id);
    }
    EXPECT_EQ(received, expected.substr(0, received.size()));
}

TEST_F(EventSource, QueuesForASubscriberThatIsBusyForAWhile) {
    constexpr unsigned long Count = 100'000;
    SEventSourceOptions options;
    options.MaxQueuedBytes = 256UL * 1024 * 1024;
    Make(options);
    CEventsStream stream(m_source->Config(), nullptr);
    for (unsigned long id = 1; id <= Count; ++id) {
        m_source->Publish(NumberedEvent(id));
    }
    for (unsigned long id = 1; id <= Count; ++id) {
        ASSERT_EQ(stream.Read().Id, id);
    }
}

TEST_F(EventSource, SendsAnEventThatIsLargerThanItsQueue) {
    SEventSourceOptions options;
    options.MaxQueuedBytes = 1024;
    Make(options);
    CEventsStream stream(m_source->Config(), nullptr);
    auto large = NumberedEvent(1);
    large.eventBackupJobCreated->Username.assign(3'000'000, 'u');
    m_source->Publish(large);
    EXPECT_EQ(stream.Read(), large);
}

TEST_F(ReadyEventSource, EndsWithItsSocketGone) {
    CEventsStream stream(m_source->Config(), nullptr);
    m_source->Publish(NumberedEvent(1));
    m_source->Stop();
    m_source->Stop();
    EXPECT_FALSE(std::filesystem::exists(m_source->SocketPath()));
    m_source->Publish(NumberedEvent(2));
    EXPECT_EQ(m_source->SubscriberCount(), 0U);
    EXPECT_EQ(stream.Read().Id, 1U) << "what went out stays readable";
    EXPECT_THROW(stream.Read(), apigen::PeerGoneError);
    EXPECT_THROW(CEventsStream(m_source->Config(), nullptr), std::system_error);
}

TEST_F(EventSource, WaitsAtItsEndForSubscribersThatAreTakingWhatIsQueued) {
    constexpr unsigned long Count = 20'000;
    SEventSourceOptions options;
    options.MaxQueuedBytes = 256UL * 1024 * 1024;
    options.FlushLimit = Patience;
    Make(options);
    CEventsStream stream(m_source->Config(), nullptr);
    for (unsigned long id = 1; id <= Count; ++id) {
        m_source->Publish(NumberedEvent(id));
    }
    std::thread stopper([this] { m_source.reset(); });
    for (unsigned long id = 1; id <= Count; ++id) {
        ASSERT_EQ(stream.Read().Id, id);
    }
    stopper.join();
}

TEST_F(EventSource, WaitsAtItsEndNoLongerThanItsLimit) {
    SEventSourceOptions options;
    options.FlushLimit = 50ms;
    Make(options);
    const CSocket deaf = Connected(m_source->SocketPath());
    auto large = NumberedEvent(1);
    large.eventBackupJobCreated->Username.assign(3'000'000, 'u');
    m_source->Publish(large);
    const auto before = std::chrono::steady_clock::now();
    m_source->Stop();
    EXPECT_GE(std::chrono::steady_clock::now() - before, 50ms);
    EXPECT_LT(std::chrono::steady_clock::now() - before, Patience);
}

TEST_F(ReadyEventSource, LeavesASuccessorsSocketAlone) {
    ASSERT_EQ(::unlink(m_source->SocketPath().c_str()), 0);
    const CEventSource successor(m_folder.Path());
    m_source->Stop();
    EXPECT_NO_THROW(CEventsStream(successor.Config(), nullptr));
}

TEST_F(ReadyEventSource, TurnsClientsAwayWhenItIsOutOfDescriptors) {
    const std::string path = m_source->SocketPath();
    const CSocket client = CSocket::New();
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    // Every number below the limit is taken: the source can only turn the client away.
    std::vector<CSocket> fillers;
    rlimit tight = before;
    tight.rlim_cur = static_cast<rlim_t>(client.Fd()) + 1;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    for (int fd = ::dup(STDIN_FILENO); fd >= 0; fd = ::dup(STDIN_FILENO)) {
        fillers.emplace_back(fd);
    }
    EXPECT_EQ(errno, EMFILE);
    // The undefined-behaviour sanitizer needs a descriptor for calls of objects with virtual methods: none
    // in here.
    client.Connect(path);
    const std::string received = client.Receive();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(received, "");
    fillers.clear();
    CEventsStream stream(m_source->Config(), nullptr);
    m_source->Publish(NumberedEvent(1));
    EXPECT_EQ(stream.Read().Id, 1U) << "later clients are served again";
}

TEST_F(EventSource, RestsWhileItCanNeitherAcceptAClientNorTurnItAway) {
    const int result = zamtest::ResultInAProcessOfItsOwn([this] {
        SEventSourceOptions options;
        options.OpeningLimit = 50ms;
        Make(options);
        const CSocket mute = CSocket::New();
        rlimit before{};
        if (::getrlimit(RLIMIT_NOFILE, &before) != 0) return 2;
        rlimit tight = before;
        tight.rlim_cur = 3;  // the number of the source's spare descriptor is of no use either
        if (::setrlimit(RLIMIT_NOFILE, &tight) != 0) return 3;
        mute.Connect(m_source->SocketPath());
        const auto used = [] {
            timespec time{};
            ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
            return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        };
        const auto usedBefore = used();
        ::poll(nullptr, 0, 1000);  // what is measured is what the process does by itself in a second
        const bool rested = used() - usedBefore < 300ms;
        if (::setrlimit(RLIMIT_NOFILE, &before) != 0) return 4;
        if (!rested) return 5;
        // Only the source's own thread can have taken it in now.
        if (!IsClosed(mute)) return 6;
        CEventsStream stream(m_source->Config(), nullptr);
        m_source->Publish(NumberedEvent(1));
        return stream.Read().Id == 1 ? 0 : 7;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(EventSource, SendsNobodyWhatAServicePrintsWhoseStandardStreamsAreClosed) {
    const int result = zamtest::ResultInAProcessOfItsOwn([this] {
        const auto areClosed = [] {
            return ::fcntl(0, F_GETFD) == -1 && ::fcntl(1, F_GETFD) == -1 && ::fcntl(2, F_GETFD) == -1;
        };
        for (int fd = 0; fd < 3; ++fd)
            ::close(fd);
        Make({});
        if (!areClosed()) return 2;
        const CEventsStream stream(m_source->Config(), nullptr);
        if (m_source->SubscriberCount() != 1) return 3;
        return areClosed() ? 0 : 4;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(ReadyEventSource, RefusesProcessesOfOtherUsers) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
    // The folder and the file's mode keep others out already; here they are opened to reach the last check.
    ASSERT_EQ(::chmod(m_folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(m_source->SocketPath().c_str(), 0666), 0);
    const auto outcomeAs = [this](uid_t user) {
        const pid_t child = ::fork();
        if (child == 0) {
            if (::setuid(user) != 0) ::_exit(2);
            const auto address = CSocket::AddressOf(m_source->SocketPath());
            const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) ::_exit(3);
            (void)!::send(fd, OpeningWord.data(), OpeningWord.size(), MSG_NOSIGNAL);
            char byte = 0;
            ::_exit(::recv(fd, &byte, 1, 0) == 1 ? 0 : 1);
        }
        int status = 0;
        // The child ends when it is closed, or when it gets the event.
        EXPECT_TRUE(Eventually([&] {
            if (m_source->SubscriberCount() != 0) m_source->Publish(NumberedEvent(1));
            return ::waitpid(child, &status, WNOHANG) == child;
        }));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(outcomeAs(0), 0) << "root is welcome";
    EXPECT_EQ(outcomeAs(Nobody), 1) << "somebody else got an event";
}

TEST_F(ReadyEventSource, RefusesAnEventThatIsNoMessage) {
    CEventsStream stream(m_source->Config(), nullptr);
    auto huge = NumberedEvent(1);
    huge.eventBackupJobCreated->Username.assign(apigen::IIoDev::MaxMessageBytes, 'u');
    EXPECT_THROW(m_source->Publish(huge), apigen::ApiInternalError);
    m_source->Publish(NumberedEvent(2));
    EXPECT_EQ(stream.Read().Id, 2U);
}

}  // namespace
}  // namespace tests
