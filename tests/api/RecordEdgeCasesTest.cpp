// SPDX-License-Identifier: Apache-2.0
// What single records promise about their entries: which are left out, how lists nest, which are secret.
#include <apigen/CXmlData.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/api/FieldWalk.h"
#include "tests/api/RecordGoldens.h"
#include "tests/api/TypeNames.h"

namespace zamtest {
namespace {

using apigen::CXmlData;
using apigen::FieldInfo;
using namespace zamclientlib;

/// The node of `record`, after a way over the wire.
template <class Record>
std::shared_ptr<apigen::IData> NodeOf(const Record& record) {
    return CXmlData::Unserialize(DocumentOf(record))->GetChild("K");
}

template <class Record>
Record RoundTrip(const Record& record) {
    Record read;
    apigen::Deserialize(*CXmlData::Unserialize(DocumentOf(record)), "K", read);
    return read;
}

template <class Record>
Record ReadFrom(const std::string& text) {
    Record read;
    apigen::Deserialize(*CXmlData::Unserialize("<Data><K>" + text + "</K></Data>"), "K", read);
    return read;
}

/// The keys of the record's fields that have no entry in its node.
template <class Record>
std::set<std::string> KeysLeftOut(const Record& record) {
    std::set<std::string> keys;
    const auto node = NodeOf(record);
    Record::Fields([&](const FieldInfo& info, auto) {
        if (!node->HasValue(std::string(info.Key))) keys.emplace(info.Key);
    });
    return keys;
}

using Keys = std::set<std::string>;

TEST(BackupJobConfigurationInfo, WithoutScriptsRetriesAndEncryptionWritesNoSuchEntries) {
    auto record = Goldens<SBackupJobConfigurationInfo>().front().Value;
    EXPECT_EQ(KeysLeftOut(record), Keys{});
    EXPECT_EQ(KeysLeftOut(record.StorageInfo), Keys{});

    record.ScriptInfo.Reset();
    record.RetriesInfo.Reset();
    record.StorageInfo.EncryptionSettings.Reset();
    EXPECT_EQ(KeysLeftOut(record), (Keys{"ScriptInfo", "RetriesInfo"}));
    EXPECT_EQ(KeysLeftOut(record.StorageInfo), (Keys{"EncryptionSettings"}));
    EXPECT_FALSE(NodeOf(record)->GetChild("StorageInfo")->HasValue("EncryptionSettings"));
    EXPECT_EQ(RoundTrip(record), record);
}

TEST(AapInfo, WithOnlyPostgreSqlHasASingleEntry) {
    const SAapInfo record{
        .OracleInfo = {},
        .MySQLInfo = {},
        .PostgreSQLInfo = SPostgreSQLInfo{.ProcessingType = EAapType::IgnoreFailures,
                                          .Credentials = {.Login = "pg", .Domain = "", .Password = {}},
                                          .AuthType = EPostgreSQLAuthType::Peer}};
    EXPECT_EQ(DocumentOf(record),
              "<Data><K><PostgreSQLInfo><opt><ProcessingType>2</ProcessingType>"
              "<Credentials><Login>pg</Login><Domain></Domain></Credentials><AuthType>3</AuthType>"
              "</opt></PostgreSQLInfo></K></Data>");
    EXPECT_EQ(KeysLeftOut(record), (Keys{"OracleInfo", "MySQLInfo"}));
    EXPECT_EQ(RoundTrip(record), record);
}

TEST(CalendarInfo, CarriesEveryDayOfTheWeekAsANumber) {
    SCalendarInfo record;
    record.Days = 127;
    EXPECT_EQ(NodeOf(record)->GetString("Days"), "127");
    EXPECT_EQ(RoundTrip(record).Days, 127U);
}

TEST(BackupSourceInfo, WritesOneEntryForEachIncludedDirectory) {
    SBackupSourceInfo record;
    record.IncludeDirs = {"/second", "/first"};
    const auto entries = NodeOf(record)->GetChildren("IncludeDirs");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0]->GetString("item"), "/second");
    EXPECT_EQ(entries[1]->GetString("item"), "/first");
    EXPECT_EQ(RoundTrip(record).IncludeDirs, record.IncludeDirs);
}

TEST(GatewayInfo, HoldsItsConnectionWithoutAnItemLevel) {
    const SGatewayInfo record{.Connection = {.Address = "gate", .Port = 1}, .Priority = 2};
    const auto entries = NodeOf(record)->GetChildren("Connection");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_FALSE(entries[0]->HasValue("item"));
    EXPECT_EQ(entries[0]->GetString("Address"), "gate");
    EXPECT_EQ(entries[0]->GetString("Port"), "1");
}

TEST(BackupServerInfo, WritesEachEndpointAsAnItemInListOrder) {
    SBackupServerInfo record;
    record.Connection = {{.Address = "z", .Port = 2}, {.Address = "a", .Port = 1}};
    const auto entries = NodeOf(record)->GetChildren("Connection");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_FALSE(entries[0]->HasValue("Address"));
    EXPECT_EQ(entries[0]->GetChild("item")->GetString("Address"), "z");
    EXPECT_EQ(entries[0]->GetChild("item")->GetString("Port"), "2");
    EXPECT_EQ(entries[1]->GetChild("item")->GetString("Address"), "a");
    EXPECT_EQ(entries[1]->GetChild("item")->GetString("Port"), "1");
    EXPECT_EQ(RoundTrip(record), record);
}

TEST(BackupRepositoryInfo, WithoutAServerAndASharedFolderWritesNeither) {
    auto record = Goldens<SBackupRepositoryInfo>().front().Value;
    EXPECT_EQ(KeysLeftOut(record), Keys{});
    record.ServerId.Reset();
    record.SharedFolderInfo.Reset();
    EXPECT_EQ(KeysLeftOut(record), (Keys{"ServerId", "SharedFolderInfo"}));
    EXPECT_EQ(RoundTrip(record), record);
}

TEST(BackupRepositorySizeInfo, CarriesAnUnknownCapacity) {
    const SBackupRepositorySizeInfo record{.Capacity = -1, .FreeSpace = 0};
    EXPECT_EQ(NodeOf(record)->GetString("Capacity"), "-1");
    EXPECT_EQ(RoundTrip(record).Capacity, -1);
}

TEST(BackupJobInfo, WithoutALastBackupHasThreeEntries) {
    SBackupJobInfo record;
    record.Name = "never run";
    EXPECT_EQ(DocumentOf(record),
              "<Data><K><Id>{00000000-0000-0000-0000-000000000000}</Id><Name>never run</Name>"
              "<Enabled>false</Enabled></K></Data>");
    EXPECT_EQ(KeysLeftOut(record), (Keys{"LastBackupTimeUtc"}));
    EXPECT_FALSE(RoundTrip(record).LastBackupTimeUtc.HasValue());
}

TEST(BackupJobSessionInfo, WritesOneEntryForEachDetail) {
    SBackupJobSessionInfo record;
    EXPECT_FALSE(NodeOf(record)->HasValue("JobDetails"));
    EXPECT_TRUE(RoundTrip(record).JobDetails.empty());

    record.JobDetails = {{.Type = ELogDetailType::Info, .Usn = {}, .Message = "one"},
                         {.Type = ELogDetailType::Error, .Usn = {}, .Message = "two"}};
    const auto entries = NodeOf(record)->GetChildren("JobDetails");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0]->GetChild("item")->GetString("Message"), "one");
    EXPECT_EQ(entries[1]->GetChild("item")->GetString("Message"), "two");
    EXPECT_EQ(RoundTrip(record), record);
}

TEST(JobStartOptions, WithoutAnyOptionIsAnEmptyNode) {
    const auto data = CXmlData::CreateNew();
    apigen::Serialize(*data, "options", SJobStartOptions{});
    EXPECT_EQ(CXmlData::Serialize(*data), "<Data><options/></Data>");

    for (const char* const text : {"<Data><options/></Data>", "<Data><options></options></Data>"}) {
        SJobStartOptions read;
        apigen::Deserialize(*CXmlData::Unserialize(text), "options", read);
        EXPECT_EQ(read, SJobStartOptions{}) << text;
    }
}

TEST(Version, IsWrittenAsFourTexts) {
    const SVersion record{.major = 1, .minor = 2, .revision = 0, .build = 345};
    EXPECT_EQ(DocumentOf(record),
              "<Data><K><major>1</major><minor>2</minor><revision>0</revision><build>345</build></K></Data>");
    EXPECT_EQ(RoundTrip(record), record);
}

const char* const header =
    "<Type>7</Type><Id>5</Id><CreateTimeUTC><seconds>6</seconds><milliseconds>8</milliseconds>"
    "</CreateTimeUTC><SourceType>2</SourceType>"
    "<ControlSessionId>{01020304-0506-0708-090a-0b0c0d0e0f10}</ControlSessionId>";

SBaseEvent HeaderOnly() {
    SBaseEvent event;
    event.Type = EEventType::BackupJobStarted;
    event.Id = 5;
    event.CreateTimeUTC = {.seconds = 6, .milliseconds = 8};
    event.SourceType = EEventSourceType::Scheduler;
    event.ControlSessionId = GuidOf("{01020304-0506-0708-090a-0b0c0d0e0f10}");
    return event;
}

TEST(BaseEvent, WithoutASubRecordIsItsHeaderOnly) {
    EXPECT_EQ(DocumentOf(HeaderOnly()), std::string("<Data><K>") + header + "</K></Data>");
    EXPECT_EQ(ReadFrom<SBaseEvent>(header), HeaderOnly());
}

TEST(BaseEvent, KeepsEverySubRecordOfAMessageWhateverItsType) {
    SBaseEvent expected = HeaderOnly();
    expected.eventBackupModeChanged = SEventBackupModeChanged{.JobId = {}, .Username = "ann"};
    expected.eventBackupJobRetried =
        SEventBackupJobRetried{.JobId = GuidOf("{01020304-0506-0708-090a-0b0c0d0e0f11}"),
                               .SessionId = GuidOf("{01020304-0506-0708-090a-0b0c0d0e0f12}")};
    const auto read = ReadFrom<SBaseEvent>(
        std::string(header) +
        "<eventBackupJobRetried><opt><JobId>{01020304-0506-0708-090a-0b0c0d0e0f11}</JobId>"
        "<SessionId>{01020304-0506-0708-090a-0b0c0d0e0f12}</SessionId></opt></eventBackupJobRetried>"
        "<eventBackupModeChanged><opt><JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
        "<Username>ann</Username></opt></eventBackupModeChanged>");
    EXPECT_EQ(read, expected);
    EXPECT_FALSE(read.eventBackupJobStarted.HasValue()) << "what the type announces was not in the message";
}

/// One of the kinds of event that name a job and a user.
struct SJobLevelKind {
    std::string Key;
    void (*Set)(SBaseEvent&, const apigen::Guid&, const std::string&);
};

TEST(BaseEvent, KeepsTheKindsOfOneShapeUnderTheirOwnKeys) {
    const SJobLevelKind kinds[] = {
        {"eventBackupJobCreated",
         [](SBaseEvent& event, const apigen::Guid& job, const std::string& user) {
             event.eventBackupJobCreated = SEventBackupJobCreated{job, user};
         }},
        {"eventBackupJobDeleted",
         [](SBaseEvent& event, const apigen::Guid& job, const std::string& user) {
             event.eventBackupJobDeleted = SEventBackupJobDeleted{job, user};
         }},
        {"eventBackupJobModified",
         [](SBaseEvent& event, const apigen::Guid& job, const std::string& user) {
             event.eventBackupJobModified = SEventBackupJobModified{job, user};
         }},
        {"eventBackupSourceUpdated",
         [](SBaseEvent& event, const apigen::Guid& job, const std::string& user) {
             event.eventBackupSourceUpdated = SEventBackupSourceUpdated{job, user};
         }},
        {"eventBackupModeChanged",
         [](SBaseEvent& event, const apigen::Guid& job, const std::string& user) {
             event.eventBackupModeChanged = SEventBackupModeChanged{job, user};
         }},
    };
    const std::string content =
        "<opt><JobId>{0a000000-0b00-0c00-0d00-0e0000000f00}</JobId><Username>ann</Username></opt>";
    for (const SJobLevelKind& kind : kinds) {
        SBaseEvent event = HeaderOnly();
        kind.Set(event, GuidOf("{0a000000-0b00-0c00-0d00-0e0000000f00}"), "ann");
        const std::string text = header + ("<" + kind.Key + ">") + content + "</" + kind.Key + ">";
        EXPECT_EQ(DocumentOf(event), "<Data><K>" + text + "</K></Data>");
        EXPECT_EQ(ReadFrom<SBaseEvent>(text), event) << kind.Key;
    }
}

template <class Record>
void AddSecretsOf(const std::string& name, std::set<std::string>& secrets) {
    Record::Fields([&](const FieldInfo& info, auto) {
        if (info.IsSecret) secrets.insert(name + "." + std::string(info.Key));
    });
}

template <class... Records>
std::set<std::string> SecretsOf(testing::Types<Records...> /*records*/) {
    std::set<std::string> secrets;
    (AddSecretsOf<Records>(TypeName<Records>(), secrets), ...);
    return secrets;
}

TEST(AllRecords, MarkThePasswordsAndNothingElseAsSecret) {
    const std::set<std::string> expected = {
        "SBackupServerInfo.Password",          "SCloudServiceProviderInfo.Password",
        "SCloudServiceProviderPassword.Value", "SCredentials.Password",
        "SEncryptionSettings.Password",        "SSharedFolderInfo.Password"};
    EXPECT_EQ(SecretsOf(zamtest::AllRecords{}), expected);
}

}  // namespace
}  // namespace zamtest
