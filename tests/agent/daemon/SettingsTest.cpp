// SPDX-License-Identifier: Apache-2.0
// tarvod.conf: what it says, and what is told of its mistakes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "agent/daemon/Settings.h"
#include "tests/api/TemporaryFolder.h"

namespace {

using tarvo::ParseSettings;
using tarvo::ReadSettings;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string MistakeIn(const std::string& text) {
    try {
        ParseSettings(text, "FILE");
    } catch (const tarvo::CSettingsError& error) {
        return error.what();
    }
    return "nothing was wrong";
}

TEST(Settings, AnEmptyFileAndNoFileAreTheDefaults) {
    const zamtest::CTemporaryFolder folder;
    for (const auto& settings : {ParseSettings("", "FILE"), ReadSettings(folder.Path("missing"))}) {
        EXPECT_EQ(settings.Restic, "");
        EXPECT_EQ(settings.Work.AtOnce, 2U);
        EXPECT_EQ(settings.Work.Jitter.count(), 0);
        EXPECT_EQ(settings.Log, tarvo::SLogSettings{});
    }
}

TEST(Settings, EverythingThatCanBeSaidIsHeard) {
    const auto settings = ParseSettings(
        "[engine]\nrestic = \"/opt/restic\"\n"
        "[sessions]\nat_once = 5\nnice = 3\nkept = 17\n"
        "[schedule]\njitter_minutes = 4\n"
        "[verify]\nparts = 12\n"
        "[log]\nmax_mb = 2\nold_files = 9\n",
        "FILE");
    EXPECT_EQ(settings.Restic, "/opt/restic");
    EXPECT_EQ(settings.Work.AtOnce, 5U);
    EXPECT_EQ(settings.Work.Nice, 3);
    EXPECT_EQ(settings.Work.SessionsKept, 17U);
    EXPECT_EQ(settings.Work.Jitter, std::chrono::minutes(4));
    EXPECT_EQ(settings.Work.VerifyParts, 12U);
    EXPECT_EQ(settings.Log.MaxBytes, 2U * 1024 * 1024);
    EXPECT_EQ(settings.Log.OldFiles, 9U);
}

TEST(Settings, MorePartsThanTheEngineCanTellApartAreAMistake) {
    EXPECT_EQ(ParseSettings("[verify]\nparts = 256\n", "FILE").Work.VerifyParts, 256U);
    EXPECT_THAT(MistakeIn("[verify]\nparts = 257\n"), HasSubstr("from 0 to 256"));
}

TEST(Settings, AnEngineIsAPathThatMeansTheSameEverywhereOrAName) {
    EXPECT_EQ(ParseSettings("[engine]\nrestic = \"restic-0.16\"\n", "FILE").Restic, "restic-0.16");
    for (const char* const path : {"bin/restic", "./restic", "~/bin/restic"}) {
        EXPECT_THAT(MistakeIn("[engine]\nrestic = \"" + std::string(path) + "\"\n"),
                    AllOf(StartsWith("FILE:2:10: "), HasSubstr("an absolute path")))
            << path;
    }
}

TEST(Settings, AnUnknownKeyIsAMistakeAtItsPlaceAndTheKnownOnesAreNamed) {
    EXPECT_THAT(MistakeIn("\n[sessions]\n  at_onse = 1\n"),
                AllOf(StartsWith("FILE:3:3: "), HasSubstr("at_onse"), HasSubstr("at_once, kept, nice")));
    EXPECT_THAT(MistakeIn("restic = \"x\"\n"), AllOf(StartsWith("FILE:1:1: "), HasSubstr("[engine]")));
    EXPECT_THAT(MistakeIn("[engines]\n"), AllOf(StartsWith("FILE:1:"), HasSubstr("engines")));
}

TEST(Settings, AValueOfAnotherKindOrOutOfBoundsIsAMistakeAtItsPlace) {
    EXPECT_THAT(MistakeIn("[sessions]\nat_once = 0\n"),
                AllOf(StartsWith("FILE:2:11: "), HasSubstr("from 1 to 64")));
    EXPECT_THAT(MistakeIn("[sessions]\nat_once = \"2\"\n"), StartsWith("FILE:2:11: "));
    EXPECT_THAT(MistakeIn("[sessions]\nat_once = 2.5\n"), StartsWith("FILE:2:11: "));
    EXPECT_THAT(MistakeIn("[engine]\nrestic = 3\n"), StartsWith("FILE:2:10: "));
    EXPECT_THAT(MistakeIn("[engine]\nrestic = \"\"\n"), HasSubstr("empty"));
    EXPECT_THAT(MistakeIn("engine = 3\n"), HasSubstr("to be a table"));
    EXPECT_THAT(MistakeIn("[log]\nold_files = -1\n"), HasSubstr("from 0 to 100"));
}

TEST(Settings, WhatIsNoTomlIsAMistakeAtItsPlace) {
    EXPECT_THAT(MistakeIn("[sessions]\nat_once 2\n"), StartsWith("FILE:2:"));
    EXPECT_THAT(MistakeIn("[sessions]\nnice = 1\nnice = 2\n"), StartsWith("FILE:3:"));
    EXPECT_THAT(MistakeIn("\xff\xfe"), StartsWith("FILE:1:"));
}

TEST(Settings, AFileThatCannotBeReadIsNamed) {
    const zamtest::CTemporaryFolder folder;
    const auto mistakeOf = [](const std::string& path) -> std::string {
        try {
            ReadSettings(path);
        } catch (const tarvo::CSettingsError& error) {
            return error.what();
        }
        return {};
    };
    EXPECT_THAT(mistakeOf(folder.Path()), AllOf(HasSubstr(folder.Path()), HasSubstr("no regular file")));
    ASSERT_EQ(::mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    EXPECT_THAT(mistakeOf(folder.Path("fifo")), HasSubstr("no regular file"));
    folder.Write("large", std::string(2U * 1024 * 1024, '#'));
    EXPECT_THAT(mistakeOf(folder.Path("large")), HasSubstr("larger than"));
}

}  // namespace
