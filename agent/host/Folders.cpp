// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Folders.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "support/common/CDescriptor.h"
#include "support/common/Text.h"

namespace tarvo {
namespace {

using apigen::common::ErrorText;
using apigen::common::Quoted;

// What bind() takes, without the NUL at the end.
constexpr std::size_t LongestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

std::string FromEnvironment(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the agent changes the environment
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string HomeOfAccount() {
    passwd account{};
    passwd* found = nullptr;
    std::vector<char> buffer(16 * 1024);
    if (::getpwuid_r(::geteuid(), &account, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return {};
    return account.pw_dir != nullptr ? account.pw_dir : "";
}

bool IsAbsolute(std::string_view path) {
    return path.starts_with('/');
}

std::string WithoutSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

/// The folder that a variable names, or the usual one below the home.
std::string UsersFolder(const std::string& variable, const SFoldersSource& source, std::string_view usual) {
    if (IsAbsolute(variable)) return WithoutSlashes(variable) + "/tarvo";
    if (!IsAbsolute(source.Home))
        throw std::runtime_error("This user has no home folder: set HOME or TARVO_HOME to an absolute path");
    return WithoutSlashes(source.Home) + "/" + std::string(usual) + "/tarvo";
}

SFolders Below(const std::string& home) {
    return {home + "/tarvod.conf", home + "/state", home + "/run", home + "/log", home + "/cache"};
}

SFolders Chosen(const SFoldersSource& source) {
    if (!source.TarvoHome.empty()) {
        if (!IsAbsolute(source.TarvoHome)) {
            throw std::runtime_error("TARVO_HOME is to be an absolute path, not " + Quoted(source.TarvoHome));
        }
        return Below(source.TarvoHome == "/" ? "" : WithoutSlashes(source.TarvoHome));
    }
    if (source.IsRoot)
        return {"/etc/tarvo/tarvod.conf", "/var/lib/tarvo", "/run/tarvo", "/var/log/tarvo",
                "/var/cache/tarvo"};
    SFolders folders;
    folders.SettingsFile = UsersFolder(source.XdgConfigHome, source, ".config") + "/tarvod.conf";
    folders.State = UsersFolder(source.XdgStateHome, source, ".local/state");
    folders.Log = folders.State + "/log";
    folders.Cache = UsersFolder(source.XdgCacheHome, source, ".cache");
    // Without a session's run-time folder (from cron, say) there is one place that is the user's own and stays.
    folders.Run = IsAbsolute(source.XdgRuntimeDir) ? WithoutSlashes(source.XdgRuntimeDir) + "/tarvo"
                                                   : folders.State + "/run";
    return folders;
}

[[noreturn]] void Refuse(const std::string& path, const std::string& why) {
    throw std::runtime_error("The folder " + Quoted(path) + " can't be used: " + why);
}

void MakeFolder(const std::string& path) {
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (::mkdir(part.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            const int error = errno;
            struct stat status {};
            // A read-only or forbidden parent that is there already is no obstacle.
            if (::stat(part.c_str(), &status) != 0) Refuse(part, ErrorText(error));
        }
        if (slash == std::string::npos) break;
    }
    const apigen::common::CDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.Get(), &status) != 0) Refuse(path, ErrorText(errno));
    if (status.st_uid != ::geteuid()) Refuse(path, "it belongs to another user");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0 && ::fchmod(folder.Get(), S_IRWXU) != 0)
        Refuse(path, "others may enter it: " + ErrorText(errno));
}

}  // namespace

SFoldersSource FoldersSourceOfProcess() {
    SFoldersSource source;
    source.IsRoot = ::geteuid() == 0;
    source.TarvoHome = FromEnvironment("TARVO_HOME");
    source.Home = FromEnvironment("HOME");
    source.XdgConfigHome = FromEnvironment("XDG_CONFIG_HOME");
    source.XdgStateHome = FromEnvironment("XDG_STATE_HOME");
    source.XdgCacheHome = FromEnvironment("XDG_CACHE_HOME");
    source.XdgRuntimeDir = FromEnvironment("XDG_RUNTIME_DIR");
    if (!source.IsRoot && source.TarvoHome.empty() && source.Home.empty()) source.Home = HomeOfAccount();
    return source;
}

SFolders FoldersOf(const SFoldersSource& source) {
    SFolders folders = Chosen(source);
    for (const std::string& socket : {folders.ControlSocket(), folders.EventSocket()}) {
        if (socket.size() <= LongestSocketPath) continue;
        throw std::runtime_error("The path " + Quoted(socket) + " is too long for a socket (" +
                                 std::to_string(socket.size()) + " bytes of at most " +
                                 std::to_string(LongestSocketPath) + "): set TARVO_HOME to a shorter one");
    }
    return folders;
}

SFolders FoldersOfProcess() {
    return FoldersOf(FoldersSourceOfProcess());
}

void MakeFolders(const SFolders& folders) {
    for (const std::string& folder :
         {folders.State, folders.Run, folders.Log, folders.Cache, folders.Secrets(), folders.Lists()})
        MakeFolder(folder);
}

}  // namespace tarvo
