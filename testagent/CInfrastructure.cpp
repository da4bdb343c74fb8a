// SPDX-License-Identifier: Apache-2.0
// The managers of repositories, backup servers and cloud service providers.
#include <algorithm>
#include <utility>

#include "testagent/Objects.h"
#include "testagent/Secrets.h"

namespace testagent {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

template <class R>
void CheckName(const std::vector<R>& list, const R& record, const char* kind) {
    if (record.Name.empty()) throw CGenericException("A " + std::string(kind) + " needs a name");
    for (const auto& other : list) {
        if (other.Name == record.Name && other.Id != record.Id) {
            throw CGenericException("There is a " + std::string(kind) + " called " + record.Name +
                                    " already");
        }
    }
}

/// Takes a new record into the list under an id of its own.
template <class R>
const R& Add(std::vector<R>& list, R record, const char* kind) {
    record.Id = Guid::Random();
    CheckName(list, record, kind);
    return list.emplace_back(std::move(record));
}

/// Replaces the record of the same id, whose passwords stay where the new one has none.
template <class R>
const R& Update(std::vector<R>& list, R record, const char* kind) {
    R& current = RequireById(list, record.Id, kind);
    CheckName(list, record, kind);
    KeepSecrets(record, current);
    return current = std::move(record);
}

template <class R>
std::vector<R> AllWithoutSecrets(const std::vector<R>& list) {
    std::vector<R> shown = list;
    for (auto& record : shown) {
        RemoveSecrets(record);
    }
    return shown;
}

template <class R>
apigen::Optional<R> Find(const std::vector<R>& list, const Guid& id) {
    const R* const found = FindById(list, id);
    if (found == nullptr) return {};
    return WithoutSecrets(*found);
}

/// The name, or what it becomes with a number behind it when another has it.
template <class R>
std::string FreeName(const std::vector<R>& list, const std::string& wanted) {
    const auto isTaken = [&](const std::string& name) {
        return std::any_of(list.begin(), list.end(), [&](const R& record) { return record.Name == name; });
    };
    std::string name = wanted;
    for (int number = 2; isTaken(name); ++number)
        name = wanted + " " + std::to_string(number);
    return name;
}

/// Makes sure of the repository that a server or provider offers.
void Resync(CAgent& agent, const Guid& server, const std::string& name, BackupTargetType type) {
    for (const auto& repository : agent.Repositories) {
        if (repository.ServerId == apigen::Optional<Guid>(server)) return;
    }
    SBackupRepositoryInfo repository;
    repository.Id = Guid::Random();
    repository.Name = FreeName(agent.Repositories, name + " repository");
    repository.OriginalName = std::string("Default repository");
    repository.Type = type;
    repository.ServerId = server;
    agent.Repositories.push_back(repository);
}

/// Removes a server or provider and the repositories that it offered.
template <class R>
bool Delete(CAgent& agent, std::vector<R>& list, const Guid& id, const char* kind) {
    if (FindById(list, id) == nullptr) return false;
    const auto isOffered = [&](const SBackupRepositoryInfo& repository) {
        return repository.ServerId == apigen::Optional<Guid>(id);
    };
    for (const auto& repository : agent.Repositories) {
        if (isOffered(repository) && agent.IsUsed(repository.Id)) {
            throw CGenericException("The " + std::string(kind) + " offers the repository " + repository.Name +
                                    ", which a job uses");
        }
    }
    std::erase_if(agent.Repositories, isOffered);
    std::erase_if(list, [&](const R& record) { return record.Id == id; });
    return true;
}

class CManager {
public:
    CManager(AgentPtr agent, GrantPtr grant) : m_agent(std::move(agent)), m_grant(std::move(grant)) {}

protected:
    std::unique_lock<std::mutex> LockToLook() const { return m_agent->Lock(); }

    std::unique_lock<std::mutex> LockToChange() const {
        auto lock = m_agent->Lock();
        m_agent->RequireChangeBy(*m_grant);
        return lock;
    }

    AgentPtr m_agent;

private:
    GrantPtr m_grant;
};

class CRepositories final : public IRepositoryManager, private CManager {
public:
    using CManager::CManager;

    SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info) override {
        const auto lock = LockToChange();
        CheckLocation(info);
        return WithoutSecrets(Add(m_agent->Repositories, std::move(info), Kind));
    }

    SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info) override {
        const auto lock = LockToChange();
        CheckLocation(info);
        return WithoutSecrets(Update(m_agent->Repositories, std::move(info), Kind));
    }

    void DeleteRepository(Guid repositoryId) override {
        const auto lock = LockToChange();
        const auto& repository = RequireById(m_agent->Repositories, repositoryId, Kind);
        if (m_agent->IsUsed(repositoryId)) {
            throw CGenericException("A job uses the repository " + repository.Name);
        }
        std::erase_if(m_agent->Repositories, [&](const auto& each) { return each.Id == repositoryId; });
    }

    bool CanBeDeleted(Guid repositoryId) const override {
        const auto lock = LockToLook();
        return FindById(m_agent->Repositories, repositoryId) != nullptr && !m_agent->IsUsed(repositoryId);
    }

    std::vector<SBackupRepositoryInfo> GetRepositories() const override {
        const auto lock = LockToLook();
        return AllWithoutSecrets(m_agent->Repositories);
    }

    apigen::Optional<SBackupRepositoryInfo> FindRepository(Guid repositoryId) const override {
        const auto lock = LockToLook();
        return Find(m_agent->Repositories, repositoryId);
    }

    apigen::Optional<SBackupRepositorySizeInfo> RequestSizeInfo(Guid repositoryId) const override {
        constexpr long Capacity = 1L << 40;
        const auto lock = LockToLook();
        if (FindById(m_agent->Repositories, repositoryId) == nullptr) return {};
        long used = 0;
        for (const auto& job : m_agent->Jobs) {
            if (job->Config.RepositoryId != repositoryId) continue;
            for (const auto& point : job->RestorePoints) {
                used += static_cast<long>(point.StorageSize);
            }
        }
        return SBackupRepositorySizeInfo{Capacity, Capacity - used};
    }

private:
    static constexpr const char* Kind = "repository";

    static void CheckLocation(const SBackupRepositoryInfo& info) {
        if (info.Type == BackupTargetType::LocalFolder && info.Location.empty()) {
            throw CGenericException("A repository in a local folder needs a location");
        }
    }
};

class CServers final : public IBackupServerManager, private CManager {
public:
    using CManager::CManager;

    SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo) override {
        const auto lock = LockToChange();
        return WithoutSecrets(Add(m_agent->Servers, std::move(serverInfo), Kind));
    }

    bool DeleteBackupServer(Guid backupServerId) override {
        const auto lock = LockToChange();
        return Delete(*m_agent, m_agent->Servers, backupServerId, Kind);
    }

    void ResyncBackupServerRepositoriesList(Guid backupServerId) override {
        const auto lock = LockToChange();
        const auto& server = RequireById(m_agent->Servers, backupServerId, Kind);
        if (!server.OnlyForRestore) Resync(*m_agent, server.Id, server.Name, BackupTargetType::BackupServer);
    }

    std::vector<SBackupServerInfo> GetBackupServers() const override {
        const auto lock = LockToLook();
        return AllWithoutSecrets(m_agent->Servers);
    }

    apigen::Optional<SBackupServerInfo> FindBackupServer(Guid backupServerId) const override {
        const auto lock = LockToLook();
        return Find(m_agent->Servers, backupServerId);
    }

    void UpdateBackupServer(SBackupServerInfo serverInfo) override {
        const auto lock = LockToChange();
        Update(m_agent->Servers, std::move(serverInfo), Kind);
    }

private:
    static constexpr const char* Kind = "backup server";
};

class CProviders final : public ICloudServiceProviderManager, private CManager {
public:
    using CManager::CManager;

    SCloudServiceProviderInfo AddCloudServiceProvider(
        SCloudServiceProviderInfo serviceProviderInfo) override {
        const auto lock = LockToChange();
        return WithoutSecrets(Add(m_agent->Providers, std::move(serviceProviderInfo), Kind));
    }

    bool DeleteCloudServiceProvider(Guid cloudServiceProviderId) override {
        const auto lock = LockToChange();
        return Delete(*m_agent, m_agent->Providers, cloudServiceProviderId, Kind);
    }

    void ResyncCloudRepositoriesList(Guid cloudServiceProviderId) override {
        const auto lock = LockToChange();
        const auto& provider = RequireById(m_agent->Providers, cloudServiceProviderId, Kind);
        Resync(*m_agent, provider.Id, provider.Name, BackupTargetType::Cloud);
    }

    std::vector<SCloudServiceProviderInfo> GetCloudServiceProviders() const override {
        const auto lock = LockToLook();
        return AllWithoutSecrets(m_agent->Providers);
    }

    apigen::Optional<SCloudServiceProviderInfo> FindCloudServiceProvider(
        Guid cloudServiceProviderId) const override {
        const auto lock = LockToLook();
        return Find(m_agent->Providers, cloudServiceProviderId);
    }

    void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo) override {
        const auto lock = LockToChange();
        Update(m_agent->Providers, std::move(cloudServiceInfo), Kind);
    }

    std::vector<SGatewayInfo> GetCloudServiceProviderGateways(Guid cloudServiceProviderId) const override {
        const auto lock = LockToLook();
        std::vector<SGatewayInfo> gateways;
        for (const auto& endpoint :
             RequireById(m_agent->Providers, cloudServiceProviderId, Kind).Connection) {
            gateways.push_back({endpoint, static_cast<unsigned short>(gateways.size() + 1)});
        }
        return gateways;
    }

private:
    static constexpr const char* Kind = "cloud service provider";
};

}  // namespace

std::shared_ptr<IRepositoryManager> MakeRepositoryManager(AgentPtr agent, GrantPtr grant) {
    return std::make_shared<CRepositories>(std::move(agent), std::move(grant));
}

std::shared_ptr<IBackupServerManager> MakeServerManager(AgentPtr agent, GrantPtr grant) {
    return std::make_shared<CServers>(std::move(agent), std::move(grant));
}

std::shared_ptr<ICloudServiceProviderManager> MakeProviderManager(AgentPtr agent, GrantPtr grant) {
    return std::make_shared<CProviders>(std::move(agent), std::move(grant));
}

}  // namespace testagent
