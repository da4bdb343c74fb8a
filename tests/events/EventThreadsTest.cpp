// SPDX-License-Identifier: Apache-2.0
// An event source that many threads use at once.
#include <apigen/ApiException.h>
#include <zamservice/EventSource.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/events/Sockets.h"

namespace tests {
namespace {

using zamclientlib::CEventsStream;
using zamservice::CEventSource;

TEST(EventSourceThreads, PublishAtOnceWhileSubscribersComeAndGo) {
    constexpr unsigned long Publishers = 3;
    constexpr unsigned long Each = 1000;
    const CTemporaryFolder folder;
    CEventSource source(folder.Path());
    CEventsStream steady(source.Config(), nullptr);
    std::atomic<bool> isDone = false;
    std::vector<std::thread> threads;
    for (unsigned long publisher = 0; publisher < Publishers; ++publisher) {
        threads.emplace_back([&, publisher] {
            for (unsigned long i = 0; i < Each; ++i) {
                source.Publish(NumberedEvent(publisher * Each + i));
            }
        });
    }
    std::thread visitor([&] {
        while (!isDone) {
            CEventsStream passing(source.Config(), nullptr);
            EXPECT_GE(source.SubscriberCount(), 1U);
        }
    });
    // Each publisher's events come in its order, none twice and none never.
    std::vector<unsigned long> next(Publishers, 0);
    for (unsigned long i = 0; i < Publishers * Each; ++i) {
        const unsigned long id = steady.Read().Id;
        ASSERT_EQ(id % Each, next.at(id / Each)++);
    }
    isDone = true;
    for (auto& thread : threads) {
        thread.join();
    }
    visitor.join();
}

TEST(EventSourceThreads, StopWhileOthersPublishAndSubscribe) {
    for (int round = 0; round < 20; ++round) {
        const CTemporaryFolder folder;
        CEventSource source(folder.Path());
        CEventsStream stream(source.Config(), nullptr);
        std::atomic<unsigned long> published = 0;
        std::atomic<bool> isDone = false;
        std::thread publisher([&] {
            while (!isDone) {
                source.Publish(NumberedEvent(++published));
            }
        });
        std::thread reader([&] { EXPECT_THROW(while (true) stream.Read(), apigen::PeerGoneError); });
        EXPECT_TRUE(Eventually([&] { return published > 10; }));
        std::thread stopper([&] { source.Stop(); });
        source.Stop();
        EXPECT_FALSE(std::filesystem::exists(source.SocketPath()));
        stopper.join();
        reader.join();
        isDone = true;
        publisher.join();
    }
}

TEST(EventSourceThreads, StartAtOnceInOneDirectoryAndOneOfThemWins) {
    constexpr int Sources = 6;
    for (int round = 0; round < 20; ++round) {
        const CTemporaryFolder folder;
        const std::string path = folder.Path() + "/events.sock";
        { const CRawServer abandoned(path); }
        std::atomic<int> tried = 0;
        std::atomic<int> made = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < Sources; ++i) {
            threads.emplace_back([&] {
                std::unique_ptr<CEventSource> source;
                try {
                    source = std::make_unique<CEventSource>(folder.Path());
                    ++made;
                } catch (const std::system_error& error) {
                    EXPECT_EQ(error.code().value(), EADDRINUSE);
                    EXPECT_THAT(error.what(), testing::HasSubstr(path));
                }
                ++tried;
                while (tried != Sources)
                    ::poll(nullptr, 0, 1);
            });
        }
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(made, 1);
        EXPECT_FALSE(std::filesystem::exists(path));
    }
}

}  // namespace
}  // namespace tests
