// SPDX-License-Identifier: Apache-2.0
#include "installer/CDebianPackageManager.h"

#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "installer/ListedPackage.h"
#include "installer/PackageLock.h"
#include "installer/SmallFile.h"
#include "support/common/Text.h"

namespace installer {
namespace {

using apigen::common::ErrorText;
using apigen::common::Escaped;
using apigen::common::Quoted;
using zamclientlib::CGenericException;
using zamclientlib::CPackageManagerIsLocked;

constexpr const char* databaseFolder = "/var/lib/dpkg";

constexpr auto archiveCheckLimit = std::chrono::minutes(10);

// Themes of icons have links by the ten thousand.
constexpr std::size_t mostListing = 256UL * 1024 * 1024;

// Ends an entry of dpkg-query's answer; a description never holds it.
constexpr char entryEnd = '\x1e';

// Debian policy 5.6.1: a name is more than wildcards, options and other programs' separators can spoil.
bool IsPackageName(const std::string& name) {
    const auto isAlphanumeric = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    return name.size() >= 2 && isAlphanumeric(name.front()) &&
           std::all_of(name.begin(), name.end(),
                       [&](char c) { return isAlphanumeric(c) || c == '+' || c == '-' || c == '.'; });
}

void RequirePackageName(const std::string& name) {
    if (!IsPackageName(name)) {
        throw CGenericException(Quoted(name) +
                                " is no package name: a name has two characters or more, lower-case letters, "
                                "digits, '+', '-' and '.', and begins with a letter or digit.");
    }
}

[[noreturn]] void ThrowBadFile(const std::filesystem::path& path, const std::string& reason) {
    throw CGenericException("Can't use the package file " + Quoted(path.string()) + ": " + reason + ".");
}

struct SReadableFile {
    std::filesystem::path Path;  // absolute, which no program takes for an option
    struct stat Status {};
};

SReadableFile RequireReadableFile(const std::string& path) {
    if (path.empty()) throw CGenericException("The path of a package file is empty.");
    if (path.find('\0') != std::string::npos) ThrowBadFile(path, "the path holds a NUL character");
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) ThrowBadFile(path, ErrorText(error.value()));
    struct stat status {};
    if (stat(absolute.c_str(), &status) != 0) ThrowBadFile(absolute, ErrorText(errno));
    if (!S_ISREG(status.st_mode)) ThrowBadFile(absolute, "it is no regular file");
    if (access(absolute.c_str(), R_OK) != 0) ThrowBadFile(absolute, ErrorText(errno));
    return {std::move(absolute), status};
}

// Checking large packages takes a while, in which somebody may go on copying them.
void RequireUnchanged(const std::filesystem::path& path, const struct stat& before) {
    const auto isSame = [](const timespec& left, const timespec& right) {
        return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
    };
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) ThrowBadFile(path, ErrorText(errno));
    if (now.st_dev != before.st_dev || now.st_ino != before.st_ino || now.st_size != before.st_size ||
        !isSame(now.st_mtim, before.st_mtim) || !isSame(now.st_ctim, before.st_ctim)) {
        ThrowBadFile(path, "it was changed while it was checked");
    }
}

struct SPackageIdentity {
    std::string Name;
    std::string Version;
    std::string Architecture;
};

SPackageIdentity ReadIdentity(const std::filesystem::path& path) {
    const SCommandResult result =
        RunQuery({"dpkg-deb",
                  {"--show", "--showformat=${Package}\\n${Version}\\n${Architecture}", "--", path.string()}});
    if (!result.Succeeded())
        ThrowBadFile(path, "it is no Debian package (dpkg-deb " + result.Failure() + ")");
    std::string_view rest = result.Output;
    const auto nextLine = [&rest] {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        return std::string(line);
    };
    SPackageIdentity identity;
    identity.Name = nextLine();
    identity.Version = nextLine();
    identity.Architecture = nextLine();
    if (!IsPackageName(identity.Name)) {
        ThrowBadFile(path,
                     "it holds a package called " + Quoted(identity.Name) + ", which is no package name");
    }
    return identity;
}

// Finds a file that was cut off or damaged before dpkg finds it half-way through.
void RequireWholeArchive(const std::filesystem::path& path) {
    const SCommandResult result = RunQuery(
        {"dpkg-deb", {"--fsys-tarfile", "--", path.string()}, /*DropOutput=*/true}, archiveCheckLimit);
    if (!result.Succeeded()) ThrowBadFile(path, "it is damaged (dpkg-deb " + result.Failure() + ")");
}

std::string CannotInstall(const std::filesystem::path& file) {
    return "Can't install " + Quoted(file.string());
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : ", ") + Escaped(text);
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
    InstallListed(pkgPaths, EPurpose::Install);
}

void CDebianPackageManager::UpdateLocalPackages(std::vector<std::string> pkgPaths) const {
    InstallListed(pkgPaths, EPurpose::Update);
}

void CDebianPackageManager::RemovePackages(std::vector<std::string> pkgNames) const {
    if (pkgNames.empty()) return;
    for (const std::string& name : pkgNames) {
        if (!IsPresent(name)) {
            throw CGenericException("Can't remove the package '" + name + "': it is not installed.");
        }
        RequireNoWayOut(name);
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
    return ReadIdentity(RequireReadableFile(pkgPath).Path).Name;
}

bool CDebianPackageManager::IsPresent(const std::string& packageName) const {
    const auto entry = Look(packageName);
    return entry && entry->IsPresent();
}

std::optional<CDebianPackageManager::SDatabaseEntry> CDebianPackageManager::Look(
    const std::string& packageName) const {
    RequirePackageName(packageName);
    const std::string database = Database();
    if (database.empty()) return std::nullopt;
    const SCommandResult result =
        RunQuery({"dpkg-query",
                  {"--admindir=" + database, "--show",
                   std::string("--showformat=${db:Status-Status}\\n${Version}\\n${Description}") + entryEnd,
                   "--", packageName}});
    // 1 tells that there is no such package; anything worse is 2.
    if (result.ExitStatus() == 1) return std::nullopt;
    if (!result.Succeeded()) {
        throw CGenericException("Can't look up the package '" + packageName + "': dpkg-query " +
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

CDebianPackageManager::SNeeds CDebianPackageManager::Check(const std::vector<std::string>& entries,
                                                           EPurpose purpose) const {
    SNeeds needs;
    for (const std::string& entry : entries) {
        if (!IsFileEntry(entry)) continue;
        SPackageFile file = CheckFile(entry, purpose);
        const auto same =
            std::find_if(needs.Files.begin(), needs.Files.end(), [&](const SPackageFile& other) {
                return other.Name == file.Name && other.Architecture == file.Architecture;
            });
        if (same == needs.Files.end()) {
            needs.Files.push_back(std::move(file));
        } else if (same->Path != file.Path) {
            throw CGenericException("Can't install both " + Quoted(same->Path.string()) + " and " +
                                    Quoted(file.Path.string()) + ": each holds the package '" + file.Name +
                                    "'.");
        }
    }
    RequireNoWayOut(needs.Files);
    for (const std::string& entry : entries) {
        if (IsFileEntry(entry)) continue;
        if (!IsPackageName(entry)) {
            throw CGenericException(Quoted(entry) +
                                    " is neither the path of a file, which has a '/' or ends in .deb, nor a "
                                    "package name.");
        }
        const bool isListedAsFile = std::any_of(needs.Files.begin(), needs.Files.end(),
                                                [&](const SPackageFile& file) { return file.Name == entry; });
        const auto installed = Look(entry);
        if (isListedAsFile || (installed && installed->IsInstalled())) continue;
        RequireObtainable(entry, purpose);
        needs.Names.push_back(entry);
    }
    return needs;
}

CDebianPackageManager::SPackageFile CDebianPackageManager::CheckFile(const std::string& path,
                                                                     EPurpose purpose) const {
    SReadableFile readable = RequireReadableFile(path);
    SPackageFile file{std::move(readable.Path), readable.Status, {}, {}, {}, {}, {}};
    if (m_context.IsRunningSystem() && file.Path.extension() != ".deb") {
        ThrowBadFile(file.Path, "apt-get takes only files whose name ends in .deb");
    }
    SPackageIdentity identity = ReadIdentity(file.Path);
    file.Name = std::move(identity.Name);
    file.Version = std::move(identity.Version);
    file.Architecture = std::move(identity.Architecture);
    RequireWholeArchive(file.Path);
    if (!m_context.IsRunningSystem()) {
        file.Folders = ListedFolders(CannotInstall(file.Path),
                                     R"(dpkg-deb --fsys-tarfile -- "$1" | tar -t --quoting-style=literal)",
                                     file.Path.string());
        file.BroughtLinks = ListedLinks(file);
    }
    const auto entry = Look(file.Name);
    if (entry && entry->IsPresent()) RequireNoWayOut(file.Name);
    if (entry && entry->IsInstalled()) {
        RequireNoDowngrade(file, *entry);
    } else if (purpose == EPurpose::Update) {
        throw CGenericException("Can't update the package '" + file.Name + "' from " +
                                Quoted(file.Path.string()) + ": it is not installed. Install it instead.");
    }
    return file;
}

void CDebianPackageManager::RequireObtainable(const std::string& packageName, EPurpose purpose) const {
    if (purpose == EPurpose::Update) {
        throw CGenericException("Can't update the package '" + packageName +
                                "': it is not installed. Install it instead.");
    }
    if (!m_context.IsRunningSystem()) {
        throw CGenericException("Can't install the package '" + packageName + "' in " +
                                Quoted(m_context.Root.string()) +
                                " by its name: only the running system gets packages from its distribution. "
                                "Install it there first, or list its file.");
    }
    // apt-get would remove "x" where no package is called "x-".
    if (packageName.back() == '-') {
        throw CGenericException("Can't install the package '" + packageName +
                                "': apt-get takes the '-' at its end for a wish to remove.");
    }
}

void CDebianPackageManager::RequireNoWayOut(const std::vector<SPackageFile>& files) const {
    Links brought;
    for (const SPackageFile& file : files)
        brought.insert(file.BroughtLinks.begin(), file.BroughtLinks.end());
    for (const SPackageFile& file : files) {
        for (const std::filesystem::path& folder : file.Folders) {
            const auto link = FindWayOut(m_context.Root, folder, brought);
            if (!link) continue;
            const auto bringing = std::find_if(files.begin(), files.end(), [&](const SPackageFile& each) {
                return each.BroughtLinks.contains(link->lexically_relative(m_context.Root));
            });
            ThrowWayOut(CannotInstall(file.Path), *link, bringing != files.end() ? bringing->Name : "");
        }
    }
}

void CDebianPackageManager::RequireNoWayOut(const std::string& installedPackage) const {
    if (m_context.IsRunningSystem()) return;
    const std::string attempt = "Can't replace or remove the package '" + installedPackage + "'";
    for (const std::filesystem::path& folder :
         ListedFolders(attempt, R"(dpkg-query --admindir="$2" --listfiles -- "$1")", installedPackage))
        if (const auto link = FindWayOut(m_context.Root, folder)) ThrowWayOut(attempt, *link, "");
}

std::vector<std::filesystem::path> CDebianPackageManager::ListedFolders(const std::string& attempt,
                                                                        const std::string& listing,
                                                                        const std::string& argument) const {
    std::vector<std::filesystem::path> folders;
    // Of many files few folders remain.
    for (std::string& folder : Lines(attempt, listing + R"( | sed 's,/*[^/]*/*$,,' | sort -u)", argument))
        if (folder.starts_with('/') || folder.starts_with("./")) folders.emplace_back(std::move(folder));
    return folders;
}

Links CDebianPackageManager::ListedLinks(const SPackageFile& file) const {
    constexpr std::string_view arrow = " -> ";
    Links links;
    // Behind mode, owner, size, date and time stand path and target.
    for (const std::string& line :
         Lines(CannotInstall(file.Path),
               R"(dpkg-deb --fsys-tarfile -- "$1" | tar -tv --numeric-owner --quoting-style=literal |)"
               R"( sed -n 's/^l\([^ ]* \+\)\{5\}//p')",
               file.Path.string())) {
        const std::size_t end = line.find(arrow);
        if (end == std::string::npos) continue;
        const std::filesystem::path entry = line.substr(0, end);
        links.emplace(entry.lexically_normal().relative_path(), line.substr(end + arrow.size()));
    }
    return links;
}

std::vector<std::string> CDebianPackageManager::Lines(const std::string& attempt, const std::string& script,
                                                      const std::string& argument) const {
    SCommand command{"sh", {"-c", script, "sh", argument, Database()}};
    command.MostOutput = mostListing;
    const SCommandResult result = RunQuery(command, archiveCheckLimit);
    if (!result.Succeeded())
        throw CGenericException(attempt + ": listing its files failed, sh " + result.Failure());
    std::vector<std::string> lines;
    for (std::string_view rest = result.Output; !rest.empty();) {
        lines.emplace_back(rest.substr(0, rest.find('\n')));
        rest.remove_prefix(std::min(lines.back().size() + 1, rest.size()));
    }
    return lines;
}

void CDebianPackageManager::ThrowWayOut(const std::string& attempt, const std::filesystem::path& link,
                                        const std::string& bringing) const {
    throw CGenericException(attempt + ": it has files behind the link " + Quoted(link.string()) +
                            (bringing.empty() ? "" : " of the package '" + bringing + "'") +
                            ", which leads dpkg out of " + Quoted(m_context.Root.string()) + ".");
}

void CDebianPackageManager::RequireNoDowngrade(const SPackageFile& file,
                                               const SDatabaseEntry& installed) const {
    const SCommandResult isOlder =
        RunQuery({"dpkg", {"--compare-versions", file.Version, "lt", installed.Info.VersionRaw}});
    if (isOlder.ExitStatus() == 1) return;
    const std::string attempt = "Can't install " + Quoted(file.Path.string()) + ": ";
    const std::string version = Escaped(file.Version);
    const std::string installedVersion = Escaped(installed.Info.VersionRaw);
    if (!isOlder.Succeeded()) {
        throw CGenericException(attempt + "its version " + version +
                                " can't be compared with the installed " + installedVersion + ": dpkg " +
                                isOlder.Failure());
    }
    throw CGenericException(attempt + "its version " + version + " of the package '" + file.Name +
                            "' is older than the installed " + installedVersion +
                            ". Remove the package first.");
}

void CDebianPackageManager::InstallListed(const std::vector<std::string>& entries, EPurpose purpose) const {
    const SNeeds needs = Check(entries, purpose);
    std::vector<std::string> packages;
    for (const SPackageFile& file : needs.Files)
        packages.push_back(file.Path.string());
    packages.insert(packages.end(), needs.Names.begin(), needs.Names.end());
    if (packages.empty()) return;
    const std::string what =
        (purpose == EPurpose::Install ? "Install packages: " : "Update packages: ") + Joined(packages);

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
    arguments.insert(arguments.end(), packages.begin(), packages.end());
    for (const SPackageFile& file : needs.Files)
        RequireUnchanged(file.Path, file.Status);
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
    const std::string message = what + ": " + command.Program + " " + result.Failure();
    m_context.Log->Info(message);
    // dpkg's own complaint stands in apt-get's output.
    if (TellsOfLock(result.ErrorText) || TellsOfLock(result.Output)) throw CPackageManagerIsLocked(message);
    throw CGenericException(message);
}

std::string CDebianPackageManager::Database() const {
    if (m_context.IsRunningSystem()) return databaseFolder;
    if (const auto folder = m_context.Resolve(databaseFolder)) return folder->string();
    if (errno == ENOENT) return {};
    throw CGenericException("Can't open the package database " +
                            Quoted(m_context.Outside(databaseFolder).string()) + ": " + ErrorText(errno) +
                            ".");
}

SCommand CDebianPackageManager::Dpkg(std::vector<std::string> arguments) const {
    const std::string database = Database();
    if (database.empty()) {
        throw CGenericException("There is no package database in " + Quoted(m_context.Root.string()) + ".");
    }
    arguments.insert(arguments.begin(),
                     {"--root=" + m_context.Root.string(), "--admindir=" + database, "--log=" + LogFile()});
    return {"dpkg", std::move(arguments)};
}

// The log that the host's configuration names is the host's, whatever the root.
std::string CDebianPackageManager::LogFile() const {
    if (const auto log = m_context.Resolve("/var/log/dpkg.log")) return log->string();
    if (const auto folder = m_context.Resolve("/var/log/.")) {
        std::error_code error;
        const std::filesystem::path log = *folder / "dpkg.log";
        // A link that leads nowhere in the system may well lead somewhere outside.
        const auto type = std::filesystem::symlink_status(log, error).type();
        if (type == std::filesystem::file_type::not_found) return log.string();
    }
    return "/dev/null";
}

}  // namespace installer
