// SPDX-License-Identifier: Apache-2.0
/// \file
/// The whole agent in a home of the test's own, with a source and a place for backups.
#pragma once

#include <functional>

#include "tests/agent/daemon/DaemonFixture.h"

namespace tests {

using namespace zamclientlib;  // NOLINT: for tests alone

class CAgentApiTest : public CDaemonTest {
protected:
    CAgentApiTest() {
        for (const char* const folder : {"repo", "source", "logs"})
            std::filesystem::create_directory(Home(folder));
        Write("source/file", std::string(5000, 'x'));
    }

    static SZamControlOwnerInfo Owner(const std::string& name = "tester",
                                      ZAMOwnerMode mode = ZAMOwnerMode::Exclusive) {
        SZamControlOwnerInfo owner;
        owner.Id.Data1 = static_cast<std::uint32_t>(std::hash<std::string>()(name));
        owner.Name = name;
        owner.Type = ZAMOwnerType::Local;
        owner.Mode = mode;
        return owner;
    }
    static std::shared_ptr<IZamProduct> Product(const std::shared_ptr<IZamControl>& control,
                                                const SZamControlOwnerInfo& owner = Owner()) {
        return control->RequestControl(owner, false);
    }

    SBackupRepositoryInfo Repository(IZamProduct& product, const std::string& folder = "repo") const {
        SBackupRepositoryInfo info;
        info.Name = folder;
        info.Type = BackupTargetType::LocalFolder;
        info.Location = Home(folder);
        return product.GetRepositoryManager()->CreateRepository(info);
    }
    SBackupJobConfigurationInfo Config(const apigen::Guid& repository,
                                       const std::string& name = "nightly") const {
        SBackupJobConfigurationInfo config;
        config.JobName = name;
        config.RepositoryId = repository;
        config.Source.BackupMode = JobBackupMode::FileLevel;
        config.Source.IncludeDirs = {Home("source")};
        config.StorageInfo.CompressionLevel = JobCompressionLevel::Optimal;
        config.RetentionInfo.RestorePointsCount = 7;
        return config;
    }
    std::shared_ptr<IBackupJob> Job(IZamProduct& product) const {
        return product.CreateBackupJob(Config(Repository(product).Id));
    }

    /// A job whose runs wait for the file "go".
    std::shared_ptr<IBackupJob> WaitingJob(IZamProduct& product) const {
        Write("wait", "#!/bin/sh\nwhile ! test -e " + Home("go") + "; do sleep 0.01; done\n");
        std::filesystem::permissions(Home("wait"), std::filesystem::perms(0700));
        auto config = Config(Repository(product).Id);
        SBackupJobScriptInfo scripts;
        scripts.PreJobScript = Home("wait");
        scripts.ExecutionTimeout.seconds = 60;
        config.ScriptInfo = scripts;
        return product.CreateBackupJob(config);
    }

    static SBackupJobSessionInfo Finished(const IBackupJobSession& session) {
        EXPECT_TRUE(Eventually([&] { return session.GetInfo().State == JobState::Stopped; }, 60s));
        return session.GetInfo();
    }
    static std::string LinesOf(const SBackupJobSessionInfo& info) {
        std::string lines;
        for (const auto& line : info.JobDetails)
            lines += std::string(NameOf(line.Type)) + ": " + line.Message + '\n';
        return lines;
    }

    /// The daemon dies and another takes its place.
    void CrashAgent() const {
        ::kill(DaemonPid(), SIGKILL);
        EXPECT_TRUE(AwaitNoDaemon());
    }
};

}  // namespace tests
