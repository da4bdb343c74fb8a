// SPDX-License-Identifier: Apache-2.0
// Both ends of the events in a program that forks: the new process has a copy of everything, shares every
// descriptor, and must not disturb the old one.
#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <zamservice/EventSource.h>

#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/Sanitized.h"
#include "tests/api/OwnProcess.h"
#include "tests/events/Sockets.h"

namespace tests {
namespace {

using zamclientlib::CEventsStream;
using zamservice::CEventSource;
using zamtest::ResultInAProcessOfItsOwn;

class EventFork : public testing::Test {
protected:
    bool IsReadable(int descriptor) {
        pollfd item{descriptor, POLLIN, 0};
        return ::poll(&item, 1, 0) == 1;
    }

    CTemporaryFolder m_folder;
    std::unique_ptr<CEventSource> m_source = std::make_unique<CEventSource>(m_folder.Path());
};

TEST_F(EventFork, LeavesTheSourceAndItsSubscribersToTheProcessThatMadeIt) {
    auto stream = std::make_unique<CEventsStream>(m_source->Config(), nullptr);
    EXPECT_EQ(m_source->SubscriberCount(), 1U);
    EXPECT_EQ(ResultInAProcessOfItsOwn([this] {
                  ::alarm(20);
                  const std::string why =
                      MessageOf<apigen::ApiInternalError>([this] { m_source->Publish(NumberedEvent(1)); });
                  if (why.find("forked") == std::string::npos) return 2;
                  if (m_source->SubscriberCount() != 0) return 3;
                  m_source->Stop();
                  m_source.reset();
                  return 0;
              }),
              0);
    EXPECT_TRUE(std::filesystem::exists(m_source->SocketPath()));
    m_source->Publish(NumberedEvent(2));
    EXPECT_EQ(stream->Read().Id, 2U);
    CEventsStream later(m_source->Config(), nullptr);
    m_source->Publish(NumberedEvent(3));
    EXPECT_EQ(later.Read().Id, 3U);
}

TEST_F(EventFork, EndsASourceWhoseOtherThreadsWereAtWorkMeanwhile) {
    if (tests::IsSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at the fork";
    CEventsStream stream(m_source->Config(), nullptr);
    std::atomic<bool> isDone = false;
    std::thread publisher([&] {
        while (!isDone)
            m_source->Publish(NumberedEvent(1));
    });
    std::thread reader([&] {
        try {
            while (true)
                stream.Read();
        } catch (const apigen::InterruptedError&) {
        }
    });
    for (int round = 0; round < 100; ++round) {
        const int result = ResultInAProcessOfItsOwn([this] {
            ::alarm(10);
            m_source->Stop();
            m_source.reset();
            return 0;
        });
        EXPECT_EQ(result, 0) << "the process hung or died in round " << round;
        if (result != 0) break;
    }
    isDone = true;
    publisher.join();
    stream.Stop();
    reader.join();
}

TEST_F(EventFork, DoesNotKeepAliveWhatTheSourceDisconnects) {
    const CSocket talkative = Connected(m_source->SocketPath());
    CEventsStream stream(m_source->Config(), nullptr);
    EXPECT_EQ(m_source->SubscriberCount(), 2U);
    const pid_t holder = ::fork();
    if (holder == 0) {
        ::alarm(60);
        ::pause();
        ::_exit(0);
    }
    talkative.Send("more");
    EXPECT_EQ(talkative.Receive(), "");
    m_source->Stop();
    EXPECT_THROW(stream.ReadUntil(std::chrono::steady_clock::now() + Patience), apigen::PeerGoneError);
    ::kill(holder, SIGKILL);
    EXPECT_EQ(::waitpid(holder, nullptr, 0), holder);
}

TEST_F(EventFork, LeavesTheStreamToTheProcessThatConnectedIt) {
    auto stream = std::make_unique<CEventsStream>(m_source->Config(), nullptr);
    m_source->Publish(NumberedEvent(1));
    m_source->Publish(NumberedEvent(2));
    EXPECT_EQ(stream->Read().Id, 1U);
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  ::alarm(20);
                  const std::string why = MessageOf<apigen::ApiInternalError>([&] { stream->Read(); });
                  if (why.find("forked") == std::string::npos) return 2;
                  try {
                      stream->ReadUntil(std::chrono::steady_clock::now());
                      return 3;
                  } catch (const apigen::ApiInternalError&) {
                  }
                  stream->Stop();
                  if (stream->IsStopped()) return 4;
                  stream.reset();
                  return 0;
              }),
              0);
    EXPECT_FALSE(stream->IsStopped());
    EXPECT_EQ(stream->Read().Id, 2U);
    EXPECT_FALSE(IsReadable(stream->Descriptor())) << "the stream's end was seen";
    m_source->Publish(NumberedEvent(3));
    EXPECT_EQ(stream->Read().Id, 3U);
}

TEST_F(EventFork, KeepsASetEventToItself) {
    apigen::io::event::CAtomicEvent event;
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  event.Set("there");
                  return event.IsSet() && event.Reason() == "there" && IsReadable(event.Descriptor()) ? 0 : 1;
              }),
              0);
    EXPECT_FALSE(event.IsSet());
    EXPECT_FALSE(IsReadable(event.Descriptor()));
    event.Set("here");
    EXPECT_TRUE(IsReadable(event.Descriptor()));
}

}  // namespace
}  // namespace tests
