// SPDX-License-Identifier: Apache-2.0
// The envelope of a call, at an invoker that answers as it is told.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/ProxyBase.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

using DataPointer = std::shared_ptr<IData>;

class CScriptedInvoker : public IInvoker {
public:
    DataPointer CreateContainer() override {
        if (CreateFails) throw std::bad_alloc();
        return CXmlData::CreateNew();
    }
    DataPointer Invoke(DataPointer request) override {
        Requests.push_back(CXmlData::Serialize(*request));
        if (Failure) Failure();
        return CXmlData::Unserialize(Answer);
    }
    std::shared_ptr<IApiExceptionGenerator> GetExceptionGenerator() const override { return Generator; }

    std::string Answer = "<Data/>";
    std::function<void()> Failure;
    bool CreateFails = false;
    std::shared_ptr<IApiExceptionGenerator> Generator;
    std::vector<std::string> Requests;
};

class CThrowingGenerator : public IApiExceptionGenerator {
public:
    void Generate(DataPointer data) override { throw std::domain_error(data->GetString("type")); }
};

class CSilentGenerator : public IApiExceptionGenerator {
public:
    void Generate(DataPointer) override { ++Calls; }
    int Calls = 0;
};

class Proxy : public testing::Test {
protected:
    DataPointer Call() {
        return m_proxy.InvokeMethod("Start_7", "void Start()", m_invoker->CreateContainer());
    }

    const std::shared_ptr<CScriptedInvoker> m_invoker = std::make_shared<CScriptedInvoker>();
    const ProxyBase m_proxy{m_invoker, Handle{18446744073709551615UL}};
};

const std::string ExceptionAnswer = "<__exception_obj><type>T</type></__exception_obj>";
const std::string InternalErrorAnswer = "<__api_internal_err><msg>out of memory</msg></__api_internal_err>";

std::string Document(const std::string& content) {
    return "<Data>" + content + "</Data>";
}

TEST_F(Proxy, AddressesARequestAfterItsArguments) {
    const auto request = m_invoker->CreateContainer();
    request->SetString("path", "/tmp/a&b");
    m_proxy.InvokeMethod("GrabLogs_7987703423994357771", "void GrabLogs(std::string path) const", request);
    EXPECT_EQ(
        m_invoker->Requests,
        std::vector<std::string>{"<Data><path>/tmp/a&amp;b</path><__handle>18446744073709551615</__handle>"
                                 "<__method>GrabLogs_7987703423994357771</__method></Data>"});
}

TEST_F(Proxy, ReturnsTheResponse) {
    m_invoker->Answer = Document("<__result>5</__result>");
    EXPECT_EQ(Call()->GetString("__result"), "5");
}

TEST_F(Proxy, SendsItsReleaseOnceWhenItDies) {
    {
        const ProxyBase proxy(m_invoker, Handle{42});
        EXPECT_TRUE(m_invoker->Requests.empty());
    }
    EXPECT_EQ(m_invoker->Requests,
              std::vector<std::string>{"<Data><__handle>42</__handle><__method>__dtr</__method></Data>"});
}

TEST_F(Proxy, SendsItsReleaseAlsoAfterAFailedCall) {
    m_invoker->Failure = [] { throw TimeoutError("late"); };
    {
        const ProxyBase proxy(m_invoker, Handle{42});
        EXPECT_EQ(Thrown<TimeoutError>([&] { proxy.InvokeMethod("a", "b", m_invoker->CreateContainer()); }),
                  "late");
        m_invoker->Failure = nullptr;
        m_invoker->Requests.clear();
    }
    EXPECT_EQ(m_invoker->Requests,
              std::vector<std::string>{"<Data><__handle>42</__handle><__method>__dtr</__method></Data>"});
}

TEST_F(Proxy, HoldsItsInvokerAsLongAsItLives) {
    auto invoker = std::make_shared<CScriptedInvoker>();
    const std::weak_ptr<CScriptedInvoker> watch = invoker;
    {
        const ProxyBase proxy(std::move(invoker), Handle{1});
        EXPECT_FALSE(watch.expired());
        EXPECT_EQ(proxy.GetHandle(), Handle{1});
        EXPECT_EQ(proxy.GetInvoker(), watch.lock());
    }
    EXPECT_TRUE(watch.expired());
}

TEST_F(Proxy, DropsWhateverItsReleaseMeets) {
    for (const std::string& answer :
         {ExceptionAnswer, InternalErrorAnswer, std::string("<__api_internal_err/>")}) {
        m_invoker->Answer = Document(answer);
        const ProxyBase proxy(m_invoker, Handle{1});
    }
    m_invoker->Generator = std::make_shared<CThrowingGenerator>();
    m_invoker->Answer = Document(ExceptionAnswer);
    { const ProxyBase proxy(m_invoker, Handle{2}); }
    m_invoker->Failure = [] { throw PeerGoneError("gone"); };
    { const ProxyBase proxy(m_invoker, Handle{3}); }
    m_invoker->Failure = [] { throw std::runtime_error("anything"); };
    { const ProxyBase proxy(m_invoker, Handle{4}); }
    m_invoker->Failure = [] { throw 17; };
    { const ProxyBase proxy(m_invoker, Handle{5}); }
    EXPECT_EQ(m_invoker->Requests.size(), 7U);
    {
        const ProxyBase proxy(m_invoker, Handle{6});
        m_invoker->CreateFails = true;
    }
    m_invoker->CreateFails = false;
}

TEST_F(Proxy, ThrowsWhatTheGeneratorMakesOfAnException) {
    m_invoker->Generator = std::make_shared<CThrowingGenerator>();
    m_invoker->Answer = Document(ExceptionAnswer);
    EXPECT_EQ(Thrown<std::domain_error>([&] { Call(); }), "T");
}

TEST_F(Proxy, PutsAnExceptionBeforeAnInternalError) {
    m_invoker->Generator = std::make_shared<CThrowingGenerator>();
    m_invoker->Answer = Document(InternalErrorAnswer + ExceptionAnswer + "<__result>1</__result>");
    EXPECT_EQ(Thrown<std::domain_error>([&] { Call(); }), "T");
}

TEST_F(Proxy, CannotRethrowAnExceptionWithoutAGenerator) {
    m_invoker->Answer = Document(ExceptionAnswer + InternalErrorAnswer);
    EXPECT_EQ(Thrown<ApiInternalError>([&] { Call(); }), "Unable to rethrow received exception");
}

TEST_F(Proxy, CannotRethrowAnExceptionWhenTheGeneratorReturns) {
    const auto generator = std::make_shared<CSilentGenerator>();
    m_invoker->Generator = generator;
    m_invoker->Answer = Document(ExceptionAnswer);
    EXPECT_EQ(Thrown<ApiInternalError>([&] { Call(); }), "Unable to rethrow received exception");
    EXPECT_EQ(generator->Calls, 1);
}

TEST_F(Proxy, ReportsAnInternalErrorWithTheSignature) {
    m_invoker->Answer = Document(InternalErrorAnswer + "<__result>1</__result>");
    EXPECT_EQ(Thrown<ServiceInternalError>([&] { Call(); }),
              "Method call void Start() ended up with internal API error: out of memory");
}

TEST_F(Proxy, RefusesAnInternalErrorWithoutAText) {
    m_invoker->Answer = Document("<__api_internal_err/>");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { Call(); }), "__api_internal_err: no \"msg\"");
}

TEST_F(Proxy, PassesOnWhatTheInvokerThrowsAndStaysUsable) {
    m_invoker->Failure = [] { throw std::out_of_range("from below"); };
    EXPECT_EQ(Thrown<std::out_of_range>([&] { Call(); }), "from below");
    m_invoker->Failure = nullptr;
    EXPECT_FALSE(Call()->HasValue("__result"));
}

TEST_F(Proxy, NeedsAnInvoker) {
    EXPECT_EQ(Thrown<ApiInternalError>([] { ProxyBase(nullptr, Handle{1}); }), "A proxy needs an invoker");
}

}  // namespace
}  // namespace apigen::test
