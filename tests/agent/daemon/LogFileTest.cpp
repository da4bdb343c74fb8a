// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <thread>

#include "agent/daemon/CLogFile.h"
#include "tests/api/TemporaryFolder.h"

namespace {

using tarvo::CLogFile;
using testing::EndsWith;
using testing::SizeIs;
using zamtest::LinesOf;

TEST(LogFile, ALineHasItsTimeItsLevelAndNothingThatGarbles) {
    const zamtest::CTemporaryFolder folder;
    CLogFile log(folder.Path("log"), {});
    log.Info("one");
    log.Warning("two\nlines \x1b[31m");
    log.Error("\xff");
    const auto lines = LinesOf(folder.Path("log"));
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z I one)")))
        << lines[0];
    EXPECT_THAT(lines[1], EndsWith("W two\\nlines \\x1b[31m"));
    EXPECT_THAT(lines[2], EndsWith("E \\xff"));
}

TEST(LogFile, AFileThatIsLargeEnoughIsPutAsideAndSoManyAreKept) {
    const zamtest::CTemporaryFolder folder;
    CLogFile log(folder.Path("log"), {1000, 2});
    for (int i = 0; i < 100; ++i)
        log.Info("line " + std::to_string(i) + std::string(70, '.'));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("log.1")));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("log.2")));
    EXPECT_FALSE(std::filesystem::exists(folder.Path("log.3")));
    for (const char* const name : {"log", "log.1", "log.2"})
        EXPECT_LE(std::filesystem::file_size(folder.Path(name)), 1000U) << name;
    EXPECT_NE(LinesOf(folder.Path("log")).back().find("line 99"), std::string::npos);
}

TEST(LogFile, WithoutOldFilesTheFileBeginsAnew) {
    const zamtest::CTemporaryFolder folder;
    CLogFile log(folder.Path("log"), {300, 0});
    for (int i = 0; i < 100; ++i)
        log.Info("line " + std::to_string(i));
    EXPECT_LE(std::filesystem::file_size(folder.Path("log")), 300U);
    EXPECT_FALSE(std::filesystem::exists(folder.Path("log.1")));
}

TEST(LogFile, ALogThatIsThereIsGoneOnWith) {
    const zamtest::CTemporaryFolder folder;
    CLogFile(folder.Path("log"), {}).Info("before");
    CLogFile(folder.Path("log"), {}).Info("after");
    EXPECT_THAT(LinesOf(folder.Path("log")), SizeIs(2));
}

TEST(LogFile, AFileThatWasMovedAwayIsMadeAnewWithNewSettings) {
    const zamtest::CTemporaryFolder folder;
    CLogFile log(folder.Path("log"), {});
    log.Info("before");
    std::filesystem::rename(folder.Path("log"), folder.Path("mine"));
    log.Use({});
    log.Info("after");
    EXPECT_THAT(LinesOf(folder.Path("mine")), SizeIs(1));
    EXPECT_THAT(LinesOf(folder.Path("log")), SizeIs(1));
}

TEST(LogFile, ALogThatCannotBeWrittenFailsNobodyAndALinkIsNotFollowed) {
    const zamtest::CTemporaryFolder folder;
    CLogFile nowhere(folder.Path("missing/log"), {});
    nowhere.Info("lost");
    std::filesystem::create_symlink(folder.Path("target"), folder.Path("link"));
    CLogFile linked(folder.Path("link"), {});
    linked.Info("lost");
    EXPECT_FALSE(std::filesystem::exists(folder.Path("target")));
}

TEST(LogFile, LinesOfSeveralThreadsStayWhole) {
    const zamtest::CTemporaryFolder folder;
    CLogFile log(folder.Path("log"), {});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&log] {
            for (int i = 0; i < 100; ++i)
                log.Info(std::string(200, 'x'));
        });
    for (auto& thread : threads)
        thread.join();
    const auto lines = LinesOf(folder.Path("log"));
    EXPECT_THAT(lines, SizeIs(400));
    EXPECT_THAT(lines, testing::Each(EndsWith("I " + std::string(200, 'x'))));
}

}  // namespace
