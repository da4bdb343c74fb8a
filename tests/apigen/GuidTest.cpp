// SPDX-License-Identifier: Apache-2.0
#include <apigen/Guid.h>

#include <gtest/gtest.h>

#include <locale>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <unordered_set>

#include "support/apigen/GuidText.h"

namespace apigen {

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
    EXPECT_TRUE(Sample <= Sample);
    EXPECT_TRUE(Sample >= Sample);
    EXPECT_TRUE(Sample > Guid{});
}

TEST(GuidText, IsReadStrictlyWhereThatIsAskedFor) {
    for (const std::string text :
         {"{0123abcd-0004-f00d-0102-030405060708}", "{0123ABCD-0004-F00D-0102-030405060708}",
          "0123abcd-0004-f00d-0102-030405060708", "0123aBcD-0004-f00D-0102-030405060708"}) {
        EXPECT_EQ(Guid::Parse(text), Sample) << text;
    }
    for (const std::string text :
         {"", "{}", "0123abcd", "{0123abcd-0004-f00d-0102-030405060708",
          "0123abcd-0004-f00d-0102-030405060708}", "{{0123abcd-0004-f00d-0102-030405060708}}",
          "0123abcd_0004_f00d_0102_030405060708", " 0123abcd-0004-f00d-0102-030405060708",
          "0123abcd-0004-f00d-0102-030405060708 ", "0123abcd-0004-f00d-0102-03040506070",
          "0123abcd-0004-f00d-0102-0304050607080", "0123abcd0004f00d0102030405060708",
          "0123abcg-0004-f00d-0102-030405060708", "0x23abcd-0004-f00d-0102-030405060708",
          "}0123abcd-0004-f00d-0102-030405060708{", "0123abc-d0004-f00d-0102-030405060708",
          "+123abcd-0004-f00d-0102-030405060708"}) {
        EXPECT_EQ(Guid::Parse(text), nullopt) << text;
    }
    EXPECT_EQ(Guid::Parse(std::string(36, '\0')), nullopt);
    EXPECT_EQ(Guid::Parse(std::string(36, '\xB0')), nullopt);
}

TEST(GuidText, OfOneChangedCharacterIsTakenStrictlyOnlyWhenItIsStillADigit) {
    const std::string text = "0123abcd-0004-f00d-0102-030405060708";
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (int character = 0; character < 256; ++character) {
            std::string changed = text;
            changed[at] = static_cast<char>(character);
            const bool isDash = text[at] == '-';
            const bool isFine =
                isDash ? character == '-'
                       : std::string("0123456789abcdefABCDEF").find(changed[at]) != std::string::npos;
            ASSERT_EQ(Guid::Parse(changed).HasValue(), isFine) << changed;
            if (!isFine) continue;
            ASSERT_EQ(*Guid::Parse(changed), Guid::Deserialize(changed)) << changed;
        }
    }
}

TEST(GuidText, IsWrittenToAStreamWhateverItsSettings) {
    std::ostringstream stream;
    stream << std::hex << std::uppercase << Sample << ' ' << 255;
    EXPECT_EQ(stream.str(), SampleText + " FF");
}

TEST(GuidValue, OfZerosIsTheNilOne) {
    EXPECT_TRUE(Guid{}.IsNil());
    EXPECT_EQ(Guid::Nil(), Guid{});
    EXPECT_FALSE(Sample.IsNil());
    EXPECT_FALSE((Guid{0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}}.IsNil()));
}

TEST(GuidValue, AtRandomIsOfVersion4AndNeverTheSame) {
    std::set<Guid> seen;
    Guid ones;
    Guid zeros = {0xFFFFFFFF, 0xFFFF, 0xFFFF, {255, 255, 255, 255, 255, 255, 255, 255}};
    for (int i = 0; i < 1000; ++i) {
        const Guid guid = Guid::Random();
        const std::string text = guid.Serialize();
        ASSERT_EQ(text[15], '4') << text;
        ASSERT_NE(std::string("89ab").find(text[20]), std::string::npos) << text;
        ASSERT_TRUE(seen.insert(guid).second) << text;
        ones.Data1 |= guid.Data1, zeros.Data1 &= guid.Data1;
        ones.Data2 |= guid.Data2, zeros.Data2 &= guid.Data2;
        ones.Data3 |= guid.Data3, zeros.Data3 &= guid.Data3;
        for (std::size_t at = 0; at < guid.Data4.size(); ++at)
            ones.Data4[at] |= guid.Data4[at], zeros.Data4[at] &= guid.Data4[at];
    }
    EXPECT_EQ(ones.Serialize(), "{ffffffff-ffff-4fff-bfff-ffffffffffff}") << "a bit was never set";
    EXPECT_EQ(zeros.Serialize(), "{00000000-0000-4000-8000-000000000000}") << "a bit was never clear";
}

TEST(GuidValue, IsSpreadInUnorderedContainersThoughFewBitsDiffer) {
    std::unordered_set<std::size_t> hashes;
    std::unordered_set<Guid> guids;
    for (std::uint32_t i = 0; i < 256; ++i) {
        const auto byte = static_cast<std::uint8_t>(i);
        for (const Guid& guid : {Guid{i, 0, 0, {}}, Guid{0, static_cast<std::uint16_t>(i), 0, {}},
                                 Guid{0, 0, static_cast<std::uint16_t>(i), {}}, Guid{0, 0, 0, {byte}},
                                 Guid{0, 0, 0, {0, 0, 0, 0, 0, 0, 0, byte}}}) {
            guids.insert(guid);
            hashes.insert(std::hash<Guid>()(guid));
        }
    }
    EXPECT_EQ(guids.size(), 5 * 255U + 1);
    EXPECT_EQ(hashes.size(), guids.size());
    EXPECT_EQ(guids.count(Guid{7, 0, 0, {}}), 1U);
    EXPECT_EQ(guids.count(Sample), 0U);
}

}  // namespace
}  // namespace test
}  // namespace apigen
