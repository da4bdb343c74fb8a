// SPDX-License-Identifier: Apache-2.0
// Number texts mean what extraction from a stream in the classic locale makes of them.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "support/apigen/NumberText.h"

namespace apigen::test {
namespace {

/// What a user's program might have set: digits in groups of three, a comma as the decimal point.
class CGroupingLocale {
public:
    CGroupingLocale() : m_before(std::locale::global(std::locale(std::locale::classic(), new CPunct))) {}
    ~CGroupingLocale() { std::locale::global(m_before); }
    CGroupingLocale(const CGroupingLocale&) = delete;
    CGroupingLocale& operator=(const CGroupingLocale&) = delete;

private:
    class CPunct : public std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        char do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
        std::string do_truename() const override { return "wahr"; }
        std::string do_falsename() const override { return "falsch"; }
    };

    std::locale m_before;
};

/// The model; what the target held before must not matter.
template <class T>
T Extract(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    T value = 0;
    stream >> value;
    return value;
}

template <class T>
std::string Insert(T value) {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << value;
    return stream.str();
}

std::string RandomNumberText(std::mt19937_64& random) {
    const auto below = [&](std::size_t bound) { return random() % bound; };
    static const std::vector<std::string> Before{"",   "",   "",   "",   " ",       "\t\n\v\f\r ", "+",
                                                 "-",  " -", "--", "+-", "- ",      "0",           "00",
                                                 "0x", "0X", "-0", "x",  "\xC2\xA0"};
    static const std::vector<std::string> After{
        "",     "",     "",   "",   " ", "abc", ".5",   "e3",
        ",000", ".000", "-1", "\n", "x", "u",   "\xFF", std::string(1, '\0')};
    static const std::vector<std::uint64_t> Borders{
        0,         1,          9,          10,         32767,      32768,     65535,
        65536,     2147483647, 2147483648, 4294967295, 4294967296, INT64_MAX, 0x8000000000000000,
        UINT64_MAX};
    std::string digits;
    switch (below(4)) {
        case 0:
            digits = std::to_string(Borders[below(Borders.size())]);
            break;
        case 1:
            digits = std::to_string(random() >> below(64));
            break;
        case 2:
            for (std::size_t count = below(30); count != 0; --count) {
                digits += static_cast<char>('0' + below(10));
            }
            break;
        default:
            for (std::size_t count = below(6); count != 0; --count) {
                digits += "0123456789abcdefXx+-. ,\n"[below(24)];
            }
    }
    return Before[below(Before.size())] + digits + After[below(After.size())];
}

template <class T>
class NumberText : public testing::Test {};

using NumberTypes = testing::Types<int, long, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(NumberText, NumberTypes);

TYPED_TEST(NumberText, MeansWhatAStreamExtracts) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = RandomNumberText(random);
        ASSERT_EQ(ParseNumber<TypeParam>(text), Extract<TypeParam>(text)) << '"' << text << '"';
    }
}

TYPED_TEST(NumberText, MeansTheSameUnderALocaleWithGrouping) {
    std::mt19937_64 random(8);
    const CGroupingLocale locale;
    ASSERT_EQ((std::ostringstream() << 1234567).str(), "1.234.567") << "the locale must take effect";
    for (int i = 0; i < 5000; ++i) {
        const std::string text = RandomNumberText(random);
        ASSERT_EQ(ParseNumber<TypeParam>(text), Extract<TypeParam>(text)) << '"' << text << '"';
    }
    SNumberBuffer buffer;
    EXPECT_EQ(FormatNumber<TypeParam>(12345, buffer), "12345");
}

TYPED_TEST(NumberText, OfEveryValueIsWhatAStreamInserts) {
    using Limits = std::numeric_limits<TypeParam>;
    std::mt19937_64 random(9);
    std::vector<TypeParam> values{
        Limits::min(), Limits::max(), 0, 1, 9, 10, 99, 100, static_cast<TypeParam>(-1)};
    for (int i = 0; i < 5000; ++i) {
        values.push_back(static_cast<TypeParam>(random() >> random() % 64));
    }
    for (const TypeParam value : values) {
        SNumberBuffer buffer;
        const std::string text(FormatNumber(value, buffer));
        ASSERT_EQ(text, Insert(value));
        ASSERT_EQ(ParseNumber<TypeParam>(text), value);
    }
}

TYPED_TEST(NumberText, WithoutANumberIsZero) {
    for (const std::string text :
         {"", " ", "\t\n", "abc", "-", "+", "--1", "+-1", ".5", "x1", "\xFF", "- 1"}) {
        EXPECT_EQ(ParseNumber<TypeParam>(text), TypeParam{0}) << text;
    }
}

TYPED_TEST(NumberText, OutOfRangeIsTheLimitOfTheType) {
    const std::string large(40, '9');
    EXPECT_EQ(ParseNumber<TypeParam>(large), std::numeric_limits<TypeParam>::max());
    EXPECT_EQ(ParseNumber<TypeParam>("-" + large), std::is_signed_v<TypeParam>
                                                       ? std::numeric_limits<TypeParam>::min()
                                                       : std::numeric_limits<TypeParam>::max());
}

TEST(OddNumberText, IsReadAsFarAsItGoes) {
    EXPECT_EQ(ParseNumber<int>("-17"), -17);
    EXPECT_EQ(ParseNumber<int>("42 "), 42);
    EXPECT_EQ(ParseNumber<int>("12abc"), 12);
    EXPECT_EQ(ParseNumber<int>(" 7"), 7);
    EXPECT_EQ(ParseNumber<int>("+7"), 7);
    EXPECT_EQ(ParseNumber<int>("007"), 7);
    EXPECT_EQ(ParseNumber<int>("010"), 10);
    EXPECT_EQ(ParseNumber<int>("0x10"), 0);
    EXPECT_EQ(ParseNumber<int>("1.9"), 1);
    EXPECT_EQ(ParseNumber<int>("1,000"), 1);
    EXPECT_EQ(ParseNumber<int>("1e3"), 1);
    EXPECT_EQ(ParseNumber<int>("2147483648"), 2147483647);
    EXPECT_EQ(ParseNumber<int>("-2147483649"), -2147483647 - 1);
    EXPECT_EQ(ParseNumber<unsigned short>("65536"), 65535);
    EXPECT_EQ(ParseNumber<unsigned short>("-1"), 65535);
    EXPECT_EQ(ParseNumber<unsigned int>("-1"), 4294967295U);
    EXPECT_EQ(ParseNumber<unsigned long>("18446744073709551615"), 18446744073709551615UL);
    EXPECT_EQ(ParseNumber<unsigned long>("18446744073709551616"), 18446744073709551615UL);
    EXPECT_EQ(ParseNumber<unsigned long>("-2"), 18446744073709551614UL);
    EXPECT_EQ(ParseNumber<long>("-9223372036854775808"), INT64_MIN);
}

}  // namespace
}  // namespace apigen::test
