// SPDX-License-Identifier: Apache-2.0
/// \file
/// Verbs that are the business of the agent's own command on this host.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "verbs/Verb.h"

namespace zamctl {

/// Runs it. What it says on standard error is a remark, but for the last line of a failure, which is the reason.
/// \throws CFailure with the status that fits what it ended with
EExit RunHostCommand(CCall& call, const std::vector<std::string>& arguments,
                     const std::function<void(std::string_view)>& onLine);

}  // namespace zamctl
