// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a run costs besides time.
#pragma once

#include <functional>
#include <string>

namespace zambench {

/// Makes what a run needs, in the process that is to run it.
using Prepare = std::function<std::function<void()>()>;

/// How often one of so many runs gives up the processor, and how many system calls it makes. These are counted
/// by tracing a copy of this process, where tracing is allowed.
std::string CountCosts(const Prepare& prepare, int runs);

}  // namespace zambench
