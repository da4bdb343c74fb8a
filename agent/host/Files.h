// SPDX-License-Identifier: Apache-2.0
/// \file
/// Small files of the agent's own, secrets among them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// Replaces the file at once and durably: mode 0600, never seen half, there after a power cut.
/// \throws std::system_error
void WriteSecretFile(const std::string& path, std::string_view secret);

/// Empty when there is none. Refuses one that is no regular file, is another user's or may be read by others.
/// \throws std::system_error, std::runtime_error
std::optional<std::string> ReadSecretFile(const std::string& path, std::size_t limit = 64 * 1024);

/// True when there was one.
bool RemoveFile(const std::string& path);

struct SSpace {
    std::int64_t Capacity = 0;
    std::int64_t Free = 0;  ///< for this user
};

/// Of the file system that `path` is on; empty when that can't be told.
std::optional<SSpace> SpaceOf(const std::string& path);

/// The name of an account; its number when it has none.
std::string UserName(unsigned user);

}  // namespace tarvo
