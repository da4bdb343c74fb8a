// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/AgentProxies.h>

#include "src/AgentMethods.h"
#include "src/ProxyCall.h"

namespace zamclientlib {

template <>
struct ProxyOf<IZamControl> {
    using Type = IZamControl_Proxy;
};

template <>
struct ProxyOf<IZamProduct> {
    using Type = IZamProduct_Proxy;
};

std::shared_ptr<IZamProduct> IZamControl_Proxy::RequestControl(SZamControlOwnerInfo owner, bool force) {
    return Call(*this, control::RequestControl, owner, force);
}

void IZamControl_Proxy::ReleaseControl(SZamControlOwnerInfo owner) {
    return Call(*this, control::ReleaseControl, owner);
}

SZamProductInfo IZamControl_Proxy::GetProductInfo() const {
    return Call(*this, control::GetProductInfo);
}

void IZamControl_Proxy::SetOwnerMode(apigen::Guid ownerId, ZAMOwnerMode mode) {
    return Call(*this, control::SetOwnerMode, ownerId, mode);
}

SZamControlOwnerInfo IZamControl_Proxy::GetCurrentOwner() const {
    return Call(*this, control::GetCurrentOwner);
}

SEventConfig IZamControl_Proxy::GetEventConfig() const {
    return Call(*this, control::GetEventConfig);
}

apigen::Guid IZamControl_Proxy::GetSessionId() const {
    return Call(*this, control::GetSessionId);
}

bool IZamControl_Proxy::IsOsxFDAGranted() const {
    return Call(*this, control::IsOsxFDAGranted);
}

void IZamControl_Proxy::GrabLogs(std::string path) const {
    return Call(*this, control::GrabLogs, path);
}

std::shared_ptr<IBackupJob> IZamProduct_Proxy::FindBackupJob(apigen::Guid jobId) const {
    return Call(*this, product::FindBackupJob, jobId);
}

std::vector<std::shared_ptr<IBackupJob>> IZamProduct_Proxy::GetBackupJobs() const {
    return Call(*this, product::GetBackupJobs);
}

std::shared_ptr<IBackupJob> IZamProduct_Proxy::CreateBackupJob(SBackupJobConfigurationInfo config) {
    return Call(*this, product::CreateBackupJob, config);
}

bool IZamProduct_Proxy::DeleteBackupJob(apigen::Guid obId) {
    return Call(*this, product::DeleteBackupJob, obId);
}

std::shared_ptr<IBackupJobSession> IZamProduct_Proxy::FindBackupJobSessionById(apigen::Guid sessionId) const {
    return Call(*this, product::FindBackupJobSessionById, sessionId);
}

void IZamProduct_Proxy::SetSchedulerPermissionToRunJobs(bool isAllowed) {
    return Call(*this, product::SetSchedulerPermissionToRunJobs, isAllowed);
}

bool IZamProduct_Proxy::IsSchedulerAllowedToRunJobs() {
    return Call(*this, product::IsSchedulerAllowedToRunJobs);
}

std::shared_ptr<IBackupServerManager> IZamProduct_Proxy::GetBackupServerManager() const {
    return Call(*this, product::GetBackupServerManager);
}

std::shared_ptr<ICloudServiceProviderManager> IZamProduct_Proxy::GetCloudServiceProviderManager() const {
    return Call(*this, product::GetCloudServiceProviderManager);
}

std::shared_ptr<IRepositoryManager> IZamProduct_Proxy::GetRepositoryManager() const {
    return Call(*this, product::GetRepositoryManager);
}

std::vector<SResolveObjectInfo> IZamProduct_Proxy::ResolveUserInput(
    std::vector<SVolumeBackupObject> objects) const {
    return Call(*this, product::ResolveUserInput, objects);
}

apigen::Guid IZamProduct_Proxy::GetSessionId() const {
    return Call(*this, product::GetSessionId);
}

template <>
struct ProxyOf<IBackupJob> {
    using Type = IBackupJob_Proxy;
};

template <>
struct ProxyOf<IBackupJobSession> {
    using Type = IBackupJobSession_Proxy;
};

SBackupJobInfo IBackupJob_Proxy::GetInfo() const {
    return Call(*this, job::GetInfo);
}

SJobStartOptions IBackupJob_Proxy::GetDefaultJobStartOptions() const {
    return Call(*this, job::GetDefaultJobStartOptions);
}

std::shared_ptr<IBackupJobSession> IBackupJob_Proxy::Start(SJobStartOptions options) {
    return Call(*this, job::Start, options);
}

bool IBackupJob_Proxy::Enable() {
    return Call(*this, job::Enable);
}

bool IBackupJob_Proxy::Disable() {
    return Call(*this, job::Disable);
}

SBackupJobConfigurationInfo IBackupJob_Proxy::GetConfigurationInfo() const {
    return Call(*this, job::GetConfigurationInfo);
}

void IBackupJob_Proxy::UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo) {
    return Call(*this, job::UpdateConfigurationInfo, configInfo);
}

std::vector<SCheckJobValidityMessage> IBackupJob_Proxy::CheckValidity() const {
    return Call(*this, job::CheckValidity);
}

std::string IBackupJob_Proxy::GetUserData() const {
    return Call(*this, job::GetUserData);
}

void IBackupJob_Proxy::SetUserData(std::string userData) {
    return Call(*this, job::SetUserData, userData);
}

std::vector<std::shared_ptr<IBackupJobSession>> IBackupJob_Proxy::GetBackupJobSessions() const {
    return Call(*this, job::GetBackupJobSessions);
}

std::vector<std::shared_ptr<IBackupJobSession>> IBackupJob_Proxy::GetBackupJobSessions(usn_t usn) const {
    return Call(*this, job::GetBackupJobSessionsSince, usn);
}

std::shared_ptr<IBackupJobSession> IBackupJob_Proxy::FindLastBackupJobSession() const {
    return Call(*this, job::FindLastBackupJobSession);
}

std::vector<SRestoreOib> IBackupJob_Proxy::GetOibsForRestore() const {
    return Call(*this, job::GetOibsForRestore);
}

SBackupJobSessionInfo IBackupJobSession_Proxy::GetInfo() const {
    return Call(*this, session::GetInfo);
}

bool IBackupJobSession_Proxy::Stop(std::string message) {
    return Call(*this, session::Stop, message);
}

template <>
struct ProxyOf<IRepositoryManager> {
    using Type = IRepositoryManager_Proxy;
};

template <>
struct ProxyOf<IBackupServerManager> {
    using Type = IBackupServerManager_Proxy;
};

template <>
struct ProxyOf<ICloudServiceProviderManager> {
    using Type = ICloudServiceProviderManager_Proxy;
};

SBackupRepositoryInfo IRepositoryManager_Proxy::CreateRepository(SBackupRepositoryInfo info) {
    return Call(*this, repositories::CreateRepository, info);
}

SBackupRepositoryInfo IRepositoryManager_Proxy::UpdateRepository(SBackupRepositoryInfo info) {
    return Call(*this, repositories::UpdateRepository, info);
}

void IRepositoryManager_Proxy::DeleteRepository(apigen::Guid repositoryId) {
    return Call(*this, repositories::DeleteRepository, repositoryId);
}

bool IRepositoryManager_Proxy::CanBeDeleted(apigen::Guid repositoryId) const {
    return Call(*this, repositories::CanBeDeleted, repositoryId);
}

std::vector<SBackupRepositoryInfo> IRepositoryManager_Proxy::GetRepositories() const {
    return Call(*this, repositories::GetRepositories);
}

apigen::Optional<SBackupRepositoryInfo> IRepositoryManager_Proxy::FindRepository(
    apigen::Guid repositoryId) const {
    return Call(*this, repositories::FindRepository, repositoryId);
}

apigen::Optional<SBackupRepositorySizeInfo> IRepositoryManager_Proxy::RequestSizeInfo(
    apigen::Guid repositoryId) const {
    return Call(*this, repositories::RequestSizeInfo, repositoryId);
}

SBackupServerInfo IBackupServerManager_Proxy::AddBackupServer(SBackupServerInfo serverInfo) {
    return Call(*this, servers::AddBackupServer, serverInfo);
}

bool IBackupServerManager_Proxy::DeleteBackupServer(apigen::Guid backupServerId) {
    return Call(*this, servers::DeleteBackupServer, backupServerId);
}

void IBackupServerManager_Proxy::ResyncBackupServerRepositoriesList(apigen::Guid backupServerId) {
    return Call(*this, servers::ResyncBackupServerRepositoriesList, backupServerId);
}

std::vector<SBackupServerInfo> IBackupServerManager_Proxy::GetBackupServers() const {
    return Call(*this, servers::GetBackupServers);
}

apigen::Optional<SBackupServerInfo> IBackupServerManager_Proxy::FindBackupServer(
    apigen::Guid backupServerId) const {
    return Call(*this, servers::FindBackupServer, backupServerId);
}

void IBackupServerManager_Proxy::UpdateBackupServer(SBackupServerInfo serverInfo) {
    return Call(*this, servers::UpdateBackupServer, serverInfo);
}

SCloudServiceProviderInfo ICloudServiceProviderManager_Proxy::AddCloudServiceProvider(
    SCloudServiceProviderInfo serviceProviderInfo) {
    return Call(*this, providers::AddCloudServiceProvider, serviceProviderInfo);
}

bool ICloudServiceProviderManager_Proxy::DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) {
    return Call(*this, providers::DeleteCloudServiceProvider, cloudServiceProviderId);
}

void ICloudServiceProviderManager_Proxy::ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId) {
    return Call(*this, providers::ResyncCloudRepositoriesList, cloudServiceProviderId);
}

std::vector<SCloudServiceProviderInfo> ICloudServiceProviderManager_Proxy::GetCloudServiceProviders() const {
    return Call(*this, providers::GetCloudServiceProviders);
}

apigen::Optional<SCloudServiceProviderInfo> ICloudServiceProviderManager_Proxy::FindCloudServiceProvider(
    apigen::Guid cloudServiceProviderId) const {
    return Call(*this, providers::FindCloudServiceProvider, cloudServiceProviderId);
}

void ICloudServiceProviderManager_Proxy::UpdateCloudServiceProvider(
    SCloudServiceProviderInfo cloudServiceInfo) {
    return Call(*this, providers::UpdateCloudServiceProvider, cloudServiceInfo);
}

std::vector<SGatewayInfo> ICloudServiceProviderManager_Proxy::GetCloudServiceProviderGateways(
    apigen::Guid cloudServiceProviderId) const {
    return Call(*this, providers::GetCloudServiceProviderGateways, cloudServiceProviderId);
}

}  // namespace zamclientlib
