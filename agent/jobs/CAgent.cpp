// SPDX-License-Identifier: Apache-2.0
// The agent's face. What only reads stands here; what changes something, behind it.
#include "agent/jobs/CAgent.h"

#include <utility>

#include "agent/core/Sessions.h"
#include "agent/host/Mounts.h"
#include "agent/jobs/CAgentImpl.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

CAgent::CAgent(const SFolders& folders, const SWorkSettings& settings, std::shared_ptr<IEngine> engine,
               const IClock& clock, ILog& log)
    : m_impl(std::make_unique<Impl>(folders, settings, std::move(engine), clock, log)) {}

CAgent::~CAgent() = default;

void CAgent::Start() {
    m_impl->Start();
}
void CAgent::Reload(const SWorkSettings& settings) {
    m_impl->Reload(settings);
}
void CAgent::ClockChanged() noexcept {
    m_impl->Wake();
}
void CAgent::Stop() noexcept {
    m_impl->Stop();
}

// Control

GrantPtr CAgent::RequestControl(const SPeer& peer, const SZamControlOwnerInfo& owner, bool isForced) {
    return m_impl->RequestControl(peer, owner, isForced);
}
void CAgent::ReleaseControl(const SPeer& peer, const SZamControlOwnerInfo& owner) {
    m_impl->ReleaseControl(peer, owner.Id);
}
void CAgent::SetOwnerMode(const SPeer& peer, const Guid& owner, ZAMOwnerMode mode) {
    m_impl->SetOwnerMode(peer, owner, mode);
}
SZamControlOwnerInfo CAgent::CurrentOwner() const {
    const auto lock = m_impl->LockState();
    return m_impl->m_control.Owner();
}
Guid CAgent::SessionId() const {
    return m_impl->m_sessionId;
}
SZamProductInfo CAgent::ProductInfo() const {
    static const Guid product = Guid::Deserialize("{5b0e1c52-9c1d-4a53-8d0e-2f6f0b9ad001}");
    return {m_impl->m_instance, product, "tarvod", ZAM_VERSION};
}
SEventConfig CAgent::EventConfig() const {
    return m_impl->m_events->Config();
}
void CAgent::GrabLogs(const SPeer& peer, const std::string& path) const {
    m_impl->GrabLogs(peer, path);
}

// The product

std::vector<SResolveObjectInfo> CAgent::ResolveUserInput(
    const std::vector<SVolumeBackupObject>& objects) const {
    std::vector<SResolveObjectInfo> resolved;
    resolved.reserve(objects.size());
    for (const auto& object : objects) {
        resolved.push_back(Resolve(object));
    }
    return resolved;
}
void CAgent::SetSchedulerAllowed(const SCaller& caller, bool isAllowed) {
    m_impl->SetSchedulerAllowed(caller, isAllowed);
}
bool CAgent::IsSchedulerAllowed() const {
    const auto lock = m_impl->LockState();
    return m_impl->m_isSchedulerAllowed;
}

// Jobs

bool CAgent::HasJob(const Guid& id) const {
    const auto lock = m_impl->LockState();
    return FindById(m_impl->m_jobs, id) != nullptr;
}
std::vector<Guid> CAgent::Jobs() const {
    const auto lock = m_impl->LockState();
    std::vector<Guid> ids;
    for (const auto& job : m_impl->m_jobs) {
        ids.push_back(job.Id);
    }
    return ids;
}
Guid CAgent::CreateJob(const SCaller& caller, const SBackupJobConfigurationInfo& config) {
    return m_impl->CreateJob(caller, config);
}
bool CAgent::DeleteJob(const SCaller& caller, const Guid& id) {
    return m_impl->DeleteJob(caller, id);
}
SBackupJobInfo CAgent::JobInfo(const Guid& id) const {
    const SJob job = m_impl->RequireJob(id);
    SBackupJobInfo info{job.Id, job.Config.JobName, job.IsEnabled, {}};
    if (job.LastBackup) info.LastBackupTimeUtc = ToRecord(*job.LastBackup);
    return info;
}
SJobStartOptions CAgent::DefaultStartOptions(const Guid& id) const {
    return DefaultOptionsOf(m_impl->RequireJob(id).Config);
}
Guid CAgent::StartJob(const SCaller& caller, const Guid& id, const SJobStartOptions& options) {
    return m_impl->StartJob(caller, id, options);
}
bool CAgent::SetEnabled(const SCaller& caller, const Guid& id, bool isEnabled) {
    return m_impl->SetEnabled(caller, id, isEnabled);
}
SBackupJobConfigurationInfo CAgent::Configuration(const Guid& id) const {
    return m_impl->RequireJob(id).Config;
}
void CAgent::UpdateJob(const SCaller& caller, const Guid& id, const SBackupJobConfigurationInfo& config) {
    m_impl->UpdateJob(caller, id, config);
}
std::vector<SCheckJobValidityMessage> CAgent::CheckValidity(const Guid& id) const {
    return m_impl->CheckValidity(id);
}
std::string CAgent::UserData(const Guid& id) const {
    return m_impl->RequireJob(id).Config.UserData;
}
void CAgent::SetUserData(const SCaller& caller, const Guid& id, const std::string& userData) {
    m_impl->SetUserData(caller, id, userData);
}
std::vector<SRestoreOib> CAgent::PointsForRestore(const Guid& id) const {
    m_impl->RequireJob(id);
    return m_impl->Read([&](const CStore& past) {
        std::vector<SRestoreOib> points;
        std::set<int> lost;
        for (const auto& chain : past.ChainsOf(id)) {
            if (chain.State == EChainState::Lost) lost.insert(chain.Number);
        }
        for (const auto& point : past.PointsOf(id)) {
            if (lost.contains(point.Chain)) continue;
            points.push_back(
                {point.Id, ToRecord(point.Created), point.SourceBytes, point.StoredBytes, point.Type});
        }
        return points;
    });
}

// Sessions

std::vector<Guid> CAgent::SessionsOf(const Guid& job) const {
    m_impl->RequireJob(job);
    return m_impl->Read([&](const CStore& past) { return past.SessionsOf(job); });
}
std::vector<Guid> CAgent::SessionsSince(const Guid& job, long usn) const {
    m_impl->RequireJob(job);
    return m_impl->Read([&](const CStore& past) { return past.SessionsSince(job, usn); });
}
std::optional<Guid> CAgent::LastSessionOf(const Guid& job) const {
    m_impl->RequireJob(job);
    return m_impl->Read([&](const CStore& past) { return past.LastSessionOf(job); });
}
bool CAgent::HasSession(const Guid& id) const {
    return m_impl->HasSession(id);
}
SBackupJobSessionInfo CAgent::SessionInfo(const Guid& id) const {
    return m_impl->SessionInfo(id);
}
bool CAgent::StopSession(const SCaller& caller, const Guid& id, const std::string& message) {
    return m_impl->StopSession(caller, id, message);
}

// Places for backups

SBackupRepositoryInfo CAgent::CreateRepository(const SCaller& caller, const SBackupRepositoryInfo& info) {
    return m_impl->CreateRepository(caller, info);
}
SBackupRepositoryInfo CAgent::UpdateRepository(const SCaller& caller, const SBackupRepositoryInfo& info) {
    return m_impl->UpdateRepository(caller, info);
}
void CAgent::DeleteRepository(const SCaller& caller, const Guid& id) {
    m_impl->DeleteRepository(caller, id);
}
bool CAgent::CanRepositoryBeDeleted(const Guid& id) const {
    return m_impl->CanRepositoryBeDeleted(id);
}
std::vector<SBackupRepositoryInfo> CAgent::Repositories() const {
    return m_impl->All<SBackupRepositoryInfo>();
}
apigen::Optional<SBackupRepositoryInfo> CAgent::FindRepository(const Guid& id) const {
    return m_impl->Find<SBackupRepositoryInfo>(id);
}
apigen::Optional<SBackupRepositorySizeInfo> CAgent::RepositorySize(const Guid& id) const {
    return m_impl->RepositorySize(id);
}

SBackupServerInfo CAgent::AddServer(const SCaller& caller, const SBackupServerInfo& info) {
    return m_impl->Add(caller, info);
}
void CAgent::UpdateServer(const SCaller& caller, const SBackupServerInfo& info) {
    m_impl->Update(caller, info);
}
bool CAgent::DeleteServer(const SCaller& caller, const Guid& id) {
    return m_impl->Delete<SBackupServerInfo>(caller, id);
}
void CAgent::ResyncServer(const SCaller& caller, const Guid& id) {
    m_impl->RefuseResync<SBackupServerInfo>(caller, id);
}
std::vector<SBackupServerInfo> CAgent::Servers() const {
    return m_impl->All<SBackupServerInfo>();
}
apigen::Optional<SBackupServerInfo> CAgent::FindServer(const Guid& id) const {
    return m_impl->Find<SBackupServerInfo>(id);
}

SCloudServiceProviderInfo CAgent::AddProvider(const SCaller& caller, const SCloudServiceProviderInfo& info) {
    return m_impl->Add(caller, info);
}
void CAgent::UpdateProvider(const SCaller& caller, const SCloudServiceProviderInfo& info) {
    m_impl->Update(caller, info);
}
bool CAgent::DeleteProvider(const SCaller& caller, const Guid& id) {
    return m_impl->Delete<SCloudServiceProviderInfo>(caller, id);
}
void CAgent::ResyncProvider(const SCaller& caller, const Guid& id) {
    m_impl->RefuseResync<SCloudServiceProviderInfo>(caller, id);
}
std::vector<SCloudServiceProviderInfo> CAgent::Providers() const {
    return m_impl->All<SCloudServiceProviderInfo>();
}
apigen::Optional<SCloudServiceProviderInfo> CAgent::FindProvider(const Guid& id) const {
    return m_impl->Find<SCloudServiceProviderInfo>(id);
}
std::vector<SGatewayInfo> CAgent::GatewaysOf(const Guid& provider) const {
    const auto found = m_impl->Find<SCloudServiceProviderInfo>(provider);
    if (!found) throw CGenericException("There is no cloud service provider " + provider.Serialize());
    // Nobody has asked the provider yet: what is known is where it is to be reached.
    std::vector<SGatewayInfo> gateways;
    for (const auto& endpoint : found->Connection) {
        gateways.push_back({endpoint, static_cast<unsigned short>(gateways.size() + 1)});
    }
    return gateways;
}

}  // namespace tarvo
