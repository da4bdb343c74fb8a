// SPDX-License-Identifier: Apache-2.0
// The serving loop over whatever connects the two sides, and how it ends.
#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CInterruptibleIoDev.h>
#include <zamservice/Service.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/MessageOf.h"
#include "tests/api/FakeInstaller.h"

namespace zamtest {
namespace {

using namespace std::chrono_literals;
using apigen::CInterruptibleIoDev;
using apigen::io::event::CAtomicEvent;
using testing::HasSubstr;

constexpr const char* Greeting = "<Data><__handle>1</__handle></Data>";
constexpr const char* Question =
    "<Data><__handle>1</__handle><__method>IsSystemSupported_6523745946180482134</__method></Data>";
constexpr const char* Yes = "<Data><__result>true</__result></Data>";

struct SPipe {
    SPipe() {
        if (::pipe2(Ends.data(), O_CLOEXEC) != 0) std::abort();
    }
    int Read() const { return Ends[0]; }
    int Write() const { return Ends[1]; }
    std::array<int, 2> Ends{};
};

/// What a serving thread ends with; empty after an orderly end.
std::future<std::string> ServeInAThread(std::shared_ptr<CInterruptibleIoDev> device) {
    return std::async(std::launch::async, [device = std::move(device)]() -> std::string {
        zamservice::CService service(std::make_shared<CFakeInstaller>(std::make_shared<SJournal>()));
        try {
            zamservice::Serve(service, *device);
        } catch (const apigen::ApiException& error) {
            return error.what();
        }
        return {};
    });
}

TEST(Serving, GoesOverTwoPipesThatSomebodyHandedOver) {
    const SPipe there;
    const SPipe back;
    auto served = ServeInAThread(std::make_shared<CInterruptibleIoDev>(there.Read(), back.Write()));
    {
        CInterruptibleIoDev client(back.Read(), there.Write());
        client.SetDeadline(apigen::IIoDev::Clock::now() + 30s);
        EXPECT_EQ(client.ReadString(), Greeting);
        client.WriteString(Question);
        EXPECT_EQ(client.ReadString(), Yes);
    }
    EXPECT_EQ(served.get(), "");
}

TEST(Serving, GoesToManyClientsAtOnceEachInAThread) {
    std::vector<std::future<std::string>> served;
    std::vector<std::unique_ptr<CInterruptibleIoDev>> clients;
    for (int i = 0; i < 20; ++i) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        clients.push_back(std::make_unique<CInterruptibleIoDev>(ends[0]));
        served.push_back(ServeInAThread(std::make_shared<CInterruptibleIoDev>(ends[1])));
    }
    for (const auto& client : clients)
        EXPECT_EQ(client->ReadString(), Greeting);
    for (const auto& client : clients)
        client->WriteString(Question);
    for (const auto& client : clients)
        EXPECT_EQ(client->ReadString(), Yes);
    clients.clear();
    for (auto& each : served)
        EXPECT_EQ(each.get(), "");
}

TEST(Serving, IsEndedByAnEventThoughTheClientKeepsSilent) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    CInterruptibleIoDev client(ends[0]);
    const auto device = std::make_shared<CInterruptibleIoDev>(ends[1]);
    const auto stop = std::make_shared<CAtomicEvent>();
    device->AddEvent(stop);
    auto served = ServeInAThread(device);
    EXPECT_EQ(client.ReadString(), Greeting);
    stop->Set("the agent ends");
    EXPECT_THAT(served.get(), HasSubstr("the agent ends"));
}

/// Gives requests one after another, and looks at the room that it is offered for each.
class CLookingDevice final : public apigen::IIoDev {
public:
    explicit CLookingDevice(std::vector<std::string> requests) : m_requests(std::move(requests)) {}

    std::string ReadRawText(unsigned long /*maxBytes*/, bool& /*flag*/) override { return {}; }
    std::string ReadString() override { return {}; }
    std::string_view ReadMessage(std::string& room) override {
        Rooms.push_back(room.capacity());
        if (m_next == m_requests.size()) throw apigen::PeerGoneError("no more requests", true);
        const std::string& request = m_requests[m_next++];
        // As a stream does: a small one stays where it was received.
        if (request.size() < 1024) return request;
        return room = request;
    }
    void WriteString(const std::string& text) override { Answers.push_back(text); }
    void SetDeadline(Clock::time_point /*deadline*/) override {}

    std::vector<std::size_t> Rooms;
    std::vector<std::string> Answers;

private:
    std::vector<std::string> m_requests;
    std::size_t m_next = 0;
};

// It was kept, and overwritten again after each of the small calls that followed.
TEST(Serving, DoesNotKeepTheRoomOfALargeRequest) {
    const std::string large =
        std::string("<Data><x>") + std::string(1024UL * 1024, 'x') + "</x>" + (Question + 6);
    CLookingDevice device({Question, large, Question});
    zamservice::CService service(std::make_shared<CFakeInstaller>(std::make_shared<SJournal>()));
    zamservice::Serve(service, device);
    EXPECT_THAT(device.Answers, testing::ElementsAre(Greeting, Yes, Yes, Yes));
    ASSERT_EQ(device.Rooms.size(), 4U);
    EXPECT_LT(device.Rooms[2], large.size());
}

TEST(Serving, TakesAnEndInMidRequestForAFailure) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    auto served = ServeInAThread(std::make_shared<CInterruptibleIoDev>(ends[1]));
    ASSERT_EQ(::write(ends[0], "\x10\0\0\0<Da", 7), 7);
    ASSERT_EQ(::shutdown(ends[0], SHUT_WR), 0);
    EXPECT_THAT(served.get(), HasSubstr("in the middle of a message (3 of 16 bytes had come"));
    ::close(ends[0]);
}

TEST(Serving, EndsOrderlyWhenTheClientLeavesWithoutTakingItsAnswers) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    auto served = ServeInAThread(std::make_shared<CInterruptibleIoDev>(ends[1]));
    {
        CInterruptibleIoDev client(ends[0]);
        for (int i = 0; i < 100; ++i)
            client.WriteString("<Data><__handle>9</__handle><__method>__dtr</__method></Data>");
    }
    EXPECT_EQ(served.get(), "");
}

TEST(Serving, GivesAClientNoMoreObjectsThanItMayHold) {
    zamservice::CService service(std::make_shared<CFakeInstaller>(std::make_shared<SJournal>()));
    service.SetObjectLimit(3);
    const std::string open =
        "<Data><__handle>1</__handle><__method>GetPackageManager_1628991831313356514</__method></Data>";
    EXPECT_EQ(service.Answer(open), "<Data><__handle>2</__handle></Data>");
    EXPECT_EQ(service.Answer(open), "<Data><__handle>3</__handle></Data>");
    for (int i = 0; i < 10; ++i)
        EXPECT_THAT(service.Answer(open), HasSubstr("holds 3 objects, and may hold no more"));
    EXPECT_EQ(service.ObjectCount(), 3U);
    EXPECT_EQ(service.Answer("<Data><__handle>2</__handle><__method>__dtr</__method></Data>"), "<Data/>");
    EXPECT_EQ(service.Answer(open), "<Data><__handle>4</__handle></Data>");
}

// --- Standard streams that are not as one expects them ---

/// A tool on two pipes whose streams are prepared, just before it starts, by `prepare`.
class CPreparedTool {
public:
    template <class F>
    explicit CPreparedTool(F prepare) {
        const SPipe there;
        const SPipe back;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::setenv("ZAM_SCRIPT", "serve", 1);
            ::unsetenv("ZAM_RECORD");
            ::dup2(there.Read(), STDIN_FILENO);
            ::dup2(back.Write(), STDOUT_FILENO);
            prepare();
            ::execl(SCRIPTED_TOOL, SCRIPTED_TOOL, nullptr);
            ::_exit(99);
        }
        ::close(there.Read());
        ::close(back.Write());
        m_client = std::make_unique<CInterruptibleIoDev>(back.Read(), there.Write());
        m_client->SetDeadline(apigen::IIoDev::Clock::now() + 30s);
    }
    CPreparedTool(const CPreparedTool&) = delete;
    CPreparedTool& operator=(const CPreparedTool&) = delete;

    CInterruptibleIoDev& Client() { return *m_client; }

    /// The exit status after the client has left.
    int End() {
        m_client.reset();
        int status = -1;
        EXPECT_EQ(::waitpid(m_pid, &status, 0), m_pid);
        return status;
    }

private:
    pid_t m_pid = -1;
    std::unique_ptr<CInterruptibleIoDev> m_client;
};

void ExpectService(CPreparedTool& tool) {
    EXPECT_EQ(tool.Client().ReadString(), Greeting);
    ::usleep(20'000);  // so that it is waiting for its input
    tool.Client().WriteString(Question);
    EXPECT_EQ(tool.Client().ReadString(), Yes);
    EXPECT_EQ(tool.End(), 0);
}

TEST(StandardStreams, MayBeNonBlocking) {
    CPreparedTool tool([] {
        ::fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK);
        ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
    });
    ExpectService(tool);
}

TEST(StandardStreams, MayLackStandardError) {
    CPreparedTool tool([] { ::close(STDERR_FILENO); });
    ExpectService(tool);
}

TEST(StandardStreams, WithoutAnOutputServeNobody) {
    CPreparedTool tool([] { ::close(STDOUT_FILENO); });
    EXPECT_THROW(tool.Client().ReadString(), apigen::PeerGoneError);
    const int status = tool.End();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

}  // namespace
}  // namespace zamtest
