// SPDX-License-Identifier: Apache-2.0
// What the daemon's memory holds of a password that it was sent and has stored.
#include <cinttypes>
#include <map>

#include "tests/agent/api/ApiFixture.h"

namespace tests {
namespace {

/// How often, and where, a process's memory holds the text.
std::map<std::string, int> FindInMemory(pid_t pid, const std::string& text) {
    std::map<std::string, int> found;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    const int memory = ::open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    if (memory < 0) return {{"unreadable", 1}};
    for (std::string line; std::getline(maps, line);) {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        char permissions[5] = {};
        if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s", &begin, &end, permissions) != 3)
            continue;
        if (permissions[0] != 'r' || permissions[1] != 'w') continue;
        std::string bytes(end - begin, '\0');
        const ssize_t count = ::pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(begin));
        if (count <= 0) continue;
        const std::size_t name = line.find_first_of("/[");
        for (std::size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1))
            ++found[name == std::string::npos ? "anonymous" : line.substr(name)];
    }
    ::close(memory);
    return found;
}

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
    EXPECT_THAT(FindInMemory(DaemonPid(), "nightly"), testing::Not(testing::IsEmpty()))
        << "what isn't secret";
    EXPECT_THAT(FindInMemory(DaemonPid(), canary), testing::IsEmpty());
}

}  // namespace
}  // namespace tests
