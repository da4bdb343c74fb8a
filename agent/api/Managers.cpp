// SPDX-License-Identifier: Apache-2.0
// The managers of repositories, backup servers and cloud service providers.
#include <utility>

#include "agent/api/Objects.h"

namespace tarvo::api {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// What every manager has.
class CManager {
protected:
    CManager(CAgent& agent, SCaller caller) : m_agent(agent), m_caller(std::move(caller)) {}

    CAgent& m_agent;
    SCaller m_caller;
};

class CRepositories final : public IRepositoryManager, private CManager {
public:
    CRepositories(CAgent& agent, SCaller caller) : CManager(agent, std::move(caller)) {}

    SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info) override {
        return m_agent.CreateRepository(m_caller, info);
    }
    SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info) override {
        return m_agent.UpdateRepository(m_caller, info);
    }
    void DeleteRepository(Guid repositoryId) override { m_agent.DeleteRepository(m_caller, repositoryId); }
    bool CanBeDeleted(Guid repositoryId) const override {
        return m_agent.CanRepositoryBeDeleted(repositoryId);
    }
    std::vector<SBackupRepositoryInfo> GetRepositories() const override { return m_agent.Repositories(); }
    apigen::Optional<SBackupRepositoryInfo> FindRepository(Guid repositoryId) const override {
        return m_agent.FindRepository(repositoryId);
    }
    apigen::Optional<SBackupRepositorySizeInfo> RequestSizeInfo(Guid repositoryId) const override {
        return m_agent.RepositorySize(repositoryId);
    }
};

class CServers final : public IBackupServerManager, private CManager {
public:
    CServers(CAgent& agent, SCaller caller) : CManager(agent, std::move(caller)) {}

    SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo) override {
        return m_agent.AddServer(m_caller, serverInfo);
    }
    bool DeleteBackupServer(Guid backupServerId) override {
        return m_agent.DeleteServer(m_caller, backupServerId);
    }
    void ResyncBackupServerRepositoriesList(Guid backupServerId) override {
        m_agent.ResyncServer(m_caller, backupServerId);
    }
    std::vector<SBackupServerInfo> GetBackupServers() const override { return m_agent.Servers(); }
    apigen::Optional<SBackupServerInfo> FindBackupServer(Guid backupServerId) const override {
        return m_agent.FindServer(backupServerId);
    }
    void UpdateBackupServer(SBackupServerInfo serverInfo) override {
        m_agent.UpdateServer(m_caller, serverInfo);
    }
};

class CProviders final : public ICloudServiceProviderManager, private CManager {
public:
    CProviders(CAgent& agent, SCaller caller) : CManager(agent, std::move(caller)) {}

    SCloudServiceProviderInfo AddCloudServiceProvider(
        SCloudServiceProviderInfo serviceProviderInfo) override {
        return m_agent.AddProvider(m_caller, serviceProviderInfo);
    }
    bool DeleteCloudServiceProvider(Guid cloudServiceProviderId) override {
        return m_agent.DeleteProvider(m_caller, cloudServiceProviderId);
    }
    void ResyncCloudRepositoriesList(Guid cloudServiceProviderId) override {
        m_agent.ResyncProvider(m_caller, cloudServiceProviderId);
    }
    std::vector<SCloudServiceProviderInfo> GetCloudServiceProviders() const override {
        return m_agent.Providers();
    }
    apigen::Optional<SCloudServiceProviderInfo> FindCloudServiceProvider(
        Guid cloudServiceProviderId) const override {
        return m_agent.FindProvider(cloudServiceProviderId);
    }
    void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo) override {
        m_agent.UpdateProvider(m_caller, cloudServiceInfo);
    }
    std::vector<SGatewayInfo> GetCloudServiceProviderGateways(Guid cloudServiceProviderId) const override {
        return m_agent.GatewaysOf(cloudServiceProviderId);
    }
};

}  // namespace

std::shared_ptr<IRepositoryManager> MakeRepositoryManager(CAgent& agent, SCaller caller) {
    return std::make_shared<CRepositories>(agent, std::move(caller));
}

std::shared_ptr<IBackupServerManager> MakeServerManager(CAgent& agent, SCaller caller) {
    return std::make_shared<CServers>(agent, std::move(caller));
}

std::shared_ptr<ICloudServiceProviderManager> MakeProviderManager(CAgent& agent, SCaller caller) {
    return std::make_shared<CProviders>(agent, std::move(caller));
}

}  // namespace tarvo::api
