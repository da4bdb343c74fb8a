// SPDX-License-Identifier: Apache-2.0
// Clients, their tools and the daemon: who comes, who goes, and whom that touches.
#include "tests/agent/daemon/DaemonFixture.h"

namespace tests {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST_F(CDaemonTest, AClientStartsADaemonWhereNoneRunsAndTheNextOneFindsIt) {
    const auto first = Connect();
    const auto run = first->GetSessionId();
    EXPECT_NE(run, apigen::Guid{});
    EXPECT_EQ(Connect()->GetSessionId(), run);
    EXPECT_NE(DaemonPid(), 0);
}

TEST_F(CDaemonTest, TheDaemonStaysWhenItsLastClientHasLeft) {
    const auto run = Connect()->GetSessionId();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
    EXPECT_EQ(Connect()->GetSessionId(), run);
}

TEST_F(CDaemonTest, SeveralToolsAtOnceStartOneDaemon) {
    std::vector<apigen::Guid> runs(8);
    std::vector<std::thread> clients;
    for (auto& run : runs)
        clients.emplace_back([&run] { run = Connect()->GetSessionId(); });
    for (auto& client : clients)
        client.join();
    EXPECT_THAT(runs, testing::Each(runs[0]));
    EXPECT_NE(runs[0], apigen::Guid{});
}

TEST_F(CDaemonTest, AToolWaitsForADaemonThatIsStillStarting) {
    Write("slow");
    CChild tool(ToolWords());
    tool.Send(Call(GetSessionId));
    ASSERT_TRUE(Eventually([&] { return DaemonPid() != 0; }));
    pollfd readable{tool.Out, POLLIN, 0};
    EXPECT_EQ(::poll(&readable, 1, 100), 0);
    Write("go");
    EXPECT_THAT(tool.Read(), HasSubstr("<__handle>1<"));
    EXPECT_THAT(tool.Read(), HasSubstr("__result"));
}

TEST_F(CDaemonTest, TheClientsIdentityIsThatOfItsTool) {
    EXPECT_THAT(Connect()->GetProductInfo().Name, StartsWith("root "));
}

TEST_F(CDaemonTest, TheVersionIsAnsweredWithoutADaemon) {
    EXPECT_TRUE(zamclientlib::IsControlApiCompatible());
    EXPECT_EQ(DaemonPid(), 0);
    EXPECT_FALSE(std::filesystem::exists(Home("run")));
}

TEST_F(CDaemonTest, ARefusalOfTheWorkReachesTheClientAndLeavesTheConnectionUsable) {
    const auto control = Connect();
    EXPECT_EQ(FailureOf([&] { control->SetOwnerMode({}, {}); }), "refused, as always");
    EXPECT_NE(control->GetSessionId(), apigen::Guid{});
}

TEST_F(CDaemonTest, AClientWhoseRootObjectCannotBeMadeIsGreetedWithTheReason) {
    Connect();
    Write("refusing");
    EXPECT_THAT(FailureOf([] { Connect(); }), HasSubstr("no control on purpose"));
    std::filesystem::remove(Home("refusing"));
    Connect();
}

TEST_F(CDaemonTest, AHundredClientsAreServedAtOnce) {
    constexpr std::size_t Clients = 100;
    Connect();
    std::vector<std::shared_ptr<zamclientlib::IZamControl>> controls(Clients);
    std::vector<std::thread> threads;
    for (std::size_t worker = 0; worker < 4; ++worker)
        threads.emplace_back([&controls, worker] {
            for (std::size_t i = worker; i < Clients; i += 4)
                controls[i] = Connect();
        });
    for (auto& thread : threads)
        thread.join();
    const auto run = controls[0]->GetSessionId();
    for (const auto& control : controls)
        ASSERT_EQ(control->GetSessionId(), run);
    EXPECT_EQ(Threads(), Clients + 1);
    controls.clear();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
}

TEST_F(CDaemonTest, OneClientBeyondTheBoundIsGreetedWithAnErrorAndOneThatLeavesMakesRoom) {
    constexpr std::size_t Bound = 256;
    Connect();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    ASSERT_EQ(::pipe2(in.data(), O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    std::vector<int> controls;
    for (std::size_t i = 0; i < Bound; ++i) {
        controls.push_back(ConnectToSocket());
        SendWord(controls.back(), "tarvo-handover 1\n", {in[0], out[1]});
        EXPECT_THAT(ReadMessage(out[0]), HasSubstr("<__handle>1<"));
    }
    EXPECT_EQ(Threads(), Bound + 1);
    EXPECT_THAT(FailureOf([] { Connect(); }), HasSubstr("256 connections already"));
    ::close(controls.back());
    controls.pop_back();
    EXPECT_TRUE(Eventually([&] { return Threads() == Bound; }));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    for (const int descriptor : controls)
        ::close(descriptor);
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
    for (const int descriptor : {in[0], in[1], out[0], out[1]})
        ::close(descriptor);
}

TEST_F(CDaemonTest, AClientThatDiesTakesItsToolAndItsConnectionAlong) {
    Connect();
    CChild tool(ToolWords());
    EXPECT_NE(tool.Read(), "");
    EXPECT_TRUE(Eventually([&] { return Threads() == 2; }));
    tool.Leave();
    EXPECT_EQ(tool.Ended(), 0) << tool.ReadErrors();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
}

TEST_F(CDaemonTest, AClientThatClosesItsInputEarlyStillGetsItsAnswers) {
    CChild tool(ToolWords());
    tool.Send(Call(GetSessionId) + Call(GetCurrentOwner));
    tool.CloseInput();
    EXPECT_THAT(tool.Read(), HasSubstr("<__handle>1<"));
    EXPECT_THAT(tool.Read(), HasSubstr("__result"));
    EXPECT_GT(tool.Read().size(), 200'000U);
    EXPECT_EQ(tool.Read(), "");
    EXPECT_EQ(tool.Ended(), 0) << tool.ReadErrors();
}

TEST_F(CDaemonTest, AToolKilledInTheMiddleOfACallTouchesNobodyElse) {
    const auto other = Connect();
    CChild tool(ToolWords());
    EXPECT_NE(tool.Read(), "");
    tool.Send(Frame("<Data><path>" + Home("file") +
                    "</path><__handle>1</__handle><__method>"
                    "GrabLogs_7987703423994357771</__method></Data>"));
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(Home("file.begun")); }));
    tool.Kill(SIGKILL);
    EXPECT_EQ(tool.Ended(), 1000 + SIGKILL);
    EXPECT_NE(other->GetSessionId(), apigen::Guid{});
    EXPECT_EQ(Threads(), 3U) << "the call goes on";
    Write("file");
    // Though the client has its streams open still.
    EXPECT_TRUE(Eventually([&] { return Threads() == 2; }));
    EXPECT_NE(other->GetSessionId(), apigen::Guid{});
}

TEST_F(CDaemonTest, AToolKilledBetweenCallsEndsItsConnectionThoughItsStreamsStayOpen) {
    Connect();
    CChild tool(ToolWords());
    EXPECT_NE(tool.Read(), "");
    EXPECT_TRUE(Eventually([&] { return Threads() == 2; }));
    tool.Kill(SIGKILL);
    EXPECT_EQ(tool.Ended(), 1000 + SIGKILL);
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
}

TEST_F(CDaemonTest, ADaemonKilledInTheMiddleOfACallFailsItAndTheNextClientStartsAnother) {
    const auto control = Connect();
    const auto run = control->GetSessionId();
    const pid_t pid = DaemonPid();
    std::thread killer([&] {
        EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Home("file.begun")); }));
        ::kill(pid, SIGKILL);
    });
    EXPECT_THROW(control->GrabLogs(Home("file")), apigen::PeerGoneError);
    killer.join();
    EXPECT_TRUE(std::filesystem::exists(Socket())) << "left by the dead";
    EXPECT_NE(Connect()->GetSessionId(), run);
    EXPECT_NE(DaemonPid(), pid);
}

TEST_F(CDaemonTest, AClientThatNeverReadsHoldsUpNobodyNorTheDaemonsEnd) {
    CChild deaf(ToolWords());
    deaf.Send(Call(GetCurrentOwner));
    CChild halfway(ToolWords());
    halfway.Send(Call(GetCurrentOwner).substr(0, 20));
    EXPECT_TRUE(Eventually([&] { return Threads() == 3; }));
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    ::kill(DaemonPid(), SIGTERM);
    EXPECT_TRUE(AwaitNoDaemon(5s));
    EXPECT_EQ(deaf.Ended(), 1);
    EXPECT_EQ(halfway.Ended(), 1);
    EXPECT_THAT(deaf.ReadErrors(), HasSubstr("daemon has ended the connection"));
}

TEST_F(CDaemonTest, ACallThatDoesNotReturnDoesNotKeepTheDaemonFromEnding) {
    const auto control = Connect();
    std::thread caller([&] { EXPECT_THROW(control->GrabLogs(Home("never")), apigen::PeerGoneError); });
    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Home("never.begun")); }));
    ::kill(DaemonPid(), SIGTERM);
    EXPECT_TRUE(AwaitNoDaemon(10s));
    caller.join();
    EXPECT_FALSE(std::filesystem::exists(Socket()));
}

TEST_F(CDaemonTest, StreamsOfOtherKindsAreServedAsWell) {
    std::array<int, 2> both{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, both.data()), 0);
    CChild tool(ToolWords(), both[1], both[1]);
    ::close(both[1]);
    const std::string call = Call(GetSessionId);
    EXPECT_EQ(::send(both[0], call.data(), call.size(), 0), static_cast<ssize_t>(call.size()));
    EXPECT_THAT(ReadMessage(both[0]), HasSubstr("<__handle>1<"));
    EXPECT_THAT(ReadMessage(both[0]), HasSubstr("__result"));
    ::close(both[0]);
    EXPECT_EQ(tool.Ended(), 0) << tool.ReadErrors();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
}

TEST_F(CDaemonTest, WhoSaysAnotherWordThanAToolIsGreetedWithAnError) {
    Connect();
    const int control = ConnectToSocket();
    SendWord(control, "GET / HTTP/1.0\r\n\r\n", {});
    EXPECT_THAT(ReadMessage(control), HasSubstr("don't understand each other"));
    EXPECT_EQ(ReadMessage(control), "");
    ::close(control);
}

TEST_F(CDaemonTest, ExactlyTwoDescriptorsAreTakenAndAllOthersClosed) {
    Connect();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
    const std::size_t before = Descriptors();
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const std::size_t count : {0U, 1U, 3U, 8U, 9U, 200U}) {
        const int control = ConnectToSocket();
        SendWord(control, "tarvo-handover 1\n", std::vector<int>(count, null));
        EXPECT_THAT(ReadMessage(control), HasSubstr("needs the two streams")) << count;
        EXPECT_EQ(ReadMessage(control), "");
        ::close(control);
    }
    ::close(null);
    EXPECT_TRUE(Eventually([&] { return Descriptors() == before; })) << Descriptors() << " after " << before;
}

TEST_F(CDaemonTest, AWordMayComeInPieces) {
    Connect();
    std::array<int, 2> out{};
    ASSERT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const int control = ConnectToSocket();
    SendWord(control, "tarvo-", {null});
    SendWord(control, "handover 1", {});
    SendWord(control, "\n", {out[1]});
    EXPECT_THAT(ReadMessage(out[0]), HasSubstr("<__handle>1<"));
    for (const int descriptor : {control, null, out[0], out[1]})
        ::close(descriptor);
}

TEST_F(CDaemonTest, WhoConnectsAndLeavesAtOnceLeavesNothingBehind) {
    Connect();
    EXPECT_TRUE(Eventually([&] { return Threads() == 1; }));
    const std::size_t before = Descriptors();
    for (int i = 0; i < 300; ++i)
        ::close(ConnectToSocket());
    EXPECT_NE(Connect()->GetSessionId(), apigen::Guid{});
    EXPECT_TRUE(Eventually([&] { return Descriptors() == before; }));
}

TEST_F(CDaemonTest, WhoConnectsAndSaysNothingIsToldSoAfterAWhile) {
    Connect();
    const int control = ConnectToSocket();
    EXPECT_THAT(ReadMessage(control), HasSubstr("said nothing"));
    ::close(control);
}

}  // namespace
}  // namespace tests
