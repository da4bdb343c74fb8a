// SPDX-License-Identifier: Apache-2.0
#include "testagent/CPrivateDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "support/common/Waiting.h"

namespace testagent {
namespace {

using apigen::common::CDescriptor;

constexpr std::string_view Prefix = "testagent-";
constexpr std::string_view Random = "XXXXXX";

std::string Base() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes the environment
    const char* const base = std::getenv("TMPDIR");
    return base != nullptr && *base == '/' ? base : "/tmp";
}

bool IsNameOfOurs(std::string_view name) {
    return name.size() == Prefix.size() + Random.size() && name.substr(0, Prefix.size()) == Prefix;
}

/// The names in a directory; none when it can't be read.
std::vector<std::string> NamesIn(int directory) {
    std::vector<std::string> names;
    const int copy = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(copy >= 0 ? ::fdopendir(copy) : nullptr, &::closedir);
    if (entries == nullptr) return names;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this stream
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}

bool IsOwnSocket(int directory, const std::string& name) {
    struct stat status {};
    return name == CPrivateDirectory::SocketName &&
           ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISSOCK(status.st_mode);
}

/// Removes a directory that an agent has left behind, and none that is anything else.
void RemoveIfLeft(int base, const std::string& name) {
    const CDescriptor directory(
        ::openat(base, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!directory || ::fstat(directory.Get(), &status) != 0) return;
    if (status.st_uid != ::geteuid() || (status.st_mode & ALLPERMS) != S_IRWXU) return;
    // Whoever keeps it, or is about to listen in it, holds the lock.
    if (::flock(directory.Get(), LOCK_EX | LOCK_NB) != 0) return;
    const auto names = NamesIn(directory.Get());
    for (const auto& each : names) {
        if (!IsOwnSocket(directory.Get(), each)) return;
    }
    for (const auto& each : names)
        ::unlinkat(directory.Get(), each.c_str(), 0);
    ::unlinkat(base, name.c_str(), AT_REMOVEDIR);
}

void RemoveThoseLeft(const std::string& base) {
    const CDescriptor directory(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) return;
    for (const auto& name : NamesIn(directory.Get())) {
        if (IsNameOfOurs(name)) RemoveIfLeft(directory.Get(), name);
    }
}

}  // namespace

CPrivateDirectory::CPrivateDirectory() {
    const std::string base = Base();
    RemoveThoseLeft(base);
    m_path = base + "/" + std::string(Prefix) + std::string(Random);
    if (::mkdtemp(m_path.data()) == nullptr) {
        throw std::system_error(
            errno, std::generic_category(),
            "Making a folder for the event socket in " + base + ", the folder of $TMPDIR, failed");
    }
}

CPrivateDirectory::~CPrivateDirectory() {
    ::rmdir(m_path.c_str());
}

bool CPrivateDirectory::Keep() {
    m_lock = CDescriptor(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!m_lock) return false;
    (void)apigen::common::RetryInterrupted([&] { return ::flock(m_lock.Get(), LOCK_EX); });
    return ::faccessat(m_lock.Get(), SocketName, F_OK, 0) == 0;
}

}  // namespace testagent
