// SPDX-License-Identifier: Apache-2.0
/// \file
/// Descriptors that are handed to another process, over a Unix socket.
#pragma once

#include <apigen/Export.h>

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "support/common/CDescriptor.h"

namespace apigen::common {

/// What may come with one message; of more, the system keeps the rest from us.
constexpr std::size_t MaxPassedDescriptors = 16;

/// As `send`, without SIGPIPE; copies of the descriptors go with the bytes.
APIGEN_API ssize_t SendWithDescriptors(int socket, std::string_view bytes, std::span<const int> descriptors);

struct SPassedDescriptors {
    std::vector<CDescriptor> All;  ///< closed across `exec`
    bool IsTruncated = false;      ///< there were others
};

/// As `recv`, without waiting; what comes with the bytes joins `passed`.
APIGEN_API ssize_t ReceiveWithDescriptors(int socket, std::span<char> into, SPassedDescriptors& passed);

}  // namespace apigen::common
