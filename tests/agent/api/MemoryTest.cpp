// SPDX-License-Identifier: Apache-2.0
// What the daemon's memory holds of a password that it was sent and has stored.
#include "tests/FindInMemory.h"
#include "tests/agent/api/ApiFixture.h"

namespace tests {
namespace {

using CAgentMemoryTest = CAgentApiTest;

TEST_F(CAgentMemoryTest, ForgetsAPasswordOnceItIsStoredAndUsed) {
    if (IsSanitized) GTEST_SKIP() << "a sanitizer keeps what is freed";
    const std::string canary = "canary-in-memory-4711-with-a-long-tail";
    const auto product = Product(Connect());
    auto config = Config(Repository(*product).Id);
    SEncryptionSettings encryption;
    encryption.Password = canary + "-one";
    config.StorageInfo.EncryptionSettings = encryption;
    const auto job = product->CreateBackupJob(config);
    config.StorageInfo.EncryptionSettings->Password = canary + "-two";
    job->UpdateConfigurationInfo(config);
    SBackupServerInfo server;
    server.Name = "server";
    server.Password = canary + "-three";
    product->GetBackupServerManager()->AddBackupServer(server);
    EXPECT_EQ(Finished(*job->Start({})).Result, JobResult::Success);
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(job->CheckValidity(), testing::IsEmpty());
    EXPECT_THAT(FindInMemory(DaemonPid(), Inverted("nightly")), testing::Not(testing::IsEmpty()))
        << "what isn't secret";
    EXPECT_THAT(FindInMemory(DaemonPid(), Inverted(canary)), testing::IsEmpty());
}

}  // namespace
}  // namespace tests
