// SPDX-License-Identifier: Apache-2.0
#include "verbs/JobOptions.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <memory>

#include "agent/Find.h"
#include "agent/Interrupt.h"
#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/Enums.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr std::array<const char*, 5> Levels{"none", "dedupefriendly", "optimal", "high", "extreme"};

constexpr std::array Options{
    SOption{.Name = "--file",
            .Value = "FILE",
            .Help = "the definition as JSON, as \"job export\" writes it (\"-\": standard input); other "
                    "options change it",
            .Word = EWord::File},
    SOption{
        .Name = "--repo", .Value = "REPOSITORY", .Help = "where the backups go", .Word = EWord::Repository},
    SOption{.Name = "--dir",
            .Value = "DIR",
            .Help = "a folder to back up, with all that is in it",
            .Word = EWord::Folder,
            .IsRepeated = true},
    SOption{.Name = "--exclude",
            .Value = "DIR",
            .Help = "a folder to leave out",
            .Word = EWord::Folder,
            .IsRepeated = true},
    SOption{.Name = "--include-mask",
            .Value = "MASK",
            .Help = "only files of such names, \"*.txt\"",
            .IsRepeated = true},
    SOption{.Name = "--exclude-mask", .Value = "MASK", .Help = "no files of such names", .IsRepeated = true},
    SOption{.Name = "--machine", .Help = "everything on this host, in place of folders"},
    SOption{.Name = "--volume",
            .Value = "VOLUME",
            .Help = "a volume or mount point, in place of folders",
            .Word = EWord::Folder,
            .IsRepeated = true},
    SOption{.Name = "--keep", .Value = "NUMBER", .Help = "how many restore points are kept; 0: all"},
    SOption{.Name = "--keep-days",
            .Value = "DAYS",
            .Help = "points younger than this are kept as well; 0: no such rule"},
    SOption{.Name = "--daily", .Value = "HH:MM", .Help = "runs every day at this time"},
    SOption{.Name = "--weekly",
            .Value = "DAYS@HH:MM",
            .Help = "runs on these days of the week, \"Monday,Friday@22:00\""},
    SOption{.Name = "--monthly", .Value = "DAY@HH:MM", .Help = "runs on this day of each month, \"1@03:00\""},
    SOption{.Name = "--no-schedule", .Help = "runs only when it is started"},
    SOption{.Name = "--full-on",
            .Value = "DAYS",
            .Help = "the first run of these days of the week makes a new full backup"},
    SOption{.Name = "--retries", .Value = "NUMBER", .Help = "a failed run is tried again so often"},
    SOption{.Name = "--retry-wait", .Value = "SECONDS", .Help = "between two tries"},
    SOption{.Name = "--compression",
            .Value = "LEVEL",
            .Help = "none, dedupefriendly, optimal, high or extreme",
            .Word = EWord::Choice,
            .Choices = Levels},
    SOption{.Name = "--encrypt",
            .Help = "the backups get a password, which is asked for unless --password-file gives it"},
    SOption{.Name = "--no-encrypt", .Help = "the backups have no password"},
    SOption{.Name = "--password-file",
            .Value = "FILE",
            .Help = "the password's file, its first line; \"fd:N\" is a descriptor",
            .Word = EWord::File},
    SOption{.Name = "--password-hint",
            .Value = "TEXT",
            .Help = "what reminds you of the password; anybody can read it"},
    SOption{.Name = "--before", .Value = "SCRIPT", .Help = "runs before the job", .Word = EWord::File},
    SOption{.Name = "--after", .Value = "SCRIPT", .Help = "runs after the job", .Word = EWord::File},
    SOption{.Name = "--dry-run",
            .Help = "shows what would be sent and what the agent says of it, and changes nothing"},
    ForceOption,
};

[[noreturn]] void Refuse(std::string_view option, const std::string& value, const std::string& wanted) {
    throw CFailure(EExit::Usage, std::string(option) + " can't be " + Quoted(value), wanted);
}

/// "22:00"
STimeSpan TimeOfDay(std::string_view option, const std::string& whole, std::string_view text) {
    unsigned hours = 0;
    unsigned minutes = 0;
    const auto colon = text.find(':');
    const auto read = [](std::string_view digits, unsigned& number) {
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        return !digits.empty() && digits.size() <= 2 && result.ec == std::errc() &&
               result.ptr == digits.data() + digits.size();
    };
    if (colon == std::string_view::npos || !read(text.substr(0, colon), hours) ||
        !read(text.substr(colon + 1), minutes) || hours > 23 || minutes > 59) {
        Refuse(option, whole, "a time of day is written as 22:00");
    }
    return {static_cast<long>(hours * 3600 + minutes * 60), 0};
}

/// Whole names, or their first three letters, in any case.
unsigned Days(std::string_view option, const std::string& whole, std::string_view text) {
    const auto lower = [](std::string_view word) {
        std::string out(word);
        std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
        return out;
    };
    unsigned days = 0;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of(",|"), text.size());
        const std::string word = lower(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        unsigned found = 0;
        for (const DaysOfWeek day : MembersOf<DaysOfWeek>()) {
            const std::string name = lower(NameOf(day));
            if (name == word || (word.size() == 3 && name.starts_with(word) && day != DaysOfWeek::EveryDay))
                found = static_cast<unsigned>(day);
        }
        if (found == 0) Refuse(option, whole, "days are written as Monday,Friday or mon,fri");
        days |= found;
    }
    if (days == 0) Refuse(option, whole, "it names no day");
    return days;
}

/// "WHAT@HH:MM" parted.
std::pair<std::string, STimeSpan> AtTime(std::string_view option, const std::string& value,
                                         const char* form) {
    const auto at = value.find('@');
    if (at == std::string::npos) Refuse(option, value, std::string("it is written as ") + form);
    return {value.substr(0, at), TimeOfDay(option, value, std::string_view(value).substr(at + 1))};
}

void ApplySchedule(const CCall& call, SBackupScheduleInfo& schedule) {
    const int given =
        call.Has("--daily") + call.Has("--weekly") + call.Has("--monthly") + call.Has("--no-schedule");
    if (given > 1)
        throw CFailure(EExit::Usage, "a job has one schedule",
                       "say one of --daily, --weekly, --monthly, --no-schedule");
    if (call.Has("--no-schedule")) schedule.IsEnabled = false;
    if (given == 1 && !call.Has("--no-schedule")) {
        schedule.IsEnabled = true;
        schedule.Calendar = {};
    }
    if (const auto value = call.Optional("--daily")) {
        schedule.TimeOfDay = TimeOfDay("--daily", *value, *value);
        schedule.Calendar.Type = ScheduleType::Daily;
        schedule.Calendar.Days = static_cast<unsigned>(DaysOfWeek::EveryDay);
    }
    if (const auto value = call.Optional("--weekly")) {
        const auto [days, time] = AtTime("--weekly", *value, "Monday,Friday@22:00");
        schedule.TimeOfDay = time;
        schedule.Calendar.Type = ScheduleType::Daily;
        schedule.Calendar.Days = Days("--weekly", *value, days);
    }
    if (const auto value = call.Optional("--monthly")) {
        const auto [day, time] = AtTime("--monthly", *value, "1@03:00");
        schedule.TimeOfDay = time;
        schedule.Calendar.Type = ScheduleType::MonthlyByDay;
        schedule.Calendar.Months = static_cast<unsigned>(MonthType::EveryMonth);
        const auto read = std::from_chars(day.data(), day.data() + day.size(), schedule.Calendar.DayOfMonth);
        if (read.ec != std::errc() || read.ptr != day.data() + day.size() ||
            schedule.Calendar.DayOfMonth < 1 || schedule.Calendar.DayOfMonth > 31)
            Refuse("--monthly", *value,
                   "a day of the month is a number from 1 to 31, 31 being the last of each");
    }
    if (const auto value = call.Optional("--full-on")) {
        schedule.ActiveFullSchedule.IsEnabled = true;
        schedule.ActiveFullSchedule.Calendar = {};
        schedule.ActiveFullSchedule.Calendar.Type = ScheduleType::Daily;
        schedule.ActiveFullSchedule.Calendar.Days = Days("--full-on", *value, *value);
    }
}

void ApplySource(const CCall& call, SBackupSourceInfo& source) {
    const bool hasDirs = call.Has("--dir");
    const bool hasVolumes = call.Has("--volume");
    if (hasDirs + hasVolumes + call.Has("--machine") > 1)
        throw CFailure(EExit::Usage, "a job backs up folders, volumes or the machine",
                       "say one of --dir, --volume, --machine");
    const auto paths = [&](std::string_view option) {
        std::vector<std::string> all;
        for (const auto& path : call.Values(option)) {
            if (path.empty()) throw CFailure(EExit::Usage, std::string(option) + " names no folder");
            all.push_back(AbsolutePath(path));
        }
        return all;
    };
    if (hasDirs) {
        source.BackupMode = JobBackupMode::FileLevel;
        source.IncludeDirs = paths("--dir");
        source.Objects.clear();
    }
    if (hasVolumes) {
        source.BackupMode = JobBackupMode::VolumeLevel;
        source.IncludeDirs.clear();
        source.Objects = ObjectsCalled(call.Values("--volume"));
    }
    if (call.Has("--machine")) {
        source.BackupMode = JobBackupMode::EntireMachine;
        source.IncludeDirs.clear();
        source.Objects.clear();
    }
    if (call.Has("--exclude")) source.ExcludeDirs = paths("--exclude");
    if (call.Has("--include-mask")) source.IncludeMasks = call.Values("--include-mask");
    if (call.Has("--exclude-mask")) source.ExcludeMasks = call.Values("--exclude-mask");
}

void ApplyStorage(const CCall& call, SBackupStorageInfo& storage) {
    storage.CompressionLevel = EnumOption(call, "--compression", storage.CompressionLevel);
    const bool isEncrypted = call.Has("--encrypt") || call.Has("--password-file");
    if (isEncrypted && call.Has("--no-encrypt"))
        throw CFailure(EExit::Usage, "--encrypt and --no-encrypt exclude each other");
    if (call.Has("--no-encrypt")) storage.EncryptionSettings.Reset();
    if (isEncrypted) {
        if (!storage.EncryptionSettings) storage.EncryptionSettings = SEncryptionSettings();
        storage.EncryptionSettings->Password = call.Has("--password-file")
                                                   ? PasswordFrom(call.Value("--password-file"))
                                                   : AskPassword("Password of the backups", true);
        if (storage.EncryptionSettings->Password->empty())
            throw CFailure(EExit::Usage, "an empty password is none");
    }
    if (const auto hint = call.Optional("--password-hint")) {
        if (!storage.EncryptionSettings)
            throw CFailure(EExit::Usage, "a hint needs a password",
                           "say --encrypt or --password-file as well");
        storage.EncryptionSettings->PasswordHint = *hint;
    }
}

std::string TwoDigits(long number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

}  // namespace

std::span<const SOption> JobOptions() {
    return Options;
}

bool HasJobOptions(const CCall& call) {
    return std::any_of(Options.begin(), Options.end(), [&](const SOption& option) {
        const std::string_view name = option.Name;
        return name != "--dry-run" && name != "--force" && call.Has(name);
    });
}

void ApplyJobOptions(const CCall& call, IZamProduct& product, SBackupJobConfigurationInfo& config) {
    if (const auto repository = call.Optional("--repo"))
        config.RepositoryId = FindRepository(product, *repository).Id;
    ApplySource(call, config.Source);
    ApplySchedule(call, config.ScheduleInfo);
    if (const auto keep = call.Number("--keep", 0, 1'000'000))
        config.RetentionInfo.RestorePointsCount = static_cast<int>(*keep);
    if (const auto days = call.Number("--keep-days", 0, 1'000'000)) {
        config.RetentionInfo.RetainDays.Reset();
        if (*days > 0) config.RetentionInfo.RetainDays = static_cast<unsigned long>(*days);
    }
    constexpr long LongestWait = 7L * 24 * 3600;
    const auto retries = call.Number("--retries", 0, 100);
    const auto wait = call.Number("--retry-wait", 0, LongestWait);
    if (retries || wait) {
        if (!config.RetriesInfo) config.RetriesInfo = SRetriesInfo{1, 10'000};
        if (retries) config.RetriesInfo->AttemptsNum = static_cast<unsigned long>(*retries);
        if (wait) config.RetriesInfo->TimeoutMs = static_cast<unsigned long>(*wait) * 1000;
    }
    ApplyStorage(call, config.StorageInfo);
    if (call.Has("--before") || call.Has("--after")) {
        if (!config.ScriptInfo) config.ScriptInfo = SBackupJobScriptInfo();
        const auto script = [&](std::string_view option, std::string& place) {
            if (const auto path = call.Optional(option)) place = path->empty() ? "" : AbsolutePath(*path);
        };
        script("--before", config.ScriptInfo->PreJobScript);
        script("--after", config.ScriptInfo->PostJobScript);
    }
}

std::string ScheduleWords(const SBackupScheduleInfo& schedule) {
    if (!schedule.IsEnabled) return "off";
    const auto& calendar = schedule.Calendar;
    std::string days;
    switch (calendar.Type) {
        case ScheduleType::Daily:
            days = calendar.Days == static_cast<unsigned>(DaysOfWeek::EveryDay)
                       ? "every day"
                       : NamesOf<DaysOfWeek>(calendar.Days);
            break;
        case ScheduleType::MonthlyByDay:
            days = "day " + std::to_string(calendar.DayOfMonth);
            break;
        case ScheduleType::MonthlyByWeekDay:
            days = std::string(NameOf(calendar.WeekDayNumber)) + " " + NamesOf<DaysOfWeek>(calendar.Days);
            break;
        default:
            return "never";
    }
    if (calendar.Type != ScheduleType::Daily) {
        days += calendar.Months == static_cast<unsigned>(MonthType::EveryMonth)
                    ? " of every month"
                    : " of " + NamesOf<MonthType>(calendar.Months);
    }
    std::replace(days.begin(), days.end(), '|', ',');
    return days + " at " + TwoDigits(schedule.TimeOfDay.seconds / 3600) + ":" +
           TwoDigits(schedule.TimeOfDay.seconds / 60 % 60);
}

std::string ReadText(const std::string& path) {
    constexpr std::size_t Limit = std::size_t{16} << 20;
    const std::string name = path == "-" ? "standard input" : "the file " + Quoted(path);
    const auto refuse = [&](int error) {
        throw CFailure(EExit::Usage, name + " can't be read: " + std::strerror(error));
    };
    const int opened = path == "-" ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0 && path != "-") refuse(errno);
    const std::unique_ptr<const int, void (*)(const int*)> closing(&opened, [](const int* descriptor) {
        if (*descriptor >= 0) ::close(*descriptor);
    });
    const int in = opened < 0 ? STDIN_FILENO : opened;
    std::string text;
    std::vector<char> piece(65536);
    while (true) {
        // Ctrl-C ends it where somebody is to type the text.
        std::array<pollfd, 2> ready{pollfd{in, POLLIN, 0}, pollfd{Interruption()->Descriptor(), POLLIN, 0}};
        ::poll(ready.data(), ready.size(), -1);
        if (InterruptedBy() != 0) throw CFailure(EExit::Interrupted, "interrupted");
        if (ready[0].revents == 0) continue;
        const ssize_t got = ::read(in, piece.data(), piece.size());
        if (got == 0) return text;
        if (got < 0 && errno != EINTR) refuse(errno);
        if (got > 0) text.append(piece.data(), static_cast<std::size_t>(got));
        if (text.size() > Limit) throw CFailure(EExit::Usage, name + " is longer than " + SizeWords(Limit));
    }
}

std::string AbsolutePath(const std::string& path) {
    if (path.empty()) return path;
    std::error_code error;
    auto absolute = std::filesystem::absolute(path, error);
    if (error)
        throw CFailure(EExit::Usage,
                       "the path " + Quoted(path) + " can't be made absolute: " + error.message());
    // A ".." behind a link leads elsewhere than its text says.
    if (std::find(absolute.begin(), absolute.end(), "..") == absolute.end())
        absolute = absolute.lexically_normal();
    std::string text = absolute.string();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

std::vector<SVolumeBackupObject> ObjectsCalled(const std::vector<std::string>& words) {
    std::vector<SVolumeBackupObject> objects;
    for (const auto& word : words) {
        const bool isPath = word == "." || word == ".." || word.find('/') != std::string::npos;
        objects.push_back({isPath ? AbsolutePath(word) : word, EVolumeBackupObjectType::Unknown});
    }
    return objects;
}

}  // namespace zamctl
