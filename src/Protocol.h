// SPDX-License-Identifier: Apache-2.0
/// \file
/// The version of the protocol, and the document in which a tool reports it.
#pragma once

#include <zamclientlib/CommonRecords.h>

namespace zamclientlib::protocol {

inline constexpr SVersion Version{2, 0, 0, 0};

/// Where the `SCompatibilityInfo` stands in the document.
inline constexpr const char* InfoKey = "SCompatibilityInfo";

}  // namespace zamclientlib::protocol
