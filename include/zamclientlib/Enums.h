// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every enumeration of the API with its members, and their names as text.
///
/// On the wire an enumeration is its integer. 0 is the neutral or unknown member. Other integers, those of a
/// newer service for instance, are carried unchanged: cast to and from `int` freely, and expect values that
/// name no member. The numbering is a contract: members are added, never renumbered.
///
/// Some window systems' headers make macros of `None`, `Success`, `Unknown` or `Status`. Include this header
/// before them, and `#undef` such a macro before using the member; or keep the two in sources of their own.
#pragma once

#if defined(None) || defined(Success) || defined(Unknown) || defined(Status)
#error \
    "None, Success, Unknown or Status is a macro: include zamclientlib before the header that defines it, or #undef it"
#endif

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Optional.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zamclientlib APIGEN_API {

/// The host's processor platform.
enum class OSHardwarePlatform : int {
    Unknown = 0,
    X86 = 1,
    X64 = 2,
    Arm64 = 3,
    Ppc64Le = 4,
    S390X = 5,
    RiscV64 = 6
};

/// Platform of a kernel module built for enterprise Linux.
enum class KELPlatform : int {
    Unknown = 0,
    El7 = 1,
    El8 = 2,
    El9 = 3,
    El10 = 4
};

/// Link state of a network interface.
enum class EthInterfaceStatus : int {
    Unknown = 0,
    Up = 1,
    Down = 2
};

/// What kind of program owns the control of the agent.
enum class ZAMOwnerType : int {
    None = 0,
    Local = 1,
    BackupServer = 2,
    ManagementConsole = 3,
    CloudProvider = 4
};

/// How exclusively the owner holds control.
enum class ZAMOwnerMode : int {
    None = 0,
    Shared = 1,     ///< others may look and change
    ReadOnly = 2,   ///< others may look
    Exclusive = 3,  ///< nobody else may connect
};

/// What a restore point holds.
enum class RestorePointType : int {
    Unknown = 0,
    Full = 1,
    Increment = 2,
    ReverseIncrement = 3
};

/// How restore points build on each other.
enum class BackupAlgorithm : int {
    Unknown = 0,
    Full = 1,
    Incremental = 2,
    ReverseIncremental = 3
};

/// Which files of a backup are listed in its index.
enum class BackupIndexingType : int {
    None = 0,
    Everything = 1,
    OnlyIncluded = 2,      ///< only the included folders
    EverythingExcept = 3,  ///< all but the excluded folders
};

/// What kind of place a repository is.
enum class BackupTargetType : int {
    Unknown = 0,
    LocalFolder = 1,
    SharedFolder = 2,
    BackupServer = 3,
    Cloud = 4,
    ObjectStorage = 5
};

/// Protocol of a network shared folder.
enum class SharedFolderType : int {
    Unknown = 0,
    Nfs = 1,
    Smb = 2
};

/// A set of week days: one bit a day, combined with `|` (see `SetOf`). Bit 0 is Monday.
enum class DaysOfWeek : int {
    None = 0,
    Monday = 1 << 0,
    Tuesday = 1 << 1,
    Wednesday = 1 << 2,
    Thursday = 1 << 3,
    Friday = 1 << 4,
    Saturday = 1 << 5,
    Sunday = 1 << 6,
    EveryDay = (1 << 7) - 1,
};

/// A set of months: one bit a month, combined with `|` (see `SetOf`). Bit 0 is January.
enum class MonthType : int {
    None = 0,
    January = 1 << 0,
    February = 1 << 1,
    March = 1 << 2,
    April = 1 << 3,
    May = 1 << 4,
    June = 1 << 5,
    July = 1 << 6,
    August = 1 << 7,
    September = 1 << 8,
    October = 1 << 9,
    November = 1 << 10,
    December = 1 << 11,
    EveryMonth = (1 << 12) - 1,
};

/// On which days a schedule fires.
enum class ScheduleType : int {
    None = 0,
    Daily = 1,            ///< on the days of the week set
    MonthlyByDay = 2,     ///< on a day number of the months set
    MonthlyByWeekDay = 3  ///< on the first (second, ...) such week day of the months set
};

/// Which occurrence of a week day in a month.
enum class WeekDayNumberType : int {
    None = 0,
    First = 1,
    Second = 2,
    Third = 3,
    Fourth = 4,
    Last = 5
};

/// What a job does.
enum class JobType : int {
    Unknown = 0,
    Backup = 1,
    Restore = 2,
    BackupCopy = 3
};

/// Where a session stands.
enum class JobState : int {
    Unknown = 0,
    Stopped = 1,
    Starting = 2,
    Pending = 3,
    Working = 4,
    Pausing = 5,
    Resuming = 6,
    Stopping = 7,
    Postprocessing = 8
};

/// How a session ended.
enum class JobResult : int {
    None = 0,
    Success = 1,
    Warning = 2,
    Failed = 3
};

/// How a job moves its data.
enum class JobAlgorithm : int {
    Unknown = 0,
    Full = 1,
    Increment = 2,
    Synthetic = 3
};

/// How hard the backup data is compressed.
enum class JobCompressionLevel : int {
    None = 0,
    DedupeFriendly = 1,
    Optimal = 2,
    High = 3,
    Extreme = 4
};

/// What a backup covers.
enum class JobBackupMode : int {
    Unknown = 0,
    EntireMachine = 1,
    VolumeLevel = 2,
    FileLevel = 3
};

/// What a session makes.
enum class JobSessionAlgorithm : int {
    Unknown = 0,
    Full = 1,
    Increment = 2,
    SyntheticFull = 3
};

/// How a task of a session stands or ended.
enum class JobSessionTaskStatus : int {
    None = 0,
    Pending = 1,
    InProgress = 2,
    Success = 3,
    Warning = 4,
    Failed = 5,
    Canceled = 6
};

/// What a task of a session makes.
enum class JobSessionTaskAlgorithm : int {
    Unknown = 0,
    Full = 1,
    Increment = 2
};

/// What happened. Each kind has its own sub-record in an event.
enum class EEventType : int {
    Unknown = 0,
    BackupJobCreated = 1,
    BackupJobDeleted = 2,
    BackupJobModified = 3,
    BackupSourceUpdated = 4,
    BackupModeChanged = 5,
    BackupJobFinished = 6,
    BackupJobStarted = 7,
    BackupJobRetried = 8,
};

/// What raised an event.
enum class EEventSourceType : int {
    Unknown = 0,
    User = 1,
    Scheduler = 2,
    Service = 3,
    Owner = 4
};

/// What a text in a job's source names.
enum class EVolumeBackupObjectType : int {
    Unknown = 0,
    Disk = 1,
    Volume = 2,
    MountPoint = 3,
    Lvm = 4,
    Directory = 5,
    File = 6,
    BtrfsSubvolume = 7
};

/// How a cloud provider's password is meant.
enum class ECloudServiceProviderPasswordType : int {
    Unknown = 0,
    Plain = 1,
    Hashed = 2,
    Token = 3
};

/// Size of a data block in kibibytes; the member's value is a number of its own, not the size.
enum class EKbBlockSize : int {
    Automatic = 0,
    Kb256 = 1,
    Kb512 = 2,
    Kb1024 = 3,
    Kb4096 = 4,
    Kb8192 = 5
};

/// How a consistent view of the source is had.
enum class ESnapshotMode : int {
    Automatic = 0,
    Snapshot = 1,
    NoSnapshot = 2,
    CrashConsistent = 3
};

/// What happens when application-aware processing fails.
enum class EAapType : int {
    Disabled = 0,
    RequireSuccess = 1,
    IgnoreFailures = 2
};

/// Which archived logs of a database are deleted after a backup.
enum class EArchivedLogsTruncationMode : int {
    None = 0,
    All = 1,
    BySize = 2,
    ByAge = 3
};

/// How the agent signs in to MySQL.
enum class EMySQLAuthType : int {
    None = 0,
    Password = 1,
    PasswordFile = 2
};

/// How the agent signs in to PostgreSQL.
enum class EPostgreSQLAuthType : int {
    None = 0,
    Password = 1,
    PasswordFile = 2,
    Peer = 3
};

/// Whether a manually started run is retried.
enum class EJobStartRetriesMode : int {
    Default = 0,
    Enabled = 1,
    Disabled = 2
};

/// At which priority a manually started run works.
enum class EJobStartPriorityMode : int {
    Default = 0,
    Low = 1,
    Normal = 2,
    High = 3
};

/// Whether a manually started run makes an active full backup.
enum class EJobStartActiveFullMode : int {
    Default = 0,
    Enabled = 1,
    Disabled = 2
};

/// Whether a manually started run takes a snapshot.
enum class EJobStartSnapshotMode : int {
    Default = 0,
    Enabled = 1,
    Disabled = 2
};

/// Weight of a log line or a finding.
enum class ELogDetailType : int {
    None = 0,
    Info = 1,
    Success = 2,
    Warning = 3,
    Error = 4
};

/// State of a system service.
enum class EServiceStatus : int {
    Unknown = 0,
    Running = 1,
    Stopped = 2,
    Starting = 3,
    Stopping = 4,
    Failed = 5
};

/// Operating system family.
enum class EOsType : int {
    Unknown = 0,
    Linux = 1,
    MacOs = 2,
    Unix = 3
};

/// What file indexing misses on the host.
enum class EIndexingDependency : int {
    None = 0,
    Mlocate = 1,
    Tar = 2,
    Gzip = 3
};

/// Says to the encoders that they know the types of this namespace.
template <class T>
std::true_type HasEncoders(const T*);

/// True for the enumerations above.
template <class Enum>
inline constexpr bool IsEnumeration = std::is_enum_v<Enum>&& apigen::detail::IsOfAnApi<Enum>;

/// True for those whose members are bits of a set.
template <class Enum>
inline constexpr bool IsSetOfBits = std::is_same_v<Enum, DaysOfWeek> || std::is_same_v<Enum, MonthType>;

namespace detail {
/// Defined and instantiated in the library.
template <class Enum>
std::string_view NameOf(Enum value);
template <class Enum>
apigen::Optional<Enum> MemberNamed(std::string_view name);
template <class Enum>
const std::vector<Enum>& MembersOf();
template <class Enum>
std::string NamesOf(unsigned int set);
template <class Enum>
apigen::Optional<unsigned int> SetNamed(std::string_view names);
}  // namespace detail

/// The member's name, "Working" for instance; empty for a value that names no member.
template <class Enum>
[[nodiscard]] std::string_view NameOf(Enum value) {
    static_assert(IsEnumeration<Enum>, "zamclientlib::NameOf: not an enumeration of Enums.h");
    return detail::NameOf(value);
}

/// The member called `name` (case-sensitive); empty when there is none.
template <class Enum>
[[nodiscard]] apigen::Optional<Enum> MemberNamed(std::string_view name) {
    static_assert(IsEnumeration<Enum>, "zamclientlib::MemberNamed: not an enumeration of Enums.h");
    return detail::MemberNamed<Enum>(name);
}

/// Every member, in ascending order of its value.
template <class Enum>
[[nodiscard]] const std::vector<Enum>& MembersOf() {
    static_assert(IsEnumeration<Enum>, "zamclientlib::MembersOf: not an enumeration of Enums.h");
    return detail::MembersOf<Enum>();
}

/// The set of these days, or months, as `SCalendarInfo` has it. Of two or more, `|` makes the same.
template <class Enum, class... More>
[[nodiscard]] constexpr unsigned int SetOf(Enum member, More... more) {
    static_assert(IsSetOfBits<Enum> && (std::is_same_v<Enum, More> && ...),
                  "zamclientlib::SetOf: neither days of the week nor months");
    return (static_cast<unsigned int>(member) | ... | static_cast<unsigned int>(more));
}

/// The names in a set, "Monday|Friday" for instance; that of the whole set, or of none, when it has one. Bits
/// without a name stand behind the names as one number, "Monday|128".
template <class Enum>
[[nodiscard]] std::string NamesOf(unsigned int set) {
    static_assert(IsSetOfBits<Enum>, "zamclientlib::NamesOf: neither days of the week nor months");
    return detail::NamesOf<Enum>(set);
}

/// The set of these names (case-sensitive), parted by `|` or `,`, with blanks around them or not. Empty when one
/// of them is no name.
template <class Enum>
[[nodiscard]] apigen::Optional<unsigned int> SetNamed(std::string_view names) {
    static_assert(IsSetOfBits<Enum>, "zamclientlib::SetNamed: neither days of the week nor months");
    return detail::SetNamed<Enum>(names);
}

/// Members and sets of bits together; a member in a set: `(calendar.Days & DaysOfWeek::Monday) != 0`.
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator|(Enum left, Enum right) {
    return SetOf(left, right);
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator|(unsigned int left, Enum right) {
    return left | SetOf(right);
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator|(Enum left, unsigned int right) {
    return SetOf(left) | right;
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator&(Enum left, Enum right) {
    return SetOf(left) & SetOf(right);
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator&(unsigned int left, Enum right) {
    return left & SetOf(right);
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
[[nodiscard]] constexpr unsigned int operator&(Enum left, unsigned int right) {
    return SetOf(left) & right;
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
constexpr unsigned int& operator|=(unsigned int& set, Enum member) {
    return set |= SetOf(member);
}
/// \overload
template <class Enum, std::enable_if_t<IsSetOfBits<Enum>, int> = 0>
constexpr unsigned int& operator&=(unsigned int& set, Enum member) {
    return set &= SetOf(member);
}

}  // namespace zamclientlib
