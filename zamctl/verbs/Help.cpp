// SPDX-License-Identifier: Apache-2.0
// What --help shows, from the table of verbs.
#include <algorithm>
#include <string>

#include "show/Words.h"
#include "verbs/CommandLine.h"

namespace zamctl {
namespace {

constexpr std::size_t LineWidth = 92;

/// Words in lines of at most so many columns, the later ones indented.
std::string Wrapped(std::string_view text, std::size_t indent, std::size_t first) {
    std::string out;
    std::size_t column = first;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of(" \n"), text.size());
        const std::string_view word = text.substr(0, end);
        if (column > indent && column + 1 + ColumnsOf(word) > LineWidth) {
            out += '\n' + std::string(indent, ' ');
            column = indent;
        } else if (column > indent && !out.empty()) {
            out += ' ';
            ++column;
        }
        out += word;
        column += ColumnsOf(word);
        if (end < text.size() && text[end] == '\n') {
            out += '\n' + std::string(indent, ' ');
            column = indent;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

std::string Entry(const std::string& what, std::string_view help) {
    constexpr std::size_t HelpColumn = 28;
    std::string line = "  " + what;
    if (line.size() + 2 > HelpColumn) {
        line += '\n' + std::string(HelpColumn, ' ');
    } else {
        line.resize(HelpColumn, ' ');
    }
    return line + Wrapped(help, HelpColumn, HelpColumn) + "\n";
}

std::string Words(const SArgument& argument) {
    std::string words = argument.Name;
    if (argument.IsRepeated) words += "...";
    return argument.IsOptional ? "[" + words + "]" : words;
}

std::string Words(const SOption& option) {
    std::string words = option.Name;
    if (option.Short != 0) words = std::string("-") + option.Short + ", " + words;
    if (option.Value != nullptr) words += std::string(" ") + option.Value;
    return words;
}

std::string HelpOf(const SOption& option) {
    std::string help = option.Help;
    if (option.IsRepeated) help += "; may be given again";
    return help;
}

}  // namespace

std::string Usage(const SVerb& verb) {
    std::string usage = "zamctl " + FullName(verb);
    for (const auto& argument : verb.Arguments)
        usage += " " + Words(argument);
    for (const auto& option : verb.Options) {
        std::string words = option.Name;
        if (option.Value != nullptr) words += std::string(" ") + option.Value;
        usage += option.IsRequired ? " " + words : " [" + words + "]";
        if (option.IsRepeated) usage += "...";
    }
    return usage;
}

std::string GeneralHelp() {
    std::string help =
        "zamctl manages the backup agent of this host.\n"
        "\n"
        "usage: zamctl COMMAND [VERB] [WORDS] [OPTIONS]      zamctl COMMAND [VERB] --help tells more\n"
        "\n"
        "First steps:\n"
        "  zamctl repo create disk --path /srv/backup     a place for backups\n"
        "  zamctl job create home --repo disk --dir /home --daily 22:00\n"
        "  zamctl job start home --follow                 a run, watched to its end\n"
        "  zamctl status                                  how everything stands\n"
        "  zamctl session show home                       how the last run went, and why it failed\n"
        "  zamctl point list home                         what can be restored\n"
        "  zamctl point restore latest --job home --to /tmp/restored /home/me/notes.txt\n";
    std::string noun = "?";
    for (const SVerb* const verb : Verbs()) {
        if (verb->Name[0] == '_') continue;
        if (noun != verb->Noun) {
            noun = verb->Noun;
            help += noun.empty() ? "\n" : "\n" + noun + "\n";
        }
        std::string what = noun.empty() ? verb->Name : std::string("  ") + verb->Name;
        for (const auto& argument : verb->Arguments)
            what += " " + Words(argument);
        help += Entry(what, verb->Help);
    }
    help += "\nOptions of every command:\n";
    for (const auto& option : CommonOptions())
        help += Entry(Words(option), HelpOf(option));
    help +=
        "\nJobs, places and sessions are named by name, by id, or by a unique beginning of either.\n"
        "\n"
        "Exit status: 0 done, 1 refused by the agent, 2 the command line can't be understood, 3 there is no "
        "such\n"
        "thing, 4 the agent can't be reached, 5 the session ended with warnings, 6 it failed, 130 "
        "interrupted.\n";
    return help;
}

std::string NounHelp(std::string_view noun) {
    std::string help = "usage: zamctl " + std::string(noun) + " VERB [WORDS] [OPTIONS]\n\n";
    for (const SVerb* const verb : Verbs()) {
        if (noun != verb->Noun) continue;
        std::string what = verb->Name;
        for (const auto& argument : verb->Arguments)
            what += " " + Words(argument);
        help += Entry(what, verb->Help);
    }
    return help + "\n\"zamctl " + std::string(noun) + " VERB --help\" tells more.\n";
}

std::string VerbHelp(const SVerb& verb) {
    std::string help = Wrapped("zamctl " + FullName(verb) + " " + verb.Help, 0, 0) +
                       "\n\nusage: " + Wrapped(Usage(verb), 11, 7) + "\n";
    if (verb.Details[0] != '\0') help += "\n" + Wrapped(verb.Details, 0, 0) + "\n";
    if (!verb.Arguments.empty()) help += "\n";
    for (const auto& argument : verb.Arguments)
        help += Entry(Words(argument), argument.Help);
    help += "\n";
    for (const auto& option : verb.Options)
        help += Entry(Words(option), HelpOf(option));
    if (!verb.Options.empty()) help += "\n";
    for (const auto& option : CommonOptions()) {
        if (option.Name == std::string_view("--output") && !verb.HasForms) continue;
        help += Entry(Words(option), HelpOf(option));
    }
    if (verb.Example[0] != '\0') {
        help += "\nFor example:\n  ";
        for (const char c : std::string_view(verb.Example))
            help += c == '\n' ? std::string("\n  ") : std::string(1, c);
        help += "\n";
    }
    return help;
}

}  // namespace zamctl
