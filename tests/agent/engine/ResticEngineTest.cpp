// SPDX-License-Identifier: Apache-2.0
// The engine with the real restic: what comes back is what went in.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "agent/engine/CResticEngine.h"
#include "agent/host/RunChild.h"
#include "agent/host/Walk.h"
#include "support/common/CChildProcess.h"
#include "tests/MessageOf.h"
#include "tests/Sanitized.h"
#include "tests/agent/CTemporaryFolder.h"
#include "tests/agent/TreeText.h"

namespace {

using namespace tarvo;
using tests::ContentOf;
using tests::CTemporaryFolder;
using tests::TreeText;
namespace fs = std::filesystem;

const std::string Job = "11111111-2222-3333-4444-555555555555";

class ResticEngine : public testing::Test {
protected:
    void SetUp() override {
        // Its words and its faults are, in the tests beside this one, and what calls it, in those of the API.
        if (tests::IsSanitized) GTEST_SKIP() << "the engine's own work is not watched";
    }

    SEngineStore Store(std::uint64_t chain = 1, std::optional<std::string> password = {}) {
        return {StoreFolder(m_folder.Folder("location"), Job, chain), std::move(password)};
    }

    SBackupResult BackUp(const SEngineStore& store, const std::string& point, const std::string& parent = "",
                         SWalkRequest walk = {}) {
        if (walk.Roots.empty()) walk.Roots = {m_folder / "source"};
        walk.ListFile = m_folder / "list";
        walk.ExcludeFile = m_folder / "excludes";
        const auto walked = Walk(walk, {});
        EXPECT_FALSE(walked.IsEmpty);
        SBackupRequest request;
        request.Store = store;
        request.Job = Job;
        request.Point = point;
        request.ListFile = walk.ListFile;
        request.ExcludeFile = walk.ExcludeFile;
        request.OneFileSystem = walked.OneFileSystem;
        request.Parent = parent;
        request.OnProgress = [&](const SBackupProgress& progress) { m_progress.push_back(progress); };
        request.OnWarning = [&](const SEngineWarning& warning) { m_warnings.push_back(warning.Message); };
        return m_engine->BackUp(request, {});
    }

    std::string Restored(const SEngineStore& store, const std::string& snapshot,
                         const std::vector<std::string>& paths = {}) {
        const std::string target = m_folder / "restored" + std::to_string(++m_restores);
        const auto result = m_engine->Restore({store, snapshot, target, paths, "p", {}}, {});
        EXPECT_EQ(result.Warnings, 0U);
        return target;
    }

    CTemporaryFolder m_folder;
    std::shared_ptr<IEngine> m_engine = MakeResticEngine({.Program = "", .CacheFolder = m_folder / "cache"});
    std::vector<SBackupProgress> m_progress;
    std::vector<std::string> m_warnings;
    int m_restores = 0;
};

int RunStock(const std::string& home, const std::vector<std::string>& arguments,
             const std::string& password) {
    SChildTask task;
    task.Start.Program = "restic";
    task.Start.Arguments = arguments;
    task.Start.Environment = {"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + home,
                              "RESTIC_PASSWORD=" + password};
    std::string said;
    task.OnOutput = [&](std::string_view line) { said.append(line) += '\n'; };
    const int status = RunChild(task, {}).WaitStatus;
    EXPECT_EQ(status, 0) << said;
    return status;
}

TEST_F(ResticEngine, AnOddTreeComesBackBitForBitAndByStockResticTheSame) {
    m_folder.Write("source/plain", "content\n");
    m_folder.Write("source/empty", "");
    m_folder.Write("source/with\nnewline", "1");
    m_folder.Write("source/with\nnewline.d/deep er/[x]*?\\$HOME", "2");
    m_folder.Write("source/invalid\xff\xfe.txt", "3");
    m_folder.Write("source/\xc3\xa4\xef\xbf\xbd replacement", "4");
    m_folder.Write("source/-dash", "5", 0600);
    m_folder.Write("source/ spaces ", "6", 04711);
    m_folder.Folder("source/hollow");
    fs::create_symlink("no/where", m_folder / "source/dangling");
    fs::create_symlink("plain", m_folder / "source/link");
    fs::create_hard_link(m_folder / "source/plain", m_folder / "source/hard");
    ::mkfifo((m_folder / "source/pipe").c_str(), 0640);
    m_folder.Write("source/big", std::string(3'000'000, 'x'));
    fs::resize_file(m_folder.Write("source/sparse", ""), 2'000'000);
    const bool hasAttributes =
        ::setxattr((m_folder / "source/plain").c_str(), "user.note", "kept", 4, 0) == 0;
    ::chmod((m_folder / "source/hollow").c_str(), 01700);
    const timespec old[]{{1'000'000'000, 5}, {1'000'000'000, 123456789}};
    ::utimensat(AT_FDCWD, (m_folder / "source/hollow").c_str(), old, 0);

    const auto store = Store();
    m_engine->Prepare({store, "odd\njob"}, {});
    const auto result = BackUp(store, "point-1");
    EXPECT_TRUE(m_warnings.empty()) << m_warnings.front();
    EXPECT_EQ(result.BytesRead, result.BytesTotal);
    EXPECT_GT(result.StoreGrowth, 0);
    EXPECT_EQ(result.Snapshot.size(), 64U);
    EXPECT_GT(result.CpuTime.count(), 0);
    ASSERT_FALSE(m_progress.empty());

    const std::string source = m_folder / "source";
    const auto expected = TreeText(source);
    if (hasAttributes) {
        EXPECT_NE(expected.find("note=kept"), std::string::npos);
    }
    EXPECT_EQ(TreeText(Restored(store, result.Snapshot) + source), expected);

    const std::string stock = m_folder / "stock";
    RunStock(m_folder.Path(), {"-r", store.Folder, "restore", "latest", "--target", stock},
             std::string(ConstantKey));
    EXPECT_EQ(TreeText(stock + source), expected);

    // What is asked for by an odd name is found by it.
    const std::string odd = source + "/with\nnewline.d/deep er/[x]*?\\$HOME";
    const std::string part = Restored(store, result.Snapshot, {odd, source + "/invalid\xff\xfe.txt"});
    EXPECT_EQ(ContentOf(part + odd), "2");
    EXPECT_EQ(ContentOf(part + source + "/invalid\xff\xfe.txt"), "3");
    EXPECT_FALSE(fs::exists(part + source + "/plain"));

    // A listing tells names as they are.
    std::vector<std::string> listed;
    m_engine->List({store, result.Snapshot, source},
                   [&](const SEntry& entry) { listed.push_back(entry.Path); }, {});
    std::vector<std::string> there{source};
    for (const auto& entry : fs::recursive_directory_iterator(source))
        there.push_back(entry.path());
    std::sort(there.begin(), there.end());
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, there);

    const std::string readMe = ContentOf(m_folder / "location/tarvo/" + Job + "/README.txt");
    EXPECT_NE(readMe.find("\nRESTIC_PASSWORD=" + std::string(ConstantKey) + "\n"), std::string::npos)
        << readMe;
    EXPECT_NE(readMe.find("odd\\njob"), std::string::npos);
}

TEST_F(ResticEngine, PointsOfAJobAreForgottenOneByOneAndTheOthersStay) {
    m_folder.Write("source/a", "1");
    const auto store = Store(3, "se cret");
    m_engine->Prepare({store, "job"}, {});
    const auto first = BackUp(store, "point-1");
    m_folder.Write("source/b", std::string(100'000, 'b'));
    const auto second = BackUp(store, "point-2", first.Snapshot);
    EXPECT_EQ(second.FilesRead, 1U);
    EXPECT_EQ(second.FilesTotal, 2U);
    EXPECT_FALSE(second.BytesRead);
    const auto third = BackUp(store, "point-3", second.Snapshot);
    EXPECT_EQ(third.BytesRead, 0U);
    // A parent that is gone is no failure: everything is read then.
    const auto fourth = BackUp(store, "point-4", std::string(64, 'd'));
    EXPECT_EQ(fourth.FilesRead, 2U);

    m_engine->Forget(store, {first.Snapshot, third.Snapshot, std::string(64, 'e')}, {});
    const auto left = m_engine->Snapshots(store, {});
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left[0].Point, "point-2");
    EXPECT_EQ(left[0].Id, second.Snapshot);
    EXPECT_EQ(left[0].Job, Job);
    EXPECT_EQ(left[0].Host, "tarvo");
    EXPECT_EQ(left[1].Point, "point-4");
    EXPECT_EQ(TreeText(Restored(store, second.Snapshot) + (m_folder / "source")),
              TreeText(m_folder / "source"));
    EXPECT_THROW(m_engine->Restore({store, first.Snapshot, m_folder / "none", {}, "p", {}}, {}),
                 CNoSuchPoint);
    EXPECT_THROW(m_engine->List({store, first.Snapshot}, [](const SEntry&) {}, {}), CNoSuchPoint);
    const std::string readMe = ContentOf(m_folder / "location/tarvo/" + Job + "/README.txt");
    EXPECT_EQ(readMe.find("RESTIC_PASSWORD="), std::string::npos) << readMe;
}

TEST_F(ResticEngine, WhatTheWalkLeavesOutStaysOutAndEmptyFoldersStay) {
    const std::string source = m_folder / "source";
    for (const char* name :
         {"keep/f", "out [1]*?\\$HOME/f", "out 1/f", "new\nline/f", "end /f", "cache/f", "mask/x.tmp",
          "mask2/x.tmp", "mask2/y", "sub[/z.tmp", "deep/a/b/c.tmp", "deep/a/b/d"})
        m_folder.Write("source/" + std::string(name), name);
    m_folder.Folder("source/memory/below");
    const bool isMounted = ::mount("none", (source + "/memory").c_str(), "tmpfs", 0, "size=1m") == 0;
    if (isMounted) m_folder.Write("source/memory/f", "1");
    SWalkRequest walk;
    walk.Roots = {source};
    walk.ExcludeDirs = {source + "/out [1]*?\\$HOME", source + "/new\nline", source + "/end "};
    walk.ExcludeMasks = {"*.tmp"};
    walk.Never = {source + "/cache"};
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    const auto result = BackUp(store, "point-1", "", walk);
    EXPECT_EQ(result.Warnings, 0U);
    // Another list, as masks make it, compares with the point before all the same.
    m_folder.Write("source/keep/more.tmp", "1");
    EXPECT_EQ(BackUp(store, "point-2", result.Snapshot, walk).FilesRead, 0U);
    const std::string restored = Restored(store, result.Snapshot) + source;
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(restored))
        names.push_back(entry.path().string().substr(restored.size() + 1));
    std::sort(names.begin(), names.end());
    std::vector<std::string> expected{"cache",  "deep",   "deep/a",  "deep/a/b", "deep/a/b/d",
                                      "keep",   "keep/f", "mask",    "mask2",    "mask2/y",
                                      "memory", "out 1",  "out 1/f", "sub["};
    if (!isMounted) expected.insert(expected.begin() + 11, "memory/below");
    EXPECT_EQ(names, expected);
    if (isMounted) ::umount2((source + "/memory").c_str(), MNT_DETACH);
}

bool HasLock(const SEngineStore& store) {
    const fs::directory_iterator locks(store.Folder + "/locks");
    return std::any_of(begin(locks), end(locks),
                       [](const auto& lock) { return lock.path().filename().string().size() == 64; });
}

/// Runs restic and kills it while it holds its lock.
void LeaveLock(const CTemporaryFolder& folder, const SEngineStore& store, const std::string& words) {
    SChildTask task;
    task.Start.Program = "sh";
    task.Start.Arguments = {"-c", "exec restic -r " + store.Folder + " " + words};
    task.Start.Environment = {"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + folder.Path(),
                              "RESTIC_PASSWORD=" + std::string(ConstantKey)};
    task.StopPatience = std::chrono::milliseconds(0);
    task.Start.EndSignal = SIGKILL;
    std::stop_source source;
    std::jthread killer([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!HasLock(store) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        source.request_stop();
    });
    RunChild(task, source.get_token());
}

TEST_F(ResticEngine, ALockOfAKilledProcessIsRemovedAndTheStoreGoesOn) {
    m_folder.Write("source/a", "1");
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    ::mkfifo((m_folder / "pipe").c_str(), 0600);
    LeaveLock(m_folder, store, "backup --stdin <> " + (m_folder / "pipe"));  // a pipe that never ends
    ASSERT_TRUE(HasLock(store));
    EXPECT_THROW(m_engine->Verify({store, {}}, {}), CStoreLocked);
    m_engine->Unlock(store, {});
    EXPECT_FALSE(HasLock(store));
    EXPECT_FALSE(m_engine->Verify({store, {}}, {}).IsDamaged);
}

TEST_F(ResticEngine, ABackupThatMetTheLockOfAKilledProcessHasNoWarning) {
    m_folder.Write("source/a", "1");
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    LeaveLock(m_folder, store, "check --read-data");  // it wants the store for itself
    ASSERT_TRUE(HasLock(store));
    EXPECT_EQ(BackUp(store, "point-1").Warnings, 0U);
    EXPECT_TRUE(m_warnings.empty()) << m_warnings.front();
}

TEST_F(ResticEngine, AFolderThatIsClosedToUsIsAWarningThatSaysWhy) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may read everything";
    m_folder.Write("source/closed/f", "1");
    m_folder.Write("source/secret", "1", 0);
    m_folder.Write("source/open", "1");
    ::chmod((m_folder / "source/closed").c_str(), 0);
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    const auto result = BackUp(store, "point-1");
    ::chmod((m_folder / "source/closed").c_str(), 0700);
    EXPECT_EQ(result.Warnings, 2U);
    std::sort(m_warnings.begin(), m_warnings.end());
    EXPECT_EQ(m_warnings,
              (std::vector<std::string>{m_folder / "source/closed: can't be read: Permission denied",
                                        m_folder / "source/secret: can't be read: Permission denied"}));
    EXPECT_EQ(result.FilesTotal, 1U);
}

TEST_F(ResticEngine, FilesThatGrowShrinkAndVanishWhileTheyAreReadHurtNobodyElse) {
    m_folder.Write("source/quiet", std::string(100'000, 'q'));
    for (int i = 0; i < 50; ++i)
        m_folder.Write("source/busy" + std::to_string(i),
                       std::string(400'000, static_cast<char>('a' + i % 26)));
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    std::jthread meddler([&](const std::stop_token& stop) {
        for (int i = 0; !stop.stop_requested(); i = (i + 1) % 50) {
            const std::string path = m_folder / "source/busy" + std::to_string(i);
            std::error_code ignored;
            if (i % 3 == 0) {
                fs::remove(path, ignored);
            } else if (i % 3 == 1) {
                std::ofstream(path, std::ios::app) << std::string(1000, 'z');
            } else {
                fs::resize_file(path, 10, ignored);
            }
        }
    });
    const auto result = BackUp(store, "point-1");
    meddler.request_stop();
    meddler.join();
    EXPECT_EQ(result.Warnings, m_warnings.size());
    EXPECT_EQ(ContentOf(Restored(store, result.Snapshot) + (m_folder / "source/quiet")),
              std::string(100'000, 'q'));
    EXPECT_FALSE(m_engine->Verify({store, {}}, {}).IsDamaged);
}

TEST_F(ResticEngine, AnotherPasswordOpensWhatIsThereAndTheOldOneNoMore) {
    m_folder.Write("source/a", "1");
    const auto store = Store(1, "old");
    m_engine->Prepare({store, "job"}, {});
    m_engine->ChangePassword(store, "new", {});
    EXPECT_THROW(m_engine->Snapshots(store, {}), CWrongKey);
    auto changed = store;
    changed.Password = "new";
    EXPECT_TRUE(m_engine->Snapshots(changed, {}).empty());
    // Told again, by somebody whose first telling was cut short, it is done already.
    m_engine->ChangePassword(store, "new", {});
    EXPECT_THROW(m_engine->ChangePassword({store.Folder, "wrong"}, "other", {}), CWrongKey);
    for (const char* unusable : {"", " new"})
        EXPECT_THROW(m_engine->ChangePassword(changed, unusable, {}), CEngineFailed);
    EXPECT_TRUE(m_engine->Snapshots(changed, {}).empty()) << "it has the password of before";
}

TEST_F(ResticEngine, AFlippedByteInTheStoreIsFoundAndNamed) {
    std::string bytes;
    for (int i = 0; i < 50'000; ++i)
        bytes += std::to_string(i * 7919 % 10007);
    m_folder.Write("source/a", bytes);
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    BackUp(store, "point-1");
    EXPECT_FALSE(m_engine->Verify({store, {}}, {}).IsDamaged);
    std::string pack;
    for (const auto& entry : fs::recursive_directory_iterator(store.Folder + "/data"))
        if (entry.is_regular_file() && (pack.empty() || entry.file_size() > fs::file_size(pack)))
            pack = entry.path();
    ::chmod(pack.c_str(), 0600);
    std::fstream file(pack, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(100);
    const char before = static_cast<char>(file.get());
    file.seekp(100);
    file.put(static_cast<char>(before ^ 1));
    file.close();
    const auto whole = m_engine->Verify({store, {}}, {});
    EXPECT_TRUE(whole.IsDamaged);
    ASSERT_FALSE(whole.Findings.empty());
    // Of many parts, one holds it.
    int damaged = 0;
    for (const unsigned part : {1U, 2U})
        damaged += m_engine->Verify({store, SVerifyPart{part, 2}}, {}).IsDamaged ? 1 : 0;
    EXPECT_EQ(damaged, 1);
}

TEST_F(ResticEngine, AMissingPartOfTheStoreIsFoundWithoutWaitingForItsReturn) {
    m_folder.Write("source/a", "1");
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    BackUp(store, "point-1");
    for (const auto& entry : fs::recursive_directory_iterator(store.Folder + "/data"))
        if (entry.is_regular_file()) fs::remove(entry.path());
    const auto begin = std::chrono::steady_clock::now();
    const auto result = m_engine->Verify({store, {}}, {});
    EXPECT_TRUE(result.IsDamaged);
    EXPECT_FALSE(result.Findings.empty());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(ResticEngine, ALocationThatIsGoneIsNeverMadeByARun) {
    m_folder.Write("source/a", "1");
    const SEngineStore store{StoreFolder(m_folder / "unmounted", Job, 1), {}};
    EXPECT_THROW(m_engine->Prepare({store, "job"}, {}), CNoLocation);
    EXPECT_THROW(BackUp(store, "point-1"), CNoLocation);
    EXPECT_THROW(m_engine->Snapshots(store, {}), CNoStore);
    EXPECT_THROW(m_engine->Verify({store, {}}, {}), CNoStore);
    EXPECT_FALSE(fs::exists(m_folder / "unmounted"));
    // With the location back and empty, the chain is lost.
    m_folder.Folder("unmounted");
    tests::MessageOf<CNoStore>([&] { BackUp(store, "point-1"); });
    EXPECT_FALSE(m_engine->Exists(store));
}

TEST_F(ResticEngine, WhatIsGoneOrUnreadableIsAWarningWithItsPath) {
    m_folder.Write("source/a", "1");
    m_folder.Write("list", m_folder / "source/a" + '\0' + (m_folder / "source/gone\n") + '\0');
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    SBackupRequest request;
    request.Store = store;
    request.Job = Job;
    request.Point = "p";
    request.ListFile = m_folder / "list";
    request.OnWarning = [&](const SEngineWarning& warning) { m_warnings.push_back(warning.Message); };
    const auto result = m_engine->BackUp(request, {});
    EXPECT_EQ(result.FilesTotal, 1U);
    ASSERT_EQ(result.Warnings, m_warnings.size());
    ASSERT_FALSE(m_warnings.empty());
    EXPECT_NE(m_warnings.back().find("is gone since it was listed"), std::string::npos) << m_warnings.back();
}

TEST_F(ResticEngine, APreparationThatWasCutShortIsFinishedByTheNext) {
    m_folder.Write("source/a", "1");
    const auto store = Store();
    m_engine->Prepare({store, "job"}, {});
    fs::remove(store.Folder + "/config");
    m_engine->Prepare({store, "job"}, {});
    BackUp(store, "point-1");
    m_engine->Prepare({store, "job"}, {});
    EXPECT_EQ(m_engine->Snapshots(store, {}).size(), 1U);
    // Without its config, what holds data is damaged, and left alone.
    fs::remove(store.Folder + "/config");
    EXPECT_THROW(m_engine->Prepare({store, "job"}, {}), CStoreDamaged);
    m_engine->Remove(store);
    EXPECT_TRUE(fs::is_empty(m_folder / "location"));
}

TEST_F(ResticEngine, AFullDiskIsSaidToBeFullAtOnce) {
    const std::string disk = m_folder.Folder("disk");
    if (::mount("none", disk.c_str(), "tmpfs", 0, "size=2m") != 0) GTEST_SKIP() << "no right to mount";
    std::string bytes;
    unsigned state = 1;
    while (bytes.size() < 8'000'000)
        bytes += static_cast<char>((state = state * 1664525U + 1013904223U) >> 24U);
    m_folder.Write("source/a", bytes);
    const SEngineStore store{StoreFolder(disk, Job, 1), {}};
    const auto begin = std::chrono::steady_clock::now();
    m_engine->Prepare({store, "job"}, {});
    EXPECT_THROW(BackUp(store, "point-1"), CNoSpace);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    ::umount2(disk.c_str(), MNT_DETACH);
}

TEST_F(ResticEngine, AStoppedBackupLeavesNoLockBehind) {
    std::string bytes(60'000'000, ' ');
    unsigned state = 1;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24U);
    m_folder.Write("source/a", bytes);
    const auto store = Store();
    // So slow that it can't end by itself before it is stopped.
    const auto slow = m_folder.Write("slow", "#!/bin/sh\nexec restic --limit-upload 2000 \"$@\"\n", 0755);
    m_engine = MakeResticEngine({.Program = slow, .CacheFolder = m_folder / "cache"});
    m_engine->Prepare({store, "job"}, {});
    SBackupRequest request;
    request.Store = store;
    request.Job = Job;
    request.Point = "p";
    request.ListFile = m_folder.Write("list", m_folder / "source/a" + '\0');
    std::stop_source source;
    request.OnProgress = [&](const SBackupProgress&) { source.request_stop(); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(m_engine->BackUp(request, source.get_token()), CEngineStopped);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
    EXPECT_TRUE(fs::is_empty(store.Folder + "/locks"));
}

}  // namespace
