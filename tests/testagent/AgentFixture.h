// SPDX-License-Identifier: Apache-2.0
/// \file
/// The test agent as the agent that `GetZamControl` finds.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace tests {

using namespace std::chrono_literals;  // NOLINT: for tests alone

/// Waits until `condition` holds; false when it does not within ten seconds.
inline bool Eventually(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

template <class E>
E Thrown(const std::function<void()>& action) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const E& error) {
        EXPECT_EQ(typeid(error), typeid(E)) << error.what();
        return error;
    } catch (const std::exception& error) {
        ADD_FAILURE() << "another error was thrown: " << typeid(error).name() << ": " << error.what();
    }
    return E{""};
}

class CAgentTest : public testing::Test {
protected:
    CAgentTest() {
        const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
        ::setenv("PATH", (std::string(TEST_AGENT_FOLDER) + ":" + path).c_str(), 1);
        ::unsetenv("ZAM_TESTAGENT_SCRIPT");
    }
    ~CAgentTest() override { std::remove(m_scriptPath.c_str()); }

    /// What the agents started from now on do.
    void Script(const std::string& json) {
        m_scriptPath = testing::TempDir() + "testagent-" + std::to_string(::getpid()) + ".json";
        std::ofstream(m_scriptPath) << json;
        ::setenv("ZAM_TESTAGENT_SCRIPT", m_scriptPath.c_str(), 1);
    }

    static std::shared_ptr<zamclientlib::IZamControl> Connect(std::chrono::seconds timeout = 60s) {
        return zamclientlib::GetZamControl(timeout, false, nullptr);
    }

    static zamclientlib::SZamControlOwnerInfo Owner() {
        zamclientlib::SZamControlOwnerInfo owner;
        owner.Id = apigen::Guid::Deserialize("{11111111-2222-3333-4444-555555555555}");
        owner.Name = "tester";
        owner.Type = zamclientlib::ZAMOwnerType::Local;
        owner.Mode = zamclientlib::ZAMOwnerMode::Exclusive;
        return owner;
    }

    static zamclientlib::SZamControlOwnerInfo OtherOwner() {
        auto owner = Owner();
        owner.Id.Data1 = 7;
        owner.Name = "another";
        return owner;
    }

    static zamclientlib::SBackupRepositoryInfo LocalRepository(const std::string& name) {
        zamclientlib::SBackupRepositoryInfo repository;
        repository.Name = name;
        repository.Type = zamclientlib::BackupTargetType::LocalFolder;
        repository.Location = "/srv/" + name;
        return repository;
    }

    static zamclientlib::SBackupJobConfigurationInfo JobConfig(const std::string& name,
                                                               const apigen::Guid& repository) {
        zamclientlib::SBackupJobConfigurationInfo config;
        config.JobName = name;
        config.RepositoryId = repository;
        config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
        config.Source.IncludeDirs = {"/etc"};
        return config;
    }

    /// A job with a repository of its own.
    static std::shared_ptr<zamclientlib::IBackupJob> MakeJob(zamclientlib::IZamProduct& product,
                                                             const std::string& name) {
        const auto repository = product.GetRepositoryManager()->CreateRepository(LocalRepository(name));
        return product.CreateBackupJob(JobConfig(name, repository.Id));
    }

private:
    std::string m_scriptPath;
};

}  // namespace tests
