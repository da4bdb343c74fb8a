// SPDX-License-Identifier: Apache-2.0
#include "show/Characters.h"

#include <langinfo.h>
#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <string_view>

namespace zamctl {
namespace {

bool HasUtf8() {
    return std::string_view(::nl_langinfo(CODESET)) == "UTF-8";  // NOLINT(concurrency-mt-unsafe): one thread
}

/// What changes the order or the place of other characters, breaks lines, or hides.
constexpr bool IsTrick(char32_t code) noexcept {
    return code == 0x061C || code == 0x200B || code == 0x200E || code == 0x200F || code == 0xFEFF ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F) ||
           (code >= 0xFFF9 && code <= 0xFFFB) || (code >= 0xE0000 && code <= 0xE0FFF);
}

}  // namespace

void UseWideCharacters() {
    static const bool once = [] {
        if (!HasUtf8()) ::setlocale(LC_CTYPE, "");         // NOLINT(concurrency-mt-unsafe): as above
        if (!HasUtf8()) ::setlocale(LC_CTYPE, "C.UTF-8");  // NOLINT(concurrency-mt-unsafe)
        return true;
    }();
    static_cast<void>(once);
}

SCharacter FirstCharacter(std::string_view text) noexcept {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xC2 && lead < 0xE0   ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length == 0 || text.size() < length) return {};
    char32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) return {};
        code = code << 6 | (at(i) & 0x3FU);
    }
    const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    if (isOverlong || isSurrogate || code > 0x10FFFF) return {};
    return {code, length};
}

int WidthOf(char32_t code) {
    if (code < 0x7F) return code < 0x20 ? -1 : 1;
    if (code < 0xA0 || IsTrick(code)) return -1;
    UseWideCharacters();
    return ::wcwidth(static_cast<wchar_t>(code));
}

std::size_t LengthWithin(std::string_view text, std::size_t columns) {
    std::size_t end = 0;
    std::size_t used = 0;
    while (end < text.size()) {
        const auto [code, length] = FirstCharacter(text.substr(end));
        const int width = length == 0 ? 1 : WidthOf(code);
        used += width < 0 ? 1 : static_cast<std::size_t>(width);
        if (used > columns) break;
        end += std::max<std::size_t>(length, 1);
    }
    return end;
}

std::string ValidUtf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = FirstCharacter(text).Length;
        if (length == 0) {
            valid += "\uFFFD";
            text.remove_prefix(1);
        } else {
            valid.append(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
    return valid;
}

}  // namespace zamctl
