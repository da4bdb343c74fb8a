// SPDX-License-Identifier: Apache-2.0
// An agent whose state is lost takes up what it has stored, beside a daemon that runs on.
#include "tests/Sanitized.h"
#include "tests/agent/TreeText.h"
#include "tests/agent/commands/BesideDaemonFixture.h"

namespace tests {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

TEST_F(CBesideDaemonTest, WhatALostStateKnewComesBackAndTheNewDaemonGoesOn) {
    if (IsSanitized) GTEST_SKIP() << "runs no code of ours that other tests do not run";
    {
        const auto product = Product(Connect());
        const auto job = product->CreateBackupJob(Config(Repository(*product).Id, "be\nfore"));
        ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
        Write("source/file", "second");
        ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
    }
    CrashAgent();
    fs::remove_all(Home("state"));

    const auto product = Product(Connect());
    const auto job = product->CreateBackupJob(Config(Repository(*product).Id, "after"));
    ASSERT_EQ(Run({"adopt", Home("repo")}), 0) << Errors;
    EXPECT_THAT(Output, HasSubstr("Adopted chain 1 of the job \"be\\nfore\", 2 points"));
    ASSERT_EQ(Run({"adopt", Home("repo")}), 0) << Errors;
    EXPECT_EQ(Output, "");
    ASSERT_EQ(Run({"restore", "latest", "--to", Home("restored")}), 0) << Errors;
    EXPECT_EQ(TreeText(Home("restored") + Home("source")), TreeText(Home("source")));
    ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
    ASSERT_EQ(Run({"chains", "--json"}), 0);
    EXPECT_EQ(std::count(Output.begin(), Output.end(), '\n'), 2) << Output;

    // What a living job has lost it has again at once, and runs go on with it.
    ASSERT_EQ(Run({"forget", "--orphans"}), 0) << Errors;
    CrashAgent();
    const auto kept = Home("kept");
    fs::rename(Home("state"), kept);
    fs::copy(kept, Home("state"), fs::copy_options::recursive);
    {
        const auto again = Product(Connect())->GetBackupJobs().at(0);
        Write("source/file", "third");
        ASSERT_EQ(Finished(*again->Start({})).Result, JobResult::Success);
    }
    CrashAgent();
    fs::remove_all(Home("state"));
    fs::rename(kept, Home("state"));
    const auto old = Product(Connect())->GetBackupJobs().at(0);
    EXPECT_EQ(old->GetOibsForRestore().size(), 1U);
    ASSERT_EQ(Run({"adopt", Home("repo")}), 0) << Errors;
    EXPECT_THAT(Output, HasSubstr("Adopted 1 point of chain 1 of the job \"after\""));
    EXPECT_EQ(old->GetOibsForRestore().size(), 2U);
    ASSERT_EQ(Finished(*old->Start({})).Result, JobResult::Success);
    const auto points = old->GetOibsForRestore();
    ASSERT_EQ(points.size(), 3U);
    EXPECT_EQ(points[2].Type, RestorePointType::Increment);
}

}  // namespace
}  // namespace tests
