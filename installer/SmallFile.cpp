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

using apigen::common::CDescriptor;

constexpr std::size_t factLimit = 64 * 1024;
constexpr int readingFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

[[noreturn]] void Throw(int error) {
    throw std::system_error(error, std::generic_category());
}

// Of a file as it came from opening it.
std::string Content(const CDescriptor& file, std::size_t limit) {
    if (!file) Throw(errno);
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) Throw(errno);
    if (S_ISDIR(status.st_mode)) Throw(EISDIR);
    if (!S_ISREG(status.st_mode)) Throw(EINVAL);

    std::string content;
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count =
            apigen::common::RetryInterrupted([&] { return read(file.Get(), chunk.data(), chunk.size()); });
        if (count < 0) Throw(errno);
        if (count == 0) return content;
        content.append(chunk.data(), static_cast<std::size_t>(count));
        if (content.size() > limit) Throw(EFBIG);
    }
}

std::optional<std::string> TryContent(const CDescriptor& file) {
    try {
        return Content(file, factLimit);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace

std::string ReadSmallFile(const std::filesystem::path& path, std::size_t limit) {
    return Content(CDescriptor(open(path.c_str(), readingFlags)), limit);
}

std::optional<std::string> TryReadSmallFile(const std::filesystem::path& path) {
    return TryContent(CDescriptor(open(path.c_str(), readingFlags)));
}

std::optional<std::string> TryReadSmallFile(const SInstallerContext& context, std::string_view path) {
    return TryContent(context.Open(path, readingFlags));
}

std::string Trimmed(std::string text) {
    constexpr const char* blanks = " \t\r\n";
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, text.find_first_not_of(blanks));
    return text;
}

}  // namespace installer
