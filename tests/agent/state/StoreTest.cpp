// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "agent/core/Sessions.h"
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"
#include "tests/api/TemporaryFolder.h"

using namespace std::chrono_literals;
using namespace zamclientlib;
using namespace tarvo;

namespace fs = std::filesystem;

namespace {

const Moment Now = Moment(1'800'000'000'123ms);

std::string Contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool HoldsAnywhere(const fs::path& folder, const std::string& text) {
    for (const auto& file : fs::recursive_directory_iterator(folder)) {
        if (file.is_regular_file() && Contents(file).find(text) != std::string::npos) return true;
    }
    return false;
}

SJob JobNamed(const std::string& name) {
    SJob job;
    job.Id = Guid::Random();
    job.Config.JobName = name;
    job.Config.Source.IncludeDirs = {"/etc", std::string("odd\n\xff\0name", 10)};
    job.PromisedUntil = Now;
    return job;
}

std::size_t FilesIn(const fs::path& folder) {
    std::error_code error;
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder, error), fs::directory_iterator()));
}

/// What a call fails with.
template <class Call>
std::optional<EStateFault> FaultOf(Call&& call) {
    try {
        call();
    } catch (const CStateError& error) {
        EXPECT_NE(std::string(error.what()), "");
        return error.Fault;
    }
    return {};
}

class StoreTest : public ::testing::Test {
protected:
    zamtest::CTemporaryFolder Folder;
    std::string Path = Folder.Path() + "/state";
    std::string SecretsFolder() const { return Path + "/secrets"; }
};

}  // namespace

TEST_F(StoreTest, JobsComeBackAsTheyWereInTheirOrder) {
    auto first = JobNamed("first");
    first.IsEnabled = false;
    first.IsDeleted = true;
    first.LastBackup = Now - 1h;
    first.NextRun = Now + 1h;
    first.CatchUp = Now - 2h;
    first.LastActiveFull = Now - 3h;
    const auto second = JobNamed("second");
    {
        CStore store(Path);
        store.AddJob(first, {});
        store.AddJob(second, {});
    }
    const CStore store(Path);
    const auto jobs = store.Jobs();
    ASSERT_EQ(jobs.size(), 2U);
    EXPECT_EQ(jobs[0].Id, first.Id);
    EXPECT_EQ(jobs[0].Config, first.Config);
    EXPECT_FALSE(jobs[0].IsEnabled);
    EXPECT_TRUE(jobs[0].IsDeleted);
    EXPECT_EQ(jobs[0].LastBackup, first.LastBackup);
    EXPECT_EQ(jobs[0].PromisedUntil, Now);
    EXPECT_EQ(jobs[0].NextRun, first.NextRun);
    EXPECT_EQ(jobs[0].CatchUp, first.CatchUp);
    EXPECT_EQ(jobs[0].LastActiveFull, first.LastActiveFull);
    EXPECT_EQ(jobs[1].Config, second.Config);
    EXPECT_EQ(jobs[1].NextRun, std::nullopt);
}

TEST_F(StoreTest, SecretsStandInFilesOfTheirOwnThatOthersCanNotRead) {
    CStore store(Path);
    const auto job = JobNamed("job");
    const Secrets secrets{{"StorageInfo.EncryptionSettings.Password", std::string("ge\0heim\n", 8)}};
    store.AddJob(job, secrets);
    EXPECT_EQ(store.JobSecrets(job.Id), secrets);
    struct stat folder {};
    ASSERT_EQ(::stat(SecretsFolder().c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0777U, 0700U);
    ASSERT_EQ(FilesIn(SecretsFolder()), 1U);
    const auto file = fs::directory_iterator(SecretsFolder())->path();
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(StoreTest, NoSecretIsInTheDatabase) {
    CStore store(Path);
    auto job = JobNamed("job");
    job.Config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("hochgeheim"), ""};
    const auto secrets = TakeSecrets(job.Config);
    store.AddJob(job, secrets);
    store.SaveJob(job, secrets);
    for (const auto& file : fs::directory_iterator(Path)) {
        if (file.is_regular_file()) {
            EXPECT_EQ(Contents(file).find("hochgeheim"), std::string::npos) << file;
        }
    }
    EXPECT_TRUE(HoldsAnywhere(SecretsFolder(), "hochgeheim"));
}

TEST_F(StoreTest, TheDatabaseIsReadableByItsUserAlone) {
    const CStore store(Path);
    for (const auto& file : fs::directory_iterator(Path)) {
        EXPECT_EQ(file.status().permissions() & fs::perms::mask & ~fs::perms::owner_all, fs::perms::none)
            << file;
    }
}

TEST_F(StoreTest, AReplacedSecretLeavesNoFileBehind) {
    CStore store(Path);
    const auto job = JobNamed("job");
    store.AddJob(job, {{"a", "1"}});
    store.SaveJob(job, {{"a", "2"}});
    EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", "2"}}));
    EXPECT_EQ(FilesIn(SecretsFolder()), 1U);
    store.SaveJob(job, {});
    EXPECT_EQ(FilesIn(SecretsFolder()), 0U);
    EXPECT_TRUE(store.JobSecrets(job.Id).empty());
}

TEST_F(StoreTest, AChangeThatIsNotCommittedLeavesEverythingAsItWas) {
    CStore store(Path);
    const auto job = JobNamed("job");
    store.AddJob(job, {{"a", "1"}});
    {
        CStore::CTransaction transaction(store);
        store.SaveJob(job, {{"a", "2"}});
        store.SetNumber("usn", 7);
        store.AddJob(JobNamed("other"), {{"b", "3"}});
    }
    EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", "1"}}));
    EXPECT_EQ(store.Number("usn"), 0);
    EXPECT_EQ(store.Jobs().size(), 1U);
    EXPECT_EQ(FilesIn(SecretsFolder()), 1U);
}

TEST_F(StoreTest, AFailedPartOfAChangeIsNotCommittedByTheWhole) {
    CStore store(Path);
    const auto job = JobNamed("job");
    CStore::CTransaction transaction(store);
    store.AddJob(job, {});
    EXPECT_THROW(store.AddJob(job, {}), CStateError);  // its id is taken
    EXPECT_THROW(transaction.Commit(), CStateError);
}

TEST_F(StoreTest, SecretsThatNothingSpeaksOfAreRemoved) {
    CStore store(Path);
    const auto job = JobNamed("job");
    store.AddJob(job, {{"a", "1"}});
    std::ofstream(SecretsFolder() + "/0123") << "left by a crash";
    store.RemoveStraySecrets();
    EXPECT_EQ(FilesIn(SecretsFolder()), 1U);
    EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", "1"}}));
}

TEST_F(StoreTest, AStateThatBeginsAnewLeavesTheSecretsOfTheOneBeforeAside) {
    for (const char* const password : {"1", "2"}) {
        CStore(Path).AddJob(JobNamed("job"), {{"a", password}});
        fs::remove(Path + "/state.db");
    }
    CStore store(Path);
    store.RemoveStraySecrets();
    EXPECT_EQ(FilesIn(SecretsFolder()), 0U);
    EXPECT_TRUE(HoldsAnywhere(SecretsFolder() + ".1", ">1<"));
    EXPECT_TRUE(HoldsAnywhere(SecretsFolder() + ".2", ">2<"));
}

TEST_F(StoreTest, ASecretThatCouldNotBeReadAgainIsNotKept) {
    constexpr std::size_t Most = 4UL * 1024 * 1024;
    CStore store(Path);
    auto job = JobNamed("job");
    store.AddJob(job, {{"a", "1"}});
    // In base64, as what XML can't carry is.
    for (const std::string& secret : {std::string(Most, 'x'), std::string(Most * 3 / 4, '\x01')}) {
        EXPECT_EQ(FaultOf([&] { store.SaveJob(job, {{"a", secret}}); }), EStateFault::Other);
        EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", "1"}}));
        EXPECT_EQ(FilesIn(SecretsFolder()), 1U);
    }
    const std::string large(Most - 1000, 'x');
    store.SaveJob(job, {{"a", large}});
    EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", large}}));
}

TEST_F(StoreTest, AMissingSecretIsSaidToBeMissing) {
    CStore store(Path);
    const auto job = JobNamed("job");
    store.AddJob(job, {{"a", "1"}});
    fs::remove_all(SecretsFolder());
    EXPECT_EQ(FaultOf([&] { store.JobSecrets(job.Id); }), EStateFault::Broken);
}

TEST_F(StoreTest, SessionsAndTheirLinesComeBackAsTheyWere) {
    CStore store(Path);
    const auto job = JobNamed("job");
    SOrigin origin{SOrigin::EKind::Scheduler, "root", Guid::Random(), Now - 1h};
    SJobStartOptions options;
    options.Priority = EJobStartPriorityMode::Low;
    auto session = NewSession(job, options, origin, Now);
    session.Info.Usn = 5;
    session.Info.JobDetails = {LogLine(ELogDetailType::Info, "one\x01\xfe")};
    store.AddSession(session);
    store.AddLines(session.Info.Uid,
                   {LogLine(ELogDetailType::Error, "two"), LogLine(ELogDetailType::Info, "")});
    ASSERT_EQ(store.UnfinishedSessions().size(), 1U);
    session.Info.Usn = 6;
    session.Chain = 3;
    Finish(session, JobSessionTaskStatus::Failed, Now, 5s);
    session.RetryAt = Now + 5s;
    store.SaveSession(session);
    EXPECT_EQ(store.UnfinishedSessions().size(), 1U);  // awaits its retry

    const auto found = store.FindSession(session.Info.Uid);
    ASSERT_TRUE(found);
    auto expected = session.Info;
    expected.JobDetails.clear();
    EXPECT_EQ(found->Info, expected);
    EXPECT_EQ(found->Options, options);
    EXPECT_EQ(found->Origin.Kind, origin.Kind);
    EXPECT_EQ(found->Origin.ControlSession, origin.ControlSession);
    EXPECT_EQ(found->Origin.Promise, origin.Promise);
    EXPECT_EQ(found->Status, JobSessionTaskStatus::Failed);
    EXPECT_EQ(found->RetryAt, Now + 5s);
    EXPECT_EQ(found->Chain, 3);
    const auto lines = store.LinesOf(session.Info.Uid);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], session.Info.JobDetails[0]);
    EXPECT_EQ(lines[1].Message, "two");
    EXPECT_EQ(store.LinesOf(session.Info.Uid, 2), std::vector(lines.begin() + 1, lines.end()));
    EXPECT_EQ(store.LinesOf(session.Info.Uid, 9), lines);
    EXPECT_TRUE(store.LinesOf(Guid::Random(), 2).empty());

    session.RetryAt.reset();
    store.SaveSession(session);
    EXPECT_TRUE(store.UnfinishedSessions().empty());
}

TEST_F(StoreTest, SessionsAreListedByTheirChanges) {
    CStore store(Path);
    const auto job = JobNamed("job");
    std::vector<Guid> ids;
    for (long usn = 1; usn <= 4; ++usn) {
        auto session = NewSession(job, {}, {}, Now);
        session.Info.Usn = usn * 10;
        Finish(session, JobSessionTaskStatus::Success, Now, 0s);
        store.AddSession(session);
        store.AddLines(session.Info.Uid, {LogLine(ELogDetailType::Info, "x")});
        ids.push_back(session.Info.Uid);
    }
    EXPECT_EQ(store.SessionsOf(job.Id), ids);
    EXPECT_EQ(store.SessionsSince(job.Id, 20), (std::vector{ids[2], ids[3]}));
    EXPECT_EQ(store.LastSessionOf(job.Id), ids[3]);
    EXPECT_EQ(store.LastSessionOf(Guid::Random()), std::nullopt);
    store.RemoveOldSessions(job.Id, 1);
    EXPECT_EQ(store.SessionsOf(job.Id), std::vector{ids[3]});
    EXPECT_TRUE(store.LinesOf(ids[0]).empty());
    EXPECT_EQ(store.LinesOf(ids[3]).size(), 1U);
}

TEST_F(StoreTest, APromiseIsClaimedByOneOnly) {
    CStore store(Path);
    CStore other(Path);
    const auto job = JobNamed("job");
    store.AddJob(job, {});
    EXPECT_TRUE(store.ClaimPromise(job.Id, Now, Now + 1h, Now + 25h));
    EXPECT_FALSE(other.ClaimPromise(job.Id, Now, Now + 1h, Now + 25h));
    EXPECT_EQ(other.FindJob(job.Id)->PromisedUntil, Now + 1h);
    EXPECT_EQ(other.FindJob(job.Id)->NextRun, Now + 25h);
}

TEST_F(StoreTest, ChainsAndPointsComeBackAsTheyWere) {
    CStore store(Path);
    SChain chain;
    chain.Job = Guid::Random();
    chain.Number = 2;
    chain.Repository = Guid::Random();
    chain.Location = "/srv";
    chain.State = EChainState::Damaged;
    chain.Created = Now;
    chain.Damage = "pack 17";
    chain.Verified = {3, 7, Now};
    store.AddChain(chain, "secret one");
    EXPECT_EQ(store.ChainPassword(chain.Job, 2), "secret one");
    store.SetChainPassword(chain.Job, 2, "secret two");
    EXPECT_EQ(store.ChainPassword(chain.Job, 2), "secret two");
    const auto found = store.FindChain(chain.Job, 2);
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->HasPassword);
    EXPECT_EQ(found->Location, "/srv");
    EXPECT_EQ(found->State, EChainState::Damaged);
    EXPECT_EQ(found->Damage, "pack 17");
    EXPECT_EQ(found->Verified.Part, 3U);
    EXPECT_EQ(found->Verified.Parts, 7U);
    EXPECT_EQ(found->Verified.Last, Now);
    EXPECT_EQ(store.ChainsOf(chain.Job).size(), 1U);
    EXPECT_EQ(store.Chains().size(), 1U);

    SPoint point{Guid::Random(), chain.Job,  2,    Guid::Random(), Now, RestorePointType::Increment,
                 ~0ULL,          1ULL << 40, "abc"};
    store.AddPoint(point);
    EXPECT_EQ(FaultOf([&] { store.AddPoint(point); }), EStateFault::Other);
    EXPECT_EQ(store.FindPoint(point.Id)->SourceBytes, ~0ULL);
    EXPECT_EQ(store.PointsOf(chain.Job).at(0).EngineId, "abc");
    store.RemoveChain(chain.Job, 2);
    EXPECT_TRUE(store.Points().empty());
    EXPECT_EQ(FilesIn(SecretsFolder()), 0U);
}

TEST_F(StoreTest, PlacesOfEachKindKeepTheirOrder) {
    CStore store(Path);
    SBackupRepositoryInfo one;
    one.Id = Guid::Random();
    one.Name = "one";
    auto two = one;
    two.Id = Guid::Random();
    SBackupServerInfo server;
    server.Id = Guid::Random();
    server.Connection = {{"host", 22}};
    store.AddPlace(one, {});
    store.AddPlace(server, {{"Password", "p"}});
    store.AddPlace(two, {});
    one.Name = "changed";
    store.SavePlace(one, {{"SharedFolderInfo.Password", "q"}});
    EXPECT_EQ(store.Places<SBackupRepositoryInfo>(), (std::vector{one, two}));
    EXPECT_EQ(store.Places<SBackupServerInfo>(), std::vector{server});
    EXPECT_TRUE(store.Places<SCloudServiceProviderInfo>().empty());
    EXPECT_EQ(store.PlaceSecrets(one.Id), (Secrets{{"SharedFolderInfo.Password", "q"}}));
    store.RemovePlace<SBackupServerInfo>(server.Id);
    EXPECT_TRUE(store.Places<SBackupServerInfo>().empty());
    EXPECT_EQ(FilesIn(SecretsFolder()), 1U);
}

TEST_F(StoreTest, TheOwnerOutlivesTheProcess) {
    const SZamControlOwnerInfo owner{Guid::Random(), "console", ZAMOwnerType::ManagementConsole,
                                     ZAMOwnerMode::Exclusive};
    {
        CStore store(Path);
        EXPECT_EQ(store.Owner(), SZamControlOwnerInfo{});
        store.SetOwner(owner);
        store.SetNumber("events", 1L << 40);
    }
    const CStore store(Path);
    EXPECT_EQ(store.Owner(), owner);
    EXPECT_EQ(store.Number("events"), 1L << 40);
    EXPECT_EQ(store.Fact("nothing"), std::nullopt);
}

// What keeps a state from being used

TEST_F(StoreTest, TheFormIsNumberedAndALaterOneIsRefused) {
    { const CStore store(Path); }
    {
        SQLite::Database database(Path + "/state.db", SQLite::OPEN_READWRITE);
        EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 1);
        database.exec("PRAGMA user_version=2");
    }
    EXPECT_EQ(FaultOf([&] { CStore store(Path); }), EStateFault::Newer);
    SQLite::Database database(Path + "/state.db", SQLite::OPEN_READONLY);
    EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 2);
}

TEST_F(StoreTest, ItIsDurableAtEveryCommit) {
    CDatabase database(Path, {});
    auto journal = database.Query("PRAGMA journal_mode");
    ASSERT_TRUE(journal.Next());
    std::string mode;
    journal >> mode;
    EXPECT_EQ(mode, "wal");
    auto synchronous = database.Query("PRAGMA synchronous");
    ASSERT_TRUE(synchronous.Next());
    int value = 0;
    synchronous >> value;
    EXPECT_EQ(value, 2);
}

TEST_F(StoreTest, AFileThatIsNoDatabaseIsRefusedAndLeftAlone) {
    fs::create_directory(Path);
    const std::string text(5000, 'x');
    std::ofstream(Path + "/state.db") << text;
    EXPECT_EQ(FaultOf([&] { CStore store(Path); }), EStateFault::Broken);
    EXPECT_EQ(Contents(Path + "/state.db"), text);
}

TEST_F(StoreTest, ALinkInPlaceOfTheDatabaseIsRefused) {
    fs::create_directory(Path);
    fs::create_symlink(Folder.Path("elsewhere"), Path + "/state.db");
    EXPECT_EQ(FaultOf([&] { CStore store(Path); }), EStateFault::Other);
    EXPECT_FALSE(fs::exists(Folder.Path("elsewhere")));
}

TEST_F(StoreTest, AMissingParentFolderIsSaid) {
    EXPECT_EQ(FaultOf([&] { CStore store(Path + "/a/b"); }), EStateFault::Other);
}

TEST_F(StoreTest, AnotherProcessThatHoldsTheDatabaseForTooLongIsTold) {
    CStore holder(Path);
    CStore other(Path, {false, 50ms});
    const CStore::CTransaction transaction(holder);
    EXPECT_EQ(FaultOf([&] { other.SetNumber("usn", 1); }), EStateFault::Locked);
    EXPECT_EQ(other.Number("usn"), 0);  // reading waits for nobody
}

TEST_F(StoreTest, AReaderChangesNothing) {
    { const CStore store(Path); }
    CStore reader(Path, {true, 50ms});
    EXPECT_TRUE(FaultOf([&] { reader.SetNumber("usn", 1); }));
    EXPECT_EQ(reader.Number("usn"), 0);
}

TEST_F(StoreTest, TwoProcessesThatMakeTheStateAtOnceMakeOne) {
    for (int round = 0; round < 20; ++round) {
        const std::string path = Path + std::to_string(round);
        std::atomic<int> waiting = 8;
        std::vector<std::thread> threads;
        for (int i = waiting; i > 0; --i) {
            threads.emplace_back([&] {
                for (--waiting; waiting != 0;)
                    std::this_thread::yield();
                try {
                    const CStore store(path);
                } catch (const std::exception& error) {
                    ADD_FAILURE() << error.what();
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        if (HasFailure()) return;
    }
}

TEST_F(StoreTest, AFullDiskIsToldAndLosesNothing) {
    const std::string disk = Folder.Path() + "/disk";
    fs::create_directory(disk);
    if (::mount("none", disk.c_str(), "tmpfs", 0, "size=512k") != 0) GTEST_SKIP() << "may not mount";
    {
        CStore store(disk + "/state");
        const auto job = JobNamed("job");
        store.AddJob(job, {{"a", "1"}});
        std::optional<EStateFault> fault;
        long kept = 0;
        for (long number = 1; !fault && number < 10000; ++number) {
            fault = FaultOf([&] { store.SetFact("fact" + std::to_string(number), std::string(4000, 'x')); });
            if (!fault) kept = number;
        }
        EXPECT_EQ(fault, EStateFault::Full);
        EXPECT_GT(kept, 5);
        EXPECT_TRUE(store.Fact("fact" + std::to_string(kept)));
        EXPECT_EQ(FaultOf([&] { store.SaveJob(job, {{"a", std::string(600000, 'y')}}); }), EStateFault::Full);
        EXPECT_EQ(store.JobSecrets(job.Id), (Secrets{{"a", "1"}}));
        EXPECT_EQ(FilesIn(disk + "/state/secrets"), 1U);
    }
    ::umount2(disk.c_str(), MNT_DETACH);
}
