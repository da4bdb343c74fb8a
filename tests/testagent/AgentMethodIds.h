// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

namespace tests {

/// The identifiers of every method of the agent's interfaces.
std::set<std::string> AgentMethodIds();

}  // namespace tests
