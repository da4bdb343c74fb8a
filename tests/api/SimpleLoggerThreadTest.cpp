// SPDX-License-Identifier: Apache-2.0
// The log file under many threads.
#include <zamclientlib/CSimpleLogger.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <stdexcept>
#include <thread>

#include "tests/api/TemporaryFolder.h"

namespace zamtest {
namespace {

TEST(SimpleLoggerThreads, KeepTheLinesOfAnErrorTogether) {
    constexpr int Threads = 8;
    constexpr int Rounds = 200;
    const CTemporaryFolder folder;
    zamclientlib::CSimpleLogger logger(folder.Path(), "a.log");
    std::vector<std::thread> threads;
    for (int id = 0; id < Threads; ++id) {
        threads.emplace_back([&logger, id] {
            for (int round = 0; round < Rounds; ++round) {
                const std::string name = std::to_string(id) + ':' + std::to_string(round);
                std::runtime_error error("cause " + name);
                logger.Error(name, error);
                logger.Info("info " + name);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();

    const auto lines = LinesOf(folder.Path("a.log"));
    ASSERT_EQ(lines.size(), 1U + Threads * Rounds * 3);
    std::map<std::string, int> seen;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string text = lines[i].substr(lines[i].find("]    ") + 5);
        ++seen[text];
        if (text.rfind("ERROR: ", 0) != 0) continue;
        ASSERT_LT(i + 1, lines.size());
        EXPECT_EQ(lines[i + 1].substr(lines[i + 1].find("]    ") + 5), "cause " + text.substr(7));
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(Threads * Rounds * 3)) << "a line was cut or lost";
}

TEST(SimpleLoggerThreads, OfSeveralLoggersWriteSeveralFiles) {
    constexpr int Loggers = 6;
    const CTemporaryFolder folder;
    std::vector<std::unique_ptr<zamclientlib::CSimpleLogger>> loggers;
    for (int i = 0; i < Loggers; ++i)
        loggers.push_back(std::make_unique<zamclientlib::CSimpleLogger>(folder.Path(), "a.log"));
    std::vector<std::thread> threads;
    for (auto& logger : loggers)
        threads.emplace_back([&logger] { logger->Info("x"); });
    for (auto& thread : threads)
        thread.join();
    for (int i = 0; i < Loggers; ++i)
        EXPECT_EQ(LinesOf(folder.Path(i == 0 ? "a.log" : "a_" + std::to_string(i) + ".log")).size(), 2U);
}

TEST(SimpleLoggerThreads, OfLoggersThatStartAtOnceTakeAFileEach) {
    constexpr int Loggers = 4;
    constexpr int Rounds = 100;
    for (int round = 0; round < Rounds; ++round) {
        const CTemporaryFolder folder;
        std::atomic<int> ready = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < Loggers; ++i) {
            threads.emplace_back([&] {
                ++ready;
                while (ready != Loggers) {
                }
                zamclientlib::CSimpleLogger(folder.Path(), "a.log").Info("x");
            });
        }
        for (auto& thread : threads)
            thread.join();
        for (int i = 0; i < Loggers; ++i) {
            const std::string name = i == 0 ? "a.log" : "a_" + std::to_string(i) + ".log";
            ASSERT_EQ(LinesOf(folder.Path(name)).size(), 2U) << name << " in round " << round;
        }
    }
}

}  // namespace
}  // namespace zamtest
