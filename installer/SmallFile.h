// SPDX-License-Identifier: Apache-2.0
// Small text files of the host, read whole.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace installer {

// The content of the regular file (or file of /proc or /sys) at `path`.
// Throws std::system_error; EFBIG when it holds more than `limit` bytes. Never blocks on a FIFO.
std::string ReadSmallFile(const std::filesystem::path& path, std::size_t limit);

// The same for a fact of the host that may be missing: empty when the file can't be read.
std::optional<std::string> TryReadSmallFile(const std::filesystem::path& path);

// `text` without white space at its ends.
std::string Trimmed(std::string text);

}  // namespace installer
