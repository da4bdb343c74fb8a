// SPDX-License-Identifier: Apache-2.0
// Records as JSON and back, and what is said about JSON that can't be read.
#include <zamclientlib/Enums.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/RecordText.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "show/Json.h"

namespace zamctl {
namespace {

using namespace zamclientlib;
using testing::HasSubstr;
using testing::Not;

apigen::Guid Id() {
    return *apigen::Guid::Parse("0123abcd-0004-f00d-0102-030405060708");
}

SBackupJobConfigurationInfo FullConfiguration() {
    SBackupJobConfigurationInfo job;
    job.JobName = "nightly \"日本\"\n";
    job.Source.BackupMode = JobBackupMode::FileLevel;
    job.Source.Objects = {{"/dev/sda1", EVolumeBackupObjectType::Volume},
                          {"/", EVolumeBackupObjectType::MountPoint}};
    job.Source.IncludeDirs = {"/home", "/srv"};
    job.Source.ExcludeDirs = {"/home/tmp"};
    job.Source.IncludeMasks = {"*.txt"};
    job.Source.ExcludeMasks = {"*~"};
    job.Source.shouldBackupUsbDrives = true;
    job.RepositoryId = Id();
    job.StorageInfo = {JobCompressionLevel::Optimal, EKbBlockSize::Kb1024, ESnapshotMode::NoSnapshot,
                       SEncryptionSettings{apigen::Optional<std::string>(), "the usual one"}};
    job.IndexingInfo = {BackupIndexingType::OnlyIncluded, {"/home"}, {"/home/tmp"}};
    job.ScriptInfo = SBackupJobScriptInfo{"/pre", "/post", "/freeze", "/thaw", true, {90, 500}};
    job.RetentionInfo = {14, 30UL};
    job.ScheduleInfo.IsEnabled = true;
    job.ScheduleInfo.TimeOfDay = {2 * 3600 + 1800, 0};
    job.ScheduleInfo.Calendar = {ScheduleType::Daily, DaysOfWeek::Monday | DaysOfWeek::Friday, 0, {}, 0};
    job.ScheduleInfo.ActiveFullSchedule = {true,
                                           {ScheduleType::MonthlyByWeekDay, SetOf(DaysOfWeek::Sunday),
                                            SetOf(MonthType::EveryMonth), WeekDayNumberType::Last, 31}};
    job.AapInfo.OracleInfo = SOracleInfo{
        EAapType::RequireSuccess, {"sys", "D", {}}, {EArchivedLogsTruncationMode::ByAge, 5, 24}, true};
    job.AapInfo.MySQLInfo = SMySQLInfo{EAapType::IgnoreFailures, SCredentials{"root", "", {}},
                                       EMySQLAuthType::PasswordFile, std::string("/root/.my.cnf")};
    job.AapInfo.PostgreSQLInfo = SPostgreSQLInfo{EAapType::Disabled, {}, EPostgreSQLAuthType::Peer};
    job.UserData = "opaque";
    job.RetriesInfo = SRetriesInfo{3, 600000};
    return job;
}

TEST(ToJson, WritesEveryKindOfValueAsItsDocumentedForm) {
    const Json json = ToJson(FullConfiguration());
    EXPECT_EQ(json["JobName"], "nightly \"日本\"\n");
    EXPECT_EQ(json["Source"]["BackupMode"], "FileLevel");
    EXPECT_EQ(json["Source"]["Objects"][1], (Json{{"Object", "/"}, {"Type", "MountPoint"}}));
    EXPECT_EQ(json["Source"]["shouldBackupUsbDrives"], true);
    EXPECT_EQ(json["RepositoryId"], "0123abcd-0004-f00d-0102-030405060708");
    EXPECT_EQ(json["ScriptInfo"]["ExecutionTimeout"], 90.5);
    EXPECT_EQ(json["ScheduleInfo"]["TimeOfDay"].dump(), "9000");
    EXPECT_EQ(json["ScheduleInfo"]["Calendar"]["Days"], "Monday|Friday");
    EXPECT_EQ(json["ScheduleInfo"]["Calendar"]["Months"], "None");
    EXPECT_EQ(json["ScheduleInfo"]["ActiveFullSchedule"]["Calendar"]["Months"], "EveryMonth");
    EXPECT_EQ(json["RetentionInfo"], (Json{{"RestorePointsCount", 14}, {"RetainDays", 30}}));
    EXPECT_EQ(ToJson(SBackupJobConfigurationInfo{})["RetriesInfo"], nullptr);
    EXPECT_EQ(json.begin().key(), "JobName") << "in the order of the record";
    EXPECT_EQ(std::prev(json.end()).key(), "RetriesInfo");

    SBackupJobInfo job{Id(), "\xff", true, SDateTime{1795278661, 250}};
    EXPECT_EQ(ToJson(job)["LastBackupTimeUtc"], "2026-11-21T16:31:01.250Z");
    EXPECT_EQ(ToJson(job)["Name"], "\ufffd");
    job.LastBackupTimeUtc = SDateTime{};
    EXPECT_EQ(ToJson(job)["LastBackupTimeUtc"], nullptr) << "the time zero";
    job.LastBackupTimeUtc.Reset();
    EXPECT_EQ(ToJson(job)["LastBackupTimeUtc"], nullptr);

    SInstallationInfo installation;
    installation.PackagesVersion = {2, 0, 0, 345};
    EXPECT_EQ(ToJson(installation)["PackagesVersion"], "2.0.0.345");
    SBaseEvent event;
    event.Type = static_cast<EEventType>(77);
    event.eventBackupJobRetried = SEventBackupJobRetried{Id(), Id()};
    EXPECT_EQ(ToJson(event)["Type"], 77) << "of a newer agent";
    EXPECT_EQ(ToJson(event)["eventBackupJobRetried"]["JobId"], "0123abcd-0004-f00d-0102-030405060708");
    EXPECT_EQ(ToJson(event)["eventBackupJobCreated"], nullptr);
}

TEST(ToJson, NeverWritesASecret) {
    SBackupJobConfigurationInfo job = FullConfiguration();
    job.StorageInfo.EncryptionSettings->Password = "hush";
    job.AapInfo.OracleInfo->Credentials.Password = "hush";
    SBackupServerInfo server;
    server.Password = "hush";
    SBackupRepositoryInfo repository;
    repository.SharedFolderInfo = SSharedFolderInfo{{}, "/d", "u", "", std::string("hush")};
    SCloudServiceProviderInfo provider;
    provider.Password = SCloudServiceProviderPassword{"hush", ECloudServiceProviderPasswordType::Plain};
    for (const Json& json : {ToJson(job), ToJson(server), ToJson(repository), ToJson(provider)})
        EXPECT_THAT(json.dump(), Not(HasSubstr("hush")));
    EXPECT_EQ(ToJson(server)["Password"], nullptr);
    EXPECT_EQ(ToJson(provider)["Password"], nullptr);
}

template <class Record>
std::string MistakeIn(const std::string& text, Record record = {}) {
    try {
        FromJson(ParseJson(text), record);
        return "none";
    } catch (const CFieldError& error) {
        return error.what();
    }
}

std::string JobMistake(const std::string& text) {
    return MistakeIn<SBackupJobConfigurationInfo>(text);
}

TEST(FromJson, ReadsAFullConfigurationAsItWasWritten) {
    const SBackupJobConfigurationInfo job = FullConfiguration();
    SBackupJobConfigurationInfo read;
    FromJson(ParseJson(JsonText(ToJson(job), true)), read);
    EXPECT_EQ(ToText(read), ToText(job));
    EXPECT_TRUE(read == job);
    FromJson(ParseJson(JsonText(ToJson(SBackupJobConfigurationInfo{}), false)), read);
    EXPECT_TRUE(read == SBackupJobConfigurationInfo{});
}

TEST(FromJson, LeavesWhatIsNotThereAsItIs) {
    SBackupJobConfigurationInfo job = FullConfiguration();
    FromJson(
        ParseJson(R"({"$schema": "x", "JobName": "weekly", "StorageInfo": {"CompressionLevel": "High"}})"),
        job);
    SBackupJobConfigurationInfo expected = FullConfiguration();
    expected.JobName = "weekly";
    expected.StorageInfo.CompressionLevel = JobCompressionLevel::High;
    EXPECT_EQ(ToText(job), ToText(expected));
}

TEST(FromJson, TakesAnOptionalAwayForANullButASecretNot) {
    SBackupJobConfigurationInfo job = FullConfiguration();
    job.StorageInfo.EncryptionSettings->Password = "hush";
    // What was exported comes back: its nulls say nothing about secrets.
    FromJson(ToJson(job), job);
    EXPECT_EQ(job.StorageInfo.EncryptionSettings->Password.value_or(""), "hush");
    FromJson(
        ParseJson(R"({"RetriesInfo": null, "StorageInfo": {"EncryptionSettings": {"Password": "new"}}})"),
        job);
    EXPECT_FALSE(job.RetriesInfo.HasValue());
    EXPECT_EQ(*job.StorageInfo.EncryptionSettings->Password, "new");
    EXPECT_EQ(job.StorageInfo.EncryptionSettings->PasswordHint, "the usual one");
    FromJson(ParseJson(R"({"StorageInfo": {"EncryptionSettings": null}})"), job);
    EXPECT_FALSE(job.StorageInfo.EncryptionSettings.HasValue());
}

TEST(FromJson, ReadsTheSecretsOfAllWhoHaveSome) {
    SCloudServiceProviderInfo provider;
    FromJson(
        ParseJson(
            R"({"Password": {"Value": "hush", "Type": "Token"}, "Connection": [{"Address": "a", "Port": 1}]})"),
        provider);
    EXPECT_EQ(provider.Password->Value, "hush");
    EXPECT_EQ(provider.Connection.at(0).Port, 1);
    SBackupServerInfo server;
    FromJson(ParseJson(R"({"Password": "hush"})"), server);
    EXPECT_EQ(*server.Password, "hush");
    SBackupRepositoryInfo repository;
    FromJson(ParseJson(R"({"Type": "SharedFolder", "SharedFolderInfo": {"Password": "hush"},
                           "ServerId": "{0123ABCD-0004-F00D-0102-030405060708}"})"),
             repository);
    EXPECT_EQ(*repository.SharedFolderInfo->Password, "hush");
    EXPECT_EQ(*repository.ServerId, Id());
    SJobStartOptions options;
    FromJson(ParseJson(R"({"ActiveFull": "Enabled", "Retries": null})"), options);
    EXPECT_EQ(*options.ActiveFull, EJobStartActiveFullMode::Enabled);
}

TEST(FromJson, RepeatsNoSecretInAMessage) {
    EXPECT_EQ(MistakeIn<SBackupServerInfo>(R"({"Password": 987654})"),
              "Password: expected a text, not a number");
    EXPECT_EQ(MistakeIn<SCloudServiceProviderInfo>(R"({"Password": "hush"})"),
              "Password: expected an object, not a text");
    EXPECT_THAT(MistakeIn<SBackupServerInfo>("{\"Password\": hush}"), Not(HasSubstr("hush")));
}

TEST(FromJson, SaysWhichFieldThereIsNotAndWhichIsMeant) {
    EXPECT_EQ(JobMistake(R"({"Source": {"IncludDirs": []}})"),
              "Source.IncludDirs: no such field; did you mean \"IncludeDirs\"?");
    EXPECT_EQ(JobMistake(R"({"jobname": "x"})"), "jobname: no such field; did you mean \"JobName\"?");
    EXPECT_EQ(JobMistake(R"({"RetriesInfo": {"x": 1}})"),
              "RetriesInfo.x: no such field; there are AttemptsNum and TimeoutMs");
    EXPECT_EQ(JobMistake(R"({"Source": {"Objects": [{}, {"Typ": "Disk"}]}})"),
              "Source.Objects[1].Typ: no such field; did you mean \"Type\"?");
    EXPECT_THAT(JobMistake("{\"a\\u001b[2J\": 1}"), HasSubstr("a\\x1b[2J: no such field"));
    EXPECT_EQ(JobMistake(R"({"Source": {"$schema": 1}})").substr(0, 30), "Source.$schema: no such field;");
}

TEST(FromJson, ListsTheNamesThatAnEnumerationHas) {
    EXPECT_EQ(
        JobMistake(R"({"Source": {"BackupMode": "filelevel"}})"),
        "Source.BackupMode: \"filelevel\" is none of Unknown, EntireMachine, VolumeLevel and FileLevel; "
        "did you mean \"FileLevel\"?");
    EXPECT_EQ(JobMistake(R"({"Source": {"BackupMode": "tape"}})"),
              "Source.BackupMode: \"tape\" is none of Unknown, EntireMachine, VolumeLevel and FileLevel");
    EXPECT_EQ(JobMistake(R"({"Source": {"BackupMode": true}})"),
              "Source.BackupMode: expected one of Unknown, EntireMachine, VolumeLevel and FileLevel, "
              "not true or false");
    EXPECT_EQ(
        JobMistake(R"({"ScheduleInfo": {"Calendar": {"Days": "Monday|tuesday"}}})"),
        "ScheduleInfo.Calendar.Days: \"tuesday\" is none of None, Monday, Tuesday, Wednesday, Thursday, "
        "Friday, Saturday, Sunday and EveryDay; did you mean \"Tuesday\"?");
    EXPECT_EQ(JobMistake(R"({"ScheduleInfo": {"Calendar": {"Months": ["July"]}}})"),
              "ScheduleInfo.Calendar.Months: expected months such as \"January|July\", not a list");
}

TEST(FromJson, TakesValuesWithoutANameByTheirNumber) {
    SBackupJobConfigurationInfo job;
    FromJson(
        ParseJson(R"({"Source": {"BackupMode": 77}, "ScheduleInfo": {"Calendar": {"Days": "Monday, 128"}}})"),
        job);
    EXPECT_EQ(static_cast<int>(job.Source.BackupMode), 77);
    EXPECT_EQ(job.ScheduleInfo.Calendar.Days, 129U);
    SBackupJobConfigurationInfo again;
    FromJson(ToJson(job), again);
    EXPECT_TRUE(again == job);
    EXPECT_EQ(JobMistake(R"({"Source": {"BackupMode": 3000000000}})"),
              "Source.BackupMode: 3000000000 is out of range: -2147483648 to 2147483647");
}

TEST(FromJson, NamesTheRangeOfANumber) {
    EXPECT_EQ(JobMistake(R"({"RetentionInfo": {"RestorePointsCount": 2147483648}})"),
              "RetentionInfo.RestorePointsCount: 2147483648 is out of range: -2147483648 to 2147483647");
    EXPECT_EQ(JobMistake(R"({"RetentionInfo": {"RestorePointsCount": -2147483649}})"),
              "RetentionInfo.RestorePointsCount: -2147483649 is out of range: -2147483648 to 2147483647");
    EXPECT_EQ(JobMistake(R"({"RetentionInfo": {"RestorePointsCount": -2147483648}})"), "none");
    EXPECT_EQ(JobMistake(R"({"RetentionInfo": {"RetainDays": -1}})"),
              "RetentionInfo.RetainDays: -1 is out of range: 0 to 18446744073709551615");
    EXPECT_EQ(JobMistake(R"({"RetentionInfo": {"RetainDays": 18446744073709551615}})"), "none");
    EXPECT_THAT(JobMistake(R"({"RetentionInfo": {"RetainDays": 18446744073709551616}})"),
                HasSubstr(" is out of range: 0 to 18446744073709551615"));
    EXPECT_EQ(
        JobMistake(R"({"RetentionInfo": {"RestorePointsCount": 5.5}})"),
        "RetentionInfo.RestorePointsCount: expected a whole number of -2147483648 to 2147483647, not 5.5");
    EXPECT_EQ(
        JobMistake(R"({"RetentionInfo": {"RestorePointsCount": "5"}})"),
        "RetentionInfo.RestorePointsCount: expected a whole number of -2147483648 to 2147483647, not a text");
}

TEST(FromJson, ReadsDurationsToTheMillisecond) {
    const auto timeout = [](const std::string& seconds) {
        SBackupJobConfigurationInfo job;
        FromJson(ParseJson("{\"ScriptInfo\": {\"ExecutionTimeout\": " + seconds + "}}"), job);
        const STimeSpan span = job.ScriptInfo->ExecutionTimeout;
        return std::to_string(span.seconds) + ' ' + std::to_string(span.milliseconds);
    };
    EXPECT_EQ(timeout("90"), "90 0");
    EXPECT_EQ(timeout("90.5"), "90 500");
    EXPECT_EQ(timeout("0.9996"), "1 0");
    EXPECT_EQ(timeout("-0.5"), "-1 500");
    EXPECT_EQ(timeout("-5"), "-5 0");
    EXPECT_EQ(timeout("9223372036854775807"), "9223372036854775807 0");
    EXPECT_EQ(JobMistake(R"({"ScriptInfo": {"ExecutionTimeout": 1e300}})"),
              "ScriptInfo.ExecutionTimeout: 1e+300 is out of range: -1e12 to 1e12 seconds");
    EXPECT_EQ(JobMistake(R"({"ScriptInfo": {"ExecutionTimeout": "90 s"}})"),
              "ScriptInfo.ExecutionTimeout: expected seconds, a number, not a text");
}

TEST(FromJson, WantsTheRightTypes) {
    EXPECT_EQ(JobMistake("[]"), "expected an object, not a list");
    EXPECT_EQ(JobMistake(R"({"JobName": null})"), "JobName: expected a text, not null");
    EXPECT_EQ(JobMistake(R"({"Source": []})"), "Source: expected an object, not a list");
    EXPECT_EQ(JobMistake(R"({"Source": {"IncludeDirs": "/home"}})"),
              "Source.IncludeDirs: expected a list, not a text");
    EXPECT_EQ(JobMistake(R"({"Source": {"IncludeDirs": ["/home", 5]}})"),
              "Source.IncludeDirs[1]: expected a text, not a number");
    EXPECT_EQ(JobMistake(R"({"ScheduleInfo": {"IsEnabled": "yes"}})"),
              "ScheduleInfo.IsEnabled: expected true or false, not a text");
    EXPECT_EQ(JobMistake(R"({"RepositoryId": "main"})"),
              "RepositoryId: \"main\" is no id; one has 8-4-4-4-12 hexadecimal digits, "
              "\"0123abcd-0004-f00d-0102-030405060708\" for instance");
}

std::string TextMistake(const std::string& text) {
    try {
        ParseJson(text);
        return "none";
    } catch (const CFieldError& error) {
        EXPECT_EQ(error.Path(), "");
        return error.what();
    }
}

TEST(ParseJson, SaysInPlainWordsWhatIsWrongAndWhere) {
    EXPECT_EQ(TextMistake(""), "line 1, column 1: there is nothing");
    EXPECT_EQ(TextMistake("\n  "), "line 2, column 3: there is nothing");
    EXPECT_EQ(TextMistake("{\n  \"a\": 1,\n}"), "line 2, column 9: nothing follows this comma");
    EXPECT_EQ(TextMistake("[1, 2"), "line 1, column 1: the \"[\" of line 1 is never closed");
    EXPECT_EQ(TextMistake("{\n\"a\": {\n\"b\": 1\n}"),
              "line 1, column 1: the \"{\" of line 1 is never closed");
    EXPECT_EQ(TextMistake("{\"a\": 1\n \"b\": 2}"), "line 2, column 2: a comma is missing before this");
    EXPECT_EQ(TextMistake("{\"a\": [1 2]}"), "line 1, column 10: expected \",\" or \"]\", not \"2\"");
    EXPECT_EQ(TextMistake("{\"a\": [1}"), "line 1, column 9: expected \",\" or \"]\", not \"}\"");
    EXPECT_EQ(TextMistake("{a: 1}"), "line 1, column 2: expected a field's name in double quotes");
    EXPECT_EQ(TextMistake("{\"a\" 1}"), "line 1, column 6: expected \":\" behind \"a\"");
    EXPECT_EQ(TextMistake("{\"a\": }"), "line 1, column 7: a value is missing here");
    EXPECT_EQ(TextMistake("{\"a\":"), "line 1, column 6: the text ends where a value should stand");
    EXPECT_EQ(TextMistake("{'a': 1}"), "line 1, column 2: expected a field's name in double quotes");
    EXPECT_EQ(TextMistake("['a']"), "line 1, column 2: texts stand in double quotes");
    EXPECT_EQ(TextMistake("[True]"), "line 1, column 2: \"True\" is written true");
    EXPECT_EQ(TextMistake("[NaN]"),
              "line 1, column 2: a word without quotes is true, false or null; texts stand in double quotes");
    EXPECT_EQ(TextMistake("[1] // old"), "line 1, column 5: JSON has no comments");
    EXPECT_EQ(TextMistake("{ # new\n}"), "line 1, column 3: JSON has no comments");
    EXPECT_EQ(TextMistake("{} {}"), "line 1, column 4: something follows the end of the value");
    EXPECT_EQ(TextMistake("[\"abc\n\"]"), "line 1, column 2: this text is not closed on its line");
    EXPECT_EQ(
        TextMistake("[\"a\tb\"]"),
        "line 1, column 4: a control character in a text is written as an escape, \"\\t\" for instance");
    EXPECT_EQ(
        TextMistake("[\"日本\", \"C:\\dir\"]"),
        "line 1, column 11: a backslash and \"d\" are no escape; a backslash itself is written \"\\\\\"");
    EXPECT_EQ(TextMistake("[\"\\u12g4\"]"), "line 1, column 3: behind \"\\u\" stand four hexadecimal digits");
    EXPECT_EQ(TextMistake("[\"\\ud800\"]"),
              "line 1, column 3: half of a pair of \"\\u\" escapes, without the other half");
    EXPECT_EQ(TextMistake("[\"a\xff\"]"), "line 1, column 4: a byte that is no UTF-8: \"\\xff\"");
    EXPECT_EQ(TextMistake("[012]"), "line 1, column 2: \"012\" is no number: it begins with a zero");
    EXPECT_EQ(TextMistake("[+1]"), "line 1, column 2: \"+1\" is no number: it has no \"+\" before it");
    EXPECT_EQ(TextMistake("[1.]"),
              "line 1, column 2: \"1.\" is no number: digits are missing behind the point");
    EXPECT_EQ(TextMistake("[1e]"), "line 1, column 2: \"1e\" is no number: its exponent is missing");
    EXPECT_EQ(TextMistake("[5GB]"), "line 1, column 2: \"5GB\" is no number");
    EXPECT_EQ(TextMistake("[1e999]"), "a number is too large");
    EXPECT_EQ(TextMistake("{\"a\": 1, \"a\": 2}"), "line 1, column 10: \"a\" is there already");
    EXPECT_EQ(TextMistake("[\033]"), "line 1, column 2: a value can't begin with \"\\x1b\"");
    EXPECT_EQ(TextMistake(std::string(100000, '[')), "line 1, column 66: this is nested too deeply");
}

TEST(ParseJson, TakesWhatJsonAllows) {
    EXPECT_EQ(
        ParseJson(
            "\xEF\xBB\xBF {\"a\": [1, -2.5e+3, true, null, \"\\u65e5\\ud83d\\ude00\\/\\\"\"], \"b\": {}}\n"),
        (Json{{"a", {1, -2500.0, true, nullptr, "日😀/\""}}, {"b", Json::object()}}));
    EXPECT_EQ(ParseJson("5"), 5);
}

/// Whatever is cut out of or put into a text: both readers agree about it, and nothing crashes.
TEST(ParseJson, RefusesAsMuchAsTheLibraryDoes) {
    const std::string text =
        R"({"a": [1, -2.5e3, true, null, "\u65e5\ud83d\ude00\n日"], "b": {"c": {}}, "d": []})";
    const std::string odd = "{}[],:\"'\\/0-+.e\x01\xff tn#";
    const auto check = [](const std::string& changed) {
        const bool isTaken = TextMistake(changed) == "none";
        EXPECT_EQ(isTaken, Json::accept(changed)) << changed;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        check(text.substr(0, i));
        check(std::string(text).erase(i, 1));
        for (const char c : odd) {
            check(std::string(text).insert(i, 1, c));
            std::string changed = text;
            changed[i] = c;
            check(changed);
        }
    }
}

TEST(PlaceOf, FindsTheFieldThatAnErrorNames) {
    const std::string text =
        "{\n  \"Source\": {\n    \"日\": 1, \"Objects\": [\n      {},\n      {\"Typ\": 1}\n    ]\n  }\n}\n";
    const auto place = [&](std::string_view path) {
        const auto found = PlaceOf(text, path);
        return found ? std::to_string(found->Line) + ':' + std::to_string(found->Column) : "none";
    };
    EXPECT_EQ(place("Source"), "2:3");
    EXPECT_EQ(place("Source.Objects"), "3:13");
    EXPECT_EQ(place("Source.Objects[0]"), "4:7");
    EXPECT_EQ(place("Source.Objects[1].Typ"), "5:8");
    EXPECT_EQ(place("Source.Objects[2]"), "none");
    EXPECT_EQ(place(""), "none");
}

TEST(JsonText, NeverThrowsForBytesThatAreNoUtf8) {
    EXPECT_EQ(JsonText(Json{{"a", "\xff"}}, false), "{\"a\":\"\ufffd\"}");
    EXPECT_EQ(JsonText(Json{{"a", 1}}, true), "{\n  \"a\": 1\n}");
}

}  // namespace
}  // namespace zamctl
