// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <charconv>

#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/Verb.h"

namespace zamctl {
namespace {

constexpr std::array<const char*, 4> Forms{"table", "json", "jsonl", "tsv"};
constexpr std::array<const char*, 3> Colours{"auto", "always", "never"};

constexpr std::array Common{
    SOption{.Name = "--output",
            .Value = "FORM",
            .Help = "table for people (the default), or json, jsonl, tsv for programs",
            .Word = EWord::Choice,
            .Choices = Forms,
            .Short = 'o'},
    SOption{.Name = "--quiet", .Help = "no remarks, only what was asked for", .Short = 'q'},
    SOption{.Name = "--yes", .Help = "answers every question with yes", .Short = 'y'},
    SOption{.Name = "--timeout",
            .Value = "SECONDS",
            .Help = "how long connecting, and each call, may take; 60 unless said, 0 for no limit"},
    SOption{.Name = "--color",
            .Value = "WHEN",
            .Help = "auto, always or never; auto heeds NO_COLOR",
            .Word = EWord::Choice,
            .Choices = Colours},
    SOption{.Name = "--no-pager", .Help = "long tables go straight to the terminal"},
    SOption{.Name = "--tool",
            .Value = "PROGRAM",
            .Help = "the agent's tool, where it is not the tarvoconfig in PATH",
            .Word = EWord::File},
    SOption{.Name = "--installer-tool",
            .Value = "PROGRAM",
            .Help = "the installer's tool, where it is not the tarvoinstaller in PATH",
            .Word = EWord::File},
    SOption{.Name = "--help", .Help = "what the command does, with examples", .Short = 'h'},
};

}  // namespace

std::span<const SOption> CommonOptions() {
    return Common;
}

const std::vector<const SVerb*>& Verbs() {
    static const auto verbs = [] {
        std::vector<const SVerb*> all;
        for (const auto& some : {StatusVerbs(), JobVerbs(), SessionVerbs(), PointVerbs(), RepositoryVerbs(),
                                 ServerVerbs(), ProviderVerbs(), EventVerbs(), LogVerbs(), CheckVerbs(),
                                 ControlVerbs(), InstallerVerbs(), OwnVerbs()})
            for (const auto& verb : some)
                all.push_back(&verb);
        return all;
    }();
    return verbs;
}

bool CCall::Has(std::string_view name) const {
    return std::any_of(m_words.begin(), m_words.end(), [&](const auto& word) { return word.first == name; });
}

std::string CCall::Value(std::string_view name) const {
    return Optional(name).value_or("");
}

std::optional<std::string> CCall::Optional(std::string_view name) const {
    const auto found =
        std::find_if(m_words.rbegin(), m_words.rend(), [&](const auto& word) { return word.first == name; });
    if (found == m_words.rend()) return std::nullopt;
    return found->second;
}

std::vector<std::string> CCall::Values(std::string_view name) const {
    std::vector<std::string> values;
    for (const auto& [key, value] : m_words)
        if (key == name) values.push_back(value);
    return values;
}

std::optional<long> CCall::Number(std::string_view name, long least, long most) const {
    const auto text = Optional(name);
    if (!text) return std::nullopt;
    long number = 0;
    const char* const end = text->data() + text->size();
    const auto read = std::from_chars(text->data(), end, number);
    if (read.ec != std::errc() || read.ptr != end || number < least || number > most) {
        throw CFailure(EExit::Usage, std::string(name) + " takes a number from " + std::to_string(least) +
                                         " to " + std::to_string(most) + ", not " + Quoted(*text));
    }
    return number;
}

void CCall::RequireYes(const std::string& question) const {
    if (m_common.IsYes) return;
    if (!IsInputTerminal())
        throw CFailure(EExit::Usage, "nobody is there to be asked: " + question,
                       "say --yes to do it without a question");
    if (!Confirm(question)) throw CFailure(EExit::Refused, "not done");
}

CChange CCall::Change() {
    return Agent.Change();
}

}  // namespace zamctl
