// SPDX-License-Identifier: Apache-2.0
// What the test agent does with passwords, which no client can see from outside.
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>

#include <gtest/gtest.h>

#include "testagent/Secrets.h"

namespace tests {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone
using Password = apigen::Optional<std::string>;

SBackupJobConfigurationInfo EncryptedJob(const Password& password) {
    SBackupJobConfigurationInfo config;
    config.StorageInfo.EncryptionSettings = SEncryptionSettings{password, "the usual"};
    return config;
}

TEST(Secrets, OfAnUpdateThatSaysNoneAreThoseOfBefore) {
    auto updated = EncryptedJob({});
    updated.JobName = "new";
    testagent::KeepSecrets(updated, EncryptedJob(std::string("old")));
    EXPECT_EQ(updated.StorageInfo.EncryptionSettings->Password, Password("old"));
    EXPECT_EQ(updated.JobName, "new");
}

TEST(Secrets, OfAnUpdateThatSaysOneAreTheNewOnes) {
    for (const std::string password : {"new", ""}) {
        auto updated = EncryptedJob(password);
        testagent::KeepSecrets(updated, EncryptedJob(std::string("old")));
        EXPECT_EQ(updated.StorageInfo.EncryptionSettings->Password, Password(password));
    }
}

TEST(Secrets, GoWithTheRecordThatHeldThem) {
    SBackupJobConfigurationInfo updated;
    testagent::KeepSecrets(updated, EncryptedJob(std::string("old")));
    EXPECT_FALSE(updated.StorageInfo.EncryptionSettings);
}

TEST(Secrets, OfEveryKindAreRemoved) {
    SCloudServiceProviderInfo provider;
    provider.Name = "cloud";
    provider.Password = SCloudServiceProviderPassword{"secret", ECloudServiceProviderPasswordType::Token};
    EXPECT_FALSE(testagent::WithoutSecrets(provider).Password);
    EXPECT_EQ(testagent::WithoutSecrets(provider).Name, "cloud");
    const auto shown = testagent::WithoutSecrets(EncryptedJob(std::string("secret")));
    EXPECT_FALSE(shown.StorageInfo.EncryptionSettings->Password);
    EXPECT_EQ(shown.StorageInfo.EncryptionSettings->PasswordHint, "the usual");
}

}  // namespace
}  // namespace tests
