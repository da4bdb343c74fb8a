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
    std::array<char, HeaderBytes> header;
    for (char& c : header)
        c = static_cast<char>(length & 0xff), length >>= 8;
    return header;
}

/// \param bytes at least a header
inline std::uint32_t DecodeHeader(std::string_view bytes) noexcept {
    std::uint32_t length = 0;
    for (std::size_t i = HeaderBytes; i-- != 0;)
        length = length << 8 | static_cast<unsigned char>(bytes[i]);
    return length;
}

}  // namespace apigen::common
