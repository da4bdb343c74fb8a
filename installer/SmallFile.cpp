// SPDX-License-Identifier: Apache-2.0
#include "installer/SmallFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "support/common/CDescriptor.h"
#include "support/common/Waiting.h"

namespace installer {
namespace {

constexpr std::size_t factLimit = 64 * 1024;

[[noreturn]] void Throw(int error, const std::filesystem::path& path) {
    throw std::system_error(error, std::generic_category(), path.string());
}

}  // namespace

std::string ReadSmallFile(const std::filesystem::path& path, std::size_t limit) {
    const apigen::common::CDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) Throw(errno, path);
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) Throw(errno, path);
    if (S_ISDIR(status.st_mode)) Throw(EISDIR, path);
    if (!S_ISREG(status.st_mode)) Throw(EINVAL, path);

    std::string content;
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count =
            apigen::common::RetryInterrupted([&] { return read(file.Get(), chunk.data(), chunk.size()); });
        if (count < 0) Throw(errno, path);
        if (count == 0) return content;
        content.append(chunk.data(), static_cast<std::size_t>(count));
        if (content.size() > limit) Throw(EFBIG, path);
    }
}

std::optional<std::string> TryReadSmallFile(const std::filesystem::path& path) {
    try {
        return ReadSmallFile(path, factLimit);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

std::string Trimmed(std::string text) {
    constexpr const char* blanks = " \t\r\n";
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, text.find_first_not_of(blanks));
    return text;
}

}  // namespace installer
