// SPDX-License-Identifier: Apache-2.0
// The log file: its name, its lines, and what happens where none can be written.
#include <zamclientlib/CSimpleLogger.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <set>
#include <stdexcept>
#include <thread>

#include "tests/Sanitized.h"
#include "tests/api/OwnProcess.h"
#include "tests/api/TemporaryFolder.h"

namespace zamtest {
namespace {

using testing::ElementsAre;
using zamclientlib::CSimpleLogger;

const std::string Banner(std::string(31, '=') + " Log has been started " + std::string(33, '='));

/// "05.11.21 14:03:09.42", as a POSIX expression.
const std::string Stamp("[0-9]{2}\\.[0-9]{2}\\.[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.(0|[1-9][0-9]{0,2})");

/// The texts behind the time stamps, which are checked on the way.
std::vector<std::string> Messages(const std::string& path) {
    std::vector<std::string> messages;
    for (const std::string& line : LinesOf(path)) {
        EXPECT_THAT(line, testing::MatchesRegex("\\[" + Stamp + "\\]    .*"));
        const std::string mark = "]    ";
        messages.push_back(line.substr(line.find(mark) + mark.size()));
    }
    return messages;
}

class SimpleLogger : public testing::Test {
protected:
    CTemporaryFolder m_folder;
};

TEST_F(SimpleLogger, BeginsItsFileWithTheBanner) {
    EXPECT_EQ(Banner.size(), 86U);
    CSimpleLogger logger(m_folder.Path(), "a.log");
    EXPECT_THAT(Messages(m_folder.Path("a.log")), ElementsAre(Banner));
}

TEST_F(SimpleLogger, HasEachLineOnDiskWhenTheCallReturns) {
    CSimpleLogger logger(m_folder.Path(), "a.log");
    std::runtime_error error("boom");
    logger.Info(" two words ");
    logger.Error("Failed", error);
    logger.Info("");
    EXPECT_THAT(Messages(m_folder.Path("a.log")),
                ElementsAre(Banner, " two words ", "ERROR: Failed", "boom", ""));
}

TEST_F(SimpleLogger, WritesMessagesUnchanged) {
    const std::string odd("<\xff\t\0\r>", 6);
    { CSimpleLogger(m_folder.Path(), "a.log").Info(odd); }
    std::ifstream file(m_folder.Path("a.log"), std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ(all.substr(all.size() - odd.size() - 6), "]    " + odd + '\n');
}

TEST_F(SimpleLogger, WritesNoLineWhenItEnds) {
    { CSimpleLogger logger(m_folder.Path(), "a.log"); }
    EXPECT_EQ(LinesOf(m_folder.Path("a.log")).size(), 1U);
}

TEST_F(SimpleLogger, TakesTheFolderWithAndWithoutASlash) {
    EXPECT_EQ(CSimpleLogger::MakeFileName("/nonexistent/tarvo/config", "apiclient_control.log"),
              "/nonexistent/tarvo/config/apiclient_control.log");
    EXPECT_EQ(CSimpleLogger::MakeFileName("/nonexistent/tarvo/", "apiclient_installer.log"),
              "/nonexistent/tarvo/apiclient_installer.log");
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "x"),
              CSimpleLogger::MakeFileName(m_folder.Path() + '/', "x"));
}

TEST_F(SimpleLogger, NumbersItsFileBesideExistingOnes) {
    for (const char* const name : {"a.log", "a_1.log", "a_2.log"})
        m_folder.Write(name, "old\n");
    CSimpleLogger logger(m_folder.Path(), "a.log");
    EXPECT_THAT(Messages(m_folder.Path("a_3.log")), ElementsAre(Banner));
    EXPECT_THAT(LinesOf(m_folder.Path("a.log")), ElementsAre("old"));
    EXPECT_THAT(LinesOf(m_folder.Path("a_2.log")), ElementsAre("old"));
}

TEST_F(SimpleLogger, FillsTheFirstGapOfTheNumbers) {
    m_folder.Write("a.log", "");
    m_folder.Write("a_2.log", "");
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "a.log"), m_folder.Path("a_1.log"));
}

TEST_F(SimpleLogger, NumbersALongRowOfFiles) {
    m_folder.Write("a.log", "");
    for (int i = 1; i < 1200; ++i)
        m_folder.Write("a_" + std::to_string(i) + ".log", "");
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "a.log"), m_folder.Path("a_1200.log"));
}

TEST_F(SimpleLogger, PutsTheNumberBeforeTheLastDot) {
    for (const auto& [name, numbered] :
         std::vector<std::pair<std::string, std::string>>{{"x.tar.log", "x.tar_1.log"},
                                                          {"trace", "trace_1"},
                                                          {".hidden", "_1.hidden"},
                                                          {"end.", "end_1."},
                                                          {"a_1.log", "a_1_1.log"}}) {
        EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), name), m_folder.Path(name));
        m_folder.Write(name, "");
        EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), name), m_folder.Path(numbered)) << name;
    }
}

TEST_F(SimpleLogger, BeginsTheSearchAtTheGivenNumber) {
    const std::string folder = m_folder.Path() + '/';
    EXPECT_EQ(CSimpleLogger::GetFirstNonexistentFileName(folder, "a", ".log", 0), folder + "a.log");
    EXPECT_EQ(CSimpleLogger::GetFirstNonexistentFileName(folder, "a", ".log", 7), folder + "a_7.log");
    m_folder.Write("a_7.log", "");
    EXPECT_EQ(CSimpleLogger::GetFirstNonexistentFileName(folder, "a", ".log", 7), folder + "a_8.log");
    EXPECT_EQ(CSimpleLogger::GetFirstNonexistentFileName(folder, "a", "", -1), folder + "a");
}

TEST_F(SimpleLogger, MakesNoFileWhileItLooksForAName) {
    CSimpleLogger::MakeFileName(m_folder.Path(), "a.log");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.Path()));
}

TEST_F(SimpleLogger, DropsItsLinesWithoutAFolder) {
    const std::string missing = m_folder.Path("missing");
    CSimpleLogger logger(missing, "a.log");
    std::runtime_error error("x");
    EXPECT_NO_THROW(logger.Info("lost"));
    EXPECT_NO_THROW(logger.Error("lost", error));
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(SimpleLogger, TakesAFolderOfTheFilesNameForNoFileAndDropsItsLines) {
    std::filesystem::create_directory(m_folder.Path("a.log"));
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "a.log"), m_folder.Path("a.log"));
    CSimpleLogger logger(m_folder.Path(), "a.log");
    EXPECT_NO_THROW(logger.Info("lost"));
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.Path("a.log")));
}

TEST_F(SimpleLogger, TakesAFileThatItMayNotWriteForNoneAndLeavesItAlone) {
    m_folder.Write("a.log", "old\n");
    ::chmod(m_folder.Path("a.log").c_str(), 0444);
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  constexpr uid_t Nobody = 65534;  // root may write everything
                  if (::geteuid() == 0 && ::setuid(Nobody) != 0) return 2;
                  if (CSimpleLogger::MakeFileName(m_folder.Path(), "a.log") != m_folder.Path("a.log"))
                      return 3;
                  CSimpleLogger(m_folder.Path(), "a.log").Info("lost");
                  return 0;
              }),
              0);
    EXPECT_THAT(LinesOf(m_folder.Path("a.log")), ElementsAre("old"));
}

TEST_F(SimpleLogger, DropsWhatFindsNoRoom) {
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{50, 50};
                  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
                  CSimpleLogger(m_folder.Path(), "a.log").Info("lost");
                  return 0;
              }),
              0);
    EXPECT_EQ(std::filesystem::file_size(m_folder.Path("a.log")), 50U);
}

TEST_F(SimpleLogger, BeginsANewLineOnceThereIsRoomAgainAfterOneThatWasCut) {
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  rlimit limit{50, RLIM_INFINITY};
                  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
                  CSimpleLogger logger(m_folder.Path(), "a.log");
                  logger.Info("lost");
                  limit.rlim_cur = RLIM_INFINITY;
                  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 3;
                  logger.Info("there");
                  logger.Info("as well");
                  return 0;
              }),
              0);
    const auto lines = LinesOf(m_folder.Path("a.log"));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].size(), 50U);
    EXPECT_THAT(lines[1], testing::MatchesRegex("\\[" + Stamp + "\\]    there"));
    EXPECT_THAT(lines[2], testing::MatchesRegex("\\[" + Stamp + "\\]    as well"));
}

TEST_F(SimpleLogger, DoesNotFollowALinkThatLeadsNowhere) {
    const std::string target = m_folder.Path("target");
    std::filesystem::create_symlink(target, m_folder.Path("a.log"));
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "a.log"), m_folder.Path("a.log"));
    CSimpleLogger(m_folder.Path(), "a.log").Info("lost");
    EXPECT_FALSE(std::filesystem::exists(target));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("a_1.log")));
}

TEST_F(SimpleLogger, TakesALinkToAFileForAFile) {
    m_folder.Write("target", "old\n");
    std::filesystem::create_symlink(m_folder.Path("target"), m_folder.Path("a.log"));
    EXPECT_EQ(CSimpleLogger::MakeFileName(m_folder.Path(), "a.log"), m_folder.Path("a_1.log"));
}

TEST_F(SimpleLogger, DoesNotEmptyAFileThatItMayWriteButNotRead) {
    m_folder.Write("a.log", "old\n");
    ::chmod(m_folder.Path("a.log").c_str(), 0222);
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  constexpr uid_t Nobody = 65534;  // root may read everything
                  if (::geteuid() == 0 && ::setuid(Nobody) != 0) return 2;
                  if (CSimpleLogger::MakeFileName(m_folder.Path(), "a.log") != m_folder.Path("a.log"))
                      return 3;
                  CSimpleLogger(m_folder.Path(), "a.log").Info("lost");
                  return 0;
              }),
              0);
    ::chmod(m_folder.Path("a.log").c_str(), 0644);
    EXPECT_THAT(LinesOf(m_folder.Path("a.log")), ElementsAre("old"));
}

TEST_F(SimpleLogger, PassesAPipeOfItsNameWithoutThePipesReaderNoticing) {
    const std::string path = m_folder.Path("a.log");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    CSimpleLogger logger(m_folder.Path(), "a.log");
    EXPECT_THAT(Messages(m_folder.Path("a_1.log")), ElementsAre(Banner));
    pollfd item{reader, POLLIN, 0};
    EXPECT_EQ(::poll(&item, 1, 0), 0) << "a writer has come and gone";
    ::close(reader);
}

TEST_F(SimpleLogger, WritesWholeLinesFromBothSidesOfAFork) {
    if (tests::IsSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at the fork";
    constexpr int Lines = 2000;
    CSimpleLogger logger(m_folder.Path(), "a.log");
    const auto write = [&](const std::string& text) {
        for (int i = 0; i < Lines; ++i)
            logger.Info(text);
        return 0;
    };
    const std::string parents(100, 'p');
    const std::string children(100, 'c');
    std::thread other([&] { write(parents); });
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] { return write(children); }), 0);
    other.join();
    const auto messages = Messages(m_folder.Path("a.log"));
    EXPECT_EQ(messages.size(), 1U + 2 * Lines);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), parents), Lines);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), children), Lines);
}

TEST_F(SimpleLogger, CanBeUsedInAProcessThatWasForkedWhileAnotherThreadLogged) {
    if (tests::IsSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at the fork";
    CSimpleLogger logger(m_folder.Path(), "a.log");
    std::atomic<bool> isDone = false;
    std::thread other([&] {
        while (!isDone)
            logger.Info("parent");
    });
    for (int round = 0; round < 200; ++round) {
        const int result = ResultInAProcessOfItsOwn([&] {
            ::alarm(10);
            std::runtime_error error("boom");
            logger.Error("child", error);
            return 0;
        });
        EXPECT_EQ(result, 0) << "the child hung in round " << round;
        if (result != 0) break;
    }
    isDone = true;
    other.join();
}

TEST_F(SimpleLogger, IsNoPlaceWhereAThreadThatWasCancelledEnds) {
    struct SWork {
        CTemporaryFolder& Folder;
        static void* Run(void* object) {
            ::pthread_cancel(::pthread_self());
            {
                CSimpleLogger logger(static_cast<SWork*>(object)->Folder.Path(), "a.log");
                logger.Info("there");
            }
            ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            return object;
        }
    } work{m_folder};
    m_folder.Write("a.log", "old\n");
    EXPECT_EQ(ResultInAProcessOfItsOwn([&] {
                  pthread_t thread{};
                  void* end = nullptr;
                  if (::pthread_create(&thread, nullptr, &SWork::Run, &work) != 0) return 2;
                  if (::pthread_join(thread, &end) != 0) return 3;
                  return end == &work ? 0 : 4;
              }),
              0);
    EXPECT_THAT(Messages(m_folder.Path("a_1.log")), ElementsAre(Banner, "there"));
}

TEST_F(SimpleLogger, KeepsItsLinesWholeWhenAThreadIsCancelled) {
    struct SWork {
        CSimpleLogger Logger;
        std::atomic<int> Lines = 0;
        std::atomic<bool> IsDone = false;
        static void* Run(void* object) {
            SWork& work = *static_cast<SWork*>(object);
            while (!work.IsDone) {
                work.Logger.Info("cancelled");
                ++work.Lines;
            }
            ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            return object;
        }
    };
    const int lines = ResultInAProcessOfItsOwn([&] {
        SWork work{CSimpleLogger(m_folder.Path(), "a.log")};
        pthread_t thread{};
        void* end = nullptr;
        if (::pthread_create(&thread, nullptr, &SWork::Run, &work) != 0) return 0;
        const auto awaitLines = [&](int count) {
            for (int milliseconds = 0; work.Lines < count && milliseconds < 10'000; ++milliseconds) {
                work.Logger.Info("other");
                ::poll(nullptr, 0, 1);
            }
        };
        awaitLines(1);
        ::pthread_cancel(thread);
        awaitLines(work.Lines + 3);
        work.IsDone = true;
        if (::pthread_join(thread, &end) != 0 || end != &work) return 0;
        return work.Lines > 200 ? 200 : work.Lines.load();
    });
    EXPECT_GE(lines, 4);
    const auto messages = Messages(m_folder.Path("a.log"));
    EXPECT_GE(std::count(messages.begin(), messages.end(), "cancelled"), lines);
}

TEST_F(SimpleLogger, StaysUsableAfterAnErrorWithoutAText) {
    class CNoText final : public std::exception {
        const char* what() const noexcept override { return nullptr; }
    } error;
    CSimpleLogger logger(m_folder.Path(), "a.log");
    try {
        logger.Error("Failed", error);
        ADD_FAILURE();
    } catch (const std::logic_error& thrown) {
        EXPECT_STREQ(thrown.what(), "basic_string::_M_construct null not valid");
    }
    logger.Info("next");
    EXPECT_THAT(Messages(m_folder.Path("a.log")), ElementsAre(Banner, "ERROR: Failed", "next"));
}

TEST_F(SimpleLogger, WritesMillisecondsUnpadded) {
    // Stamps are taken until one of each width has been seen, within a second in the normal course.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::set<std::size_t> widths;
    while (widths.size() < 3 && std::chrono::steady_clock::now() < deadline) {
        const std::string stamp = CSimpleLogger::GetLocalTime();
        ASSERT_THAT(stamp, testing::MatchesRegex(Stamp));
        widths.insert(stamp.size() - stamp.rfind('.') - 1);
    }
    EXPECT_EQ(widths, (std::set<std::size_t>{1, 2, 3}));
}

TEST_F(SimpleLogger, StampsTheLocalTime) {
    EXPECT_EQ(ResultInAProcessOfItsOwn([] {
                  ::setenv("TZ", "XXX-11:30", 1);
                  ::tzset();
                  const std::time_t before = std::time(nullptr);
                  const std::string stamp = CSimpleLogger::GetLocalTime();
                  // Not std::time(): its clock is a tick behind the logger's.
                  const std::time_t after =
                      std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
                  for (std::time_t t = before; t <= after; ++t) {
                      char text[32];
                      const std::time_t shifted = t + 11 * 3600 + 30 * 60;
                      std::tm utc{};
                      ::gmtime_r(&shifted, &utc);
                      std::strftime(text, sizeof text, "%d.%m.%y %H:%M:%S.", &utc);
                      if (stamp.rfind(text, 0) == 0) return 0;
                  }
                  return 1;
              }),
              0);
}

TEST_F(SimpleLogger, FollowsAChangeOfTheTimeZone) {
    EXPECT_EQ(ResultInAProcessOfItsOwn([] {
                  const auto hourIn = [](const char* zone) {
                      ::setenv("TZ", zone, 1);
                      return CSimpleLogger::GetLocalTime().substr(9, 2);
                  };
                  for (int attempt = 0; attempt < 3; ++attempt) {  // an hour may end in between
                      const std::string east = hourIn("XXX-5");
                      const std::string west = hourIn("YYY+4");
                      if ((std::stoi(east) - std::stoi(west) + 24) % 24 == 9) return 0;
                  }
                  return 1;
              }),
              0);
}

TEST_F(SimpleLogger, LeaksItsFileIntoNoChild) {
    CSimpleLogger logger(m_folder.Path(), "a.log");
    const auto path = std::filesystem::canonical(m_folder.Path("a.log"));
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry, error) != path) continue;
        ++found;
        EXPECT_NE(::fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace zamtest
