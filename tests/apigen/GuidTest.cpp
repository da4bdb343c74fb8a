// SPDX-License-Identifier: Apache-2.0
#include <apigen/Guid.h>

#include <gtest/gtest.h>

#include <locale>
#include <random>
#include <sstream>
#include <string>

#include "support/apigen/GuidText.h"

namespace apigen {

void PrintTo(const Guid& guid, std::ostream* stream) {
    *stream << guid.Serialize();
}

namespace test {
namespace {

const Guid Sample{0x0123ABCD, 0x4, 0xF00D, {1, 2, 3, 4, 5, 6, 7, 8}};
const std::string SampleText = "{0123abcd-0004-f00d-0102-030405060708}";

/// The lenient reader, as plainly as can be.
Guid Model(std::string text) {
    if (text.size() >= 2) {
        if (text.front() == '{') text.erase(0, 1);
        if (text.back() == '}') text.pop_back();
    }
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    stream >> std::hex;
    Guid guid;
    char separator = 0;
    stream >> guid.Data1 >> separator >> guid.Data2 >> separator >> guid.Data3 >> separator;
    for (int i = 0; i < 8; ++i) {
        char first = 0;
        char second = 0;
        stream >> first >> second;
        if (!stream) return guid;
        std::istringstream byte(std::string{first, second});
        byte.imbue(std::locale::classic());
        unsigned int value = 0;
        byte >> std::hex >> value;
        guid.Data4[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value);
        if (i == 1) stream >> separator;
    }
    return guid;
}

Guid RandomGuid(std::mt19937_64& random) {
    Guid guid;
    guid.Data1 = static_cast<std::uint32_t>(random() >> random() % 64);
    guid.Data2 = static_cast<std::uint16_t>(random());
    guid.Data3 = static_cast<std::uint16_t>(random());
    for (auto& byte : guid.Data4) {
        byte = static_cast<std::uint8_t>(random());
    }
    return guid;
}

TEST(GuidText, Has38CharactersInLowerCase) {
    EXPECT_EQ(Sample.Serialize(), SampleText);
    EXPECT_EQ(Guid{}.Serialize(), "{00000000-0000-0000-0000-000000000000}");
    const Guid ones{0xFFFFFFFF, 0xFFFF, 0xFFFF, {255, 255, 255, 255, 255, 255, 255, 255}};
    EXPECT_EQ(ones.Serialize(), "{ffffffff-ffff-ffff-ffff-ffffffffffff}");
    EXPECT_EQ(Guid::Deserialize(ones.Serialize()), ones);
}

TEST(GuidText, OfEveryGuidReadsBack) {
    std::mt19937_64 random(10);
    for (int i = 0; i < 10000; ++i) {
        const Guid guid = RandomGuid(random);
        ASSERT_EQ(guid.Serialize().size(), 38U);
        ASSERT_EQ(Guid::Deserialize(guid.Serialize()), guid);
    }
}

TEST(GuidText, MayLackBracesAndHaveDigitsOfEitherCaseAndAnySeparators) {
    for (const std::string text :
         {"{0123abcd-0004-f00d-0102-030405060708}", "{0123ABCD-0004-F00D-0102-030405060708}",
          "0123abcd-0004-f00d-0102-030405060708", "0123abcd_0004_f00d_0102_030405060708",
          "{0123abcd-0004-f00d-0102-030405060708", "0123abcd-0004-f00d-0102-030405060708}",
          "0123aBcD:0004/f00D.0102+030405060708", " 0123abcd - 4 -\tf00d\n-01 02 - 03 0405 0607 08 ",
          "123abcd-4-f00d-0102-030405060708", "000000123abcd-00000000004-f00d-0102-030405060708",
          "0x123abcd-0x4-0Xf00d-0102-030405060708", "{0123abcd-0004-f00d-0102-030405060708-and more}",
          "{0123abcd-0004-f00d-0 1 0 2-0 3 0405060708"}) {
        EXPECT_EQ(Guid::Deserialize(text), Sample) << text;
    }
}

TEST(GuidText, WithoutADigitIsTheZeroGuid) {
    for (const std::string text :
         {"", " ", "{", "}", "{}", "{{", "}{", "{ }", "-", "xyz", "{xyz}", "\xFF\xFE", "----"}) {
        EXPECT_EQ(Guid::Deserialize(text), Guid{}) << text;
    }
    EXPECT_EQ(Guid::Deserialize(std::string(100, '\0')), Guid{});
}

TEST(GuidText, StaysZeroFromTheFirstGroupThatCannotBeReadOn) {
    EXPECT_EQ(Guid::Deserialize("0123abcd"), (Guid{0x0123ABCD, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("0123abcd-"), (Guid{0x0123ABCD, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("0123abcd-4"), (Guid{0x0123ABCD, 4, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("0123abcd-4-f00d-01"), (Guid{0x0123ABCD, 4, 0xF00D, {1}}));
    EXPECT_EQ(Guid::Deserialize("0123abcd-4-f00d-0102-0"), (Guid{0x0123ABCD, 4, 0xF00D, {1, 2}}));
    EXPECT_EQ(Guid::Deserialize("0123abcd-xx-f00d-0102-030405060708"), (Guid{0x0123ABCD, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("xx-4-f00d-0102-030405060708"), Guid{});
}

TEST(GuidText, WithAGroupTooLargeHasItsLimitAndZerosBehind) {
    EXPECT_EQ(Guid::Deserialize("123456789-4-f00d-0102-030405060708"), (Guid{0xFFFFFFFF, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("1-12345-f00d-0102-030405060708"), (Guid{1, 0xFFFF, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("1-2-12345-0102-030405060708"), (Guid{1, 2, 0xFFFF, {}}));
}

TEST(GuidText, HasAZeroByteWhereTwoCharactersAreNoDigits) {
    EXPECT_EQ(Guid::Deserialize("{0123abcd-0004-f00d-01zz-03xy05060708}"),
              (Guid{0x0123ABCD, 4, 0xF00D, {1, 0, 3, 0, 5, 6, 7, 8}}));
    EXPECT_EQ(Guid::Deserialize("{0123abcd-0004-f00d-01az-030405060708}"),
              (Guid{0x0123ABCD, 4, 0xF00D, {1, 10, 3, 4, 5, 6, 7, 8}}));
}

TEST(GuidText, LosesEachBraceIndependently) {
    EXPECT_EQ(Guid::Deserialize("{1}"), (Guid{1, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("{1"), (Guid{1, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("1}"), (Guid{1, 0, 0, {}}));
    EXPECT_EQ(Guid::Deserialize("{{1}}"), Guid{});
    EXPECT_EQ(Guid::Deserialize(" {1}"), Guid{});
    EXPECT_EQ(Guid::Deserialize("1"), (Guid{1, 0, 0, {}}));
}

TEST(GuidText, MeansWhatAStreamMakesOfIt) {
    std::mt19937_64 random(11);
    const std::string alphabet = "0123456789abcdefABCDEFxX-{} +_\t\xFF";
    for (int i = 0; i < 50000; ++i) {
        std::string text = RandomGuid(random).Serialize();
        for (std::size_t changes = random() % 4; changes != 0; --changes) {
            const std::size_t at = random() % (text.size() + 1);
            switch (random() % 3) {
                case 0:
                    text.erase(at, 1 + random() % (random() % 8 == 0 ? 20 : 2));
                    break;
                case 1:
                    text.insert(at, 1, alphabet[random() % alphabet.size()]);
                    break;
                default:
                    if (at < text.size()) text[at] = alphabet[random() % alphabet.size()];
            }
        }
        ASSERT_EQ(ParseGuid(text), Model(text)) << '"' << text << '"';
    }
}

TEST(GuidValue, IsComparedFieldByField) {
    EXPECT_EQ(Guid{}, Guid::Deserialize(""));
    for (const Guid& other : {Guid{0x0123ABCE, 0x4, 0xF00D, {1, 2, 3, 4, 5, 6, 7, 8}},
                              Guid{0x0123ABCD, 0x5, 0xF00D, {1, 2, 3, 4, 5, 6, 7, 8}},
                              Guid{0x0123ABCD, 0x4, 0xF00E, {1, 2, 3, 4, 5, 6, 7, 8}},
                              Guid{0x0123ABCD, 0x4, 0xF00D, {1, 2, 3, 4, 5, 6, 7, 9}}}) {
        EXPECT_NE(Sample, other);
        EXPECT_TRUE(Sample < other);
        EXPECT_FALSE(other < Sample);
    }
    EXPECT_FALSE(Sample < Sample);
}

}  // namespace
}  // namespace test
}  // namespace apigen
