// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a run costs besides time.
#pragma once

#include <functional>
#include <string>

namespace zambench {

/// How often one of so many runs gives up the processor, and how many system calls it makes. These are counted
/// by tracing a copy of this process, where tracing is allowed.
std::string CountCosts(const std::function<void()>& run, int runs);

}  // namespace zambench
