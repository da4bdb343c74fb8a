// SPDX-License-Identifier: Apache-2.0
// Version texts of releases and packages as four-part numbers.
#pragma once

#include <zamclientlib/CommonRecords.h>

#include <optional>
#include <string_view>

namespace installer {

// The leading numeric parts of a version text, at most four: "12" -> 12.0.0.0, "6.1~rc2" -> 6.1.0.0,
// "sid" -> zero. A part beyond 65535 counts as 65535.
zamclientlib::SVersion LeadingVersion(std::string_view text);

// The version of the software in a Debian package version "[epoch:]upstream[-revision]". Epoch and revision
// belong to the packaging, not to the software, and are dropped: "1:6.0.3.1221-2" -> 6.0.3.1221.
zamclientlib::SVersion SoftwareVersion(std::string_view debianVersion);

// A version text that holds nothing but one to four numbers of 0 to 65535 with dots between them.
struct SStrictVersion {
    zamclientlib::SVersion Version;
    int Parts = 0;
};
std::optional<SStrictVersion> StrictVersion(std::string_view text);

// Compares the first `parts` parts: negative, zero or positive.
int Compare(const zamclientlib::SVersion& left, const zamclientlib::SVersion& right, int parts = 4);

}  // namespace installer
