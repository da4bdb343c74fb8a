// SPDX-License-Identifier: Apache-2.0
// Where the agent keeps what belongs to it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "agent/host/Folders.h"
#include "tests/MessageOf.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace tarvo;

TEST(Folders, RootHasTheSystemsFolders) {
    SFoldersSource source;
    source.IsRoot = true;
    source.Home = "/root";
    source.XdgStateHome = "/elsewhere";
    const auto folders = FoldersOf(source);
    EXPECT_EQ(folders.SettingsFile, "/etc/tarvo/tarvod.conf");
    EXPECT_EQ(folders.Database(), "/var/lib/tarvo/state.db");
    EXPECT_EQ(folders.ControlSocket(), "/run/tarvo/control.sock");
    EXPECT_EQ(folders.Log, "/var/log/tarvo");
}

TEST(Folders, AUserHasThoseOfTheDesktopsRules) {
    SFoldersSource source;
    source.Home = "/home/u/";
    EXPECT_EQ(FoldersOf(source).State, "/home/u/.local/state/tarvo");
    EXPECT_EQ(FoldersOf(source).Run, "/home/u/.local/state/tarvo/run");
    source.XdgStateHome = "/s/";
    source.XdgRuntimeDir = "/run/user/7";
    source.XdgConfigHome = "relative, so it does not count";
    const auto folders = FoldersOf(source);
    EXPECT_EQ(folders.SettingsFile, "/home/u/.config/tarvo/tarvod.conf");
    EXPECT_EQ(folders.State, "/s/tarvo");
    EXPECT_EQ(folders.EventSocket(), "/run/user/7/tarvo/events.sock");
    source.Home.clear();
    EXPECT_THROW(FoldersOf(source), std::runtime_error);
}

TEST(Folders, OneVariablePutsAllInOnePlaceForRootToo) {
    SFoldersSource source;
    source.IsRoot = true;
    source.TarvoHome = "/t/";
    const auto folders = FoldersOf(source);
    EXPECT_EQ(folders, (SFolders{"/t/tarvod.conf", "/t/state", "/t/run", "/t/log", "/t/cache"}));
    source.TarvoHome = "t";
    EXPECT_THROW(FoldersOf(source), std::runtime_error);
}

TEST(Folders, AHomeThatNoSocketFitsBelowIsRefusedWithTheWayOut) {
    SFoldersSource source;
    source.TarvoHome = "/" + std::string(89, 'x');
    EXPECT_NO_THROW(FoldersOf(source));
    source.TarvoHome += "yyy";
    const auto message = tests::MessageOf<std::runtime_error>([&] { FoldersOf(source); });
    EXPECT_NE(message.find("too long for a socket"), std::string::npos) << message;
    EXPECT_NE(message.find("TARVO_HOME"), std::string::npos);
}

TEST(Folders, AreMadeForTheirOwnerAlone) {
    const tests::CTemporaryFolder folder;
    SFoldersSource source;
    source.TarvoHome = folder / "a/b";
    ::mkdir((folder / "a").c_str(), 0755);
    ::mkdir((folder / "a/b").c_str(), 0755);
    ::mkdir((folder / "a/b/run").c_str(), 0755);
    const auto folders = FoldersOf(source);
    MakeFolders(folders);
    MakeFolders(folders);
    for (const auto& each : {folders.State, folders.Run, folders.Log, folders.Cache, folders.Secrets()}) {
        struct stat status {};
        ASSERT_EQ(::stat(each.c_str(), &status), 0) << each;
        EXPECT_EQ(status.st_mode & 07777U, 0700U) << each;
    }
    folder.Write("c/state", "in the way");
    source.TarvoHome = folder / "c";
    EXPECT_THROW(MakeFolders(FoldersOf(source)), std::runtime_error);
}

}  // namespace
