// SPDX-License-Identifier: Apache-2.0
/// \file
/// The methods of the agent's interfaces.
#pragma once

#include <zamclientlib/Control.h>
#include <zamclientlib/Jobs.h>
#include <zamclientlib/Managers.h>

#include "src/Method.h"

namespace zamclientlib {

namespace control {
inline constexpr auto RequestControl =
    Describe(&IZamControl::RequestControl, "RequestControl_6119236697561886250",
             "std::shared_ptr< IZamProduct > RequestControl(SZamControlOwnerInfo owner, bool force)", "owner",
             "force");
inline constexpr auto ReleaseControl =
    Describe(&IZamControl::ReleaseControl, "ReleaseControl_7339060124436734195",
             "void ReleaseControl(SZamControlOwnerInfo owner)", "owner");
inline constexpr auto GetProductInfo =
    Describe(&IZamControl::GetProductInfo, "GetProductInfo_4746724914348084655",
             "SZamProductInfo GetProductInfo() const");
inline constexpr auto SetOwnerMode =
    Describe(&IZamControl::SetOwnerMode, "SetOwnerMode_8565242163374302383",
             "void SetOwnerMode(apigen::Guid ownerId, ZAMOwnerMode mode)", "ownerId", "mode");
inline constexpr auto GetCurrentOwner =
    Describe(&IZamControl::GetCurrentOwner, "GetCurrentOwner_11295716727182803303",
             "SZamControlOwnerInfo GetCurrentOwner() const");
inline constexpr auto GetEventConfig =
    Describe(&IZamControl::GetEventConfig, "GetEventConfig_5380351184835268402",
             "SEventConfig GetEventConfig() const");
inline constexpr auto GetSessionId = Describe(&IZamControl::GetSessionId, "GetSessionId_16415403617493696513",
                                              "apigen::Guid GetSessionId() const");
inline constexpr auto IsOsxFDAGranted = Describe(
    &IZamControl::IsOsxFDAGranted, "IsOsxFDAGranted_16988824051704448109", "bool IsOsxFDAGranted() const");
inline constexpr auto GrabLogs = Describe(&IZamControl::GrabLogs, "GrabLogs_7987703423994357771",
                                          "void GrabLogs(std::string path) const", "path");
}  // namespace control

template <>
struct MethodsOf<IZamControl> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(control::RequestControl);
        visit(control::ReleaseControl);
        visit(control::GetProductInfo);
        visit(control::SetOwnerMode);
        visit(control::GetCurrentOwner);
        visit(control::GetEventConfig);
        visit(control::GetSessionId);
        visit(control::IsOsxFDAGranted);
        visit(control::GrabLogs);
    }
};

namespace product {
inline constexpr auto FindBackupJob =
    Describe(&IZamProduct::FindBackupJob, "FindBackupJob_4084348374974690072",
             "std::shared_ptr< IBackupJob > FindBackupJob(apigen::Guid jobId) const", "jobId");
inline constexpr auto GetBackupJobs =
    Describe(&IZamProduct::GetBackupJobs, "GetBackupJobs_4756417812929473734",
             "std::vector< std::shared_ptr< IBackupJob > > GetBackupJobs() const");
inline constexpr auto CreateBackupJob =
    Describe(&IZamProduct::CreateBackupJob, "CreateBackupJob_7735468983597979500",
             "std::shared_ptr< IBackupJob > CreateBackupJob(SBackupJobConfigurationInfo config)", "config");
inline constexpr auto DeleteBackupJob =
    Describe(&IZamProduct::DeleteBackupJob, "DeleteBackupJob_12477999507943143760",
             "bool DeleteBackupJob(apigen::Guid obId)", "obId");
inline constexpr auto FindBackupJobSessionById =
    Describe(&IZamProduct::FindBackupJobSessionById, "FindBackupJobSessionById_15412784075075618450",
             "std::shared_ptr< IBackupJobSession > FindBackupJobSessionById(apigen::Guid sessionId) const",
             "sessionId");
inline constexpr auto SetSchedulerPermissionToRunJobs = Describe(
    &IZamProduct::SetSchedulerPermissionToRunJobs, "SetSchedulerPermissionToRunJobs_402396922458299433",
    "void SetSchedulerPermissionToRunJobs(bool isAllowed)", "isAllowed");
inline constexpr auto IsSchedulerAllowedToRunJobs =
    Describe(&IZamProduct::IsSchedulerAllowedToRunJobs, "IsSchedulerAllowedToRunJobs_11527434465810718080",
             "bool IsSchedulerAllowedToRunJobs()");
inline constexpr auto GetBackupServerManager =
    Describe(&IZamProduct::GetBackupServerManager, "GetBackupServerManager_16091826026671291548",
             "std::shared_ptr< IBackupServerManager > GetBackupServerManager() const");
inline constexpr auto GetCloudServiceProviderManager = Describe(
    &IZamProduct::GetCloudServiceProviderManager, "GetCloudServiceProviderManager_16327512121101421528",
    "std::shared_ptr< ICloudServiceProviderManager > GetCloudServiceProviderManager() const");
inline constexpr auto GetRepositoryManager =
    Describe(&IZamProduct::GetRepositoryManager, "GetRepositoryManager_2746857695984253270",
             "std::shared_ptr< IRepositoryManager > GetRepositoryManager() const");
inline constexpr auto ResolveUserInput = Describe(
    &IZamProduct::ResolveUserInput, "ResolveUserInput_2463068825318561564",
    "std::vector< SResolveObjectInfo > ResolveUserInput(std::vector< SVolumeBackupObject > objects) const",
    "objects");
inline constexpr auto GetSessionId = Describe(&IZamProduct::GetSessionId, "GetSessionId_16415403617493696513",
                                              "apigen::Guid GetSessionId() const");
}  // namespace product

template <>
struct MethodsOf<IZamProduct> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(product::FindBackupJob);
        visit(product::GetBackupJobs);
        visit(product::CreateBackupJob);
        visit(product::DeleteBackupJob);
        visit(product::FindBackupJobSessionById);
        visit(product::SetSchedulerPermissionToRunJobs);
        visit(product::IsSchedulerAllowedToRunJobs);
        visit(product::GetBackupServerManager);
        visit(product::GetCloudServiceProviderManager);
        visit(product::GetRepositoryManager);
        visit(product::ResolveUserInput);
        visit(product::GetSessionId);
    }
};

namespace job {
inline constexpr auto GetInfo =
    Describe(&IBackupJob::GetInfo, "GetInfo_14277840970810019857", "SBackupJobInfo GetInfo() const");
inline constexpr auto GetDefaultJobStartOptions =
    Describe(&IBackupJob::GetDefaultJobStartOptions, "GetDefaultJobStartOptions_7911533593557613527",
             "SJobStartOptions GetDefaultJobStartOptions() const");
inline constexpr auto Start =
    Describe(&IBackupJob::Start, "Start_3627329086645150567",
             "std::shared_ptr< IBackupJobSession > Start(SJobStartOptions options)", "options");
inline constexpr auto Enable = Describe(&IBackupJob::Enable, "Enable_4028825623928471488", "bool Enable()");
inline constexpr auto Disable =
    Describe(&IBackupJob::Disable, "Disable_5301774791616433387", "bool Disable()");
inline constexpr auto GetConfigurationInfo =
    Describe(&IBackupJob::GetConfigurationInfo, "GetConfigurationInfo_1954609102178997915",
             "SBackupJobConfigurationInfo GetConfigurationInfo() const");
inline constexpr auto UpdateConfigurationInfo =
    Describe(&IBackupJob::UpdateConfigurationInfo, "UpdateConfigurationInfo_13679273516691108586",
             "void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo)", "configInfo");
inline constexpr auto CheckValidity =
    Describe(&IBackupJob::CheckValidity, "CheckValidity_15791142135914136527",
             "std::vector< SCheckJobValidityMessage > CheckValidity() const");
inline constexpr auto GetUserData =
    Describe(&IBackupJob::GetUserData, "GetUserData_14957014859243844853", "std::string GetUserData() const");
inline constexpr auto SetUserData = Describe(&IBackupJob::SetUserData, "SetUserData_12665180950533077093",
                                             "void SetUserData(std::string userData)", "userData");
inline constexpr auto GetBackupJobSessions =
    Describe(static_cast<std::vector<std::shared_ptr<IBackupJobSession>> (IBackupJob::*)() const>(
                 &IBackupJob::GetBackupJobSessions),
             "GetBackupJobSessions_9471133095188923694",
             "std::vector< std::shared_ptr< IBackupJobSession > > GetBackupJobSessions() const");
inline constexpr auto GetBackupJobSessionsSince = Describe(
    static_cast<std::vector<std::shared_ptr<IBackupJobSession>> (IBackupJob::*)(usn_t) const>(
        &IBackupJob::GetBackupJobSessions),
    "GetBackupJobSessions_3879858177929114695",
    "std::vector< std::shared_ptr< IBackupJobSession > > GetBackupJobSessions(usn_t usn) const", "usn");
inline constexpr auto FindLastBackupJobSession =
    Describe(&IBackupJob::FindLastBackupJobSession, "FindLastBackupJobSession_10481461168075099085",
             "std::shared_ptr< IBackupJobSession > FindLastBackupJobSession() const");
inline constexpr auto GetOibsForRestore =
    Describe(&IBackupJob::GetOibsForRestore, "GetOibsForRestore_11286490420191267999",
             "std::vector< SRestoreOib > GetOibsForRestore() const");
}  // namespace job

template <>
struct MethodsOf<IBackupJob> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(job::GetInfo);
        visit(job::GetDefaultJobStartOptions);
        visit(job::Start);
        visit(job::Enable);
        visit(job::Disable);
        visit(job::GetConfigurationInfo);
        visit(job::UpdateConfigurationInfo);
        visit(job::CheckValidity);
        visit(job::GetUserData);
        visit(job::SetUserData);
        visit(job::GetBackupJobSessions);
        visit(job::GetBackupJobSessionsSince);
        visit(job::FindLastBackupJobSession);
        visit(job::GetOibsForRestore);
    }
};

namespace session {
inline constexpr auto GetInfo = Describe(&IBackupJobSession::GetInfo, "GetInfo_11024571939288522051",
                                         "SBackupJobSessionInfo GetInfo() const");
inline constexpr auto Stop = Describe(&IBackupJobSession::Stop, "Stop_10354788474085226772",
                                      "bool Stop(std::string message)", "message");
}  // namespace session

template <>
struct MethodsOf<IBackupJobSession> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(session::GetInfo);
        visit(session::Stop);
    }
};

namespace repositories {
inline constexpr auto CreateRepository =
    Describe(&IRepositoryManager::CreateRepository, "CreateRepository_5343831224984944635",
             "SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info)", "info");
inline constexpr auto UpdateRepository =
    Describe(&IRepositoryManager::UpdateRepository, "UpdateRepository_14503829163906843776",
             "SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info)", "info");
inline constexpr auto DeleteRepository =
    Describe(&IRepositoryManager::DeleteRepository, "DeleteRepository_11827553173592451493",
             "void DeleteRepository(apigen::Guid repositoryId)", "repositoryId");
inline constexpr auto CanBeDeleted =
    Describe(&IRepositoryManager::CanBeDeleted, "CanBeDeleted_16503196826006035640",
             "bool CanBeDeleted(apigen::Guid repositoryId) const", "repositoryId");
inline constexpr auto GetRepositories =
    Describe(&IRepositoryManager::GetRepositories, "GetRepositories_2500293083938946585",
             "std::vector< SBackupRepositoryInfo > GetRepositories() const");
inline constexpr auto FindRepository =
    Describe(&IRepositoryManager::FindRepository, "FindRepository_10909612664268962275",
             "apigen::Optional< SBackupRepositoryInfo > FindRepository(apigen::Guid repositoryId) const",
             "repositoryId");
inline constexpr auto RequestSizeInfo =
    Describe(&IRepositoryManager::RequestSizeInfo, "RequestSizeInfo_3517218571252418267",
             "apigen::Optional< SBackupRepositorySizeInfo > RequestSizeInfo(apigen::Guid repositoryId) const",
             "repositoryId");
}  // namespace repositories

template <>
struct MethodsOf<IRepositoryManager> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(repositories::CreateRepository);
        visit(repositories::UpdateRepository);
        visit(repositories::DeleteRepository);
        visit(repositories::CanBeDeleted);
        visit(repositories::GetRepositories);
        visit(repositories::FindRepository);
        visit(repositories::RequestSizeInfo);
    }
};

namespace servers {
inline constexpr auto AddBackupServer =
    Describe(&IBackupServerManager::AddBackupServer, "AddBackupServer_5651616993860970375",
             "SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo)", "serverInfo");
inline constexpr auto DeleteBackupServer =
    Describe(&IBackupServerManager::DeleteBackupServer, "DeleteBackupServer_18045910708910962706",
             "bool DeleteBackupServer(apigen::Guid backupServerId)", "backupServerId");
inline constexpr auto ResyncBackupServerRepositoriesList =
    Describe(&IBackupServerManager::ResyncBackupServerRepositoriesList,
             "ResyncBackupServerRepositoriesList_543936605536166641",
             "void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId)", "backupServerId");
inline constexpr auto GetBackupServers =
    Describe(&IBackupServerManager::GetBackupServers, "GetBackupServers_18346269208560161288",
             "std::vector< SBackupServerInfo > GetBackupServers() const");
inline constexpr auto FindBackupServer =
    Describe(&IBackupServerManager::FindBackupServer, "FindBackupServer_16634464565975951877",
             "apigen::Optional< SBackupServerInfo > FindBackupServer(apigen::Guid backupServerId) const",
             "backupServerId");
inline constexpr auto UpdateBackupServer =
    Describe(&IBackupServerManager::UpdateBackupServer, "UpdateBackupServer_1888359516553671505",
             "void UpdateBackupServer(SBackupServerInfo serverInfo)", "serverInfo");
}  // namespace servers

template <>
struct MethodsOf<IBackupServerManager> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(servers::AddBackupServer);
        visit(servers::DeleteBackupServer);
        visit(servers::ResyncBackupServerRepositoriesList);
        visit(servers::GetBackupServers);
        visit(servers::FindBackupServer);
        visit(servers::UpdateBackupServer);
    }
};

namespace providers {
inline constexpr auto AddCloudServiceProvider = Describe(
    &ICloudServiceProviderManager::AddCloudServiceProvider, "AddCloudServiceProvider_10659301870592999863",
    "SCloudServiceProviderInfo AddCloudServiceProvider(SCloudServiceProviderInfo serviceProviderInfo)",
    "serviceProviderInfo");
inline constexpr auto DeleteCloudServiceProvider = Describe(
    &ICloudServiceProviderManager::DeleteCloudServiceProvider,
    "DeleteCloudServiceProvider_10162986382766633110",
    "bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId)", "cloudServiceProviderId");
inline constexpr auto ResyncCloudRepositoriesList = Describe(
    &ICloudServiceProviderManager::ResyncCloudRepositoriesList,
    "ResyncCloudRepositoriesList_17064518203277544305",
    "void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId)", "cloudServiceProviderId");
inline constexpr auto GetCloudServiceProviders = Describe(
    &ICloudServiceProviderManager::GetCloudServiceProviders, "GetCloudServiceProviders_14025083025160098036",
    "std::vector< SCloudServiceProviderInfo > GetCloudServiceProviders() const");
inline constexpr auto FindCloudServiceProvider = Describe(
    &ICloudServiceProviderManager::FindCloudServiceProvider, "FindCloudServiceProvider_13471668936146381213",
    "apigen::Optional< SCloudServiceProviderInfo > FindCloudServiceProvider(apigen::Guid "
    "cloudServiceProviderId) const",
    "cloudServiceProviderId");
inline constexpr auto UpdateCloudServiceProvider = Describe(
    &ICloudServiceProviderManager::UpdateCloudServiceProvider,
    "UpdateCloudServiceProvider_13961044848047671265",
    "void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo)", "cloudServiceInfo");
inline constexpr auto GetCloudServiceProviderGateways = Describe(
    &ICloudServiceProviderManager::GetCloudServiceProviderGateways,
    "GetCloudServiceProviderGateways_7202936007088080598",
    "std::vector< SGatewayInfo > GetCloudServiceProviderGateways(apigen::Guid cloudServiceProviderId) const",
    "cloudServiceProviderId");
}  // namespace providers

template <>
struct MethodsOf<ICloudServiceProviderManager> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(providers::AddCloudServiceProvider);
        visit(providers::DeleteCloudServiceProvider);
        visit(providers::ResyncCloudRepositoriesList);
        visit(providers::GetCloudServiceProviders);
        visit(providers::FindCloudServiceProvider);
        visit(providers::UpdateCloudServiceProvider);
        visit(providers::GetCloudServiceProviderGateways);
    }
};

}  // namespace zamclientlib
