// SPDX-License-Identifier: Apache-2.0
// Man pages, from the table of verbs.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "show/Words.h"
#include "verbs/CommandLine.h"

namespace zamctl {
namespace {

/// Text as troff takes it: nothing in it is a request, and what is typed can be copied.
std::string Troff(std::string_view text) {
    std::string out;
    bool isLineStart = true;
    for (const char c : text) {
        if (isLineStart && (c == '.' || c == '\'')) out += "\\&";
        isLineStart = c == '\n';
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            case '\'':
                out += "\\(aq";
                break;
            case '`':
                out += "\\(ga";
                break;
            case '^':
                out += "\\(ha";
                break;
            case '~':
                out += "\\(ti";
                break;
            case '"':
                out += "\\(dq";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return upper;
}

/// Empty lines between paragraphs would be blank ones, and lines that begin with a blank break.
std::string Paragraphs(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (line.empty()) {
            out += ".PP\n";
        } else if (line.front() == ' ') {
            out += ".br\n\\&" + Troff(line) + "\n";
        } else {
            out += Troff(line) + "\n";
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

/// Whether the help names them all itself.
bool NamesAll(std::string_view help, std::span<const char* const> choices) {
    return std::all_of(choices.begin(), choices.end(),
                       [&](const char* choice) { return help.find(choice) != std::string_view::npos; });
}

/// The help of verbs begins like the verb itself does, "starts a job".
std::string Sentence(std::string_view help) {
    std::string text(help);
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    if (!text.empty() && text.back() != '.') text += '.';
    return Troff(text) + "\n";
}

std::string Title(std::string_view noun) {
    std::string name = "ZAMCTL";
    if (!noun.empty()) name += "-" + UpperCase(noun);
    // Without a day: the same sources give the same page.
    return ".\\\" SPDX-License-Identifier: Apache-2.0\n.TH " + Troff(name) +
           " 1 \"\" \"zamctl " ZAMCTL_VERSION "\" \"User Commands\"\n";
}

std::string Italic(std::string_view word) {
    return "\\fI" + Troff(word) + "\\fR";
}

std::string Bold(std::string_view word) {
    return "\\fB" + Troff(word) + "\\fR";
}

std::string Synopsis(const SVerb& verb) {
    std::string line = Bold("zamctl " + FullName(verb));
    for (const auto& argument : verb.Arguments) {
        std::string word = Italic(argument.Name);
        if (argument.IsRepeated) word += "...";
        line += " " + (argument.IsOptional ? "[" + word + "]" : word);
    }
    for (const auto& option : verb.Options) {
        std::string word = Bold(option.Name);
        if (option.Value != nullptr) word += " " + Italic(option.Value);
        line += " " + (option.IsRequired ? word : "[" + word + "]");
        if (option.IsRepeated) line += "...";
    }
    return line + "\n";
}

/// The help of a word that has choices; one that begins with a choice is left as it is.
template <class Word>
std::string HelpOf(const Word& word) {
    const std::span<const char* const> choices = word.Choices;
    const std::string_view help = word.Help;
    const bool isChoiceFirst = std::any_of(choices.begin(), choices.end(),
                                           [&](const char* choice) { return help.starts_with(choice); });
    std::string line = isChoiceFirst ? Troff(help) + ".\n" : Sentence(help);
    if (NamesAll(help, choices)) return line;
    line += "One of";
    for (const char* const choice : choices)
        line += (choice == choices.front() ? " " : ", ") + Bold(choice);
    return line + ".\n";
}

std::string Entry(const SArgument& argument) {
    return ".TP\n" + Italic(argument.Name) + "\n" + HelpOf(argument);
}

std::string Entry(const SOption& option) {
    std::string line = ".TP\n";
    if (option.Short != 0) line += Bold(std::string("-") + option.Short) + ", ";
    line += Bold(option.Name);
    if (option.Value != nullptr) line += " " + Italic(option.Value);
    line += "\n" + HelpOf(option);
    if (option.IsRepeated) line += "May be given again.\n";
    return line;
}

std::string Example(const SVerb& verb) {
    if (verb.Example[0] == '\0') return "";
    return ".PP\n.RS 4\n.nf\n" + Troff(verb.Example) + "\n.fi\n.RE\n";
}

/// A section of its own in a noun's page, a paragraph of its own in zamctl's.
std::string Section(const SVerb& verb) {
    std::string page =
        ".SS " + Troff("zamctl " + FullName(verb)) + "\n" + Synopsis(verb) + ".PP\n" + Sentence(verb.Help);
    if (verb.Details[0] != '\0') page += Paragraphs(verb.Details);
    for (const auto& argument : verb.Arguments)
        page += Entry(argument);
    for (const auto& option : verb.Options)
        page += Entry(option);
    return page + Example(verb);
}

struct SStatus {
    const char* Number;
    const char* Meaning;
};

constexpr std::array Statuses{
    SStatus{"0", "Done."},
    SStatus{"1", "The agent, or the host, refused."},
    SStatus{"2", "The command line can't be understood."},
    SStatus{"3", "There is no such job, session, point or place."},
    SStatus{"4", "The agent can't be reached, or it went away."},
    SStatus{"5", "The session ended with warnings."},
    SStatus{"6", "The session failed."},
    SStatus{"130", "Interrupted."},
};

std::string ExitStatus() {
    std::string page = ".SH EXIT STATUS\n";
    for (const auto& status : Statuses)
        page += std::string(".TP\n") + status.Number + "\n" + Troff(status.Meaning) + "\n";
    return page;
}

std::vector<std::string> Nouns() {
    std::vector<std::string> nouns = FirstWords();
    std::erase_if(nouns, [](const auto& word) { return SecondWords(word).empty(); });
    return nouns;
}

/// The other pages, but for this one.
std::string SeeAlso(std::string_view noun) {
    std::string page = ".SH SEE ALSO\n";
    std::string list;
    if (!noun.empty()) list = ".BR zamctl (1)";
    for (const auto& other : Nouns())
        if (other != noun)
            list += (list.empty() ? "" : ",\n") + std::string(".BR zamctl\\-") + Troff(other) + " (1)";
    return page + list + "\n";
}

std::string NounPage(std::string_view noun) {
    std::string page = Title(noun);
    page += ".SH NAME\nzamctl\\-" + Troff(noun) + " \\- the " + Troff(noun) +
            " commands of zamctl\n.SH SYNOPSIS\n";
    std::string sections;
    bool isFirst = true;
    for (const SVerb* const verb : Verbs()) {
        if (noun != verb->Noun) continue;
        page += (isFirst ? "" : ".br\n") + Synopsis(*verb);
        isFirst = false;
        sections += Section(*verb);
    }
    page += ".SH COMMANDS\n" + sections;
    page += ".SH OPTIONS\nThose that every command has stand in\n.BR zamctl (1).\n";
    return page + ExitStatus() + SeeAlso(noun);
}

std::string GeneralPage() {
    std::string page = Title("");
    page +=
        ".SH NAME\nzamctl \\- manages the backup agent of this host\n"
        ".SH SYNOPSIS\n"
        "\\fBzamctl\\fR \\fICOMMAND\\fR [\\fIVERB\\fR] [\\fIWORDS\\fR] [\\fIOPTIONS\\fR]\n"
        ".SH DESCRIPTION\n"
        "Makes jobs and places for backups, starts and watches runs, restores what they kept, and tells how\n"
        "everything stands.\n"
        "It speaks to the agent of this host; what asks the host alone needs no agent.\n"
        ".PP\n"
        "Jobs, places and sessions are named by name, by id, or by a unique beginning of either.\n"
        "Where a word could mean several, they are listed, and nothing is done.\n"
        ".PP\n"
        "Commands that only look leave control of the agent where it is.\n"
        "Those that change something take it for as long as they run, and give it back.\n"
        "An owner who doesn\\(aqt share it has to be asked for it, or is overruled with\n"
        "\\fB\\-\\-force\\fR.\n";
    page += ".SH COMMANDS\n";
    for (const auto& noun : Nouns()) {
        page += ".TP\n.BR zamctl\\-" + Troff(noun) + " (1)\n";
        std::string list;
        for (const auto& verb : SecondWords(noun))
            list += (list.empty() ? "" : ", ") + Bold(verb);
        page += list + "\n";
    }
    for (const SVerb* const verb : Verbs())
        if (verb->Noun[0] == '\0' && verb->Name[0] != '_') page += Section(*verb);
    page += ".SH OPTIONS\nOf every command:\n";
    for (const auto& option : CommonOptions())
        page += Entry(option);
    page +=
        ".SH OUTPUT\n"
        "For people, tables that fit the terminal, sizes and times in words, local time, and colours on a "
        "terminal\n"
        "only.\n"
        "For programs,\n"
        "\\fB\\-\\-output json\\fR gives one document, an array for a list and an object for a single "
        "thing;\n"
        "\\fBjsonl\\fR an object a line, the only JSON of what follows something;\n"
        "\\fBtsv\\fR a line of keys and a line a row, with tabs, line ends and backslashes as\n"
        "\\et, \\en, \\er and \\e\\e.\n"
        "Points in time are RFC 3339 in UTC there, durations seconds, sizes bytes, and passwords never "
        "shown.\n"
        "\\fBzamctl schema\\fR describes all of it.\n"
        ".SH PASSWORDS\n"
        "They are asked for without echo, or read from the first line of a file, or of a descriptor, that\n"
        "\\fB\\-\\-password\\-file\\fR names (\\fBfd:3\\fR).\n"
        "No option takes a password itself: others could read it in the list of processes.\n";
    page += ExitStatus();
    page +=
        ".SH ENVIRONMENT\n"
        ".TP\n\\fBNO_COLOR\\fR\nWhen set and not empty, no colours.\n"
        ".TP\n\\fBPAGER\\fR\nShows long tables on a terminal; \\fBless \\-FRX\\fR unless set.\n"
        ".TP\n\\fBEDITOR\\fR\nEdits jobs.\n"
        ".TP\n\\fBCOLUMNS\\fR\nThe width of tables where the output is no terminal.\n"
        ".TP\n\\fBTARVO_HOME\\fR\nThe folder of an agent of one\\(aqs own.\n";
    return page + SeeAlso("");
}

}  // namespace

std::string ManPage(std::string_view noun) {
    return noun.empty() ? GeneralPage() : NounPage(noun);
}

}  // namespace zamctl
