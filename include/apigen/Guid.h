// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/Optional.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

/// A 128-bit identifier of something persistent: a job, a session, a repository. All zeros by default.
struct Guid {
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::array<std::uint8_t, 8> Data4{};

    /// The text form, always 38 characters: `{0123abcd-0004-f00d-0102-030405060708}`.
    [[nodiscard]] std::string Serialize() const;

    /// Reads a text form: with or without braces, any separators, digits of either case.
    /// Never throws: from the first part that can't be read on, the fields stay zero.
    [[nodiscard]] static Guid Deserialize(const std::string& text);

    /// Reads a text form strictly, one that a user typed for instance: 8-4-4-4-12 digits of either case, with
    /// both braces or none, and nothing else. Empty for every other text.
    [[nodiscard]] static Optional<Guid> Parse(std::string_view text);

    /// A new one that nobody else has: version 4 of RFC 4122, from the system's random numbers.
    /// \throws std::system_error when the system gives none
    [[nodiscard]] static Guid Random();

    /// The one of zeros alone, which names nothing.
    [[nodiscard]] static Guid Nil() noexcept { return {}; }
    /// Whether it is the one of zeros alone.
    [[nodiscard]] bool IsNil() const noexcept { return *this == Guid{}; }

    friend bool operator==(const Guid& left, const Guid& right) noexcept {
        return left.Data1 == right.Data1 && left.Data2 == right.Data2 && left.Data3 == right.Data3 &&
               left.Data4 == right.Data4;
    }
    friend bool operator!=(const Guid& left, const Guid& right) noexcept { return !(left == right); }
    friend bool operator<(const Guid& left, const Guid& right) noexcept {
        if (left.Data1 != right.Data1) return left.Data1 < right.Data1;
        if (left.Data2 != right.Data2) return left.Data2 < right.Data2;
        if (left.Data3 != right.Data3) return left.Data3 < right.Data3;
        return left.Data4 < right.Data4;
    }
    friend bool operator>(const Guid& left, const Guid& right) noexcept { return right < left; }
    friend bool operator<=(const Guid& left, const Guid& right) noexcept { return !(right < left); }
    friend bool operator>=(const Guid& left, const Guid& right) noexcept { return !(left < right); }
};

/// Writes the text form.
APIGEN_API std::ostream& operator<<(std::ostream& stream, const Guid& guid);

}  // namespace apigen

// Doxygen doesn't know the template that this is one of.
/// \cond
/// For unordered containers. Not stable between releases.
template <>
struct std::hash<apigen::Guid> {
    std::size_t operator()(const apigen::Guid& guid) const noexcept {
        std::uint64_t first = std::uint64_t{guid.Data1} << 32 | std::uint64_t{guid.Data2} << 16 | guid.Data3;
        std::uint64_t second = 0;
        for (const std::uint8_t byte : guid.Data4)
            second = second << 8 | byte;
        // Those that were not made at random may differ in a few bits only.
        first = (first ^ first >> 32 ^ second) * 0x9E3779B97F4A7C15U;
        return static_cast<std::size_t>(first ^ first >> 29 ^ second * 0xBF58476D1CE4E5B9U);
    }
};
/// \endcond
