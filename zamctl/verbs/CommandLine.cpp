// SPDX-License-Identifier: Apache-2.0
#include "verbs/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <deque>
#include <iterator>

#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/Enums.h"

namespace zamctl {
namespace {

std::string DidYouMean(std::string_view word, const std::vector<std::string>& candidates,
                       const std::string& otherwise) {
    const std::string nearest = Nearest(word, candidates);
    return nearest.empty() ? otherwise : "did you mean " + Quoted(nearest) + "?";
}

const SOption* FindOption(std::span<const SOption> options, std::string_view word) {
    const auto found = std::find_if(options.begin(), options.end(), [&](const SOption& option) {
        return word == option.Name ||
               (option.Short != 0 && word.size() == 2 && word[0] == '-' && word[1] == option.Short);
    });
    return found == options.end() ? nullptr : &*found;
}

/// The words that choose the verb: those without dashes at the start, where common options may stand as well.
struct SChosen {
    std::string Noun;
    std::string Name;
    std::vector<std::string> Others;
    bool WantsHelp = false;
};

SChosen ChosenBy(const std::vector<std::string>& arguments) {
    SChosen chosen;
    int words = 0;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (words < 2 && word.size() > 1 && word[0] == '-' && word != "--") {
            chosen.Others.push_back(word);
            const SOption* const option = FindOption(CommonOptions(), word);
            if (option != nullptr && option->Value != nullptr && i + 1 < arguments.size())
                chosen.Others.push_back(arguments[++i]);
        } else if (words == 0) {
            chosen.Noun = word;
            words = FindVerb(word, "") != nullptr ? 2 : 1;
        } else if (words == 1) {
            chosen.Name = word;
            words = 2;
        } else {
            chosen.Others.push_back(word);
        }
    }
    for (const auto& word : chosen.Others) {
        if (word == "--") break;
        chosen.WantsHelp = chosen.WantsHelp || word == "--help" || word == "-h";
    }
    return chosen;
}

const SVerb& VerbOf(const SChosen& chosen) {
    if (const SVerb* const verb = FindVerb(chosen.Noun, chosen.Name)) return *verb;
    const auto verbs = SecondWords(chosen.Noun);
    if (verbs.empty()) {
        throw CFailure(EExit::Usage, "there is no command " + Quoted(chosen.Noun),
                       DidYouMean(chosen.Noun, FirstWords(), "the commands are " + Joined(FirstWords())));
    }
    if (chosen.Name.empty()) {
        throw CFailure(EExit::Usage, "what is to be done with " + chosen.Noun + "?",
                       "say one of " + Joined(verbs) + "; \"zamctl " + chosen.Noun + " --help\" tells more");
    }
    throw CFailure(EExit::Usage, chosen.Noun + " has no verb " + Quoted(chosen.Name),
                   DidYouMean(chosen.Name, verbs, "its verbs are " + Joined(verbs)));
}

/// Where CLI11 puts values; they are read from its options themselves.
using Values = std::deque<std::vector<std::string>>;

CLI::Option* Declare(CLI::App& app, const SOption& option, Values& values) {
    std::string names = option.Name;
    if (option.Short != 0) names = std::string("-") + option.Short + "," + names;
    if (option.Value == nullptr) return app.add_flag(names)->disable_flag_override();
    auto* const declared = app.add_option(names, values.emplace_back());
    declared->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    return declared;
}

/// How it is used, or where that is told when it is too long for a hint.
std::string UsageHint(const SVerb& verb) {
    constexpr std::size_t Most = 120;
    const std::string usage = "usage: " + Usage(verb);
    return usage.size() <= Most ? usage : "see zamctl " + FullName(verb) + " --help";
}

/// What CLI11 says of a command line, in words of ours: that a value is missing, "--limit: 1 required TEXT missing", is
/// what there is left to say.
[[noreturn]] void ThrowUsage(const SVerb& verb, const CLI::ParseError& error) {
    const std::string why = error.what();
    std::string name = why.substr(0, why.find(':'));
    if (why.ends_with("disallowed flag override")) name = "--" + why.substr(0, why.find(' '));
    for (const auto& options : {verb.Options, CommonOptions()}) {
        const SOption* const option = FindOption(options, name);
        if (option == nullptr) continue;
        if (option->Value == nullptr)
            throw CFailure(EExit::Usage, FullName(verb) + ": " + option->Name + " takes no value",
                           UsageHint(verb));
        throw CFailure(EExit::Usage, FullName(verb) + ": " + option->Name + " needs " + option->Value,
                       option->Help);
    }
    throw CFailure(EExit::Usage, FullName(verb) + ": " + Escaped(why), UsageHint(verb));
}

/// The value, as the choice that it is, in any case, with dashes or without.
template <class Word>
std::string Chosen(const SVerb& verb, const Word& of, const std::string& value) {
    if (of.Choices.empty()) return value;
    const std::vector<std::string> choices(of.Choices.begin(), of.Choices.end());
    const auto found = std::find_if(choices.begin(), choices.end(),
                                    [&](const std::string& choice) { return IsSameWord(choice, value); });
    if (found != choices.end()) return *found;
    throw CFailure(EExit::Usage, FullName(verb) + ": " + of.Name + " can't be " + Quoted(value),
                   DidYouMean(value, choices, "it is one of " + Joined(choices)));
}

[[noreturn]] void RefuseOption(const SVerb& verb, const std::string& word) {
    std::vector<std::string> known;
    for (const auto& options : {verb.Options, CommonOptions()})
        for (const auto& option : options)
            known.emplace_back(option.Name);
    throw CFailure(EExit::Usage, FullName(verb) + " has no option " + Quoted(word),
                   DidYouMean(word.substr(0, word.find('=')), known, UsageHint(verb)));
}

SCommonOptions CommonOf(const SVerb& verb, const CCall& call) {
    SCommonOptions common;
    const std::string form = call.Value("--output");
    if (form == "json") common.Output.Form = EForm::Json;
    if (form == "jsonl") common.Output.Form = EForm::JsonLines;
    if (form == "tsv") common.Output.Form = EForm::Tsv;
    if (!verb.HasForms && call.Has("--output") && form != "table")
        throw CFailure(EExit::Usage, FullName(verb) + " has no output of the form " + Quoted(form),
                       "what it writes has one form: leave --output out");
    const bool isFollowing = verb.IsFollowing || call.Has("--follow");
    if (isFollowing && common.Output.Form == EForm::Json) {
        throw CFailure(EExit::Usage,
                       FullName(verb) + (verb.IsFollowing ? "" : " --follow") +
                           " shows what happens as it comes, which is no one document",
                       "say --output jsonl");
    }
    const std::string color = call.Value("--color");
    common.Output.HasColours = color == "always" || (color != "never" && IsOutputTerminal() && HasColours());
    common.Output.HasPager = !call.Has("--no-pager");
    common.Output.IsQuiet = call.Has("--quiet");
    common.IsYes = call.Has("--yes");
    common.Agent.Tool = call.Value("--tool");
    common.Agent.InstallerTool = call.Value("--installer-tool");
    constexpr long Longest = 1'000'000;
    if (const auto seconds = call.Number("--timeout", 0, Longest))
        common.Agent.Timeout = std::chrono::seconds(*seconds);
    return common;
}

}  // namespace

const SVerb* FindVerb(std::string_view noun, std::string_view name) {
    for (const SVerb* const verb : Verbs()) {
        const bool standsAlone = verb->Noun[0] == '\0';
        if (standsAlone ? noun == verb->Name && name.empty() : noun == verb->Noun && name == verb->Name)
            return verb;
    }
    return nullptr;
}

std::string FullName(const SVerb& verb) {
    return verb.Noun[0] == '\0' ? verb.Name : std::string(verb.Noun) + " " + verb.Name;
}

std::vector<std::string> FirstWords() {
    std::vector<std::string> words;
    for (const SVerb* const verb : Verbs()) {
        const std::string word = verb->Noun[0] == '\0' ? verb->Name : verb->Noun;
        if (word.starts_with('_')) continue;  // for machines
        if (words.empty() || words.back() != word) words.push_back(word);
    }
    return words;
}

std::vector<std::string> SecondWords(std::string_view noun) {
    std::vector<std::string> words;
    for (const SVerb* const verb : Verbs())
        if (noun == verb->Noun && !noun.empty()) words.emplace_back(verb->Name);
    return words;
}

SCommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
    SCommandLine line;
    SChosen chosen = ChosenBy(arguments);
    // "zamctl help job start" is "zamctl job start --help".
    if (chosen.Noun == "help") {
        chosen.WantsHelp = true;
        std::vector<std::string> about;
        for (const auto& word : arguments)
            if (!word.starts_with('-')) about.push_back(word);
        chosen.Noun = about.size() > 1 ? about[1] : "";
        chosen.Name = about.size() > 2 ? about[2] : "";
    }
    if (chosen.Noun.empty()) {
        if (!chosen.WantsHelp) {
            if (!chosen.Others.empty() && chosen.Others.front() != "--") {
                const auto& word = chosen.Others.front();
                if (word == "--version") {
                    line.Verb = FindVerb("version", "");
                    return line;
                }
                if (FindOption(CommonOptions(), word) == nullptr)
                    throw CFailure(EExit::Usage, "zamctl has no option " + Quoted(word),
                                   DidYouMean(word, {"--help", "--version"}, "see zamctl --help"));
            }
            throw CFailure(EExit::Usage, "what is to be done?", "see zamctl --help");
        }
        line.Help = GeneralHelp();
        return line;
    }
    if (chosen.WantsHelp && chosen.Name.empty() && !SecondWords(chosen.Noun).empty()) {
        line.Help = NounHelp(chosen.Noun);
        return line;
    }
    const SVerb& verb = VerbOf(chosen);
    if (chosen.WantsHelp) {
        line.Help = VerbHelp(verb);
        return line;
    }

    Values values;
    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    app.prefix_command(false);
    std::vector<std::pair<const SOption*, CLI::Option*>> options;
    for (const auto& some : {verb.Options, CommonOptions()})
        for (const auto& option : some)
            options.emplace_back(&option, Declare(app, option, values));
    const auto mark =
        std::find(chosen.Others.begin(), chosen.Others.end(), "--");  // behind it are words only
    try {
        std::vector<std::string> reversed(std::make_reverse_iterator(mark), chosen.Others.rend());
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        ThrowUsage(verb, error);
    }
    // The words are what the parser has no use for: as its own it would take "[a,b]" for two.
    std::vector<std::string> given = app.remaining();
    for (const auto& word : given)
        if (word.starts_with('-') && word.size() > 1) RefuseOption(verb, word);
    if (mark != chosen.Others.end()) given.insert(given.end(), mark + 1, chosen.Others.end());
    std::size_t taken = 0;
    for (const auto& argument : verb.Arguments) {
        if (taken == given.size() && !argument.IsOptional)
            throw CFailure(EExit::Usage, FullName(verb) + " needs " + argument.Name, UsageHint(verb));
        const std::size_t end = argument.IsRepeated ? given.size() : std::min(taken + 1, given.size());
        for (; taken < end; ++taken)
            line.Words.emplace_back(argument.Name, Chosen(verb, argument, given[taken]));
    }
    if (taken < given.size())
        throw CFailure(EExit::Usage, FullName(verb) + " has no use for " + Quoted(given[taken]),
                       UsageHint(verb));
    for (const auto& [option, declared] : options) {
        if (option->Value == nullptr) {
            if (declared->count() > 0) line.Words.emplace_back(option->Name, "");
            if (declared->count() == 0 && option->IsRequired)
                throw CFailure(EExit::Usage, FullName(verb) + " needs " + option->Name, UsageHint(verb));
            continue;
        }
        const auto& own = declared->results();
        if (own.size() > 1 && !option->IsRepeated)
            throw CFailure(EExit::Usage, FullName(verb) + ": " + option->Name + " can be given once only");
        for (const auto& value : own)
            line.Words.emplace_back(option->Name, Chosen(verb, *option, value));
        if (own.empty() && option->IsRequired)
            throw CFailure(EExit::Usage, FullName(verb) + " needs " + option->Name, UsageHint(verb));
    }
    line.Verb = &verb;
    line.Common = CommonOf(verb, CCall(verb, {}, line.Words));
    return line;
}

}  // namespace zamctl
