// SPDX-License-Identifier: Apache-2.0
/// \file
/// How an exception of the API travels: the names of its types and its layout, for both sides.
#pragma once

#include <zamclientlib/Exceptions.h>

namespace zamclientlib::exceptions {

inline constexpr const char* TypeKey = "type";          ///< one of the names below
inline constexpr const char* ContentKey = "Exception";  ///< the exception itself

/// Calls `visit.operator()<E>(name)` for every exception class E, in the order in which names are compared.
template <class Visitor>
void ForEachType(Visitor&& visit) {
    visit.template operator()<CGenericException>("CGenericException");
    visit.template operator()<CJobIsRunning>("CJobIsRunning");
    visit.template operator()<CPackageManagerIsLocked>("CPackageManagerIsLocked");
    visit.template operator()<CIndexingUnmetDependencies>("CIndexingUnmetDependencies");
}

}  // namespace zamclientlib::exceptions
