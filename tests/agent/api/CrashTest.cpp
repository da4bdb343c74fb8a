// SPDX-License-Identifier: Apache-2.0
// Whoever is killed in the middle of a backup, and whenever: what was reported done is there, and it is whole.
#include <algorithm>
#include <array>
#include <iostream>
#include <random>
#include <set>

#include "tests/agent/api/ApiFixture.h"

namespace tests {
namespace {

/// Processes that have that name and this home in their environment.
std::vector<pid_t> Processes(const std::string& name, const std::string& home) {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid == 0 || TextOf(entry.path() / "comm") != name + '\n') continue;
        const std::string said = TextOf(entry.path() / "environ") + TextOf(entry.path() / "cmdline");
        if (said.find(home) != std::string::npos) found.push_back(pid);
    }
    return found;
}

std::string TextOfId(const apigen::Guid& id) {
    const std::string text = id.Serialize();
    return text.substr(1, text.size() - 2);
}

class CAgentCrashTest : public CAgentApiTest {
protected:
    int Shell(const std::string& command) const {
        return std::system((command + " >" + Home("shell.log") + " 2>&1").c_str());
    }

    /// Restored by the stock engine from the folder that holds the point.
    void ExpectRestorable(const apigen::Guid& job, const apigen::Guid& point) const {
        const std::string target = Home("restored");
        std::filesystem::remove_all(target);
        const std::string tag = "tarvo-point=" + TextOfId(point);
        bool isFound = false;
        for (const auto& chain : std::filesystem::directory_iterator(Home("repo/tarvo/" + TextOfId(job)))) {
            if (!chain.is_directory()) continue;
            const std::string restic =
                "RESTIC_PASSWORD=tarvo-without-password restic --no-cache --no-lock -r " +
                chain.path().string();
            isFound = Shell(restic + " restore latest --tag " + tag + " --target " + target) == 0 &&
                      std::filesystem::exists(target + Home("source"));
            if (isFound) break;
        }
        ASSERT_TRUE(isFound) << TextOf(Home("shell.log"));
        EXPECT_EQ(Shell("diff -r " + Home("source") + " " + target + Home("source")), 0)
            << TextOf(Home("shell.log"));
    }
};

TEST_F(CAgentCrashTest, NoPointIsLostThatWasReportedDoneWhoeverIsKilledWhenever) {
    if (IsSanitized) GTEST_SKIP() << "what runs longest here is the engine";
    const unsigned seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    apigen::Guid id;
    {
        const auto product = Product(Connect());
        auto config = Config(Repository(*product).Id);
        config.RetentionInfo.RestorePointsCount = 100;
        id = product->CreateBackupJob(config)->GetInfo().Id;
    }
    std::set<std::string> done;
    constexpr std::array<const char*, 3> Victims = {"tarvod", "restic", "tarvoconfig"};
    for (unsigned round = 0; round < 6; ++round) {
        const char* const victim = Victims[round % Victims.size()];
        SCOPED_TRACE(victim);
        Write("source/" + std::to_string(round),
              std::string(100'000 + round, static_cast<char>('a' + round)));
        try {
            const auto job = Product(Connect())->FindBackupJob(id);
            const auto session = job->Start({});
            // In the first half of a run, or after its end.
            const auto moment = std::chrono::milliseconds(random() % 2500);
            const auto due = std::chrono::steady_clock::now() + moment;
            Eventually([&] { return std::chrono::steady_clock::now() >= due; });
            const auto info = session->GetInfo();
            if (info.Result == JobResult::Success) done.insert(TextOfId(info.PointId));
            for (const pid_t pid : Processes(victim, Home()))
                ::kill(pid, SIGKILL);
        } catch (const apigen::ApiInternalError&) {  // its own tool was the victim
        }
        ASSERT_TRUE(Eventually([&] { return victim != std::string("tarvod") || DaemonPid() == 0; }));
        // What was under way comes to its end, one way or the other.
        const auto job = Product(Connect())->FindBackupJob(id);
        ASSERT_NE(job, nullptr);
        const auto isIdle = [&] {
            const auto last = job->FindLastBackupJobSession();
            return last == nullptr || last->GetInfo().State == JobState::Stopped;
        };
        ASSERT_TRUE(Eventually(isIdle, 60s));
        std::set<std::string> points;
        for (const auto& point : job->GetOibsForRestore())
            points.insert(TextOfId(point.Id));
        for (const auto& session : job->GetBackupJobSessions()) {
            const auto info = session->GetInfo();
            if (info.Result != JobResult::Success) continue;
            EXPECT_EQ(points.count(TextOfId(info.PointId)), 1U) << LinesOf(info);
        }
    }
    const auto job = Product(Connect())->FindBackupJob(id);
    const auto last = Finished(*job->Start({}));
    ASSERT_EQ(last.Result, JobResult::Success) << LinesOf(last);
    std::set<std::string> points;
    for (const auto& point : job->GetOibsForRestore())
        points.insert(TextOfId(point.Id));
    EXPECT_TRUE(std::includes(points.begin(), points.end(), done.begin(), done.end()));
    ExpectRestorable(id, job->GetOibsForRestore().back().Id);
    EXPECT_EQ(Shell("RESTIC_PASSWORD=tarvo-without-password restic --no-cache --no-lock -r " +
                    Home("repo/tarvo/" + TextOfId(id) + "/1") + " check --read-data"),
              0)
        << TextOf(Home("shell.log"));
}

TEST_F(CAgentCrashTest, AClientKilledInTheMiddleOfItsCallsTouchesNoRunAndNoOtherClient) {
    const auto product = Product(Connect());
    const auto job = WaitingJob(*product);
    const auto session = job->Start({});
    const pid_t client = ::fork();
    if (client == 0) {
        // A connection of its own, as a program of its own would have it.
        const auto control = Connect();
        for (;;)
            control->GetCurrentOwner();
    }
    ASSERT_TRUE(Eventually([&] { return Processes("tarvoconfig", Home()).size() == 2; }));
    ::kill(client, SIGKILL);
    ::waitpid(client, nullptr, 0);
    EXPECT_TRUE(Eventually([&] { return Processes("tarvoconfig", Home()).size() == 1; }));
    EXPECT_EQ(session->GetInfo().Result, JobResult::None);
    Write("go");
    const auto info = Finished(*session);
    EXPECT_EQ(info.Result, JobResult::Success) << LinesOf(info);
}

}  // namespace
}  // namespace tests
