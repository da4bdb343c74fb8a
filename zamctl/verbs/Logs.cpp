// SPDX-License-Identifier: Apache-2.0
// zamctl logs: what the agent has to tell to who helps with it.
#include <array>
#include <ctime>

#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/JobOptions.h"

namespace zamctl {
namespace {

std::string NameOfToday() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 64> text{};
    const std::size_t length =
        std::strftime(text.data(), text.size(), "tarvo-logs-%Y-%m-%d-%H%M%S.tar.gz", &local);
    return {text.data(), length};
}

EExit Logs(CCall& call) {
    const std::string path = AbsolutePath(call.Optional("FILE").value_or(NameOfToday()));
    call.Agent.Control().GrabLogs(path);
    if (call.Out.IsForPeople()) {
        call.Out.Raw((IsOutputTerminal() ? Escaped(path) : path) + "\n");
    } else {
        Json item;
        item["Path"] = path;
        call.Out.Item({{"Path", "Path"}}, item);
    }
    return EExit::Done;
}

constexpr std::array Arguments{
    SArgument{.Name = "FILE",
              .Help = "the new file; tarvo-logs-DATE.tar.gz in the present folder unless "
                      "said",
              .Word = EWord::File,
              .IsOptional = true}};

constexpr std::array Table{
    SVerb{.Noun = "",
          .Name = "logs",
          .Help = "packs the agent's logs into a new file",
          .Details = "The agent writes the file, as the user that it runs as; there must be none of that "
                     "name. It holds the "
                     "agent's own log, the definitions of the jobs and the logs of their last sessions, and "
                     "no password. "
                     "Its path is printed.",
          .Example = "zamctl logs\nzamctl logs /tmp/for-support.tar.gz",
          .Arguments = Arguments,
          .Options = {},
          .Run = Logs,
          .Shape = "Logs"},
};

}  // namespace

std::span<const SVerb> LogVerbs() {
    return Table;
}

}  // namespace zamctl
