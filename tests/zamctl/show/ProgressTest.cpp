// SPDX-License-Identifier: Apache-2.0
// The line of a session's progress.
#include <zamclientlib/Chrono.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Captured.h"
#include "show/CProgress.h"
#include "show/Words.h"

namespace zamctl {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using zamclientlib::JobState;
using zamclientlib::SBackupJobSessionInfo;

const auto Now = std::chrono::system_clock::from_time_t(1795278661);

SBackupJobSessionInfo Session(unsigned short percent) {
    SBackupJobSessionInfo info;
    info.State = JobState::Working;
    info.PercentCompleted = percent;
    info.ReadSizeBytes = 1288490188;  // 1.2 GiB
    info.ProcessingRateByteInSec = 89128960;
    info.StartTimeUtc = zamclientlib::ToDateTime(Now - 42s);
    return info;
}

TEST(ProgressLine, SaysAllThatIsKnownWhereThereIsRoom) {
    EXPECT_EQ(ProgressLine(Session(42), 80, Now),
              "[#############                  ]  42 %  1.2 GiB of 2.9 GiB  85 MiB/s  58 s left")
        << "as wide as the terminal";
}

TEST(ProgressLine, IsExactlyAsWideAsAsked) {
    for (const unsigned short percent : {0, 4, 5, 42, 99, 100}) {
        for (unsigned width = 40; width <= 200; ++width) {
            const std::string line = ProgressLine(Session(percent), width, Now);
            EXPECT_EQ(ColumnsOf(line), width) << line;
            EXPECT_THAT(line, HasSubstr(std::to_string(percent) + " %"));
        }
        for (unsigned width = 0; width < 40; ++width)
            EXPECT_LE(ColumnsOf(ProgressLine(Session(percent), width, Now)), width);
    }
}

TEST(ProgressLine, GivesUpTheRateFirstAndTheTimeLeftLast) {
    EXPECT_THAT(ProgressLine(Session(42), 55, Now),
                testing::AllOf(Not(HasSubstr("MiB/s")), HasSubstr("of 2.9 GiB"), HasSubstr("58 s left")));
    EXPECT_THAT(ProgressLine(Session(42), 40, Now),
                testing::AllOf(Not(HasSubstr("GiB")), HasSubstr("58 s left")));
}

TEST(ProgressLine, ForetellsNothingWhileItKnowsTooLittle) {
    EXPECT_THAT(ProgressLine(Session(4), 120, Now),
                testing::AllOf(Not(HasSubstr(" of ")), Not(HasSubstr("left"))));
    EXPECT_THAT(ProgressLine(Session(100), 120, Now),
                testing::AllOf(Not(HasSubstr(" of ")), Not(HasSubstr("left")), HasSubstr("#]")));
    SBackupJobSessionInfo none;
    EXPECT_EQ(ProgressLine(none, 40, Now), '[' + std::string(32, ' ') + "]   0 %");
    SBackupJobSessionInfo ahead = Session(42);
    ahead.StartTimeUtc = zamclientlib::ToDateTime(Now + 1h);
    EXPECT_THAT(ProgressLine(ahead, 120, Now), Not(HasSubstr("left"))) << "the clock was put back";
}

TEST(ProgressLine, BearsFiguresThatCannotBe) {
    SBackupJobSessionInfo info = Session(65535);
    info.ReadSizeBytes = ~0UL;
    info.ProcessingRateByteInSec = -1;
    info.StartTimeUtc = {std::numeric_limits<long>::min(), 65535};
    EXPECT_THAT(ProgressLine(info, 80, Now), testing::AllOf(HasSubstr("100 %"), Not(HasSubstr("/s"))));
    info.PercentCompleted = 50;
    EXPECT_EQ(ColumnsOf(ProgressLine(info, 80, Now)), 80U);
}

TEST(ProgressLine, NamesAStateInWhichNothingMoves) {
    SBackupJobSessionInfo info = Session(42);
    info.State = JobState::Pending;
    EXPECT_THAT(ProgressLine(info, 100, Now), testing::AllOf(HasSubstr("pending"), Not(HasSubstr("left"))));
}

TEST(Progress, IsNotShownWhereThereIsNoTerminal) {
    const CRedirected error(STDERR_FILENO);
    {
        CProgress progress(true, true);
        progress.Show(Session(42));
        progress.ShowWord("away");
    }
    EXPECT_EQ(error.Text(), "");
}

}  // namespace
}  // namespace zamctl
