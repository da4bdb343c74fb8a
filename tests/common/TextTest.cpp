// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <csignal>

#include "support/common/Text.h"

namespace apigen::common {
namespace {

TEST(Text, PlainAndForeignLettersAreShownAsTheyAre) {
    EXPECT_EQ(Escaped("a \\ \"b\" ~"), "a \\ \"b\" ~");
    EXPECT_EQ(Escaped("gr\u00fc\u00df \u20ac \U0001f600"), "gr\u00fc\u00df \u20ac \U0001f600");
}

TEST(Text, WhatCouldGarbleATerminalIsEscaped) {
    EXPECT_EQ(Escaped("\x1b[31m\r\n\t\x7f"), "\\x1b[31m\\r\\n\\t\\x7f");
    EXPECT_EQ(Escaped(std::string_view("\0", 1)), "\\x00");
    EXPECT_EQ(Escaped("\xc2\x9b"), "\\xc2\\x9b") << "a control character in two bytes";
    EXPECT_EQ(Escaped("\xe2\x80\xae"), "\\xe2\\x80\\xae") << "writes from right to left";
}

TEST(Text, BytesThatAreNoUtf8AreEscaped) {
    EXPECT_EQ(Escaped("\xff\x80"), "\\xff\\x80");
    EXPECT_EQ(Escaped("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
    EXPECT_EQ(Escaped("\xe0\x80\xaf"), "\\xe0\\x80\\xaf") << "overlong";
    EXPECT_EQ(Escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(Escaped("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last code point";
    EXPECT_EQ(Escaped("\xe2\x82"), "\\xe2\\x82") << "cut off";
}

TEST(Text, EndingsAreNamed) {
    EXPECT_EQ(EndingText(3 << 8), "exited with status 3");
    EXPECT_EQ(EndingText(SIGKILL), "was ended by signal 9 (Killed)");
    EXPECT_NE(EndingText(-1).find("unknown"), std::string::npos);
}

TEST(Text, ErrorsOutsideTheTableHaveANumber) {
    EXPECT_EQ(ErrorText(ENOENT), "No such file or directory");
    EXPECT_EQ(ErrorText(99999), "error 99999");
}

}  // namespace
}  // namespace apigen::common
