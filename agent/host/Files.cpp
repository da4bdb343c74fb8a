// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Files.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "support/common/CDescriptor.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using apigen::common::CDescriptor;
using apigen::common::Quoted;
using apigen::common::RetryInterrupted;

[[noreturn]] void Fail(const std::string& what, int error) {
    throw std::system_error(error, std::generic_category(), what);
}

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

void WriteAll(int file, std::string_view bytes, const std::string& what) {
    while (!bytes.empty()) {
        const auto written = RetryInterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
        if (written < 0) Fail(what, errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void SyncFolder(const std::string& path) {
    const CDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) ::fsync(folder.Get());
}

}  // namespace

void WriteSecretFile(const std::string& path, std::string_view secret) {
    const std::string what = "Writing " + Quoted(path) + " failed";
    std::string draft = path + ".XXXXXX";
    const CDescriptor file(::mkostemp(draft.data(), O_CLOEXEC));  // made with mode 0600
    if (!file) Fail(what, errno);
    try {
        WriteAll(file.Get(), secret, what);
        if (::fsync(file.Get()) != 0 || ::rename(draft.c_str(), path.c_str()) != 0) Fail(what, errno);
    } catch (...) {
        ::unlink(draft.c_str());
        throw;
    }
    SyncFolder(FolderOf(path));
}

std::optional<std::string> ReadSecretFile(const std::string& path, std::size_t limit) {
    const std::string what = "Reading " + Quoted(path) + " failed";
    // Neither a link, which may lead to what is another's, nor a pipe, which may never answer.
    const CDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file && errno == ENOENT) return std::nullopt;
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0) Fail(what, errno);
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(what + ": it is no regular file");
    if (status.st_uid != ::geteuid() && status.st_uid != 0)
        throw std::runtime_error(what + ": it belongs to another user");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw std::runtime_error(what + ": others may read it; chmod 600 it");
    if (static_cast<std::uint64_t>(status.st_size) > limit) Fail(what, EFBIG);
    std::string secret(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t done = 0;
    while (done < secret.size()) {
        const auto count =
            RetryInterrupted([&] { return ::read(file.Get(), secret.data() + done, secret.size() - done); });
        if (count < 0) Fail(what, errno);
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    secret.resize(done);
    return secret;
}

bool RemoveFile(const std::string& path) {
    if (::unlink(path.c_str()) == 0) {
        SyncFolder(FolderOf(path));
        return true;
    }
    if (errno == ENOENT) return false;
    Fail("Removing " + Quoted(path) + " failed", errno);
}

std::optional<SSpace> SpaceOf(const std::string& path) {
    struct statvfs status {};
    if (RetryInterrupted([&] { return ::statvfs(path.c_str(), &status); }) != 0) return std::nullopt;
    if (status.f_blocks == 0) return std::nullopt;  // nothing that has a size
    const auto bytes = [&](unsigned long long blocks) {
        constexpr auto Most = static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max());
        const unsigned long long unit = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
        return static_cast<std::int64_t>(blocks > Most / unit ? Most : blocks * unit);
    };
    return SSpace{bytes(status.f_blocks), bytes(status.f_bavail)};
}

std::string UserName(unsigned user) {
    passwd account{};
    passwd* found = nullptr;
    std::vector<char> buffer(16 * 1024);
    if (::getpwuid_r(user, &account, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return std::to_string(user);
    return account.pw_name;
}

}  // namespace tarvo
