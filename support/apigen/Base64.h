// SPDX-License-Identifier: Apache-2.0
/// \file
/// Base64 with padding (RFC 4648, section 4), for texts that XML can't carry.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace apigen::base64 {

void Append(std::string& output, std::string_view bytes);

/// Decodes `text` to `target`, which may be the text's own memory, and returns the number of bytes.
/// Empty for anything that `Append` would not have written.
std::optional<std::size_t> Decode(std::string_view text, char* target);

}  // namespace apigen::base64
