// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string_view>

#include "installer/VersionText.h"

namespace installer {
namespace {

using zamclientlib::SVersion;

struct SCase {
    std::string_view Text;
    SVersion Version;
};

TEST(VersionText, LeadingNumbersOfAReleaseTextMakeItsVersion) {
    constexpr SCase cases[]{
        {"", {}},
        {"sid", {}},
        {"12", {12, 0, 0, 0}},
        {"12.11", {12, 11, 0, 0}},
        {"3.19.1", {3, 19, 1, 0}},
        {"22.04", {22, 4, 0, 0}},
        {"1.2.3.4.5", {1, 2, 3, 4}},
        {"6.1~rc2.7", {6, 1, 0, 0}},
        {"7.", {7, 0, 0, 0}},
        {".7", {}},
        {"7..1", {7, 0, 0, 0}},
        {" 7", {}},
        {"-7", {}},
        {"+7", {}},
        {"65535.65536", {65535, 65535, 0, 0}},
        {"20230101120000.1", {65535, 1, 0, 0}},
        {"99999999999999999999999999", {65535, 0, 0, 0}},
    };
    for (const SCase& row : cases)
        EXPECT_EQ(LeadingVersion(row.Text), row.Version) << row.Text;
}

TEST(VersionText, EpochAndRevisionOfADebianVersionAreDropped) {
    constexpr SCase cases[]{
        {"6.0.3.1221", {6, 0, 3, 1221}},
        {"6.0.3.1221-2", {6, 0, 3, 1221}},
        {"1:6.0.3.1221-2", {6, 0, 3, 1221}},
        {"1:2.3-4+deb12u1", {2, 3, 0, 0}},
        {"2.3-rc1-4", {2, 3, 0, 0}},
        {"0~20240101-1", {}},
        {"7:5", {5, 0, 0, 0}},
        {"6.1.0+git1-1", {6, 1, 0, 0}},
        {"5-1", {5, 0, 0, 0}},
        {"", {}},
        {":", {}},
        {"-", {}},
    };
    for (const SCase& row : cases)
        EXPECT_EQ(SoftwareVersion(row.Text), row.Version) << row.Text;
}

TEST(VersionText, StrictVersionsHoldNothingButNumbersAndDots) {
    for (const std::string_view text : {"", ".", "1.", ".1", "1..2", "1.2.3.4.5", "1.2.3.4.", "1a", "a", " 1",
                                        "1 ", "-1", "+1", "65536", "1.65536"}) {
        EXPECT_FALSE(StrictVersion(text)) << text;
    }
    const auto version = StrictVersion("12.5");
    ASSERT_TRUE(version);
    EXPECT_EQ(version->Version, (SVersion{12, 5, 0, 0}));
    EXPECT_EQ(version->Parts, 2);
    EXPECT_EQ(StrictVersion("0.0.0.65535")->Version, (SVersion{0, 0, 0, 65535}));
}

TEST(VersionText, ComparisonLooksAtTheGivenNumberOfParts) {
    EXPECT_EQ(Compare({12, 11, 0, 0}, {12, 0, 0, 0}, 1), 0);
    EXPECT_GT(Compare({12, 11, 0, 0}, {12, 5, 0, 0}, 2), 0);
    EXPECT_LT(Compare({11, 99, 0, 0}, {12, 0, 0, 0}, 4), 0);
    EXPECT_LT(Compare({0, 0, 0, 0}, {0, 0, 0, 65535}), 0);
    EXPECT_EQ(Compare({1, 2, 3, 4}, {9, 9, 9, 9}, 0), 0);
}

}  // namespace
}  // namespace installer
