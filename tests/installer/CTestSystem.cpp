// SPDX-License-Identifier: Apache-2.0
#include "CTestSystem.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "installer/CommandRunner.h"

namespace installer::test {

CTestSystem::CTestSystem() {
    for (const char* const folder : {"info", "updates", "triggers"}) {
        std::filesystem::create_directories(Root() / "var/lib/dpkg" / folder);
    }
    std::filesystem::create_directories(Root() / "var/log");
    m_root.Write("var/lib/dpkg/status", "");
    m_root.Write("var/lib/dpkg/available", "");
}

SInstallerContext CTestSystem::Context() const {
    return MakeContext(Root(), nullptr);
}

std::filesystem::path CTestSystem::Build(const STestPackage& package, const std::string& fileName) const {
    const std::string tree = "tree-" + package.Name + package.Version;
    m_packages.Write(tree + "/DEBIAN/control",
                     "Package: " + package.Name + "\nVersion: " + package.Version +
                         "\nArchitecture: all\nMaintainer: Somebody <somebody@example.org>\n" +
                         package.ExtraFields + "Description: " + package.Description + "\n");
    m_packages.Write(tree + "/usr/share/" + package.Name + "/version", package.Version);
    if (!package.File.empty()) m_packages.Write(tree + "/" + package.File, package.Name);
    if (!package.Link.empty()) {
        const std::filesystem::path link = m_packages.Path() / tree / package.Link;
        std::filesystem::create_directories(link.parent_path());
        std::filesystem::create_symlink(package.LinkTarget, link);
    }
    if (package.MoreLinks != 0) {
        std::filesystem::path deep = m_packages.Path() / tree / "usr/share" / package.Name;
        for (int depth = 0; depth < 10; ++depth)
            deep /= std::string(200, 'x');
        std::filesystem::create_directories(deep);
        for (int i = 0; i < package.MoreLinks; ++i)
            std::filesystem::create_symlink("nowhere", deep / std::to_string(i));
    }
    if (!package.PostInst.empty()) {
        const auto script = m_packages.WriteScript(tree + "/DEBIAN/postinst", package.PostInst);
        std::filesystem::permissions(script, std::filesystem::perms(0755));
    }
    const std::filesystem::path file =
        m_packages.Path() /
        (fileName.empty()
             ? package.Name + "_" + std::to_string(std::hash<std::string>()(package.Version)) + ".deb"
             : fileName);
    const SCommandResult result = RunQuery(
        {"dpkg-deb",
         {"--root-owner-group", "--build", "--", (m_packages.Path() / tree).string(), file.string()}});
    if (!result.Succeeded()) throw std::runtime_error("dpkg-deb: " + result.Failure());
    return file;
}

CEnvironmentVariable CTestSystem::AllowScripts() const {
    // dpkg reads its user's configuration.
    m_packages.Write(".dpkg.cfg", "force-script-chrootless\n");
    return {"HOME", m_packages.Path().string()};
}

std::string CTestSystem::DpkgStatus(const std::string& package) const {
    return RunQuery({"dpkg-query", {"--root=" + Root().string(), "-W", "-f=${Status} ${Version}", package}})
        .Output;
}

CLockHolder::CLockHolder(const std::filesystem::path& file) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0) throw std::runtime_error("pipe failed");
    m_pid = fork();
    if (m_pid == 0) {
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        const int descriptor = open(file.c_str(), O_RDWR | O_CREAT, 0640);
        if (fcntl(descriptor, F_SETLK, &lock) == 0 && write(ready[1], "x", 1) == 1) pause();
        _exit(1);
    }
    close(ready[1]);
    char byte = 0;
    const bool isHeld = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!isHeld) throw std::runtime_error("the lock can't be had");
}

CLockHolder::~CLockHolder() {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

}  // namespace installer::test
