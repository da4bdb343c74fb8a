// SPDX-License-Identifier: Apache-2.0
// The agent with its real engine: few tests, since each of its commands takes half a second.
#include <sys/mount.h>

#include <cstdlib>

#include "agent/engine/CResticEngine.h"
#include "agent/state/CStore.h"
#include "tests/Sanitized.h"
#include "tests/agent/jobs/Fixture.h"

namespace tarvo::tests {

namespace {

std::string Contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

class RealEngineTest : public AgentTest {
protected:
    void SetUp() override {
        if (::tests::IsSanitized) GTEST_SKIP() << "the engine's own work is not watched";
        if (std::system("command -v restic >/dev/null") != 0) GTEST_SKIP() << "restic is not installed";
        SResticOptions options;
        options.CacheFolder = Folders.Cache;
        Restic = MakeResticEngine(options);
        Begin();
    }

    void Begin() {
        Agent = std::make_unique<CAgent>(Folders, Settings, Restic, Clock, Log);
        Owner.Mode = ZAMOwnerMode::Shared;
        Caller = {Peer, Agent->RequestControl(Peer, Owner, false)};
        Agent->Start();
    }

    /// What the point holds of the source's file.
    std::string Restored(const Guid& job, const Guid& point, const std::string& name) {
        CStore store(Folders.State, {true, 5s});
        const auto found = store.FindPoint(point);
        EXPECT_TRUE(found);
        if (!found) return {};
        const auto chain = store.FindChain(job, found->Chain);
        SRestoreRequest request;
        request.Store.Folder =
            StoreFolder(chain->Location, PlainText(job), static_cast<unsigned>(chain->Number));
        request.Store.Password = store.ChainPassword(job, chain->Number);
        request.Snapshot = found->EngineId;
        request.Target = Home + "/restored" + std::to_string(++Restores);
        EXPECT_EQ(Restic->Restore(request, {}).Warnings, 0U);
        return Contents(request.Target + Home + "/source/" + name);
    }

    std::shared_ptr<IEngine> Restic;
    int Restores = 0;
};

TEST_F(RealEngineTest, TwoPointsAreKeptAndEachGivesBackWhatItHeld) {
    const Guid job = MakeJob();
    const auto first = RunJob(job);
    EXPECT_EQ(first.Result, JobResult::Success) << Lines(first);
    EXPECT_EQ(first.BackedUpSizeBytes, 4);
    EXPECT_EQ(first.ReadSizeBytes, 4U);
    std::ofstream(Home + "/source/file") << "another text";
    const auto second = RunJob(job);
    EXPECT_EQ(second.Result, JobResult::Success) << Lines(second);
    EXPECT_EQ(Restored(job, first.OibId, "file"), "text");
    EXPECT_EQ(Restored(job, second.OibId, "file"), "another text");
    const auto points = Agent->PointsForRestore(job);
    ASSERT_EQ(points.size(), 2U);
    EXPECT_EQ(points[0].ApproxSize, 4U);
    EXPECT_EQ(points[1].ApproxSize, 12U);
    EXPECT_GT(points[0].StorageSize, 0U);
    EXPECT_TRUE(std::filesystem::exists(Home + "/location/tarvo/" + PlainText(job) + "/README.txt"));
}

TEST_F(RealEngineTest, AStopEndsALongBackupWithinSecondsAndTheNextRunGoesWell) {
    std::ofstream(Home + "/source/huge").close();
    std::filesystem::resize_file(Home + "/source/huge", 200ULL << 30);
    const Guid job = MakeJob();
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Await([&] { return Agent->SessionInfo(session).BackedUpSizeBytes > 0; }));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_TRUE(Agent->StopSession(Caller, session, "too long"));
    const auto info = AwaitEnd(session);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
    EXPECT_TRUE(Says(info, "Canceled")) << Lines(info);
    EXPECT_LT(info.PercentCompleted, 100);
    std::filesystem::remove(Home + "/source/huge");
    const auto next = RunJob(job);
    EXPECT_EQ(next.Result, JobResult::Success) << Lines(next);
}

TEST_F(RealEngineTest, AnotherPasswordOpensTheOldPointsAndTheOldOneNothing) {
    auto config = Config();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("old secret"), ""};
    config.RetentionInfo.RestorePointsCount = 1;
    const Guid job = Agent->CreateJob(Caller, config);
    const auto first = RunJob(job);
    EXPECT_EQ(first.Result, JobResult::Success) << Lines(first);
    config.StorageInfo.EncryptionSettings->Password = std::string("new secret");
    Agent->UpdateJob(Caller, job, config);
    ASSERT_TRUE(Await([&] {
        CStore store(Folders.State, {true, 5s});
        return store.ChainPassword(job, 1) == "new secret";
    }));
    EXPECT_EQ(Restored(job, first.OibId, "file"), "text");
    SEngineStore old{Home + "/location/tarvo/" + PlainText(job) + "/1", "old secret"};
    EXPECT_THROW(Restic->Snapshots(old, {}), CWrongKey);

    const auto second = RunJob(job);
    EXPECT_EQ(second.Result, JobResult::Success) << Lines(second);
    EXPECT_EQ(Agent->PointsForRestore(job).size(), 1U);
    old.Password = "new secret";
    EXPECT_EQ(Restic->Snapshots(old, {}).size(), 1U);
    EXPECT_EQ(Restored(job, second.OibId, "file"), "text");
}

TEST_F(RealEngineTest, AFullDiskFailsTheRunWithTheReasonAndNotTheNextOne) {
    if (::mount("none", (Home + "/location").c_str(), "tmpfs", 0, "size=3m") != 0)
        GTEST_SKIP() << "may not mount";
    std::ofstream noise(Home + "/source/noise", std::ios::binary);
    std::ifstream random("/dev/urandom", std::ios::binary);
    std::vector<char> bytes(8 << 20);
    random.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    noise.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    noise.close();
    const Guid job = MakeJob();
    const auto failed = RunJob(job);
    EXPECT_EQ(failed.Result, JobResult::Failed) << Lines(failed);
    EXPECT_TRUE(Says(failed, "space") || Says(failed, "full")) << Lines(failed);
    std::filesystem::remove(Home + "/source/noise");
    EXPECT_EQ(::mount("none", (Home + "/location").c_str(), "tmpfs", MS_REMOUNT, "size=30m"), 0);
    const auto next = RunJob(job);
    EXPECT_EQ(next.Result, JobResult::Success) << Lines(next);
    EXPECT_EQ(Restored(job, next.OibId, "file"), "text");
    Agent.reset();
    ::umount2((Home + "/location").c_str(), MNT_DETACH);
}

TEST_F(RealEngineTest, ADamagedChainIsFoundByReadingItsDataAndFollowedByANewOne) {
    Settings.VerifyParts = 1;
    Agent->Reload(Settings);
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    for (const auto& pack : std::filesystem::recursive_directory_iterator(Home + "/location/tarvo/" +
                                                                          PlainText(job) + "/1/data")) {
        if (!pack.is_regular_file()) continue;
        std::filesystem::permissions(pack.path(), std::filesystem::perms::owner_all);
        std::fstream file(pack.path(), std::ios::in | std::ios::out | std::ios::binary);
        const char byte = static_cast<char>(file.get() ^ 1);
        file.seekp(0).put(byte);
    }
    MoveClock(1h);
    const auto found = AwaitSession(job, 2);
    EXPECT_NE(found.Result, JobResult::Success);
    EXPECT_TRUE(Says(found, "damage")) << Lines(found);
    const auto next = RunJob(job);
    EXPECT_EQ(next.SessionAlgorithm, JobSessionAlgorithm::Full) << Lines(next);
    EXPECT_EQ(Restored(job, next.OibId, "file"), "text");
}

}  // namespace tarvo::tests
