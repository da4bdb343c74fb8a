// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a connection's time-out may be.
#pragma once

#include <apigen/Export.h>

#include <chrono>

namespace apigen APIGEN_API {

/// \throws ApiInternalError for a negative time-out
APIGEN_API void RequireTimeout(std::chrono::seconds timeout);

}  // namespace apigen
