// SPDX-License-Identifier: Apache-2.0
/// \file
/// What goes before every message on a stream: its length, in four bytes, the lowest first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace apigen::common {

inline constexpr std::size_t HeaderBytes = 4;

/// \param length at most IIoDev::MaxMessageBytes
inline std::array<char, HeaderBytes> EncodeHeader(std::size_t length) noexcept {
    const auto byte = [=](int place) { return static_cast<char>(length >> 8 * place & 0xff); };
    return {byte(0), byte(1), byte(2), byte(3)};
}

/// \param bytes at least a header
inline std::uint32_t DecodeHeader(std::string_view bytes) noexcept {
    const auto byte = [=](std::size_t place) {
        return std::uint32_t{static_cast<unsigned char>(bytes[place])} << 8 * place;
    };
    return byte(0) | byte(1) | byte(2) | byte(3);
}

}  // namespace apigen::common
