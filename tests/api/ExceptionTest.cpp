// SPDX-License-Identifier: Apache-2.0
// The typed failures: their texts, their way through the generator, and what is logged of them.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/InstallerProxies.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <typeinfo>

#include "tests/api/CMemoryLogger.h"
#include "tests/api/CPlainData.h"
#include "tests/api/CScriptedInvoker.h"

namespace zamtest {
namespace {

using namespace zamclientlib;
using apigen::ApiException;
using apigen::ApiInternalError;
using apigen::CXmlData;
using testing::ElementsAre;

/// Throws what `description`, the content of "__exception_obj", describes, through a whole call.
void CallThatFailsWith(const std::string& description, const std::shared_ptr<apigen::ILogger>& logger) {
    const auto invoker = std::make_shared<CScriptedInvoker>(std::make_shared<CApiExceptionGenerator>(logger));
    invoker->Responses = {"<Data><__exception_obj>" + description + "</__exception_obj></Data>"};
    IService_Proxy(invoker, apigen::Handle{1}).Start();
}

std::string Described(const std::string& type, const std::string& message) {
    return "<type>" + type + "</type><Exception><ApiException><exc_msg>" + message +
           "</exc_msg></ApiException></Exception>";
}

template <class E>
class TypedFailure : public testing::Test {};

template <class E>
const char* NameOfType();
template <>
const char* NameOfType<CGenericException>() {
    return "CGenericException";
}
template <>
const char* NameOfType<CJobIsRunning>() {
    return "CJobIsRunning";
}
template <>
const char* NameOfType<CPackageManagerIsLocked>() {
    return "CPackageManagerIsLocked";
}

using PlainFailures = testing::Types<CGenericException, CJobIsRunning, CPackageManagerIsLocked>;
TYPED_TEST_SUITE(TypedFailure, PlainFailures);

TYPED_TEST(TypedFailure, ArrivesAsItsOwnTypeWithItsMessageAndTwoLogEntries) {
    const std::string name = NameOfType<TypeParam>();
    const auto logger = std::make_shared<CMemoryLogger>();
    try {
        CallThatFailsWith(Described(name, "a &lt;b&gt;"), logger);
        ADD_FAILURE();
    } catch (const ApiException& error) {
        EXPECT_TRUE(typeid(error) == typeid(TypeParam)) << typeid(error).name();
        EXPECT_STREQ(error.what(), "a <b>");
    }
    EXPECT_THAT(logger->Lines(), ElementsAre("I Exception of " + name + " type was received.",
                                             "E Generating exception. / a <b>"));
}

TYPED_TEST(TypedFailure, HasItsGoldenTextInBothDirections) {
    const auto data = CXmlData::CreateNew();
    apigen::Serialize(*data, "E", TypeParam("text"));
    EXPECT_EQ(CXmlData::Serialize(*data),
              "<Data><E><ApiException><exc_msg>text</exc_msg></ApiException></E></Data>");
    TypeParam read("replaced");
    apigen::Deserialize(*data, "E", read);
    EXPECT_STREQ(read.what(), "text");

    CPlainData plain;
    apigen::Serialize(plain, "E", TypeParam("text"));
    EXPECT_EQ("<Data>" + plain.Text() + "</Data>", CXmlData::Serialize(*data));
    TypeParam again;
    EXPECT_STREQ(again.what(), "");
    apigen::Deserialize(plain, "E", again);
    EXPECT_STREQ(again.what(), "text");
}

TEST(Failure, OfUnmetDependenciesSaysWhatIsMissing) {
    const auto data = CXmlData::CreateNew();
    apigen::Serialize(*data, "E", CIndexingUnmetDependencies("need it", EIndexingDependency::Tar));
    EXPECT_EQ(CXmlData::Serialize(*data),
              "<Data><E><ApiException><exc_msg>need it</exc_msg></ApiException>"
              "<MissedPackage>2</MissedPackage></E></Data>");
    const auto logger = std::make_shared<CMemoryLogger>();
    try {
        CallThatFailsWith(
            "<type>CIndexingUnmetDependencies</type><Exception><ApiException>"
            "<exc_msg>need it</exc_msg></ApiException><MissedPackage>3</MissedPackage>"
            "</Exception>",
            logger);
        ADD_FAILURE();
    } catch (const ApiException& error) {
        EXPECT_STREQ(error.what(), "need it");
        const auto* const unmet = dynamic_cast<const CIndexingUnmetDependencies*>(&error);
        ASSERT_NE(unmet, nullptr);
        EXPECT_EQ(unmet->MissedPackage, EIndexingDependency::Gzip);
    }
    EXPECT_THAT(logger->Lines(), ElementsAre("I Exception of CIndexingUnmetDependencies type was received.",
                                             "E Generating exception. / need it"));
}

TEST(Failure, OfTheBaseHasItsGoldenTextInBothDirections) {
    const auto data = CXmlData::CreateNew();
    apigen::Serialize(*data, "E", ApiException("base"));
    EXPECT_EQ(CXmlData::Serialize(*data), "<Data><E><exc_msg>base</exc_msg></E></Data>");
    ApiException read;
    apigen::Deserialize(*data, "E", read);
    EXPECT_STREQ(read.what(), "base");
}

/// Expects the base class itself, and gives the log.
std::vector<std::string> LogOfAnUnknownType(const std::string& description) {
    const auto logger = std::make_shared<CMemoryLogger>();
    try {
        CallThatFailsWith(description, logger);
        ADD_FAILURE() << description;
    } catch (const ApiException& error) {
        EXPECT_TRUE(typeid(error) == typeid(ApiException)) << typeid(error).name();
        EXPECT_STREQ(error.what(), "Cannot deserialize exception: Unknown exception type.");
    }
    return logger->Lines();
}

TEST(Failure, OfAnUnknownTypeIsTheBaseClassItself) {
    for (const std::string type :
         {"cgenericexception", "CGENERICEXCEPTION", "CGenericException ", " CJobIsRunning", "CJobIsRunning2",
          "zamclientlib::CJobIsRunning", "ApiException", "ApiInternalError", "std::runtime_error"}) {
        EXPECT_THAT(LogOfAnUnknownType(Described(type, "m")),
                    ElementsAre("I Exception of " + type + " type was received."));
    }
}

TEST(Failure, OfAMissingTypeLeavesTwoBlanksInTheLog) {
    const std::string content = "<Exception><ApiException><exc_msg>m</exc_msg></ApiException></Exception>";
    for (const std::string& description :
         {content, "<type/>" + content, "<type><a>CGenericException</a></type>" + content, std::string()}) {
        EXPECT_THAT(LogOfAnUnknownType(description), ElementsAre("I Exception of  type was received."))
            << description;
    }
}

TEST(Failure, WhoseContentIsMissingIsAnInternalErrorAfterTheFirstLogEntry) {
    for (const char* const description :
         {"<type>CJobIsRunning</type>", "<type>CJobIsRunning</type><Exception/>",
          "<type>CJobIsRunning</type><Exception><ApiException/></Exception>",
          "<type>CJobIsRunning</type><Exception><exc_msg>m</exc_msg></Exception>"}) {
        const auto logger = std::make_shared<CMemoryLogger>();
        EXPECT_THROW(CallThatFailsWith(description, logger), ApiInternalError) << description;
        EXPECT_THAT(logger->Lines(), ElementsAre("I Exception of CJobIsRunning type was received."));
    }
    EXPECT_THROW(CallThatFailsWith("<type>CIndexingUnmetDependencies</type><Exception><ApiException>"
                                   "<exc_msg>m</exc_msg></ApiException></Exception>",
                                   nullptr),
                 ApiInternalError);
}

TEST(Failure, IsThrownWithoutALoggerToo) {
    EXPECT_THROW(CallThatFailsWith(Described("CJobIsRunning", "m"), nullptr), CJobIsRunning);
}

TEST(Failure, OfATypeGoesBeforeAnInternalError) {
    const auto invoker =
        std::make_shared<CScriptedInvoker>(std::make_shared<CApiExceptionGenerator>(nullptr));
    IService_Proxy service(invoker, apigen::Handle{1});
    invoker->Responses = {"<Data><__api_internal_err><msg>x</msg></__api_internal_err><__exception_obj>" +
                          Described("CJobIsRunning", "m") + "</__exception_obj></Data>"};
    EXPECT_THROW(service.Start(), CJobIsRunning);
}

TEST(Failure, ThatNobodyCanRethrowIsAnInternalError) {
    class CSilentGenerator final : public apigen::IApiExceptionGenerator {
        void Generate(std::shared_ptr<apigen::IData> /*exceptionData*/) override {}
    };
    for (const std::shared_ptr<apigen::IApiExceptionGenerator>& generator :
         {std::shared_ptr<apigen::IApiExceptionGenerator>(),
          std::shared_ptr<apigen::IApiExceptionGenerator>(std::make_shared<CSilentGenerator>())}) {
        const auto invoker = std::make_shared<CScriptedInvoker>(generator);
        invoker->Responses = {"<Data><__exception_obj>" + Described("CJobIsRunning", "m") +
                              "</__exception_obj></Data>"};
        try {
            IService_Proxy(invoker, apigen::Handle{1}).Start();
            ADD_FAILURE();
        } catch (const ApiInternalError& error) {
            EXPECT_STREQ(error.what(), "Unable to rethrow received exception");
        }
    }
}

TEST(Failure, OfTheMachineryWithoutATextIsStillAnInternalError) {
    const auto invoker = std::make_shared<CScriptedInvoker>();
    invoker->Responses = {"<Data><__api_internal_err/></Data>"};
    IService_Proxy service(invoker, apigen::Handle{1});
    EXPECT_THROW(service.Start(), ApiInternalError);
}

TEST(Failure, KeepsItsTextWhenCopied) {
    const auto original = std::make_unique<CIndexingUnmetDependencies>("m", EIndexingDependency::Mlocate);
    const CIndexingUnmetDependencies copy = *original;
    EXPECT_STREQ(copy.what(), "m");
    EXPECT_EQ(copy.MissedPackage, EIndexingDependency::Mlocate);
    EXPECT_EQ(CIndexingUnmetDependencies().MissedPackage, EIndexingDependency::None);
}

}  // namespace
}  // namespace zamtest
