// SPDX-License-Identifier: Apache-2.0
// What an entry of a list of packages to install means; one rule for who writes such lists and who carries them out.
#pragma once

#include <string_view>

namespace installer {

// A package file, when true; the name of a package of the distribution otherwise.
inline bool IsFileEntry(std::string_view entry) {
    return entry.empty() || entry.find('/') != std::string_view::npos || entry.ends_with(".deb");
}

}  // namespace installer
