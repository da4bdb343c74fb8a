// SPDX-License-Identifier: Apache-2.0
/// \file
/// The small values that other records embed.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Optional.h>
#include <zamclientlib/RecordEquality.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace zamclientlib APIGEN_API {

/// A four-part version number.
struct SVersion {
    unsigned short major = 0;
    unsigned short minor = 0;
    unsigned short revision = 0;
    unsigned short build = 0;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("major", &SVersion::major);
        field("minor", &SVersion::minor);
        field("revision", &SVersion::revision);
        field("build", &SVersion::build);
    }
};

namespace detail {
constexpr std::uint64_t Rank(const SVersion& version) {
    return std::uint64_t{version.major} << 48 | std::uint64_t{version.minor} << 32 |
           std::uint64_t{version.revision} << 16 | version.build;
}
}  // namespace detail

/// Versions are ordered by their parts, the major one first.
constexpr bool operator<(const SVersion& left, const SVersion& right) {
    return detail::Rank(left) < detail::Rank(right);
}
/// As above.
constexpr bool operator>(const SVersion& left, const SVersion& right) {
    return right < left;
}
/// As above.
constexpr bool operator<=(const SVersion& left, const SVersion& right) {
    return !(right < left);
}
/// As above.
constexpr bool operator>=(const SVersion& left, const SVersion& right) {
    return !(left < right);
}

/// The four parts, "2.0.0.345" for instance.
[[nodiscard]] APIGEN_API std::string ToText(const SVersion& version);

/// Reads one to four parts, numbers of 0 to 65535 in digits alone; the parts that are not there are zero. Empty for
/// every other text.
[[nodiscard]] APIGEN_API apigen::Optional<SVersion> ParseVersion(std::string_view text);

/// Writes what `ToText` gives.
APIGEN_API std::ostream& operator<<(std::ostream& stream, const SVersion& version);

/// What a tool reports about its protocol.
struct SCompatibilityInfo {
    SVersion protocolVersion{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("protocolVersion", &SCompatibilityInfo::protocolVersion);
    }
};

/// A point in time: whole seconds since 1970-01-01 00:00:00 UTC, and the milliseconds within the second. Before that
/// the seconds are negative, and the milliseconds still count forwards. Chrono.h converts.
struct SDateTime {
    long seconds = 0;
    unsigned short milliseconds = 0;  ///< 0 to 999

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("seconds", &SDateTime::seconds);
        field("milliseconds", &SDateTime::milliseconds);
    }
};

/// A duration: whole seconds, and the milliseconds beyond them. Chrono.h converts.
struct STimeSpan {
    long seconds = 0;
    unsigned short milliseconds = 0;  ///< 0 to 999

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("seconds", &STimeSpan::seconds);
        field("milliseconds", &STimeSpan::milliseconds);
    }
};

}  // namespace zamclientlib
