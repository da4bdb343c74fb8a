// SPDX-License-Identifier: Apache-2.0
// From a source to the list that the engine is fed.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "agent/host/Walk.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace tarvo;
using tests::ContentOf;
using tests::CTemporaryFolder;
namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class WalkOf : public testing::Test {
protected:
    WalkOf() {
        m_request.Roots = {m_folder.Folder("s")};
        m_request.ListFile = m_folder / "list";
        m_request.ExcludeFile = m_folder / "excludes";
    }

    /// The list, relative to the source, sorted.
    Names Listed() {
        m_result = Walk(m_request, {});
        Names names;
        const std::string text = ContentOf(m_request.ListFile);
        for (std::size_t start = 0; start < text.size();) {
            const auto end = text.find('\0', start);
            std::string name = text.substr(start, end - start);
            if (name.starts_with(m_folder / "s")) name.erase(0, (m_folder / "s").size());
            names.push_back(name);
            start = end + 1;
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string Excludes() const { return ContentOf(m_request.ExcludeFile); }
    std::string In(const std::string& name) const { return m_folder / ("s/" + name); }

    CTemporaryFolder m_folder;
    SWalkRequest m_request;
    SWalkResult m_result;
};

TEST_F(WalkOf, ATreeThatIsTakenWholeIsOneEntry) {
    m_folder.Write("s/a/b/c", "12345");
    m_folder.Write("s/d\ne", "1");
    EXPECT_EQ(Listed(), Names{""});
    EXPECT_EQ(Excludes(), "");
    EXPECT_EQ(m_result.Files, 2U);
    EXPECT_EQ(m_result.Folders, 3U);
    EXPECT_EQ(m_result.Bytes, 6U);
    struct stat status {};
    ::stat(m_request.ListFile.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(WalkOf, ExcludedFoldersAreAPatternThatMeansThemAlone) {
    m_folder.Write("s/a/[x]*$HOME/f", "");
    m_folder.Write("s/a/x/f", "");
    m_folder.Write("s/b/f", "");
    m_request.ExcludeDirs = {In("a/[x]*$HOME/"), In("b"), "/elsewhere"};
    EXPECT_EQ(Listed(), Names{""});
    const std::string excludes = Excludes();
    EXPECT_NE(excludes.find(In("a/\\[x\\]\\*$$HOME\n")), std::string::npos) << excludes;
    EXPECT_NE(excludes.find(In("b\n")), std::string::npos) << excludes;
    EXPECT_EQ(m_result.Files, 1U);
}

TEST_F(WalkOf, AnExcludedFolderThatNoPatternCanNameIsLeftOutOfTheList) {
    m_folder.Write("s/new\nline/f", "");
    m_folder.Write("s/end /f", "");
    m_folder.Write("s/good/f", "");
    m_request.ExcludeDirs = {In("new\nline"), In("end ")};
    EXPECT_EQ(Listed(), Names{"/good"});
    EXPECT_EQ(Excludes(), "");
}

TEST_F(WalkOf, MasksChooseByTheBaseNamesOfEverythingButFolders) {
    m_folder.Write("s/a/1.txt", "");
    m_folder.Write("s/a/2.tmp", "");
    m_folder.Write("s/b.tmp/3.txt", "");
    m_folder.Write("s/c/deep/4.txt", "");
    m_folder.Write("s/d/5.tmp", "");
    fs::create_symlink("x", In("c/l.tmp"));
    m_request.ExcludeMasks = {"*.tmp"};
    EXPECT_EQ(Listed(), (Names{"/a/1.txt", "/b.tmp", "/c/deep", "/d"}));
    EXPECT_EQ(Excludes(), In("d/*\n"));
    m_request.IncludeMasks = {"[1-3]*"};
    EXPECT_EQ(Listed(), (Names{"/a/1.txt", "/b.tmp"}));
    m_request.ExcludeMasks = {"*"};
    EXPECT_TRUE(Listed().empty());
    EXPECT_TRUE(m_result.IsEmpty);
    m_request.ExcludeMasks.clear();
    m_request.IncludeMasks = {"*.t*"};
    EXPECT_EQ(Listed(), Names{""});
}

TEST_F(WalkOf, AMaskKnowsLettersAndCopesWithNamesThatHaveNone) {
    for (const char* name : {"\xc3\xa4.x", "ab.x", "b\xff.x", "\xff\xfe.tmp", "\xe4.x", "c.\xff"})
        m_folder.Write("s/" + std::string(name), "");
    m_request.IncludeMasks = {"?.x"};
    EXPECT_EQ(Listed(), (Names{"/\xc3\xa4.x", "/\xe4.x"}));
    m_request.IncludeMasks = {"[\xc3\xa0-\xc3\xa9]*", "c.\xff"};
    EXPECT_EQ(Listed(), (Names{"/c.\xff", "/\xc3\xa4.x"}));
    m_request.IncludeMasks.clear();
    m_request.ExcludeMasks = {"*.tmp", "*.x"};
    EXPECT_EQ(Listed(), Names{"/c.\xff"});
}

TEST_F(WalkOf, AnEmptiedFolderThatNoPatternCanNameIsCounted) {
    m_folder.Write("s/new\nline/x.tmp", "");
    m_folder.Write("s/f", "");
    m_request.ExcludeMasks = {"*.tmp"};
    EXPECT_EQ(Listed(), Names{"/f"});
    EXPECT_EQ(m_result.Unsayable.Count, 1U);
    EXPECT_EQ(m_result.Unsayable.Examples, Names{In("new\\nline")});
}

TEST_F(WalkOf, RootsCountOnceAndLinksLeadToWhatTheyName) {
    m_folder.Write("s/a/f", "1");
    m_folder.Write("t/g", "1");
    fs::create_symlink(m_folder / "t", m_folder / "link");
    fs::create_symlink(m_folder / "s", m_folder / "way");
    m_request.Roots = {In("a"),           In("a/f"),        m_folder / "s/", m_folder / "way/a",
                       m_folder / "link", m_folder / "gone"};
    Listed();
    Names resolved = m_result.Resolved;
    std::sort(resolved.begin(), resolved.end());
    EXPECT_EQ(Listed(), (Names{"", m_folder / "link", m_folder / "t"}));
    EXPECT_EQ(m_result.MissingRoots.Examples, Names{m_folder / "gone"});
    EXPECT_EQ(m_result.Files, 3U);
}

TEST_F(WalkOf, WhatIsExcludedStaysSoThoughItIsNamedAsARoot) {
    m_folder.Write("s/a/f", "1");
    m_request.Roots.push_back(In("a/f"));
    m_request.ExcludeDirs = {m_folder / "s"};
    EXPECT_TRUE(Listed().empty());
}

TEST_F(WalkOf, TheAgentsOwnFoldersStayWithoutTheirContent) {
    m_folder.Write("s/cache/x", "");
    m_folder.Write("s/f", "");
    m_request.Never = {In("cache")};
    EXPECT_EQ(Listed(), Names{""});
    EXPECT_EQ(Excludes(), In("cache/*\n"));
    EXPECT_EQ(m_result.Files, 1U);
}

TEST_F(WalkOf, OddThingsAreSeen) {
    fs::create_symlink("caf\xe9", In("odd"));
    fs::create_symlink("caf\xc3\xa9", In("even"));
    m_folder.Write("s/sparse", "");
    fs::resize_file(In("sparse"), 1'000'000);
    m_folder.Write("s/dense", std::string(100'000, 'x'));
    Listed();
    EXPECT_EQ(m_result.OddLinkTargets.Examples, Names{In("odd")});
    EXPECT_EQ(m_result.SparseFiles.Examples, Names{In("sparse")});
}

TEST_F(WalkOf, BytesThatHaveChangedSinceThePointBeforeAreCounted) {
    m_folder.Write("s/old", "12345");
    m_request.Since = std::chrono::system_clock::now() + std::chrono::hours(1);
    Listed();
    EXPECT_EQ(m_result.BytesSince, 0U);
    m_request.Since = std::chrono::system_clock::now() - std::chrono::hours(1);
    Listed();
    EXPECT_EQ(m_result.BytesSince, 5U);
}

TEST_F(WalkOf, OtherFileSystemsBelowAreTakenWhenTheyLastAndOnlyThen) {
    m_folder.Write("s/f", "");
    m_folder.Folder("s/memory");
    if (::mount("none", In("memory").c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "no right to mount";
    m_folder.Write("s/memory/x", "1");
    EXPECT_EQ(Listed(), Names{""});
    EXPECT_EQ(m_result.Files, 1U);
    EXPECT_EQ(m_result.OneFileSystem, true);
    // One that is named is taken whatever it is.
    m_request.Roots.push_back(In("memory"));
    EXPECT_EQ(Listed(), (Names{"", "/memory"}));
    EXPECT_EQ(m_result.Files, 2U);
    ::umount2(In("memory").c_str(), MNT_DETACH);
}

TEST_F(WalkOf, AFolderThatCanNotBeListedIsLeftToTheEngineToNameAndCounted) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may read everything";
    m_folder.Write("s/closed/f", "");
    ::chmod(In("closed").c_str(), 0);
    EXPECT_EQ(Listed(), Names{""});
    EXPECT_EQ(m_result.Unreadable.Examples, Names{In("closed")});
    ::chmod(In("closed").c_str(), 0700);
}

TEST_F(WalkOf, AStopIsHeard) {
    for (int i = 0; i < 300; ++i)
        m_folder.Write("s/" + std::to_string(i), "");
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(Walk(m_request, source.get_token()), CWalkStopped);
}

TEST_F(WalkOf, ASurveyEndsAtItsLimitAndWritesNothing) {
    for (int i = 0; i < 100; ++i)
        m_folder.Write("s/" + std::to_string(i), "");
    const auto result = Survey(m_request, 10, {});
    EXPECT_FALSE(result.IsComplete);
    EXPECT_LE(result.Files, 10U);
    EXPECT_FALSE(fs::exists(m_request.ListFile));
    EXPECT_TRUE(Survey(m_request, 1000, {}).IsComplete);
}

TEST_F(WalkOf, AVeryDeepTreeNeedsFewDescriptors) {
    std::string path = m_folder / "s";
    for (int depth = 0; depth < 400; ++depth) {
        path += "/d";
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    }
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{64, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(Listed(), Names{""});
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(m_result.Folders, 401U);
}

TEST_F(WalkOf, MemoryDoesNotGrowWithTheList) {
    // Half of each folder is left out, so that the list is long.
    const std::string name(200, 'n');
    for (int folder = 0; folder < 10; ++folder) {
        for (int file = 0; file < 200; ++file)
            m_folder.Write(
                "s/" + std::to_string(folder) + "/" + name + std::to_string(file) + (file % 2 ? ".a" : ".b"),
                "");
    }
    m_request.ExcludeMasks = {"*.b"};
    EXPECT_EQ(Listed().size(), 1'000U);
    EXPECT_GT(fs::file_size(m_request.ListFile), 200'000U);
    m_request.ExcludeMasks.clear();
    EXPECT_EQ(Listed(), Names{""});
    EXPECT_LT(fs::file_size(m_request.ListFile), 200U);
}

}  // namespace
