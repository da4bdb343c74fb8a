// SPDX-License-Identifier: Apache-2.0
/// \file
/// From the words of a command line to a verb with its values.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "verbs/Verb.h"

namespace zamctl {

struct SCommandLine {
    const SVerb* Verb = nullptr;  ///< none: only help was asked for
    SCommonOptions Common;
    std::vector<std::pair<std::string, std::string>> Words;
    std::string Help;  ///< what to show, when help was asked for
};

/// \throws CFailure (Usage) with the offending word, what is accepted, and the nearest that is
[[nodiscard]] SCommandLine ParseCommandLine(const std::vector<std::string>& arguments);

/// The verb that two words name, the second one empty for a verb that stands alone; none when there is no such.
[[nodiscard]] const SVerb* FindVerb(std::string_view noun, std::string_view name);

/// "job start", "status".
[[nodiscard]] std::string FullName(const SVerb& verb);

/// The nouns, and the words that stand alone, in the order of the help.
[[nodiscard]] std::vector<std::string> FirstWords();

/// The verbs of a noun.
[[nodiscard]] std::vector<std::string> SecondWords(std::string_view noun);

/// "zamctl job start JOB [--follow]".
[[nodiscard]] std::string Usage(const SVerb& verb);

[[nodiscard]] std::string GeneralHelp();
[[nodiscard]] std::string NounHelp(std::string_view noun);
[[nodiscard]] std::string VerbHelp(const SVerb& verb);

/// What could stand in place of the last of these words, a line each; a line ":file" or ":folder" where that is the
/// shell's to say.
[[nodiscard]] std::vector<std::string> Completions(const std::vector<std::string>& words);

/// The script that brings completion to a shell.
[[nodiscard]] std::string CompletionScript(std::string_view shell);

/// A man page in troff: of zamctl, or of a noun.
[[nodiscard]] std::string ManPage(std::string_view noun);

}  // namespace zamctl
