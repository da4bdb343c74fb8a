// SPDX-License-Identifier: Apache-2.0
// Small files of the agent's own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "agent/host/Files.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace tarvo;
using tests::CTemporaryFolder;

TEST(Files, ASecretIsReplacedAtOnceAndItsOwnersAlone) {
    const CTemporaryFolder folder;
    const std::string path = folder / "secret";
    EXPECT_EQ(ReadSecretFile(path), std::nullopt);
    WriteSecretFile(path, "one");
    WriteSecretFile(path, std::string("t\0wo\n", 5));
    EXPECT_EQ(ReadSecretFile(path), std::string("t\0wo\n", 5));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_TRUE(RemoveFile(path));
    EXPECT_FALSE(RemoveFile(path));
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    EXPECT_THROW(WriteSecretFile(folder / "no/where", "x"), std::system_error);
}

TEST(Files, ASecretThatOthersCanReadOrThatIsNoFileIsRefused) {
    const CTemporaryFolder folder;
    EXPECT_THROW(ReadSecretFile(folder.Write("open", "x", 0640)), std::runtime_error);
    WriteSecretFile(folder / "good", "x");
    std::filesystem::create_symlink("good", folder / "link");
    EXPECT_THROW(ReadSecretFile(folder / "link"), std::system_error);
    ::mkfifo((folder / "pipe").c_str(), 0600);
    EXPECT_THROW(ReadSecretFile(folder / "pipe"), std::runtime_error);
    EXPECT_THROW(ReadSecretFile(folder.Write("long", "12345", 0600), 4), std::system_error);
}

TEST(Files, SpaceIsKnownWhereThereIsAny) {
    const CTemporaryFolder folder;
    const auto space = SpaceOf(folder.Path());
    ASSERT_TRUE(space);
    EXPECT_GT(space->Capacity, 0);
    EXPECT_LE(space->Free, space->Capacity);
    EXPECT_EQ(SpaceOf("/proc"), std::nullopt);
    EXPECT_EQ(SpaceOf(folder / "missing"), std::nullopt);
}

TEST(Files, AnAccountWithoutANameIsNamedByItsNumber) {
    EXPECT_EQ(UserName(0), "root");
    EXPECT_EQ(UserName(3999999999U), "3999999999");
}

}  // namespace
