// SPDX-License-Identifier: Apache-2.0
#include <apigen/Guid.h>

#include <algorithm>
#include <ios>
#include <locale>
#include <sstream>
#include <string_view>

#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

constexpr std::string_view HexDigits = "0123456789abcdef";
constexpr std::string_view Shape = "00000000-0000-0000-0000-000000000000";

constexpr int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// Reads the text that a writer makes, braces removed; says whether it was one.
bool ReadCanonical(std::string_view text, Guid& guid) {
    if (text.size() != Shape.size()) return false;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t digits = 0;
    for (std::size_t i = 0; i < Shape.size(); ++i) {
        if (Shape[i] == '-') {
            if (text[i] != '-') return false;
            continue;
        }
        const int digit = DigitValue(text[i]);
        if (digit < 0) return false;
        bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | digit);
        ++digits;
    }
    const auto number = [&](std::size_t first, std::size_t count) {
        std::uint32_t value = 0;
        for (std::size_t i = first; i < first + count; ++i) {
            value = value << 8 | bytes[i];
        }
        return value;
    };
    guid.Data1 = number(0, 4);
    guid.Data2 = static_cast<std::uint16_t>(number(4, 2));
    guid.Data3 = static_cast<std::uint16_t>(number(6, 2));
    std::copy(bytes.begin() + 8, bytes.end(), guid.Data4.begin());
    return true;
}

/// Reads any text as far as it goes; what can't be read stays zero.
Guid ReadLeniently(std::string_view text) {
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    stream >> std::hex;
    Guid guid;
    char separator = 0;
    stream >> guid.Data1 >> separator >> guid.Data2 >> separator >> guid.Data3 >> separator;
    for (std::size_t i = 0; i < guid.Data4.size(); ++i) {
        char digits[2] = {};
        if (!(stream >> digits[0] >> digits[1])) break;
        guid.Data4[i] = static_cast<std::uint8_t>(ExtractNumber<unsigned int>({digits, 2}, true));
        if (i == 1) stream >> separator;
    }
    return guid;
}

}  // namespace

std::string_view FormatGuid(const Guid& guid, SGuidBuffer& buffer) {
    char* at = buffer.Chars;
    const auto add = [&](std::uint32_t value, int digits) {
        while (digits-- > 0) {
            *at++ = HexDigits[value >> 4 * digits & 0xF];
        }
    };
    *at++ = '{';
    add(guid.Data1, 8);
    *at++ = '-';
    add(guid.Data2, 4);
    *at++ = '-';
    add(guid.Data3, 4);
    *at++ = '-';
    for (std::size_t i = 0; i < guid.Data4.size(); ++i) {
        if (i == 2) *at++ = '-';
        add(guid.Data4[i], 2);
    }
    *at = '}';
    return {buffer.Chars, sizeof buffer.Chars};
}

Guid ParseGuid(std::string_view text) {
    if (text.size() >= 2) {
        if (text.front() == '{') text.remove_prefix(1);
        if (text.back() == '}') text.remove_suffix(1);
    }
    Guid guid;
    return ReadCanonical(text, guid) ? guid : ReadLeniently(text);
}

std::string Guid::Serialize() const {
    SGuidBuffer buffer;
    return std::string(FormatGuid(*this, buffer));
}

Guid Guid::Deserialize(const std::string& text) {
    return ParseGuid(text);
}

}  // namespace apigen
