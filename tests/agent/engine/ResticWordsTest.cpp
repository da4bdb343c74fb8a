// SPDX-License-Identifier: Apache-2.0
// What the words of restic are taken to mean.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "agent/engine/ResticWords.h"

namespace {

using namespace tarvo;
using namespace tarvo::restic;

TEST(ResticWords, AVersionIsReadWhateverFollowsIt) {
    const auto version = ParseVersion("restic 0.14.0 compiled with go1.19.8 on linux/amd64");
    ASSERT_TRUE(version);
    EXPECT_EQ(std::tuple(version->Major, version->Minor, version->Patch), std::tuple(0U, 14U, 0U));
    const auto later = ParseVersion("restic 1.2.3-dev (compiled manually)");
    ASSERT_TRUE(later);
    EXPECT_EQ(std::tuple(later->Major, later->Minor, later->Patch), std::tuple(1U, 2U, 3U));
    EXPECT_TRUE(ParseVersion("restic 0.17"));
}

TEST(ResticWords, WhatIsNoVersionIsNone) {
    for (const char* text : {"", "restic", "restic ", "restic x.y", "borg 1.2.3", "restic 0", "restic 0.",
                             "0.14.0", "restic 99999999999999999999.1.1"})
        EXPECT_FALSE(ParseVersion(text)) << text;
}

TEST(ResticWords, AnUnknownExitStatusIsAFailureWhateverWasSaid) {
    EXPECT_EQ(FailureOf(0, EFailure::Other), EFailure::None);
    EXPECT_EQ(FailureOf(1, EFailure::WrongKey), EFailure::WrongKey);
    EXPECT_EQ(FailureOf(1, EFailure::None), EFailure::Other);
    EXPECT_EQ(FailureOf(10, EFailure::None), EFailure::NoStore);
    EXPECT_EQ(FailureOf(11, EFailure::None), EFailure::Locked);
    EXPECT_EQ(FailureOf(12, EFailure::None), EFailure::WrongKey);
    for (const int status : {2, 3, 42, 77, 130, 255})
        EXPECT_EQ(FailureOf(status, EFailure::None), EFailure::Other) << status;
}

TEST(ResticWords, EachKindOfFailureIsKnownByItsWords) {
    EXPECT_EQ(FailureIn("Fatal: wrong password or no key found"), EFailure::WrongKey);
    EXPECT_EQ(FailureIn("Fatal: unable to open config file: stat /x/config: no such file or directory"),
              EFailure::NoStore);
    EXPECT_EQ(FailureIn("unable to create lock in backend: repository is already locked by PID 1 on h"),
              EFailure::Locked);
    EXPECT_EQ(FailureIn("Save(<data/00>) returned error, retrying after 1s: write: no space left on device"),
              EFailure::NoSpace);
    EXPECT_EQ(FailureIn("invalid id \"x\": no matching ID found for prefix \"x\""), EFailure::NoSuchPoint);
    EXPECT_EQ(FailureIn("Fatal: repository contains errors"), EFailure::Damaged);
    EXPECT_EQ(FailureIn("Fatal: something new"), EFailure::Other);
    EXPECT_TRUE(
        IsRetry("Load(<data/6939c79003>, 0, 0) returned error, retrying after 552ms: open d: no such file"));
}

TEST(ResticWords, ThatAreMeantForATerminalAreLeftOut) {
    EXPECT_EQ(WithoutTerminalWords("\x1b[2KFatal: no"), "Fatal: no");
    EXPECT_EQ(WithoutTerminalWords("\r\x1b[2K\r\x1b[2K"), "");
    EXPECT_EQ(WithoutTerminalWords("\x1b[2Ksignal interrupt received, cleaning up"), "");
    EXPECT_EQ(WithoutTerminalWords("a \x1b[2K within"), "a \x1b[2K within");
}

TEST(ResticWords, ProgressWithoutTotalsIsProgressAtZero) {
    const auto message = ParseMessage(R"({"message_type":"status","percent_done":0})");
    const auto* progress = std::get_if<SBackupProgress>(&message);
    ASSERT_NE(progress, nullptr);
    EXPECT_EQ(progress->BytesTotal, 0U);
    const auto later = ParseMessage(
        R"({"message_type":"status","percent_done":0.5,"total_files":8,"files_done":7,"total_bytes":90,"bytes_done":45})");
    ASSERT_NE(std::get_if<SBackupProgress>(&later), nullptr);
    EXPECT_EQ(std::get_if<SBackupProgress>(&later)->BytesDone, 45U);
}

TEST(ResticWords, NonsenseIsNoMessage) {
    for (const char* text : {"", "{", "[]", "null", "{\"message_type\":7}", "{\"message_type\":\"new\"}",
                             "\xff\xfe{}", "{\"message_type\":\"status\",\"action\":\"scan_finished\"}"})
        EXPECT_TRUE(std::holds_alternative<std::monostate>(ParseMessage(text))) << text;
    const auto odd =
        ParseMessage(R"({"message_type":"summary","snapshot_id":7,"total_bytes_processed":"x"})");
    ASSERT_NE(std::get_if<SSummary>(&odd), nullptr);
    EXPECT_EQ(std::get_if<SSummary>(&odd)->Snapshot, "");
}

TEST(ResticWords, AnUnreadableFileSaysWhy) {
    const auto message = ParseMessage(
        R"({"message_type":"error","error":{"Op":"open","Path":"/s","Err":13},"during":"archival","item":"/s"})");
    const auto* error = std::get_if<SReadError>(&message);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->Item, "/s");
    EXPECT_EQ(error->Reason, "Permission denied");
    EXPECT_FALSE(error->IsScan);
}

std::vector<SSnapshot> Snapshots(const std::string& text, bool isSense = true) {
    std::vector<SSnapshot> snapshots;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
    EXPECT_EQ(ParseSnapshots(file.get(), [&](SSnapshot each) { snapshots.push_back(std::move(each)); }),
              isSense);
    return snapshots;
}

TEST(ResticWords, SnapshotsAreKnownByTheirTagsOnly) {
    const auto snapshots = Snapshots(
        R"([{"time":"2026-11-21T16:31:01.182730095+01:00","tree":"c3","paths":["/a","tarvo-point=x"],"hostname":"tarvo",
            "tags":["tarvo-job=J","other","tarvo-point=P"],"id":"b0c2","short_id":"b0","summary":{"id":"no"}},
            {"time":"2026-11-21T16:31:01Z","paths":null,"id":"c4"}])");
    ASSERT_EQ(snapshots.size(), 2U);
    EXPECT_EQ(snapshots[0].Job, "J");
    EXPECT_EQ(snapshots[0].Point, "P");
    EXPECT_EQ(snapshots[0].Id, "b0c2");
    EXPECT_EQ(snapshots[0].Host, "tarvo");
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(snapshots[1].Time - snapshots[0].Time).count();
    EXPECT_EQ(seconds, 3599);
    EXPECT_EQ(snapshots[1].Point, "");
}

TEST(ResticWords, AListThatMakesNoSenseIsSaidToBe) {
    EXPECT_TRUE(Snapshots("[]").empty());
    Snapshots("", false);
    Snapshots("[{\"id\":", false);
    Snapshots("[{\"id\":\"a\",\"time\":\"yesterday\"}]", false);
}

TEST(ResticWords, APathMeansItselfInAPattern) {
    EXPECT_EQ(LiteralPattern("/a/[b]*?\\c$d"), "/a/\\[b\\]\\*\\?\\\\c$d");
}

TEST(ResticWords, AnEntryHasTheBitsOfItsMode) {
    const auto entry = ParseEntry(
        R"({"name":"tmp","type":"dir","path":"/tmp","uid":1,"gid":2,"mode":2148532735,"mtime":"2026-11-21T16:31:01Z","struct_type":"node"})");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->Mode, 01777U);
    EXPECT_EQ(entry->Type, EEntryType::Folder);
    EXPECT_FALSE(ParseEntry(R"({"time":"2026-11-21T16:31:01Z","struct_type":"snapshot"})"));
}

TEST(ResticWords, APasswordThatTheEngineWouldChangeIsNamed) {
    EXPECT_EQ(PasswordProblem("good one"), "");
    for (const char* text : {"", " ", " a", "a\n", "\t"})
        EXPECT_NE(PasswordProblem(text), "") << text;
}

TEST(ResticWords, TheStoreStandsThreeLevelsBelowItsLocation) {
    const auto folder = StoreFolder("/srv/backup/", "guid", 7);
    EXPECT_EQ(folder, "/srv/backup/tarvo/guid/7");
    EXPECT_EQ(LocationOf(folder), "/srv/backup");
    EXPECT_EQ(LocationOf(StoreFolder("/", "guid", 1)), "/");
}

}  // namespace
