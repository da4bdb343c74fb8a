// SPDX-License-Identifier: Apache-2.0
#include "installer/PackageLock.h"

#include <zamclientlib/Exceptions.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "installer/SmallFile.h"
#include "support/common/CDescriptor.h"
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

void RequireUnlocked(const std::filesystem::path& path) {
    const apigen::common::CDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        if (errno == ENOENT) return;
        throw zamclientlib::CGenericException("Can't look at the package system's lock " +
                                              Quoted(path.string()) + ": " + ErrorText(errno) + ".");
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(file.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK) {
        throw zamclientlib::CPackageManagerIsLocked("The package system is in use: " + Holder(lock.l_pid) +
                                                    " holds " + Quoted(path.string()) +
                                                    ". Try again when it has finished.");
    }
}

}  // namespace

void RequireUnlocked(const SInstallerContext& context) {
    for (const std::string_view lockFile : lockFiles)
        RequireUnlocked(context.Inside(lockFile));
}

bool TellsOfLock(std::string_view errorText) {
    return std::any_of(std::begin(lockMessages), std::end(lockMessages), [&](std::string_view message) {
        return errorText.find(message) != std::string_view::npos;
    });
}

}  // namespace installer
