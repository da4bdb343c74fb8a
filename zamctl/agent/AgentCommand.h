// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent's own command on this host, `tarvod`: for what its interface has no call for, the files in points and
/// their restoring.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zamctl {

/// Runs `tarvod` with these arguments. It is looked for beside this program, then in PATH. Ctrl-C reaches it as well.
/// \param onLine gets each line of its output; without it, the output is ours
/// \param onError gets each line that it says on standard error, without its own name in front
/// \return its exit status, as a shell has it (128 and the signal's number, when one ended it)
/// \throws CFailure (NoAgent) when there is none on this host
int RunAgentCommand(const std::vector<std::string>& arguments,
                    const std::function<void(std::string_view)>& onLine,
                    const std::function<void(std::string_view)>& onError);

}  // namespace zamctl
