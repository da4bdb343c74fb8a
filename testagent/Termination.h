// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "testagent/CAgent.h"

namespace testagent {

/// Lets a signal that ends the process remove what the agent would leave behind. For one agent in a process.
void RemoveTracesOnTermination(const CAgent& agent);

}  // namespace testagent
