// SPDX-License-Identifier: Apache-2.0
// A visit of an event by its kind.
#include <zamclientlib/EventVisit.h>

#include <gtest/gtest.h>

#include <string>

namespace zamclientlib {
namespace {

SBaseEvent Started() {
    SBaseEvent event{.Type = EEventType::BackupJobStarted, .Id = 7};
    event.eventBackupJobStarted.emplace();
    event.eventBackupJobStarted->Username = "ann";
    return event;
}

TEST(EventVisit, CallsTheFunctionOfTheKind) {
    std::string seen;
    const Overloaded visitor{
        [&](const SEventBackupJobStarted& started) { seen += "started by " + started.Username; },
        [&](const SEventBackupJobFinished&) { seen += "finished"; },
        [&](const SBaseEvent&) { seen += "other"; }};
    EXPECT_TRUE(Visit(Started(), visitor));
    EXPECT_EQ(seen, "started by ann");
    SBaseEvent finished;
    finished.eventBackupJobFinished.emplace();
    EXPECT_TRUE(Visit(finished, visitor));
    EXPECT_EQ(seen, "started by annfinished");
}

TEST(EventVisit, GivesTheEventItselfWhereNoFunctionTakesItsData) {
    std::string seen;
    const Overloaded visitor{[&](const SEventBackupJobFinished&) { seen += "finished"; },
                             [&](const SBaseEvent& event) { seen += "other " + std::to_string(event.Id); }};
    EXPECT_TRUE(Visit(Started(), visitor));
    EXPECT_EQ(seen, "other 7");
    SBaseEvent newer;
    newer.Type = static_cast<EEventType>(99);
    newer.Id = 8;
    EXPECT_TRUE(Visit(newer, visitor));
    EXPECT_EQ(seen, "other 7other 8");
}

TEST(EventVisit, SaysWhenThereWasNoFunctionToCall) {
    bool wasCalled = false;
    const auto visitor = [&](const SEventBackupJobFinished&) { wasCalled = true; };
    EXPECT_FALSE(Visit(Started(), visitor));
    EXPECT_FALSE(Visit(SBaseEvent{}, visitor));
    EXPECT_FALSE(wasCalled);
}

TEST(EventVisit, GoesByTheDataThatIsThereAndNotByTheType) {
    SBaseEvent event = Started();
    event.Type = EEventType::BackupJobDeleted;
    event.eventBackupJobRetried.emplace();
    int calls = 0;
    EXPECT_TRUE(Visit(event, Overloaded{[&](const SEventBackupJobStarted&) { ++calls; },
                                        [&](const SEventBackupJobRetried&) { ++calls; },
                                        [&](const SEventBackupJobDeleted&) { calls += 100; }}));
    EXPECT_EQ(calls, 2);
}

TEST(EventVisit, ReachesEveryKind) {
    SBaseEvent event;
    event.eventBackupJobCreated.emplace();
    event.eventBackupJobDeleted.emplace();
    event.eventBackupJobModified.emplace();
    event.eventBackupSourceUpdated.emplace();
    event.eventBackupModeChanged.emplace();
    event.eventBackupJobFinished.emplace();
    event.eventBackupJobStarted.emplace();
    event.eventBackupJobRetried.emplace();
    int calls = 0;
    EXPECT_TRUE(Visit(event, Overloaded{[&](const auto& payload) { calls += payload.JobId.IsNil() ? 1 : 0; },
                                        [&](const SBaseEvent&) { calls += 100; }}));
    EXPECT_EQ(calls, 8);
}

}  // namespace
}  // namespace zamclientlib
