// SPDX-License-Identifier: Apache-2.0
#include <apigen/Guid.h>

#include <sys/random.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ios>
#include <locale>
#include <ostream>
#include <sstream>
#include <string_view>
#include <system_error>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

// The digits of a text without braces stand in four groups of eight; a dash may part a group.
constexpr std::size_t CanonicalSize = 36;
constexpr std::size_t Dashes[] = {8, 13, 18, 23};

#ifdef __SSE2__

// Sixteen digits at a time. A GUID's bytes stand in its text with the highest one of each number first.

std::uint64_t Load8(const char* from) {
    std::uint64_t word = 0;
    std::memcpy(&word, from, sizeof word);
    return word;
}

std::uint64_t Load4And4(const char* first, const char* second) {
    std::uint32_t words[2];
    std::memcpy(&words[0], first, sizeof words[0]);
    std::memcpy(&words[1], second, sizeof words[1]);
    return words[0] | std::uint64_t{words[1]} << 32;
}

__m128i Both(std::uint64_t first, std::uint64_t second) {
    return _mm_set_epi64x(static_cast<long long>(second), static_cast<long long>(first));
}

/// The bytes that sixteen digits stand for, in the lower half of each lane. `good` keeps its bits where there are
/// digits.
inline __m128i FromDigits(__m128i digits, __m128i& good) {
    const __m128i decimal = _mm_sub_epi8(digits, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(digits, _mm_set1_epi8('a' - 'A')), _mm_set1_epi8('a'));
    const __m128i isDecimal = _mm_cmpeq_epi8(_mm_min_epu8(decimal, _mm_set1_epi8(9)), decimal);
    const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter);
    good = _mm_and_si128(good, _mm_or_si128(isDecimal, isLetter));
    const __m128i values = _mm_or_si128(_mm_and_si128(isDecimal, decimal),
                                        _mm_and_si128(isLetter, _mm_add_epi8(letter, _mm_set1_epi8(10))));
    const __m128i pairs = _mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8));
    return _mm_and_si128(pairs, _mm_set1_epi16(0xFF));
}

__m128i ToDigits(__m128i values) {
    const __m128i isLetter = _mm_cmpgt_epi8(values, _mm_set1_epi8(9));
    return _mm_add_epi8(_mm_add_epi8(values, _mm_set1_epi8('0')),
                        _mm_and_si128(isLetter, _mm_set1_epi8('a' - '0' - 10)));
}

/// Reads a text without braces; says whether it had digits in all places.
inline bool ReadDigits(const char* at, Guid& guid) {
    __m128i good = _mm_set1_epi8(-1);
    const __m128i first = FromDigits(Both(Load8(at), Load4And4(at + 9, at + 14)), good);
    const __m128i second = FromDigits(Both(Load4And4(at + 19, at + 24), Load8(at + 28)), good);
    std::uint64_t numbers[2];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(numbers), _mm_packus_epi16(first, second));
    const std::uint64_t highestFirst = __builtin_bswap64(numbers[0]);
    guid.Data1 = static_cast<std::uint32_t>(highestFirst >> 32);
    guid.Data2 = static_cast<std::uint16_t>(highestFirst >> 16);
    guid.Data3 = static_cast<std::uint16_t>(highestFirst);
    std::memcpy(guid.Data4.data(), &numbers[1], guid.Data4.size());
    return _mm_movemask_epi8(good) == 0xFFFF;
}

/// Writes all of a text without braces but its dashes.
void WriteDigits(const Guid& guid, char* text) {
    std::uint64_t last = 0;
    std::memcpy(&last, guid.Data4.data(), guid.Data4.size());
    const __m128i bytes = Both(
        __builtin_bswap64(std::uint64_t{guid.Data1} << 32 | std::uint64_t{guid.Data2} << 16 | guid.Data3),
        last);
    const __m128i high = _mm_and_si128(_mm_srli_epi16(bytes, 4), _mm_set1_epi8(0x0F));
    const __m128i low = _mm_and_si128(bytes, _mm_set1_epi8(0x0F));
    std::uint32_t words[8];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(&words[0]), ToDigits(_mm_unpacklo_epi8(high, low)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(&words[4]), ToDigits(_mm_unpackhi_epi8(high, low)));
    std::memcpy(text, &words[0], 8);
    std::memcpy(text + 9, &words[2], 4);
    std::memcpy(text + 14, &words[3], 4);
    std::memcpy(text + 19, &words[4], 4);
    std::memcpy(text + 24, &words[5], 12);
}

#else

/// The same value in each byte of a word.
constexpr std::uint64_t Each(std::uint8_t value) {
    return value * 0x0101010101010101U;
}

/// In memory, the first of its bytes is the lowest of the word.
template <class Word>
Word Little(Word word) {
    if constexpr (std::endian::native == std::endian::little) return word;
    return sizeof word == 8 ? static_cast<Word>(__builtin_bswap64(word))
                            : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
}

template <class Word>
Word Load(const char* from) {
    Word word = 0;
    std::memcpy(&word, from, sizeof word);
    return Little(word);
}

template <class Word>
void Store(Word word, char* to) {
    word = Little(word);
    std::memcpy(to, &word, sizeof word);
}

std::uint64_t LoadParted(const char* first, const char* second) {
    return Load<std::uint32_t>(first) | std::uint64_t{Load<std::uint32_t>(second)} << 32;
}

/// The number that eight digits, the first one in the lowest byte, stand for. All of them are read at once;
/// `bad` gets a bit for each that is none.
inline std::uint32_t FromDigits(std::uint64_t digits, std::uint64_t& bad) {
    // With the highest bit out of the way no sum runs over into the next byte.
    const std::uint64_t low = digits & Each(0x7F);
    const auto isFrom = [](std::uint64_t chars, char first) { return chars + Each(0x80 - first); };
    const auto isAbove = [](std::uint64_t chars, char last) { return chars + Each(0x7F - last); };
    const std::uint64_t small = low | Each(0x20);
    const std::uint64_t isDecimal = isFrom(low, '0') & ~isAbove(low, '9');
    const std::uint64_t isLetter = isFrom(small, 'a') & ~isAbove(small, 'f');
    bad |= (~(isDecimal | isLetter) | digits) & Each(0x80);

    std::uint64_t value = (low & Each(0x0F)) + (low >> 6 & Each(1)) * 9;
    value = (value << 4 | value >> 8) & 0x00FF00FF00FF00FF;
    value = (value << 8 | value >> 16) & 0x0000FFFF0000FFFF;
    return static_cast<std::uint32_t>(value << 16 | value >> 32);
}

std::uint64_t ToDigits(std::uint32_t number) {
    std::uint64_t value = number;
    value = (value << 32 | value >> 16) & 0x0000FFFF0000FFFF;
    value = (value << 16 | value >> 8) & 0x00FF00FF00FF00FF;
    value = (value << 8 | value >> 4) & Each(0x0F);
    return value + Each('0') + ((value + Each(6)) >> 4 & Each(1)) * ('a' - '0' - 10);
}

std::uint32_t Number(const std::uint8_t* bytes) {
    return std::uint32_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

/// Reads a text without braces; says whether it had digits in all places.
bool ReadDigits(const char* at, Guid& guid) {
    std::uint64_t bad = 0;
    const std::uint32_t numbers[] = {
        FromDigits(Load<std::uint64_t>(at), bad), FromDigits(LoadParted(at + 9, at + 14), bad),
        FromDigits(LoadParted(at + 19, at + 24), bad), FromDigits(Load<std::uint64_t>(at + 28), bad)};
    guid.Data1 = numbers[0];
    guid.Data2 = static_cast<std::uint16_t>(numbers[1] >> 16);
    guid.Data3 = static_cast<std::uint16_t>(numbers[1]);
    const std::uint64_t last = std::uint64_t{numbers[2]} << 32 | numbers[3];
    Store(__builtin_bswap64(last), reinterpret_cast<char*>(guid.Data4.data()));  // the highest byte first
    return bad == 0;
}

/// Writes all of a text without braces but its dashes.
void WriteDigits(const Guid& guid, char* text) {
    const std::uint64_t second = ToDigits(std::uint32_t{guid.Data2} << 16 | guid.Data3);
    const std::uint64_t third = ToDigits(Number(&guid.Data4[0]));
    Store(ToDigits(guid.Data1), text);
    Store(static_cast<std::uint32_t>(second), text + 9);
    Store(static_cast<std::uint32_t>(second >> 32), text + 14);
    Store(static_cast<std::uint32_t>(third), text + 19);
    Store(static_cast<std::uint32_t>(third >> 32), text + 24);
    Store(ToDigits(Number(&guid.Data4[4])), text + 28);
}

#endif

/// Reads the text that a writer makes, braces removed; says whether it was one.
inline bool ReadCanonical(std::string_view text, Guid& guid) {
    if (text.size() != CanonicalSize) return false;
    const char* const at = text.data();
    unsigned bad = ReadDigits(at, guid) ? 0 : 1;
    for (const std::size_t place : Dashes)
        bad |= static_cast<unsigned>(at[place] ^ '-');
    return bad == 0;
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
    char* const text = buffer.Chars + 1;
    WriteDigits(guid, text);
    for (const std::size_t place : Dashes)
        text[place] = '-';
    buffer.Chars[0] = '{';
    buffer.Chars[sizeof buffer.Chars - 1] = '}';
    return {buffer.Chars, sizeof buffer.Chars};
}

Guid ParseGuid(std::string_view text) {
    if (text.size() >= 2) {
        if (text.front() == '{') text.remove_prefix(1);
        if (text.back() == '}') text.remove_suffix(1);
    }
    Guid guid;
    if (text.empty() || ReadCanonical(text, guid)) return guid;
    return ReadLeniently(text);
}

std::string Guid::Serialize() const {
    SGuidBuffer buffer;
    return std::string(FormatGuid(*this, buffer));
}

Guid Guid::Deserialize(const std::string& text) {
    return ParseGuid(text);
}

Optional<Guid> Guid::Parse(std::string_view text) {
    if (text.size() == CanonicalSize + 2 && text.front() == '{' && text.back() == '}') {
        text = text.substr(1, CanonicalSize);
    }
    Guid guid;
    if (!ReadCanonical(text, guid)) return {};
    return guid;
}

Guid Guid::Random() {
    Guid guid;
    // So few bytes come whole.
    while (getrandom(&guid, sizeof guid, 0) != static_cast<ssize_t>(sizeof guid)) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "No random numbers");
    }
    guid.Data3 = static_cast<std::uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
    return guid;
}

std::ostream& operator<<(std::ostream& stream, const Guid& guid) {
    SGuidBuffer buffer;
    return stream << FormatGuid(guid, buffer);
}

}  // namespace apigen
