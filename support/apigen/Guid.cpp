// SPDX-License-Identifier: Apache-2.0
#include <apigen/Guid.h>

#include <array>
#include <cstdint>
#include <ios>
#include <locale>
#include <sstream>
#include <string_view>

#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

constexpr std::string_view Shape = "00000000-0000-0000-0000-000000000000";

constexpr std::uint8_t NoDigit = 0xFF;

constexpr std::array DigitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(NoDigit);
    for (std::uint8_t i = 0; i < 10; ++i)
        values['0' + i] = i;
    for (std::uint8_t i = 0; i < 6; ++i)
        values['a' + i] = values['A' + i] = 10 + i;
    return values;
}();

/// Reads `count` bytes of two digits each; NoDigit bits in `bad` tell of a character that is no digit.
template <std::size_t Count>
std::uint64_t ReadBytes(const char* at, std::uint8_t& bad) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < 2 * Count; ++i) {
        const std::uint8_t digit = DigitValues[static_cast<unsigned char>(at[i])];
        bad |= digit;
        value = value << 4 | (digit & 0xF);
    }
    return value;
}

/// Reads the text that a writer makes, braces removed; says whether it was one.
bool ReadCanonical(std::string_view text, Guid& guid) {
    if (text.size() != Shape.size()) return false;
    const char* const at = text.data();
    std::uint8_t bad = 0;
    guid.Data1 = static_cast<std::uint32_t>(ReadBytes<4>(at, bad));
    guid.Data2 = static_cast<std::uint16_t>(ReadBytes<2>(at + 9, bad));
    guid.Data3 = static_cast<std::uint16_t>(ReadBytes<2>(at + 14, bad));
    const std::uint64_t tail = ReadBytes<2>(at + 19, bad) << 48 | ReadBytes<6>(at + 24, bad);
    for (std::size_t i = 0; i < guid.Data4.size(); ++i) {
        guid.Data4[i] = static_cast<std::uint8_t>(tail >> (56 - 8 * i));
    }
    return (bad & 0xF0) == 0 && at[8] == '-' && at[13] == '-' && at[18] == '-' && at[23] == '-';
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
    static constexpr std::string_view Digits = "0123456789abcdef";
    char* at = buffer.Chars;
    const auto add = [&at](std::uint32_t value, int digits) {
        while (digits-- > 0) {
            *at++ = Digits[value >> 4 * digits & 0xF];
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
