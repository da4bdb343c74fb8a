// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Base64.h"

#include <array>
#include <cstdint>

namespace apigen::base64 {
namespace {

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t NoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> Digits = [] {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(NoDigit);
    for (std::size_t i = 0; i < Alphabet.size(); ++i) {
        digits[static_cast<unsigned char>(Alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return digits;
}();

}  // namespace

void Append(std::string& output, std::string_view bytes) {
    const auto byte = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) : 0U;
    };
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        const std::size_t left = bytes.size() - i;
        output += Alphabet[group >> 18];
        output += Alphabet[group >> 12 & 0x3F];
        output += left > 1 ? Alphabet[group >> 6 & 0x3F] : '=';
        output += left > 2 ? Alphabet[group & 0x3F] : '=';
    }
}

std::optional<std::size_t> Decode(std::string_view text, char* target) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') {
        ++padding;
    }
    std::size_t written = 0;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const std::size_t digits = last ? 4 - padding : 4;
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            const std::uint8_t digit = j < digits ? Digits[static_cast<unsigned char>(text[i + j])] : 0;
            if (digit == NoDigit) return std::nullopt;
            group = group << 6 | digit;
        }
        // Bits beyond the last whole byte carry nothing and are zero in what an encoder writes.
        const std::uint32_t unused = digits == 4 ? 0 : digits == 3 ? 0xFF : 0xFFFF;
        if ((group & unused) != 0) return std::nullopt;
        for (std::size_t j = 0; j + 1 < digits; ++j) {
            target[written++] = static_cast<char>(group >> (16 - 8 * j));
        }
    }
    return written;
}

}  // namespace apigen::base64
