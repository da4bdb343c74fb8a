// SPDX-License-Identifier: Apache-2.0
// The host's packages through dpkg and apt-get.
#pragma once

#include <zamclientlib/Installer.h>

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "installer/CommandRunner.h"
#include "installer/InsideRoot.h"
#include "installer/SInstallerContext.h"

namespace installer {

// On the running system apt-get changes packages, and so finds dependencies; in another root dpkg alone does.
//
// Everything that can be known beforehand is checked before anything changes: names, files (readable whole,
// real packages, none older than what is installed, one for each package, unchanged since they were checked),
// presence of what is updated or removed, links that would lead dpkg out of another root, the lock.
// A package that is listed by name is to be there: what is installed stays as it is.
// A change that has begun goes on to its end, even when the tool is ended meanwhile.
class CDebianPackageManager final : public zamclientlib::IPackageManager {
public:
    explicit CDebianPackageManager(SInstallerContext context) : m_context(std::move(context)) {}

    apigen::Optional<zamclientlib::SPackageInfo> FindInstalledPackage(std::string packageName) const override;
    void InstalLocalPackages(std::vector<std::string> pkgPaths) const override;
    void UpdateLocalPackages(std::vector<std::string> pkgPaths) const override;
    void RemovePackages(std::vector<std::string> pkgNames) const override;
    std::string GetPackageNameFromFile(std::string pkgPath) const override;

    // Whether anything of the package but its configuration is there, in whatever state.
    bool IsPresent(const std::string& packageName) const;

private:
    struct SDatabaseEntry {
        std::string Status;
        zamclientlib::SPackageInfo Info;

        // Unpacked and configured; that a trigger of it or of another package is still to run takes nothing
        // away.
        bool IsInstalled() const {
            return Status == "installed" || Status == "triggers-awaited" || Status == "triggers-pending";
        }
        // "unpacked", "half-configured" and "half-installed" as well: something is there, and doesn't work.
        bool IsPresent() const { return Status != "not-installed" && Status != "config-files"; }
    };
    struct SPackageFile {
        std::filesystem::path Path;  // absolute
        struct stat Status {};       // when the check began
        std::string Name;
        std::string Version;
        std::string Architecture;
        std::vector<std::filesystem::path> Folders;  // of its files; known for another root only
        Links BroughtLinks;                          // likewise
    };
    enum class EPurpose {
        Install,
        Update
    };

    std::optional<SDatabaseEntry> Look(const std::string& packageName) const;
    // What is to be done for a list to be there.
    struct SNeeds {
        std::vector<SPackageFile> Files;  // in the order of the list
        std::vector<std::string> Names;   // of what the distribution is to give
    };
    SNeeds Check(const std::vector<std::string>& entries, EPurpose purpose) const;
    SPackageFile CheckFile(const std::string& path, EPurpose purpose) const;
    void RequireObtainable(const std::string& packageName, EPurpose purpose) const;
    // dpkg itself takes links of another root in the sense of the running system, and would write there: links that
    // are there already, and those that one package brings along for the next.
    void RequireNoWayOut(const std::vector<SPackageFile>& files) const;
    void RequireNoWayOut(const std::string& installedPackage) const;
    std::vector<std::filesystem::path> ListedFolders(const std::string& attempt, const std::string& listing,
                                                     const std::string& argument) const;
    Links ListedLinks(const SPackageFile& file) const;
    std::vector<std::string> Lines(const std::string& attempt, const std::string& script,
                                   const std::string& argument) const;
    [[noreturn]] void ThrowWayOut(const std::string& attempt, const std::filesystem::path& link,
                                  const std::string& bringing) const;
    void RequireNoDowngrade(const SPackageFile& file, const SDatabaseEntry& installed) const;
    void InstallListed(const std::vector<std::string>& entries, EPurpose purpose) const;
    void Change(const std::string& what, const SCommand& command) const;
    SCommand Dpkg(std::vector<std::string> arguments) const;
    std::string LogFile() const;

    // The folder of the package database; empty when the system has none.
    std::string Database() const;

    SInstallerContext m_context;
};

}  // namespace installer
