// SPDX-License-Identifier: Apache-2.0
/// \file
/// Numbers as decimal text.
///
/// The text of a number means what extraction from a stream in the classic locale makes of it, odd texts
/// included: "12abc" is 12, " 7" is 7, "abc" is 0, a number out of range is the type's limit. A canonical
/// text, the one that `FormatNumber` makes, takes a way without a stream.
#pragma once

#include <apigen/Export.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

namespace apigen APIGEN_API {

/// Room for the longest number text.
struct SNumberBuffer {
    char Chars[24];
};

template <class T>
std::string_view FormatNumber(T value, SNumberBuffer& buffer) {
    const auto end = std::to_chars(std::begin(buffer.Chars), std::end(buffer.Chars), value).ptr;
    return {buffer.Chars, static_cast<std::size_t>(end - buffer.Chars)};
}

/// The way through the stream, for any text. Instantiated for the types that travel.
template <class T>
T ExtractNumber(std::string_view text, bool isHex = false);

/// Reads a number text; never throws for an odd one.
template <class T>
[[gnu::noinline]] T ParseNumber(std::string_view text) {
    // Mostly it is a few digits, which can't be too many.
    if (text.size() <= std::numeric_limits<T>::digits10) {
        std::uint64_t number = 0;
        std::size_t at = 0;
        for (unsigned digit = 0; at != text.size(); number = number * 10 + digit, ++at) {
            digit = static_cast<unsigned>(text[at]) - '0';
            if (digit > 9) break;
        }
        if (at == text.size()) return static_cast<T>(number);
    }
    T value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    // Where both succeed on the whole text they agree; for anything else the stream has the say.
    const bool isWhole = error == std::errc{} && end == text.data() + text.size();
    return isWhole || text.empty() ? value : ExtractNumber<T>(text);
}

}  // namespace apigen
