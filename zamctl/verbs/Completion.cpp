// SPDX-License-Identifier: Apache-2.0
// What could be typed next, from the table of verbs and, for names and ids, from the agent.
#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/CommandLine.h"

namespace zamctl {
namespace {

/// Shells take the lines apart.
bool IsOneLine(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F; });
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

class CCompletions {
public:
    explicit CCompletions(const std::vector<std::string>& words) { Read(words); }

    [[nodiscard]] std::vector<std::string> Take() && { return std::move(m_lines); }

private:
    void Read(const std::vector<std::string>& words);
    void ReadWord(const std::string& word, bool isLast);
    void CompleteFirst(const std::string& part);
    void CompleteOption(const std::string& part);
    void CompleteArgument(const std::string& part);
    void CompleteValue(const SOption& option, const std::string& part, const std::string& before);
    /// \param before what the shell replaces along with the part, "--repo="
    void Complete(EWord kind, std::span<const char* const> choices, const std::string& part,
                  const std::string& before);
    void CompleteFromAgent(EWord kind, const std::string& part, const std::string& before);

    void Add(std::string_view word, const std::string& part, std::string_view help,
             const std::string& before = {}) {
        if (!word.starts_with(part) || word.empty() || !IsOneLine(word)) return;
        std::string line = before + std::string(word);
        if (!help.empty()) line += "\t" + Escaped(help);
        if (std::find(m_lines.begin(), m_lines.end(), line) == m_lines.end())
            m_lines.push_back(std::move(line));
    }

    /// Something of the agent: by name, and by id once its beginning is there or when there is no name.
    void AddCalled(const apigen::Guid& id, const std::string& name, const std::string& part,
                   std::string_view help, const std::string& before) {
        const std::string text = IdText(id);
        Add(name, part, name.empty() ? help : std::string_view(text), before);
        if (name.empty() || (!part.empty() && text.starts_with(LowerCase(part))))
            Add(text, LowerCase(part), name.empty() ? help : std::string_view(name), before);
    }

    const SOption* FindOption(std::string_view word) const {
        const std::span<const SOption> own = m_verb != nullptr ? m_verb->Options : std::span<const SOption>();
        for (const auto& options : {own, CommonOptions()})
            for (const auto& option : options)
                if (word == option.Name ||
                    (option.Short != 0 && word.size() == 2 && word[0] == '-' && word[1] == option.Short))
                    return &option;
        return nullptr;
    }

    std::vector<std::string> m_lines;
    std::string m_noun;
    const SVerb* m_verb = nullptr;
    bool m_isHelp = false;              ///< "zamctl help job start"
    bool m_isOptionsEnd = false;        ///< behind "--"
    std::size_t m_arguments = 0;        ///< so many are there already
    std::string m_tool;                 ///< what was given with --tool
    std::string m_job;                  ///< the job that a point or a session is to be of
    const SOption* m_option = nullptr;  ///< the one whose value is next
    std::vector<std::string> m_given;
};

void CCompletions::Read(const std::vector<std::string>& words) {
    if (words.empty()) return ReadWord("", true);
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < words.size(); ++i) {
        // bash makes three words of "--output=json".
        if (words[i] != "=" || i == 0 || !words[i - 1].starts_with("--")) {
            plain.push_back(words[i]);
        } else if (i + 1 == words.size()) {
            plain.emplace_back();
        }
    }
    for (std::size_t i = 0; i < plain.size(); ++i)
        ReadWord(plain[i], i + 1 == plain.size());
}

void CCompletions::ReadWord(const std::string& word, bool isLast) {
    if (m_option != nullptr) {
        const SOption& option = *std::exchange(m_option, nullptr);
        if (isLast) return CompleteValue(option, word, "");
        if (option.Name == std::string_view("--tool")) m_tool = word;
        if (option.Word == EWord::Job) m_job = word;
        return;
    }
    if (!m_isOptionsEnd && word.starts_with('-') && (isLast || word.size() > 1)) {
        if (isLast) return CompleteOption(word);
        if (word == "--") {
            m_isOptionsEnd = true;
            return;
        }
        const auto equals = word.find('=');
        const SOption* const option = FindOption(word.substr(0, equals));
        m_given.push_back(word.substr(0, equals));
        if (option == nullptr || option->Value == nullptr) return;
        m_option = option;
        if (equals != std::string::npos) ReadWord(word.substr(equals + 1), false);
        return;
    }
    if (m_verb == nullptr) {
        if (isLast) return CompleteFirst(word);
        if (m_noun.empty() && !m_isHelp && word == "help") {
            m_isHelp = true;
        } else if (m_noun.empty()) {
            m_noun = word;
            m_verb = FindVerb(word, "");
        } else {
            m_verb = FindVerb(m_noun, word);
            if (m_verb == nullptr) m_noun = "?";
        }
        return;
    }
    if (isLast) return CompleteArgument(word);
    if (m_arguments < m_verb->Arguments.size()) {
        if (m_verb->Arguments[m_arguments].Word == EWord::Job) m_job = word;
        if (!m_verb->Arguments[m_arguments].IsRepeated) ++m_arguments;
    }
}

void CCompletions::CompleteFirst(const std::string& part) {
    if (!m_noun.empty()) {
        for (const auto& name : SecondWords(m_noun))
            Add(name, part, FindVerb(m_noun, name)->Help);
        return;
    }
    for (const auto& word : FirstWords()) {
        const SVerb* const alone = FindVerb(word, "");
        Add(word, part, alone != nullptr ? alone->Help : Joined(SecondWords(word)));
    }
    if (!m_isHelp) Add("help", part, "tells what a command does");
}

void CCompletions::CompleteOption(const std::string& part) {
    const auto equals = part.find('=');
    if (equals != std::string::npos) {
        const SOption* const option = FindOption(part.substr(0, equals));
        if (option == nullptr || option->Value == nullptr) return;
        return CompleteValue(*option, part.substr(equals + 1), part.substr(0, equals + 1));
    }
    const std::span<const SOption> own = m_verb != nullptr ? m_verb->Options : std::span<const SOption>();
    for (const auto& options : {own, CommonOptions()}) {
        for (const auto& option : options) {
            if (m_verb != nullptr && !m_verb->HasForms && option.Name == std::string_view("--output"))
                continue;
            const bool isGiven = std::find(m_given.begin(), m_given.end(), option.Name) != m_given.end();
            if (!isGiven || option.IsRepeated) Add(option.Name, part, option.Help);
        }
    }
}

void CCompletions::CompleteArgument(const std::string& part) {
    if (m_isHelp || m_arguments >= m_verb->Arguments.size()) return;
    const SArgument& argument = m_verb->Arguments[m_arguments];
    if (FullName(*m_verb) == "manual") {
        for (const auto& word : FirstWords())
            if (!SecondWords(word).empty()) Add(word, part, "");
        return;
    }
    Complete(argument.Word, argument.Choices, part, "");
}

void CCompletions::CompleteValue(const SOption& option, const std::string& part, const std::string& before) {
    Complete(option.Word, option.Choices, part, before);
}

void CCompletions::Complete(EWord kind, std::span<const char* const> choices, const std::string& part,
                            const std::string& before) {
    switch (kind) {
        case EWord::Text:
            return;
        case EWord::File:
            m_lines.emplace_back(":file");
            return;
        case EWord::Folder:
            m_lines.emplace_back(":folder");
            return;
        case EWord::Choice:
            for (const char* const choice : choices)
                Add(choice, part, "", before);
            return;
        default:
            break;
    }
    try {
        CompleteFromAgent(kind, part, before);
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): without an agent there are no names
    }
}

void CCompletions::CompleteFromAgent(EWord kind, const std::string& part, const std::string& before) {
    const apigen::CCallDeadline limit(std::chrono::seconds(1));
    SAgentOptions options;
    options.Tool = m_tool;
    options.Timeout = std::chrono::seconds(1);
    CAgent agent(options);
    const auto product = agent.Look();
    const auto now = std::chrono::system_clock::now();
    switch (kind) {
        case EWord::Job:
            for (const auto& job : AllJobs(*product))
                AddCalled(job.Info.Id, job.Info.Name, part, "", before);
            break;
        case EWord::Session:
            Add("latest", part, "the newest of all", before);
            for (const auto& job : AllJobs(*product)) {
                Add(job.Info.Name, part, "its last session", before);
                for (const auto& session : job.Job->GetBackupJobSessions()) {
                    const auto info = session->GetInfo();
                    AddCalled(info.Uid, "", part, info.JobName + ", " + TimeWords(info.StartTimeUtc, now),
                              before);
                }
            }
            break;
        case EWord::Point:
            Add("latest", part, "the newest", before);
            for (const auto& job : AllJobs(*product)) {
                if (!m_job.empty() && m_job != job.Info.Name &&
                    !IdText(job.Info.Id).starts_with(LowerCase(m_job)))
                    continue;
                for (const auto& point : job.Job->GetOibsForRestore())
                    AddCalled(point.Id, "", part,
                              job.Info.Name + ", " + TimeWords(point.CreationTimeUtc, now), before);
            }
            break;
        case EWord::Repository:
            for (const auto& place : RepositoriesOf(*product)->GetRepositories())
                AddCalled(place.Id, place.Name, part, "", before);
            break;
        case EWord::Server:
            for (const auto& server : ServersOf(*product)->GetBackupServers())
                AddCalled(server.Id, server.Name, part, "", before);
            break;
        case EWord::Provider:
            for (const auto& provider : ProvidersOf(*product)->GetCloudServiceProviders())
                AddCalled(provider.Id, provider.Name, part, "", before);
            break;
        default:
            break;
    }
}

// A word a line, a tab and a word on it; ":file" and ":folder" ask for the shell's own.

constexpr std::string_view BashScript = R"(# Completion of zamctl for bash.
_zamctl() {
    local line word quote= words=()
    COMPREPLY=()
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        # As the words will be, not as they are typed.
        case $word in
            [\"\']*) quote=${word:0:1} word=${word:1} word=${word%"$quote"} ;;
            *) quote= word=${word//\\/} ;;
        esac
        words+=("$word")
    done
    [[ ${words[-1]-} == '=' ]] && word=
    while IFS= read -r line; do
        line=${line%%$'\t'*}
        case $line in
            :file) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
            :folder) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
            *)
                [[ -n $quote ]] || printf -v line %q "$line"
                COMPREPLY+=("$line")
                ;;
        esac
    done < <("${COMP_WORDS[0]/#\~/$HOME}" __complete -- "${words[@]}" 2>/dev/null)
}
complete -F _zamctl zamctl
)";

constexpr std::string_view ZshScript = R"(#compdef zamctl
# Completion of zamctl for zsh.
_zamctl() {
    local line
    local -a lines words_so_far shown
    words_so_far=("${(@Q)words[2,CURRENT]}")
    lines=("${(@f)$("${${(Q)words[1]}/#\~/$HOME}" __complete -- "${words_so_far[@]}" 2>/dev/null)}")
    for line in "${lines[@]}"; do
        case $line in
            '') ;;
            :file) _files ;;
            :folder) _files -/ ;;
            *)
                local word=${line%%$'\t'*} help=
                [[ $line == *$'\t'* ]] && help=${line#*$'\t'}
                shown+=("${word//:/\\:}${help:+:$help}")
                ;;
        esac
    done
    (( ${#shown} )) && _describe -V zamctl shown
}
if [[ ${funcstack[1]-} == _zamctl ]]; then
    _zamctl "$@"
else
    compdef _zamctl zamctl
fi
)";

constexpr std::string_view FishScript = R"(# Completion of zamctl for fish.
function __zamctl_complete
    set -l before (commandline -opc)
    set -l current (commandline -ct)
    set -l program $before[1]
    set -e before[1]
    for line in ($program __complete -- $before "$current" 2>/dev/null)
        switch $line
            case :file
                __fish_complete_path "$current"
            case :folder
                __fish_complete_directories "$current"
            case '*'
                echo $line
        end
    end
end
complete -c zamctl -f -a '(__zamctl_complete)'
)";

}  // namespace

std::vector<std::string> Completions(const std::vector<std::string>& words) {
    return CCompletions(words).Take();
}

std::string CompletionScript(std::string_view shell) {
    if (shell == "bash") return std::string(BashScript);
    if (shell == "zsh") return std::string(ZshScript);
    if (shell == "fish") return std::string(FishScript);
    throw CFailure(EExit::Usage, "there is no completion for " + Quoted(shell),
                   "there is for bash, zsh, fish");
}

}  // namespace zamctl
