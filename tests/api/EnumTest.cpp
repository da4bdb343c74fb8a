// SPDX-License-Identifier: Apache-2.0
// Every enumeration: its numbers on the wire, its members and their names.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/Enums.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <set>
#include <type_traits>
#include <vector>

#include "tests/api/CPlainData.h"
#include "tests/api/OwnProcess.h"
#include "tests/api/TypeNames.h"

namespace zamtest {
namespace {

using apigen::CXmlData;

/// Every member with its number, as the wire has promised them: a member may be added, none renumbered.
template <class E>
const char* PromisedMembers();

#define ZAM_MEMBERS(type, members)                      \
    template <>                                         \
    const char* PromisedMembers<zamclientlib::type>() { \
        return members;                                 \
    }

ZAM_MEMBERS(OSHardwarePlatform, "Unknown=0 X86=1 X64=2 Arm64=3 Ppc64Le=4 S390X=5 RiscV64=6")
ZAM_MEMBERS(KELPlatform, "Unknown=0 El7=1 El8=2 El9=3 El10=4")
ZAM_MEMBERS(EthInterfaceStatus, "Unknown=0 Up=1 Down=2")
ZAM_MEMBERS(ZAMOwnerType, "None=0 Local=1 BackupServer=2 ManagementConsole=3 CloudProvider=4")
ZAM_MEMBERS(ZAMOwnerMode, "None=0 Shared=1 ReadOnly=2 Exclusive=3")
ZAM_MEMBERS(RestorePointType, "Unknown=0 Full=1 Increment=2 ReverseIncrement=3")
ZAM_MEMBERS(BackupAlgorithm, "Unknown=0 Full=1 Incremental=2 ReverseIncremental=3")
ZAM_MEMBERS(BackupIndexingType, "None=0 Everything=1 OnlyIncluded=2 EverythingExcept=3")
ZAM_MEMBERS(BackupTargetType, "Unknown=0 LocalFolder=1 SharedFolder=2 BackupServer=3 Cloud=4 ObjectStorage=5")
ZAM_MEMBERS(SharedFolderType, "Unknown=0 Nfs=1 Smb=2")
ZAM_MEMBERS(DaysOfWeek,
            "None=0 Monday=1 Tuesday=2 Wednesday=4 Thursday=8 Friday=16 Saturday=32 Sunday=64 EveryDay=127")
ZAM_MEMBERS(MonthType,
            "None=0 January=1 February=2 March=4 April=8 May=16 June=32 July=64 August=128 September=256 "
            "October=512 November=1024 December=2048 EveryMonth=4095")
ZAM_MEMBERS(ScheduleType, "None=0 Daily=1 MonthlyByDay=2 MonthlyByWeekDay=3")
ZAM_MEMBERS(WeekDayNumberType, "None=0 First=1 Second=2 Third=3 Fourth=4 Last=5")
ZAM_MEMBERS(JobType, "Unknown=0 Backup=1 Restore=2 BackupCopy=3")
ZAM_MEMBERS(
    JobState,
    "Unknown=0 Stopped=1 Starting=2 Pending=3 Working=4 Pausing=5 Resuming=6 Stopping=7 Postprocessing=8")
ZAM_MEMBERS(JobResult, "None=0 Success=1 Warning=2 Failed=3")
ZAM_MEMBERS(JobAlgorithm, "Unknown=0 Full=1 Increment=2 Synthetic=3")
ZAM_MEMBERS(JobCompressionLevel, "None=0 DedupeFriendly=1 Optimal=2 High=3 Extreme=4")
ZAM_MEMBERS(JobBackupMode, "Unknown=0 EntireMachine=1 VolumeLevel=2 FileLevel=3")
ZAM_MEMBERS(JobSessionAlgorithm, "Unknown=0 Full=1 Increment=2 SyntheticFull=3")
ZAM_MEMBERS(JobSessionTaskStatus, "None=0 Pending=1 InProgress=2 Success=3 Warning=4 Failed=5 Canceled=6")
ZAM_MEMBERS(JobSessionTaskAlgorithm, "Unknown=0 Full=1 Increment=2")
ZAM_MEMBERS(EEventType,
            "Unknown=0 BackupJobCreated=1 BackupJobDeleted=2 BackupJobModified=3 BackupSourceUpdated=4 "
            "BackupModeChanged=5 BackupJobFinished=6 BackupJobStarted=7 BackupJobRetried=8")
ZAM_MEMBERS(EEventSourceType, "Unknown=0 User=1 Scheduler=2 Service=3 Owner=4")
ZAM_MEMBERS(EVolumeBackupObjectType,
            "Unknown=0 Disk=1 Volume=2 MountPoint=3 Lvm=4 Directory=5 File=6 BtrfsSubvolume=7")
ZAM_MEMBERS(ECloudServiceProviderPasswordType, "Unknown=0 Plain=1 Hashed=2 Token=3")
ZAM_MEMBERS(EKbBlockSize, "Automatic=0 Kb256=1 Kb512=2 Kb1024=3 Kb4096=4 Kb8192=5")
ZAM_MEMBERS(ESnapshotMode, "Automatic=0 Snapshot=1 NoSnapshot=2 CrashConsistent=3")
ZAM_MEMBERS(EAapType, "Disabled=0 RequireSuccess=1 IgnoreFailures=2")
ZAM_MEMBERS(EArchivedLogsTruncationMode, "None=0 All=1 BySize=2 ByAge=3")
ZAM_MEMBERS(EMySQLAuthType, "None=0 Password=1 PasswordFile=2")
ZAM_MEMBERS(EPostgreSQLAuthType, "None=0 Password=1 PasswordFile=2 Peer=3")
ZAM_MEMBERS(EJobStartRetriesMode, "Default=0 Enabled=1 Disabled=2")
ZAM_MEMBERS(EJobStartPriorityMode, "Default=0 Low=1 Normal=2 High=3")
ZAM_MEMBERS(EJobStartActiveFullMode, "Default=0 Enabled=1 Disabled=2")
ZAM_MEMBERS(EJobStartSnapshotMode, "Default=0 Enabled=1 Disabled=2")
ZAM_MEMBERS(ELogDetailType, "None=0 Info=1 Success=2 Warning=3 Error=4")
ZAM_MEMBERS(EServiceStatus, "Unknown=0 Running=1 Stopped=2 Starting=3 Stopping=4 Failed=5")
ZAM_MEMBERS(EOsType, "Unknown=0 Linux=1 MacOs=2 Unix=3")
ZAM_MEMBERS(EIndexingDependency, "None=0 Mlocate=1 Tar=2 Gzip=3")

template <class E>
class Enumeration : public testing::Test {
protected:
    static_assert(std::is_enum_v<E> && std::is_same_v<std::underlying_type_t<E>, int>);

    /// What `text` under "K" reads as, in a container of each kind; both must agree.
    static int Read(const std::string& text) {
        const auto document = CXmlData::CreateNew();
        document->SetString("K", text);
        CPlainData plain;
        plain.SetString("K", text);
        E fromDocument = static_cast<E>(-7);
        E fromPlain = static_cast<E>(-8);
        apigen::Deserialize(*document, "K", fromDocument);
        apigen::Deserialize(plain, "K", fromPlain);
        EXPECT_EQ(static_cast<int>(fromDocument), static_cast<int>(fromPlain)) << text;
        return static_cast<int>(fromDocument);
    }

    static std::string Written(int value) {
        const auto document = CXmlData::CreateNew();
        apigen::Serialize(*document, "K", static_cast<E>(value));
        CPlainData plain;
        apigen::Serialize(plain, "K", static_cast<E>(value));
        EXPECT_EQ(CXmlData::Serialize(*document), "<Data>" + plain.Text() + "</Data>");
        return plain.GetString("K");
    }
};

struct SEnumNames {
    template <class E>
    static std::string GetName(int) {
        return TypeName<E>();
    }
};

TYPED_TEST_SUITE(Enumeration, AllEnums, SEnumNames);

TYPED_TEST(Enumeration, TravelsAsItsNumberWhetherOrNotThatNamesAMember) {
    for (const int value : {0, 1, 2, 99, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(this->Written(value), std::to_string(value));
        EXPECT_EQ(this->Read(std::to_string(value)), value);
    }
}

TYPED_TEST(Enumeration, ReadsATextWithoutANumberAsZero) {
    for (const char* const text : {"", " ", "x", "Working", "-"})
        EXPECT_EQ(this->Read(text), 0) << text;
}

TYPED_TEST(Enumeration, TravelsInOptionals) {
    const auto document = CXmlData::CreateNew();
    apigen::Serialize(*document, "O", apigen::Optional<TypeParam>(static_cast<TypeParam>(1)));
    apigen::Serialize(*document, "N", apigen::Optional<TypeParam>());
    EXPECT_EQ(CXmlData::Serialize(*document), "<Data><O><opt>1</opt></O></Data>");
    apigen::Optional<TypeParam> optional;
    apigen::Deserialize(*document, "N", optional);
    EXPECT_FALSE(optional.HasValue());
    apigen::Deserialize(*document, "O", optional);
    EXPECT_EQ(static_cast<int>(optional.Value()), 1);
}

TYPED_TEST(Enumeration, HasThePromisedMembers) {
    std::string members;
    for (const TypeParam member : zamclientlib::MembersOf<TypeParam>()) {
        if (!members.empty()) members += ' ';
        members += std::string(zamclientlib::NameOf(member)) + '=' + std::to_string(static_cast<int>(member));
    }
    EXPECT_EQ(members, PromisedMembers<TypeParam>());
}

TYPED_TEST(Enumeration, BeginsWithItsNeutralMemberAndAscends) {
    const auto& members = zamclientlib::MembersOf<TypeParam>();
    ASSERT_GT(members.size(), 1U);
    EXPECT_EQ(members.front(), TypeParam{});
    static const std::set<std::string_view> neutral{"Unknown", "None", "Default", "Automatic", "Disabled"};
    EXPECT_EQ(neutral.count(zamclientlib::NameOf(TypeParam{})), 1U) << zamclientlib::NameOf(TypeParam{});
    for (std::size_t i = 1; i < members.size(); ++i)
        EXPECT_LT(members[i - 1], members[i]);
}

TYPED_TEST(Enumeration, FindsEachMemberByItsNameAndNothingElse) {
    std::set<std::string_view> names;
    for (const TypeParam member : zamclientlib::MembersOf<TypeParam>()) {
        const std::string_view name = zamclientlib::NameOf(member);
        EXPECT_TRUE(names.insert(name).second) << name << " stands twice";
        const auto found = zamclientlib::MemberNamed<TypeParam>(name);
        ASSERT_TRUE(found.HasValue()) << name;
        EXPECT_EQ(found.Value(), member);
        EXPECT_FALSE(zamclientlib::MemberNamed<TypeParam>(std::string(name) + ' ').HasValue());
        EXPECT_FALSE(zamclientlib::MemberNamed<TypeParam>(name.substr(1)).HasValue());
    }
    for (const char* const text : {"", "unknown", "none", "0", "(zamclientlib::JobState)99"})
        EXPECT_FALSE(zamclientlib::MemberNamed<TypeParam>(text).HasValue()) << text;
    for (const int value : {-1, 99, 5000, INT_MAX, INT_MIN})
        EXPECT_EQ(zamclientlib::NameOf(static_cast<TypeParam>(value)), "");
}

TEST(EnumerationMembers, AreThereForWhoAsksAtTheVeryEndOfTheProgram) {
    using zamclientlib::EKbBlockSize;
    const int result = ResultInAProcessOfItsOwn([]() -> int {
        static std::vector<EKbBlockSize>& before = *new std::vector<EKbBlockSize>;
        // Begun before what the library makes at the first question, this ends after it.
        std::atexit([] { ::_exit(zamclientlib::MembersOf<EKbBlockSize>() == before ? 0 : 1); });
        before = zamclientlib::MembersOf<EKbBlockSize>();
        std::exit(2);  // NOLINT(concurrency-mt-unsafe): one thread
    });
    EXPECT_EQ(result, 0);
}

TEST(EnumerationSets, HaveOneBitADayAndAMonth) {
    using zamclientlib::MembersOf;
    int bit = 0;
    for (const auto day : MembersOf<zamclientlib::DaysOfWeek>()) {
        if (day != zamclientlib::DaysOfWeek::None && day != zamclientlib::DaysOfWeek::EveryDay) {
            EXPECT_EQ(static_cast<int>(day), 1 << bit++);
        }
    }
    EXPECT_EQ(bit, 7);
    EXPECT_EQ(static_cast<int>(zamclientlib::DaysOfWeek::EveryDay), 0x7f);
    bit = 0;
    for (const auto month : MembersOf<zamclientlib::MonthType>()) {
        if (month != zamclientlib::MonthType::None && month != zamclientlib::MonthType::EveryMonth) {
            EXPECT_EQ(static_cast<int>(month), 1 << bit++);
        }
    }
    EXPECT_EQ(bit, 12);
    EXPECT_EQ(static_cast<int>(zamclientlib::MonthType::EveryMonth), 0xfff);
}

using zamclientlib::DaysOfWeek;
using zamclientlib::MonthType;
using zamclientlib::NamesOf;
using zamclientlib::SetNamed;
using zamclientlib::SetOf;

TEST(EnumerationSets, AreCombinedFromMembersAndBits) {
    static_assert((DaysOfWeek::Monday | DaysOfWeek::Friday | DaysOfWeek::Sunday) == 0x51U);
    static_assert((DaysOfWeek::Monday | 0x10U) == SetOf(DaysOfWeek::Monday, DaysOfWeek::Friday));
    static_assert((MonthType::January & MonthType::EveryMonth) == 1U);
    static_assert(SetOf(MonthType::December) == 0x800U);
    unsigned int days = SetOf(DaysOfWeek::Monday);
    days |= DaysOfWeek::Tuesday;
    EXPECT_EQ(days, 3U);
    EXPECT_EQ(days & DaysOfWeek::Tuesday, 2U);
    EXPECT_EQ(DaysOfWeek::Wednesday & days, 0U);
    days &= DaysOfWeek::Tuesday;
    EXPECT_EQ(days, 2U);
    days &= ~SetOf(DaysOfWeek::Tuesday);
    EXPECT_EQ(days, 0U);
}

TEST(EnumerationSets, HaveTheNamesOfTheirMembersInOrder) {
    EXPECT_EQ(NamesOf<DaysOfWeek>(0), "None");
    EXPECT_EQ(NamesOf<DaysOfWeek>(DaysOfWeek::Friday | DaysOfWeek::Monday), "Monday|Friday");
    EXPECT_EQ(NamesOf<DaysOfWeek>(127), "EveryDay");
    EXPECT_EQ(NamesOf<DaysOfWeek>(126), "Tuesday|Wednesday|Thursday|Friday|Saturday|Sunday");
    EXPECT_EQ(NamesOf<DaysOfWeek>(128 + 256 + 1), "Monday|384") << "a newer service's bits";
    EXPECT_EQ(NamesOf<DaysOfWeek>(0x80000000U), "2147483648");
    EXPECT_EQ(NamesOf<MonthType>(0x801), "January|December");
    EXPECT_EQ(NamesOf<MonthType>(0xFFF), "EveryMonth");
}

TEST(EnumerationSets, AreReadFromTheNamesOfTheirMembers) {
    for (unsigned int set = 0; set < 128; ++set)
        ASSERT_EQ(SetNamed<DaysOfWeek>(NamesOf<DaysOfWeek>(set)), set);
    for (unsigned int set = 0; set < 4096; ++set)
        ASSERT_EQ(SetNamed<MonthType>(NamesOf<MonthType>(set)), set);
    EXPECT_EQ(SetNamed<DaysOfWeek>(" Sunday ,\tMonday|Monday"), 0x41U);
    for (const char* const text : {"", " ", "monday", "Monday|", "|Monday", "Monday||Friday", "Monday Friday",
                                   "1", "Monday|384", "January", "Monday;Friday"}) {
        EXPECT_EQ(SetNamed<DaysOfWeek>(text), apigen::nullopt) << text;
    }
}

}  // namespace
}  // namespace zamtest
