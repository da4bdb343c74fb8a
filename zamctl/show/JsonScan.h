// SPDX-License-Identifier: Apache-2.0
/// \file
/// JSON text as people write it: what is wrong with it, and where things stand in it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zamctl {

struct SMistake {
    std::size_t Offset = 0;
    std::string Why;
};

/// The first mistake of a text that should be JSON.
[[nodiscard]] std::optional<SMistake> MistakeOf(std::string_view text);

/// Where the field of this path, or its list's element, begins; none where the text has none.
[[nodiscard]] std::optional<std::size_t> OffsetOf(std::string_view text, std::string_view path);

/// The path of a field in what has this path.
[[nodiscard]] std::string FieldPath(const std::string& path, std::string_view key);
/// The path of a list's element.
[[nodiscard]] std::string ElementPath(const std::string& path, std::size_t index);

}  // namespace zamctl
