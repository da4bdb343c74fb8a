// SPDX-License-Identifier: Apache-2.0
#include "verbs/JobFile.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "Failure.h"
#include "agent/Find.h"
#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/JobOptions.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr const char* NameKey = "RepositoryName";
constexpr std::string_view Mark = "//";

/// Without the lines that a mark made, whose place stays empty so that lines keep their numbers.
std::string WithoutMarks(const std::string& text) {
    std::istringstream in(text);
    std::string out;
    for (std::string line; std::getline(in, line);) {
        const auto start = line.find_first_not_of(" \t");
        out += (start != std::string::npos && std::string_view(line).substr(start).starts_with(Mark) ? ""
                                                                                                     : line) +
               "\n";
    }
    return out;
}

std::string Marked(const std::string& text, std::size_t line, const std::string& why) {
    std::istringstream in(text);
    std::string out;
    std::size_t number = 0;
    for (std::string one; std::getline(in, one); ++number) {
        if (!one.empty() || number == line) out += one + "\n";
        if (number == line) out += std::string(Mark) + " ^^^ " + Escaped(why) + "\n";
    }
    if (number <= line) out += std::string(Mark) + " ^^^ " + Escaped(why) + "\n";
    return out;
}

/// The keyboard's signals, ignored while it lives.
class CIgnored {
public:
    CIgnored() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGINT, &ignore, &m_interrupt);
        ::sigaction(SIGQUIT, &ignore, &m_quit);
    }
    CIgnored(const CIgnored&) = delete;
    CIgnored& operator=(const CIgnored&) = delete;
    ~CIgnored() { GiveBack(); }
    void GiveBack() const {
        ::sigaction(SIGINT, &m_interrupt, nullptr);
        ::sigaction(SIGQUIT, &m_quit, nullptr);
    }

private:
    struct sigaction m_interrupt {};
    struct sigaction m_quit {};
};

/// A folder of the user's alone, with one file, both gone in the end.
class CEditedFile {
public:
    CEditedFile() {
        m_folder = (std::filesystem::temp_directory_path() / "zamctl-XXXXXX").string();
        if (::mkdtemp(m_folder.data()) == nullptr)
            throw CFailure(EExit::Refused, "no folder can be made in " +
                                               Quoted(std::filesystem::temp_directory_path().string()) +
                                               ": " + std::strerror(errno));
    }
    CEditedFile(const CEditedFile&) = delete;
    CEditedFile& operator=(const CEditedFile&) = delete;
    ~CEditedFile() {
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
    }

    [[nodiscard]] std::string Path() const { return m_folder + "/job.json"; }

    void Write(const std::string& text) const {
        std::ofstream file(Path(), std::ios::binary | std::ios::trunc);
        file << text << std::flush;
        if (!file) throw CFailure(EExit::Refused, "the file " + Quoted(Path()) + " can't be written");
    }

    void Edit() const {
        std::string editor = "editor";
        for (const char* const name : {"EDITOR", "VISUAL"})
            if (const char* const value = std::getenv(name); value != nullptr && *value != '\0')
                editor = value;
        // As git and others have it: the variable may hold arguments.
        const std::string command = editor + " \"$1\"";
        // Ctrl-C is the editor's meanwhile, as with system().
        const CIgnored ignored;
        const pid_t child = ::fork();
        if (child == 0) {
            ignored.GiveBack();
            ::execl("/bin/sh", "sh", "-c", command.c_str(), "sh", Path().c_str(), nullptr);
            ::_exit(127);
        }
        int status = -1;
        while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            throw CFailure(EExit::Refused, "the editor " + Quoted(editor) + " failed; nothing was changed",
                           "choose one with $EDITOR");
        }
    }

private:
    std::string m_folder;
};

void Compare(const std::string& path, const Json& present, const Json& other,
             std::vector<SDifference>& found) {
    if (present == other) return;
    if (!present.is_object() || !other.is_object()) {
        found.push_back({path, present, other});
        return;
    }
    const auto deeper = [&](const std::string& key) { return path.empty() ? key : path + "." + key; };
    for (const auto& [key, value] : present.items())
        Compare(deeper(key), value, other.contains(key) ? other.at(key) : Json(), found);
    for (const auto& [key, value] : other.items())
        if (!present.contains(key)) Compare(deeper(key), Json(), value, found);
}

}  // namespace

Json ExportOf(IZamProduct& product, const SBackupJobConfigurationInfo& config) {
    Json json = ToJson(config);
    if (const auto repository = RepositoriesOf(product)->FindRepository(config.RepositoryId))
        json[NameKey] = repository->Name;
    return json;
}

void ImportInto(IZamProduct& product, Json json, SBackupJobConfigurationInfo& config) {
    if (!json.is_object()) throw CFieldError("", "a job is an object, {...}");
    std::optional<std::string> name;
    if (json.contains(NameKey)) {
        if (!json.at(NameKey).is_string()) throw CFieldError(NameKey, "a name is a text");
        name = json.at(NameKey).get<std::string>();
        json.erase(NameKey);
    }
    FromJson(json, config);
    if (name && !RepositoriesOf(product)->FindRepository(config.RepositoryId))
        config.RepositoryId = FindRepository(product, *name).Id;
}

std::vector<Json> ObjectsIn(const std::string& text) {
    Json json = ParseJson(text);
    if (!json.is_array()) return {std::move(json)};
    return {json.begin(), json.end()};
}

std::vector<SDifference> Differences(const Json& present, const Json& other) {
    std::vector<SDifference> found;
    Compare("", present, other, found);
    return found;
}

bool EditText(std::string text, const std::function<void(const std::string&)>& accept) {
    const CEditedFile file;
    const std::string original = text;
    while (true) {
        file.Write(text);
        file.Edit();
        const std::string edited = WithoutMarks(ReadText(file.Path()));
        // A text that comes back as it went is given up, whatever has become of the marks: an editor that nobody sits at
        // may change those for ever.
        if (edited == WithoutMarks(text)) {
            if (text == original) return false;
            throw CFailure(EExit::Refused, "the mistake is still there; nothing was changed");
        }
        text = edited;
        std::size_t line = 0;
        std::string why;
        try {
            accept(text);
            return true;
        } catch (const CFieldError& error) {
            why = error.what();
            const auto place = error.Place() ? error.Place() : PlaceOf(text, error.Path());
            line = place ? place->Line - 1 : 0;
            if (!IsInputTerminal()) throw CFailure(EExit::Usage, why);
        } catch (const CFailure& failure) {
            if (failure.Exit() != EExit::Usage && failure.Exit() != EExit::NotFound) throw;
            if (!IsInputTerminal()) throw;
            why = failure.what();
        } catch (const CGenericException& error) {
            if (!IsInputTerminal()) throw;
            why = error.what();
        }
        text = Marked(text, line, why);
    }
}

}  // namespace zamctl
