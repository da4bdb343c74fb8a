// SPDX-License-Identifier: Apache-2.0
// Calls over a real socket, with a peer that answers as it is told.
#include <apigen/ApiException.h>
#include <apigen/CInterruptibleIoDev.h>
#include <apigen/CXmlData.h>
#include <apigen/ProxyBase.h>
#include <apigen/StreamedXmlInvokerImpl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::HasSubstr;
using testing::StartsWith;

/// The other end: answers each request by a function, in a thread of its own, until the stream ends.
class CPeer {
public:
    /// Returns the frames to send for a request.
    using Script = std::function<std::vector<std::string>(const std::string& request)>;

    CPeer(int fd, Script script)
        : m_fd(fd), m_device(fd), m_thread([this, script = std::move(script)] { Serve(script); }) {}

    ~CPeer() {
        ::shutdown(m_fd, SHUT_RDWR);
        m_thread.join();
    }

private:
    void Serve(const Script& script) {
        try {
            while (true) {
                for (const auto& answer : script(m_device.ReadString())) {
                    m_device.WriteString(answer);
                }
            }
        } catch (const ApiException&) {
            // The client has gone; what it saw is its test's matter.
            ::shutdown(m_fd, SHUT_RDWR);
        }
    }

    int m_fd;
    CInterruptibleIoDev m_device;
    std::thread m_thread;
};

struct SSockets {
    SSockets() {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, Fds) != 0)
            throw std::runtime_error("socketpair");
    }
    int Fds[2];
};

class Invoker : public testing::Test {
protected:
    std::shared_ptr<StreamedXmlInvokerImpl> Connect(CPeer::Script script,
                                                    std::chrono::seconds timeout = 60s) {
        const SSockets sockets;
        auto device = std::make_shared<CInterruptibleIoDev>(sockets.Fds[0]);
        m_peer = std::make_unique<CPeer>(sockets.Fds[1], std::move(script));
        return std::make_shared<StreamedXmlInvokerImpl>(std::move(device), nullptr, timeout, nullptr);
    }

    std::unique_ptr<CPeer> m_peer;
};

std::shared_ptr<IData> Request(const std::string& method, const std::string& argument = {}) {
    auto request = CXmlData::CreateNew();
    if (!argument.empty()) request->SetString("argument", argument);
    request->SetString("__handle", "1");
    request->SetString("__method", method);
    return request;
}

/// Answers with the request's argument as the result; a release with an empty document.
std::vector<std::string> Echo(const std::string& text) {
    const auto request = CXmlData::Unserialize(text);
    const auto answer = CXmlData::CreateNew();
    if (request->HasValue("argument")) answer->SetString("__result", request->GetString("argument"));
    return {CXmlData::Serialize(*answer)};
}

std::string Call(IInvoker& invoker, const std::string& argument) {
    return invoker.Invoke(Request("Echo_1", argument))->GetString("__result");
}

bool IsRelease(const std::string& request) {
    return request.find("<__method>__dtr</__method>") != std::string::npos;
}

TEST_F(Invoker, CarriesARequestAndItsAnswer) {
    std::promise<std::string> seen;
    const auto invoker = Connect([&](const std::string& request) {
        seen.set_value(request);
        return Echo(request);
    });
    EXPECT_EQ(Call(*invoker, "a<b"), "a<b");
    EXPECT_EQ(seen.get_future().get(),
              "<Data><argument>a&lt;b</argument><__handle>1</__handle><__method>Echo_1</__method></Data>");
}

TEST_F(Invoker, MakesEmptyContainers) {
    const auto invoker = Connect(Echo);
    EXPECT_EQ(CXmlData::Serialize(*invoker->CreateContainer()), "<Data/>");
    EXPECT_EQ(invoker->GetExceptionGenerator(), nullptr);
}

TEST_F(Invoker, DoesNotWaitForTheAnswersOfReleases) {
    // The peer holds the answers of releases back until a call comes, then sends all in order.
    std::vector<std::string> held;
    const auto invoker = Connect([&](const std::string& request) -> std::vector<std::string> {
        if (IsRelease(request)) {
            held.emplace_back("<Data><__result>of a release</__result></Data>");
            return {};
        }
        auto answers = std::exchange(held, {});
        answers.push_back(Echo(request).front());
        return answers;
    });
    for (const std::string round : {"one", "two", "three"}) {
        for (int i = 0; i < 5; ++i) {
            const ProxyBase proxy(invoker, Handle{7});
        }
        EXPECT_EQ(Call(*invoker, round), round);
        EXPECT_EQ(Call(*invoker, "again"), "again");
    }
}

TEST_F(Invoker, ManyReleasesInARowDoNotBlockThePeersAnswers) {
    const auto invoker = Connect(Echo);
    for (int i = 0; i < 20000; ++i) {
        invoker->Invoke(Request("__dtr"));
    }
    EXPECT_EQ(Call(*invoker, "x"), "x");
}

TEST_F(Invoker, IgnoresWhatTheAnswerOfAReleaseReports) {
    const auto invoker = Connect([](const std::string& request) -> std::vector<std::string> {
        if (IsRelease(request))
            return {"<Data><__api_internal_err><msg>no such object</msg></__api_internal_err></Data>"};
        return Echo(request);
    });
    { const ProxyBase proxy(invoker, Handle{7}); }
    EXPECT_EQ(Call(*invoker, "x"), "x");
}

TEST_F(Invoker, FailsAtOnceAfterABrokenAnswerWithTheCauseInTheMessage) {
    std::atomic<int> requests = 0;
    const auto invoker = Connect([&](const std::string&) -> std::vector<std::string> {
        ++requests;
        return {"<Data><unclosed></Data>", "<Data><__result>late</__result></Data>"};
    });
    const std::string cause = Thrown<BrokenMessageError>([&] { Call(*invoker, "x"); });
    EXPECT_THAT(cause, HasSubstr("an end tag that does not match <unclosed> at offset 16"));
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(Thrown<PeerGoneError>([&] { Call(*invoker, "x"); }),
                    StartsWith("The connection was given up after an earlier failure: " + cause));
    }
    { const ProxyBase proxy(invoker, Handle{7}); }
    EXPECT_EQ(requests, 1);
}

TEST_F(Invoker, RefusesAnEmptyMessageForAnAnswer) {
    const auto invoker = Connect([](const std::string&) { return std::vector<std::string>{""}; });
    EXPECT_THAT(Thrown<BrokenMessageError>([&] { Call(*invoker, "x"); }),
                HasSubstr("no root element at offset 0"));
}

TEST_F(Invoker, ReportsABrokenAnswerOfAReleaseAtTheNextCall) {
    const auto invoker = Connect([](const std::string& request) -> std::vector<std::string> {
        if (IsRelease(request)) return {"garbage"};
        return Echo(request);
    });
    { const ProxyBase proxy(invoker, Handle{7}); }
    EXPECT_THAT(Thrown<BrokenMessageError>([&] { Call(*invoker, "x"); }),
                HasSubstr("text outside the root element"));
    Thrown<PeerGoneError>([&] { Call(*invoker, "x"); });
}

TEST_F(Invoker, ReportsAPeerThatGoes) {
    const auto invoker =
        Connect([](const std::string&) -> std::vector<std::string> { throw ApiException("enough"); });
    Thrown<PeerGoneError>([&] { Call(*invoker, "x"); });
    EXPECT_THAT(Thrown<PeerGoneError>([&] { Call(*invoker, "x"); }), HasSubstr("after an earlier failure"));
    // A release now has nobody to go to, and says nothing.
    const ProxyBase proxy(invoker, Handle{7});
}

TEST_F(Invoker, TimesOutOnAPeerThatKeepsSilent) {
    const auto invoker = Connect([](const std::string&) { return std::vector<std::string>{}; }, 1s);
    const auto start = Clock::now();
    const std::string cause = Thrown<TimeoutError>([&] { Call(*invoker, "x"); });
    const auto took = Clock::now() - start;
    EXPECT_GE(took, 900ms);
    EXPECT_LT(took, 30s);
    const auto again = Clock::now();
    EXPECT_THAT(Thrown<PeerGoneError>([&] { Call(*invoker, "x"); }), HasSubstr(cause));
    EXPECT_LT(Clock::now() - again, 900ms) << "a lost connection must not be waited for";
}

/// Answers everything with an empty document and notes the deadlines.
class CNotingDevice : public IIoDev {
public:
    std::string ReadRawText(unsigned long, bool&) override { return {}; }
    std::string ReadString() override { return "<Data/>"; }
    void WriteString(const std::string&) override {}
    void SetDeadline(Clock::time_point deadline) override { Deadlines.push_back(deadline); }

    std::vector<Clock::time_point> Deadlines;
};

TEST(InvokerWithATimeout, CountsTheTimeOfEachCallAnew) {
    const auto device = std::make_shared<CNotingDevice>();
    StreamedXmlInvokerImpl invoker(device, nullptr, 60s, nullptr);
    for (int i = 0; i < 3; ++i) {
        device->Deadlines.clear();
        const auto before = Clock::now();
        invoker.Invoke(Request("a"));
        // One deadline for sending and receiving together.
        ASSERT_EQ(device->Deadlines.size(), 1U);
        EXPECT_GE(device->Deadlines.front(), before + 60s);
        EXPECT_LE(device->Deadlines.front(), Clock::now() + 60s);
    }
}

TEST(InvokerWithATimeout, WaitsWithoutBoundForZeroAndForTooLongATime) {
    for (const auto timeout :
         {0s, std::chrono::seconds::max(), std::chrono::seconds(INT64_MAX / 1'000'000'000)}) {
        const auto device = std::make_shared<CNotingDevice>();
        StreamedXmlInvokerImpl(device, nullptr, timeout, nullptr).Invoke(Request("a"));
        EXPECT_EQ(device->Deadlines, std::vector<Clock::time_point>{Clock::time_point::max()});
    }
}

TEST_F(Invoker, RefusesARequestOverTheLimitAndStaysUsable) {
    const auto invoker = Connect(Echo);
    auto request = Request("Echo_1", std::string(IIoDev::MaxMessageBytes, 'x'));
    EXPECT_THAT(Thrown<ApiInternalError>([&] { invoker->Invoke(request); }),
                HasSubstr(" bytes is over the limit of 268435456"));
    request.reset();
    EXPECT_EQ(Call(*invoker, "x"), "x");
}

TEST_F(Invoker, RefusesARequestThatHasNoTextFormAndStaysUsable) {
    const auto invoker = Connect(Echo);
    const auto request = Request("Echo_1");
    auto node = request;
    for (int depth = 0; depth < 300; ++depth) {
        node = node->CreateChild("a");
    }
    EXPECT_EQ(Thrown<ApiInternalError>([&] { invoker->Invoke(request); }),
              "The document is nested deeper than 256 levels");
    EXPECT_EQ(Call(*invoker, "x"), "x");
}

TEST_F(Invoker, CarriesLargeMessagesBothWays) {
    const auto invoker = Connect(Echo);
    std::string text(8 * 1024 * 1024, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(i * i >> 7);
    }
    EXPECT_TRUE(Call(*invoker, text) == text);
}

TEST_F(Invoker, LetsCallsOfSeveralThreadsTakeTurns) {
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    const auto invoker = Connect([&](const std::string& request) {
        if (!IsRelease(request) && ++inside != 1) overlapped = true;
        auto answer = Echo(request);
        if (!IsRelease(request)) --inside;
        return answer;
    });
    std::vector<std::future<int>> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.push_back(std::async(std::launch::async, [&invoker, thread] {
            int wrong = 0;
            for (int i = 0; i < 200; ++i) {
                const std::string argument = std::to_string(thread) + "/" + std::to_string(i);
                wrong += Call(*invoker, argument) == argument ? 0 : 1;
                const ProxyBase proxy(invoker, Handle{static_cast<std::uint64_t>(i)});
            }
            return wrong;
        }));
    }
    for (auto& thread : threads) {
        EXPECT_EQ(thread.get(), 0);
    }
    EXPECT_FALSE(overlapped);
}

TEST_F(Invoker, TellsTheFailureToTheThreadsThatWaitTheirTurn) {
    const auto invoker = Connect([](const std::string&) -> std::vector<std::string> { return {"garbage"}; });
    std::vector<std::future<std::string>> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.push_back(std::async(std::launch::async, [&invoker] {
            try {
                return Call(*invoker, "x");
            } catch (const ApiInternalError& error) {
                return std::string(error.what());
            }
        }));
    }
    for (auto& thread : threads) {
        EXPECT_THAT(thread.get(), HasSubstr("text outside the root element at offset 0"));
    }
}

/// A logger that counts, and fails if it is told to.
class CCountingLogger : public ILogger {
public:
    void Info(const std::string&) override {}
    void Error(const std::string& message, std::exception& error) override {
        Errors.push_back(message + ' ' + error.what());
    }
    std::vector<std::string> Errors;
};

TEST(InvokerWithALogger, LogsTheFailureThatEndsTheConnectionOnce) {
    const SSockets sockets;
    const auto logger = std::make_shared<CCountingLogger>();
    StreamedXmlInvokerImpl invoker(std::make_shared<CInterruptibleIoDev>(sockets.Fds[0]), nullptr, 0s,
                                   logger);
    { const CInterruptibleIoDev closed(sockets.Fds[1]); }
    std::string cause = Thrown<PeerGoneError>([&] { invoker.Invoke(Request("a")); });
    Thrown<PeerGoneError>([&] { invoker.Invoke(Request("a")); });
    EXPECT_EQ(logger->Errors, std::vector<std::string>{"The connection is given up. " + cause});
}

// --- A call that is cut off, and what others see of it ---

/// Sends nothing anywhere, and hands out the answers that it is given.
class CScriptedDevice : public IIoDev {
public:
    std::string ReadRawText(unsigned long, bool&) override { return {}; }
    std::string ReadString() override { return OnRead(); }
    void WriteString(const std::string& text) override { Written.push_back(text); }
    void SetDeadline(Clock::time_point) override {}

    std::function<std::string()> OnRead = [] { return std::string("<Data/>"); };
    std::vector<std::string> Written;
};

TEST(InvokerCutOff, ByAForeignExceptionTakesTheStreamWithIt) {
    const auto device = std::make_shared<CScriptedDevice>();
    const auto logger = std::make_shared<CCountingLogger>();
    StreamedXmlInvokerImpl invoker(device, nullptr, 0s, logger);
    device->OnRead = []() -> std::string { throw 17; };
    EXPECT_THROW(invoker.Invoke(Request("a")), int);
    device->OnRead = [] { return std::string("<Data><__result>of the first call</__result></Data>"); };
    EXPECT_THAT(Thrown<PeerGoneError>([&] { invoker.Invoke(Request("b")); }), HasSubstr("cut off"));
    EXPECT_EQ(device->Written.size(), 1U);
}

TEST(InvokerCutOff, ByTheCancellationOfItsThreadTakesTheStreamWithIt) {
    const SSockets sockets;
    StreamedXmlInvokerImpl invoker(std::make_shared<CInterruptibleIoDev>(sockets.Fds[0]), nullptr, 0s,
                                   nullptr);
    const auto call = [](void* object) -> void* {
        static_cast<StreamedXmlInvokerImpl*>(object)->Invoke(Request("a"));
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, call, &invoker), 0);
    CInterruptibleIoDev peer(sockets.Fds[1]);
    peer.ReadString();  // the call is under way
    ASSERT_EQ(::pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread, &result), 0);
    ASSERT_EQ(result, PTHREAD_CANCELED);
    peer.WriteString("<Data><__result>of the first call</__result></Data>");
    EXPECT_THAT(Thrown<PeerGoneError>([&] { invoker.Invoke(Request("b")); }), HasSubstr("cut off"));
}

TEST(InvokerCutOff, ByLackOfMemoryBehindAWholeAnswerStaysUsable) {
    const auto device = std::make_shared<CScriptedDevice>();
    class CReader : public StreamedXmlInvokerImpl {
    public:
        using StreamedXmlInvokerImpl::InvokeText;
        using StreamedXmlInvokerImpl::StreamedXmlInvokerImpl;
    };
    CReader invoker(device, nullptr, 0s, nullptr);
    EXPECT_THROW(invoker.InvokeText(
                     "<Data/>", [](std::string_view, void*) -> bool { throw std::bad_alloc(); }, nullptr),
                 std::bad_alloc);
    EXPECT_NO_THROW(invoker.Invoke(Request("b")));
}

TEST(InvokerInUse, CountsTheWaitForItsTurnAndFailsAloneWhenThatTakesTooLong) {
    const auto device = std::make_shared<CScriptedDevice>();
    StreamedXmlInvokerImpl invoker(device, nullptr, 1s, nullptr);
    std::promise<void> begun;
    std::promise<void> goOn;
    device->OnRead = [&] {
        begun.set_value();
        goOn.get_future().wait();
        return std::string("<Data/>");
    };
    auto first = std::async(std::launch::async, [&] { invoker.Invoke(Request("first")); });
    begun.get_future().wait();
    const auto start = Clock::now();
    EXPECT_THAT(Thrown<TimeoutError>([&] { invoker.Invoke(Request("second")); }), HasSubstr("busy"));
    EXPECT_GE(Clock::now() - start, 900ms);
    goOn.set_value();
    EXPECT_NO_THROW(first.get());
    device->OnRead = [] { return std::string("<Data/>"); };
    EXPECT_NO_THROW(invoker.Invoke(Request("third"))) << "the stream was not touched by the second";
}

TEST(InvokerInUse, SendsAReleaseWithTheNextMessageRatherThanToWait) {
    const auto device = std::make_shared<CScriptedDevice>();
    const auto invoker = std::make_shared<StreamedXmlInvokerImpl>(device, nullptr, 0s, nullptr);
    std::promise<void> begun;
    std::promise<void> goOn;
    device->OnRead = [&] {
        begun.set_value();
        goOn.get_future().wait();
        return std::string("<Data/>");
    };
    auto first = std::async(std::launch::async, [&] { invoker->Invoke(Request("first")); });
    begun.get_future().wait();
    { const ProxyBase proxy(invoker, Handle{7}); }  // returns, although nobody answers
    EXPECT_EQ(device->Written.size(), 1U);
    goOn.set_value();
    first.get();
    device->OnRead = [] { return std::string("<Data/>"); };
    invoker->Invoke(Request("second"));
    ASSERT_EQ(device->Written.size(), 3U);
    EXPECT_THAT(device->Written[1], HasSubstr("<__handle>7</__handle><__method>__dtr</__method>"));
    EXPECT_THAT(device->Written[2], HasSubstr("second"));
}

TEST(InvokerInUse, SendsTheReleasesThatWaitWithTheNextReleaseAsWell) {
    const auto device = std::make_shared<CScriptedDevice>();
    const auto invoker = std::make_shared<StreamedXmlInvokerImpl>(device, nullptr, 0s, nullptr);
    device->OnRead = [&] {
        const ProxyBase dropped(invoker, Handle{7});
        return std::string("<Data/>");
    };
    invoker->Invoke(Request("first"));
    { const ProxyBase proxy(invoker, Handle{8}); }
    ASSERT_EQ(device->Written.size(), 3U);
    EXPECT_THAT(device->Written[1], HasSubstr("<__handle>7</__handle>"));
    EXPECT_THAT(device->Written[2], HasSubstr("<__handle>8</__handle>"));
}

TEST_F(Invoker, ReleasesDoNotWaitForAPeerThatReadsNothing) {
    std::promise<void> goOn;
    const auto released = goOn.get_future().share();
    const auto invoker = Connect([&](const std::string& request) {
        released.wait();
        return Echo(request);
    });
    for (int i = 0; i < 20000; ++i)  // more than fits between the two
        invoker->Invoke(Request("__dtr"));
    goOn.set_value();
    EXPECT_EQ(Call(*invoker, "x"), "x");
}

TEST(InvokerWithALogger, MayBeUsedByTheLoggerThatIsToldOfItsEnd) {
    class CCallingLogger : public ILogger {
    public:
        void Info(const std::string&) override {}
        void Error(const std::string&, std::exception&) override {
            Proxy.reset();
            Failure = Thrown<PeerGoneError>([&] { Invoker.lock()->Invoke(Request("b")); });
        }
        std::weak_ptr<StreamedXmlInvokerImpl> Invoker;
        std::unique_ptr<ProxyBase> Proxy;
        std::string Failure;
    };
    const auto device = std::make_shared<CScriptedDevice>();
    const auto logger = std::make_shared<CCallingLogger>();
    const auto invoker = std::make_shared<StreamedXmlInvokerImpl>(device, nullptr, 5s, logger);
    logger->Invoker = invoker;
    logger->Proxy = std::make_unique<ProxyBase>(invoker, Handle{7});
    device->OnRead = [] { return std::string("garbage"); };
    Thrown<BrokenMessageError>([&] { invoker->Invoke(Request("a")); });
    EXPECT_THAT(logger->Failure, HasSubstr("after an earlier failure"));
}

TEST(InvokerWithALogger, ThatThrowsKeepsTheFailureItself) {
    class CThrowingLogger : public ILogger {
    public:
        void Info(const std::string&) override { throw 1; }
        void Error(const std::string&, std::exception&) override { throw 2; }
    };
    const auto device = std::make_shared<CScriptedDevice>();
    StreamedXmlInvokerImpl invoker(device, nullptr, 0s, std::make_shared<CThrowingLogger>());
    device->OnRead = [] { return std::string("garbage"); };
    Thrown<BrokenMessageError>([&] { invoker.Invoke(Request("a")); });
}

TEST(InvokerWithATimeout, RefusesANegativeOne) {
    EXPECT_THAT(Thrown<ApiInternalError>([] {
                    StreamedXmlInvokerImpl(std::make_shared<CScriptedDevice>(), nullptr, -1s, nullptr);
                }),
                HasSubstr("negative"));
}

TEST(InvokerInACopyOfTheProcess, RefusesCallsAndReleasesNothing) {
    const auto device = std::make_shared<CScriptedDevice>();
    auto invoker = std::make_shared<StreamedXmlInvokerImpl>(device, nullptr, 0s, nullptr);
    auto proxy = std::make_unique<ProxyBase>(invoker, Handle{7});
    const pid_t child = ::fork();
    if (child == 0) {
        bool isRefused = false;
        try {
            invoker->Invoke(Request("a"));
        } catch (const PeerGoneError&) {
            isRefused = true;
        }
        proxy.reset();
        invoker.reset();
        ::_exit(isRefused && device->Written.empty() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_NO_THROW(invoker->Invoke(Request("a")));
}

}  // namespace
}  // namespace apigen::test
