// SPDX-License-Identifier: Apache-2.0
// The file that tells which operating system this is.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace installer {

// The assignments of an os-release text: shell syntax without expansions. Comments, and lines that are no
// assignment of that kind, are skipped; the last assignment of a name wins.
std::map<std::string, std::string> ParseOsRelease(std::string_view text);

}  // namespace installer
