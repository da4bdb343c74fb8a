// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CInterruptibleIoDev.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tests/MessageOf.h"

namespace apigen {
namespace {

using namespace std::chrono_literals;
using io::event::CAtomicEvent;
using testing::HasSubstr;
using tests::MessageOf;
using Clock = IIoDev::Clock;

std::string Frame(const std::string& text) {
    std::string frame(4, '\0');
    for (std::size_t i = 0; i < 4; ++i)
        frame[i] = static_cast<char>(text.size() >> (8 * i) & 0xff);
    return frame + text;
}

class InterruptibleIoDev : public testing::Test {
protected:
    InterruptibleIoDev() {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
            throw std::runtime_error("socketpair");
        m_fd = fds[0];
        m_peer = fds[1];
        m_device = std::make_unique<CInterruptibleIoDev>(fds[0]);
        m_event = std::make_shared<CAtomicEvent>();
        m_device->AddEvent(m_event);
    }
    ~InterruptibleIoDev() override { ClosePeer(); }

    void Send(const std::string& bytes) const {
        ASSERT_EQ(::send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void ClosePeer() {
        if (m_peer >= 0) ::close(std::exchange(m_peer, -1));
    }

    /// True once that thread of this process sleeps in the system.
    static bool WaitUntilSleeping(int tid) {
        for (const auto limit = Clock::now() + 10s; Clock::now() < limit; std::this_thread::yield()) {
            const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
            char text[512]{};
            const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            const ssize_t count = ::read(fd, text, sizeof text - 1);
            ::close(fd);
            const std::string line(text, count > 0 ? static_cast<std::size_t>(count) : 0);
            if (line.find(") S ") != std::string::npos) return true;
        }
        return false;
    }

    int m_fd = -1;
    int m_peer = -1;
    std::unique_ptr<CInterruptibleIoDev> m_device;
    std::shared_ptr<CAtomicEvent> m_event;
};

TEST_F(InterruptibleIoDev, MessagesTravelBothWays) {
    m_device->WriteString("");
    m_device->WriteString("ab");
    char bytes[10];
    ASSERT_EQ(::recv(m_peer, bytes, sizeof bytes, MSG_WAITALL), 10);
    EXPECT_EQ(std::string(bytes, 10), Frame("") + Frame("ab"));
    Send(Frame("one") + Frame("") + Frame("three"));
    EXPECT_EQ(m_device->ReadString(), "one");
    EXPECT_EQ(m_device->ReadString(), "");
    EXPECT_EQ(m_device->ReadString(), "three");
}

TEST_F(InterruptibleIoDev, MessagesCanBeLookedAtWithoutACopy) {
    Send(Frame("one") + Frame("") + Frame("three") + Frame("four"));
    EXPECT_EQ(m_device->ReadView(), "one");
    EXPECT_EQ(m_device->ReadView(), "");
    EXPECT_EQ(m_device->ReadString(), "three");
    EXPECT_EQ(m_device->ReadView(), "four");
    m_device->WriteString("answer");

    // One that comes in pieces, longer than any buffer, and one behind it.
    const std::string big(1'000'000, 'x');
    auto sent = std::async(std::launch::async, [&] { Send(Frame(big) + Frame("last")); });
    EXPECT_TRUE(m_device->ReadView() == big);
    EXPECT_EQ(m_device->ReadView(), "last");
    sent.get();
}

TEST_F(InterruptibleIoDev, AnEventEndsABlockedRead) {
    std::promise<int> tid;
    auto read = std::async(std::launch::async, [&] {
        tid.set_value(::gettid());
        return MessageOf<InterruptedError>([&] { m_device->ReadString(); });
    });
    ASSERT_TRUE(WaitUntilSleeping(tid.get_future().get()));
    m_event->Set("Event stream closed");
    EXPECT_THAT(read.get(), HasSubstr("Event stream closed"));
}

TEST_F(InterruptibleIoDev, AnEventEndsABlockedWrite) {
    std::promise<int> tid;
    auto write = std::async(std::launch::async, [&] {
        const std::string big(50'000'000, 'x');
        tid.set_value(::gettid());
        return MessageOf<InterruptedError>([&] { m_device->WriteString(big); });
    });
    ASSERT_TRUE(WaitUntilSleeping(tid.get_future().get()));
    m_event->Set("enough");
    EXPECT_THAT(write.get(), HasSubstr("enough"));
}

TEST_F(InterruptibleIoDev, AfterAnEventEveryOperationFailsAtOnceEvenWithDataWaiting) {
    Send(Frame("one") + Frame("two"));
    EXPECT_EQ(m_device->ReadString(), "one");
    m_event->Set("enough");
    bool ended = false;
    MessageOf<InterruptedError>([&] { m_device->ReadString(); });
    MessageOf<InterruptedError>([&] { m_device->ReadRawText(10, ended); });
    MessageOf<InterruptedError>([&] { m_device->WriteString("x"); });
    char byte;
    EXPECT_EQ(::recv(m_peer, &byte, 1, MSG_DONTWAIT), -1) << "something was sent";
}

TEST_F(InterruptibleIoDev, AnEventEndsAReadThatIsBusyWithAStreamOfBytes) {
    std::atomic<bool> stop = false;
    std::thread feeder([&] {
        const std::string header("\0\0\0\x10", 4);  // a message of the largest length
        ::send(m_peer, header.data(), header.size(), MSG_NOSIGNAL);
        for (const char byte = 'x'; !stop;)
            ::send(m_peer, &byte, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    });
    auto read = std::async(std::launch::async,
                           [&] { return MessageOf<InterruptedError>([&] { m_device->ReadString(); }); });
    m_event->Set("enough");
    EXPECT_EQ(read.wait_for(10s), std::future_status::ready);
    stop = true;
    feeder.join();
}

TEST_F(InterruptibleIoDev, EachOfSeveralEventsInterrupts) {
    const auto second = std::make_shared<CAtomicEvent>();
    m_device->AddEvent(second);
    second->Set("the second");
    EXPECT_THAT(MessageOf<InterruptedError>([&] { m_device->ReadString(); }), HasSubstr("the second"));
    MessageOf<ApiInternalError>([&] { m_device->AddEvent(nullptr); });
}

TEST_F(InterruptibleIoDev, AnEventSetAgainHasTheLaterReason) {
    EXPECT_FALSE(m_event->IsSet());
    EXPECT_EQ(m_event->Reason(), "");
    pollfd waiting{m_event->Descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 0), 0);
    m_event->Set("first");
    m_event->Set("second");
    EXPECT_TRUE(m_event->IsSet());
    EXPECT_EQ(m_event->Reason(), "second");
    EXPECT_EQ(::poll(&waiting, 1, 0), 1);
}

TEST_F(InterruptibleIoDev, APeerThatClosesIsGoneAfterItsLastMessage) {
    Send(Frame("last"));
    ClosePeer();
    EXPECT_EQ(m_device->ReadString(), "last");
    MessageOf<PeerGoneError>([&] { m_device->ReadString(); });
    MessageOf<PeerGoneError>([&] { m_device->WriteString("x"); });
}

TEST_F(InterruptibleIoDev, APeerThatClosesWithinAMessageIsReported) {
    Send(Frame("0123456789").substr(0, 8));
    ClosePeer();
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { m_device->ReadString(); }), HasSubstr("4 of 10 bytes"));
}

TEST_F(InterruptibleIoDev, ADeadlineEndsAReadWhichCanBeTakenUpAgain) {
    const std::string frame = Frame("0123456789");
    Send(frame.substr(0, 8));
    m_device->SetDeadline(Clock::now() + 20ms);
    EXPECT_THAT(MessageOf<TimeoutError>([&] { m_device->ReadString(); }), HasSubstr("4 of 10 bytes"));
    m_device->SetDeadline(Clock::time_point::max());
    Send(frame.substr(8));
    EXPECT_EQ(m_device->ReadString(), "0123456789");
}

TEST_F(InterruptibleIoDev, GarbageIsRefusedAndShown) {
    Send("HTTP/1.1 400 Bad Request\r\n");
    EXPECT_THAT(MessageOf<BrokenMessageError>([&] { m_device->ReadString(); }), HasSubstr("\"HTTP/1.1 400"));
}

TEST_F(InterruptibleIoDev, UnframedTextIsReadUpToTheLimitOrTheEnd) {
    Send("abcdef");
    bool ended = true;
    EXPECT_EQ(m_device->ReadRawText(4, ended), "abcd");
    EXPECT_FALSE(ended);
    ClosePeer();
    EXPECT_EQ(m_device->ReadRawText(4, ended), "ef");
    EXPECT_TRUE(ended);
}

TEST_F(InterruptibleIoDev, TheSocketIsClosedWithTheDevice) {
    EXPECT_NE(::fcntl(m_fd, F_GETFD), -1);
    m_device.reset();
    EXPECT_EQ(::fcntl(m_fd, F_GETFD), -1);
    char byte;
    EXPECT_EQ(::recv(m_peer, &byte, 1, 0), 0);
}

TEST_F(InterruptibleIoDev, ADescriptorThatIsNoSocketFailsAtItsFirstUse) {
    CInterruptibleIoDev file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { file.ReadString(); }),
                HasSubstr("Socket operation on non-socket"));
    CInterruptibleIoDev none(-1);
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { none.WriteString("x"); }), HasSubstr("Bad file descriptor"));
}

}  // namespace
}  // namespace apigen
