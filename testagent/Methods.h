// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a script can say of the methods that clients call.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace testagent {

struct SMethod {
    std::string_view Id;
    std::string_view Name;           ///< the identifier without its number
    bool HandsOutObject = false;     ///< one, not a list of them
    std::set<std::string> EnumKeys;  ///< of the enumerations in its answer
};

/// Every method of every interface of the agent.
const std::vector<SMethod>& Methods();

/// The method with this identifier, or null.
const SMethod* FindMethod(std::string_view id);

}  // namespace testagent
