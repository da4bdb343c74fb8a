// SPDX-License-Identifier: Apache-2.0
#include "installer/PackageLock.h"

#include <zamclientlib/Exceptions.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "installer/SmallFile.h"
#include "support/common/Text.h"

namespace installer {
namespace {

using apigen::common::ErrorText;
using apigen::common::Quoted;

constexpr std::string_view lockFiles[]{"/var/lib/dpkg/lock-frontend", "/var/lib/dpkg/lock"};

constexpr std::string_view lockMessages[]{
    "locked by another process",
    "is another process using it?",
    "Could not get lock",
};

std::string Holder(pid_t pid) {
    std::string holder = "process " + std::to_string(pid);
    if (const auto name = TryReadSmallFile("/proc/" + std::to_string(pid) + "/comm")) {
        holder += " (" + apigen::common::Escaped(Trimmed(*name)) + ")";
    }
    return holder;
}

void RequireUnlocked(const SInstallerContext& context, std::string_view lockFile) {
    const std::string path = context.Outside(lockFile).string();
    const auto file = context.Open(lockFile, O_RDONLY | O_NONBLOCK);
    if (!file) {
        if (errno == ENOENT) return;
        throw zamclientlib::CGenericException("Can't look at the package system's lock " + Quoted(path) +
                                              ": " + ErrorText(errno) + ".");
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(file.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK) {
        throw zamclientlib::CPackageManagerIsLocked("The package system is in use: " + Holder(lock.l_pid) +
                                                    " holds " + Quoted(path) +
                                                    ". Try again when it has finished.");
    }
}

}  // namespace

void RequireUnlocked(const SInstallerContext& context) {
    for (const std::string_view lockFile : lockFiles)
        RequireUnlocked(context, lockFile);
}

bool TellsOfLock(std::string_view words) {
    while (!words.empty()) {
        const std::string_view line = words.substr(0, words.find('\n'));
        words.remove_prefix(std::min(line.size() + 1, words.size()));
        // A package's scripts may say the like, of other locks.
        if (!line.starts_with("E: ") && !line.starts_with("dpkg: ")) continue;
        const auto isIn = [&](std::string_view message) {
            return line.find(message) != std::string_view::npos;
        };
        if (std::any_of(std::begin(lockMessages), std::end(lockMessages), isIn)) return true;
    }
    return false;
}

}  // namespace installer
