// SPDX-License-Identifier: Apache-2.0
#include "agent/daemon/Settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <set>
#include <string_view>

#define TOML_HEADER_ONLY 1
#include <toml++/toml.h>

#include "agent/core/Values.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"

namespace tarvo {
namespace {

using apigen::common::ErrorText;
using apigen::common::Quoted;

[[noreturn]] void Refuse(const std::string& place, const toml::source_region& where,
                         const std::string& what) {
    throw CSettingsError(place + ":" + std::to_string(where.begin.line) + ":" +
                         std::to_string(where.begin.column) + ": " + what);
}

/// One table of which every key is asked for once; `Finish` refuses the others.
class CTable {
public:
    CTable(const toml::table& file, std::string name, std::string place)
        : m_name(std::move(name)), m_place(std::move(place)) {
        const toml::node* const node = file.get(m_name);
        if (node == nullptr) return;
        m_table = node->as_table();
        if (m_table == nullptr)
            Refuse(m_place, node->source(), Quoted(m_name) + " is to be a table: [" + m_name + "]");
    }

    /// \param mistakeIn what is wrong with a value, if anything
    void Text(const char* key, std::string& value,
              const std::function<std::string(const std::string&)>& mistakeIn) {
        const toml::node* const node = Take(key);
        if (node == nullptr) return;
        const auto* const text = node->as_string();
        if (text == nullptr)
            Refuse(m_place, node->source(), Quoted(key) + " is to be a text in quotation marks");
        if (text->get().empty() || text->get().find('\0') != std::string::npos) {
            Refuse(m_place, node->source(), Quoted(key) + " may neither be empty nor hold a zero byte");
        }
        const std::string mistake = mistakeIn(text->get());
        if (!mistake.empty()) Refuse(m_place, node->source(), Quoted(key) + ' ' + mistake);
        value = text->get();
    }

    template <class T>
    void Number(const char* key, T& value, std::int64_t least, std::int64_t most) {
        if (const auto number = NumberOf(key, least, most)) value = static_cast<T>(*number);
    }

    std::optional<std::int64_t> NumberOf(const char* key, std::int64_t least, std::int64_t most) {
        const toml::node* const node = Take(key);
        if (node == nullptr) return std::nullopt;
        const auto* const number = node->as_integer();
        if (number == nullptr || number->get() < least || number->get() > most) {
            Refuse(m_place, node->source(),
                   Quoted(key) + " is to be a whole number from " + std::to_string(least) + " to " +
                       std::to_string(most));
        }
        return number->get();
    }

    void Finish() const {
        if (m_table == nullptr) return;
        for (const auto& [key, node] : *m_table) {
            if (m_known.count(std::string(key.str())) != 0) continue;
            Refuse(m_place, key.source(),
                   "there is no " + Quoted(key.str()) + " in [" + m_name + "]; known are " + Known());
        }
    }

private:
    const toml::node* Take(const char* key) {
        m_known.insert(key);
        return m_table != nullptr ? m_table->get(key) : nullptr;
    }

    std::string Known() const {
        std::string names;
        for (const auto& name : m_known)
            names += (names.empty() ? "" : ", ") + name;
        return names;
    }

    std::string m_name;
    std::string m_place;
    const toml::table* m_table = nullptr;
    std::set<std::string> m_known;
};

void RefuseUnknownTables(const toml::table& file, const std::string& place) {
    static const std::set<std::string_view> known = {"engine", "log", "schedule", "sessions", "verify"};
    for (const auto& [key, node] : file) {
        if (known.count(key.str()) != 0) continue;
        Refuse(place, key.source(),
               "there is no " + Quoted(key.str()) +
                   "; known are [engine], [log], [schedule], [sessions], [verify]");
    }
}

SSettings Read(const toml::table& file, const std::string& place) {
    constexpr std::int64_t MostAtOnce = 64;
    constexpr std::int64_t HighestNice = 19;
    constexpr std::int64_t MostSessions = 1'000'000;
    constexpr std::int64_t MostJitterMinutes = 60;
    constexpr std::int64_t MostLogMegabytes = 1024;
    constexpr std::int64_t MostLogFiles = 100;
    constexpr std::uint64_t Megabyte = 1024UL * 1024;
    RefuseUnknownTables(file, place);
    SSettings settings;

    CTable engine(file, "engine", place);
    engine.Text("restic", settings.Restic, [](const std::string& path) {
        // Daemon and commands run in different folders.
        return path.find('/') == std::string::npos || path[0] == '/'
                   ? ""
                   : "is to be an absolute path, or a name that is looked up in PATH";
    });
    engine.Finish();

    CTable sessions(file, "sessions", place);
    sessions.Number("at_once", settings.Work.AtOnce, 1, MostAtOnce);
    sessions.Number("nice", settings.Work.Nice, 0, HighestNice);
    sessions.Number("kept", settings.Work.SessionsKept, 1, MostSessions);
    sessions.Finish();

    CTable schedule(file, "schedule", place);
    if (const auto minutes = schedule.NumberOf("jitter_minutes", 0, MostJitterMinutes)) {
        settings.Work.Jitter = std::chrono::minutes(*minutes);
    }
    schedule.Finish();

    CTable verify(file, "verify", place);
    verify.Number("parts", settings.Work.VerifyParts, 0, MostVerifyParts);
    verify.Finish();

    CTable log(file, "log", place);
    if (const auto size = log.NumberOf("max_mb", 1, MostLogMegabytes)) {
        settings.Log.MaxBytes = static_cast<std::uint64_t>(*size) * Megabyte;
    }
    log.Number("old_files", settings.Log.OldFiles, 0, MostLogFiles);
    log.Finish();
    return settings;
}

}  // namespace

SSettings ParseSettings(const std::string& text, const std::string& place) {
    try {
        return Read(toml::parse(text), place);
    } catch (const toml::parse_error& error) {
        Refuse(place, error.source(), std::string(error.description()));
    }
}

SSettings ReadSettings(const std::string& path) {
    constexpr std::size_t MaxBytes = 1024UL * 1024;
    const apigen::common::CDescriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file && errno == ENOENT) return {};
    const auto refuse = [&](const std::string& why) {
        throw CSettingsError("The settings " + path + " can't be read: " + why);
    };
    if (!file) refuse(ErrorText(errno));
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) refuse(ErrorText(errno));
    if (!S_ISREG(status.st_mode)) refuse("it is no regular file");
    std::string text(MaxBytes + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = ::read(file.Get(), text.data() + size, text.size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) refuse(ErrorText(errno));
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    if (size > MaxBytes) refuse("it is larger than " + std::to_string(MaxBytes) + " bytes");
    text.resize(size);
    return ParseSettings(text, path);
}

}  // namespace tarvo
