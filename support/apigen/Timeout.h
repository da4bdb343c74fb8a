// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a connection's time-out may be.
#pragma once

#include <apigen/Export.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace apigen APIGEN_API {

/// \throws ApiInternalError for a negative time-out
APIGEN_API void RequireTimeout(std::chrono::milliseconds timeout);

/// The same time in milliseconds, or as many as can be counted.
inline std::chrono::milliseconds Milliseconds(std::chrono::seconds timeout) noexcept {
    using std::chrono::milliseconds;
    using std::chrono::seconds;
    return std::clamp(timeout, std::chrono::ceil<seconds>(milliseconds::min()),
                      std::chrono::floor<seconds>(milliseconds::max()));
}

/// "30 s", "1500 ms"
std::string DurationText(std::chrono::milliseconds duration);

}  // namespace apigen
