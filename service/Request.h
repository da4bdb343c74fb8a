// SPDX-License-Identifier: Apache-2.0
/// \file
/// A request as clients mostly write it.
#pragma once

#include <apigen/Handle.h>

#include <optional>
#include <string_view>

namespace zamservice {

/// The parts of a request's text, views into it. Only what stands there literally is seen: an argument may
/// still turn out to be something else.
struct SRequestParts {
    std::string_view Arguments;  ///< the elements before the envelope
    apigen::Handle Target;
    std::string_view Method;
};

/// Takes a text apart that ends in the envelope, first the handle, then the method, without anything between.
/// Nothing for any other text, be it a request or not.
std::optional<SRequestParts> SplitRequest(std::string_view text);

}  // namespace zamservice
