// SPDX-License-Identifier: Apache-2.0
#include "installer/CDebianPackageManager.h"

#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "installer/PackageLock.h"
#include "installer/SmallFile.h"
#include "support/common/Text.h"

namespace installer {
namespace {

using apigen::common::ErrorText;
using apigen::common::Quoted;
using zamclientlib::CGenericException;
using zamclientlib::CPackageManagerIsLocked;

constexpr auto archiveCheckLimit = std::chrono::minutes(10);

// Ends an entry of dpkg-query's answer; a description never holds it.
constexpr char entryEnd = '\x1e';

// Debian policy 5.6.1: a name is more than wildcards, options and other programs' separators can spoil.
void RequirePackageName(const std::string& name) {
    const auto isAlphanumeric = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    const bool isName = name.size() >= 2 && isAlphanumeric(name.front()) &&
                        std::all_of(name.begin(), name.end(), [&](char c) {
                            return isAlphanumeric(c) || c == '+' || c == '-' || c == '.';
                        });
    if (!isName) {
        throw CGenericException(Quoted(name) +
                                " is no package name: a name has two characters or more, lower-case letters, "
                                "digits, '+', '-' and '.', and begins with a letter or digit.");
    }
}

[[noreturn]] void ThrowBadFile(const std::filesystem::path& path, const std::string& reason) {
    throw CGenericException("Can't use the package file " + Quoted(path.string()) + ": " + reason + ".");
}

// An absolute path, which no program takes for an option.
std::filesystem::path RequireReadableFile(const std::string& path) {
    if (path.empty()) throw CGenericException("The path of a package file is empty.");
    if (path.find('\0') != std::string::npos) ThrowBadFile(path, "the path holds a NUL character");
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) ThrowBadFile(path, error.message());
    struct stat status {};
    if (stat(absolute.c_str(), &status) != 0) ThrowBadFile(absolute, ErrorText(errno));
    if (!S_ISREG(status.st_mode)) ThrowBadFile(absolute, "it is no regular file");
    if (access(absolute.c_str(), R_OK) != 0) ThrowBadFile(absolute, ErrorText(errno));
    return absolute;
}

struct SPackageIdentity {
    std::string Name;
    std::string Version;
};

SPackageIdentity ReadIdentity(const std::filesystem::path& path) {
    const SCommandResult result =
        RunQuery({"dpkg-deb", {"--show", "--showformat=${Package}\\n${Version}", "--", path.string()}});
    if (!result.Succeeded()) ThrowBadFile(path, "it is no Debian package (" + result.Failure() + ")");
    const std::size_t lineEnd = result.Output.find('\n');
    SPackageIdentity identity{result.Output.substr(0, lineEnd),
                              lineEnd == std::string::npos ? "" : result.Output.substr(lineEnd + 1)};
    RequirePackageName(identity.Name);
    return identity;
}

// Finds a file that was cut off or damaged before dpkg finds it half-way through.
void RequireWholeArchive(const std::filesystem::path& path) {
    const SCommandResult result = RunQuery(
        {"dpkg-deb", {"--fsys-tarfile", "--", path.string()}, /*DropOutput=*/true}, archiveCheckLimit);
    if (!result.Succeeded()) ThrowBadFile(path, "it is damaged (" + result.Failure() + ")");
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : ", ") + apigen::common::Escaped(text);
    return joined;
}

}  // namespace

apigen::Optional<zamclientlib::SPackageInfo> CDebianPackageManager::FindInstalledPackage(
    std::string packageName) const {
    auto entry = Look(packageName);
    if (!entry || !entry->IsInstalled()) return {};
    return std::move(entry->Info);
}

void CDebianPackageManager::InstalLocalPackages(std::vector<std::string> pkgPaths) const {
    InstallFiles(pkgPaths, EPurpose::Install);
}

void CDebianPackageManager::UpdateLocalPackages(std::vector<std::string> pkgPaths) const {
    InstallFiles(pkgPaths, EPurpose::Update);
}

void CDebianPackageManager::RemovePackages(std::vector<std::string> pkgNames) const {
    if (pkgNames.empty()) return;
    for (const std::string& name : pkgNames) {
        if (!IsPresent(name)) {
            throw CGenericException("Can't remove the package '" + name + "': it is not installed.");
        }
    }
    std::vector<std::string> arguments = m_context.IsRunningSystem()
                                             ? std::vector<std::string>{"remove", "-y", "--"}
                                             : std::vector<std::string>{"--remove", "--"};
    arguments.insert(arguments.end(), pkgNames.begin(), pkgNames.end());
    Change("Remove packages: " + Joined(pkgNames), m_context.IsRunningSystem()
                                                       ? SCommand{"apt-get", std::move(arguments)}
                                                       : Dpkg(std::move(arguments)));
}

std::string CDebianPackageManager::GetPackageNameFromFile(std::string pkgPath) const {
    return ReadIdentity(RequireReadableFile(pkgPath)).Name;
}

bool CDebianPackageManager::IsPresent(const std::string& packageName) const {
    const auto entry = Look(packageName);
    return entry && entry->IsPresent();
}

std::optional<CDebianPackageManager::SDatabaseEntry> CDebianPackageManager::Look(
    const std::string& packageName) const {
    RequirePackageName(packageName);
    const SCommandResult result =
        RunQuery({"dpkg-query",
                  {"--admindir=" + m_context.Inside("/var/lib/dpkg").string(), "--show",
                   std::string("--showformat=${db:Status-Status}\\n${Version}\\n${Description}") + entryEnd,
                   "--", packageName}});
    // 1 tells that there is no such package; anything worse is 2.
    if (result.ExitStatus() == 1) return std::nullopt;
    if (!result.Succeeded()) {
        throw CGenericException("Can't look up the package '" + packageName + "': dpkg-query failed with " +
                                result.Failure());
    }

    std::optional<SDatabaseEntry> found;
    std::string_view rest = result.Output;
    // A package of several architectures has several entries: one that is installed counts.
    while (!rest.empty() && !(found && found->IsInstalled())) {
        const std::string_view entry = rest.substr(0, rest.find(entryEnd));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        const std::size_t statusEnd = entry.find('\n');
        const std::size_t versionEnd = entry.find('\n', statusEnd + 1);
        if (statusEnd == std::string_view::npos || versionEnd == std::string_view::npos) continue;
        SDatabaseEntry candidate;
        candidate.Status = entry.substr(0, statusEnd);
        candidate.Info.Name = packageName;
        candidate.Info.VersionRaw = entry.substr(statusEnd + 1, versionEnd - statusEnd - 1);
        candidate.Info.Description = entry.substr(versionEnd + 1);
        if (!found || candidate.IsInstalled() || (!found->IsPresent() && candidate.IsPresent())) {
            found = std::move(candidate);
        }
    }
    return found;
}

std::vector<CDebianPackageManager::SPackageFile> CDebianPackageManager::CheckFiles(
    const std::vector<std::string>& paths, EPurpose purpose) const {
    std::vector<SPackageFile> files;
    for (const std::string& path : paths) {
        SPackageFile file{RequireReadableFile(path), {}, {}};
        if (m_context.IsRunningSystem() && file.Path.extension() != ".deb") {
            ThrowBadFile(file.Path, "apt-get takes only files whose name ends in .deb");
        }
        SPackageIdentity identity = ReadIdentity(file.Path);
        file.Name = std::move(identity.Name);
        file.Version = std::move(identity.Version);
        RequireWholeArchive(file.Path);
        const auto entry = Look(file.Name);
        if (entry && entry->IsInstalled()) {
            RequireNoDowngrade(file, *entry);
        } else if (purpose == EPurpose::Update) {
            throw CGenericException("Can't update the package '" + file.Name + "' from " +
                                    Quoted(file.Path.string()) +
                                    ": it is not installed. Install it instead.");
        }
        files.push_back(std::move(file));
    }
    return files;
}

void CDebianPackageManager::RequireNoDowngrade(const SPackageFile& file,
                                               const SDatabaseEntry& installed) const {
    const SCommandResult isOlder =
        RunQuery({"dpkg", {"--compare-versions", file.Version, "lt", installed.Info.VersionRaw}});
    if (isOlder.Succeeded()) {
        throw CGenericException("Can't install " + Quoted(file.Path.string()) + ": its version " +
                                file.Version + " of the package '" + file.Name +
                                "' is older than the installed " + installed.Info.VersionRaw +
                                ". Remove the package first.");
    }
}

void CDebianPackageManager::InstallFiles(const std::vector<std::string>& paths, EPurpose purpose) const {
    if (paths.empty()) return;
    std::vector<std::string> checkedPaths;
    for (const SPackageFile& file : CheckFiles(paths, purpose))
        checkedPaths.push_back(file.Path.string());
    const std::string what =
        (purpose == EPurpose::Install ? "Install packages: " : "Update packages: ") + Joined(checkedPaths);

    // Nobody can be asked what becomes of a changed configuration file: it stays as the administrator left
    // it.
    std::vector<std::string> arguments =
        m_context.IsRunningSystem()
            ? std::vector<std::string>{"install",
                                       "-y",
                                       "--no-install-recommends",
                                       "-oDpkg::Options::=--force-confdef",
                                       "-oDpkg::Options::=--force-confold",
                                       "--"}
            : std::vector<std::string>{"--force-confdef", "--force-confold", "--install", "--"};
    arguments.insert(arguments.end(), checkedPaths.begin(), checkedPaths.end());
    Change(what, m_context.IsRunningSystem() ? SCommand{"apt-get", std::move(arguments)}
                                             : Dpkg(std::move(arguments)));
}

void CDebianPackageManager::Change(const std::string& what, const SCommand& command) const {
    RequireUnlocked(m_context);
    m_context.Log->Info(what);
    const SCommandResult result = RunChange(command);
    if (result.Succeeded()) {
        m_context.Log->Info("Done: " + what);
        return;
    }
    const std::string message = what + ": " + command.Program + " failed with " + result.Failure();
    m_context.Log->Info(message);
    if (TellsOfLock(result.ErrorText)) throw CPackageManagerIsLocked(message);
    throw CGenericException(message);
}

SCommand CDebianPackageManager::Dpkg(std::vector<std::string> arguments) const {
    // The log that the host's configuration names is the host's, whatever the root.
    const std::filesystem::path log = m_context.Inside("/var/log/dpkg.log");
    std::error_code error;
    const bool hasLogFolder = std::filesystem::is_directory(log.parent_path(), error);
    arguments.insert(arguments.begin(), {"--root=" + m_context.Root.string(),
                                         "--log=" + (hasLogFolder ? log.string() : "/dev/null")});
    return {"dpkg", std::move(arguments)};
}

}  // namespace installer
