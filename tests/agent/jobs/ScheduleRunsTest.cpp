// SPDX-License-Identifier: Apache-2.0
// What begins by itself, on a clock that the test moves.
#include "tests/agent/jobs/Fixture.h"

namespace tarvo::tests {

// The clock stands at 12:00 at first.

TEST_F(AgentTest, ASchedulesTimeStartsTheJobOnceADay) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    MoveClock(59min);
    EXPECT_TRUE(Agent->SessionsOf(job).empty());
    MoveClock(1min);
    const auto first = AwaitSession(job, 1);
    EXPECT_TRUE(Says(first, "Started by the schedule")) << Lines(first);
    EXPECT_FALSE(Says(first, "late by")) << Lines(first);
    MoveClock(24h);
    AwaitSession(job, 2);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

TEST_F(AgentTest, AScheduledRunBeginsLaterOnlyWhereTheSettingsAskForIt) {
    Settings.Jitter = 600s;
    Start();
    std::vector<Guid> jobs;
    for (int i = 0; i < 8; ++i) {
        auto config = Config(std::to_string(i));
        config.ScheduleInfo = EveryDayAt(13);
        jobs.push_back(Agent->CreateJob(Caller, config));
    }
    std::size_t early = 0;
    MoveClock(1h);
    MoveClock(1s);
    MoveClock(299s);
    for (const auto& job : jobs) {
        if (!Agent->SessionsOf(job).empty()) ++early;
    }
    EXPECT_LT(early, jobs.size());
    MoveClock(301s);
    for (const auto& job : jobs) {
        AwaitSession(job, 1);
        EXPECT_EQ(Agent->SessionsOf(job).size(), 1U);
    }
}

TEST_F(AgentTest, RunsMissedWhileTheHostSleptAreCaughtUpOnce) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    Agent.reset();
    Clock.Advance(std::chrono::days(5) + 3h);
    Start();
    const auto info = AwaitSession(job, 1);
    EXPECT_TRUE(Says(info, "late by 2 h")) << Lines(info);
    MoveClock(1h);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

TEST_F(AgentTest, APromiseThatPassedWhileTheJobWasDisabledIsDropped) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    Agent->SetEnabled(Caller, job, false);
    MoveClock(2h);
    Agent->SetEnabled(Caller, job, true);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 1U);
    MoveClock(23h);
    EXPECT_TRUE(Says(AwaitSession(job, 2), "Started by the schedule"));
}

TEST_F(AgentTest, APromiseThatPassedWhileSchedulesWereForbiddenIsDropped) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    Agent->SetSchedulerAllowed(Caller, false);
    MoveClock(2h);
    Restart();
    EXPECT_FALSE(Agent->IsSchedulerAllowed());
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    Agent->SetSchedulerAllowed(Caller, true);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
    MoveClock(23h);
    EXPECT_TRUE(Says(AwaitSession(job, 3), "Started by the schedule"));
}

TEST_F(AgentTest, ARunIsNotStartedBesideItselfAndTheSkippedOneIsRecorded) {
    Engine->Hold(true);
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    const Guid session = Agent->StartJob(Caller, job, {});
    ASSERT_TRUE(Engine->AwaitRunning(1));
    MoveClock(2h);
    EXPECT_TRUE(Await([&] { return Says(Agent->SessionInfo(session), "is skipped"); }));
    Engine->Hold(false);
    EXPECT_EQ(AwaitEnd(session).Result, JobResult::Success);
    MoveClock(1h);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

TEST_F(AgentTest, AScheduledRunThatTheEndInterruptedIsCaughtUpOnce) {
    Engine->Hold(true);
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    config.RetriesInfo = SRetriesInfo{3, 1000};
    const Guid job = Agent->CreateJob(Caller, config);
    MoveClock(1h);
    ASSERT_TRUE(Engine->AwaitRunning(1));
    Agent.reset();
    Engine->Hold(false);
    Clock.Advance(30min);
    Start();
    const auto info = AwaitSession(job, 2);
    EXPECT_EQ(info.Result, JobResult::Success) << Lines(info);
    EXPECT_TRUE(Says(info, "late by 30 min")) << Lines(info);
    EXPECT_TRUE(Says(Agent->SessionInfo(Agent->SessionsOf(job)[0]), "Interrupted"));
    Restart();
    MoveClock(1h);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 3U);
}

TEST_F(AgentTest, ARepositoryThatIsAwayFailsTheRunAndNotTheSchedule) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    std::filesystem::remove_all(Home + "/location");
    MoveClock(1h);
    EXPECT_EQ(AwaitSession(job, 1).Result, JobResult::Failed);
    std::filesystem::create_directory(Home + "/location");
    MoveClock(24h);
    EXPECT_EQ(AwaitSession(job, 2).Result, JobResult::Success);
}

TEST_F(AgentTest, AClockThatIsSetBackStartsNothingTwice) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    MoveClock(1h);
    AwaitSession(job, 1);
    MoveClock(-2h);
    MoveClock(2h);
    EXPECT_EQ(RunJob(job).Result, JobResult::Success);
    EXPECT_EQ(Agent->SessionsOf(job).size(), 2U);
}

TEST_F(AgentTest, AnActiveFullScheduleBeginsANewChainOnItsDay) {
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    config.ScheduleInfo.ActiveFullSchedule = {true, {ScheduleType::Daily, 1U << 2, 0, {}, 0}};  // Wednesdays
    const Guid job = Agent->CreateJob(Caller, config);                                          // on a Monday
    MoveClock(1h);
    EXPECT_EQ(AwaitSession(job, 1).SessionAlgorithm, JobSessionAlgorithm::Full);
    MoveClock(24h);
    EXPECT_EQ(AwaitSession(job, 2).SessionAlgorithm, JobSessionAlgorithm::Increment);
    MoveClock(24h);
    EXPECT_EQ(AwaitSession(job, 3).SessionAlgorithm, JobSessionAlgorithm::Full);
    MoveClock(24h);
    EXPECT_EQ(AwaitSession(job, 4).SessionAlgorithm, JobSessionAlgorithm::Increment);
}

TEST_F(AgentTest, APartOfTheChainIsReadAfterAScheduledRunAndDamageEndsTheChain) {
    Settings.VerifyParts = 2;
    Start();
    auto config = Config();
    config.ScheduleInfo = EveryDayAt(13);
    const Guid job = Agent->CreateJob(Caller, config);
    MoveClock(1h);
    AwaitSession(job, 1);
    MoveClock(24h);
    AwaitSession(job, 2);
    EXPECT_EQ(Engine->CountOf("verify 1"), 1U);
    EXPECT_EQ(Engine->CountOf("verify 2"), 1U);
    Engine->m_verified = {true, {"pack 9"}};
    MoveClock(24h);
    const auto info = AwaitSession(job, 3);
    EXPECT_EQ(info.Result, JobResult::Warning);
    EXPECT_TRUE(Says(info, "pack 9")) << Lines(info);
    Engine->m_verified = {};
    EXPECT_EQ(RunJob(job).SessionAlgorithm, JobSessionAlgorithm::Full);
}

}  // namespace tarvo::tests
