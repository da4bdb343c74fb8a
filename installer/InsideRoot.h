// SPDX-License-Identifier: Apache-2.0
// Files of a system in a folder, looked up as that system would look them up itself.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string_view>

#include "support/common/CDescriptor.h"

namespace installer {

// Opens what `path` names to a system whose root folder is `root`: an absolute link starts at `root`, and no
// ".." leads above it. Empty, with errno set, when it can't be opened. Creates nothing.
apigen::common::CDescriptor OpenInside(const std::filesystem::path& root, std::string_view path, int flags);

// Where that is, without a link on the way: for a program that would follow links in its own sense.
// Empty, with errno set, when it isn't there.
std::optional<std::filesystem::path> ResolveInside(const std::filesystem::path& root, std::string_view path);

// Links by where they stand in a system, without a slash in front, and their targets.
using Links = std::map<std::filesystem::path, std::filesystem::path>;

// The link by which a program that knows nothing of `root` gets out of it on its way to `path`; empty when there is
// none. What isn't there yet is no link, but for those that are about to be made: they are to come in the place of
// everything but a folder.
std::optional<std::filesystem::path> FindWayOut(const std::filesystem::path& root,
                                                const std::filesystem::path& path, const Links& coming = {});

}  // namespace installer
