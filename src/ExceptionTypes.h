// SPDX-License-Identifier: Apache-2.0
/// \file
/// How an exception of the API travels: the names of its types and its layout, for both sides.
#pragma once

#include <zamclientlib/Exceptions.h>

#include <string>

namespace zamclientlib::exceptions {

inline const std::string TypeKey = "type";          ///< one of the names below
inline const std::string ContentKey = "Exception";  ///< the exception itself

/// Calls `visit.operator()<E>(name)` for every exception class E, in the order in which names are compared.
template <class Visitor>
void ForEachType(Visitor&& visit) {
    visit.template operator()<CGenericException>("CGenericException");
    visit.template operator()<CJobIsRunning>("CJobIsRunning");
    visit.template operator()<CPackageManagerIsLocked>("CPackageManagerIsLocked");
    visit.template operator()<CIndexingUnmetDependencies>("CIndexingUnmetDependencies");
}

}  // namespace zamclientlib::exceptions
