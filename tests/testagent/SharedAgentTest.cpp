// SPDX-License-Identifier: Apache-2.0
// One agent for several clients, which stays while they come and go.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <deque>
#include <filesystem>

#include "tests/testagent/RawAgent.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using testing::AllOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* SessionIdMethod = "GetSessionId_16415403617493696513";

class ASharedAgent : public CAgentTest {
protected:
    ASharedAgent() {
        fs::create_directory(m_folder.Path("shared"));
        fs::create_directory(m_folder.Path("temporary"));
        Share(m_folder.Path("shared"));
        ::setenv("TMPDIR", m_folder.Path("temporary").c_str(), 1);
    }
    ~ASharedAgent() override {
        EXPECT_EQ(ShutDown(), 0);
        EXPECT_TRUE(HasLeftNothing());
        ::unsetenv("ZAM_TESTAGENT_SHARED");
        if (m_before.empty()) {
            ::unsetenv("TMPDIR");
        } else {
            ::setenv("TMPDIR", m_before.c_str(), 1);
        }
    }

    static void Share(const std::string& folder) { ::setenv("ZAM_TESTAGENT_SHARED", folder.c_str(), 1); }

    static int ShutDown() { return RunInShell(Agent() + " extended shutdown").Status; }

    bool HasLeftNothing() const {
        const fs::directory_iterator temporary(m_folder.Path("temporary"));
        return fs::is_empty(m_folder.Path("shared")) &&
               std::none_of(begin(temporary), end(temporary),
                            [](const auto& entry) { return entry.is_directory(); });
    }

    /// The agent's process; 0 when there is none.
    pid_t Process() const {
        const std::string path = m_folder.Path("shared/control.sock");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ucred peer{};
        socklen_t size = sizeof peer;
        const bool isThere =
            ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
        ::close(socket);
        return isThere ? peer.pid : 0;
    }

    std::shared_ptr<IZamProduct> Control(const std::shared_ptr<IZamControl>& control) {
        return control->RequestControl(Owner(), false);
    }

    zamtest::CTemporaryFolder m_folder;

private:
    const std::string m_before = std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "";
};

TEST_F(ASharedAgent, RefusesAnotherClientsOwnerUntilThatOneUsesForce) {
    const auto first = Connect();
    const auto second = Connect();
    EXPECT_EQ(first->GetSessionId(), second->GetSessionId());
    const auto product = first->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    EXPECT_EQ(second->GetCurrentOwner().Name, "tester");
    EXPECT_THAT(Thrown<CGenericException>([&] { second->RequestControl(OtherOwner(), false); }).what(),
                HasSubstr("controlled by tester"));
    const auto taken = second->RequestControl(OtherOwner(), true);
    EXPECT_EQ(taken->GetBackupJobs().at(0)->GetInfo().Name, "nightly");
    EXPECT_EQ(first->GetCurrentOwner().Name, "another");
    EXPECT_THROW(job->SetUserData("x"), CGenericException);
    EXPECT_THROW(first->RequestControl(Owner(), false), CGenericException);
    EXPECT_EQ(job->GetInfo().Name, "nightly") << "it may still look";
    second->ReleaseControl(OtherOwner());
    EXPECT_NO_THROW(first->RequestControl(Owner(), false)->GetBackupJobs().at(0)->SetUserData("x"));
}

TEST_F(ASharedAgent, IsLeftToTheOthersWhenAClientDies) {
    const auto staying = Connect();
    const auto product = Control(staying);
    MakeJob(*product, "nightly");
    const std::string call = CRawAgent::Call("GetProductInfo_4746724914348084655");
    for (const std::size_t sent : {std::size_t{0}, std::size_t{2}, call.size() / 2, call.size()}) {
        CRawAgent dying;
        EXPECT_THAT(dying.Read(), HasSubstr("__handle"));
        dying.Send(call.substr(0, sent));
        dying.Leave();
        const int status = dying.Ended();
        const bool isBetweenCalls = sent == 0 || sent == call.size();
        EXPECT_TRUE(WIFEXITED(status)) << sent;
        if (isBetweenCalls) {
            EXPECT_EQ(WEXITSTATUS(status), 0) << sent;
        }
        EXPECT_EQ(product->GetBackupJobs().size(), 1U);
    }
    CRawAgent killed;
    EXPECT_THAT(killed.Read(), HasSubstr("__handle"));
    killed.Kill(SIGKILL);
    EXPECT_EQ(killed.Read(), "") << "the agent holds no end of a connection whose tool has gone";
    EXPECT_EQ(product->GetBackupJobs().size(), 1U);
}

TEST_F(ASharedAgent, KeepsWhatAClientHadThatWasKilledForWhoTakesOver) {
    Script(R"({"clock": {"mode": "held"}})");
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const pid_t other = ::fork();
    if (other == 0) {
        try {
            const auto control = Connect();
            const auto session = MakeJob(*Control(control), "nightly")->Start({});
            (void)!::write(pipe[1], "x", 1);
            ::pause();
        } catch (const std::exception&) {
        }
        ::_exit(1);
    }
    ::close(pipe[1]);
    const auto survivor = Connect();
    char byte = 0;
    EXPECT_EQ(::read(pipe[0], &byte, 1), 1) << "the other one has begun";
    ::close(pipe[0]);
    EXPECT_THROW(survivor->RequestControl(OtherOwner(), false), CGenericException);
    ::kill(other, SIGKILL);
    EXPECT_EQ(::waitpid(other, nullptr, 0), other);
    EXPECT_THROW(survivor->RequestControl(OtherOwner(), false), CGenericException)
        << "its control outlasts it";
    const auto product = survivor->RequestControl(OtherOwner(), true);
    const auto session = product->GetBackupJobs().at(0)->FindLastBackupJobSession();
    EXPECT_EQ(session->GetInfo().State, JobState::Starting);
    EXPECT_TRUE(session->Stop("it was another's"));
}

TEST_F(ASharedAgent, GivesEachClientHandlesOfItsOwn) {
    const auto other = Connect();
    const auto product = Control(other);
    CRawAgent raw;
    EXPECT_THAT(raw.Read(), HasSubstr("<__handle>1<"));
    raw.Send(CRawAgent::Frame("<Data><__handle>2</__handle><__method>GetBackupJobs_1</__method></Data>"));
    EXPECT_THAT(raw.Read(), HasSubstr("No object has the handle 2"));
    EXPECT_TRUE(product->GetBackupJobs().empty());
}

TEST_F(ASharedAgent, StillHasJobsAndTheRunningSessionForWhoComesBack) {
    Script(R"({"clock": {"mode": "held"}})");
    apigen::Guid sessionId;
    {
        const auto control = Connect();
        const auto job = MakeJob(*Control(control), "nightly");
        sessionId = job->Start({})->GetInfo().Uid;
    }
    const auto control = Connect();
    EXPECT_EQ(control->GetCurrentOwner().Name, "tester") << "control is its owner's, not its connection's";
    const auto product = Control(control);
    const auto job = product->GetBackupJobs().at(0);
    EXPECT_EQ(job->GetInfo().Name, "nightly");
    const auto session = job->FindLastBackupJobSession();
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->GetInfo().Uid, sessionId);
    EXPECT_EQ(session->GetInfo().State, JobState::Starting);
    EXPECT_THROW(job->Start({}), CJobIsRunning);
    EXPECT_TRUE(session->Stop("enough"));
    EXPECT_TRUE(Eventually([&] { return session->GetInfo().State == JobState::Stopped; }));
}

TEST_F(ASharedAgent, TellsEverySubscriberWhatAnyClientDoes) {
    auto first = Connect();
    const auto second = Connect();
    CEventsStream stream(first->GetEventConfig(), nullptr);
    first.reset();
    const auto job = MakeJob(*Control(second), "nightly");
    const auto event = stream.Read();
    EXPECT_EQ(event.Type, EEventType::BackupJobCreated);
    EXPECT_EQ(event.ControlSessionId, second->GetSessionId());
}

TEST_F(ASharedAgent, LetsAnEventStreamThatWasCutBeginAgain) {
    Script(R"({"events": [{"times": 1, "action": "half-frame"}]})");
    const auto control = Connect();
    const auto product = Control(control);
    auto stream = std::make_unique<CEventsStream>(control->GetEventConfig(), nullptr);
    MakeJob(*product, "first");
    EXPECT_FALSE(Thrown<zamclientlib::EventsLostError>([&] { stream->Read(); }).IsOrderly());
    const auto again = Connect();
    stream = std::make_unique<CEventsStream>(again->GetEventConfig(), nullptr);
    MakeJob(*product, "second");
    EXPECT_EQ(stream->Read().Type, EEventType::BackupJobCreated);
    EXPECT_EQ(again->RequestControl(Owner(), false)->GetBackupJobs().size(), 2U)
        << "what the cut stream has missed";
}

TEST_F(ASharedAgent, IsOneHoweverManyClientsStartItAtOnce) {
    constexpr int Rounds = 5;
    constexpr std::size_t Clients = 12;
    for (int round = 0; round < Rounds; ++round) {
        std::deque<CRawAgent> clients(Clients);
        std::vector<std::string> ids;
        for (auto& client : clients) {
            EXPECT_THAT(client.Read(), HasSubstr("__handle"));
            client.Send(CRawAgent::Call(SessionIdMethod));
            ids.push_back(client.Read());
        }
        EXPECT_NE(ids.front(), "");
        EXPECT_EQ(std::count(ids.begin(), ids.end(), ids.front()), static_cast<long>(Clients));
        EXPECT_EQ(ShutDown(), 0);
        EXPECT_TRUE(HasLeftNothing());
        for (auto& client : clients)
            EXPECT_EQ(client.Ended(), 0) << "told that the agent has ended";
    }
}

TEST_F(ASharedAgent, IsJoinedOrReplacedWheneverItEnds) {
    // Idle at once, it ends while the next tool is about to join it.
    Script(R"({"shared": {"idleMs": 0}})");
    for (int round = 0; round < 50; ++round)
        EXPECT_EQ(Connect()->GetProductInfo().Name, "Test agent");
    EXPECT_TRUE(Eventually([&] { return HasLeftNothing(); }));
}

TEST_F(ASharedAgent, EndsWhenItHasHadNoClientForLong) {
    Script(R"({"shared": {"idleMs": 50}})");
    pid_t process = 0;
    {
        const auto control = Connect();
        const auto second = Connect();
        process = Process();
        EXPECT_GT(process, 0);
        EXPECT_EQ(control->GetSessionId(), second->GetSessionId());
    }
    EXPECT_TRUE(Eventually([&] { return ::kill(process, 0) != 0 || HasLeftNothing(); }));
    EXPECT_TRUE(HasLeftNothing());
}

TEST_F(ASharedAgent, ReportsItsEndToEveryClient) {
    for (const auto& [action, reason] : std::vector<std::pair<std::string, std::string>>{
             {R"("exit", "code": 7)", "status 7"}, {R"("kill")", "signal 9"}}) {
        Script(R"({"rules": [{"method": "GetSessionId", "action": )" + action + "}]}");
        const auto guilty = Connect();
        const auto innocent = Connect();
        EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { guilty->GetSessionId(); }).what(), HasSubstr(reason));
        EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { innocent->GetProductInfo(); }).what(),
                    HasSubstr(reason));
        EXPECT_TRUE(HasLeftNothing());
        EXPECT_EQ(Connect()->GetProductInfo().Name, "Test agent");
        EXPECT_EQ(ShutDown(), 0);
    }
}

TEST_F(ASharedAgent, ThatWasKilledDoesNotHinderTheNextOne) {
    const auto before = Connect();
    MakeJob(*Control(before), "nightly");
    ::kill(Process(), SIGKILL);
    EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { before->GetSessionId(); }).what(), HasSubstr("signal 9"));
    EXPECT_FALSE(HasLeftNothing());
    const auto after = Connect();
    EXPECT_TRUE(Control(after)->GetBackupJobs().empty()) << "it knows nothing of the one before";
}

TEST_F(ASharedAgent, LeavesNothingWhenASignalEndsIt) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        const auto control = Connect();
        ::kill(Process(), signal);
        EXPECT_TRUE(Eventually([&] { return HasLeftNothing(); })) << signal;
        EXPECT_THAT(Thrown<apigen::PeerGoneError>([&] { control->GetSessionId(); }).what(),
                    HasSubstr("signal 9"));
    }
}

TEST_F(ASharedAgent, CountsTheCallsOfAllClientsForItsRules) {
    Script(
        R"({"rules": [{"method": "GetProductInfo", "skip": 1, "times": 1, "action": "throw", "message": "no"},
                         {"method": "greeting", "skip": 2, "times": 1, "action": "throw", "message": "full"}]})");
    const auto first = Connect();
    const auto second = Connect();
    EXPECT_STREQ(Thrown<CGenericException>([] { Connect(); }).what(), "full");
    EXPECT_NO_THROW(first->GetProductInfo());
    EXPECT_STREQ(Thrown<CGenericException>([&] { second->GetProductInfo(); }).what(), "no");
    EXPECT_NO_THROW(first->GetProductInfo());
    EXPECT_NO_THROW(second->GetProductInfo());
}

TEST_F(ASharedAgent, EndsOneConnectionWhenARuleSaysSo) {
    Script(R"({"rules": [{"method": "GetProductInfo", "times": 1, "action": "disconnect"},
                         {"method": "greeting", "skip": 2, "times": 1, "action": "disconnect"}]})");
    const auto first = Connect();
    const auto second = Connect();
    Thrown<apigen::PeerGoneError>([&] { first->GetProductInfo(); });
    EXPECT_EQ(second->GetProductInfo().Name, "Test agent");
    Thrown<apigen::PeerGoneError>([] { Connect(); });
    EXPECT_EQ(Connect()->GetSessionId(), second->GetSessionId()) << "the agent has gone on";
}

TEST_F(ASharedAgent, ServesTheOthersWhileOneIsKeptWaiting) {
    Script(R"({"rules": [{"method": "GetSessionId", "times": 1, "action": "delay", "ms": 600000}]})");
    CRawAgent waiting;
    EXPECT_THAT(waiting.Read(), HasSubstr("__handle"));
    waiting.Send(CRawAgent::Call(SessionIdMethod));
    const auto other = Connect();
    EXPECT_TRUE(Eventually([&] {
        const std::string path = m_folder.Path("log");
        other->GrabLogs(path);
        const auto lines = zamtest::LinesOf(path);
        fs::remove(path);
        return std::count(lines.begin(), lines.end(), SessionIdMethod) == 1;
    })) << "the call that waits has been met";
    EXPECT_NO_THROW(other->GetSessionId());
    waiting.Leave();
    EXPECT_TRUE(WIFEXITED(waiting.Ended())) << "nobody is left to wait for";
    CRawAgent patient;
    EXPECT_THAT(patient.Read(), HasSubstr("__handle"));
}

TEST_F(ASharedAgent, EndsThoughAClientIsKeptWaiting) {
    Script(R"({"rules": [{"method": "GetSessionId", "action": "delay", "ms": 600000},
                         {"method": "greeting", "skip": 1, "action": "delay", "ms": 600000}]})");
    CRawAgent inACall;
    EXPECT_THAT(inACall.Read(), HasSubstr("__handle"));
    inACall.Send(CRawAgent::Call(SessionIdMethod));
    CRawAgent notGreeted;
    EXPECT_EQ(ShutDown(), 0);
    EXPECT_EQ(inACall.Ended(), 0);
    notGreeted.Leave();  // it has met that agent or its successor, and waits for either
    EXPECT_TRUE(WIFEXITED(notGreeted.Ended()));
}

TEST_F(ASharedAgent, TellsWhyItCantStart) {
    const auto greeting = [] { return std::string(Thrown<CGenericException>([] { Connect(); }).what()); };
    Script(R"({"shared": {"idleMs": -1}})");
    EXPECT_THAT(greeting(), AllOf(HasSubstr("script.shared.idleMs"), HasSubstr("a whole number")));
    ::unsetenv("ZAM_TESTAGENT_SCRIPT");
    EXPECT_TRUE(HasLeftNothing());
    Share("relative");
    EXPECT_THAT(greeting(), AllOf(HasSubstr("ZAM_TESTAGENT_SHARED"), HasSubstr("absolute")));
    Share(m_folder.Path("missing"));
    EXPECT_THAT(greeting(), AllOf(HasSubstr("no folder"), HasSubstr(m_folder.Path("missing"))));
    m_folder.Write("file", "");
    Share(m_folder.Path("file"));
    EXPECT_THAT(greeting(), HasSubstr("no folder"));
    const std::string longName = m_folder.Path(std::string(120, 'x'));
    fs::create_directory(longName);
    Share(longName);
    EXPECT_THAT(greeting(), HasSubstr("107"));
    fs::create_directory(m_folder.Path("open"));
    fs::permissions(m_folder.Path("open"), fs::perms::all);
    m_folder.Write("open/notes", "mine");
    Share(m_folder.Path("open"));
    EXPECT_THAT(greeting(), HasSubstr("open to others"));
    fs::create_directory(m_folder.Path("taken"));
    fs::permissions(m_folder.Path("taken"), fs::perms::owner_all);
    m_folder.Write("taken/control.sock", "no socket");
    Share(m_folder.Path("taken"));
    EXPECT_THAT(greeting(), HasSubstr("another file"));
    Share(m_folder.Path("shared"));
}

TEST_F(ASharedAgent, IsToldToEndOnlyWhereItIsNamed) {
    EXPECT_EQ(ShutDown(), 0) << "there is none, as was asked for";
    const auto control = Connect();
    ::unsetenv("ZAM_TESTAGENT_SHARED");
    const SRun run = RunInShell(Agent() + " extended shutdown");
    EXPECT_EQ(run.Status, 1);
    EXPECT_THAT(run.Error, HasSubstr("ZAM_TESTAGENT_SHARED"));
    EXPECT_NO_THROW(control->GetSessionId());
    const auto own = Connect();
    EXPECT_NE(own->GetSessionId(), control->GetSessionId()) << "nobody has asked for sharing";
    Share(m_folder.Path("shared"));
}

}  // namespace
}  // namespace tests
