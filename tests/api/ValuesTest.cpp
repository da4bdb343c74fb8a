// SPDX-License-Identifier: Apache-2.0
// Versions, points in time and durations as a program's own.
#include <zamclientlib/Chrono.h>
#include <zamclientlib/CommonRecords.h>

#include <gtest/gtest.h>

#include <climits>
#include <sstream>

namespace zamclientlib {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using Clock = std::chrono::system_clock;

TEST(VersionText, HasFourParts) {
    EXPECT_EQ(ToText({2, 0, 0, 345}), "2.0.0.345");
    std::ostringstream stream;
    stream << std::hex << SVersion{65535, 10, 1, 0};
    EXPECT_EQ(stream.str(), "65535.10.1.0");
}

TEST(VersionText, IsReadWithOneToFourParts) {
    EXPECT_EQ(ParseVersion("2"), (SVersion{2, 0, 0, 0}));
    EXPECT_EQ(ParseVersion("2.1"), (SVersion{2, 1, 0, 0}));
    EXPECT_EQ(ParseVersion("2.1.65535.04"), (SVersion{2, 1, 65535, 4}));
    for (const char* const text : {"", ".", "2.", ".2", "2..1", "2.1.3.4.", "2.1.3.4.5", "65536", "-1", "+1",
                                   " 2", "2 ", "2.x", "0x2", "2,1", "99999999999999999999"}) {
        EXPECT_EQ(ParseVersion(text), apigen::nullopt) << text;
    }
    EXPECT_EQ(ParseVersion(std::string_view("2\0", 2)), apigen::nullopt);
    EXPECT_EQ(ParseVersion({}), apigen::nullopt);
}

TEST(Version, IsOrderedByItsPartsFromTheFirst) {
    const SVersion ascending[] = {{0, 0, 0, 0}, {0, 0, 0, 65535}, {0, 0, 1, 0},
                                  {0, 1, 0, 0}, {0, 1, 0, 1},     {1, 0, 0, 0}};
    for (const SVersion& left : ascending) {
        for (const SVersion& right : ascending) {
            EXPECT_EQ(left < right, &left < &right);
            EXPECT_EQ(left > right, &left > &right);
            EXPECT_EQ(left <= right, &left <= &right);
            EXPECT_EQ(left >= right, &left >= &right);
            EXPECT_EQ(left == right, &left == &right);
        }
    }
    static_assert(SVersion{1, 2, 3, 4} < SVersion{1, 2, 4, 0});
}

TEST(TimeSpan, GoesIntoMillisecondsAndBack) {
    static_assert(ToMilliseconds({90, 500}) == 90500ms);
    static_assert(ToMilliseconds(ToTimeSpan(2h)) == 2h);
    EXPECT_EQ(ToTimeSpan(90500ms), (STimeSpan{90, 500}));
    EXPECT_EQ(ToTimeSpan(-500ms), (STimeSpan{-1, 500}));
    EXPECT_EQ(ToTimeSpan(-1s), (STimeSpan{-1, 0}));
    for (const milliseconds duration :
         {0ms, 1ms, 999ms, 1000ms, -1ms, -999ms, -1000ms, -1001ms, milliseconds::max(),
          milliseconds::max() - 1ms, milliseconds::min(), milliseconds::min() + 1ms,
          milliseconds::min() + 807ms, milliseconds::min() + 808ms}) {
        const STimeSpan span = ToTimeSpan(duration);
        EXPECT_LE(span.milliseconds, 999);
        EXPECT_EQ(ToMilliseconds(span), duration) << duration.count();
    }
    EXPECT_EQ(ToMilliseconds({1, 65535}), 66535ms);
}

TEST(TimeSpan, OutOfTheRangeOfMillisecondsIsTheLongest) {
    EXPECT_EQ(ToMilliseconds({LONG_MAX, 0}), milliseconds::max());
    EXPECT_EQ(ToMilliseconds({LONG_MIN, 65535}), milliseconds::min());
    EXPECT_EQ(ToMilliseconds({LONG_MAX / 1000, 65535}), milliseconds::max());
}

TEST(DateTime, GoesIntoAPointInTimeAndBack) {
    static_assert(ToTimePoint({1, 500}).time_since_epoch() == 1500ms);
    EXPECT_EQ(ToDateTime(Clock::time_point(1500ms + 999us)), (SDateTime{1, 500}));
    EXPECT_EQ(ToDateTime(Clock::time_point(-1us)), (SDateTime{-1, 999})) << "towards the past, as everywhere";
    EXPECT_EQ(ToTimePoint({-1, 999}).time_since_epoch(), -1ms);
    const auto now = std::chrono::floor<milliseconds>(Clock::now());
    EXPECT_EQ(ToTimePoint(ToDateTime(now)), now);
}

TEST(DateTime, OutOfTheRangeOfTheClockIsItsEnd) {
    EXPECT_EQ(ToTimePoint({LONG_MAX, 65535}), Clock::time_point::max());
    EXPECT_EQ(ToTimePoint({LONG_MIN, 0}), Clock::time_point::min());
    EXPECT_EQ(ToTimePoint({9223372037, 0}), Clock::time_point::max());
    EXPECT_EQ(ToTimePoint({-9223372038, 0}), Clock::time_point::min());
    for (const auto end : {Clock::time_point::max(), Clock::time_point::min()}) {
        const auto difference = end - ToTimePoint(ToDateTime(end));
        EXPECT_LT(difference, 1ms);
        EXPECT_GE(difference, 0ms);
    }
}

}  // namespace
}  // namespace zamclientlib
