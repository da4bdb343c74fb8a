// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <array>
#include <cstdint>
#include <string>

namespace apigen APIGEN_API {

/// A 128-bit identifier of something persistent: a job, a session, a repository. All zeros by default.
struct Guid {
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::array<std::uint8_t, 8> Data4{};

    /// The text form, always 38 characters: `{0123abcd-0004-f00d-0102-030405060708}`.
    std::string Serialize() const;

    /// Reads a text form: with or without braces, any separators, digits of either case.
    /// Never throws: from the first part that can't be read on, the fields stay zero.
    static Guid Deserialize(const std::string& text);

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
};

}  // namespace apigen
