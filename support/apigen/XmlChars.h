// SPDX-License-Identifier: Apache-2.0
/// \file
/// Which characters XML 1.0 can carry, and which of them a text run can't hold as they are.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace apigen::xml {

enum class EChar : std::uint8_t {
    Plain,      // stands for itself
    Special,    // & < > CR: means something to a parser
    Multibyte,  // part of a UTF-8 sequence, to be checked
    Forbidden,  // a control character that no document may hold
};

inline constexpr std::array<EChar, 256> CharClasses = [] {
    std::array<EChar, 256> classes{};
    for (unsigned c = 0; c < 256; ++c) {
        classes[c] = c >= 0x80 ? EChar::Multibyte : c < 0x20 ? EChar::Forbidden : EChar::Plain;
    }
    classes['\t'] = classes['\n'] = EChar::Plain;
    classes['\r'] = classes['&'] = classes['<'] = classes['>'] = EChar::Special;
    return classes;
}();

inline EChar Classify(char c) {
    return CharClasses[static_cast<unsigned char>(c)];
}

/// The first character in [at, end) that is not plain, or `end`.
inline const char* SkipPlain(const char* at, const char* end) {
#ifdef __SSE2__
    // Sixteen at a time. Less by a space, without overflow, both the controls and the bytes above ASCII are negative;
    // the few white space characters among the controls are sorted out below. One bit parts `<` from `>`.
    const __m128i space = _mm_set1_epi8(0x20);
    const __m128i angleBit = _mm_set1_epi8('<' ^ '>');
    const __m128i greater = _mm_set1_epi8('<' | '>');
    const __m128i ampersand = _mm_set1_epi8('&');
    while (end - at >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const __m128i angles = _mm_cmpeq_epi8(_mm_or_si128(bytes, angleBit), greater);
        const __m128i marked =
            _mm_or_si128(_mm_or_si128(_mm_subs_epi8(bytes, space), angles), _mm_cmpeq_epi8(bytes, ampersand));
        const int mask = _mm_movemask_epi8(marked);
        if (mask == 0) {
            at += 16;
            continue;
        }
        at += std::countr_zero(static_cast<unsigned>(mask));
        if (Classify(*at) != EChar::Plain) return at;
        ++at;
    }
#endif
    while (at != end && Classify(*at) == EChar::Plain) {
        ++at;
    }
    return at;
}

/// True for a letter or `_`, with which a key begins.
constexpr bool IsKeyStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

/// True for one of the characters of a key.
constexpr bool IsKeyChar(char c) {
    return IsKeyStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

/// The first character in [at, end) that is none of a key, or `end`.
inline const char* SkipKeyChars(const char* at, const char* end) {
#ifdef __SSE2__
    const auto isAtMost = [](__m128i bytes, char limit) {  // without sign
        return _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(limit)), bytes);
    };
    while (end - at >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const __m128i small = _mm_or_si128(bytes, _mm_set1_epi8(0x20));
        const __m128i letters = isAtMost(_mm_sub_epi8(small, _mm_set1_epi8('a')), 'z' - 'a');
        const __m128i others = _mm_andnot_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('/')),
                                                isAtMost(_mm_sub_epi8(bytes, _mm_set1_epi8('-')), '9' - '-'));
        const __m128i allowed =
            _mm_or_si128(_mm_or_si128(letters, others), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('_')));
        const unsigned refused = static_cast<unsigned>(_mm_movemask_epi8(allowed)) ^ 0xFFFF;
        if (refused != 0) return at + std::countr_zero(refused);
        at += 16;
    }
#endif
    while (at != end && IsKeyChar(*at)) {
        ++at;
    }
    return at;
}

/// True for a code point that an XML 1.0 document may hold (production [2] Char).
constexpr bool IsXmlChar(std::uint32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

/// One code point and the number of bytes it takes; 0 bytes when the text is no valid UTF-8 there.
struct SCodePoint {
    std::uint32_t Value = 0;
    unsigned Bytes = 0;
};

/// Decodes the UTF-8 sequence at `at` (RFC 3629: shortest form only, no surrogates, at most U+10FFFF).
inline SCodePoint DecodeUtf8(const char* at, const char* end) {
    const auto byte = [&](int i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(at[i])); };
    const auto continued = [&](int i) { return (byte(i) & 0xC0) == 0x80; };
    const auto left = end - at;
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    if (lead >= 0xC2 && lead <= 0xDF && left >= 2 && continued(1)) {
        return {(lead & 0x1F) << 6 | (byte(1) & 0x3F), 2};
    }
    if (lead >= 0xE0 && lead <= 0xEF && left >= 3 && continued(1) && continued(2)) {
        const std::uint32_t value = (lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
        if (value >= 0x800 && (value < 0xD800 || value > 0xDFFF)) return {value, 3};
    }
    if (lead >= 0xF0 && lead <= 0xF4 && left >= 4 && continued(1) && continued(2) && continued(3)) {
        const std::uint32_t value =
            (lead & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
        if (value >= 0x10000 && value <= 0x10FFFF) return {value, 4};
    }
    return {};
}

/// The number of bytes of the XML character at `at`, 0 when there is none.
inline unsigned XmlCharBytes(const char* at, const char* end) {
    const SCodePoint point = DecodeUtf8(at, end);
    return point.Bytes != 0 && IsXmlChar(point.Value) ? point.Bytes : 0;
}

/// The first byte in [at, end) that no document may hold, or `end`.
inline const char* SkipXmlChars(const char* at, const char* end) {
    while ((at = SkipPlain(at, end)) != end) {
        const unsigned bytes = XmlCharBytes(at, end);
        if (bytes == 0) break;
        at += bytes;
    }
    return at;
}

}  // namespace apigen::xml
