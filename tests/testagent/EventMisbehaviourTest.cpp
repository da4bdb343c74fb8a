// SPDX-License-Identifier: Apache-2.0
// What a subscriber meets when the agent's event socket misbehaves.
#include "tests/testagent/AgentFixture.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::HasSubstr;

class AMisbehavingEventSocket : public CAgentTest {
protected:
    /// Connects to an agent with these rules for events, and subscribes.
    void Begin(const std::string& rules) {
        Script(R"({"clock": {"mode": "held"}, "repositories": [{"name": "main", "location": "/srv"}],
                   "jobs": [{"name": "nightly", "repository": "main"}], "events": [)" +
               rules + "]}");
        m_control = Connect();
        m_product = m_control->RequestControl(Owner(), false);
        m_job = m_product->GetBackupJobs().at(0);
        Subscribe();
    }

    void Subscribe() { m_stream = std::make_unique<CEventsStream>(m_control->GetEventConfig(), nullptr); }

    /// Has an event published.
    void Change() { m_job->SetUserData("x"); }

    SBaseEvent Next() {
        const auto event = m_stream->ReadUntil(std::chrono::steady_clock::now() + 10s);
        if (!event) throw std::runtime_error("no event has come");
        return *event;
    }

    bool IsSilent() { return !m_stream->ReadUntil(std::chrono::steady_clock::now() + 50ms); }

    std::shared_ptr<IZamControl> m_control;
    std::shared_ptr<IZamProduct> m_product;
    std::shared_ptr<IBackupJob> m_job;
    std::unique_ptr<CEventsStream> m_stream;
};

TEST_F(AMisbehavingEventSocket, DiesInTheMiddleOfAnEventAndServesWhoComesBack) {
    Begin(R"({"skip": 1, "times": 1, "action": "half-frame"})");
    Change();
    const auto first = Next();
    EXPECT_EQ(first.Type, EEventType::BackupJobModified);
    Change();
    EXPECT_FALSE(Thrown<zamclientlib::EventsLostError>([&] { Next(); }).IsOrderly());
    Subscribe();
    Change();
    EXPECT_EQ(Next().Id, first.Id + 2) << "one was lost";
}

TEST_F(AMisbehavingEventSocket, DisconnectsBetweenTwoEventsAndServesWhoComesBack) {
    Begin(R"({"skip": 1, "times": 1, "action": "disconnect"})");
    Change();
    const auto first = Next();
    Change();
    EXPECT_TRUE(Thrown<zamclientlib::EventsLostError>([&] { Next(); }).IsOrderly());
    EXPECT_EQ(m_control->GetProductInfo().Name, "Test agent");
    Subscribe();
    Change();
    EXPECT_EQ(Next().Id, first.Id + 2);
}

TEST_F(AMisbehavingEventSocket, SendsGarbageThatBreaksTheStream) {
    Begin(R"({"times": 1, "action": "garbage", "message": "Usage: none\n"})");
    Change();
    Thrown<apigen::BrokenMessageError>([&] { Next(); });
    EXPECT_THROW(Next(), apigen::ApiInternalError) << "the stream can't be trusted any more";
    Subscribe();
    Change();
    EXPECT_EQ(Next().Type, EEventType::BackupJobModified);
}

TEST_F(AMisbehavingEventSocket, SendsMessagesThatAreNoEventsAndThenGoesOn) {
    Begin(R"({"times": 2, "action": "malformed"})");
    for (int i = 0; i < 3; ++i)
        Change();
    EXPECT_THROW(Next(), apigen::ApiInternalError);
    EXPECT_THROW(Next(), apigen::ApiInternalError);
    EXPECT_EQ(Next().Type, EEventType::BackupJobModified);
}

TEST_F(AMisbehavingEventSocket, StallsInTheMiddleOfAnEventAndLaterBringsAllThatItOwes) {
    Begin(R"({"skip": 1, "times": 3, "action": "stall"})");
    Change();
    const auto first = Next();
    for (int i = 0; i < 3; ++i) {
        Change();
        EXPECT_TRUE(IsSilent());
    }
    Change();
    for (unsigned long i = 1; i <= 4; ++i)
        EXPECT_EQ(Next().Id, first.Id + i);
    EXPECT_TRUE(IsSilent());
}

TEST_F(AMisbehavingEventSocket, StallsForEverAndTheReaderCanBeStopped) {
    Begin(R"({"action": "stall"})");
    Change();
    EXPECT_TRUE(IsSilent());
    m_stream->Stop();
    EXPECT_THROW(m_stream->Read(), apigen::InterruptedError);
}

TEST_F(AMisbehavingEventSocket, DiesWithItsAgentInTheMiddleOfAnEvent) {
    Begin(R"({"event": "BackupJobStarted", "action": "kill"})");
    const std::string socket = m_control->GetEventConfig().v1->socketPath;
    Change();
    EXPECT_EQ(Next().Type, EEventType::BackupJobModified);
    EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { m_job->Start({}); }).what(), HasSubstr("signal 9"));
    EXPECT_FALSE(Thrown<apigen::PeerGoneError>([&] { Next(); }).IsOrderly());
    EXPECT_NE(::access(socket.substr(0, socket.rfind('/')).c_str(), F_OK), 0);
}

TEST_F(AMisbehavingEventSocket, MisbehavesTowardsEverySubscriber) {
    Begin(R"({"skip": 1, "action": "disconnect"})");
    CEventsStream another(m_control->GetEventConfig(), nullptr);
    Change();
    EXPECT_EQ(Next().Id, another.Read().Id);
    Change();
    EXPECT_THROW(Next(), apigen::PeerGoneError);
    EXPECT_THROW(another.Read(), apigen::PeerGoneError);
}

TEST_F(AMisbehavingEventSocket, CountsNoEventThatNobodyIsSubscribedTo) {
    Begin(R"({"skip": 1, "times": 1, "action": "disconnect"})");
    m_stream.reset();
    for (int i = 0; i < 3; ++i)
        Change();
    Subscribe();
    Change();
    EXPECT_EQ(Next().Type, EEventType::BackupJobModified);
    Change();
    EXPECT_THROW(Next(), apigen::PeerGoneError);
}

TEST_F(AMisbehavingEventSocket, CarriesOutTheFirstRuleThatIsDue) {
    Begin(R"({"event": "BackupJobDeleted", "action": "kill"},
             {"event": "BackupJobModified", "skip": 1, "times": 1, "action": "malformed"},
             {"skip": 1, "times": 2, "action": "disconnect"})");
    Change();
    EXPECT_EQ(Next().Type, EEventType::BackupJobModified);
    Change();
    EXPECT_THROW(Next(), apigen::ApiInternalError);
    Change();
    Thrown<zamclientlib::EventsLostError>([&] { Next(); });
}

TEST_F(AMisbehavingEventSocket, DisconnectsAReaderThatDoesNotRead) {
    Begin(R"({"event": "BackupJobDeleted", "action": "kill"})");
    const std::string manyBytes(100, 'x');
    unsigned long changes = 0;
    EXPECT_THROW(
        while (changes < 20000) {
            for (int i = 0; i < 1000; ++i, ++changes)
                m_job->SetUserData(manyBytes);
            for (int i = 0; i < 10; ++i)
                Next();
        },
        apigen::PeerGoneError);
}

}  // namespace
}  // namespace tests
