// SPDX-License-Identifier: Apache-2.0
#include "installer/VersionText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>

namespace installer {
namespace {

using zamclientlib::SVersion;

constexpr std::array<unsigned short SVersion::*, 4> versionParts{&SVersion::major, &SVersion::minor,
                                                                 &SVersion::revision, &SVersion::build};
constexpr unsigned short largestPart = 65535;

struct SScan {
    SVersion Version;
    int Parts = 0;
    bool Saturated = false;
    std::size_t End = 0;  // where the scan stopped
};

SScan Scan(std::string_view text) {
    SScan scan;
    const char* const end = text.data() + text.size();
    const char* position = text.data();
    for (const auto part : versionParts) {
        unsigned short number = 0;
        const auto [rest, error] = std::from_chars(position, end, number);
        if (rest == position) break;
        if (error == std::errc::result_out_of_range) {
            number = largestPart;
            scan.Saturated = true;
        }
        scan.Version.*part = number;
        ++scan.Parts;
        scan.End = static_cast<std::size_t>(rest - text.data());
        if (rest == end || *rest != '.') break;
        position = rest + 1;
    }
    return scan;
}

}  // namespace

SVersion LeadingVersion(std::string_view text) {
    return Scan(text).Version;
}

SVersion SoftwareVersion(std::string_view debianVersion) {
    const std::size_t epochEnd = debianVersion.find(':');
    if (epochEnd != std::string_view::npos) debianVersion.remove_prefix(epochEnd + 1);
    return LeadingVersion(debianVersion.substr(0, debianVersion.rfind('-')));
}

std::optional<SStrictVersion> StrictVersion(std::string_view text) {
    const SScan scan = Scan(text);
    if (scan.Parts == 0 || scan.Saturated || scan.End != text.size()) return std::nullopt;
    return SStrictVersion{scan.Version, scan.Parts};
}

int Compare(const SVersion& left, const SVersion& right, int parts) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::clamp(parts, 0, 4)); ++i) {
        const int difference = int{left.*versionParts[i]} - int{right.*versionParts[i]};
        if (difference != 0) return difference;
    }
    return 0;
}

}  // namespace installer
