// SPDX-License-Identifier: Apache-2.0
// Every record against its golden texts and against its own field list.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <set>

#include "tests/api/CPlainData.h"
#include "tests/api/FieldWalk.h"
#include "tests/api/RecordGoldens.h"
#include "tests/api/TypeNames.h"

namespace zamtest {
namespace {

using apigen::CXmlData;
using apigen::FieldInfo;
using testing::HasSubstr;

#define ZAM_CHECK_FIELD_COUNT(record)                                                        \
    static_assert(FieldCount<zamclientlib::record>() == MemberCount<zamclientlib::record>(), \
                  #record "'s field list and its members differ in number");                 \
    static_assert(!HasField<zamclientlib::record>("item") && !HasField<zamclientlib::record>("opt"));

template <class R>
constexpr bool HasField(std::string_view key) {
    bool found = false;
    R::Fields([&](const FieldInfo& info, auto) { found = found || info.Key == key; });
    return found;
}

ZAM_FOR_EACH_RECORD(ZAM_CHECK_FIELD_COUNT)

// The counting itself: a list that misses a member must show.
struct SForgetful {
    int Known = 0;
    std::string Forgotten;
    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Known", &SForgetful::Known);
    }
};
static_assert(FieldCount<SForgetful>() == 1 && MemberCount<SForgetful>() == 2);

std::string Node(const std::string& name, const std::string& inside) {
    return inside.empty() ? "<" + name + "/>" : "<" + name + ">" + inside + "</" + name + ">";
}

std::string InK(const std::string& inside) {
    return Node("Data", Node("K", inside));
}

template <class R>
R ReadK(const apigen::IData& data) {
    R record;
    apigen::Deserialize(data, "K", record);
    return record;
}

template <class R>
class Record : public testing::Test {
protected:
    static const R& Full() { return Goldens<R>().front().Value; }

    /// A document with each field of the full record for which `isWanted(index)` holds, in the given order.
    static std::shared_ptr<apigen::IData> DocumentWith(const std::function<bool(std::size_t)>& isWanted,
                                                       bool isReversed = false) {
        std::vector<std::function<void(apigen::IData&)>> steps;
        apigen::ForEachField(Full(), [&](const FieldInfo& info, const auto& value) {
            steps.push_back(
                [&value, key = std::string(info.Key)](apigen::IData& node) { Write(node, key, value); });
        });
        if (isReversed) std::reverse(steps.begin(), steps.end());
        auto data = CXmlData::CreateNew();
        const auto node = data->CreateChild("K");
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (isReversed) node->SetString("Unknown" + std::to_string(i), "?");
            if (isWanted(i)) steps[i](*node);
        }
        return data;
    }
};

struct SRecordNames {
    template <class R>
    static std::string GetName(int) {
        return TypeName<R>();
    }
};

TYPED_TEST_SUITE(Record, AllRecords, SRecordNames);

TYPED_TEST(Record, IsWrittenAsItsGoldenText) {
    for (const auto& golden : Goldens<TypeParam>())
        EXPECT_EQ(DocumentOf(golden.Value), InK(golden.Text));
}

TYPED_TEST(Record, IsReadFromItsGoldenText) {
    for (const auto& golden : Goldens<TypeParam>())
        EXPECT_EQ(ReadK<TypeParam>(*CXmlData::Unserialize(InK(golden.Text))), golden.Value);
}

TYPED_TEST(Record, SurvivesAContainerOfAnotherKind) {
    for (const auto& golden : Goldens<TypeParam>()) {
        CPlainData data;
        apigen::Serialize(data, "K", golden.Value);
        EXPECT_EQ(ReadK<TypeParam>(data), golden.Value);
        // Escapes belong to the text form of the other container.
        if (golden.Text.find_first_of("&\"") == std::string::npos) {
            EXPECT_EQ("<Data>" + data.Text() + "</Data>", InK(golden.Text));
        }
    }
}

TYPED_TEST(Record, HasAFirstGoldenTextWhoseValuesAllDiffer) {
    const std::string& text = Goldens<TypeParam>().front().Text;
    std::set<std::string> seen;
    for (std::size_t end = text.find("</"); end != std::string::npos; end = text.find("</", end + 1)) {
        const std::size_t begin = text.rfind('>', end) + 1;
        const std::string value = text.substr(begin, end - begin);
        // A node ends where its last entry does. And two flags can't differ from a third; the other rows
        // tell them apart.
        if (value.empty() || value == "true" || value == "false") continue;
        EXPECT_TRUE(seen.insert(value).second) << value << " stands twice in " << text;
    }
    EXPECT_FALSE(seen.empty());
}

TYPED_TEST(Record, HasAFirstGoldenValueWithoutADefaultField) {
    apigen::ForEachField(this->Full(), [](const FieldInfo& info, const auto& value) {
        EXPECT_FALSE(value == std::decay_t<decltype(value)>{}) << info.Key;
    });
}

TYPED_TEST(Record, IsUnequalWhenAnySingleFieldDiffers) {
    const TypeParam full = this->Full();
    EXPECT_TRUE(full == this->Full());
    EXPECT_FALSE(full != this->Full());
    TypeParam::Fields([&](const FieldInfo& info, auto member) {
        TypeParam other = full;
        other.*member = {};
        EXPECT_FALSE(other == full) << info.Key;
        EXPECT_FALSE(full == other) << info.Key;
        EXPECT_TRUE(other != full) << info.Key;
    });
}

TYPED_TEST(Record, IsEmptyWhenMadeWithoutAValue) {
    alignas(TypeParam) unsigned char memory[sizeof(TypeParam)];
    std::memset(memory, 0xa5, sizeof memory);
    auto* const record = ::new (memory) TypeParam;
    apigen::ForEachField(*record, [](const FieldInfo& info, const auto& value) {
        EXPECT_TRUE(value == std::decay_t<decltype(value)>{}) << info.Key;
    });
    record->~TypeParam();
}

TYPED_TEST(Record, HasKeysThatAreUniqueAndFit) {
    std::set<std::string> seen;
    TypeParam::Fields([&](const FieldInfo& info, auto) {
        EXPECT_THAT(std::string(info.Key), testing::MatchesRegex("[A-Za-z_][A-Za-z0-9_.-]*"));
        EXPECT_TRUE(seen.insert(std::string(info.Key)).second) << info.Key << " stands twice";
    });
}

TYPED_TEST(Record, ReadsItsFieldsInAnyOrderBetweenUnknownOnes) {
    const auto data = this->DocumentWith([](std::size_t) { return true; }, true);
    EXPECT_EQ(ReadK<TypeParam>(*data), this->Full());
    EXPECT_EQ(ReadK<TypeParam>(*CXmlData::Unserialize(CXmlData::Serialize(*data))), this->Full());
}

TYPED_TEST(Record, RefusesTheAbsenceOfAFieldAndNamesIt) {
    std::size_t index = 0;
    TypeParam::Fields([&](const FieldInfo& info, auto member) {
        using Member = typename decltype(MemberType(member))::type;
        const auto data = this->DocumentWith([&](std::size_t i) { return i != index; });
        ++index;
        if constexpr (MayBeAbsent<Member>) {
            TypeParam expected = this->Full();
            expected.*member = {};
            EXPECT_EQ(ReadK<TypeParam>(*data), expected) << info.Key;
        } else {
            try {
                ReadK<TypeParam>(*data);
                ADD_FAILURE() << "read without " << info.Key;
            } catch (const apigen::ApiInternalError& error) {
                EXPECT_THAT(error.what(), HasSubstr(std::string(info.Key)));
            }
        }
    });
}

TYPED_TEST(Record, TravelsInAList) {
    std::vector<TypeParam> values;
    std::string text = "<Data>";
    for (const auto& golden : Goldens<TypeParam>()) {
        values.push_back(golden.Value);
        text += Node("K", Node("item", golden.Text));
    }
    text += "</Data>";
    EXPECT_EQ(DocumentOf(values), text);
    std::vector<TypeParam> read;
    apigen::DeserializeVector(*CXmlData::Unserialize(text), "K", read);
    EXPECT_EQ(read, values);

    EXPECT_EQ(DocumentOf(std::vector<TypeParam>{}), "<Data/>");
    std::vector<TypeParam> none;
    apigen::DeserializeVector(*CXmlData::Unserialize("<Data/>"), "K", none);
    EXPECT_TRUE(none.empty());
}

TYPED_TEST(Record, TravelsInAnOptional) {
    const auto& golden = Goldens<TypeParam>().front();
    const apigen::Optional<TypeParam> present(golden.Value);
    const std::string text = InK(Node("opt", golden.Text));
    EXPECT_EQ(DocumentOf(present), text);
    apigen::Optional<TypeParam> read;
    apigen::Deserialize(*CXmlData::Unserialize(text), "K", read);
    EXPECT_TRUE(read == present);

    EXPECT_EQ(DocumentOf(apigen::Optional<TypeParam>{}), "<Data/>");
    apigen::Deserialize(*CXmlData::Unserialize("<Data/>"), "K", read);
    EXPECT_TRUE(read == present) << "an absent key leaves the target as it was";
}

TEST(RecordTest, AnOddNumberTextInAFieldIsNoError) {
    const auto data = CXmlData::Unserialize(
        "<Data><K><major> "
        "12abc</major><minor>x</minor><revision>-1</revision><build>70000</build></K></Data>");
    EXPECT_EQ(ReadK<zamclientlib::SVersion>(*data), (zamclientlib::SVersion{12, 0, 65535, 65535}));
}

TEST(RecordTest, AnErrorInsideARecordNamesTheWholePath) {
    const auto data = CXmlData::Unserialize(
        "<Data><K><SystemUID/><BiosUID/><OsName/><OsId/><OsVersion><major>1</major></OsVersion></K></Data>");
    try {
        ReadK<zamclientlib::SSystemInformation>(*data);
        ADD_FAILURE();
    } catch (const apigen::ApiInternalError& error) {
        EXPECT_THAT(error.what(), testing::AllOf(HasSubstr("K"), HasSubstr("OsVersion"), HasSubstr("minor")));
    }
}

}  // namespace
}  // namespace zamtest
