// SPDX-License-Identifier: Apache-2.0
// The commands beside a state that a daemon has left.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/commands/Table.h"
#include "agent/core/Values.h"
#include "agent/engine/CResticEngine.h"
#include "agent/host/Walk.h"
#include "agent/state/CStore.h"
#include "tests/agent/TreeText.h"
#include "tests/agent/commands/CommandsFixture.h"

namespace {

using namespace tarvo;
using tests::TreeText;
namespace fs = std::filesystem;

/// Answers from memory: most commands ask it little.
class CMemoryEngine final : public IEngine {
public:
    SEngineInfo Info() override { return {}; }
    void Prepare(const SPrepareRequest&, std::stop_token) override {}
    bool Exists(const SEngineStore&) override { return IsThere; }
    SBackupResult BackUp(const SBackupRequest&, std::stop_token) override { return {}; }
    std::vector<SSnapshot> Snapshots(const SEngineStore&, std::stop_token) override { return {}; }
    void Forget(const SEngineStore&, const std::vector<std::string>&, std::stop_token) override {}
    void List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
              std::stop_token) override {
        Asked.push_back("list " + request.Snapshot);
        const auto& path = request.Path;
        for (const auto& each : Entries)
            if (path == "/" || each.Path == path || each.Path.starts_with(path + "/")) entry(each);
    }
    SRestoreResult Restore(const SRestoreRequest& request, std::stop_token) override {
        std::string asked = "restore " + request.Snapshot + " to " + request.Target;
        for (const auto& path : request.Paths)
            asked += " " + path;
        if (request.Store.Password) asked += " by " + *request.Store.Password;
        Asked.push_back(asked);
        if (OnRestore) OnRestore();
        return {RestoreWarnings};
    }
    SVerifyResult Verify(const SVerifyRequest& request, std::stop_token) override {
        Asked.push_back("verify " + request.Store.Folder.substr(request.Store.Folder.rfind('/') + 1) +
                        (request.Part ? " " + std::to_string(request.Part->Number) + "/" +
                                            std::to_string(request.Part->Of)
                                      : ""));
        if (OnVerify) OnVerify();
        return {IsDamaged,
                IsDamaged ? std::vector<std::string>{"pack 77 is wrong"} : std::vector<std::string>{}};
    }
    void ChangePassword(const SEngineStore&, const std::string&, std::stop_token) override {}
    void Unlock(const SEngineStore&, std::stop_token) override { Asked.emplace_back("unlock"); }
    std::optional<std::uint64_t> StoreSize(const SEngineStore&) override { return {}; }
    void Remove(const SEngineStore& store) override { Asked.push_back("remove " + store.Folder); }

    std::vector<SEntry> Entries;
    std::vector<std::string> Asked;
    std::uint64_t RestoreWarnings = 0;
    bool IsDamaged = false;
    bool IsThere = true;
    std::function<void()> OnVerify;
    std::function<void()> OnRestore;
};

class Commands : public tests::CCommandsTest {
protected:
    Commands() { m_engine = m_memory; }

    CStore& State() {
        if (m_state == nullptr) {
            MakeFolders(m_folders);
            m_state = std::make_unique<CStore>(m_folders.State);
        }
        return *m_state;
    }

    SJob AddJob(const std::string& name, const Guid& id) {
        SJob job;
        job.Id = id;
        job.Config.JobName = name;
        job.Config.RetentionInfo.RestorePointsCount = 1;
        State().AddJob(job, {});
        return job;
    }
    SChain AddChain(const Guid& job, int number, const std::optional<std::string>& password = {}) {
        SChain chain;
        chain.Job = job;
        chain.Number = number;
        chain.Location = m_folder.Folder("location");
        chain.State = EChainState::Open;
        chain.HasPassword = password.has_value();
        State().AddChain(chain, password);
        return chain;
    }
    void AddPoint(const Guid& job, int chain, const Guid& id, int minute,
                  const std::string& engineId = "snap") {
        SPoint point;
        point.Id = id;
        point.Job = job;
        point.Chain = chain;
        point.Created = Moment(std::chrono::minutes(minute));
        point.Type = zamclientlib::RestorePointType::Full;
        point.SourceBytes = 2048;
        point.EngineId = engineId;
        State().AddPoint(point);
    }

    /// Two jobs, the second with a password and two points, and a deleted one.
    void AddThree() {
        AddJob("alpha", One);
        AddJob("be\nta", Two);
        auto gone = AddJob("gamma", Three);
        gone.IsDeleted = true;
        State().SaveJob(gone);
        AddChain(One, 1);
        AddChain(Two, 1, "s3cret");
        AddChain(Three, 4);
        AddPoint(One, 1, Guid::Deserialize("aaaa1111-0000-0000-0000-000000000001"), 1, "snap1");
        AddPoint(Two, 1, Guid::Deserialize("aaaa2222-0000-0000-0000-000000000002"), 2, "snap2");
        AddPoint(Two, 1, Guid::Deserialize("bbbb3333-0000-0000-0000-000000000003"), 3, "snap3");
        AddPoint(Three, 4, Guid::Deserialize("cccc4444-0000-0000-0000-000000000004"), 4, "snap4");
    }

    const Guid One = Guid::Deserialize("00000001-0000-0000-0000-000000000000");
    const Guid Two = Guid::Deserialize("00000002-0000-0000-0000-000000000000");
    const Guid Three = Guid::Deserialize("00000003-0000-0000-0000-000000000000");

    std::shared_ptr<CMemoryEngine> m_memory = std::make_shared<CMemoryEngine>();
    std::unique_ptr<CStore> m_state;
};

TEST_F(Commands, BeforeTheFirstStartThereIsNothing) {
    EXPECT_EQ(Run({"points"}), commands::Done) << m_errors;
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_errors,
              "There are no points yet: no agent has kept its state in \"" + m_folders.State + "\"\n");
    EXPECT_EQ(Run({"chains", "--json"}), commands::Done);
    EXPECT_EQ(m_out + m_errors, "");
    EXPECT_EQ(Run({"verify"}), commands::Done);
    EXPECT_EQ(Run({"forget", "--orphans"}), commands::Done);
    EXPECT_EQ(Run({"restore", "latest", "--to", "/x"}), commands::NotFound);
    EXPECT_EQ(Run({"points", "--job", "x"}), commands::NotFound);
    EXPECT_EQ(Run({"verify", "--job", "x"}), commands::NotFound);
    EXPECT_FALSE(fs::exists(m_folders.State));
}

TEST_F(Commands, WrongUseIsSaidToBe) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"restore"},
                                               {"restore", "latest"},
                                               {"points", "extra"},
                                               {"points", "--unknown"},
                                               {"forget"},
                                               {"verify", "--parts", "0"},
                                               {"verify", "--parts", "257"},
                                               {"verify", "--parts", "x"},
                                               {"verify", "--chain", "-1"},
                                               {"verify", "--chain", "x"},
                                               {"restore", "latest", "--to", ""},
                                               {"files", "latest", "--path", "relative"}}) {
        EXPECT_EQ(Run(arguments), commands::Usage) << arguments[0];
        EXPECT_TRUE(m_errors.starts_with("tarvod: ")) << m_errors;
        EXPECT_LT(m_errors.size(), 150U) << m_errors;
    }
    EXPECT_EQ(Run({"restore", "--help"}), commands::Done);
    EXPECT_NE(m_out.find("--password-file"), std::string::npos);
    EXPECT_TRUE(commands::IsCommand("files"));
    EXPECT_FALSE(commands::IsCommand("--version"));
}

TEST_F(Commands, PointsAreListedWithTheirJobsAndOrphansAmongThem) {
    AddThree();
    ASSERT_EQ(Run({"points"}), commands::Done) << m_errors;
    std::istringstream lines(m_out);
    std::vector<std::string> text;
    for (std::string line; std::getline(lines, line);)
        text.push_back(line);
    ASSERT_EQ(text.size(), 5U) << m_out;
    EXPECT_TRUE(text[0].starts_with("POINT "));
    EXPECT_NE(text[2].find("be\\nta"), std::string::npos);
    EXPECT_NE(text[2].find("2.0 KiB"), std::string::npos);
    EXPECT_EQ(text[1].find("1970-01-01T00:01:00Z"), text[4].find("1970-01-01T00:04:00Z"));
    EXPECT_NE(text[4].find("gamma   yes"), std::string::npos) << text[4];

    ASSERT_EQ(Run({"points", "--job", "alpha", "--json"}), commands::Done);
    EXPECT_EQ(
        m_out,
        R"({"point":"aaaa1111-0000-0000-0000-000000000001","job":"alpha","orphan":false,)"
        R"("created":"1970-01-01T00:01:00Z","type":"Full","size":2048,"stored":0,"chain":1,"state":"open"})"
        "\n");
    EXPECT_EQ(Run({"points", "--job", "nobody"}), commands::NotFound);
    EXPECT_EQ(Run({"points", "--job", "{00000002-0000-0000-0000-000000000000}"}), commands::Done);
}

TEST_F(Commands, APreviewTellsWhatGoesAndWhy) {
    AddThree();
    ASSERT_EQ(Run({"points", "--preview", "--job", "be\nta", "--json"}), commands::Done) << m_errors;
    EXPECT_NE(m_out.find("\"fate\":\"keep\""), std::string::npos) << m_out;
    const auto removed = m_out.find("\"fate\":\"remove\",\"reason\":\"");
    ASSERT_NE(removed, std::string::npos) << m_out;
    EXPECT_EQ(m_out.find("\"reason\":\"\""), std::string::npos) << m_out;
    EXPECT_LT(m_out.find("bbbb3333"), m_out.find("aaaa2222"));
}

TEST_F(Commands, APointIsNamedByAUniqueBeginningOfItsId) {
    AddThree();
    EXPECT_EQ(Run({"restore", "AAAA1", "--to", "/t"}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked, std::vector<std::string>{"restore snap1 to /t"});
    EXPECT_EQ(Run({"restore", "{bbbb3333-0000-0000-0000-000000000003}", "--to", "/t"}), commands::Done);
    EXPECT_EQ(m_memory->Asked.back(), "restore snap3 to /t by s3cret");
    EXPECT_EQ(Run({"restore", "aaaa", "--to", "/t"}), commands::Usage);
    EXPECT_EQ(Run({"restore", "aaaa", "--job", "alpha", "--to", "/t"}), commands::Done);
    EXPECT_EQ(Run({"restore", "dddd", "--to", "/t"}), commands::NotFound);
    EXPECT_EQ(Run({"restore", "", "--to", "/t"}), commands::NotFound);
}

TEST_F(Commands, TheLatestPointNeedsItsJobWhereThereAreSeveral) {
    AddThree();
    EXPECT_EQ(Run({"restore", "latest", "--to", "/t"}), commands::Usage);
    EXPECT_NE(m_errors.find("be\\nta"), std::string::npos);
    EXPECT_NE(m_errors.find("gamma (deleted: " + PlainText(Three) + ")"), std::string::npos) << m_errors;
    EXPECT_EQ(Run({"restore", "latest", "--job", "be\nta", "--to", "/t"}), commands::Done);
    EXPECT_EQ(m_memory->Asked.back(), "restore snap3 to /t by s3cret");
    EXPECT_EQ(Run({"restore", "latest", "--job", "nobody", "--to", "/t"}), commands::NotFound);
    EXPECT_EQ(Run({"restore", "latest", "--job", "gamma", "--to", "/t"}), commands::Done) << "an orphan";
}

TEST_F(Commands, APasswordMayComeFromAFile) {
    AddThree();
    const auto file = m_folder.Write("password", "of mine\n");
    EXPECT_EQ(Run({"restore", "bbbb", "--to", "/t", "--password-file", file}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked.back(), "restore snap3 to /t by of mine");
    EXPECT_EQ(Run({"restore", "bbbb", "--to", "/t", "--password-file", m_folder / "none"}), commands::Failed);
}

TEST_F(Commands, APathThatThePointDoesNotHoldIsNotFound) {
    AddThree();
    m_memory->Entries = {{"/a", EEntryType::Folder, 0, 01777, 0, 0, {}},
                         {"/a/b\xff", EEntryType::File, 5, 0644, 1, 2, {}}};
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t", "--path", "/a/b\xff"}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked.back(), "restore snap1 to /t /a/b\xff");
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t", "--path", "/a/", "--path", "/c"}), commands::NotFound);
    EXPECT_NE(m_errors.find("\"/c\""), std::string::npos);
    EXPECT_EQ(Run({"files", "aaaa1", "--path", "/c"}), commands::NotFound);
    EXPECT_EQ(Run({"files", "aaaa1", "--path", "/a/b\xff"}), commands::Done);
    EXPECT_NE(m_out.find("0644       1       2         5 B  1970-01-01T00:00:00Z  /a/b\\xff\n"),
              std::string::npos)
        << m_out;
    EXPECT_EQ(Run({"files", "aaaa1", "--path", "/a/b\xff", "--path", "/c"}), commands::NotFound);
    EXPECT_EQ(Run({"files", "aaaa1", "--path", "/a", "--path", "/"}), commands::Done);
    EXPECT_EQ(Run({"files", "aaaa1", "--json"}), commands::Done);
    EXPECT_NE(m_out.find(R"("escaped":"/a/b\\xff","type":"file","size":5,"mode":"0644")"), std::string::npos)
        << m_out;
    const auto asked = m_memory->Asked.size();
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t/", "--path", "/a", "--dry-run"}), commands::Done);
    EXPECT_EQ(m_out, "/t/a\n/t/a/b\\xff\n");
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t", "--path", "//a/./x/../b\xff/", "--dry-run"}),
              commands::Done);
    EXPECT_EQ(m_out, "/t/a/b\\xff\n");
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t", "--path", "/c", "--dry-run"}), commands::NotFound);
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/", "--dry-run"}), commands::Done);
    EXPECT_TRUE(m_out.starts_with("/a\n"));
    for (auto i = asked; i < m_memory->Asked.size(); ++i)
        EXPECT_EQ(m_memory->Asked[i], "list snap1");
}

TEST_F(Commands, ARestoreThatIsNotAsItWasFails) {
    AddThree();
    m_memory->RestoreWarnings = 2;
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t"}), commands::Failed);
    EXPECT_EQ(m_errors, "Restored with 2 entries that are not as they were\n");
    m_memory->RestoreWarnings = 1;
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t"}), commands::Failed);
    EXPECT_EQ(m_errors, "Restored with 1 entry that is not as it was\n");
}

TEST_F(Commands, AForgottenLockKeepsNobodyFromRestoring) {
    AddThree();
    bool isLocked = true;
    m_memory->OnRestore = [&] {
        if (std::exchange(isLocked, false)) throw CStoreLocked("locked");
    };
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", "/t"}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked,
              (std::vector<std::string>{"restore snap1 to /t", "unlock", "restore snap1 to /t"}));
}

TEST_F(Commands, VerifyingEndsAtTheChainThatSomebodyInterrupts) {
    AddThree();
    m_memory->OnVerify = [] { throw CEngineStopped("stopped"); };
    EXPECT_EQ(Run({"verify"}), commands::Failed);
    EXPECT_EQ(m_memory->Asked.size(), 1U);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Open);
}

TEST_F(Commands, WhatIsRestoredReplacesWhatStandsThereAndNothingElse) {
    AddThree();
    m_memory->Entries = {{"/a", EEntryType::Folder, 0, 0755, 0, 0, {}},
                         {"/a/file", EEntryType::File, 5, 0644, 0, 0, {}},
                         {"/a/link", EEntryType::Link, 0, 0777, 0, 0, {}},
                         {"/a/sub", EEntryType::Folder, 0, 0755, 0, 0, {}},
                         {"/a/sub/deep", EEntryType::File, 5, 0644, 0, 0, {}}};
    const std::string target = m_folder.Folder("target");
    m_folder.Folder("target/a");
    const auto elsewhere = m_folder.Write("elsewhere", "not to be written through");
    fs::create_symlink(elsewhere, target + "/a/file");
    fs::create_symlink("old", target + "/a/link");
    const auto other = m_folder.Write("target/a/other", "of nobody's business");
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", target, "--path", "/a/link"}), commands::Done) << m_errors;
    EXPECT_FALSE(fs::is_symlink(target + "/a/link"));
    EXPECT_TRUE(fs::is_symlink(target + "/a/file"));
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", target}), commands::Done) << m_errors;
    EXPECT_FALSE(fs::is_symlink(target + "/a/file"));
    EXPECT_TRUE(fs::exists(elsewhere));
    EXPECT_TRUE(fs::exists(other));

    // A folder that is none would lead the engine out of the target.
    m_folder.Write("target/a/file", "stays");
    fs::create_symlink(m_folder.Folder("outside"), target + "/a/sub");
    const auto asked =
        std::count(m_memory->Asked.begin(), m_memory->Asked.end(), "restore snap1 to " + target);
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", target}), commands::Failed);
    EXPECT_NE(m_errors.find("a/sub"), std::string::npos) << m_errors;
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", target, "--path", "/a/sub/deep"}), commands::Failed);
    EXPECT_TRUE(fs::exists(target + "/a/file"));
    fs::remove(target + "/a/sub");
    fs::remove(target + "/a/file");
    fs::create_directory(target + "/a/file");
    EXPECT_EQ(Run({"restore", "aaaa1", "--to", target}), commands::Failed);
    EXPECT_EQ(std::count(m_memory->Asked.begin(), m_memory->Asked.end(), "restore snap1 to " + target),
              asked);
}

TEST_F(Commands, NothingIsRestoredBelowWhatIsNoFolder) {
    AddThree();
    const auto file = m_folder.Write("file", "");
    for (const auto& target : {file, file + "/below"}) {
        EXPECT_EQ(Run({"restore", "aaaa1", "--to", target}), commands::Failed);
        EXPECT_NE(m_errors.find("\": Not a directory"), std::string::npos) << m_errors;
    }
    EXPECT_TRUE(m_memory->Asked.empty());
}

TEST_F(Commands, VerifyReadsAllChainsAndMarksTheDamagedOnes) {
    AddThree();
    EXPECT_EQ(Run({"verify"}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked, (std::vector<std::string>{"verify 1", "verify 1", "verify 4"}));
    EXPECT_NE(m_out.find("chain 1 of the job \"be\\nta\": sound: read whole\n"), std::string::npos) << m_out;
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Open);
    EXPECT_TRUE(State().FindChain(One, 1)->Verified.Last);

    m_memory->IsDamaged = true;
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Failed);
    EXPECT_NE(m_out.find("damaged: pack 77 is wrong"), std::string::npos);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Damaged);
    EXPECT_EQ(State().FindChain(One, 1)->Damage, "pack 77 is wrong");
    EXPECT_EQ(State().FindChain(Two, 1)->State, EChainState::Open);
    EXPECT_EQ(Run({"chains", "--job", "alpha"}), commands::Done);
    EXPECT_NE(m_out.find("pack 77 is wrong"), std::string::npos);
    EXPECT_EQ(Run({"verify", "--chain", "9"}), commands::NotFound);
    EXPECT_EQ(Run({"verify", "--job", "nobody"}), commands::NotFound);
}

TEST_F(Commands, ALongStoryOfDamageIsToldWholeToProgramsOnly) {
    AddJob("alpha", One);
    auto chain = AddChain(One, 1);
    chain.State = EChainState::Damaged;
    chain.Damage = std::string(99, 'x') + "\xc3\xa4" + std::string(500, 'y');
    State().SaveChain(chain);
    EXPECT_EQ(Run({"chains"}), commands::Done);
    EXPECT_NE(m_out.find(std::string(99, 'x') + "...\n"), std::string::npos) << m_out;
    EXPECT_EQ(Run({"chains", "--json"}), commands::Done);
    EXPECT_NE(m_out.find(chain.Damage), std::string::npos) << m_out;
}

TEST_F(Commands, TheNextPartIsReadEachTimeAndRemembered) {
    AddThree();
    for (const char* part : {"1/3", "2/3", "3/3", "1/3"}) {
        EXPECT_EQ(Run({"verify", "--job", "alpha", "--parts", "3"}), commands::Done);
        EXPECT_EQ(m_memory->Asked.back(), std::string("verify 1 ") + part);
    }
    EXPECT_EQ(Run({"verify", "--job", "alpha", "--parts", "2"}), commands::Done);
    EXPECT_EQ(m_memory->Asked.back(), "verify 1 1/2");
}

TEST_F(Commands, AStoreThatIsGoneIsLostAndOneWhoseDiskIsAwayIsNot) {
    AddThree();
    m_memory->OnVerify = [] { throw CNoLocation("the disk is away"); };
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Failed);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Open);
    m_memory->OnVerify = [] { throw CNoStore("it is gone"); };
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Failed);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Lost);
    // A run that misses it says so in its own log, and leaves the chain without a word.
    m_memory->IsThere = false;
    auto missed = *State().FindChain(One, 1);
    missed.Damage.clear();
    State().SaveChain(missed);
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Failed);
    EXPECT_NE(m_out.find(": lost: it is no longer in \""), std::string::npos) << m_out;
    // When it is back, that is known as well.
    m_memory->IsThere = true;
    m_memory->OnVerify = {};
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Done);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Open);
    // One that cannot be opened is not said to be damaged.
    m_memory->OnVerify = [] { throw CWrongKey("no"); };
    EXPECT_EQ(Run({"verify", "--job", "be\nta"}), commands::Failed);
    EXPECT_EQ(State().FindChain(Two, 1)->State, EChainState::Open);
}

TEST_F(Commands, AForgottenLockIsRemovedAndALivingOneTold) {
    AddThree();
    int times = 0;
    m_memory->OnVerify = [&] {
        if (++times == 1) throw CStoreLocked("locked");
    };
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Done);
    EXPECT_EQ(m_memory->Asked, (std::vector<std::string>{"verify 1", "unlock", "verify 1"}));
    m_memory->OnVerify = [] { throw CStoreLocked("locked by 7"); };
    EXPECT_EQ(Run({"verify", "--job", "alpha"}), commands::Failed);
    EXPECT_NE(m_out.find("locked by 7"), std::string::npos);
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Open);
}

TEST_F(Commands, OrphansAreForgottenAndNothingElse) {
    AddThree();
    EXPECT_EQ(Run({"forget", "--orphans", "--dry-run"}), commands::Done) << m_errors;
    EXPECT_EQ(m_out, "Would remove chain 4 of the job \"gamma\", 1 point: the job was deleted\n");
    EXPECT_TRUE(m_memory->Asked.empty());
    EXPECT_EQ(Run({"forget", "--orphans"}), commands::Done) << m_errors;
    EXPECT_EQ(m_memory->Asked, (std::vector<std::string>{"remove " + (m_folder / "location/tarvo/") +
                                                         PlainText(Three) + "/4"}));
    EXPECT_EQ(State().Points().size(), 3U);
    EXPECT_EQ(State().Chains().size(), 2U);
    EXPECT_EQ(State().Jobs().size(), 2U);
    EXPECT_EQ(Run({"forget", "--orphans"}), commands::Done);
}

TEST_F(Commands, OrphansWhoseDiskIsAwayStayKnown) {
    AddThree();
    fs::remove_all(m_folder / "location");
    EXPECT_EQ(Run({"forget", "--orphans"}), commands::Failed);
    EXPECT_EQ(State().Points().size(), 4U);
    EXPECT_TRUE(m_memory->Asked.empty());
}

TEST_F(Commands, WhatWasBackedUpComesBackThroughTheRealEngineAndDamageIsMarked) {
    m_folder.Write("source/a\nb", "1", 0640);
    m_folder.Write("source/d/c\xff", std::string(200'000, 'c'));
    m_engine = MakeResticEngine({.Program = "", .CacheFolder = m_folders.Cache});
    fs::create_hard_link(m_folder / "source/a\nb", m_folder / "source/again");
    fs::create_symlink("again", m_folder / "source/link");
    AddJob("real", One);
    const auto chain = AddChain(One, 1, "pass word");
    const SEngineStore store{StoreFolder(chain.Location, PlainText(One), 1), "pass word"};
    m_engine->Prepare({store, "real"}, {});
    SWalkRequest walk;
    walk.Roots = {m_folder / "source"};
    walk.ListFile = m_folder / "list";
    Walk(walk, {});
    SBackupRequest request;
    request.Store = store;
    request.Job = PlainText(One);
    request.Point = "p";
    request.ListFile = walk.ListFile;
    AddPoint(One, 1, Guid::Deserialize("aaaa1111-0000-0000-0000-000000000001"), 1,
             m_engine->BackUp(request, {}).Snapshot);

    EXPECT_EQ(Run({"restore", "latest", "--to", m_folder / "to"}), commands::Done) << m_errors;
    EXPECT_EQ(TreeText((m_folder / "to") + (m_folder / "source")), TreeText(m_folder / "source"));
    // Over what is there the engine alone would lose a name of the file that has two, and fail at the link.
    m_folder.Write("to" + (m_folder / "source/again"), "changed");
    EXPECT_EQ(Run({"restore", "latest", "--to", m_folder / "to"}), commands::Done) << m_errors;
    EXPECT_EQ(TreeText((m_folder / "to") + (m_folder / "source")), TreeText(m_folder / "source"));
    EXPECT_EQ(Run({"restore", "latest", "--to", m_folder / "part", "--path", m_folder / "source/d"}),
              commands::Done);
    EXPECT_FALSE(fs::exists((m_folder / "part") + (m_folder / "source/a\nb")));
    EXPECT_TRUE(fs::exists((m_folder / "part") + (m_folder / "source/d/c\xff")));
    EXPECT_EQ(
        Run({"restore", "latest", "--to", m_folder / "no", "--password-file", m_folder.Write("wrong", "x")}),
        commands::Failed);
    EXPECT_NE(m_errors.find("--password-file"), std::string::npos) << m_errors;
    EXPECT_EQ(Run({"verify"}), commands::Done) << m_out;

    for (const auto& entry : fs::recursive_directory_iterator(store.Folder + "/data")) {
        if (!entry.is_regular_file()) continue;
        ::chmod(entry.path().c_str(), 0600);
        std::fstream(entry.path(), std::ios::in | std::ios::out | std::ios::binary)
            .seekp(10)
            .write("damage", 6);
    }
    EXPECT_EQ(Run({"verify"}), commands::Failed) << m_out;
    EXPECT_EQ(State().FindChain(One, 1)->State, EChainState::Damaged);
}

TEST(CommandsTable, SizesAndTimesAreForPeople) {
    EXPECT_EQ(commands::SizeText(0), "0 B");
    EXPECT_EQ(commands::SizeText(1023), "1023 B");
    EXPECT_EQ(commands::SizeText(1536), "1.5 KiB");
    EXPECT_EQ(commands::SizeText(1024 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(commands::SizeText(UINT64_MAX), "16.0 EiB");
    EXPECT_EQ(commands::TimeText(Moment(std::chrono::milliseconds(1'700'000'000'999))),
              "2023-11-14T22:13:20Z");
}

}  // namespace
