// SPDX-License-Identifier: Apache-2.0
// Small text files, read whole.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "installer/SInstallerContext.h"

namespace installer {

// The content of the regular file (or file of /proc or /sys) at `path`.
// Throws std::system_error; EINVAL when it is no such file, EFBIG when it holds more than `limit` bytes. Never
// blocks on a FIFO.
std::string ReadSmallFile(const std::filesystem::path& path, std::size_t limit);

// The same for a fact that may be missing: empty when the file can't be read.
std::optional<std::string> TryReadSmallFile(const std::filesystem::path& path);

// A fact of the managed system.
std::optional<std::string> TryReadSmallFile(const SInstallerContext& context, std::string_view path);

// `text` without white space at its ends.
std::string Trimmed(std::string text);

}  // namespace installer
