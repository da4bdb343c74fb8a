// SPDX-License-Identifier: Apache-2.0
// Values in words, and texts that could garble a terminal.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdint>
#include <limits>

#include "show/Characters.h"
#include "show/Words.h"

namespace zamctl {
namespace {

using namespace std::chrono_literals;
using zamclientlib::SDateTime;

constexpr std::int64_t KiB = 1024;
constexpr std::int64_t GiB = KiB * KiB * KiB;

TEST(SizeWords, AreShortAndChangeTheUnitBeforeFourDigitsGetLarge) {
    EXPECT_EQ(SizeWords(-1), "-");
    EXPECT_EQ(SizeWords(std::numeric_limits<std::int64_t>::min()), "-");
    EXPECT_EQ(SizeWords(0), "0 B");
    EXPECT_EQ(SizeWords(1023), "1023 B");
    EXPECT_EQ(SizeWords(1024), "1.0 KiB");
    EXPECT_EQ(SizeWords(1536), "1.5 KiB");
    EXPECT_EQ(SizeWords(3250585), "3.1 MiB");
    EXPECT_EQ(SizeWords(9 * KiB + 1000), "10 KiB");
    EXPECT_EQ(SizeWords(85 * KiB * KiB), "85 MiB");
    EXPECT_EQ(SizeWords(1023 * KiB), "1023 KiB");
    EXPECT_EQ(SizeWords(1024 * KiB - 1), "1.0 MiB");
    EXPECT_EQ(SizeWords(29 * GiB / 10), "2.9 GiB");
    EXPECT_EQ(SizeWords(std::numeric_limits<std::int64_t>::max()), "8.0 EiB");
}

TEST(Joined, SetsCommasBetween) {
    EXPECT_EQ(Joined({}), "");
    EXPECT_EQ(Joined({"disk"}), "disk");
    EXPECT_EQ(Joined({"disk", "tape"}), "disk, tape");
}

class LocalTime : public testing::Test {
protected:
    LocalTime() {
        ::setenv("TZ", "XST-3", 1);  // three hours ahead, without summer time
        ::tzset();
    }
    ~LocalTime() override {
        ::unsetenv("TZ");
        ::tzset();
    }

    /// Saturday, 2026-11-21 12:00 local
    static constexpr long Noon = 1795251600;
    static std::string At(long seconds) {
        return TimeWords({seconds, 0}, std::chrono::system_clock::from_time_t(Noon));
    }
};

TEST_F(LocalTime, IsShortForTodayNamesTheDayForSixDaysAndIsADateElse) {
    constexpr long Day = 24L * 3600;
    constexpr long Midnight = Noon - Day / 2;
    EXPECT_EQ(TimeWords({0, 0}, std::chrono::system_clock::now()), "-");
    EXPECT_EQ(At(Noon + 2 * 3600 + 5 * 60), "14:05");
    EXPECT_EQ(At(Midnight), "00:00");
    EXPECT_EQ(At(Midnight - 1), "Fri 23:59");
    EXPECT_EQ(At(Midnight + Day), "Sun 00:00");
    EXPECT_EQ(At(Midnight - 6 * Day), "Sun 00:00");
    EXPECT_EQ(At(Midnight - 6 * Day - 1), "2026-11-14 23:59");
    EXPECT_EQ(At(Midnight + 7 * Day - 1), "Fri 23:59");
    EXPECT_EQ(At(Midnight + 7 * Day), "2026-11-28 00:00");
    EXPECT_EQ(At(-1), "1970-01-01 02:59");
    EXPECT_EQ(At(-62167230000), "0000-01-01 00:00");
}

TEST_F(LocalTime, OfAYearThatNoCalendarHasIsTheTextInUtc) {
    EXPECT_EQ(At(std::numeric_limits<long>::max()), TimeText({std::numeric_limits<long>::max(), 0}));
    EXPECT_EQ(At(std::numeric_limits<long>::min()), TimeText({std::numeric_limits<long>::min(), 0}));
    EXPECT_EQ(At(4000000000000), TimeText({4000000000000, 0}));
}

TEST(TimeText, IsReadAgainWithTheSameMilliseconds) {
    EXPECT_EQ(TimeText({0, 0}), "");
    EXPECT_EQ(TimeText({1795278661, 250}), "2026-11-21T16:31:01.250Z");
    for (const SDateTime& time : {SDateTime{1795278661, 250}, SDateTime{-1, 999}, SDateTime{0, 1}}) {
        const auto read = TimeFrom(TimeText(time));
        ASSERT_TRUE(read) << TimeText(time);
        EXPECT_EQ(read->seconds, time.seconds);
        EXPECT_EQ(read->milliseconds, time.milliseconds);
    }
}

TEST(TimeFrom, TakesOffsetsAndFractionsAndNothingThatIsNoTime) {
    const auto seconds = [](std::string_view text) {
        const auto time = TimeFrom(text);
        return time ? std::to_string(time->seconds) + '.' + std::to_string(time->milliseconds) : "none";
    };
    EXPECT_EQ(seconds("2026-11-21T16:31:01Z"), "1795278661.0");
    EXPECT_EQ(seconds("2026-11-21T17:31:01.25+01:00"), "1795278661.250");
    EXPECT_EQ(seconds("2026-11-21 15:01:01-01:30"), "1795278661.0");
    EXPECT_EQ(seconds("2026-11-21T16:31:01.123999999Z"), "1795278661.123");
    EXPECT_EQ(seconds("2028-02-29T00:00:00Z"), "1835395200.0");
    for (const std::string_view text :
         {"", "2026", "2026-11-21", "2026-11-21T16:31:01", "2026-11-21T16:31Z", "2026-02-29T00:00:00Z",
          "2026-13-01T00:00:00Z", "2026-00-01T00:00:00Z", "2026-11-21T24:00:00Z", "2026-11-21T16:60:00Z",
          "2026-11-21T16:31:61Z", "2026-11-21T16:31:01.Z", "2026-11-21T16:31:01Zx",
          "2026-11-21T16:31:01+1:00", "2026-11-21T16:31:01+24:00", "+026-11-21T16:31:01Z"}) {
        EXPECT_EQ(seconds(text), "none") << text;
    }
}

TEST(SpanWords, NameTwoUnitsAtMost) {
    EXPECT_EQ(SpanWords(-1ms), "-");
    EXPECT_EQ(SpanWords(0ms), "0 s");
    EXPECT_EQ(SpanWords(999ms), "< 1 s");
    EXPECT_EQ(SpanWords(45s), "45 s");
    EXPECT_EQ(SpanWords(59499ms), "59 s");
    EXPECT_EQ(SpanWords(59500ms), "1 min");
    EXPECT_EQ(SpanWords(200s), "3 min 20 s");
    EXPECT_EQ(SpanWords(3599s), "59 min 59 s");
    EXPECT_EQ(SpanWords(1h), "1 h");
    EXPECT_EQ(SpanWords(2h + 5min + 59s), "2 h 5 min");
    EXPECT_EQ(SpanWords(24h), "1 day");
    EXPECT_EQ(SpanWords(27h), "1 day 3 h");
    EXPECT_EQ(SpanWords(48h), "2 days");
    EXPECT_EQ(SpanWords(72h + 23h), "3 days");
    EXPECT_EQ(SpanWords(std::chrono::milliseconds::max()), "106751991167 days");
}

TEST(Counted, KnowsOneFromMany) {
    EXPECT_EQ(Counted(0, "job"), "0 jobs");
    EXPECT_EQ(Counted(1, "job"), "1 job");
    EXPECT_EQ(Counted(2, "job"), "2 jobs");
    EXPECT_EQ(Counted(1, "repository", "repositories"), "1 repository");
    EXPECT_EQ(Counted(3, "repository", "repositories"), "3 repositories");
}

TEST(Escaped, LeavesNothingThatATerminalObeys) {
    EXPECT_EQ(Escaped("plain ~ text"), "plain ~ text");
    EXPECT_EQ(Escaped("\033[2J\a\x7f"), "\\x1b[2J\\x07\\x7f");
    EXPECT_EQ(Escaped("a\nb\rc\td"), "a\\nb\\rc\\td");
    EXPECT_EQ(Escaped(std::string_view("\0", 1)), "\\x00");
    EXPECT_EQ(Escaped("\u009b2J"), "\\u{009b}2J") << "CSI as one character";
    EXPECT_EQ(Escaped("ab\u202egpj.exe"), "ab\\u{202e}gpj.exe") << "right-to-left override";
    EXPECT_EQ(Escaped("\u2066\u2069\u200f\u061c\ufeff\u2028"),
              "\\u{2066}\\u{2069}\\u{200f}\\u{061c}\\u{feff}\\u{2028}");
    EXPECT_EQ(Escaped("\U000e0041"), "\\u{e0041}") << "an invisible letter";
    EXPECT_EQ(Escaped("\xff\xfe"), "\\xff\\xfe");
    EXPECT_EQ(Escaped("caf\xc3"), "caf\\xc3") << "cut in the middle of a character";
    EXPECT_EQ(Escaped("\xc0\xaf\xed\xa0\x80"), "\\xc0\\xaf\\xed\\xa0\\x80") << "overlong, surrogate";
    EXPECT_EQ(Escaped("Müller 日本 e\u0301"), "Müller 日本 e\u0301");
    EXPECT_EQ(Quoted("a\"\n"), "\"a\"\\n\"");
}

TEST(Nearest, FindsAMisspeltWordAndLeavesAStrangersAlone) {
    const std::vector<std::string> fields{"IncludeDirs", "ExcludeDirs", "BackupMode", "Days"};
    EXPECT_EQ(Nearest("IncludDirs", fields), "IncludeDirs");
    EXPECT_EQ(Nearest("includedirs", fields), "IncludeDirs");
    EXPECT_EQ(Nearest("ExlcudeDirs", fields), "ExcludeDirs");
    EXPECT_EQ(Nearest("dyas", fields), "Days");
    EXPECT_EQ(Nearest("Schedule", fields), "");
    EXPECT_EQ(Nearest("", fields), "");
    EXPECT_EQ(Nearest("x", {"y"}), "");
    EXPECT_EQ(Nearest("a", {"A"}), "A");
    EXPECT_EQ(Nearest(std::string(100000, 'a'), {std::string(100000, 'b')}), "");
    EXPECT_EQ(Nearest("jbo", {"job", "jib"}), "job");
}

TEST(ColumnsOf, CountsWideCharactersTwiceAndCombiningOnesNotAtAll) {
    EXPECT_EQ(ColumnsOf(""), 0U);
    EXPECT_EQ(ColumnsOf("abc"), 3U);
    EXPECT_EQ(ColumnsOf("Müller"), 6U);
    EXPECT_EQ(ColumnsOf("日本"), 4U);
    EXPECT_EQ(ColumnsOf("e\u0301"), 1U);
    EXPECT_EQ(ColumnsOf("…"), 1U);
}

TEST(CutTo, NeverGetsWiderThanAskedNorSplitsACharacter) {
    EXPECT_EQ(CutTo("abcdef", 6), "abcdef");
    EXPECT_EQ(CutTo("abcdef", 5), "abcd…");
    EXPECT_EQ(CutTo("abcdef", 1), "…");
    EXPECT_EQ(CutTo("abcdef", 0), "");
    EXPECT_EQ(CutTo("日本語", 5), "日本…");
    EXPECT_EQ(CutTo("日本語", 4), "日…") << "half a character is none";
    EXPECT_EQ(CutTo("e\u0301e\u0301e\u0301", 2), "e\u0301…") << "an accent stays with its letter";
    for (std::size_t width = 0; width < 12; ++width)
        EXPECT_LE(ColumnsOf(CutTo("aé日\u0301b語c…d", width)), width);
}

TEST(ValidUtf8, ReplacesEachOddByte) {
    EXPECT_EQ(ValidUtf8("a\xff\xfe"), "a\ufffd\ufffd");
    EXPECT_EQ(ValidUtf8("caf\xc3"), "caf\ufffd");
    EXPECT_EQ(ValidUtf8("日本\n\x1b"), "日本\n\x1b");
}

}  // namespace
}  // namespace zamctl
