// SPDX-License-Identifier: Apache-2.0
#include "verbs/HostCommand.h"

#include "agent/AgentCommand.h"
#include "show/Words.h"

namespace zamctl {
namespace {

/// The command's exit status as one of ours; what it said last is the reason.
EExit ExitOf(int status, const std::string& reason) {
    switch (status) {
        case 0:
            return EExit::Done;
        case 2:
            throw CFailure(EExit::Usage, reason);
        case 3:
            throw CFailure(EExit::NotFound, reason,
                           "zamctl point list and zamctl point files show what there is");
        case 128 + 2:
        case 128 + 15:
            throw CFailure(EExit::Interrupted, "interrupted");
        default:
            throw CFailure(EExit::Refused, reason.empty()
                                               ? "the agent's command ended with " + std::to_string(status)
                                               : reason);
    }
}

}  // namespace

EExit RunHostCommand(CCall& call, const std::vector<std::string>& arguments,
                     const std::function<void(std::string_view)>& onLine) {
    std::string last;
    const int status = RunAgentCommand(arguments, onLine, [&](std::string_view line) {
        if (!last.empty()) call.Out.Note(last);
        last = Escaped(line);
    });
    if (status == 0 && !last.empty()) call.Out.Note(last);
    return ExitOf(status, last);
}

}  // namespace zamctl
