// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace tarvo {

/// What makes a database of version n from one of version n - 1, at n - 1. One that has been released is never changed.
std::span<const char* const> Migrations();

}  // namespace tarvo
