// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a verb is: the table from which parsing, help, completion and man pages come.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Failure.h"
#include "agent/CAgent.h"
#include "show/COutput.h"

namespace zamctl {

/// What a word of the command line names; completion asks the agent for those that live there.
enum class EWord {
    Text,
    File,
    Folder,
    Choice,  ///< one of its Choices, in any case, with dashes or without
    Job,
    Session,
    Point,
    Repository,
    Server,
    Provider,
};

/// A word without dashes.
struct SArgument {
    const char* Name;  ///< "JOB"
    const char* Help;
    EWord Word = EWord::Text;
    bool IsOptional = false;
    bool IsRepeated = false;  ///< the last one only
    std::span<const char* const> Choices = {};
};

/// A word with dashes.
struct SOption {
    const char* Name;             ///< "--repo"
    const char* Value = nullptr;  ///< "REPOSITORY"; none: a flag
    const char* Help = "";
    EWord Word = EWord::Text;
    std::span<const char* const> Choices = {};
    bool IsRepeated = false;
    bool IsRequired = false;
    char Short = 0;  ///< 'o' for "-o"
};

class CCall;

/// One thing that can be done.
struct SVerb {
    const char* Noun;  ///< "job"; empty for a word that stands alone, "status"
    const char* Name;
    const char* Help;          ///< one line, "starts a job"
    const char* Details = "";  ///< paragraphs for help and man page
    const char* Example = "";  ///< one or more command lines, a line each
    std::span<const SArgument> Arguments = {};
    std::span<const SOption> Options = {};
    /// Returns the exit status; throws what can't be done.
    EExit (*Run)(CCall& call) = nullptr;
    /// What programs get: the name of a shape of the schema, "[SBackupJobInfo]" for rows of it.
    const char* Shape = "";
    bool HasForms = true;  ///< whether `--output` may ask for another form than the table
    /// Shows what happens as it comes, as every verb does under `--follow`: JSON as one document is refused.
    bool IsFollowing = false;
};

/// What the common options say.
struct SCommonOptions {
    SOutputOptions Output;
    SAgentOptions Agent;
    bool IsYes = false;
};

/// One run of a verb: what its command line says, and what it works with.
class CCall {
public:
    CCall(const SVerb& verb, SCommonOptions common, std::vector<std::pair<std::string, std::string>> words)
        : m_verb(verb),
          m_common(std::move(common)),
          m_words(std::move(words)),
          Out(m_common.Output),
          Agent(m_common.Agent) {}

    [[nodiscard]] const SVerb& Verb() const { return m_verb; }
    [[nodiscard]] const SCommonOptions& Common() const { return m_common; }

    /// Whether the option or argument was given.
    [[nodiscard]] bool Has(std::string_view name) const;
    /// Its (last) value; empty when it was not given.
    [[nodiscard]] std::string Value(std::string_view name) const;
    [[nodiscard]] std::optional<std::string> Optional(std::string_view name) const;
    /// All its values, in their order.
    [[nodiscard]] std::vector<std::string> Values(std::string_view name) const;
    /// As a number of `least` to `most`. \throws CFailure (Usage)
    [[nodiscard]] std::optional<long> Number(std::string_view name, long least, long most) const;

    /// Asks before something that can't be taken back: true at once under `--yes`.
    /// \throws CFailure (Usage) without a terminal, where `--yes` has to be said
    void RequireYes(const std::string& question) const;

    /// For the commands that change something: the product under control, until the result goes. With `--force` taken
    /// from another owner, whose name is asked for.
    [[nodiscard]] CChange Change();

private:
    const SVerb& m_verb;
    SCommonOptions m_common;
    std::vector<std::pair<std::string, std::string>> m_words;

public:
    COutput Out;
    CAgent Agent;
};

/// Every verb, in the order of the help.
[[nodiscard]] const std::vector<const SVerb*>& Verbs();

/// The options that every verb has; `--force` only where a verb lists it.
[[nodiscard]] std::span<const SOption> CommonOptions();

/// For the verbs that take control.
inline constexpr SOption ForceOption{"--force", nullptr,
                                     "take control of the agent from its present owner, after a question"};

// The verbs of each file.
[[nodiscard]] std::span<const SVerb> StatusVerbs();
[[nodiscard]] std::span<const SVerb> ControlVerbs();
[[nodiscard]] std::span<const SVerb> JobVerbs();
[[nodiscard]] std::span<const SVerb> SessionVerbs();
[[nodiscard]] std::span<const SVerb> PointVerbs();
[[nodiscard]] std::span<const SVerb> RepositoryVerbs();
[[nodiscard]] std::span<const SVerb> ServerVerbs();
[[nodiscard]] std::span<const SVerb> ProviderVerbs();
[[nodiscard]] std::span<const SVerb> EventVerbs();
[[nodiscard]] std::span<const SVerb> LogVerbs();
[[nodiscard]] std::span<const SVerb> CheckVerbs();
[[nodiscard]] std::span<const SVerb> InstallerVerbs();
[[nodiscard]] std::span<const SVerb> OwnVerbs();  ///< completion, manual, schema, version

}  // namespace zamctl
