// SPDX-License-Identifier: Apache-2.0
// How busy parts of the host are.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <limits>
#include <string>

#include "agent/host/Loads.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using namespace tarvo;
using tests::CTemporaryFolder;

TEST(Loads, ADiskHasBeenBusyForWhatWasCountedSinceTheWatchBegan) {
    const CTemporaryFolder folder;
    struct stat status {};
    ASSERT_EQ(::stat(folder.Path().c_str(), &status), 0);
    const std::string disk = "sys/dev/block/" + std::to_string(::major(status.st_dev)) + ":" +
                             std::to_string(::minor(status.st_dev)) + "/stat";
    folder.Write(disk, "  6094 438 1811 3412 8640 5677 2235 1722  0   4587  5356 6594\n");
    const CDiskWatch watch({folder.Path(), folder.Folder("below"), folder / "missing"}, folder / "sys");
    EXPECT_EQ(watch.Busy(), 0ms);
    folder.Write(disk, "  6094 438 1811 3412 8640 5677 2235 1722  0   5000  9999 6594\n");
    EXPECT_EQ(watch.Busy(), 413ms);
    folder.Write(disk, "  6094 438 1811 3412 8640 5677 2235 1722  0   100  9999 6594\n");  // another disk's
    EXPECT_EQ(watch.Busy(), 0ms);
    folder.Write(disk, "nonsense");
    EXPECT_EQ(watch.Busy(), 0ms);
}

TEST(Loads, WhereNothingIsCountedNothingIsBusy) {
    const CTemporaryFolder folder;
    EXPECT_EQ(CDiskWatch({folder.Path()}, folder / "none").Busy(), 0ms);
    EXPECT_EQ(CDiskWatch({}).Busy(), 0ms);
    EXPECT_EQ(CpuTimeOf(std::numeric_limits<pid_t>::max()), 0ms);
}

TEST(Loads, AProcessThatWorksUsesTheProcessor) {
    const auto before = CpuTimeOf(::getpid());
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (CpuTimeOf(::getpid()) < before + 50ms && std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_GE(CpuTimeOf(::getpid()), before + 50ms);
}

}  // namespace
