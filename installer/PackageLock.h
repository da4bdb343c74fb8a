// SPDX-License-Identifier: Apache-2.0
// Whether another program holds the package system.
#pragma once

#include <string_view>

#include "installer/SInstallerContext.h"

namespace installer {

// Throws CPackageManagerIsLocked, naming the holder, when a lock of the managed system's dpkg is taken.
// An early answer, not a guarantee: what was free may be taken a moment later.
void RequireUnlocked(const SInstallerContext& context);

// Whether apt-get or dpkg say with `words` that somebody else holds a lock.
bool TellsOfLock(std::string_view words);

}  // namespace installer
