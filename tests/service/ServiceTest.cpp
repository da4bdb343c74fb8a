// SPDX-License-Identifier: Apache-2.0
// The service's end: golden requests reach the implementation, its results and failures become golden
// responses, and nothing that a client sends does more harm than an error.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamclientlib/Exceptions.h>
#include <zamservice/Service.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "service/Dispatcher.h"
#include "tests/api/ExchangesAgent.h"
#include "tests/api/ExchangesInstaller.h"
#include "tests/api/FakeAgent.h"
#include "tests/api/FakeInstaller.h"
#include "tests/api/Folder.h"
#include "tests/api/MethodTable.h"

namespace zamtest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using zamservice::CService;

std::string Released(int handle) {
    return "<Data><__handle>" + std::to_string(handle) + "</__handle><__method>__dtr</__method></Data>";
}

class Service : public testing::Test {
protected:
    std::string Ask(const std::string& request) { return m_service.Answer(request); }

    /// The message of the internal error that answers `request`.
    std::string Refusal(const std::string& request) {
        const std::string answer = Ask(request);
        EXPECT_THAT(answer, StartsWith("<Data><__api_internal_err><msg>")) << request;
        return answer;
    }

    /// Makes the objects with the handles 2 to 4.
    void MakeObjects() {
        Ask(Request("", 1, "GetPackageManager_1628991831313356514"));
        Ask(Request("", 1, "GetZAMService_7046161401573418507"));
        Ask(Request("", 1, "GetZAMDeployer_6155923443671149866"));
        m_journal->Calls.clear();
    }

    Journal m_journal = std::make_shared<SJournal>();
    CService m_service{std::make_shared<CFakeInstaller>(m_journal)};
};

/// A service with an object of each of its interfaces.
struct SPeer {
    CService (*Serve)(const Journal&);
    std::vector<std::string> Openers;  ///< make the objects after the root
};

const SPeer Installer{
    [](const Journal& journal) { return CService(std::make_shared<CFakeInstaller>(journal)); },
    {Request("", 1, "GetPackageManager_1628991831313356514"),
     Request("", 1, "GetZAMService_7046161401573418507"),
     Request("", 1, "GetZAMDeployer_6155923443671149866")}};

const SPeer Agent{[](const Journal& journal) { return CService(std::make_shared<CFakeControl>(journal)); },
                  {Request("<owner><Id/><Name/><Type/><Mode/></owner><force>true</force>", 1,
                           "RequestControl_6119236697561886250"),
                   Request("<jobId/>", 2, "FindBackupJob_4084348374974690072"),
                   Request("<sessionId/>", 2, "FindBackupJobSessionById_15412784075075618450"),
                   Request("", 2, "GetRepositoryManager_2746857695984253270"),
                   Request("", 2, "GetBackupServerManager_16091826026671291548"),
                   Request("", 2, "GetCloudServiceProviderManager_16327512121101421528")}};

class ServiceMethod : public testing::TestWithParam<std::tuple<const SPeer*, SExchange>> {
protected:
    ServiceMethod() : m_service(Peer().Serve(m_journal)) {
        for (const std::string& opener : Peer().Openers)
            EXPECT_THAT(m_service.Answer(opener), HasSubstr("__handle"));
        m_journal->Calls.clear();
        m_journal->HasNothing = Exchange().HasNothing;
    }

    static const SPeer& Peer() { return *std::get<0>(GetParam()); }
    static const SExchange& Exchange() { return std::get<1>(GetParam()); }

    Journal m_journal = std::make_shared<SJournal>();
    CService m_service;
};

std::string NameOfExchange(const testing::TestParamInfo<ServiceMethod::ParamType>& info) {
    return std::string(std::get<1>(info.param).Name);
}

INSTANTIATE_TEST_SUITE_P(OfInstaller, ServiceMethod,
                         testing::Combine(testing::Values(&Installer), testing::ValuesIn(InstallerExchanges)),
                         NameOfExchange);
INSTANTIATE_TEST_SUITE_P(OfAgent, ServiceMethod,
                         testing::Combine(testing::Values(&Agent), testing::ValuesIn(AgentExchanges)),
                         NameOfExchange);

TEST_P(ServiceMethod, IsCalledByItsRequestAndAnsweredByItsResponse) {
    EXPECT_EQ(m_service.Answer(Exchange().Request), Exchange().Response);
    EXPECT_THAT(m_journal->Calls, ElementsAre(Exchange().Call));
}

TEST_P(ServiceMethod, AnswersAFailureOfItsImplementationAndGoesOn) {
    const std::size_t objects = m_service.ObjectCount();
    EXPECT_EQ(objects, Peer().Openers.size() + 1);
    m_journal->OnCall = [](const std::string&) { throw zamclientlib::CJobIsRunning("not now"); };
    EXPECT_EQ(m_service.Answer(Exchange().Request),
              "<Data><__exception_obj><type>CJobIsRunning</type><Exception><ApiException>"
              "<exc_msg>not now</exc_msg></ApiException></Exception></__exception_obj></Data>");
    EXPECT_EQ(m_service.ObjectCount(), objects);
    m_journal->OnCall = nullptr;
    EXPECT_EQ(m_service.Answer(Exchange().Request), Exchange().Response);
}

TEST_P(ServiceMethod, NamesEachArgumentThatIsMissingAndCallsNothing) {
    const auto request = apigen::CXmlData::Unserialize(Exchange().Request);
    const auto row = std::find_if(MethodTable.begin(), MethodTable.end(), [&](const SMethodRow& candidate) {
        return candidate.Id == request->GetString("__method");
    });
    ASSERT_NE(row, MethodTable.end());
    if (row->Signature.find("(std::vector<") != std::string::npos) return;  // a list may be empty
    for (const std::string& key : row->Keys) {
        std::string misspelt = Exchange().Request;
        const std::string begin = '<' + key;
        misspelt.insert(misspelt.find(begin) + 1, "x");
        const std::size_t end = misspelt.find("</" + key + '>');
        if (end != std::string::npos) misspelt.insert(end + 2, "x");
        EXPECT_THAT(m_service.Answer(misspelt),
                    AllOf(StartsWith("<Data><__api_internal_err><msg>"), HasSubstr(key)));
    }
    EXPECT_THAT(m_journal->Calls, IsEmpty());
}

TEST_F(Service, GreetsWithItsRoot) {
    EXPECT_EQ(m_service.Greeting(), "<Data><__handle>1</__handle></Data>");
    EXPECT_EQ(m_service.ObjectCount(), 1U);
}

TEST_F(Service, ReportsEachTypeOfFailureByItsName) {
    const auto answerTo = [this](auto failure) {
        m_journal->OnCall = [failure](const std::string&) { throw failure; };
        return Ask(Request("", 1, "IsSystemSupported_6523745946180482134"));
    };
    const auto plain = [](const std::string& type) {
        return "<Data><__exception_obj><type>" + type +
               "</type><Exception><ApiException><exc_msg>a &lt; b</exc_msg></ApiException></Exception>"
               "</__exception_obj></Data>";
    };
    EXPECT_EQ(answerTo(zamclientlib::CGenericException("a < b")), plain("CGenericException"));
    EXPECT_EQ(answerTo(zamclientlib::CJobIsRunning("a < b")), plain("CJobIsRunning"));
    EXPECT_EQ(answerTo(zamclientlib::CPackageManagerIsLocked("a < b")), plain("CPackageManagerIsLocked"));
    EXPECT_EQ(
        answerTo(zamclientlib::CIndexingUnmetDependencies("a < b", zamclientlib::EIndexingDependency::Gzip)),
        "<Data><__exception_obj><type>CIndexingUnmetDependencies</type><Exception><ApiException>"
        "<exc_msg>a &lt; b</exc_msg></ApiException><MissedPackage>3</MissedPackage></Exception>"
        "</__exception_obj></Data>");
    EXPECT_EQ(answerTo(std::runtime_error("a < b")), plain("CGenericException"));
    EXPECT_EQ(answerTo(apigen::ApiException("a < b")), plain("CGenericException"));
    EXPECT_EQ(answerTo(apigen::ApiInternalError("a < b")), plain("CGenericException"));
    EXPECT_THAT(answerTo(17), AllOf(StartsWith("<Data><__exception_obj><type>CGenericException</type>"),
                                    HasSubstr("<exc_msg>")));
    EXPECT_THAT(answerTo(std::runtime_error(std::string("\1"))),
                HasSubstr("<exc_msg encoding=\"base64\">AQ==</exc_msg>"));
}

TEST_F(Service, ReportsAFailureOfADerivedClassAsItsBase) {
    class CBusy final : public zamclientlib::CJobIsRunning {
    public:
        CBusy() : CJobIsRunning("busy") {}
    };
    m_journal->OnCall = [](const std::string&) { throw CBusy(); };
    EXPECT_THAT(Ask(Request("", 1, "IsSystemSupported_6523745946180482134")),
                HasSubstr("<type>CJobIsRunning</type>"));
}

TEST_F(Service, AnswersWhatIsNoRequestWithAnError) {
    for (const std::string& text :
         {std::string(), std::string("Usage: foo"), std::string("<Data>"), std::string("\0\0", 2),
          std::string("<Data/>"), std::string("<Data><__handle>1</__handle></Data>"),
          std::string("<Data><__method>__dtr</__method></Data>"), std::string("<!DOCTYPE a><Data/>"),
          std::string("<Data><__handle><item>1</item></__handle><__method>__dtr</__method></Data>"),
          std::string("<Data><__handle>1</__handle><__method><a>x</a></__method></Data>")}) {
        Refusal(text);
    }
    EXPECT_EQ(m_service.ObjectCount(), 1U);
    EXPECT_THAT(m_journal->Calls, IsEmpty());
}

TEST_F(Service, NamesTheHandleOrMethodThatItDoesNotKnow) {
    EXPECT_THAT(Refusal(Request("", 7, "GetName_12671373201279964889")), HasSubstr("handle 7"));
    EXPECT_THAT(Refusal(Request("", 0, "GetName_12671373201279964889")), HasSubstr("handle 0"));
    EXPECT_THAT(Refusal("<Data><__handle>x</__handle><__method>a</__method></Data>"), HasSubstr("handle 0"));
    EXPECT_THAT(Refusal(Request("", 1, "GetToolVersion_1")), HasSubstr("GetToolVersion_1"));
    EXPECT_THAT(Refusal(Request("", 1, "")), HasSubstr("handle 1"));
    EXPECT_THAT(Refusal(Request("", 1, "gettoolversion_9650153311793924748")), HasSubstr("gettoolversion"));
}

TEST_F(Service, CallsNoMethodOfAnotherInterface) {
    Refusal(Request("", 1, "Start_11243714758416590425"));
    MakeObjects();
    Refusal(Request("", 2, "Start_11243714758416590425"));
    Refusal(Request("", 3, "GetToolVersion_9650153311793924748"));
    EXPECT_THAT(m_journal->Calls, IsEmpty());
}

TEST_F(Service, NamesAnArgumentThatIsMissingAndCallsNothing) {
    MakeObjects();
    EXPECT_THAT(Refusal(Request("", 1, "FindService_15620865180769635232")), HasSubstr("serviceName"));
    EXPECT_THAT(Refusal(Request("<pkgpath>a</pkgpath>", 2, "GetPackageNameFromFile_2448479667004574270")),
                HasSubstr("pkgPath"));
    EXPECT_THAT(
        Refusal(Request("<pkgPath><a>b</a></pkgPath>", 2, "GetPackageNameFromFile_2448479667004574270")),
        HasSubstr("pkgPath"));
    EXPECT_THAT(Refusal(Request("<pkgPaths>a</pkgPaths>", 2, "InstalLocalPackages_18177456428110118300")),
                HasSubstr("item"));
    EXPECT_THAT(m_journal->Calls, IsEmpty());
}

TEST_F(Service, TakesArgumentsInAnyPlaceAndIgnoresUnknownOnes) {
    EXPECT_EQ(Ask("<R><__method>FindService_15620865180769635232</__method><x/><serviceName>nothing"
                  "</serviceName><serviceName>second</serviceName><__handle>1</__handle></R>"),
              "<Data><__handle>0</__handle></Data>");
    EXPECT_THAT(m_journal->Calls, ElementsAre("FindService(nothing)"));
}

TEST_F(Service, IsNotDeceivedByWhatLooksLikeAPlainRequest) {
    const std::string envelope = "<__handle>1</__handle><__method>__dtr</__method></Data>";
    for (const std::string& text :
         {"<Data><!--" + envelope, "<Data><a>" + envelope, "<Data></a>" + envelope,
          "<Data><![CDATA[" + envelope, "<Data>]]>" + envelope, "<Data>&" + envelope, "<Data>\x01" + envelope,
          "<Data><?" + envelope, "<Data></Data>" + envelope, "<Data><Data>" + envelope,
          "<Data><a b='>" + envelope}) {
        Refusal(text);
    }
    EXPECT_EQ(m_service.ObjectCount(), 1U);
    EXPECT_THAT(Refusal("<Data><__handle>5</__handle>" + envelope), HasSubstr("handle 5"));
    EXPECT_THAT(Refusal("<Data><__method>x</__method>" + envelope), HasSubstr("no method x"));
    EXPECT_THAT(Refusal(Request("<serviceName>\x01</serviceName>", 1, "FindService_15620865180769635232")),
                Not(IsEmpty()));
    EXPECT_THAT(m_journal->Calls, IsEmpty());
}

TEST_F(Service, CarriesOutRequestsThatAreWrittenInOtherWays) {
    const std::string find = "FindService_15620865180769635232";
    for (const std::string& text :
         {Request("<serviceName>nothing</serviceName>", 1, find),
          Request("<serviceName>n&#111;thing</serviceName>", 1, find),
          Request("<serviceName><![CDATA[nothing]]></serviceName>", 1, find),
          Request("<serviceName encoding=\"base64\">bm90aGluZw==</serviceName>", 1, find),
          Request("<serviceName>nothing</serviceName><later/>", 1, find),
          Request("<!-- who --><serviceName>nothing</serviceName>", 1, find),
          "\n" + Request("<serviceName>nothing</serviceName> ", 1, find) + "\n",
          "<Data><serviceName>nothing</serviceName><__handle> 1</__handle><__method>" + find +
              "</__method></Data>",
          "<Data><serviceName>nothing</serviceName><__handle>1</__handle><between/><__method>" + find +
              "</__method></Data>"}) {
        EXPECT_EQ(Ask(text), "<Data><__handle>0</__handle></Data>") << text;
        EXPECT_THAT(m_journal->Calls, ElementsAre("FindService(nothing)")) << text;
        m_journal->Calls.clear();
    }
    EXPECT_EQ(Ask(Request("<x>1</x>", 1, "__dtr")), "<Data/>") << "a release with something besides";
    EXPECT_EQ(m_service.ObjectCount(), 0U);
}

TEST_F(Service, GivesEachReturnedObjectAHandleOfItsOwnForEver) {
    for (int handle = 2; handle < 6; ++handle) {
        EXPECT_EQ(Ask(Request("", 1, "GetZAMService_7046161401573418507")),
                  "<Data><__handle>" + std::to_string(handle) + "</__handle></Data>");
        EXPECT_EQ(Ask(Released(handle)), "<Data/>");
    }
    EXPECT_EQ(m_service.ObjectCount(), 1U);
}

TEST_F(Service, DestroysAnObjectWithItsReleaseAndOnlyThat) {
    MakeObjects();
    EXPECT_EQ(Ask(Released(3)), "<Data/>");
    EXPECT_THAT(m_journal->Ends, ElementsAre("IService"));
    EXPECT_EQ(m_service.ObjectCount(), 3U);
    EXPECT_THAT(Refusal(Released(3)), HasSubstr("handle 3"));
    EXPECT_THAT(Refusal(Request("", 3, "GetName_12671373201279964889")), HasSubstr("handle 3"));
    EXPECT_EQ(Ask(Released(1)), "<Data/>") << "the root is an object like any other";
    EXPECT_EQ(Ask(Request("<pkgPath>p</pkgPath>", 2, "GetPackageNameFromFile_2448479667004574270")),
              "<Data><__result>name of p</__result></Data>");
    EXPECT_EQ(m_service.ObjectCount(), 2U);
}

TEST_F(Service, DestroysWhatIsLeftWithItself) {
    MakeObjects();
    m_service = CService(std::make_shared<CFakeInstaller>(std::make_shared<SJournal>()));
    EXPECT_THAT(m_journal->Ends, testing::UnorderedElementsAre("ITarvoInstaller", "IPackageManager",
                                                               "IService", "IZAMDeployer"));
}

/// Objects in memory, for results that the API's interfaces do not have.
class CFolder final : public IFolder {
public:
    std::vector<std::shared_ptr<IFolder>> Folders;
    std::vector<std::shared_ptr<IFolder>> GetFolders() const override { return Folders; }
    std::vector<zamclientlib::SVersion> GetVersions(std::vector<zamclientlib::SVersion> known) override {
        known.push_back({1, 2, 3, 4});
        return known;
    }
};

class CTable final : public zamservice::IObjectTable {
public:
    apigen::Handle Add(zamservice::SObject object) override {
        Objects.push_back(object);
        return {10 + Objects.size()};
    }
    std::vector<zamservice::SObject> Objects;
};

std::string Dispatched(CFolder& folder, const std::string& method, const std::string& request,
                       CTable& table) {
    const auto* const handler = zamservice::CInterface::Of<IFolder>().Find(method);
    if (handler == nullptr) return "no method";
    IFolder* const object = &folder;
    apigen::CXmlWriter result;
    const std::size_t opened = result.Open("Data");
    zamservice::SCall call{table, result, {}, apigen::CXmlData::Unserialize(request)};
    (*handler)(object, call);
    result.Close("Data", opened);
    return std::string(result.Text());
}

TEST(Dispatcher, WritesAListOfObjectsInOrderWithZeroForNone) {
    CFolder root;
    CTable table;
    EXPECT_EQ(Dispatched(root, "GetFolders_1", "<Data/>", table), "<Data/>");
    const auto one = std::make_shared<CFolder>();
    root.Folders = {one, nullptr, one};
    EXPECT_EQ(Dispatched(root, "GetFolders_1", "<Data/>", table),
              "<Data><__handle><item>11</item></__handle><__handle><item>0</item></__handle>"
              "<__handle><item>12</item></__handle></Data>");
    ASSERT_EQ(table.Objects.size(), 2U);
    EXPECT_EQ(table.Objects[0].Object, table.Objects[1].Object);
    EXPECT_EQ(table.Objects[0].Interface, &zamservice::CInterface::Of<IFolder>());
}

TEST(Dispatcher, CarriesListsOfRecordsBothWays) {
    CFolder root;
    CTable table;
    const std::string version =
        "<item><major>9</major><minor>8</minor><revision>7</revision><build>6</build></item>";
    EXPECT_EQ(Dispatched(root, "GetVersions_2", "<Data><known>" + version + "</known></Data>", table),
              "<Data><__result>" + version +
                  "</__result><__result><item><major>1</major><minor>2</minor>"
                  "<revision>3</revision><build>4</build></item></__result></Data>");
    EXPECT_EQ(Dispatched(root, "GetVersions_3", "<Data/>", table), "no method");
}

}  // namespace
}  // namespace zamtest
