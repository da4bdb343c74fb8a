// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "agent/core/CControl.h"
#include "agent/core/Progress.h"
#include "agent/core/Retention.h"
#include "agent/core/Secrets.h"
#include "agent/core/Sessions.h"
#include "agent/core/Validity.h"

using namespace std::chrono;
using namespace zamclientlib;
using namespace tarvo;

namespace {

const Moment Now = Moment(1'800'000'000'000ms);

SPoint PointOf(days age, int chain = 1) {
    SPoint point;
    point.Id = Guid::Random();
    point.Chain = chain;
    point.Created = Now - age;
    return point;
}

SChain ChainOf(int number, EChainState state) {
    SChain chain;
    chain.Number = number;
    chain.State = state;
    return chain;
}

/// Of points given newest first.
std::vector<bool> Kept(int count, std::optional<unsigned long> retainDays, std::vector<SPoint> points,
                       const std::vector<SChain>& chains = {}) {
    SBackupJobRetentionInfo retention;
    retention.RestorePointsCount = count;
    if (retainDays) retention.RetainDays = *retainDays;
    std::reverse(points.begin(), points.end());
    std::vector<bool> kept;
    for (const auto& choice : ChooseKept(retention, points, chains, Now)) {
        EXPECT_NE(choice.Reason, "");
        kept.push_back(choice.IsKept);
    }
    return kept;
}

using Flags = std::vector<bool>;

SZamControlOwnerInfo OwnerNamed(const std::string& name, ZAMOwnerMode mode) {
    return {Guid::Random(), name, ZAMOwnerType::ManagementConsole, mode};
}

SBackupJobConfigurationInfo GoodJob() {
    SBackupJobConfigurationInfo config;
    config.JobName = "nightly";
    config.Source.BackupMode = JobBackupMode::FileLevel;
    config.Source.IncludeDirs = {"/etc"};
    return config;
}

SHostFacts GoodHost() {
    SHostFacts facts;
    facts.Repository = SBackupRepositoryInfo{};
    facts.Repository->Type = BackupTargetType::LocalFolder;
    return facts;
}

std::vector<ELogDetailType> Weights(const SBackupJobConfigurationInfo& config, const SHostFacts& facts) {
    std::vector<ELogDetailType> weights;
    for (const auto& finding : FindingsOf(config, facts)) {
        EXPECT_NE(finding.Message, "");
        weights.push_back(finding.MessageType);
    }
    return weights;
}

using Found = std::vector<ELogDetailType>;
constexpr auto Error = ELogDetailType::Error;
constexpr auto Warning = ELogDetailType::Warning;
constexpr auto Note = ELogDetailType::Info;

}  // namespace

// Retention

TEST(RetentionTest, EverythingIsKeptWhereNothingIsAsked) {
    const std::vector points{PointOf(days(1)), PointOf(days(900))};
    EXPECT_EQ(Kept(0, {}, points), (Flags{true, true}));
    EXPECT_EQ(Kept(-3, {}, points), (Flags{true, true}));
    EXPECT_EQ(Kept(0, 0, points), (Flags{true, true}));
}

TEST(RetentionTest, TheNewestSoManyAreKept) {
    const std::vector points{PointOf(days(1)), PointOf(days(2)), PointOf(days(3)), PointOf(days(4))};
    EXPECT_EQ(Kept(2, {}, points), (Flags{true, true, false, false}));
    EXPECT_EQ(Kept(9, {}, points), (Flags{true, true, true, true}));
}

TEST(RetentionTest, OnePointThatIsKeptIsTheNewestAndOneDayADay) {
    SBackupJobRetentionInfo retention;
    retention.RestorePointsCount = 1;
    retention.RetainDays = 1UL;
    const auto choices = ChooseKept(retention, {PointOf(days(9)), PointOf(days(2))}, {}, Now);
    EXPECT_EQ(choices[0].Reason, "the newest");
    EXPECT_EQ(choices[1].Reason, "not the newest, and older than 1 day");
    EXPECT_EQ(Counted(1, "entry", "entries"), "1 entry");
    EXPECT_EQ(Counted(0, "entry", "entries"), "0 entries");
}

TEST(RetentionTest, APointThatWasMadeAfterTheClockWasSetBackIsStillTheNewest) {
    EXPECT_EQ(Kept(1, {}, {PointOf(days(30)), PointOf(days(1))}), (Flags{true, false}));
    EXPECT_EQ(Kept(1, {}, {PointOf(days(1)), PointOf(days(1))}), (Flags{true, false}));
}

TEST(RetentionTest, CountAndDaysEachKeepWhatTheyAskFor) {
    const std::vector points{PointOf(days(1)), PointOf(days(5)), PointOf(days(10)), PointOf(days(20))};
    EXPECT_EQ(Kept(1, 7, points), (Flags{true, true, false, false}));
    EXPECT_EQ(Kept(3, 7, points), (Flags{true, true, true, false}));
    EXPECT_EQ(Kept(0, 7, points), (Flags{true, true, false, false}));
}

TEST(RetentionTest, TheNewestPointStaysHoweverOldItIs) {
    EXPECT_EQ(Kept(0, 7, {PointOf(days(100)), PointOf(days(200))}), (Flags{true, false}));
}

TEST(RetentionTest, PointsOfADamagedChainGoOnlyWhenEnoughSoundOnesAreNewer) {
    const std::vector chains{ChainOf(1, EChainState::Damaged), ChainOf(2, EChainState::Open)};
    const std::vector points{PointOf(days(1), 2), PointOf(days(2), 1), PointOf(days(3), 1)};
    EXPECT_EQ(Kept(2, {}, points, chains), (Flags{true, true, true}));
    EXPECT_EQ(Kept(1, {}, points, chains), (Flags{true, false, false}));
}

TEST(RetentionTest, AnEndlessNumberOfDaysKeepsEverything) {
    EXPECT_EQ(Kept(1, ~0UL, {PointOf(days(1)), PointOf(days(20000))}), (Flags{true, true}));
}

TEST(RetentionTest, GeneratedPointsAreKeptByThePlainRule) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::vector<SPoint> points;
        for (unsigned count = random() % 12; count > 0; --count) {
            points.push_back(PointOf(days(random() % 30)));
        }
        const int wanted = static_cast<int>(random() % 6);
        const unsigned long retain = random() % 10;
        const auto kept = Kept(wanted, retain, points);
        const auto& ages = points;
        for (std::size_t i = 0; i < ages.size(); ++i) {
            const bool isExpected = (wanted == 0 && retain == 0) || i < static_cast<std::size_t>(wanted) ||
                                    i == 0 || (retain != 0 && Now - ages[i].Created < days(retain));
            EXPECT_EQ(kept[i], isExpected) << "round " << round << " point " << i;
        }
    }
}

// Control

TEST(ControlTest, AnOwnerNeedsAnId) {
    CControl control;
    EXPECT_THROW(control.Request({}, true), CGenericException);
}

TEST(ControlTest, ARefusedOwnerIsToldWhoHoldsControl) {
    CControl control;
    control.Request(OwnerNamed("console A", ZAMOwnerMode::Exclusive), false);
    try {
        control.Request(OwnerNamed("B", ZAMOwnerMode::Shared), false);
        FAIL();
    } catch (const CGenericException& error) {
        EXPECT_NE(std::string(error.what()).find("console A"), std::string::npos) << error.what();
    }
}

TEST(ControlTest, ModesLetOthersInAsTheyAreSaidTo) {
    struct {
        ZAMOwnerMode Mode;
        bool MayLook;
        bool MayChange;
    } constexpr Cases[] = {{ZAMOwnerMode::Shared, true, true},
                           {ZAMOwnerMode::ReadOnly, true, false},
                           {ZAMOwnerMode::Exclusive, false, false},
                           {ZAMOwnerMode::None, false, false}};
    for (const auto& each : Cases) {
        CControl control;
        const auto owner = OwnerNamed("owner", each.Mode);
        const auto grant = control.Request(owner, false);
        EXPECT_NO_THROW(control.RequireChangeBy(*grant));
        const auto guest = OwnerNamed("guest", ZAMOwnerMode::Exclusive);
        if (!each.MayLook) {
            EXPECT_THROW(control.Request(guest, false), CGenericException);
            continue;
        }
        const auto guests = control.Request(guest, false);
        EXPECT_EQ(control.Owner(), owner);
        if (each.MayChange) {
            EXPECT_NO_THROW(control.RequireChangeBy(*guests));
        } else {
            EXPECT_THROW(control.RequireChangeBy(*guests), CGenericException);
        }
    }
}

TEST(ControlTest, WhoAsksAgainKeepsControlUnderTheNewName) {
    CControl control;
    auto owner = OwnerNamed("first", ZAMOwnerMode::Exclusive);
    const auto grant = control.Request(owner, false);
    owner.Name = "second";
    owner.Mode = ZAMOwnerMode::Shared;
    EXPECT_EQ(control.Request(owner, false), grant);
    EXPECT_EQ(control.Owner(), owner);
}

// Commands are such guests: each comes once, and an owner may stay for years.
TEST(ControlTest, NothingStaysOfAGuestWhoHasGone) {
    CControl control;
    const auto owner = control.Request(OwnerNamed("owner", ZAMOwnerMode::Shared), false);
    const std::weak_ptr<SGrant> guests = control.Request(OwnerNamed("guest", ZAMOwnerMode::Shared), false);
    EXPECT_TRUE(guests.expired());
    EXPECT_NO_THROW(control.RequireChangeBy(*owner));
}

TEST(ControlTest, ForceEndsEveryOtherLeaveForGood) {
    CControl control;
    const auto old = OwnerNamed("old", ZAMOwnerMode::Shared);
    const auto olds = control.Request(old, false);
    const auto guests = control.Request(OwnerNamed("guest", ZAMOwnerMode::Shared), false);
    const auto next = OwnerNamed("new", ZAMOwnerMode::Shared);
    const auto news = control.Request(next, true);
    EXPECT_THROW(control.RequireChangeBy(*olds), CGenericException);
    EXPECT_THROW(control.RequireChangeBy(*guests), CGenericException);
    EXPECT_NO_THROW(control.RequireChangeBy(*news));
    EXPECT_NO_THROW(control.RequireChangeBy(*control.Request(old, false)));
    EXPECT_THROW(control.RequireChangeBy(*olds), CGenericException);
}

TEST(ControlTest, AfterAReleaseNobodyChangesAnythingUntilSomebodyAsks) {
    CControl control;
    const auto owner = OwnerNamed("owner", ZAMOwnerMode::Shared);
    const auto grant = control.Request(owner, false);
    EXPECT_THROW(control.Release(Guid::Random()), CGenericException);
    control.Release(owner.Id);
    EXPECT_EQ(control.Owner(), SZamControlOwnerInfo{});
    EXPECT_THROW(control.RequireChangeBy(*grant), CGenericException);
    EXPECT_THROW(control.Release(owner.Id), CGenericException);
    EXPECT_THROW(control.SetMode(owner.Id, ZAMOwnerMode::Shared), CGenericException);
}

TEST(ControlTest, AnOwnerFromBeforeARestartStillHoldsControl) {
    const auto owner = OwnerNamed("owner", ZAMOwnerMode::Exclusive);
    CControl control(owner);
    EXPECT_THROW(control.Request(OwnerNamed("other", ZAMOwnerMode::Shared), false), CGenericException);
    EXPECT_NO_THROW(control.RequireChangeBy(*control.Request(owner, false)));
}

// Progress

TEST(ProgressTest, ThePercentageNeverFallsAndStaysBelowAHundred) {
    std::mt19937 random(11);
    unsigned short before = 0;
    std::uint64_t total = 0;
    std::uint64_t done = 0;
    for (int step = 0; step < 10000; ++step) {
        total += random() % 1000;
        done = std::min<std::uint64_t>(total, done + random() % 1200);
        const auto percent = PercentOf({done, total}, before);
        EXPECT_GE(percent, before);
        EXPECT_LE(percent, 99);
        before = percent;
    }
    EXPECT_EQ(PercentOf({500, 1000}, 0), 50);
    EXPECT_EQ(PercentOf({1000, 1000}, 0), 99);
    EXPECT_EQ(PercentOf({5000, 1000}, 0), 99);
    EXPECT_EQ(PercentOf({0, 0}, 7), 7);
    EXPECT_EQ(PercentOf({~0ULL, ~0ULL}, 7), 99);
}

TEST(ProgressTest, RatesAreBytesASecond) {
    EXPECT_EQ(RateOf(3000, 1500ms), 2000);
    EXPECT_EQ(RateOf(3000, 0ms), 0);
    EXPECT_EQ(RateOf(3000, -5ms), 0);
    EXPECT_GT(RateOf(~0ULL, 1ms), 0);
}

TEST(ProgressTest, WhatIsReadGrowsWithWhatIsDoneAndNeverBeyondWhatIsToBeRead) {
    EXPECT_EQ(ReadOf(100, 500, 1000), 50U);
    EXPECT_EQ(ReadOf(100, 1000, 1000), 100U);
    EXPECT_EQ(ReadOf(100, 5000, 1000), 100U);
    EXPECT_EQ(ReadOf(100, 500, 0), 0U);
    EXPECT_EQ(ReadOf(5000, 500, 1000), 500U);
    SBackupJobSessionInfo info;
    TellProgress(info, {500, 1000, 50}, 1s);
    EXPECT_EQ(info.ReadSizeBytes, 50U);
    TellProgress(info, {500, 2000, 25}, 2s);  // the engine has found more to do
    EXPECT_EQ(info.ReadSizeBytes, 50U);
    EXPECT_EQ(info.PercentCompleted, 50);
    EXPECT_EQ(info.ProcessingRateByteInSec, 250);
}

TEST(ProgressTest, LoadsArePercentagesOfTheTimeAndNeverMore) {
    SBackupJobSessionInfo info;
    TellLoads(info, {250ms, 999ms, 7s}, 1s);
    EXPECT_EQ(info.SourceLoad, 25);
    EXPECT_EQ(info.ProxyLoad, 99);
    EXPECT_EQ(info.TargetLoad, 100);
    EXPECT_EQ(info.NetworkLoad, 0);
    TellLoads(info, {250ms, -1ms, 7s}, 0s);
    EXPECT_EQ(info.SourceLoad + info.ProxyLoad + info.TargetLoad, 0);
}

// Sessions

TEST(SessionRuleTest, AFailedRunIsRepeatedSoOftenAndNoMore) {
    SJob job;
    job.Id = Guid::Random();
    job.Config = GoodJob();
    job.Config.RetriesInfo = SRetriesInfo{2, 5000};
    auto first = NewSession(job, {}, {}, Now);
    Finish(first, JobSessionTaskStatus::Failed, Now + 1s, 5s);
    EXPECT_TRUE(first.Info.RetriesInfo->IsJobAwaitingForRetry);
    EXPECT_EQ(first.RetryAt, Now + 6s);
    auto second = NewSession(job, first.Options, first.Origin, Now + 6s, &first);
    EXPECT_EQ(second.Info.OriginalSessionId, first.Info.Uid);
    EXPECT_EQ(second.Info.RetriesInfo->CurrentAttemptNumber, 1U);
    Finish(second, JobSessionTaskStatus::Failed, Now + 7s, 5s);
    auto third = NewSession(job, second.Options, second.Origin, Now + 12s, &second);
    EXPECT_EQ(third.Info.OriginalSessionId, first.Info.Uid);
    Finish(third, JobSessionTaskStatus::Failed, Now + 13s, 5s);
    EXPECT_FALSE(third.AwaitsRetry());
    EXPECT_FALSE(third.Info.RetriesInfo->IsJobAwaitingForRetry);
}

TEST(SessionRuleTest, WhatWasCanceledOrWentWellIsNotRepeated) {
    SJob job;
    job.Config.RetriesInfo = SRetriesInfo{2, 5000};
    for (const auto status :
         {JobSessionTaskStatus::Canceled, JobSessionTaskStatus::Success, JobSessionTaskStatus::Warning}) {
        auto session = NewSession(job, {}, {}, Now);
        Finish(session, status, Now, 5s);
        EXPECT_FALSE(session.AwaitsRetry());
        EXPECT_EQ(session.Info.Result, ResultOf(status));
        EXPECT_EQ(session.Info.PercentCompleted, status == JobSessionTaskStatus::Canceled ? 0 : 100);
    }
}

TEST(SessionRuleTest, StartOptionsForbidRetries) {
    SJob job;
    job.Config.RetriesInfo = SRetriesInfo{2, 5000};
    SJobStartOptions options;
    options.Retries = EJobStartRetriesMode::Disabled;
    auto session = NewSession(job, options, {}, Now);
    EXPECT_FALSE(session.Info.RetriesInfo);
    Finish(session, JobSessionTaskStatus::Failed, Now, 5s);
    EXPECT_FALSE(session.AwaitsRetry());
}

TEST(SessionRuleTest, ARetryIsNotAwaitedForeverWhenTheClockIsSetBack) {
    EXPECT_FALSE(IsRetryDue(Now + 5s, 10s, Now));
    EXPECT_TRUE(IsRetryDue(Now, 10s, Now));
    EXPECT_TRUE(IsRetryDue(Now + 1h, 10s, Now));
}

TEST(SessionRuleTest, AnEndIsNeverBeforeItsBeginning) {
    auto session = NewSession({}, {}, {}, Now);
    Finish(session, JobSessionTaskStatus::Success, Now - 1h, 0s);
    EXPECT_EQ(FromRecord(session.Info.EndTimeUtc), Now);
}

TEST(SessionRuleTest, ANewChainBeginsForEachOfItsReasons) {
    const Guid repository = Guid::Random();
    SChain chain;
    chain.Repository = repository;
    chain.State = EChainState::Open;
    EXPECT_EQ(NeedsNewChain(nullptr, repository, false, false), ENewChain::First);
    EXPECT_EQ(NeedsNewChain(&chain, repository, false, false), ENewChain::No);
    EXPECT_EQ(NeedsNewChain(&chain, repository, false, true), ENewChain::ActiveFull);
    EXPECT_EQ(NeedsNewChain(&chain, repository, true, false), ENewChain::OtherProtection);
    EXPECT_EQ(NeedsNewChain(&chain, Guid::Random(), false, false), ENewChain::OtherPlace);
    chain.State = EChainState::Damaged;
    EXPECT_EQ(NeedsNewChain(&chain, repository, false, false), ENewChain::Damaged);
    chain.State = EChainState::Lost;
    EXPECT_EQ(NeedsNewChain(&chain, repository, false, false), ENewChain::Lost);
}

TEST(ClockRecordTest, MomentsBeforeTheEpochKeepTheirMilliseconds) {
    const Moment moment = Moment(-1ms);
    EXPECT_EQ(ToRecord(moment).seconds, -1);
    EXPECT_EQ(ToRecord(moment).milliseconds, 999);
    EXPECT_EQ(FromRecord(ToRecord(moment)), moment);
}

// Findings

TEST(ValidityTest, AGoodJobHasNoFinding) {
    EXPECT_EQ(Weights(GoodJob(), GoodHost()), Found{});
}

TEST(ValidityTest, OneMissingFolderAmongSeveralIsAWarningAndAllOfThemAnError) {
    auto config = GoodJob();
    auto facts = GoodHost();
    config.Source.IncludeDirs = {"/a", "/b"};
    facts.MissingDirs = {"/a"};
    EXPECT_EQ(Weights(config, facts), Found{Warning});
    facts.MissingDirs = {"/a", "/b"};
    EXPECT_EQ(Weights(config, facts), (Found{Error, Error}));
    config.Source.IncludeDirs = {};
    EXPECT_EQ(Weights(config, GoodHost()), Found{Error});
    config.Source.IncludeDirs = {"etc"};
    EXPECT_EQ(Weights(config, GoodHost()), Found{Error});
}

TEST(ValidityTest, WhatCanNotBeReadAsFilesIsAnError) {
    auto config = GoodJob();
    config.Source.BackupMode = JobBackupMode::VolumeLevel;
    config.Source.IncludeDirs = {};
    EXPECT_EQ(Weights(config, GoodHost()), (Found{Error, Note}));
    config.Source.Objects = {{"/dev/sda", EVolumeBackupObjectType::Disk}};
    auto facts = GoodHost();
    EXPECT_EQ(Weights(config, facts), Found{Note});
    facts.UnreadableObjects = {{"/dev/sda", "nothing of it is mounted"}};
    EXPECT_EQ(Weights(config, facts), (Found{Note, Error}));

    config = GoodJob();
    config.AapInfo.PostgreSQLInfo = SPostgreSQLInfo{};
    EXPECT_EQ(Weights(config, GoodHost()), Found{});
    config.AapInfo.PostgreSQLInfo->ProcessingType = EAapType::IgnoreFailures;
    EXPECT_EQ(Weights(config, GoodHost()), Found{Error});
}

TEST(ValidityTest, TheEntireMachineIsSaidToBeItsMountedFiles) {
    auto config = GoodJob();
    config.Source = {};
    EXPECT_EQ(Weights(config, GoodHost()), Found{Error});
    config.Source.BackupMode = JobBackupMode::EntireMachine;
    EXPECT_EQ(Weights(config, GoodHost()), Found{Note});
}

TEST(ValidityTest, ARepositoryHasToBeAFolderThatCanBeWrittenTo) {
    auto facts = GoodHost();
    facts.RepositoryFault = "it is not there";
    EXPECT_EQ(Weights(GoodJob(), facts), Found{Error});
    facts = GoodHost();
    facts.Repository->Type = BackupTargetType::Cloud;
    EXPECT_EQ(Weights(GoodJob(), facts), Found{Error});
    facts.Repository = {};
    EXPECT_EQ(Weights(GoodJob(), facts), Found{Error});
}

TEST(ValidityTest, WhatIsDoneLessThanWasSaidIsAWarning) {
    auto config = GoodJob();
    config.StorageInfo.BlockSize = EKbBlockSize::Kb512;
    EXPECT_EQ(Weights(config, GoodHost()), Found{Warning});
    config = GoodJob();
    config.ScriptInfo = SBackupJobScriptInfo{};
    EXPECT_EQ(Weights(config, GoodHost()), Found{});
    config.ScriptInfo->PreFreezeScript = "/x";
    EXPECT_EQ(Weights(config, GoodHost()), Found{Warning});
    config = GoodJob();
    config.ScheduleInfo.IsEnabled = true;
    EXPECT_EQ(Weights(config, GoodHost()), Found{Warning});
    config = GoodJob();
    config.Source.ExcludeMasks = {"*.tmp", "a/b"};
    EXPECT_EQ(Weights(config, GoodHost()), Found{Warning});
}

TEST(ValidityTest, EncryptionNeedsAPasswordThatCanBeUsed) {
    auto config = GoodJob();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{};
    auto facts = GoodHost();
    EXPECT_EQ(Weights(config, facts), Found{Error});
    facts.HasPassword = true;
    EXPECT_EQ(Weights(config, facts), Found{});
    facts.PasswordFault = "it is empty";
    EXPECT_EQ(Weights(config, facts), Found{Error});
}

TEST(ValidityTest, ScriptsThatCanNotBeRunAreFound) {
    auto config = GoodJob();
    config.ScriptInfo = SBackupJobScriptInfo{};
    auto facts = GoodHost();
    facts.PreJobScriptFault = "it is not there";
    facts.PostJobScriptFault = "it is not there";
    EXPECT_EQ(Weights(config, facts), (Found{Error, Warning}));
    config.ScriptInfo->PreJobScript = "/opt/prepare --all";
    EXPECT_EQ(ErrorsOf(FindingsOf(config, facts)),
              "The pre-job script \"/opt/prepare --all\" can't be run: it is not there; it is the path of a "
              "program, "
              "without arguments");
}

TEST(ValidityTest, TheErrorsAreWhatAStartIsRefusedWith) {
    auto facts = GoodHost();
    facts.EngineFault = "it is too old";
    facts.SourceWarnings = {"odd names"};
    facts.SourceNotes = {"sparse files"};
    const auto findings = FindingsOf(GoodJob(), facts);
    EXPECT_EQ(findings.size(), 3U);
    EXPECT_EQ(ErrorsOf(findings), "The engine can't be used: it is too old");
    EXPECT_EQ(ErrorsOf({}), "");
}

// Secrets

TEST(SecretsTest, SecretsAreTakenOutOfARecordAndPutBack) {
    auto config = GoodJob();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("geheim"), "hint"};
    config.AapInfo.MySQLInfo = SMySQLInfo{};
    config.AapInfo.MySQLInfo->Credentials = SCredentials{"root", "", std::string("")};
    const auto whole = config;
    const auto secrets = TakeSecrets(config);
    EXPECT_EQ(secrets, (Secrets{{"StorageInfo.EncryptionSettings.Password", "geheim"},
                                {"AapInfo.MySQLInfo.Credentials.Password", ""}}));
    EXPECT_FALSE(config.StorageInfo.EncryptionSettings->Password);
    EXPECT_EQ(config.StorageInfo.EncryptionSettings->PasswordHint, "hint");
    GiveSecrets(config, secrets);
    EXPECT_EQ(config, whole);
}

TEST(SecretsTest, WhoDoesNotSayAPasswordKeepsIt) {
    auto config = GoodJob();
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{std::string("geheim"), ""};
    const auto before = TakeSecrets(config);
    auto kept = config;
    KeepSecrets(kept, before);
    EXPECT_EQ(*kept.StorageInfo.EncryptionSettings->Password, "geheim");
    auto changed = config;
    changed.StorageInfo.EncryptionSettings->Password = std::string("neu");
    KeepSecrets(changed, before);
    EXPECT_EQ(*changed.StorageInfo.EncryptionSettings->Password, "neu");
    auto removed = config;
    removed.StorageInfo.EncryptionSettings.Reset();
    KeepSecrets(removed, before);
    EXPECT_TRUE(TakeSecrets(removed).empty());
}

TEST(SecretsTest, TheSecretOfARecordWithinARecordIsFound) {
    SCloudServiceProviderInfo provider;
    provider.Password = SCloudServiceProviderPassword{"token", ECloudServiceProviderPasswordType::Token};
    EXPECT_EQ(TakeSecrets(provider), (Secrets{{"Password.Value", "token"}}));
    EXPECT_EQ(provider.Password->Value, "");
}
