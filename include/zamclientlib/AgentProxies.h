// SPDX-License-Identifier: Apache-2.0
/// \file
/// The client's side of the agent's interfaces: objects of a service at the other end of an invoker.
#pragma once

#include <apigen/Export.h>
#include <apigen/ProxyBase.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Jobs.h>
#include <zamclientlib/Managers.h>

#include <memory>
#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// The agent's root object at the other end of an invoker.
class IZamControl_Proxy final : public IZamControl, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo owner, bool force) override;
    void ReleaseControl(SZamControlOwnerInfo owner) override;
    SZamProductInfo GetProductInfo() const override;
    void SetOwnerMode(apigen::Guid ownerId, ZAMOwnerMode mode) override;
    SZamControlOwnerInfo GetCurrentOwner() const override;
    SEventConfig GetEventConfig() const override;
    apigen::Guid GetSessionId() const override;
    bool IsOsxFDAGranted() const override;
    void GrabLogs(std::string path) const override;
};

/// The agent's product object at the other end of an invoker.
class IZamProduct_Proxy final : public IZamProduct, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    std::shared_ptr<IBackupJob> FindBackupJob(apigen::Guid jobId) const override;
    std::vector<std::shared_ptr<IBackupJob>> GetBackupJobs() const override;
    std::shared_ptr<IBackupJob> CreateBackupJob(SBackupJobConfigurationInfo config) override;
    bool DeleteBackupJob(apigen::Guid obId) override;
    std::shared_ptr<IBackupJobSession> FindBackupJobSessionById(apigen::Guid sessionId) const override;
    void SetSchedulerPermissionToRunJobs(bool isAllowed) override;
    bool IsSchedulerAllowedToRunJobs() override;
    std::shared_ptr<IBackupServerManager> GetBackupServerManager() const override;
    std::shared_ptr<ICloudServiceProviderManager> GetCloudServiceProviderManager() const override;
    std::shared_ptr<IRepositoryManager> GetRepositoryManager() const override;
    std::vector<SResolveObjectInfo> ResolveUserInput(std::vector<SVolumeBackupObject> objects) const override;
    apigen::Guid GetSessionId() const override;
};

/// A backup job at the other end of an invoker.
class IBackupJob_Proxy final : public IBackupJob, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SBackupJobInfo GetInfo() const override;
    SJobStartOptions GetDefaultJobStartOptions() const override;
    std::shared_ptr<IBackupJobSession> Start(SJobStartOptions options) override;
    bool Enable() override;
    bool Disable() override;
    SBackupJobConfigurationInfo GetConfigurationInfo() const override;
    void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo) override;
    std::vector<SCheckJobValidityMessage> CheckValidity() const override;
    std::string GetUserData() const override;
    void SetUserData(std::string userData) override;
    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions() const override;
    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions(usn_t usn) const override;
    std::shared_ptr<IBackupJobSession> FindLastBackupJobSession() const override;
    std::vector<SRestoreOib> GetOibsForRestore() const override;
};

/// A session of a backup job at the other end of an invoker.
class IBackupJobSession_Proxy final : public IBackupJobSession, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SBackupJobSessionInfo GetInfo() const override;
    bool Stop(std::string message) override;
};

/// The repositories at the other end of an invoker.
class IRepositoryManager_Proxy final : public IRepositoryManager, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info) override;
    SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info) override;
    void DeleteRepository(apigen::Guid repositoryId) override;
    bool CanBeDeleted(apigen::Guid repositoryId) const override;
    std::vector<SBackupRepositoryInfo> GetRepositories() const override;
    apigen::Optional<SBackupRepositoryInfo> FindRepository(apigen::Guid repositoryId) const override;
    apigen::Optional<SBackupRepositorySizeInfo> RequestSizeInfo(apigen::Guid repositoryId) const override;
};

/// The backup servers at the other end of an invoker.
class IBackupServerManager_Proxy final : public IBackupServerManager, public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo) override;
    bool DeleteBackupServer(apigen::Guid backupServerId) override;
    void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId) override;
    std::vector<SBackupServerInfo> GetBackupServers() const override;
    apigen::Optional<SBackupServerInfo> FindBackupServer(apigen::Guid backupServerId) const override;
    void UpdateBackupServer(SBackupServerInfo serverInfo) override;
};

/// The cloud service providers at the other end of an invoker.
class ICloudServiceProviderManager_Proxy final : public ICloudServiceProviderManager,
                                                 public apigen::ProxyBase {
public:
    using apigen::ProxyBase::ProxyBase;

    SCloudServiceProviderInfo AddCloudServiceProvider(SCloudServiceProviderInfo serviceProviderInfo) override;
    bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) override;
    void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId) override;
    std::vector<SCloudServiceProviderInfo> GetCloudServiceProviders() const override;
    apigen::Optional<SCloudServiceProviderInfo> FindCloudServiceProvider(
        apigen::Guid cloudServiceProviderId) const override;
    void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo) override;
    std::vector<SGatewayInfo> GetCloudServiceProviderGateways(
        apigen::Guid cloudServiceProviderId) const override;
};

}  // namespace zamclientlib
