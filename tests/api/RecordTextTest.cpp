// SPDX-License-Identifier: Apache-2.0
// Records as text for people, without their secrets.
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>
#include <zamclientlib/RecordText.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <type_traits>

#include "src/RecordList.h"

namespace zamclientlib {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(RecordText, ShowsEachFieldByItsKey) {
    SBackupJobInfo job{.Name = "nightly", .Enabled = true};
    EXPECT_EQ(ToText(job),
              "{Id: {00000000-0000-0000-0000-000000000000}, Name: \"nightly\", Enabled: true, "
              "LastBackupTimeUtc: none}");
    job.LastBackupTimeUtc = SDateTime{1636120989, 42};
    EXPECT_THAT(ToText(job), HasSubstr("LastBackupTimeUtc: 2021-11-05T14:03:09.042Z}"));
    std::ostringstream stream;
    stream << job;
    EXPECT_EQ(stream.str(), ToText(job));
}

TEST(RecordText, ShowsListsRecordsNumbersAndEnumerations) {
    EXPECT_EQ(
        ToText(SBackupSourceInfo{.BackupMode = JobBackupMode::FileLevel,
                                 .Objects = {{"sda", EVolumeBackupObjectType::Disk}, {"x", {}}},
                                 .IncludeDirs = {"/a", "/b"}}),
        "{BackupMode: FileLevel, Objects: [{Object: \"sda\", Type: Disk}, {Object: \"x\", Type: Unknown}], "
        "IncludeDirs: [\"/a\", \"/b\"], ExcludeDirs: [], IncludeMasks: [], ExcludeMasks: [], "
        "shouldBackupUsbDrives: false, shouldBackupUserProfiles: false}");
    EXPECT_EQ(ToText(SBackupRepositorySizeInfo{-1, 5}), "{Capacity: -1, FreeSpace: 5}");
    EXPECT_EQ(ToText(SCompatibilityInfo{{2, 0, 0, 1}}), "{protocolVersion: 2.0.0.1}");
    EXPECT_EQ(ToText(SVolumeBackupObject{"x", static_cast<EVolumeBackupObjectType>(99)}),
              "{Object: \"x\", Type: 99}")
        << "a newer service's member";
    EXPECT_THAT(ToText(SBackupJobScriptInfo{}), HasSubstr("ExecutionTimeout: 0.000s"));
}

TEST(RecordText, EscapesWhatCouldForgeALineOrGarbleATerminal) {
    const std::string text = ToText(SLogDetail{.Message = "a\nb\x1b[2J\"c\""});
    EXPECT_EQ(text.find_first_of("\n\x1b"), std::string::npos) << text;
    EXPECT_THAT(text, HasSubstr("Message: \"a"));
}

TEST(RecordText, HidesSecretsAndSaysWhenThereIsNone) {
    SCredentials credentials{.Login = "backup", .Password = "Pa55"};
    EXPECT_EQ(ToText(credentials), "{Login: \"backup\", Domain: \"\", Password: ***}");
    credentials.Password = "";
    EXPECT_EQ(ToText(credentials), "{Login: \"backup\", Domain: \"\", Password: ***}");
    credentials.Password.reset();
    EXPECT_EQ(ToText(credentials), "{Login: \"backup\", Domain: \"\", Password: none}");
    EXPECT_EQ(ToText(SCloudServiceProviderPassword{}), "{Value: ***, Type: Unknown}");
}

constexpr const char* Hidden = "Pa55w0rd";

template <class T>
void Fill(apigen::Optional<T>& value, bool isSecret, int& secrets);
template <class T>
void Fill(std::vector<T>& values, bool isSecret, int& secrets);

/// Sets every secret, at any depth, and makes what may be absent present.
template <class T>
void Fill(T& value, bool isSecret, int& secrets) {
    if constexpr (apigen::IsRecord<T>) {
        apigen::ForEachField(value, [&](const apigen::FieldInfo& info, auto& field) {
            Fill(field, isSecret || info.IsSecret, secrets);
        });
    } else if constexpr (std::is_same_v<T, std::string>) {
        value = isSecret ? Hidden : "shown";
        secrets += isSecret ? 1 : 0;
    }
}
template <class T>
void Fill(apigen::Optional<T>& value, bool isSecret, int& secrets) {
    value.emplace();
    Fill(*value, isSecret, secrets);
}
template <class T>
void Fill(std::vector<T>& values, bool isSecret, int& secrets) {
    Fill(values.emplace_back(), isSecret, secrets);
}

TEST(RecordText, OfNoRecordShowsASecret) {
    int secrets = 0;
    const auto check = [&](auto record) {
        Fill(record, false, secrets);
        EXPECT_THAT(ToText(record), Not(HasSubstr(Hidden)));
    };
#define ZAM_CHECK(type) check(type{});
    ZAM_FOR_EACH_RECORD(ZAM_CHECK)
    EXPECT_GE(secrets, 6) << "the secrets were not set";
}

TEST(EnumerationText, IsTheNameOrTheNumber) {
    std::ostringstream stream;
    stream << JobState::Working << ' ' << static_cast<JobState>(-7);
    EXPECT_EQ(stream.str(), "Working -7");
}

TEST(DateTimeText, IsTheDateInUtc) {
    EXPECT_EQ(ToText(SDateTime{0, 0}), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(ToText(SDateTime{-1, 999}), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(ToText(SDateTime{951782400, 1}), "2000-02-29T00:00:00.001Z");
    EXPECT_EQ(ToText(SDateTime{4107542399, 0}), "2100-02-28T23:59:59.000Z");
    EXPECT_EQ(ToText(SDateTime{4107542400, 0}), "2100-03-01T00:00:00.000Z");
    EXPECT_EQ(ToText(SDateTime{253402300799, 1001}), "10000-01-01T00:00:00.001Z")
        << "a second too many is carried";
    EXPECT_EQ(ToText(SDateTime{-62167219201, 0}), "-0001-12-31T23:59:59.000Z");
    EXPECT_EQ(ToText(SDateTime{LONG_MAX, 65535}), "292277026596-12-04T15:30:07.999Z");
    EXPECT_EQ(ToText(SDateTime{LONG_MIN, 0}), "-292277022657-01-27T08:29:52.000Z");
}

TEST(TimeSpanText, IsInSeconds) {
    EXPECT_EQ(ToText(STimeSpan{90, 500}), "90.500s");
    EXPECT_EQ(ToText(STimeSpan{-1, 500}), "-0.500s");
    EXPECT_EQ(ToText(STimeSpan{-2, 1}), "-1.999s");
    EXPECT_EQ(ToText(STimeSpan{-2, 0}), "-2.000s");
    EXPECT_EQ(ToText(STimeSpan{1, 65535}), "66.535s");
    EXPECT_EQ(ToText(STimeSpan{-1, 1500}), "0.500s");
    EXPECT_EQ(ToText(STimeSpan{LONG_MIN, 0}), "-9223372036854775808.000s");
}

}  // namespace
}  // namespace zamclientlib
