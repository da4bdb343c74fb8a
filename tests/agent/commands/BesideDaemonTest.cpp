// SPDX-License-Identifier: Apache-2.0
// The commands beside a daemon that runs: each takes up what the other has done.
#include <sstream>

#include "tests/Sanitized.h"
#include "tests/agent/TreeText.h"
#include "tests/agent/commands/BesideDaemonFixture.h"

namespace tests {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class CCommandsBesideDaemonTest : public CBesideDaemonTest {
protected:
    std::size_t Rows() const {
        return static_cast<std::size_t>(std::count(Output.begin(), Output.end(), '\n'));
    }

    /// "{0123…}" as folders and commands have it.
    static std::string Plain(const apigen::Guid& guid) { return guid.Serialize().substr(1, 36); }
};

TEST_F(CCommandsBesideDaemonTest, PointsComeBackDamageIsTakenUpAndOrphansGo) {
    if (IsSanitized) GTEST_SKIP() << "runs no code of ours that other tests do not run";
    const auto product = Product(Connect());
    auto config = Config(Repository(*product).Id, "with a password");
    SEncryptionSettings encryption;
    encryption.Password = std::string("se cret");
    config.StorageInfo.EncryptionSettings = encryption;
    const auto job = product->CreateBackupJob(config);
    Write("source/odd\nname\xff", "first");
    auto session = Finished(*job->Start({}));
    ASSERT_EQ(session.Result, JobResult::Success) << LinesOf(session);
    const std::string before = TreeText(Home("source"));
    Write("source/odd\nname\xff", "second");
    ASSERT_EQ(Finished(*job->Start({})).Result, JobResult::Success);

    ASSERT_EQ(Run({"points", "--json"}), 0) << Errors;
    EXPECT_EQ(Rows(), 2U) << Output;
    const auto points = job->GetOibsForRestore();
    ASSERT_EQ(points.size(), 2U);
    const std::string first = Plain(points[0].Id);
    EXPECT_THAT(Output,
                HasSubstr("{\"point\":\"" + first + "\",\"job\":\"with a password\",\"orphan\":false"));
    ASSERT_EQ(Run({"restore", first.substr(0, 13), "--to", Home("first")}), 0) << Errors;
    EXPECT_EQ(TreeText(Home("first") + Home("source")), before);
    ASSERT_EQ(Run({"restore", "latest", "--to", Home("second")}), 0) << Errors;
    EXPECT_EQ(TreeText(Home("second") + Home("source")), TreeText(Home("source")));

    const std::string chain = Home("repo/tarvo/") + Plain(job->GetInfo().Id) + "/1";
    for (const auto& entry : fs::recursive_directory_iterator(chain + "/data")) {
        if (!entry.is_regular_file()) continue;
        fs::permissions(entry.path(), fs::perms(0600));
        std::fstream(entry.path(), std::ios::in | std::ios::out | std::ios::binary)
            .seekp(10)
            .write("damage", 6);
    }
    EXPECT_EQ(Run({"verify"}), 1);
    EXPECT_THAT(Output, HasSubstr("chain 1 of the job \"with a password\": damaged: "));
    session = Finished(*job->Start({}));
    EXPECT_EQ(session.Result, JobResult::Warning);
    EXPECT_THAT(LinesOf(session), HasSubstr("damaged"));
    ASSERT_EQ(Run({"chains", "--json"}), 0);
    EXPECT_EQ(Rows(), 2U);
    EXPECT_THAT(Output,
                HasSubstr("\"chain\":1,\"job\":\"with a password\",\"orphan\":false,\"state\":\"damaged\""));
    EXPECT_THAT(Output,
                HasSubstr("\"chain\":2,\"job\":\"with a password\",\"orphan\":false,\"state\":\"open\""));
    EXPECT_EQ(job->GetOibsForRestore().back().Type, RestorePointType::Full);

    ASSERT_TRUE(product->DeleteBackupJob(job->GetInfo().Id));
    ASSERT_EQ(Run({"restore", "latest", "--to", Home("orphan")}), 0) << Errors;
    EXPECT_EQ(TreeText(Home("orphan") + Home("source")), TreeText(Home("source")));
    ASSERT_EQ(Run({"forget", "--orphans"}), 0) << Errors;
    EXPECT_TRUE(fs::is_empty(Home("repo")));
    EXPECT_EQ(Run({"points"}), 0);
    EXPECT_EQ(Output, "");
    EXPECT_EQ(Run({"restore", "latest", "--to", Home("none")}), 3);
}

}  // namespace
}  // namespace tests
