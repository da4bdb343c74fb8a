// SPDX-License-Identifier: Apache-2.0
// A small system in a folder with a real dpkg database, and real packages for it.
#pragma once

#include <filesystem>
#include <string>

#include "TestFolder.h"
#include "installer/SInstallerContext.h"

namespace installer::test {

struct STestPackage {
    std::string Name;
    std::string Version = "1.0";
    std::string Description = "A package";
    std::string ExtraFields = {};  // whole control lines
    std::string PostInst = {};     // a shell script
    std::string File = {};         // another file that it holds, "usr/share/x"
    std::string Link = {};         // a link that it holds
    std::string LinkTarget = {};
    int MoreLinks = 0;  // to nowhere, far down
};

class CTestSystem {
public:
    CTestSystem();

    const std::filesystem::path& Root() const { return m_root.Path(); }
    const CTestFolder& Folder() const { return m_root; }
    SInstallerContext Context() const;

    // Lets dpkg run the scripts of packages without a shell in the system's folder, while the object lives.
    CEnvironmentVariable AllowScripts() const;

    // Builds a package and returns its file, called `fileName` (by default name_version.deb).
    std::filesystem::path Build(const STestPackage& package, const std::string& fileName = {}) const;

    // dpkg's own word on a package: "install ok installed 1.0"; empty when it knows none.
    std::string DpkgStatus(const std::string& package) const;

private:
    CTestFolder m_root;
    CTestFolder m_packages;
};

// Another process that holds a lock on `file` as dpkg does, while the object lives.
class CLockHolder {
public:
    explicit CLockHolder(const std::filesystem::path& file);
    CLockHolder(const CLockHolder&) = delete;
    CLockHolder& operator=(const CLockHolder&) = delete;
    ~CLockHolder();

    pid_t Pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
};

}  // namespace installer::test
