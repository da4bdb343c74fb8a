// SPDX-License-Identifier: Apache-2.0
// The table of the methods, and every proxy method against its golden request and response.
#include <zamclientlib/AgentProxies.h>
#include <zamclientlib/InstallerProxies.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"
#include "src/ProxyCall.h"
#include "tests/api/CScriptedInvoker.h"
#include "tests/api/ExchangesAgent.h"
#include "tests/api/ExchangesInstaller.h"
#include "tests/api/Folder.h"
#include "tests/api/MethodTable.h"
#include "tests/api/TypeNames.h"

namespace zamtest {

class IFolder_Proxy final : public IFolder, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;
    std::vector<std::shared_ptr<IFolder>> GetFolders() const override;
    std::vector<zamclientlib::SVersion> GetVersions(std::vector<zamclientlib::SVersion> known) override;
};

}  // namespace zamtest

template <>
struct zamclientlib::ProxyOf<zamtest::IFolder> {
    using Type = zamtest::IFolder_Proxy;
};

namespace zamtest {

std::vector<std::shared_ptr<IFolder>> IFolder_Proxy::GetFolders() const {
    return zamclientlib::Call(*this, folder::GetFolders);
}

std::vector<zamclientlib::SVersion> IFolder_Proxy::GetVersions(std::vector<zamclientlib::SVersion> known) {
    return zamclientlib::Call(*this, folder::GetVersions, known);
}

namespace {

using namespace zamclientlib;
using apigen::Handle;
using testing::ElementsAre;
using testing::IsEmpty;

template <class Pointer>
constexpr bool IsConstMember = false;
template <class I, class R, class... A>
constexpr bool IsConstMember<R (I::*)(A...) const> = true;

/// The declaration that a method's types and keys amount to.
template <class I, class Pointer, class R, class... A>
std::string Declaration(const Method<I, Pointer, R, A...>& method) {
    const std::string name(method.Id.substr(0, method.Id.rfind('_')));
    std::string arguments;
    std::size_t key = 0;
    ((arguments += (key == 0 ? "" : ", ") + TypeName<A>() + ' ' + std::string(method.Keys[key]), ++key), ...);
    return TypeName<R>() + ' ' + name + '(' + arguments + ')' + (IsConstMember<Pointer> ? " const" : "");
}

template <class I>
class Methods : public testing::Test {};

struct SInterfaceNames {
    template <class I>
    static std::string GetName(int) {
        return TypeName<I>();
    }
};

TYPED_TEST_SUITE(Methods, AllInterfaces, SInterfaceNames);

TYPED_TEST(Methods, HasSignaturesThatFollowFromTheMembersAndTheKeys) {
    MethodsOf<TypeParam>::ForEach(
        [](const auto& method) { EXPECT_EQ(method.Signature, Declaration(method)); });
}

TYPED_TEST(Methods, HasIdsOfANameAndA64BitNumber) {
    MethodsOf<TypeParam>::ForEach([](const auto& method) {
        const std::size_t mark = method.Id.rfind('_');
        ASSERT_NE(mark, std::string_view::npos) << method.Id;
        const std::string_view digits = method.Id.substr(mark + 1);
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        EXPECT_TRUE(error == std::errc() && end == digits.data() + digits.size()) << method.Id;
        EXPECT_EQ(std::to_string(number), digits);
    });
}

TYPED_TEST(Methods, HasUniqueIdsAndUniqueKeysWithinAMethod) {
    std::set<std::string_view> ids;
    MethodsOf<TypeParam>::ForEach([&ids](const auto& method) {
        EXPECT_TRUE(ids.insert(method.Id).second) << method.Id;
        std::set<std::string_view> keys;
        for (const std::string_view key : method.Keys) {
            EXPECT_FALSE(key.empty());
            EXPECT_TRUE(keys.insert(key).second) << key;
        }
    });
    EXPECT_FALSE(ids.empty());
}

TYPED_TEST(Methods, AreTheAgreedOnesInTheirOrder) {
    using Row = std::tuple<std::string, std::string, std::vector<std::string>>;
    std::vector<Row> agreed;
    for (const SMethodRow& row : MethodTable) {
        if (row.Interface == TypeName<TypeParam>()) agreed.emplace_back(row.Id, row.Signature, row.Keys);
    }
    std::vector<Row> described;
    MethodsOf<TypeParam>::ForEach([&described](const auto& method) {
        described.emplace_back(method.Id, method.Signature,
                               std::vector<std::string>(method.Keys.begin(), method.Keys.end()));
    });
    EXPECT_FALSE(agreed.empty());
    EXPECT_EQ(described, agreed);
}

TEST(MethodTables, ShareNoIdBetweenInterfacesButThatOfTheSession) {
    std::map<std::string_view, int> ids;
    const auto count = [&ids](const auto& method) { ++ids[method.Id]; };
#define ZAM_COUNT_IDS(type) MethodsOf<zamclientlib::type>::ForEach(count);
    ZAM_FOR_EACH_INTERFACE(ZAM_COUNT_IDS)
    EXPECT_EQ(ids.size(), 78U);
    for (const auto& [id, times] : ids)
        EXPECT_EQ(times, id == "GetSessionId_16415403617493696513" ? 2 : 1) << id;
}

TEST(MethodTables, HaveAGoldenExchangeForEachMethod) {
    std::set<std::string> tested;
    for (const auto& exchanges : {InstallerExchanges, AgentExchanges}) {
        for (const SExchange& exchange : exchanges) {
            const std::string interface(exchange.Name.substr(0, exchange.Name.find('_')));
            tested.insert(interface + ' ' +
                          apigen::CXmlData::Unserialize(exchange.Request)->GetString("__method"));
        }
    }
    std::set<std::string> all;
    for (const SMethodRow& row : MethodTable)
        all.insert(row.Interface + ' ' + row.Id);
    EXPECT_EQ(all.size(), 79U);
    EXPECT_EQ(tested, all);
}

SObjects ProxiesOn(const std::shared_ptr<CScriptedInvoker>& invoker) {
    return {std::make_shared<ITarvoInstaller_Proxy>(invoker, Handle{1}),
            std::make_shared<IPackageManager_Proxy>(invoker, Handle{2}),
            std::make_shared<IService_Proxy>(invoker, Handle{3}),
            std::make_shared<IZAMDeployer_Proxy>(invoker, Handle{4}),
            std::make_shared<IZamControl_Proxy>(invoker, Handle{1}),
            std::make_shared<IZamProduct_Proxy>(invoker, Handle{2}),
            std::make_shared<IBackupJob_Proxy>(invoker, Handle{3}),
            std::make_shared<IBackupJobSession_Proxy>(invoker, Handle{4}),
            std::make_shared<IRepositoryManager_Proxy>(invoker, Handle{5}),
            std::make_shared<IBackupServerManager_Proxy>(invoker, Handle{6}),
            std::make_shared<ICloudServiceProviderManager_Proxy>(invoker, Handle{7})};
}

class ProxyMethod : public testing::TestWithParam<SExchange> {};
INSTANTIATE_TEST_SUITE_P(OfInstaller, ProxyMethod, testing::ValuesIn(InstallerExchanges), SExchangeName());
INSTANTIATE_TEST_SUITE_P(OfAgent, ProxyMethod, testing::ValuesIn(AgentExchanges), SExchangeName());

TEST_P(ProxyMethod, SendsItsRequestAndReadsItsResponse) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects proxies = ProxiesOn(invoker);
    invoker->Responses = {GetParam().Response};
    EXPECT_EQ(GetParam().Act(proxies), GetParam().Result);
    EXPECT_THAT(invoker->Requests, ElementsAre(GetParam().Request));
}

TEST_P(ProxyMethod, ReportsAnInternalErrorWithItsSignatureAndStaysUsable) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects proxies = ProxiesOn(invoker);
    const std::string method = apigen::CXmlData::Unserialize(GetParam().Request)->GetString("__method");
    const auto row = std::find_if(MethodTable.begin(), MethodTable.end(),
                                  [&](const SMethodRow& candidate) { return candidate.Id == method; });
    ASSERT_NE(row, MethodTable.end());
    invoker->Responses = {"<Data><__api_internal_err><msg>no luck</msg></__api_internal_err></Data>",
                          GetParam().Response};
    try {
        GetParam().Act(proxies);
        ADD_FAILURE();
    } catch (const apigen::ApiInternalError& error) {
        EXPECT_EQ(error.what(),
                  "Method call " + row->Signature + " ended up with internal API error: no luck");
    }
    EXPECT_EQ(GetParam().Act(proxies), GetParam().Result);
}

TEST(Proxy, WritesTheLargestHandleInFull) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    {
        IService_Proxy proxy(invoker, Handle{18446744073709551615U});
        invoker->Responses = {"<Data/>"};
        proxy.Start();
    }
    EXPECT_THAT(invoker->Requests, ElementsAre("<Data><__handle>18446744073709551615</__handle>"
                                               "<__method>Start_11243714758416590425</__method></Data>"));
    EXPECT_THAT(invoker->Releases, ElementsAre("<Data><__handle>18446744073709551615</__handle>"
                                               "<__method>__dtr</__method></Data>"));
}

TEST(Proxy, ReturnsAnEmptyPointerAndReleasesNothingForTheHandleZero) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    ITarvoInstaller_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data><__handle>0</__handle></Data>", "<Data><__handle></__handle></Data>"};
    EXPECT_EQ(root.FindService("x"), nullptr);
    EXPECT_EQ(root.GetZAMService(), nullptr);
    EXPECT_THAT(invoker->Releases, IsEmpty());
}

TEST(Proxy, RefusesAnAnswerWithoutAHandleWhereAnObjectIsDue) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    ITarvoInstaller_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data/>", "<Data><__handle><item>3</item></__handle></Data>",
                          "<Data><__handle>7</__handle></Data>"};
    EXPECT_THROW(root.FindService("x"), apigen::ApiInternalError);
    EXPECT_THROW(root.FindService("x"), apigen::ApiInternalError);
    EXPECT_NE(root.FindService("x"), nullptr);
}

TEST(Proxy, RefusesAnAnswerWithoutAResultAndStaysUsable) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    ITarvoInstaller_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data/>", "<Data><__result/></Data>", "<Data><__result>1</__result></Data>"};
    EXPECT_THROW(root.IsSystemSupported(), apigen::ApiInternalError);
    EXPECT_THROW(root.GetToolVersion(), apigen::ApiInternalError);
    EXPECT_TRUE(root.IsSystemSupported());
}

TEST(Proxy, IsADistinctObjectForEachAnswerEvenWithEqualHandles) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    ITarvoInstaller_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data><__handle>7</__handle></Data>", "<Data><__handle>7</__handle></Data>"};
    {
        const auto first = root.GetZAMService();
        const auto second = root.FindService("x");
        EXPECT_NE(first, second);
        const auto* const proxy = dynamic_cast<IService_Proxy*>(second.get());
        ASSERT_NE(proxy, nullptr);
        EXPECT_EQ(proxy->GetHandle(), Handle{7});
        EXPECT_EQ(proxy->GetInvoker(), invoker);
    }
    EXPECT_EQ(invoker->Releases.size(), 2U);
}

TEST(Proxy, IsReleasedOnceWithItsLastReference) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    ITarvoInstaller_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data><__handle>8</__handle></Data>"};
    auto service = root.GetZAMService();
    auto copy = service;
    service.reset();
    EXPECT_THAT(invoker->Releases, IsEmpty());
    copy.reset();
    EXPECT_THAT(invoker->Releases,
                ElementsAre("<Data><__handle>8</__handle><__method>__dtr</__method></Data>"));
}

TEST(Proxy, DropsAFailingRelease) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    invoker->IsGone = true;
    std::make_shared<IService_Proxy>(invoker, Handle{3}).reset();
    EXPECT_EQ(invoker->Releases.size(), 1U);
}

TEST(Proxy, KeepsOrderAndZerosOfAListOfObjects) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    IFolder_Proxy root(invoker, Handle{1});
    invoker->Responses = {"<Data/>",
                          "<Data><__handle><item>3</item></__handle><__handle><item>0</item></__handle>"
                          "<__handle><item>3</item></__handle></Data>"};
    EXPECT_THAT(root.GetFolders(), IsEmpty());
    {
        const auto folders = root.GetFolders();
        ASSERT_EQ(folders.size(), 3U);
        std::vector<std::uint64_t> handles;
        for (const auto& folder : folders)
            handles.push_back(dynamic_cast<IFolder_Proxy&>(*folder).GetHandle().Value);
        EXPECT_THAT(handles, ElementsAre(3, 0, 3));
        EXPECT_NE(folders[0], folders[2]);
    }
    EXPECT_EQ(invoker->Releases.size(), 3U);
}

/// The handle behind `object`, which must be a `P` on `invoker`.
template <class P, class I>
std::uint64_t HandleIn(const std::shared_ptr<I>& object, const std::shared_ptr<CScriptedInvoker>& invoker) {
    const auto* const proxy = dynamic_cast<P*>(object.get());
    if (proxy == nullptr) throw std::logic_error("not that class of proxy");
    EXPECT_EQ(proxy->GetInvoker(), invoker);
    return proxy->GetHandle().Value;
}

TEST(Proxy, OfEachAgentInterfaceIsMadeByTheMethodsThatReturnIt) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects o = ProxiesOn(invoker);
    for (int handle = 21; handle <= 29; ++handle)
        invoker->Responses.push_back("<Data><__handle>" + std::to_string(handle) + "</__handle></Data>");
    EXPECT_EQ(HandleIn<IZamProduct_Proxy>(o.Control->RequestControl({}, true), invoker), 21U);
    EXPECT_EQ(HandleIn<IBackupJob_Proxy>(o.Product->FindBackupJob({}), invoker), 22U);
    EXPECT_EQ(HandleIn<IBackupJob_Proxy>(o.Product->CreateBackupJob({}), invoker), 23U);
    EXPECT_EQ(HandleIn<IBackupJobSession_Proxy>(o.Product->FindBackupJobSessionById({}), invoker), 24U);
    EXPECT_EQ(HandleIn<IBackupServerManager_Proxy>(o.Product->GetBackupServerManager(), invoker), 25U);
    EXPECT_EQ(
        HandleIn<ICloudServiceProviderManager_Proxy>(o.Product->GetCloudServiceProviderManager(), invoker),
        26U);
    EXPECT_EQ(HandleIn<IRepositoryManager_Proxy>(o.Product->GetRepositoryManager(), invoker), 27U);
    EXPECT_EQ(HandleIn<IBackupJobSession_Proxy>(o.Job->Start({}), invoker), 28U);
    EXPECT_EQ(HandleIn<IBackupJobSession_Proxy>(o.Job->FindLastBackupJobSession(), invoker), 29U);
    EXPECT_EQ(invoker->Releases.size(), 9U);
}

TEST(Proxy, OfAJobOrSessionInAListHasItsHandleInOrderZeroIncluded) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects o = ProxiesOn(invoker);
    const auto handlesIn = [&]<class P>(std::type_identity<P> /*class*/, const auto& list) {
        std::vector<std::uint64_t> handles;
        for (const auto& object : list)
            handles.push_back(HandleIn<P>(object, invoker));
        return handles;
    };
    const std::string list =
        "<Data><__handle><item>31</item></__handle><__handle><item>0</item></__handle>"
        "<__handle><item>30</item></__handle></Data>";
    invoker->Responses = {list, list, list};
    constexpr std::type_identity<IBackupJob_Proxy> job;
    constexpr std::type_identity<IBackupJobSession_Proxy> session;
    EXPECT_THAT(handlesIn(job, o.Product->GetBackupJobs()), ElementsAre(31, 0, 30));
    EXPECT_THAT(handlesIn(session, o.Job->GetBackupJobSessions()), ElementsAre(31, 0, 30));
    EXPECT_THAT(handlesIn(session, o.Job->GetBackupJobSessions(5)), ElementsAre(31, 0, 30));
}

TEST(Proxy, ReadsNothingFromTheAnswerToAMethodWithoutAResult) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects o = ProxiesOn(invoker);
    for (const char* const answer : {"<Data/>", "<Data><__result><a/></__result></Data>",
                                     "<Data><__handle>5</__handle></Data>", "<R>text</R>"}) {
        invoker->Responses = {answer, answer, answer};
        o.Repositories->DeleteRepository({});
        o.Servers->ResyncBackupServerRepositoriesList({});
        o.Providers->ResyncCloudRepositoriesList({});
    }
    EXPECT_EQ(invoker->Requests.size(), 12U);
    EXPECT_THAT(invoker->Releases, IsEmpty());
}

TEST(Proxy, SendsTheSameSessionCallToControlAndProductButForTheHandle) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    const SObjects o = ProxiesOn(invoker);
    const std::string answer = "<Data><__result>{0000000a-0000-0000-0000-000000000000}</__result></Data>";
    invoker->Responses = {answer, answer};
    EXPECT_EQ(o.Control->GetSessionId(), IdOf(10));
    EXPECT_EQ(o.Product->GetSessionId(), IdOf(10));
    EXPECT_THAT(invoker->Requests,
                ElementsAre("<Data><__handle>1</__handle><__method>GetSessionId_16415403617493696513"
                            "</__method></Data>",
                            "<Data><__handle>2</__handle><__method>GetSessionId_16415403617493696513"
                            "</__method></Data>"));
}

TEST(Proxy, OfTheProductOutlivesThatOfControl) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    std::shared_ptr<IZamControl> control = std::make_shared<IZamControl_Proxy>(invoker, Handle{1});
    invoker->Responses = {"<Data><__handle>2</__handle></Data>", "<Data><__result>true</__result></Data>"};
    const auto product = control->RequestControl({}, false);
    control.reset();
    EXPECT_THAT(invoker->Releases,
                ElementsAre("<Data><__handle>1</__handle><__method>__dtr</__method></Data>"));
    EXPECT_TRUE(product->DeleteBackupJob({}));
}

TEST(Proxy, KeepsTheAgreedConstness) {
    EXPECT_FALSE(IsConstMember<decltype(&IZamProduct::IsSchedulerAllowedToRunJobs)>);
    EXPECT_FALSE(IsConstMember<decltype(&IBackupJob::Enable)>);
    EXPECT_FALSE(IsConstMember<decltype(&IBackupJob::Disable)>);
    EXPECT_FALSE(IsConstMember<decltype(&IBackupJobSession::Stop)>);
    EXPECT_TRUE(IsConstMember<decltype(&IZamControl::GrabLogs)>);
    EXPECT_TRUE(IsConstMember<decltype(&IPackageManager::RemovePackages)>);
}

TEST(Proxy, CarriesListsOfRecordsBothWays) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    IFolder_Proxy root(invoker, Handle{1});
    invoker->Responses = {
        "<Data><__result><item><major>1</major><minor>2</minor><revision>3</revision><build>4</build></item>"
        "</__result><__result><item><major>5</major><minor>6</minor><revision>7</revision><build>8</build>"
        "</item></__result></Data>"};
    EXPECT_THAT(root.GetVersions({{9, 8, 7, 6}}), ElementsAre(SVersion{1, 2, 3, 4}, SVersion{5, 6, 7, 8}));
    EXPECT_THAT(invoker->Requests,
                ElementsAre("<Data><known><item><major>9</major><minor>8</minor><revision>7</revision>"
                            "<build>6</build></item></known><__handle>1</__handle>"
                            "<__method>GetVersions_2</__method></Data>"));
}

}  // namespace
}  // namespace zamtest
