// SPDX-License-Identifier: Apache-2.0
// What zamctl tells about itself: its version, its man pages, the schema of its output, completion for shells.
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <vector>

#include "show/Schema.h"
#include "show/Words.h"
#include "verbs/CommandLine.h"

namespace zamctl {
namespace {

const std::vector<SColumn> VersionColumns{
    {"zamctl", "Program"},
    {"Protocol", "Protocol"},
    {"The agent's protocol", "AgentProtocol"},
};

EExit Version(CCall& call) {
    // A tool that hangs is none that a question for versions waits for.
    constexpr std::chrono::milliseconds Limit = std::chrono::seconds(5);
    const auto asked = call.Common().Agent.Timeout;
    zamclientlib::SConnectOptions options;
    options.Tool = call.Common().Agent.Tool;
    options.ConnectTimeout = asked.count() == 0 ? Limit : std::min(asked, Limit);
    Json item;
    item["Program"] = ZAMCTL_VERSION;
    item["Protocol"] = ToText(zamclientlib::GetLibraryApiVersion());
    item["AgentProtocol"] = Json();
    try {
        item["AgentProtocol"] = ToText(zamclientlib::GetAgentApiVersion(options));
    } catch (const apigen::InterruptedError&) {
        throw;
    } catch (const apigen::ApiException& error) {
        call.Out.Note("no agent to be asked: " + Escaped(error.what()));
    }
    call.Out.Item(VersionColumns, item);
    return EExit::Done;
}

EExit Completion(CCall& call) {
    call.Out.Raw(CompletionScript(call.Value("SHELL")));
    return EExit::Done;
}

EExit Manual(CCall& call) {
    const std::string noun = call.Value("NOUN");
    if (!noun.empty() && SecondWords(noun).empty()) {
        std::vector<std::string> nouns = FirstWords();
        std::erase_if(nouns, [](const auto& word) { return SecondWords(word).empty(); });
        const std::string nearest = Nearest(noun, nouns);
        throw CFailure(EExit::Usage, "there is no man page of " + Quoted(noun),
                       nearest.empty() ? "without a word it is the one of zamctl itself"
                                       : "did you mean " + Quoted(nearest) + "?");
    }
    call.Out.Raw(ManPage(noun));
    return EExit::Done;
}

EExit ShowSchema(CCall& call) {
    std::vector<std::pair<std::string, std::string>> commands;
    for (const SVerb* const verb : Verbs()) {
        if (!verb->HasForms || verb->Shape[0] == '\0') continue;
        std::string name = FullName(*verb);
        std::replace(name.begin(), name.end(), ' ', '-');
        commands.emplace_back(std::move(name), verb->Shape);
    }
    call.Out.Raw(JsonText(Schema(commands), true) + "\n");
    return EExit::Done;
}

/// Somebody waits for the key that he pressed to do something.
constexpr itimerval CompletionLimit{{0, 0}, {1, 500'000}};

EExit Complete(CCall& call) {
    std::signal(SIGALRM, [](int /*signal*/) { ::_exit(0); });
    ::setitimer(ITIMER_REAL, &CompletionLimit, nullptr);
    try {
        std::string lines;
        for (const auto& line : Completions(call.Values("WORD")))
            lines += line + "\n";
        call.Out.Raw(lines);
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): then there is nothing to say
    }
    return EExit::Done;
}

constexpr std::array<const char*, 3> Shells{"bash", "zsh", "fish"};

constexpr std::array CompletionArguments{
    SArgument{.Name = "SHELL", .Help = "bash, zsh or fish", .Word = EWord::Choice, .Choices = Shells}};
constexpr std::array ManualArguments{
    SArgument{.Name = "NOUN", .Help = "job, session...; zamctl itself unless said", .IsOptional = true}};
constexpr std::array CompleteArguments{
    SArgument{.Name = "WORD", .Help = "the words so far, behind --", .IsOptional = true, .IsRepeated = true}};

constexpr std::array Table{
    SVerb{.Noun = "",
          .Name = "version",
          .Help = "shows the versions of zamctl, of its protocol, and of the agent's",
          .Details = "A zamctl and an agent fit when the first numbers of their protocols are the same.",
          .Example = "zamctl version",
          .Arguments = {},
          .Options = {},
          .Run = Version,
          .Shape = "Versions"},
    SVerb{
        .Noun = "",
        .Name = "completion",
        .Help = "writes the script that brings completion to a shell",
        .Details =
            "Packages have installed it already. Names and ids are those that the agent has at that moment.",
        .Example = "source <(zamctl completion bash)\n"
                   "zamctl completion zsh > ~/.zfunc/_zamctl\n"
                   "zamctl completion fish | source",
        .Arguments = CompletionArguments,
        .Options = {},
        .Run = Completion,
        .HasForms = false},
    SVerb{.Noun = "",
          .Name = "manual",
          .Help = "writes the man page of zamctl, or of one of its nouns",
          .Details = "",
          .Example = "zamctl manual job | man -l -",
          .Arguments = ManualArguments,
          .Options = {},
          .Run = Manual,
          .HasForms = false},
    SVerb{.Noun = "",
          .Name = "schema",
          .Help = "writes the JSON Schema of what --output json gives",
          .Details = "Its definitions have each command by its name, \"job-list\" say. With --output jsonl "
                     "each line is "
                     "one of the array's items.",
          .Example = "zamctl schema | jq '.\"$defs\".\"job-list\"'",
          .Arguments = {},
          .Options = {},
          .Run = ShowSchema,
          .HasForms = false},
    SVerb{.Noun = "",
          .Name = "__complete",
          .Help = "writes what could stand in place of the last word, for the completion of shells",
          .Details = "",
          .Example = "zamctl __complete -- job st",
          .Arguments = CompleteArguments,
          .Options = {},
          .Run = Complete,
          .HasForms = false},
};

}  // namespace

std::span<const SVerb> OwnVerbs() {
    return Table;
}

}  // namespace zamctl
