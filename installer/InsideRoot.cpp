// SPDX-License-Identifier: Apache-2.0
#include "installer/InsideRoot.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "support/common/Waiting.h"

namespace installer {
namespace {

using apigen::common::CDescriptor;
using apigen::common::RetryInterrupted;

constexpr int mostLinks = 40;  // as many as the kernel follows

CDescriptor OpenAt(const CDescriptor& folder, const std::string& name, int flags) {
    return CDescriptor(
        RetryInterrupted([&] { return openat(folder.Get(), name.c_str(), flags | O_CLOEXEC); }));
}

CDescriptor Fail(int error) {
    errno = error;
    return {};
}

// Adds the parts of `path` to `parts`, the first one last.
void PushParts(std::vector<std::string>& parts, std::string_view path) {
    for (std::size_t end = path.size();;) {
        const std::size_t slash = end == 0 ? std::string_view::npos : path.rfind('/', end - 1);
        const std::size_t start = slash == std::string_view::npos ? 0 : slash + 1;
        // What stands behind a slash must be a folder, "." or nothing as well.
        if (end > start || end == path.size()) parts.emplace_back(path.substr(start, end - start));
        if (slash == std::string_view::npos) return;
        end = slash;
    }
}

std::string LinkTarget(const CDescriptor& link) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlinkat(link.Get(), "", target.data(), target.size());
    return {target.data(), static_cast<std::size_t>(length > 0 ? length : 0)};
}

// Goes link by link, in descriptors: what is renamed meanwhile leads nowhere else.
CDescriptor Walk(CDescriptor root, std::string_view path, int flags) {
    std::vector<CDescriptor> folders;  // the way from the root
    folders.push_back(std::move(root));
    std::vector<std::string> parts;
    PushParts(parts, path);
    int links = 0;
    while (!parts.empty()) {
        const std::string name = std::move(parts.back());
        parts.pop_back();
        if (name.empty() || name == ".") continue;
        if (name == "..") {
            if (folders.size() > 1) folders.pop_back();
            continue;
        }
        CDescriptor entry = OpenAt(folders.back(), name, O_PATH | O_NOFOLLOW);
        struct stat status {};
        if (!entry || fstat(entry.Get(), &status) != 0) return {};
        if (S_ISLNK(status.st_mode)) {
            if (++links > mostLinks) return Fail(ELOOP);
            const std::string target = LinkTarget(entry);
            if (target.empty()) return Fail(ENOENT);
            if (target.front() == '/') folders.resize(1);
            PushParts(parts, target);
        } else if (S_ISDIR(status.st_mode)) {
            folders.push_back(std::move(entry));
        } else {
            return parts.empty() ? OpenAt(folders.back(), name, flags | O_NOFOLLOW) : Fail(ENOTDIR);
        }
    }
    return OpenAt(folders.back(), ".", flags);
}

}  // namespace

CDescriptor OpenInside(const std::filesystem::path& root, std::string_view path, int flags) {
    if (path.find('\0') != std::string_view::npos) return Fail(EINVAL);
    CDescriptor folder(
        RetryInterrupted([&] { return open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder) return {};
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT;
    const std::string name = path.empty() ? "." : std::string(path);
    CDescriptor file(static_cast<int>(RetryInterrupted(
        [&] { return syscall(SYS_openat2, folder.Get(), name.c_str(), &how, sizeof how); })));
    // An old kernel, a filter of system calls that doesn't know this one, or a rename meanwhile.
    if (!file && (errno == ENOSYS || errno == EPERM || errno == EAGAIN)) {
        return Walk(std::move(folder), path, flags);
    }
    return file;
}

std::optional<std::filesystem::path> ResolveInside(const std::filesystem::path& root, std::string_view path) {
    const CDescriptor file = OpenInside(root, path, O_PATH);
    if (!file) return std::nullopt;
    std::error_code error;
    auto resolved = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file.Get()), error);
    if (!error) return resolved;
    errno = error.value();
    return std::nullopt;
}

std::optional<std::filesystem::path> FindWayOut(const std::filesystem::path& root,
                                                const std::filesystem::path& path, const Links& coming) {
    namespace fs = std::filesystem;
    std::vector<std::string> parts;
    PushParts(parts, path.relative_path().lexically_normal().native());
    std::optional<fs::path> link;  // the last on the way
    int links = 0;
    for (fs::path at; !parts.empty();) {
        const std::string name = std::move(parts.back());
        parts.pop_back();
        if (name.empty() || name == ".") continue;
        if (name == "..") {
            if (at.empty() && link) return link;
            at = at.parent_path();
            continue;
        }
        at /= name;
        std::error_code error;
        const auto kind = fs::symlink_status(root / at, error).type();
        const auto made = coming.find(at);
        const bool isMade = made != coming.end() && kind != fs::file_type::directory;
        if (!isMade && kind != fs::file_type::symlink) continue;
        if (++links > mostLinks) return std::nullopt;  // nobody gets anywhere by these
        const fs::path target = isMade ? made->second : fs::read_symlink(root / at, error);
        link = root / at;
        if (target.is_absolute()) return link;
        at = at.parent_path();
        PushParts(parts, target.native());
    }
    return std::nullopt;
}

}  // namespace installer
