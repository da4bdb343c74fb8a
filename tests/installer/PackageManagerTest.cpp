// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "CTestSystem.h"
#include "TestFolder.h"
#include "installer/CDebianPackageManager.h"
#include "installer/CHostInformation.h"
#include "installer/CommandRunner.h"
#include "installer/PackageLock.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::CPackageManagerIsLocked;

constexpr const char* frontendLock = "var/lib/dpkg/lock-frontend";
constexpr const char* databaseLock = "var/lib/dpkg/lock";

class CRecordingLog final : public apigen::ILogger {
public:
    void Info(const std::string& message) override { Text += message + "\n"; }
    void Error(const std::string& message, std::exception& error) override {
        Text += message + "\n" + error.what() + "\n";
    }
    std::string Text;
};

class PackageManager : public testing::Test {
protected:
    // Where a package is as the database tells and the file system shows.
    void ExpectInstalled(const std::string& name, const std::string& version) const {
        EXPECT_EQ(m_system.DpkgStatus(name), "install ok installed " + version);
        EXPECT_EQ(ReadAll(m_system.Root() / "usr/share" / name / "version"), version);
    }
    void ExpectAbsent(const std::string& name) const {
        EXPECT_EQ(m_system.DpkgStatus(name).find("installed"), std::string::npos);
        EXPECT_FALSE(std::filesystem::exists(m_system.Root() / "usr/share" / name));
    }

    CTestSystem m_system;
    CDebianPackageManager m_packages{m_system.Context()};
};

TEST_F(PackageManager, InstallsUpdatesFindsAndRemoves) {
    const std::string description = "First line\n Second line\n .\n  indented <&> Käse";
    m_packages.InstalLocalPackages({m_system.Build({"foo", "1:1.0-1", description})});
    ExpectInstalled("foo", "1:1.0-1");
    const auto found = m_packages.FindInstalledPackage("foo");
    ASSERT_TRUE(found.HasValue());
    EXPECT_EQ(found->Name, "foo");
    EXPECT_EQ(found->VersionRaw, "1:1.0-1");
    EXPECT_EQ(found->Description, description);

    m_packages.UpdateLocalPackages({m_system.Build({"foo", "1:1.10-1"})});
    ExpectInstalled("foo", "1:1.10-1");
    EXPECT_EQ(m_packages.FindInstalledPackage("foo")->VersionRaw, "1:1.10-1");

    m_packages.RemovePackages({"foo"});
    ExpectAbsent("foo");
    EXPECT_FALSE(m_packages.FindInstalledPackage("foo").HasValue());
}

TEST_F(PackageManager, SeveralPackagesGoInOneOperation) {
    m_packages.InstalLocalPackages(
        {m_system.Build({"needy", "1", "Needs the other", "Depends: other (>= 2)\n"}),
         m_system.Build({"other", "2"})});
    ExpectInstalled("needy", "1");
    ExpectInstalled("other", "2");
    m_packages.RemovePackages({"other", "needy"});
    ExpectAbsent("needy");
    ExpectAbsent("other");
}

TEST_F(PackageManager, OddFileNamesAreFilesAndNothingElse) {
    m_packages.InstalLocalPackages({m_system.Build({"dash"}, "--force-all name with 'blanks' $(id).deb")});
    ExpectInstalled("dash", "1.0");
    m_packages.InstalLocalPackages({m_system.Build({"plain"}, "no suffix")});
    ExpectInstalled("plain", "1.0");

    const auto file = m_system.Build({"relative"}, "-relative.deb");
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(file.parent_path());
    m_packages.InstalLocalPackages({"-relative.deb"});
    EXPECT_EQ(m_packages.GetPackageNameFromFile("-relative.deb"), "relative");
    std::filesystem::current_path(old);
    ExpectInstalled("relative", "1.0");
}

TEST_F(PackageManager, EmptyListsChangeNothing) {
    const std::string before = ReadAll(m_system.Root() / "var/lib/dpkg/status");
    const CLockHolder lock(m_system.Root() / frontendLock);
    m_packages.InstalLocalPackages({});
    m_packages.UpdateLocalPackages({});
    m_packages.RemovePackages({});
    EXPECT_EQ(ReadAll(m_system.Root() / "var/lib/dpkg/status"), before);
}

TEST_F(PackageManager, UpdateRefusesAPackageThatIsNotInstalled) {
    m_packages.InstalLocalPackages({m_system.Build({"there", "1"})});
    EXPECT_THROW_WITH(
        m_packages.UpdateLocalPackages({m_system.Build({"there", "2"}), m_system.Build({"absent"})}),
        CGenericException, "Can't update the package 'absent'");
    ExpectInstalled("there", "1");
    ExpectAbsent("absent");
}

TEST_F(PackageManager, AnOlderVersionIsRefused) {
    m_packages.InstalLocalPackages({m_system.Build({"foo", "1.10"})});
    const auto older = m_system.Build({"foo", "1.9"});
    EXPECT_THROW_WITH(m_packages.UpdateLocalPackages({older}), CGenericException,
                      "its version 1.9 of the package 'foo' is older than the installed 1.10");
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({older}), CGenericException, "is older");
    ExpectInstalled("foo", "1.10");
    m_packages.UpdateLocalPackages({m_system.Build({"foo", "1.10"})});
    ExpectInstalled("foo", "1.10");
}

TEST_F(PackageManager, AFailedDependencyIsReportedInDpkgsWords) {
    EXPECT_THROW_WITH(
        m_packages.InstalLocalPackages({m_system.Build({"needy", "1", "Needs", "Depends: missing-one\n"})}),
        CGenericException, "missing-one");
    EXPECT_FALSE(m_packages.FindInstalledPackage("needy").HasValue());
    EXPECT_TRUE(m_packages.IsPresent("needy"));
    m_packages.RemovePackages({"needy"});
    ExpectAbsent("needy");
}

TEST_F(PackageManager, AScriptsOwnWordsStandInTheFailure) {
    const auto allowed = m_system.AllowScripts();
    EXPECT_THROW_WITH(
        m_packages.InstalLocalPackages(
            {m_system.Build({.Name = "scripted", .PostInst = "echo 'The disk is on fire'; exit 1\n"}),
             m_system.Build({"after-one"}), m_system.Build({"after-two"})}),
        CGenericException, "The disk is on fire");
    EXPECT_EQ(m_system.DpkgStatus("scripted"), "install ok half-configured 1.0");
    EXPECT_FALSE(m_packages.FindInstalledPackage("scripted").HasValue());
}

TEST_F(PackageManager, WhatAScriptPrintsStaysHarmlessAndInOneLine) {
    const auto allowed = m_system.AllowScripts();
    const auto log = std::make_shared<CRecordingLog>();
    const CDebianPackageManager packages(MakeContext(m_system.Root(), log));
    const auto file =
        m_system.Build({.Name = "scripted",
                        .PostInst = "printf '\\033]0;owned\\007\\n[01.01.26 00:00:00.0]    Done\\n'\n"
                                    "printf '\\302\\2332J\\n' >&2; exit 1\n"},
                       "two\nlines\x1b[31m.deb");
    EXPECT_THROW_WITH(packages.InstalLocalPackages({file}), CGenericException,
                      "\\x1b]0;owned\\x07 / [01.01.26 00:00:00.0]    Done");
    EXPECT_NE(log->Text.find("\\xc2\\x9b2J"), std::string::npos) << log->Text;
    EXPECT_NE(log->Text.find("two\\nlines\\x1b[31m.deb"), std::string::npos) << log->Text;
    EXPECT_EQ(log->Text.find_first_of("\x1b\x07\x9b\r"), std::string::npos) << log->Text;
    EXPECT_EQ(std::count(log->Text.begin(), log->Text.end(), '\n'), 2) << log->Text;
}

TEST_F(PackageManager, AFileOfAnotherPackageIsNamedInTheFailure) {
    m_packages.InstalLocalPackages({m_system.Build({.Name = "owner", .File = "usr/share/common-file"})});
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages(
                          {m_system.Build({.Name = "intruder", .File = "usr/share/common-file"})}),
                      CGenericException,
                      "trying to overwrite '/usr/share/common-file', which is also in package owner 1.0");
    EXPECT_FALSE(m_packages.IsPresent("intruder"));
}

TEST_F(PackageManager, NamesAndVersionsInAFileAreNotBelieved) {
    // dpkg-deb would not build these.
    const auto fake = m_system.Folder().WriteScript(
        "fake/dpkg-deb",
        "case $1 in --show) printf '%s\\n%s' \"$(sed -n 1p \"$4\")\" \"$(sed -n 2p \"$4\")\";; esac\n");
    m_packages.InstalLocalPackages({m_system.Build({"foo", "2"})});
    const CEnvironmentVariable path("PATH", fake.parent_path().string() + ":" + std::getenv("PATH"));
    const auto odd = m_system.Folder().Write("odd.deb", "Foo\x1b[31m\n1\n");
    EXPECT_THROW_WITH(m_packages.GetPackageNameFromFile(odd), CGenericException,
                      odd.string() + "\": it holds a package called \"Foo\\x1b[31m\"");
    EXPECT_THROW_WITH(
        m_packages.InstalLocalPackages({m_system.Folder().Write("old.deb", "foo\n1\x1b[31m\n")}),
        CGenericException, "its version 1\\x1b[31m of the package 'foo'");
}

TEST_F(PackageManager, BadFilesAreRefusedBeforeAnythingChanges) {
    const CTestFolder folder;
    const auto good = m_system.Build({"good"});
    const std::string bytes = ReadAll(m_system.Build({"damaged"}));
    std::string flipped = bytes;
    flipped[flipped.size() - 20] ^= '\x55';
    std::filesystem::create_directory(folder.Path() / "folder");
    ASSERT_EQ(mkfifo((folder.Path() / "fifo").c_str(), 0600), 0);
    const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
    folder.Write("text.deb", "hello");
    folder.Write("empty.deb", "");
    folder.Write("cut.deb", bytes.substr(0, bytes.size() - 30));
    folder.Write("head.deb", bytes.substr(0, 40));
    folder.Write("flipped.deb", flipped);

    const std::vector<std::pair<std::string, std::string>> cases{
        {path("missing.deb"), "No such file or directory"},
        {path("folder"), "it is no regular file"},
        {path("fifo"), "it is no regular file"},
        {"/dev/null", "it is no regular file"},
        {path("text.deb"), "it is no Debian package"},
        {path("empty.deb"), "it is no Debian package"},
        {path("head.deb"), "it is no Debian package"},
        {path("cut.deb"), "it is damaged"},
        {path("flipped.deb"), "it is damaged"},
        {"", "is empty"},
        {std::string("/tmp\0/x", 7), "NUL"},
    };
    for (const auto& [bad, reason] : cases) {
        EXPECT_THROW_WITH(m_packages.InstalLocalPackages({good.string(), bad}), CGenericException, reason);
    }
    EXPECT_THROW_WITH(m_packages.GetPackageNameFromFile(path("missing.deb")), CGenericException,
                      "missing.deb\": No such file");
    EXPECT_THROW(m_packages.GetPackageNameFromFile(path("text.deb")), CGenericException);
    EXPECT_THROW(m_packages.UpdateLocalPackages({path("cut.deb")}), CGenericException);
    ExpectAbsent("good");
    EXPECT_EQ(ReadAll(m_system.Root() / "var/lib/dpkg/status"), "");
}

TEST_F(PackageManager, APackageThatIsListedByNameIsToBeThereAndStaysAsItIs) {
    m_packages.InstalLocalPackages({m_system.Build({"there", "1"})});
    const auto agent = m_system.Build({"agent", "1", "d", "Depends: there\n"});
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({agent, "missing-one"}), CGenericException,
                      "Can't install the package 'missing-one' in \"" + m_system.Root().string() +
                          "\" by its name: only the running system gets packages from its distribution");
    EXPECT_THROW_WITH(m_packages.UpdateLocalPackages({"missing-one"}), CGenericException,
                      "Can't update the package 'missing-one': it is not installed");
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({agent, "no such/file"}), CGenericException,
                      "no such/file\": No such file or directory");
    for (const char* const odd : {"no such name", "-x", "Agent", "*"}) {
        EXPECT_THROW_WITH(m_packages.InstalLocalPackages({agent, odd}), CGenericException,
                          std::string("\"") + odd + "\" is neither the path of a file");
    }
    ExpectAbsent("agent");

    m_packages.InstalLocalPackages({"there", agent});
    ExpectInstalled("there", "1");
    ExpectInstalled("agent", "1");
    m_packages.InstalLocalPackages({"there"});
    m_packages.UpdateLocalPackages({"there", "agent"});
    ExpectInstalled("there", "1");
}

TEST_F(PackageManager, APackageThatIsListedByNameAndAsFileComesFromTheFile) {
    m_packages.InstalLocalPackages({"foo", m_system.Build({"foo", "1"})});
    ExpectInstalled("foo", "1");
}

TEST_F(PackageManager, TwoFilesOfOnePackageAreRefusedAndOneFileTwiceIsOne) {
    // dpkg installs them one after the other, even the older one last.
    const auto newer = m_system.Build({"foo", "2"});
    const auto older = m_system.Build({"foo", "1"});
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({newer, older}), CGenericException,
                      "Can't install both \"" + newer.string() + "\" and \"" + older.string() +
                          "\": each holds the package 'foo'");
    ExpectAbsent("foo");
    m_packages.InstalLocalPackages({newer, newer});
    ExpectInstalled("foo", "2");
}

TEST_F(PackageManager, AFileThatIsReplacedWhileItIsCheckedIsNotInstalled) {
    const auto file = m_system.Build({"foo", "1"});
    const auto other = m_system.Build({"foo", "0"}, "other.deb");
    const auto fake = m_system.Folder().WriteScript(
        "fake/dpkg-deb", FindProgram("dpkg-deb") + " \"$@\"; result=$?\n[ \"$1\" = --fsys-tarfile ] && cp '" +
                             other.string() + "' '" + file.string() + "'\nexit $result\n");
    const CEnvironmentVariable path("PATH", fake.parent_path().string() + ":" + std::getenv("PATH"));
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({file}), CGenericException,
                      file.string() + "\": it was changed while it was checked");
    ExpectAbsent("foo");
}

TEST_F(PackageManager, NamesThatDebianForbidsAreRefused) {
    for (const std::string name :
         {"", "a", "*", "fo?", "foo*", "Foo", "-foo", "--admindir", "foo bar", "foo:amd64", "foo/bar",
          "foo\n", "foo,bar", "f\xc3\xb6\xc3\xb6", "+foo", "[a]b"}) {
        EXPECT_THROW_WITH(m_packages.FindInstalledPackage(name), CGenericException, "is no package name");
        EXPECT_THROW_WITH(m_packages.RemovePackages({name}), CGenericException, "is no package name");
    }
    EXPECT_THROW(m_packages.FindInstalledPackage(std::string("foo\0bar", 7)), CGenericException);
    EXPECT_FALSE(m_packages.FindInstalledPackage("g++-12.x").HasValue());
}

TEST_F(PackageManager, RemovalOfWhatIsNotInstalledIsRefusedAsAWhole) {
    m_packages.InstalLocalPackages({m_system.Build({"there"})});
    EXPECT_THROW_WITH(m_packages.RemovePackages({"there", "absent"}), CGenericException,
                      "Can't remove the package 'absent': it is not installed");
    ExpectInstalled("there", "1.0");
}

TEST_F(PackageManager, RemovalOfWhatOthersNeedIsReportedInDpkgsWords) {
    m_packages.InstalLocalPackages(
        {m_system.Build({"needy", "1", "Needs", "Depends: base-one\n"}), m_system.Build({"base-one"})});
    EXPECT_THROW_WITH(m_packages.RemovePackages({"base-one"}), CGenericException, "needy");
    EXPECT_TRUE(m_packages.FindInstalledPackage("base-one").HasValue());
}

TEST_F(PackageManager, OnlyInstalledPackagesAreFound) {
    const std::string fields = "Version: 3\nArchitecture: all\nMaintainer: x\nDescription: d\n";
    std::string status;
    for (const char* const state : {"config-files", "half-installed", "unpacked", "half-configured"}) {
        status +=
            std::string("Package: pkg-") + state + "\nStatus: deinstall ok " + state + "\n" + fields + "\n";
    }
    status += "Package: pkg-held\nStatus: hold ok installed\n" + fields + "\n";
    m_system.Folder().Write("var/lib/dpkg/status", status);
    EXPECT_FALSE(m_packages.FindInstalledPackage("pkg-config-files").HasValue());
    EXPECT_FALSE(m_packages.FindInstalledPackage("pkg-half-installed").HasValue());
    EXPECT_FALSE(m_packages.FindInstalledPackage("pkg-unpacked").HasValue());
    EXPECT_FALSE(m_packages.FindInstalledPackage("pkg-half-configured").HasValue());
    EXPECT_TRUE(m_packages.FindInstalledPackage("pkg-held").HasValue());
    EXPECT_FALSE(m_packages.IsPresent("pkg-config-files"));
    EXPECT_TRUE(m_packages.IsPresent("pkg-unpacked"));
}

TEST_F(PackageManager, APackageWhoseTriggersAreStillToRunIsInstalled) {
    const std::string fields = "Version: 3\nArchitecture: all\nMaintainer: x\nDescription: d\n";
    m_system.Folder().Write("var/lib/dpkg/status",
                            "Package: waiting\nStatus: install ok triggers-awaited\n" + fields +
                                "Triggers-Awaited: pending\n\nPackage: pending\nStatus: install ok "
                                "triggers-pending\n" +
                                fields + "Triggers-Pending: x\n");
    for (const char* const name : {"waiting", "pending"}) {
        const auto found = m_packages.FindInstalledPackage(name);
        ASSERT_TRUE(found.HasValue()) << name;
        EXPECT_EQ(found->VersionRaw, "3");
    }
    EXPECT_THROW_WITH(m_packages.UpdateLocalPackages({m_system.Build({"pending", "2"})}), CGenericException,
                      "is older than the installed 3");
}

TEST_F(PackageManager, AVersionThatCannotBeComparedIsNoNewerOne) {
    m_packages.InstalLocalPackages({m_system.Build({"foo", "2"})});
    const auto newer = m_system.Build({"foo", "3"});
    const auto fake = m_system.Folder().WriteScript("fake/dpkg", "kill -9 $$\n");
    const CEnvironmentVariable path("PATH", fake.parent_path().string() + ":" + std::getenv("PATH"));
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({newer}), CGenericException,
                      "its version 3 can't be compared with the installed 2: dpkg was ended by signal 9");
}

TEST_F(PackageManager, LinksOfAnotherRootLeadNowhereOutside) {
    const CTestSystem other;
    CDebianPackageManager(other.Context()).InstalLocalPackages({other.Build({"outsider"})});
    const auto before = ReadAll(other.Root() / "var/lib/dpkg/status");
    const auto move = [&](const char* name, const std::filesystem::path& target) {
        std::filesystem::rename(m_system.Root() / name, m_system.Root() / target.relative_path());
        std::filesystem::create_symlink(target, m_system.Root() / name);
    };
    move("var/lib/dpkg", "/var/lib/elsewhere");
    move("var/log", "/logs");
    other.Folder().Write("dpkg.log", "");
    std::filesystem::create_symlink(other.Root() / "dpkg.log", m_system.Root() / "logs/dpkg.log");
    m_packages.InstalLocalPackages({m_system.Build({"foo"})});
    EXPECT_TRUE(m_packages.FindInstalledPackage("foo").HasValue());
    EXPECT_NE(ReadAll(m_system.Root() / "var/lib/elsewhere/status").find("foo"), std::string::npos);
    EXPECT_EQ(ReadAll(other.Root() / "dpkg.log"), "");
    {
        const CLockHolder holder(m_system.Root() / "var/lib/elsewhere/lock");
        EXPECT_THROW(m_packages.RemovePackages({"foo"}), CPackageManagerIsLocked);
    }

    std::filesystem::remove(m_system.Root() / "var/lib/dpkg");
    std::filesystem::create_symlink(other.Root() / "var/lib/dpkg", m_system.Root() / "var/lib/dpkg");
    EXPECT_FALSE(CHostInformation(m_system.Context()).IsSupported());
    EXPECT_FALSE(m_packages.FindInstalledPackage("outsider").HasValue());
    const CLockHolder holder(other.Root() / "var/lib/dpkg/lock");
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build({"bar"})}), CGenericException,
                      "There is no package database in \"" + m_system.Root().string());
    EXPECT_EQ(ReadAll(other.Root() / "var/lib/dpkg/status"), before);
}

TEST_F(PackageManager, AnotherRootsLinksDoNotLetDpkgWriteToTheHost) {
    const CTestFolder outside;
    const auto link = m_system.Root() / "opt";
    const auto package = m_system.Build({.Name = "foo", .File = "opt/foo/file"});
    std::filesystem::create_directory(m_system.Root() / "data");
    for (const std::filesystem::path& target :
         {outside.Path(), std::filesystem::path("/data"), std::filesystem::path("/no/such")}) {
        std::filesystem::remove(link);
        std::filesystem::create_symlink(target, link);
        EXPECT_THROW_WITH(m_packages.InstalLocalPackages({package}), CGenericException,
                          "it has files behind the link \"" + link.string() + "\"");
        ExpectAbsent("foo");
    }
    EXPECT_TRUE(std::filesystem::is_empty(outside.Path()));

    std::filesystem::remove(link);
    std::filesystem::create_symlink("data", link);
    m_packages.InstalLocalPackages({package});
    EXPECT_TRUE(std::filesystem::exists(m_system.Root() / "data/foo/file"));

    std::filesystem::remove(link);
    std::filesystem::rename(m_system.Root() / "data/foo", outside.Path() / "foo");
    std::filesystem::create_symlink(outside.Path(), link);
    EXPECT_THROW_WITH(m_packages.RemovePackages({"foo"}), CGenericException, "leads dpkg out of");
    EXPECT_THROW_WITH(m_packages.UpdateLocalPackages({m_system.Build({"foo", "2"})}), CGenericException,
                      "leads dpkg out of");
    EXPECT_TRUE(std::filesystem::exists(outside.Path() / "foo/file"));
}

TEST_F(PackageManager, LinksThatOnePackageBringsDoNotLetDpkgWriteAnothersFilesToTheHost) {
    const CTestFolder outside;
    const auto behind = m_system.Build({.Name = "behind", .File = "opt/my data/folder/file"});
    std::string version = "1";
    for (const std::string& target : {outside.Path().string(), std::string("/no/such"), std::string("../.."),
                                      "../../.." + outside.Path().string()}) {
        const auto linking = m_system.Build(
            {.Name = "linking", .Version = version += "1", .Link = "opt/my data", .LinkTarget = target});
        for (const auto& list : {std::vector<std::string>{linking, behind}, {behind, linking}}) {
            EXPECT_THROW_WITH(m_packages.InstalLocalPackages(list), CGenericException,
                              "it has files behind the link \"" + (m_system.Root() / "opt/my data").string() +
                                  "\" of the package 'linking'");
        }
        ExpectAbsent("linking");
        ExpectAbsent("behind");
    }
    EXPECT_THROW_WITH(
        m_packages.InstalLocalPackages(
            {behind, m_system.Build({.Name = "first", .Link = "opt/my data", .LinkTarget = "way"}),
             m_system.Build({.Name = "second", .Link = "opt/way", .LinkTarget = outside.Path().string()})}),
        CGenericException, "opt/way\" of the package 'second'");
    EXPECT_TRUE(std::filesystem::is_empty(outside.Path()));
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({behind, m_system.Build({.Name = "many",
                                                                              .Link = "opt/my data",
                                                                              .LinkTarget = "/no/such",
                                                                              .MoreLinks = 2500})}),
                      CGenericException, "of the package 'many'");

    // Beside such a link, and behind one that stays inside, everything goes on as ever.
    m_packages.InstalLocalPackages(
        {m_system.Build({.Name = "away", .Link = "opt/away", .LinkTarget = outside.Path().string()}),
         m_system.Build({.Name = "beside", .File = "opt/away2/file"}),
         m_system.Build(
             {.Name = "inside", .File = "opt/real/file", .Link = "opt/my data", .LinkTarget = "real"}),
         behind});
    EXPECT_TRUE(std::filesystem::exists(m_system.Root() / "opt/real/folder/file"));

    // dpkg puts no link in the place of a folder.
    std::filesystem::create_directories(m_system.Root() / "opt/stays");
    m_packages.InstalLocalPackages(
        {m_system.Build({.Name = "late", .Link = "opt/stays", .LinkTarget = outside.Path().string()}),
         m_system.Build({.Name = "within", .File = "opt/stays/file"})});
    EXPECT_TRUE(std::filesystem::exists(m_system.Root() / "opt/stays/file"));
}

TEST_F(PackageManager, ABrokenDatabaseIsAnErrorAndNoAbsence) {
    m_system.Folder().Write("var/lib/dpkg/status", "this is no database\n");
    EXPECT_THROW_WITH(m_packages.FindInstalledPackage("foo"), CGenericException,
                      "Can't look up the package 'foo'");
}

TEST_F(PackageManager, ALockOfAnotherProgramIsReportedByType) {
    const auto file = m_system.Build({"foo"});
    for (const char* const lockFile : {frontendLock, databaseLock}) {
        const CLockHolder holder(m_system.Root() / lockFile);
        EXPECT_THROW_WITH(m_packages.InstalLocalPackages({file}), CPackageManagerIsLocked,
                          "process " + std::to_string(holder.Pid()));
    }
    ExpectAbsent("foo");
    m_packages.InstalLocalPackages({file});
    for (const char* const lockFile : {frontendLock, databaseLock}) {
        const CLockHolder holder(m_system.Root() / lockFile);
        EXPECT_THROW(m_packages.UpdateLocalPackages({file}), CPackageManagerIsLocked);
        EXPECT_THROW(m_packages.RemovePackages({"foo"}), CPackageManagerIsLocked);
        EXPECT_TRUE(m_packages.FindInstalledPackage("foo").HasValue()) << "looking needs no lock";
    }
    ExpectInstalled("foo", "1.0");
}

TEST_F(PackageManager, TheToolsOwnWordsAboutALockAreRecognised) {
    const auto file = m_system.Build({"foo"});
    for (const char* const lockFile : {frontendLock, databaseLock}) {
        const CLockHolder holder(m_system.Root() / lockFile);
        const SCommandResult result = RunChange(
            {"dpkg", {"--root=" + m_system.Root().string(), "--log=/dev/null", "-i", file.string()}});
        EXPECT_FALSE(result.Succeeded());
        EXPECT_TRUE(TellsOfLock(result.ErrorText)) << result.ErrorText;
    }
    EXPECT_FALSE(TellsOfLock("dpkg: error: you do not have permission to lock the dpkg database directory"));
    EXPECT_FALSE(TellsOfLock("E: Unable to acquire the dpkg frontend lock (/x), are you root?"));
    EXPECT_FALSE(TellsOfLock("postinst: the cache is locked by another process\n"));
    EXPECT_TRUE(
        TellsOfLock("Unpacking\ndpkg: error: dpkg frontend lock was locked by another process with pid 7\n"));
    EXPECT_FALSE(TellsOfLock(""));
}

TEST_F(PackageManager, TheHostsDpkgLogIsNotTouchedForAnotherRoot) {
    m_packages.InstalLocalPackages({m_system.Build({"zam-log-probe"})});
    EXPECT_NE(ReadAll(m_system.Root() / "var/log/dpkg.log").find("zam-log-probe"), std::string::npos);
    EXPECT_EQ(ReadAll("/var/log/dpkg.log").find("zam-log-probe"), std::string::npos);
}

TEST_F(PackageManager, ChangesAreLoggedWithTheirOutcome) {
    const auto log = std::make_shared<CRecordingLog>();
    const CDebianPackageManager packages(MakeContext(m_system.Root(), log));
    const auto file = m_system.Build({"foo"});
    packages.InstalLocalPackages({file});
    EXPECT_EQ(log->Text,
              "Install packages: " + file.string() + "\nDone: Install packages: " + file.string() + "\n");
    log->Text.clear();
    EXPECT_THROW(
        packages.InstalLocalPackages({m_system.Build({"needy", "1", "d", "Depends: missing-one\n"})}),
        CGenericException);
    EXPECT_NE(log->Text.find("dpkg exited with status 1: "), std::string::npos) << log->Text;
}

// The running system's packages go through apt-get. It is the real one here, told by its own configuration to
// work on a system in a folder.
class PackageManagerOfTheRunningSystem : public testing::Test {
protected:
    void SetUp() override {
        for (const char* const folder :
             {"etc/apt", "var/lib/apt/lists/partial", "var/cache/apt/archives/partial"}) {
            std::filesystem::create_directories(m_system.Root() / folder);
        }
        const std::string root = m_system.Root().string();
        const auto configuration = m_system.Folder().Write(
            "apt.conf",
            "Dir \"" + root + "/\";\nDir::State::status \"" + root +
                "/var/lib/dpkg/status\";\nDPkg::Options { \"--root=" + root +
                "\"; \"--log=/dev/null\"; \"--force-script-chrootless\"; };\nAPT::Sandbox::User \"root\";\n");
        ReplaceAptGet("APT_CONFIG=" + configuration.string() + " exec " + FindProgram("apt-get") +
                      " \"$@\"\n");
        // Somebody else on this machine may be installing something just now.
        ASSERT_TRUE(Eventually([&] {
            try {
                RequireUnlocked(m_running);
                return true;
            } catch (const CPackageManagerIsLocked&) {
                return false;
            }
        }));
    }

    // Puts a program in front of the real apt-get.
    void ReplaceAptGet(const std::string& script) {
        const auto fake = m_system.Folder().WriteScript("fake/apt-get", script);
        if (!m_path) m_path.emplace("PATH", fake.parent_path().string() + ":" + std::getenv("PATH"));
        ASSERT_EQ(FindProgram("apt-get"), fake.string());
    }

    CTestSystem m_system;
    std::optional<CEnvironmentVariable> m_path;
    SInstallerContext m_running = MakeContext("/", nullptr);
    CDebianPackageManager m_packages{m_running};
};

TEST_F(PackageManagerOfTheRunningSystem, InstallsFilesThroughAptGet) {
    m_packages.InstalLocalPackages(
        {m_system.Build({"zam-probe-one", "1", "d", "Depends: zam-probe-two\n"}, "-one with blanks.deb"),
         m_system.Build({"zam-probe-two", "2"}, "two%20.deb")});
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-one"), "install ok installed 1");
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-two"), "install ok installed 2");

    const CLockHolder holder(m_system.Root() / frontendLock);
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build({"zam-probe-three"}, "three.deb")}),
                      CPackageManagerIsLocked, "E: Could not get lock");
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-three"), "");
}

TEST_F(PackageManagerOfTheRunningSystem, AptGetsRefusalIsReportedInItsWords) {
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build(
                          {"zam-probe-one", "1", "d", "Depends: zam-not-to-be-had\n"}, "one.deb")}),
                      CGenericException,
                      "apt-get exited with status 100: E: Unable to correct problems, you have held broken "
                      "packages. Its output: ");
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-one"), "");
}

TEST_F(PackageManagerOfTheRunningSystem, TheReasonThatAptGetPrintsAsideIsReportedToo) {
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build(
                          {"zam-probe-one", "1", "d", "Depends: zam-not-to-be-had\n"}, "one.deb")}),
                      CGenericException,
                      "The following packages have unmet dependencies: / zam-probe-one : Depends: "
                      "zam-not-to-be-had but it is not installable");
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build(
                          {.Name = "zam-probe-two", .PostInst = "echo 'The disk is on fire'; exit 1\n"})}),
                      CGenericException, "The disk is on fire");
    CDebianPackageManager(m_system.Context()).RemovePackages({"zam-probe-two"});
    m_packages.InstalLocalPackages({m_system.Build({.Name = "zam-owner", .File = "usr/share/common-file"})});
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages(
                          {m_system.Build({.Name = "zam-intruder", .File = "usr/share/common-file"})}),
                      CGenericException, "which is also in package zam-owner 1.0");
}

TEST_F(PackageManagerOfTheRunningSystem, APackageThatIsListedByNameIsAptGetsToFetchUnlessItIsThere) {
    ReplaceAptGet("printf '%s\\n' \"$@\" > " + (m_system.Root() / "arguments").string() + "\n");
    const auto file = m_system.Build({"zam-probe-one"});
    m_packages.InstalLocalPackages({"zam-probe-name", file, "dpkg", "zam-probe-one", "zam-probe-g++"});
    const std::string arguments = ReadAll(m_system.Root() / "arguments");
    EXPECT_EQ(arguments.substr(arguments.find("\n--\n")),
              "\n--\n" + file.string() + "\nzam-probe-name\nzam-probe-g++\n");

    std::filesystem::remove(m_system.Root() / "arguments");
    m_packages.InstalLocalPackages({"dpkg"});
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({file, "dpkg-"}), CGenericException,
                      "apt-get takes the '-' at its end for a wish to remove");
    EXPECT_THROW_WITH(m_packages.UpdateLocalPackages({"zam-probe-name"}), CGenericException,
                      "it is not installed");
    EXPECT_FALSE(std::filesystem::exists(m_system.Root() / "arguments"));
}

TEST_F(PackageManagerOfTheRunningSystem, APackageThatIsListedByNameComesFromTheDistribution) {
    const auto helper = m_system.Build({"zam-probe-helper", "7"}, "helper_7.deb");
    const std::string folder = helper.parent_path().string();
    const SCommandResult sum = RunQuery({"sha256sum", {helper.string()}});
    std::ofstream(folder + "/Packages")
        << "Package: zam-probe-helper\nVersion: 7\nArchitecture: all\nMaintainer: Somebody <s@example.org>\n"
        << "Filename: ./helper_7.deb\nSize: " << std::filesystem::file_size(helper)
        << "\nSHA256: " << sum.Output.substr(0, sum.Output.find(' ')) << "\nDescription: A package\n";
    m_system.Folder().Write("etc/apt/sources.list", "deb [trusted=yes] file:" + folder + " ./\n");
    const SCommandResult update = RunChange({"apt-get", {"update"}});
    ASSERT_TRUE(update.Succeeded()) << update.Failure();

    m_packages.InstalLocalPackages(
        {"zam-probe-helper", m_system.Build({"zam-probe-one", "1", "d", "Depends: zam-probe-helper\n"})});
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-helper"), "install ok installed 7");
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-one"), "install ok installed 1");
}

TEST_F(PackageManagerOfTheRunningSystem, ANameThatTheDistributionDoesNotKnowIsReportedInAptGetsWords) {
    EXPECT_THROW_WITH(
        m_packages.InstalLocalPackages({m_system.Build({"zam-probe-one"}), "zam-not-to-be-had"}),
        CGenericException, "E: Unable to locate package zam-not-to-be-had");
    EXPECT_EQ(m_system.DpkgStatus("zam-probe-one"), "");
}

TEST_F(PackageManagerOfTheRunningSystem, AptGetTakesOnlyFilesWithItsSuffix) {
    EXPECT_THROW_WITH(m_packages.InstalLocalPackages({m_system.Build({"zam-probe-one"}, "one.package")}),
                      CGenericException, "ends in .deb");
}

TEST_F(PackageManagerOfTheRunningSystem, AptGetIsGivenPathsAndNamesBehindItsOptions) {
    ReplaceAptGet("printf '%s\\n' \"$@\" > " + (m_system.Root() / "arguments").string() + "\n");
    const auto file = m_system.Build({"zam-probe-one"}, "-one with blanks.deb");
    m_packages.InstalLocalPackages({file});
    EXPECT_EQ(ReadAll(m_system.Root() / "arguments"),
              "install\n-y\n--no-install-recommends\n-oDpkg::Options::=--force-confdef\n"
              "-oDpkg::Options::=--force-confold\n--\n" +
                  file.string() + "\n");
    m_packages.RemovePackages({"dpkg"});
    EXPECT_EQ(ReadAll(m_system.Root() / "arguments"), "remove\n-y\n--\ndpkg\n");
}

}  // namespace
}  // namespace installer::test
