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

#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

// The digits of a text without braces stand in four groups of eight; a dash may part a group.
constexpr std::size_t CanonicalSize = 36;
constexpr std::size_t Dashes[] = {8, 13, 18, 23};

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

/// Reads the text that a writer makes, braces removed; says whether it was one.
bool ReadCanonical(std::string_view text, Guid& guid) {
    if (text.size() != CanonicalSize) return false;
    const char* const at = text.data();
    std::uint64_t bad = 0;
    const std::uint32_t numbers[] = {
        FromDigits(Load<std::uint64_t>(at), bad), FromDigits(LoadParted(at + 9, at + 14), bad),
        FromDigits(LoadParted(at + 19, at + 24), bad), FromDigits(Load<std::uint64_t>(at + 28), bad)};
    guid.Data1 = numbers[0];
    guid.Data2 = static_cast<std::uint16_t>(numbers[1] >> 16);
    guid.Data3 = static_cast<std::uint16_t>(numbers[1]);
    const std::uint64_t last = std::uint64_t{numbers[2]} << 32 | numbers[3];
    Store(__builtin_bswap64(last), reinterpret_cast<char*>(guid.Data4.data()));  // the highest byte first
    for (const std::size_t place : Dashes)
        bad |= static_cast<std::uint64_t>(at[place] ^ '-');
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
    const std::uint64_t second = ToDigits(std::uint32_t{guid.Data2} << 16 | guid.Data3);
    const std::uint64_t third = ToDigits(Number(&guid.Data4[0]));
    Store(ToDigits(guid.Data1), text);
    Store(static_cast<std::uint32_t>(second), text + 9);
    Store(static_cast<std::uint32_t>(second >> 32), text + 14);
    Store(static_cast<std::uint32_t>(third), text + 19);
    Store(static_cast<std::uint32_t>(third >> 32), text + 24);
    Store(ToDigits(Number(&guid.Data4[4])), text + 28);
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
