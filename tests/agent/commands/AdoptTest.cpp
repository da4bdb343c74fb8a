// SPDX-License-Identifier: Apache-2.0
// Chains that stand in a folder, and a state that knows nothing of them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/core/Retention.h"
#include "agent/core/Sessions.h"
#include "agent/engine/CResticEngine.h"
#include "agent/engine/ReadMe.h"
#include "agent/host/Walk.h"
#include "agent/state/CStore.h"
#include "tests/Sanitized.h"
#include "tests/agent/TreeText.h"
#include "tests/agent/commands/CommandsFixture.h"

namespace {

using namespace tarvo;
using tests::TreeText;
namespace fs = std::filesystem;

/// Chains that are said to be there, by their folders.
class CSaidEngine final : public IEngine {
public:
    struct SSaid {
        std::vector<SSnapshot> Snapshots;
        std::optional<std::string> Password;
        std::function<void()> OnSnapshots;
    };

    SEngineInfo Info() override { return {}; }
    void Prepare(const SPrepareRequest&, std::stop_token) override {}
    bool Exists(const SEngineStore& store) override { return Chains.contains(store.Folder); }
    SBackupResult BackUp(const SBackupRequest&, std::stop_token) override { return {}; }
    std::vector<SSnapshot> Snapshots(const SEngineStore& store, std::stop_token) override {
        const auto& said = Chains.at(store.Folder);
        if (said.OnSnapshots) said.OnSnapshots();
        if (said.Password != store.Password) throw CWrongKey("it does not open");
        return said.Snapshots;
    }
    void Forget(const SEngineStore&, const std::vector<std::string>&, std::stop_token) override {}
    void List(const SListRequest&, const std::function<void(const SEntry&)>& entry,
              std::stop_token) override {
        SEntry file;
        file.Type = EEntryType::File;
        file.Size = 5;
        entry(file);
        entry(file);
    }
    SRestoreResult Restore(const SRestoreRequest&, std::stop_token) override { return {}; }
    SVerifyResult Verify(const SVerifyRequest&, std::stop_token) override { return {}; }
    void ChangePassword(const SEngineStore&, const std::string&, std::stop_token) override {}
    void Unlock(const SEngineStore&, std::stop_token) override {}
    std::optional<std::uint64_t> StoreSize(const SEngineStore&) override { return 1000; }
    void Remove(const SEngineStore&) override {}

    std::map<std::string, SSaid> Chains;
};

const Guid One = Guid::Deserialize("00000001-aaaa-0000-0000-000000000000");
const Guid Two = Guid::Deserialize("00000002-bbbb-0000-0000-000000000000");

Guid PointId(unsigned number) {
    Guid id = Guid::Deserialize("cccccccc-0000-0000-0000-000000000000");
    id.Data1 = number;
    return id;
}

class Adopt : public tests::CCommandsTest {
protected:
    Adopt() { m_engine = m_said; }

    int AdoptLocation(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"adopt", m_folder / "location"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Run(arguments);
    }

    CStore State() {
        MakeFolders(m_folders);
        return CStore(m_folders.State);
    }
    std::string ChainFolder(const Guid& job, int chain) const {
        return StoreFolder(m_folder / "location", PlainText(job), static_cast<std::uint64_t>(chain));
    }

    /// A chain whose points were made in these minutes, which are their numbers as well.
    CSaidEngine::SSaid& Say(const Guid& job, int chain, const std::vector<unsigned>& minutes,
                            const std::optional<std::string>& password = {}) {
        const auto folder = ChainFolder(job, chain);
        fs::create_directories(folder);
        auto& said = m_said->Chains[folder];
        said.Password = password;
        for (const auto minute : minutes) {
            said.Snapshots.push_back({"snap" + std::to_string(minute), PlainText(job),
                                      PlainText(PointId(minute)), Moment(std::chrono::minutes(minute)), ""});
        }
        return said;
    }
    SJob AddJob(const Guid& id, const std::string& name) {
        SJob job;
        job.Id = id;
        job.Config.JobName = name;
        State().AddJob(job, {});
        return job;
    }
    void AddPoint(const Guid& job, int chain, unsigned minute) {
        SPoint point;
        point.Id = PointId(minute);
        point.Job = job;
        point.Chain = chain;
        point.Created = Moment(std::chrono::minutes(minute));
        point.StoredBytes = 300;
        point.EngineId = "snap" + std::to_string(minute);
        State().AddPoint(point);
    }
    std::vector<unsigned> NumbersOf(const Guid& job) {
        std::vector<unsigned> numbers;
        for (const auto& point : State().PointsOf(job))
            numbers.push_back(point.Id.Data1);
        return numbers;
    }

    std::shared_ptr<CSaidEngine> m_said = std::make_shared<CSaidEngine>();
};

TEST_F(Adopt, WhereNothingIsItSaysSoAndMakesNoState) {
    EXPECT_EQ(Run({"adopt"}), commands::Usage);
    EXPECT_EQ(Run({"adopt", ""}), commands::Usage);
    EXPECT_EQ(AdoptLocation(), commands::NotFound);
    EXPECT_NE(m_errors.find("There is no folder"), std::string::npos) << m_errors;
    m_folder.Write("location", "a file");
    EXPECT_EQ(AdoptLocation(), commands::NotFound);
    fs::remove(m_folder / "location");
    m_folder.Write("location/tarvo/README", "of somebody else");
    m_folder.Write("location/tarvo/{00000001-aaaa-0000-0000-000000000000}/1/config", "braces are not ours");
    m_folder.Write("location/tarvo/" + PlainText(One) + "/01/config", "nor are such numbers");
    m_folder.Write("location/tarvo/" + PlainText(Two), "nor is a file");
    EXPECT_EQ(AdoptLocation(), commands::NotFound);
    EXPECT_NE(m_errors.find("There are no chains"), std::string::npos) << m_errors;
    EXPECT_EQ(Run({"adopt", m_folder / "location/tarvo"}), commands::NotFound);
    EXPECT_NE(m_errors.find("name the folder in which it is"), std::string::npos) << m_errors;
    EXPECT_FALSE(fs::exists(m_folders.State));
}

TEST_F(Adopt, ARelativeLocationIsTakenFromTheCurrentFolderAndKeptAbsolute) {
    Say(One, 1, {1});
    const auto before = fs::current_path();
    fs::current_path(m_folder.Path());
    const int status = Run({"adopt", "x/.././location/"});
    fs::current_path(before);
    EXPECT_EQ(status, commands::Done) << m_errors;
    EXPECT_EQ(State().FindChain(One, 1)->Location, m_folder / "location");
}

TEST_F(Adopt, ATrialRunChangesNothing) {
    Say(One, 1, {1, 2});
    EXPECT_EQ(AdoptLocation({"--dry-run"}), commands::Done) << m_errors;
    EXPECT_EQ(m_out, "Would adopt chain 1 of the job \"" + PlainText(One) + "\", 2 points\n");
    EXPECT_FALSE(fs::exists(m_folders.State));
    State();
    EXPECT_EQ(AdoptLocation({"--dry-run", "--json"}), commands::Done) << m_errors;
    EXPECT_EQ(m_out, R"({"job":"00000001-aaaa-0000-0000-000000000000",)"
                     R"("id":"00000001-aaaa-0000-0000-000000000000","chain":1,"outcome":"would adopt",)"
                     R"("points":2,"folder":")" +
                         ChainFolder(One, 1) + "\",\"details\":\"\"}\n");
    EXPECT_TRUE(State().Chains().empty());
    EXPECT_TRUE(State().Jobs().empty());
}

TEST_F(Adopt, JobsComeAsDeletedOnesWithTheNameOfTheirReadMe) {
    Say(One, 1, {1, 3});
    Say(One, 2, {4});
    Say(Two, 10, {});
    WriteReadMe({{ChainFolder(One, 1), {}}, "be\n\"ta\"\x1b[31m"});
    // One that nobody can read a name from, and that would have a reader wait.
    ASSERT_EQ(::mkfifo((m_folder / ("location/tarvo/" + PlainText(Two) + "/README.txt")).c_str(), 0600), 0);
    ASSERT_EQ(AdoptLocation(), commands::Done) << m_errors;
    EXPECT_EQ(m_out,
              "Adopted chain 1 of the job \"be\\n\"ta\"\\x1b[31m\", 2 points\n"
              "Adopted chain 2 of the job \"be\\n\"ta\"\\x1b[31m\", 1 point\n"
              "Adopted chain 10 of the job \"" +
                  PlainText(Two) + "\", 0 points\n");
    const auto jobs = State().Jobs();
    ASSERT_EQ(jobs.size(), 2U);
    EXPECT_TRUE(jobs[0].IsDeleted && jobs[1].IsDeleted);
    EXPECT_EQ(jobs[0].Config.JobName, "be\\n\"ta\"\\x1b[31m");
    const auto points = State().PointsOf(One);
    ASSERT_EQ(points.size(), 3U);
    EXPECT_EQ(points[0].Type, zamclientlib::RestorePointType::Full);
    EXPECT_EQ(points[1].Type, zamclientlib::RestorePointType::Increment);
    EXPECT_EQ(points[2].Type, zamclientlib::RestorePointType::Full);
    EXPECT_EQ(points[0].SourceBytes, 10U);
    EXPECT_EQ(points[0].StoredBytes, 1000U);
    EXPECT_EQ(points[1].StoredBytes, 0U);
    EXPECT_EQ(points[1].EngineId, "snap3");
    EXPECT_EQ(points[1].Created, Moment(std::chrono::minutes(3)));
    EXPECT_EQ(State().FindChain(One, 1)->Created, Moment(std::chrono::minutes(1)));

    EXPECT_EQ(AdoptLocation(), commands::Done);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_errors, "Nothing new is in \"" + (m_folder / "location") + "\": the agent knows all of it\n");
    EXPECT_EQ(State().Jobs().size(), 2U);
    EXPECT_EQ(State().Points().size(), 3U);
    EXPECT_EQ(AdoptLocation({"--json"}), commands::Done);
    EXPECT_EQ(std::count(m_out.begin(), m_out.end(), '\n'), 3);
    EXPECT_NE(m_out.find("\"outcome\":\"known\""), std::string::npos) << m_out;
}

TEST_F(Adopt, ALivingJobGetsItsMissingPointsInTheirPlacesSoThatRetentionKeepsTheNewest) {
    auto job = AddJob(One, "alive");
    SChain chain;
    chain.Job = One;
    chain.Number = 2;
    chain.Location = m_folder / "location";
    chain.State = EChainState::Open;
    State().AddChain(chain, {});
    AddPoint(One, 2, 10);
    AddPoint(One, 2, 30);
    Say(One, 1, {1, 2});
    Say(One, 2, {10, 20, 30, 40});
    ASSERT_EQ(AdoptLocation(), commands::Done) << m_errors;
    EXPECT_EQ(m_out,
              "Adopted chain 1 of the job \"alive\", 2 points\n"
              "Adopted 2 points of chain 2 of the job \"alive\"\n");
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1, 2, 10, 20, 30, 40}));
    EXPECT_FALSE(State().FindJob(One)->IsDeleted);
    EXPECT_EQ(State().FindChain(One, 2)->State, EChainState::Open);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Closed);
    EXPECT_EQ(State().FindPoint(PointId(10))->StoredBytes, 300U);
    EXPECT_EQ(State().FindPoint(PointId(20))->StoredBytes, 400U);
    EXPECT_EQ(State().FindPoint(PointId(20))->Type, zamclientlib::RestorePointType::Increment);

    job.Config.RetentionInfo.RestorePointsCount = 1;
    for (const auto& choice : ChooseKept(job.Config.RetentionInfo, State().PointsOf(One),
                                         State().ChainsOf(One), Moment(std::chrono::hours(1))))
        EXPECT_EQ(choice.IsKept, choice.Point.Id == PointId(40)) << choice.Point.Id.Data1;
}

TEST_F(Adopt, AChainBelongsToTheRepositoryThatTheAgentHasThere) {
    AddJob(One, "alive");
    zamclientlib::SBackupRepositoryInfo other;
    other.Id = Guid::Random();
    other.Name = "other";
    other.Location = m_folder.Folder("elsewhere");
    auto here = other;
    here.Id = Guid::Random();
    here.Name = "here";
    here.Location = m_folder / "link";  // as the agent calls it
    State().AddPlace(other, {});
    State().AddPlace(here, {});
    Say(One, 1, {1});
    fs::create_directory_symlink("location", m_folder / "link");
    ASSERT_EQ(AdoptLocation(), commands::Done) << m_errors;
    EXPECT_EQ(State().FindChain(One, 1)->Repository, here.Id);
    EXPECT_EQ(State().FindChain(One, 1)->Location, here.Location);
    EXPECT_EQ(AdoptLocation(), commands::Done) << m_errors;
}

TEST_F(Adopt, WhatCannotBeOpenedIsLeftAndTheRestAdopted) {
    Say(One, 1, {1});
    Say(One, 2, {2}, "s3cret");
    Say(One, 3, {3}).OnSnapshots = [] { throw CStoreDamaged("the index is no index"); };
    fs::create_directories(ChainFolder(One, 4));  // was never finished
    fs::create_directory_symlink("1", ChainFolder(One, 5));
    Say(One, 6, {6}).Snapshots.push_back({"x", PlainText(Two), PlainText(PointId(7)), {}, ""});
    Say(One, 6, {}).Snapshots.push_back({"y", PlainText(One), "no id", {}, ""});
    fs::create_directory_symlink(PlainText(One), m_folder / ("location/tarvo/" + PlainText(Two)));
    EXPECT_EQ(AdoptLocation(), commands::Failed);
    const std::string job = " of the job \"" + PlainText(One) + "\"";
    EXPECT_EQ(m_out, "Adopted chain 1" + job + ", 1 point\nAdopted chain 6" + job + ", 1 point\n");
    EXPECT_EQ(m_errors, "Left alone: chain 2" + job +
                            ": it has a password, which --password-file FILE gives\n"
                            "Left alone: chain 3" +
                            job + ": the index is no index\nLeft alone: chain 4" + job +
                            ": it is no whole repository: its file \"config\" is missing\n"
                            "Left alone: chain 5" +
                            job + ": it is a link, which is not followed\nLeft alone: chain 6" + job +
                            ": 2 of its snapshots bear the tags of other jobs or points\n"
                            "Left alone: all of the job \"" +
                            PlainText(Two) + "\": it is a link, which is not followed\n");
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1, 6}));

    EXPECT_EQ(AdoptLocation({"--password-file", m_folder.Write("wrong", "other\n")}), commands::Failed);
    EXPECT_NE(m_errors.find("chain 2" + job + ": the password in"), std::string::npos) << m_errors;
    EXPECT_EQ(AdoptLocation({"--password-file", m_folder.Write("blank", " \n")}), commands::Failed);
    EXPECT_NE(m_errors.find("the password is empty"), std::string::npos) << m_errors;
    EXPECT_EQ(AdoptLocation({"--json", "--password-file", m_folder.Write("key", "s3cret\n")}),
              commands::Failed);
    EXPECT_EQ(State().ChainPassword(One, 2), "s3cret");
    EXPECT_TRUE(State().FindChain(One, 2)->HasPassword);
    EXPECT_EQ(State().ChainPassword(One, 1), std::nullopt);
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1, 2, 6}));
    EXPECT_NE(m_out.find("\"chain\":null,\"outcome\":\"left\""), std::string::npos) << m_out;
}

TEST_F(Adopt, AChainThatIsKnownElsewhereStaysThere) {
    AddJob(One, "alive");
    SChain chain;
    chain.Job = One;
    chain.Number = 1;
    chain.Location = m_folder / "elsewhere";
    chain.State = EChainState::Open;
    State().AddChain(chain, {});
    Say(One, 1, {1});
    EXPECT_EQ(AdoptLocation(), commands::Failed);
    EXPECT_NE(m_errors.find("in another place, \"" + (m_folder / "elsewhere/tarvo")), std::string::npos)
        << m_errors;
    EXPECT_TRUE(State().Points().empty());
}

TEST_F(Adopt, WhatASessionWritesIsNotTouched) {
    const auto job = AddJob(One, "alive");
    const Moment now = CSystemClock().Now();
    auto session = NewSession(job, {}, {}, now);
    State().AddSession(session);
    auto& said = Say(One, 1, {1});
    EXPECT_EQ(AdoptLocation(), commands::Failed);
    EXPECT_NE(m_errors.find("a session of its job is at work"), std::string::npos) << m_errors;
    EXPECT_TRUE(State().Chains().empty());

    // One that comes and goes while the chain is looked into may have removed points that were seen.
    Finish(session, zamclientlib::JobSessionTaskStatus::Success, now, {});
    State().SaveSession(session);
    said.OnSnapshots = [&] {
        auto quick = NewSession(job, {}, {}, now);
        Finish(quick, zamclientlib::JobSessionTaskStatus::Success, now, {});
        State().AddSession(quick);
    };
    EXPECT_EQ(AdoptLocation(), commands::Failed);
    EXPECT_TRUE(State().Chains().empty());
    said.OnSnapshots = {};
    EXPECT_EQ(AdoptLocation(), commands::Done) << m_errors;
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1}));
}

TEST_F(Adopt, AnEndInTheMiddleLeavesWholeChainsAndTheNextRunGoesOn) {
    Say(One, 1, {1});
    Say(One, 2, {2}).OnSnapshots = [] { throw CEngineStopped("stopped"); };
    Say(One, 3, {3});
    EXPECT_EQ(AdoptLocation(), commands::Failed);
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1}));
    m_said->Chains.at(ChainFolder(One, 2)).OnSnapshots = {};
    EXPECT_EQ(AdoptLocation(), commands::Done) << m_errors;
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1, 2, 3}));
}

TEST_F(Adopt, ADaemonThatStartsMeanwhileLeavesThePasswordOfAChainThatIsBeingAdopted) {
    auto state = State();
    SChain chain;
    chain.Job = One;
    chain.Number = 1;
    {
        CStore::CTransaction transaction(state);
        state.AddChain(chain, "s3cret");
        CStore starting(m_folders.State, {.BusyLimit = std::chrono::milliseconds(10)});
        EXPECT_THROW(starting.RemoveStraySecrets(), CStateError);  // it would wait for longer
        transaction.Commit();
        starting.RemoveStraySecrets();
    }
    EXPECT_EQ(state.ChainPassword(One, 1), "s3cret");
}

TEST_F(Adopt, ChainsOfTheRealEngineGiveBackWhatTheyHoldAfterTheStateIsLost) {
    if (tests::IsSanitized) GTEST_SKIP() << "runs no code of ours that other tests do not run";
    if (std::system("command -v restic >/dev/null") != 0) GTEST_SKIP() << "restic is not installed";
    m_engine = MakeResticEngine({.Program = "", .CacheFolder = m_folders.Cache});
    m_folder.Folder("location");
    m_folder.Write("source/file", "first");
    SWalkRequest walk;
    walk.Roots = {m_folder / "source"};
    walk.ListFile = m_folder / "list";
    Walk(walk, {});
    const auto back = [&](const Guid& job, unsigned point, const std::optional<std::string>& password) {
        SBackupRequest request;
        request.Store = {ChainFolder(job, 1), password};
        if (!m_engine->Exists(request.Store)) m_engine->Prepare({request.Store, "re\nal"}, {});
        request.Job = PlainText(job);
        request.Point = PlainText(PointId(point));
        request.ListFile = m_folder / "list";
        m_engine->BackUp(request, {});
    };
    back(One, 1, {});
    const auto first = TreeText(m_folder / "source");
    m_folder.Write("source/file", "second");
    m_folder.Write("source/new\xff", std::string(100'000, 'n'));
    back(One, 2, {});
    back(Two, 3, "pass word");

    EXPECT_EQ(AdoptLocation(), commands::Failed);
    EXPECT_NE(m_errors.find("--password-file"), std::string::npos) << m_errors;
    EXPECT_EQ(NumbersOf(One), (std::vector<unsigned>{1, 2}));
    EXPECT_TRUE(NumbersOf(Two).empty());
    EXPECT_EQ(AdoptLocation({"--password-file", m_folder.Write("key", "pass word\n")}), commands::Done)
        << m_errors;
    EXPECT_EQ(m_out, "Adopted chain 1 of the job \"re\\nal\", 1 point\n");
    EXPECT_EQ(AdoptLocation(), commands::Done);
    EXPECT_NE(m_errors.find("Nothing new"), std::string::npos) << m_errors;

    EXPECT_EQ(State().FindPoint(PointId(1))->SourceBytes, 5U);
    EXPECT_EQ(State().FindPoint(PointId(2))->SourceBytes, 100'006U);
    ASSERT_EQ(Run({"restore", PlainText(PointId(1)), "--to", m_folder / "first"}), commands::Done)
        << m_errors;
    EXPECT_EQ(TreeText((m_folder / "first") + (m_folder / "source")), first);
    ASSERT_EQ(Run({"restore", "latest", "--job", PlainText(Two), "--to", m_folder / "last"}), commands::Done)
        << m_errors;
    EXPECT_EQ(TreeText((m_folder / "last") + (m_folder / "source")), TreeText(m_folder / "source"));
    EXPECT_EQ(Run({"verify"}), commands::Done) << m_out;
    EXPECT_EQ(Run({"forget", "--orphans"}), commands::Done) << m_errors;
    EXPECT_TRUE(fs::is_empty(m_folder / "location"));
}

}  // namespace
