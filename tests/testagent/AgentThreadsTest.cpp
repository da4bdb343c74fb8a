// SPDX-License-Identifier: Apache-2.0
// Several threads on one connection and one event stream.
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "tests/api/TemporaryFolder.h"
#include "tests/testagent/AgentFixture.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone

class Threads : public CAgentTest {};

TEST_F(Threads, CallThroughOneConnectionWhileOneReadsEventsAndAnotherStopsTheStream) {
    constexpr int Callers = 4;
    constexpr unsigned long Rounds = 25;
    // A job is made and deleted in each round.
    constexpr unsigned long ExpectedEvents = Callers * Rounds * 2;
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto repository = product->GetRepositoryManager()->CreateRepository(LocalRepository("main"));
    CEventsStream stream(control->GetEventConfig(), nullptr);

    std::atomic<unsigned long> seen = 0;
    std::atomic<bool> isInterrupted = false;
    std::thread reader([&] {
        try {
            while (true) {
                const auto event = stream.Read();
                EXPECT_EQ(event.Id, ++seen);
            }
        } catch (const apigen::InterruptedError&) {
            isInterrupted = true;
        }
    });
    std::vector<std::thread> callers;
    for (int caller = 0; caller < Callers; ++caller) {
        callers.emplace_back([&, caller] {
            for (unsigned long round = 0; round < Rounds; ++round) {
                const std::string name = std::to_string(caller) + "-" + std::to_string(round);
                const auto job = product->CreateBackupJob(JobConfig(name, repository.Id));
                const auto info = job->GetInfo();
                EXPECT_EQ(info.Name, name);
                EXPECT_TRUE(product->DeleteBackupJob(info.Id));
            }
        });
    }
    std::thread stopper([&] {
        EXPECT_TRUE(Eventually([&] { return seen == ExpectedEvents; }));
        EXPECT_FALSE(stream.IsStopped());
        stream.Stop();
    });
    for (auto& caller : callers) {
        caller.join();
    }
    stopper.join();
    reader.join();
    EXPECT_EQ(seen, ExpectedEvents);
    EXPECT_TRUE(isInterrupted);
    EXPECT_TRUE(stream.IsStopped());
}

TEST_F(Threads, EachWithAConnectionOfItsOwnToASharedAgentDontMeet) {
    constexpr unsigned Clients = 6;
    constexpr unsigned Rounds = 10;
    const zamtest::CTemporaryFolder folder;
    std::filesystem::create_directory(folder.Path("shared"));
    Script(R"({"clock": {"stepMs": 1, "steps": 1}, "events": [{"skip": 5, "action": "disconnect"}],
               "owner": {"id": "{11111111-2222-3333-4444-555555555555}", "mode": "Shared"}})");
    ::setenv("ZAM_TESTAGENT_SHARED", folder.Path("shared").c_str(), 1);
    std::atomic<unsigned> done = 0;
    std::vector<std::thread> clients;
    for (unsigned client = 0; client < Clients; ++client) {
        clients.emplace_back([&, client] {
            for (unsigned round = 0; round < Rounds; ++round) {
                const auto control = Connect();
                auto owner = Owner();
                owner.Id.Data1 = client;
                const auto product = control->RequestControl(owner, false);
                CEventsStream stream(control->GetEventConfig(), nullptr);
                const std::string name = std::to_string(client) + "-" + std::to_string(round);
                const auto session = MakeJob(*product, name)->Start({});
                EXPECT_TRUE(Eventually([&] { return session->GetInfo().State == JobState::Stopped; }));
                // A job of its own, among those of all; and events that come until the socket hangs up.
                EXPECT_TRUE(product->DeleteBackupJob(session->GetInfo().JobUid));
                EXPECT_EQ(control->GetCurrentOwner().Id, Owner().Id);
                ++done;
            }
        });
    }
    for (auto& client : clients)
        client.join();
    EXPECT_EQ(done, Clients * Rounds);
    EXPECT_TRUE(Connect()->RequestControl(Owner(), false)->GetBackupJobs().empty());
    EXPECT_EQ(std::system(TEST_AGENT_FOLDER "/tarvoconfig extended shutdown"), 0);
    ::unsetenv("ZAM_TESTAGENT_SHARED");
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path("shared")));
}

TEST_F(Threads, StopTheStreamInTheMiddleOfABurst) {
    const auto control = Connect();
    const auto product = control->RequestControl(Owner(), false);
    const auto job = MakeJob(*product, "nightly");
    CEventsStream stream(control->GetEventConfig(), nullptr);
    std::atomic<unsigned> seen = 0;
    std::atomic<bool> isDone = false;
    std::thread caller([&] {
        while (!isDone) {
            job->SetUserData("x");
        }
    });
    std::thread stopper([&] {
        EXPECT_TRUE(Eventually([&] { return seen > 20; }));
        stream.Stop();
    });
    EXPECT_THROW(
        while (true) {
            stream.Read();
            ++seen;
        },
        apigen::InterruptedError);
    EXPECT_THROW(stream.Read(), apigen::InterruptedError);
    isDone = true;
    caller.join();
    stopper.join();
}

}  // namespace
}  // namespace tests
