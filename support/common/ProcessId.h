// SPDX-License-Identifier: Apache-2.0
/// \file
/// Which process this is, for objects that a fork copies but whose descriptors it shares.
#pragma once

#include <apigen/Export.h>

#include <sys/types.h>

namespace apigen::common {

/// As `getpid`, mostly without its system call: it may be asked at every event.
APIGEN_API pid_t ProcessId() noexcept;

}  // namespace apigen::common
