// SPDX-License-Identifier: Apache-2.0
// The client's end of the events, against a server that does whatever a test needs.
#include <apigen/ApiException.h>

#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/events/Sockets.h"

namespace {
/// Called before the next `send`, once.
thread_local std::function<void()> g_beforeSend;
}  // namespace

/// Stands in front of the C library's, so that a test can come between connecting and the opening word.
extern "C" __attribute__((visibility("default"))) ssize_t send(int fd, const void* bytes, size_t count,
                                                               int flags) {
    if (g_beforeSend) std::exchange(g_beforeSend, {})();
    return ::syscall(SYS_sendto, fd, bytes, count, flags, nullptr, 0);
}

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using apigen::BrokenMessageError;
using apigen::InterruptedError;
using apigen::PeerGoneError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

class CLines final : public apigen::ILogger {
public:
    void Info(const std::string& message) override { Lines.push_back(message); }
    void Error(const std::string& message, std::exception& error) override {
        Lines.push_back("ERROR: " + message + error.what());
    }
    std::vector<std::string> Lines;
};

class EventStream : public testing::Test {
protected:
    CTemporaryFolder m_folder;
    const std::string m_path = m_folder.Path() + "/events.sock";
    std::shared_ptr<CLines> m_log = std::make_shared<CLines>();
};

class ConnectedEventStream : public EventStream {
protected:
    CRawServer m_server{m_path};
    CEventsStream m_stream{ConfigFor(m_path), m_log};
    CSocket m_peer{m_server.Accept()};

    void ReadSequence(unsigned long from, unsigned long to) {
        for (unsigned long id = from; id <= to; ++id) {
            ASSERT_EQ(m_stream.Read(), NumberedEvent(id));
        }
    }
};

TEST_F(ConnectedEventStream, OpensWithOneEmptyMessage) {
    EXPECT_EQ(m_peer.Receive(), OpeningWord);
}

TEST_F(ConnectedEventStream, LogsItsBeginningAndItsEnd) {
    m_stream.Stop();
    m_stream.Stop();
    EXPECT_THAT(m_log->Lines, ElementsAre("Connecting to unix socket event source: " + m_path,
                                          "Closing event stream: Event stream closed",
                                          "Closing event stream: Event stream closed"));
}

TEST_F(ConnectedEventStream, ReadsAnEventThatComesByteByByte) {
    std::thread writer([this] {
        for (const char byte : EventFrame(1) + EventFrame(2)) {
            m_peer.Send({byte});
        }
    });
    ReadSequence(1, 2);
    writer.join();
}

TEST_F(ConnectedEventStream, ReadsManyEventsThatComeInOneWrite) {
    std::string frames;
    for (unsigned long id = 1; id <= 100; ++id) {
        frames += EventFrame(id);
    }
    m_peer.Send(frames);
    ReadSequence(1, 100);
}

TEST_F(ConnectedEventStream, ReadsAHundredThousandInARow) {
    constexpr unsigned long Count = 100'000;
    std::thread writer([this] {
        for (unsigned long id = 1; id <= Count; ++id) {
            m_peer.Send(EventFrame(id));
        }
    });
    ReadSequence(1, Count);
    writer.join();
}

TEST_F(ConnectedEventStream, KeepsEveryPartOfAnEvent) {
    SBaseEvent event = NumberedEvent(~0UL);
    event.Type = static_cast<EEventType>(99);
    event.CreateTimeUTC = {1'700'000'000, 999};
    event.SourceType = EEventSourceType::Owner;
    event.eventBackupJobCreated->Username = "a <b> & \r\n \x01";
    event.eventBackupJobFinished = SEventBackupJobFinished{};
    event.eventBackupJobFinished->Status = JobSessionTaskStatus::Canceled;
    m_peer.Send(EventFrame(event) + EventFrame(SBaseEvent{}));
    EXPECT_EQ(m_stream.Read(), event) << "two records at once are kept both";
    EXPECT_EQ(m_stream.Read(), SBaseEvent{}) << "a header alone";
}

TEST_F(ConnectedEventStream, ReportsAPeerThatCloses) {
    m_peer.Send(EventFrame(1));
    m_peer.Close();
    ReadSequence(1, 1);
    EXPECT_THROW(m_stream.Read(), PeerGoneError);
}

TEST_F(ConnectedEventStream, ReportsAPeerThatClosesInTheMiddleOfAMessage) {
    EXPECT_EQ(m_peer.Receive(), OpeningWord);
    const std::string frame = EventFrame(1);
    m_peer.Send(frame.substr(0, frame.size() - 1));
    m_peer.Close();
    EXPECT_THAT(MessageOf<EventsLostError>([this] { m_stream.Read(); }), HasSubstr("middle of a message"));
}

TEST_F(ConnectedEventStream, RefusesWhatIsNoEvent) {
    m_peer.Send(Frame("<Data/>"));
    EXPECT_THAT(MessageOf<apigen::ApiInternalError>([this] { m_stream.Read(); }), HasSubstr("Event"));
    m_peer.Send(Frame("<Data>"));
    EXPECT_THROW(m_stream.Read(), apigen::ApiInternalError);
    m_peer.Send(Frame(""));
    EXPECT_THROW(m_stream.Read(), apigen::ApiInternalError) << "an empty message is no document";
    m_peer.Send(EventFrame(2));
    EXPECT_EQ(m_stream.Read().Id, 2U) << "a frame that was read whole does not spoil the next";
    m_peer.Send("\xff\xff\xff\xff");
    EXPECT_THROW(m_stream.Read(), BrokenMessageError);
}

TEST_F(ConnectedEventStream, IsConnectedAndStoppedThoughItsLoggerFails) {
    class CFailingLogger : public apigen::ILogger {
    public:
        void Info(const std::string& /*message*/) override { throw std::runtime_error("no room for a log"); }
        void Error(const std::string& /*message*/, std::exception& /*error*/) override {}
    };
    CEventsStream stream(ConfigFor(m_path), std::make_shared<CFailingLogger>());
    EXPECT_NO_THROW(stream.Stop());
    EXPECT_TRUE(stream.IsStopped());
}

TEST_F(ConnectedEventStream, EndsABlockedReadWhenItIsStopped) {
    std::thread stopper([this] {
        // Only a reader that sits in the stream empties the socket: then the next byte can't wake it.
        m_peer.Send({'\x10'});
        ASSERT_TRUE(Eventually([this] {
            pollfd item{m_stream.Descriptor(), POLLIN, 0};
            return ::poll(&item, 1, 0) == 0;
        }));
        m_stream.Stop();
    });
    EXPECT_THAT(MessageOf<InterruptedError>([this] { m_stream.Read(); }), HasSubstr("Event stream closed"));
    stopper.join();
    EXPECT_TRUE(m_stream.IsStopped());
}

TEST_F(ConnectedEventStream, ReadsNothingMoreOnceStoppedWhateverWaits) {
    m_peer.Send(EventFrame(1) + EventFrame(2));
    EXPECT_FALSE(m_stream.IsStopped());
    ReadSequence(1, 1);
    m_stream.Stop();
    EXPECT_THROW(m_stream.Read(), InterruptedError);
    EXPECT_THROW(m_stream.ReadUntil(Clock::now()), InterruptedError);
}

TEST_F(ConnectedEventStream, ReadUntilADeadlineThatHasPassedTakesWhatIsThere) {
    EXPECT_FALSE(m_stream.ReadUntil(Clock::now()));
    m_peer.Send(EventFrame(1) + EventFrame(2));
    EXPECT_EQ(m_stream.ReadUntil(Clock::now())->Id, 1U);
    EXPECT_EQ(m_stream.ReadUntil(Clock::time_point::min())->Id, 2U);
    EXPECT_FALSE(m_stream.ReadUntil(Clock::now()));
}

TEST_F(ConnectedEventStream, ReadUntilKeepsTheBeginningOfAnEventForLater) {
    const std::string frame = EventFrame(1);
    for (const std::size_t cut : {std::size_t{2}, std::size_t{4}, frame.size() - 1}) {
        m_peer.Send(frame.substr(0, cut));
        EXPECT_FALSE(m_stream.ReadUntil(Clock::now() + 5ms));
        EXPECT_FALSE(m_stream.ReadUntil(Clock::now()));
        m_peer.Send(frame.substr(cut));
        EXPECT_EQ(m_stream.Read().Id, 1U) << cut;
    }
}

TEST_F(ConnectedEventStream, ReadUntilWaitsForItsDeadlineAndNoLonger) {
    const auto before = Clock::now();
    EXPECT_FALSE(m_stream.ReadUntil(before + 50ms));
    EXPECT_GE(Clock::now(), before + 50ms);
    EXPECT_LT(Clock::now(), before + Patience);
}

TEST_F(ConnectedEventStream, ServesAnEventLoopThatDrainsIt) {
    const auto isReadable = [this] {
        pollfd item{m_stream.Descriptor(), POLLIN, 0};
        return ::poll(&item, 1, 0) == 1;
    };
    EXPECT_FALSE(isReadable());
    m_peer.Send(EventFrame(1) + EventFrame(2) + EventFrame(3));
    ASSERT_TRUE(isReadable());
    unsigned long last = 0;
    while (const auto event = m_stream.ReadUntil(Clock::now())) {
        last = event->Id;
    }
    EXPECT_EQ(last, 3U);
    EXPECT_FALSE(isReadable());
    m_stream.Stop();
    EXPECT_TRUE(isReadable()) << "the end wakes a loop as well";
}

TEST_F(EventStream, AcceptsAPathOf107BytesAndNoLongerOne) {
    const std::string longest = m_folder.Path() + "/" + std::string(107 - m_folder.Path().size() - 1, 'x');
    ASSERT_EQ(longest.size(), 107U);
    const CRawServer server(longest);
    EXPECT_NO_THROW(CEventsStream(ConfigFor(longest), nullptr));
    try {
        CEventsStream(ConfigFor(longest + "x"), m_log);
        FAIL() << "a path of 108 bytes was taken";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENAMETOOLONG);
        EXPECT_THAT(error.what(), StartsWith("Socket path to long."));
        EXPECT_THAT(error.what(), HasSubstr(longest + "x"));
        EXPECT_THAT(error.what(), HasSubstr("107 bytes"));
    }
    EXPECT_THAT(m_log->Lines, ElementsAre("Connecting to unix socket event source: " + longest + "x"))
        << "the line comes before the check";
}

TEST_F(EventStream, WithoutAConfigurationFailsBeforeItLogs) {
    EXPECT_EQ(MessageOf<std::runtime_error>([this] { CEventsStream({}, m_log); }), "Optional has no value");
    EXPECT_TRUE(m_log->Lines.empty());
}

/// Why no stream can be made.
std::error_code Failure(const std::string& path) {
    try {
        CEventsStream(ConfigFor(path), nullptr);
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), StartsWith("Failed to connect to event socket \""));
        EXPECT_THAT(error.what(), HasSubstr(path.c_str()));
        EXPECT_THAT(error.what(), testing::EndsWith(": " + error.code().message()));
        return error.code();
    }
    return {};
}

TEST_F(EventStream, SaysWhyItCanNotConnect) {
    EXPECT_EQ(Failure(m_path), std::errc::no_such_file_or_directory);
    { const CRawServer abandoned(m_path); }
    EXPECT_EQ(Failure(m_path), std::errc::connection_refused);
}

TEST_F(EventStream, TakesAnEmptyPathForNoNameOfASocket) {
    const CRawServer server("");  // a name of zero bytes alone, which is none of a file
    EXPECT_EQ(Failure(""), std::errc::no_such_file_or_directory);
}

TEST_F(EventStream, RefusesAPathWithAZeroByteInsteadOfCuttingIt) {
    const CRawServer server(m_path);
    EXPECT_EQ(Failure(m_path + std::string("\0x", 2)), std::errc::invalid_argument);
    EXPECT_EQ(Failure(std::string("\0x", 2)), std::errc::invalid_argument);
}

/// A source that lets nobody in, with its queue full.
class CBusyServer {
public:
    explicit CBusyServer(const std::string& path) : m_server(path, 0) {
        while (true) {
            CSocket client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            try {
                client.Connect(path);
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code().value(), EAGAIN);
                return;
            }
            m_waiting.push_back(std::move(client));
        }
    }

    CSocket Accept() const { return m_server.Accept(); }

private:
    CRawServer m_server;
    std::vector<CSocket> m_waiting;
};

TEST_F(EventStream, WaitsForABusySourceNoLongerThanItsLimit) {
    const CBusyServer server(m_path);
    const auto before = Clock::now();
    EXPECT_EQ(Failure(m_path), std::errc::timed_out);
    EXPECT_GE(Clock::now() - before, 4s);
    EXPECT_LT(Clock::now() - before, Patience);
}

TEST_F(EventStream, ConnectsThoughSignalsInterruptItMeanwhile) {
    struct sigaction before {};
    struct sigaction action {};
    static std::atomic<int> interrupts = 0;
    action.sa_handler = [](int) { ++interrupts; };
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    const CBusyServer server(m_path);
    std::error_code failure;
    std::atomic<bool> isDone = false;
    std::thread connecting([&] {
        failure = Failure(m_path);
        isDone = true;
    });
    while (interrupts < 10) {
        ASSERT_EQ(::pthread_kill(connecting.native_handle(), SIGUSR1), 0);
        ::poll(nullptr, 0, 1);
    }
    EXPECT_FALSE(isDone);
    server.Accept();
    connecting.join();
    EXPECT_EQ(failure, std::error_code());
    EXPECT_EQ(::sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(EventStream, LeavesNoDescriptorBehind) {
    const auto count = [] {
        const auto fds = std::filesystem::directory_iterator("/proc/self/fd");
        return std::distance(begin(fds), end(fds));
    };
    const CRawServer server(m_path);
    const auto before = count();
    CEventsStream(ConfigFor(m_path), nullptr);
    EXPECT_THROW(CEventsStream(ConfigFor(m_path + "x"), nullptr), std::system_error);
    EXPECT_EQ(count(), before);
}

TEST_F(EventStream, ShowsAnOpeningWordThatDidNotGoOutAtTheFirstRead) {
    const CRawServer server(m_path);
    g_beforeSend = [&] { server.Accept(); };
    CEventsStream stream(ConfigFor(m_path), nullptr);
    ASSERT_FALSE(g_beforeSend) << "the opening word was sent some other way";
    EXPECT_THROW(stream.Read(), PeerGoneError);
}

}  // namespace
}  // namespace tests
