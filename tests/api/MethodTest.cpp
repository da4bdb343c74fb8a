// SPDX-License-Identifier: Apache-2.0
// The table of the methods, and every proxy method against its golden request and response.
#include <zamclientlib/InstallerProxies.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

#include "src/InstallerMethods.h"
#include "src/ProxyCall.h"
#include "tests/api/CScriptedInvoker.h"
#include "tests/api/Exchanges.h"
#include "tests/api/Folder.h"
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
class MethodTable : public testing::Test {};

struct SInterfaceNames {
    template <class I>
    static std::string GetName(int) {
        return TypeName<I>();
    }
};

TYPED_TEST_SUITE(MethodTable, AllInterfaces, SInterfaceNames);

TYPED_TEST(MethodTable, HasSignaturesThatFollowFromTheMembersAndTheKeys) {
    MethodsOf<TypeParam>::ForEach(
        [](const auto& method) { EXPECT_EQ(method.Signature, Declaration(method)); });
}

TYPED_TEST(MethodTable, HasIdsOfANameAndA64BitNumber) {
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

TYPED_TEST(MethodTable, HasUniqueIdsAndUniqueKeysWithinAMethod) {
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

std::map<std::string, int> IdsOfAllInterfaces() {
    std::map<std::string, int> ids;
    const auto count = [&ids](const auto& method) { ++ids[std::string(method.Id)]; };
#define ZAM_COUNT_IDS(type) MethodsOf<zamclientlib::type>::ForEach(count);
    ZAM_FOR_EACH_INTERFACE(ZAM_COUNT_IDS)
    return ids;
}

TEST(MethodTables, ShareNoIdBetweenInterfaces) {
    for (const auto& [id, times] : IdsOfAllInterfaces())
        EXPECT_EQ(times, 1) << id;
}

TEST(MethodTables, HaveAGoldenExchangeForEachMethod) {
    std::set<std::string> tested;
    for (const SExchange& exchange : Exchanges)
        tested.insert(apigen::CXmlData::Unserialize(exchange.Request)->GetString("__method"));
    std::set<std::string> all;
    for (const auto& [id, times] : IdsOfAllInterfaces())
        all.insert(id);
    EXPECT_EQ(tested, all);
}

SObjects ProxiesOn(const std::shared_ptr<CScriptedInvoker>& invoker) {
    return {std::make_shared<ITarvoInstaller_Proxy>(invoker, Handle{1}),
            std::make_shared<IPackageManager_Proxy>(invoker, Handle{2}),
            std::make_shared<IService_Proxy>(invoker, Handle{3}),
            std::make_shared<IZAMDeployer_Proxy>(invoker, Handle{4})};
}

class ProxyMethod : public testing::TestWithParam<SExchange> {};
INSTANTIATE_TEST_SUITE_P(Of, ProxyMethod, testing::ValuesIn(Exchanges), SExchangeName());

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
    std::string signature;
    const auto find = [&](const auto& candidate) {
        if (candidate.Id == method) signature = candidate.Signature;
    };
#define ZAM_FIND_SIGNATURE(type) MethodsOf<zamclientlib::type>::ForEach(find);
    ZAM_FOR_EACH_INTERFACE(ZAM_FIND_SIGNATURE)
    invoker->Responses = {"<Data><__api_internal_err><msg>no luck</msg></__api_internal_err></Data>",
                          GetParam().Response};
    try {
        GetParam().Act(proxies);
        ADD_FAILURE();
    } catch (const apigen::ApiInternalError& error) {
        EXPECT_EQ(error.what(), "Method call " + signature + " ended up with internal API error: no luck");
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
