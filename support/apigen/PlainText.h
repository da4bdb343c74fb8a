// SPDX-License-Identifier: Apache-2.0
/// \file
/// The grammar of plain text, as our writer makes it and the short ways know it again.
///
///     document:  the element of the key `Data`
///     element:   <key>text</key>, <key>elements</key>, or <key/> for a node that holds nothing
///     text:      characters that stand for themselves, and escapes for the four that don't
///
/// There is nothing between elements, and no attribute except on a text that XML can't carry, which stands in
/// base64. Whatever else XML allows is the parser's business alone.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "support/apigen/XmlChars.h"

namespace apigen {

/// The key of the root element that is written; any is read.
inline constexpr std::string_view RootName = "Data";

namespace plain {

// The attribute of a text in base64.
inline constexpr std::string_view EncodingName = "encoding";
inline constexpr std::string_view Base64Name = "base64";

/// What is written for a character that means something to a parser.
struct SEscape {
    char Character;
    std::string_view Text;
};
inline constexpr std::array<SEscape, 4> Escapes{
    {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'\r', "&#13;"}}};

/// \param special one of the above
constexpr std::string_view Escape(char special) {
    return std::find_if(Escapes.begin(), Escapes.end(),
                        [=](const SEscape& each) { return each.Character == special; })
        ->Text;
}

/// The escape that `text` begins with, or null.
constexpr const SEscape* FindEscape(std::string_view text) {
    const auto* const found = std::find_if(Escapes.begin(), Escapes.end(),
                                           [=](const SEscape& each) { return text.starts_with(each.Text); });
    return found != Escapes.end() ? found : nullptr;
}

// Keys are short: to compare or to copy one, a call of the library's function would cost more than the work.

/// Whether two keys of the same length are the same.
inline bool IsSameKey(const char* left, const char* right, std::size_t length) {
    const auto isSame = [=](auto sample, std::size_t at) {
        auto other = sample;
        std::memcpy(&sample, left + at, sizeof sample);
        std::memcpy(&other, right + at, sizeof other);
        return sample == other;
    };
    // The last word may overlap the one before.
    if (length >= 8) {
        for (std::size_t at = 0; at + 8 < length; at += 8) {
            if (!isSame(std::uint64_t(), at)) return false;
        }
        return isSame(std::uint64_t(), length - 8);
    }
    if (length >= 4) return isSame(std::uint32_t(), 0) && isSame(std::uint32_t(), length - 4);
    for (std::size_t at = 0; at < length; ++at) {
        if (left[at] != right[at]) return false;
    }
    return true;
}

/// Copies a key and returns the place behind it, as all the functions below do.
constexpr char* PutKey(char* at, std::string_view key) {
    const auto put = [&](auto word, std::size_t place) {
        std::memcpy(&word, key.data() + place, sizeof word);
        std::memcpy(at + place, &word, sizeof word);
    };
    if (std::is_constant_evaluated() || key.size() < 4) {
        for (std::size_t place = 0; place < key.size(); ++place) {
            at[place] = key[place];
        }
    } else if (key.size() < 8) {
        put(std::uint32_t(), 0);
        put(std::uint32_t(), key.size() - 4);
    } else {
        for (std::size_t place = 0; place + 8 < key.size(); place += 8) {
            put(std::uint64_t(), place);
        }
        put(std::uint64_t(), key.size() - 8);
    }
    return at + key.size();
}

constexpr std::size_t StartTagBytes(std::string_view key) {
    return key.size() + 2;
}
constexpr std::size_t EndTagBytes(std::string_view key) {
    return key.size() + 3;
}
constexpr std::size_t EmptyTagBytes(std::string_view key) {
    return key.size() + 3;
}

constexpr char* PutStartTag(char* at, std::string_view key) {
    *at++ = '<';
    at = PutKey(at, key);
    *at++ = '>';
    return at;
}

constexpr char* PutEndTag(char* at, std::string_view key) {
    *at++ = '<';
    *at++ = '/';
    at = PutKey(at, key);
    *at++ = '>';
    return at;
}

/// Makes a start tag, which ends at `at`, the whole of an element that holds nothing.
constexpr char* PutEmptyEnd(char* at) {
    at[-1] = '/';
    *at++ = '>';
    return at;
}

namespace detail {
inline constexpr auto EmptyRoot = [] {
    std::array<char, EmptyTagBytes(RootName)> text{};
    PutEmptyEnd(PutStartTag(text.data(), RootName));
    return text;
}();
}  // namespace detail

/// The document that holds nothing.
inline constexpr std::string_view EmptyDocument(detail::EmptyRoot.data(), detail::EmptyRoot.size());

/// The key of the start tag at `at`, where a `<` is; empty where none stands. A NUL must follow the text.
inline std::string_view StartTagKey(const char* at, const char* end) {
    const char* const key = at + 1;
    const char* const stop = xml::SkipKeyChars(key, end);
    if (!xml::IsKeyStart(*key) || *stop != '>') return {};
    return {key, static_cast<std::size_t>(stop - key)};
}

// Whether the tag of a key stands at `at`.

inline bool IsStartTag(const char* at, const char* end, std::string_view key) {
    const auto bytes = static_cast<std::ptrdiff_t>(StartTagBytes(key));
    return end - at >= bytes && at[0] == '<' && at[bytes - 1] == '>' &&
           IsSameKey(at + 1, key.data(), key.size());
}

inline bool IsEndTag(const char* at, const char* end, std::string_view key) {
    const auto bytes = static_cast<std::ptrdiff_t>(EndTagBytes(key));
    return end - at >= bytes && at[0] == '<' && at[1] == '/' && at[bytes - 1] == '>' &&
           IsSameKey(at + 2, key.data(), key.size());
}

inline bool IsEmptyTag(const char* at, const char* end, std::string_view key) {
    const auto bytes = static_cast<std::ptrdiff_t>(EmptyTagBytes(key));
    return end - at >= bytes && at[0] == '<' && at[bytes - 2] == '/' && at[bytes - 1] == '>' &&
           IsSameKey(at + 1, key.data(), key.size());
}

}  // namespace plain
}  // namespace apigen
