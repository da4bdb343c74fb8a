// SPDX-License-Identifier: Apache-2.0
#include "agent/engine/ResticWords.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>

#include "support/common/Text.h"

namespace tarvo::restic {
namespace {

using nlohmann::json;

struct SPhrase {
    std::string_view Text;
    EFailure Failure;
};

// Phrases of restic 0.14 to 0.18. Of several in one line the first of this table counts.
constexpr SPhrase Phrases[]{
    {"no space left on device", EFailure::NoSpace},
    {"disk quota exceeded", EFailure::NoSpace},
    {"wrong password or no key found", EFailure::WrongKey},
    {"repository is already locked", EFailure::Locked},
    {"no matching ID found", EFailure::NoSuchPoint},
    {"unable to open config file", EFailure::NoStore},
    {"repository does not exist", EFailure::NoStore},
    {"config file has zero size", EFailure::Damaged},
    {"ciphertext verification failed", EFailure::Damaged},
    {"invalid data returned", EFailure::Damaged},
    {"LoadIndex returned errors", EFailure::Damaged},
    {"repository contains errors", EFailure::Damaged},
    {"Pack ID does not match", EFailure::Damaged},
    {"not found in repository", EFailure::Damaged},
    {"not found in index", EFailure::Damaged},
};

struct SStatus {
    int Status;
    EFailure Failure;
};

// What restic promises of its exit statuses. 0 and, of a backup, 3 are no failures; 1 is told by its words.
constexpr SStatus Statuses[]{
    {10, EFailure::NoStore},
    {11, EFailure::Locked},
    {12, EFailure::WrongKey},
};

template <class T>
T ValueOr(const json& object, const char* key, T otherwise) {
    const auto found = object.find(key);
    if (found == object.end()) return otherwise;
    if constexpr (std::is_same_v<T, std::string>) {
        return found->is_string() ? found->get<std::string>() : otherwise;
    } else {
        return found->is_number() ? found->get<T>() : otherwise;
    }
}

std::uint64_t Count(const json& object, const char* key) {
    return ValueOr<std::uint64_t>(object, key, 0);
}

/// Nothing where it is no object.
std::optional<json> ParseObject(std::string_view line) {
    if (!line.starts_with('{')) return std::nullopt;
    json object = json::parse(line, nullptr, false);
    if (!object.is_object()) return std::nullopt;
    return object;
}

std::string ReasonOf(const json& message) {
    const auto error = message.find("error");
    if (error == message.end()) return {};
    if (error->is_string()) return error->get<std::string>();
    if (!error->is_object()) return {};
    if (const int number = ValueOr<int>(*error, "Err", 0); number > 0)
        return apigen::common::ErrorText(number);
    return ValueOr<std::string>(*error, "message", {});
}

/// "2026-11-21T16:31:01.182730095Z", or with an offset like +01:00.
std::optional<std::chrono::system_clock::time_point> ParseTime(std::string_view text) {
    const auto number = [&](std::size_t at, std::size_t length) {
        int value = -1;
        if (at + length > text.size()) return -1;
        const auto [end, error] = std::from_chars(text.data() + at, text.data() + at + length, value);
        return error == std::errc() && end == text.data() + at + length ? value : -1;
    };
    const int year = number(0, 4), month = number(5, 2), day = number(8, 2);
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    if (std::min({year, month, day, hour, minute, second}) < 0) return std::nullopt;
    using namespace std::chrono;
    const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) return std::nullopt;
    std::size_t at = 19;
    std::int64_t nanos = 0;
    if (at < text.size() && text[at] == '.') {
        std::int64_t unit = 100'000'000;
        for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, unit /= 10)
            nanos += (text[at] - '0') * unit;
    }
    std::chrono::minutes offset{0};
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const int hours = number(at + 1, 2), minutes = number(at + 4, 2);
        if (hours < 0 || minutes < 0) return std::nullopt;
        offset = std::chrono::minutes(hours * 60 + minutes) * (text[at] == '-' ? -1 : 1);
    }
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) - offset +
           duration_cast<system_clock::duration>(nanoseconds(nanos));
}

/// Takes what matters of each snapshot as it comes: the paths of one may be very many.
class CSnapshotReader final : public nlohmann::json_sax<json> {
public:
    explicit CSnapshotReader(const std::function<void(SSnapshot)>& snapshot) : m_snapshot(snapshot) {}

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool key(string_t& name) override {
        if (m_depth == 2) m_key = name;
        return true;
    }
    bool string(string_t& value) override {
        if (m_depth == 3 && m_key == "tags") TakeTag(value);
        if (m_depth != 2) return true;
        if (m_key == "id") m_current.Id = value;
        if (m_key == "hostname") m_current.Host = value;
        if (m_key == "time") {
            const auto time = ParseTime(value);
            if (!time) return false;
            m_current.Time = *time;
        }
        return true;
    }
    bool start_object(std::size_t) override {
        if (++m_depth == 2) m_current = {};
        return true;
    }
    bool end_object() override {
        if (m_depth-- == 2) m_snapshot(std::move(m_current));
        return true;
    }
    bool start_array(std::size_t) override {
        ++m_depth;
        return true;
    }
    bool end_array() override {
        --m_depth;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

private:
    void TakeTag(std::string_view tag) {
        constexpr std::string_view Job = "tarvo-job=";
        constexpr std::string_view Point = "tarvo-point=";
        if (tag.starts_with(Job)) m_current.Job = tag.substr(Job.size());
        if (tag.starts_with(Point)) m_current.Point = tag.substr(Point.size());
    }

    const std::function<void(SSnapshot)>& m_snapshot;
    SSnapshot m_current;
    std::string m_key;
    int m_depth = 0;
};

}  // namespace

EFailure FailureIn(std::string_view line) {
    for (const auto& phrase : Phrases)
        if (line.find(phrase.Text) != std::string_view::npos) return phrase.Failure;
    return EFailure::Other;
}

EFailure FailureOf(int exitStatus, EFailure said) {
    if (exitStatus == 0) return EFailure::None;
    for (const auto& known : Statuses)
        if (known.Status == exitStatus) return known.Failure;
    return exitStatus == 1 && said != EFailure::None ? said : EFailure::Other;
}

void Throw(EFailure failure, const std::string& message) {
    switch (failure) {
        case EFailure::WrongKey:
            throw CWrongKey(message);
        case EFailure::NoStore:
            throw CNoStore(message);
        case EFailure::Locked:
            throw CStoreLocked(message);
        case EFailure::Damaged:
            throw CStoreDamaged(message);
        case EFailure::NoSpace:
            throw CNoSpace(message);
        case EFailure::NoSuchPoint:
            throw CNoSuchPoint(message);
        case EFailure::None:
        case EFailure::Other:
            break;
    }
    throw CEngineFailed(message);
}

std::optional<SEngineVersion> ParseVersion(std::string_view line) {
    constexpr std::string_view Name = "restic ";
    if (!line.starts_with(Name)) return std::nullopt;
    SEngineVersion version;
    const char* at = line.data() + Name.size();
    const char* const end = line.data() + line.size();
    unsigned* const parts[]{&version.Major, &version.Minor, &version.Patch};
    for (unsigned* part : parts) {
        if (part != parts[0]) {
            // "0.17" would do; what follows the last number ("-dev") does not matter.
            if (at == end || *at != '.') {
                if (part == parts[2]) break;
                return std::nullopt;
            }
            ++at;
        }
        const auto [next, error] = std::from_chars(at, end, *part);
        if (error != std::errc()) return std::nullopt;
        at = next;
    }
    version.Text = apigen::common::Escaped(line.substr(0, 200));
    return version;
}

Message ParseMessage(std::string_view line) {
    const auto object = ParseObject(line);
    if (!object) return {};
    const auto type = ValueOr<std::string>(*object, "message_type", {});
    if (type == "status") {
        if (object->contains("action")) return {};
        return SBackupProgress{Count(*object, "files_done"), Count(*object, "total_files"),
                               Count(*object, "bytes_done"), Count(*object, "total_bytes")};
    }
    if (type == "summary") {
        SSummary summary;
        summary.Snapshot = ValueOr<std::string>(*object, "snapshot_id", {});
        summary.FilesNew = Count(*object, "files_new");
        summary.FilesChanged = Count(*object, "files_changed");
        summary.FilesTotal = Count(*object, "total_files_processed");
        summary.BytesTotal = Count(*object, "total_bytes_processed");
        return summary;
    }
    if (type == "error") {
        return SReadError{ValueOr<std::string>(*object, "item", {}), ReasonOf(*object),
                          ValueOr<std::string>(*object, "during", {}) == "scan"};
    }
    return {};
}

std::optional<SEntry> ParseEntry(std::string_view line) {
    const auto object = ParseObject(line);
    if (!object) return std::nullopt;
    SEntry entry;
    entry.Path = ValueOr<std::string>(*object, "path", {});
    const auto type = ValueOr<std::string>(*object, "type", {});
    if (entry.Path.empty() || type.empty()) return std::nullopt;
    entry.Type = type == "file"      ? EEntryType::File
                 : type == "dir"     ? EEntryType::Folder
                 : type == "symlink" ? EEntryType::Link
                                     : EEntryType::Other;
    entry.Size = Count(*object, "size");
    // Its own bits above the nine: as Go has them.
    const auto mode = ValueOr<std::uint32_t>(*object, "mode", 0);
    entry.Mode = (mode & 0777U) | ((mode & 1U << 23) != 0 ? 04000U : 0U) |
                 ((mode & 1U << 22) != 0 ? 02000U : 0U) | ((mode & 1U << 20) != 0 ? 01000U : 0U);
    entry.User = ValueOr<std::uint32_t>(*object, "uid", 0);
    entry.Group = ValueOr<std::uint32_t>(*object, "gid", 0);
    if (const auto time = ParseTime(ValueOr<std::string>(*object, "mtime", {}))) entry.Changed = *time;
    return entry;
}

bool ParseSnapshots(std::FILE* file, const std::function<void(SSnapshot)>& snapshot) {
    CSnapshotReader reader(snapshot);
    return json::sax_parse(file, &reader);
}

std::string_view WithoutTerminalWords(std::string_view line) {
    constexpr std::string_view ClearLine = "\x1b[2K";
    while (line.starts_with(ClearLine) || line.starts_with('\r'))
        line.remove_prefix(line.front() == '\r' ? 1 : ClearLine.size());
    return line.starts_with("signal ") && line.ends_with(" received, cleaning up") ? std::string_view()
                                                                                   : line;
}

bool IsRetry(std::string_view line) {
    return line.find("returned error, retrying after") != std::string_view::npos;
}

std::string LiteralPattern(std::string_view path) {
    std::string pattern;
    for (const char c : path) {
        if (std::string_view("*?[]\\").find(c) != std::string_view::npos) pattern += '\\';
        pattern += c;
    }
    return pattern;
}

}  // namespace tarvo::restic
