// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "installer/OsRelease.h"

namespace installer {
namespace {

using Assignments = std::map<std::string, std::string>;

TEST(OsRelease, ReadsEveryKindOfQuoting) {
    EXPECT_EQ(ParseOsRelease("PLAIN=debian\n"
                             "DOUBLE=\"Debian GNU/Linux 12 (bookworm)\"\n"
                             "SINGLE='a \"b\" $c \\d'\n"
                             "ESCAPES=\"a \\\"b\\\" \\$c \\`d\\` \\\\e \\f\"\n"
                             "BARE_ESCAPE=a\\ b\\\\c\n"
                             "EMPTY=\n"
                             "EMPTY_DOUBLE=\"\"\n"
                             "EMPTY_SINGLE=''\n"
                             "EQUALS=a=b\n"
                             "UTF8=\"Käse\"\n"
                             "LAST_WITHOUT_NEWLINE=12"),
              (Assignments{{"PLAIN", "debian"},
                           {"DOUBLE", "Debian GNU/Linux 12 (bookworm)"},
                           {"SINGLE", "a \"b\" $c \\d"},
                           {"ESCAPES", "a \"b\" $c `d` \\e \\f"},
                           {"BARE_ESCAPE", "a b\\c"},
                           {"EMPTY", ""},
                           {"EMPTY_DOUBLE", ""},
                           {"EMPTY_SINGLE", ""},
                           {"EQUALS", "a=b"},
                           {"UTF8", "Käse"},
                           {"LAST_WITHOUT_NEWLINE", "12"}}));
}

TEST(OsRelease, SkipsCommentsAndWhatIsNoAssignment) {
    EXPECT_EQ(ParseOsRelease("# ID=comment\n"
                             "\n"
                             "no assignment\n"
                             "=value\n"
                             "1ST=digit\n"
                             "A-B=hyphen\n"
                             "SPACE =x\n"
                             "OPEN=\"x\n"
                             "OPEN_SINGLE='x\n"
                             "LONE=\"\n"
                             "INNER=\"a\"b\"\n"
                             "GLUED=\"a\"'b'\n"
                             "WORDS=two words\n"
                             "TRAILING=x\\\n"
                             "TRAILING_QUOTED=\"x\\\"\n"
                             "  ID=indented  \r\n"),
              (Assignments{{"ID", "indented"}}));
}

TEST(OsRelease, TheLastAssignmentOfANameWins) {
    EXPECT_EQ(ParseOsRelease("ID=first\nID=second\nID=\"broken\n"), (Assignments{{"ID", "second"}}));
}

TEST(OsRelease, AnEmptyTextHasNoAssignments) {
    EXPECT_TRUE(ParseOsRelease("").empty());
    EXPECT_TRUE(ParseOsRelease("\n\n").empty());
    EXPECT_TRUE(ParseOsRelease(std::string(3, '\0')).empty());
}

}  // namespace
}  // namespace installer
