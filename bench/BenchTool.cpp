// SPDX-License-Identifier: Apache-2.0
/// \file
/// An agent that does nothing, for measuring what a call costs. Who requests control says by the first number
/// of the owner's identifier how long the lists of the product shall be.
#include <zamservice/Service.h>

#include "bench/Samples.h"

namespace {

using namespace zamclientlib;
using apigen::Guid;
using apigen::Optional;

class CIdleSession final : public IBackupJobSession {
public:
    SBackupJobSessionInfo GetInfo() const override { return {}; }
    bool Stop(std::string /*message*/) override { return false; }
};

class CIdleJob final : public IBackupJob {
public:
    explicit CIdleJob(std::size_t size) : m_sessions(size, std::make_shared<CIdleSession>()) {}

    SBackupJobInfo GetInfo() const override { return {}; }
    SJobStartOptions GetDefaultJobStartOptions() const override { return {}; }
    std::shared_ptr<IBackupJobSession> Start(SJobStartOptions /*options*/) override { return nullptr; }
    bool Enable() override { return true; }
    bool Disable() override { return true; }
    SBackupJobConfigurationInfo GetConfigurationInfo() const override { return {}; }
    void UpdateConfigurationInfo(SBackupJobConfigurationInfo /*configInfo*/) override {}
    std::vector<SCheckJobValidityMessage> CheckValidity() const override { return {}; }
    std::string GetUserData() const override { return {}; }
    void SetUserData(std::string /*userData*/) override {}
    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions() const override {
        return m_sessions;
    }
    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions(usn_t /*usn*/) const override {
        return {};
    }
    std::shared_ptr<IBackupJobSession> FindLastBackupJobSession() const override { return nullptr; }
    std::vector<SRestoreOib> GetOibsForRestore() const override { return {}; }

private:
    std::vector<std::shared_ptr<IBackupJobSession>> m_sessions;
};

class CIdleRepositories final : public IRepositoryManager {
public:
    explicit CIdleRepositories(std::size_t size) : m_size(size) {}

    SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info) override { return info; }
    SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info) override { return info; }
    void DeleteRepository(Guid /*repositoryId*/) override {}
    bool CanBeDeleted(Guid /*repositoryId*/) const override { return false; }
    std::vector<SBackupRepositoryInfo> GetRepositories() const override {
        return zambench::Samples<SBackupRepositoryInfo>(m_size);
    }
    Optional<SBackupRepositoryInfo> FindRepository(Guid /*repositoryId*/) const override { return {}; }
    Optional<SBackupRepositorySizeInfo> RequestSizeInfo(Guid /*repositoryId*/) const override { return {}; }

private:
    std::size_t m_size;
};

class CIdleProduct final : public IZamProduct {
public:
    explicit CIdleProduct(std::size_t size) : m_size(size) {}

    std::shared_ptr<IBackupJob> FindBackupJob(Guid /*jobId*/) const override {
        return std::make_shared<CIdleJob>(m_size);
    }
    std::vector<std::shared_ptr<IBackupJob>> GetBackupJobs() const override { return {}; }
    std::shared_ptr<IBackupJob> CreateBackupJob(SBackupJobConfigurationInfo /*config*/) override {
        return nullptr;
    }
    bool DeleteBackupJob(Guid /*obId*/) override { return false; }
    std::shared_ptr<IBackupJobSession> FindBackupJobSessionById(Guid /*sessionId*/) const override {
        return nullptr;
    }
    void SetSchedulerPermissionToRunJobs(bool /*isAllowed*/) override {}
    bool IsSchedulerAllowedToRunJobs() override { return false; }
    std::shared_ptr<IBackupServerManager> GetBackupServerManager() const override { return nullptr; }
    std::shared_ptr<ICloudServiceProviderManager> GetCloudServiceProviderManager() const override {
        return nullptr;
    }
    std::shared_ptr<IRepositoryManager> GetRepositoryManager() const override {
        return std::make_shared<CIdleRepositories>(m_size);
    }
    std::vector<SResolveObjectInfo> ResolveUserInput(
        std::vector<SVolumeBackupObject> /*objects*/) const override {
        return {};
    }
    Guid GetSessionId() const override { return zambench::IdOf(1); }

private:
    std::size_t m_size;
};

class CIdleControl final : public IZamControl {
public:
    std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo owner, bool /*force*/) override {
        return std::make_shared<CIdleProduct>(owner.Id.Data1);
    }
    void ReleaseControl(SZamControlOwnerInfo /*owner*/) override {}
    SZamProductInfo GetProductInfo() const override { return {}; }
    void SetOwnerMode(Guid /*ownerId*/, ZAMOwnerMode /*mode*/) override {}
    SZamControlOwnerInfo GetCurrentOwner() const override { return {}; }
    SEventConfig GetEventConfig() const override { return {}; }
    Guid GetSessionId() const override { return zambench::IdOf(1); }
    bool IsOsxFDAGranted() const override { return false; }
    void GrabLogs(std::string /*path*/) const override {}
};

}  // namespace

int main() {
    return zamservice::ServeStandardStreams(
        [] { return zamservice::CService(std::make_shared<CIdleControl>()); });
}
