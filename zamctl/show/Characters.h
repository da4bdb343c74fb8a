// SPDX-License-Identifier: Apache-2.0
/// \file
/// The characters of a UTF-8 text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zamctl {

struct SCharacter {
    char32_t Code = 0;
    std::size_t Length = 0;  ///< in bytes; 0: the text begins with none
};

/// The first character of a text that is not empty.
[[nodiscard]] SCharacter FirstCharacter(std::string_view text) noexcept;

/// The columns that it takes on a terminal; -1 for one that can't be shown, or changes how others are.
[[nodiscard]] int WidthOf(char32_t code);

/// How many bytes of the text's beginning fit into so many columns.
[[nodiscard]] std::size_t LengthWithin(std::string_view text, std::size_t columns);

/// The text with U+FFFD for each byte that is no UTF-8.
[[nodiscard]] std::string ValidUtf8(std::string_view text);

/// From now on characters have widths. Not at the start of a program, which would pay for it without need.
void UseWideCharacters();

}  // namespace zamctl
