// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agreed methods of all interfaces, in the order of their declaration: what the descriptors must say.
#pragma once

#include <zamclientlib/Control.h>
#include <zamclientlib/Jobs.h>
#include <zamclientlib/Managers.h>

#include <string>
#include <vector>

#include "tests/api/TypeNames.h"

namespace zamtest {

struct SMethodRow {
    std::string Interface;
    std::string Id;
    std::string Signature;
    std::vector<std::string> Keys;
};

inline const std::vector<SMethodRow> MethodTable{
    // clang-format off
    // IZamControl
    {"IZamControl", "RequestControl_6119236697561886250", "std::shared_ptr< IZamProduct > RequestControl(SZamControlOwnerInfo owner, bool force)", {"owner", "force"}},
    {"IZamControl", "ReleaseControl_7339060124436734195", "void ReleaseControl(SZamControlOwnerInfo owner)", {"owner"}},
    {"IZamControl", "GetProductInfo_4746724914348084655", "SZamProductInfo GetProductInfo() const", {}},
    {"IZamControl", "SetOwnerMode_8565242163374302383", "void SetOwnerMode(apigen::Guid ownerId, ZAMOwnerMode mode)", {"ownerId", "mode"}},
    {"IZamControl", "GetCurrentOwner_11295716727182803303", "SZamControlOwnerInfo GetCurrentOwner() const", {}},
    {"IZamControl", "GetEventConfig_5380351184835268402", "SEventConfig GetEventConfig() const", {}},
    {"IZamControl", "GetSessionId_16415403617493696513", "apigen::Guid GetSessionId() const", {}},
    {"IZamControl", "IsOsxFDAGranted_16988824051704448109", "bool IsOsxFDAGranted() const", {}},
    {"IZamControl", "GrabLogs_7987703423994357771", "void GrabLogs(std::string path) const", {"path"}},
    // IZamProduct
    {"IZamProduct", "FindBackupJob_4084348374974690072", "std::shared_ptr< IBackupJob > FindBackupJob(apigen::Guid jobId) const", {"jobId"}},
    {"IZamProduct", "GetBackupJobs_4756417812929473734", "std::vector< std::shared_ptr< IBackupJob > > GetBackupJobs() const", {}},
    {"IZamProduct", "CreateBackupJob_7735468983597979500", "std::shared_ptr< IBackupJob > CreateBackupJob(SBackupJobConfigurationInfo config)", {"config"}},
    {"IZamProduct", "DeleteBackupJob_12477999507943143760", "bool DeleteBackupJob(apigen::Guid obId)", {"obId"}},
    {"IZamProduct", "FindBackupJobSessionById_15412784075075618450", "std::shared_ptr< IBackupJobSession > FindBackupJobSessionById(apigen::Guid sessionId) const", {"sessionId"}},
    {"IZamProduct", "SetSchedulerPermissionToRunJobs_402396922458299433", "void SetSchedulerPermissionToRunJobs(bool isAllowed)", {"isAllowed"}},
    {"IZamProduct", "IsSchedulerAllowedToRunJobs_11527434465810718080", "bool IsSchedulerAllowedToRunJobs()", {}},
    {"IZamProduct", "GetBackupServerManager_16091826026671291548", "std::shared_ptr< IBackupServerManager > GetBackupServerManager() const", {}},
    {"IZamProduct", "GetCloudServiceProviderManager_16327512121101421528", "std::shared_ptr< ICloudServiceProviderManager > GetCloudServiceProviderManager() const", {}},
    {"IZamProduct", "GetRepositoryManager_2746857695984253270", "std::shared_ptr< IRepositoryManager > GetRepositoryManager() const", {}},
    {"IZamProduct", "ResolveUserInput_2463068825318561564", "std::vector< SResolveObjectInfo > ResolveUserInput(std::vector< SVolumeBackupObject > objects) const", {"objects"}},
    {"IZamProduct", "GetSessionId_16415403617493696513", "apigen::Guid GetSessionId() const", {}},
    // IBackupJob
    {"IBackupJob", "GetInfo_14277840970810019857", "SBackupJobInfo GetInfo() const", {}},
    {"IBackupJob", "GetDefaultJobStartOptions_7911533593557613527", "SJobStartOptions GetDefaultJobStartOptions() const", {}},
    {"IBackupJob", "Start_3627329086645150567", "std::shared_ptr< IBackupJobSession > Start(SJobStartOptions options)", {"options"}},
    {"IBackupJob", "Enable_4028825623928471488", "bool Enable()", {}},
    {"IBackupJob", "Disable_5301774791616433387", "bool Disable()", {}},
    {"IBackupJob", "GetConfigurationInfo_1954609102178997915", "SBackupJobConfigurationInfo GetConfigurationInfo() const", {}},
    {"IBackupJob", "UpdateConfigurationInfo_13679273516691108586", "void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo)", {"configInfo"}},
    {"IBackupJob", "CheckValidity_15791142135914136527", "std::vector< SCheckJobValidityMessage > CheckValidity() const", {}},
    {"IBackupJob", "GetUserData_14957014859243844853", "std::string GetUserData() const", {}},
    {"IBackupJob", "SetUserData_12665180950533077093", "void SetUserData(std::string userData)", {"userData"}},
    {"IBackupJob", "GetBackupJobSessions_9471133095188923694", "std::vector< std::shared_ptr< IBackupJobSession > > GetBackupJobSessions() const", {}},
    {"IBackupJob", "GetBackupJobSessions_3879858177929114695", "std::vector< std::shared_ptr< IBackupJobSession > > GetBackupJobSessions(usn_t usn) const", {"usn"}},
    {"IBackupJob", "FindLastBackupJobSession_10481461168075099085", "std::shared_ptr< IBackupJobSession > FindLastBackupJobSession() const", {}},
    {"IBackupJob", "GetOibsForRestore_11286490420191267999", "std::vector< SRestoreOib > GetOibsForRestore() const", {}},
    // IBackupJobSession
    {"IBackupJobSession", "GetInfo_11024571939288522051", "SBackupJobSessionInfo GetInfo() const", {}},
    {"IBackupJobSession", "Stop_10354788474085226772", "bool Stop(std::string message)", {"message"}},
    // IRepositoryManager
    {"IRepositoryManager", "CreateRepository_5343831224984944635", "SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info)", {"info"}},
    {"IRepositoryManager", "UpdateRepository_14503829163906843776", "SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info)", {"info"}},
    {"IRepositoryManager", "DeleteRepository_11827553173592451493", "void DeleteRepository(apigen::Guid repositoryId)", {"repositoryId"}},
    {"IRepositoryManager", "CanBeDeleted_16503196826006035640", "bool CanBeDeleted(apigen::Guid repositoryId) const", {"repositoryId"}},
    {"IRepositoryManager", "GetRepositories_2500293083938946585", "std::vector< SBackupRepositoryInfo > GetRepositories() const", {}},
    {"IRepositoryManager", "FindRepository_10909612664268962275", "apigen::Optional< SBackupRepositoryInfo > FindRepository(apigen::Guid repositoryId) const", {"repositoryId"}},
    {"IRepositoryManager", "RequestSizeInfo_3517218571252418267", "apigen::Optional< SBackupRepositorySizeInfo > RequestSizeInfo(apigen::Guid repositoryId) const", {"repositoryId"}},
    // IBackupServerManager
    {"IBackupServerManager", "AddBackupServer_5651616993860970375", "SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo)", {"serverInfo"}},
    {"IBackupServerManager", "DeleteBackupServer_18045910708910962706", "bool DeleteBackupServer(apigen::Guid backupServerId)", {"backupServerId"}},
    {"IBackupServerManager", "ResyncBackupServerRepositoriesList_543936605536166641", "void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId)", {"backupServerId"}},
    {"IBackupServerManager", "GetBackupServers_18346269208560161288", "std::vector< SBackupServerInfo > GetBackupServers() const", {}},
    {"IBackupServerManager", "FindBackupServer_16634464565975951877", "apigen::Optional< SBackupServerInfo > FindBackupServer(apigen::Guid backupServerId) const", {"backupServerId"}},
    {"IBackupServerManager", "UpdateBackupServer_1888359516553671505", "void UpdateBackupServer(SBackupServerInfo serverInfo)", {"serverInfo"}},
    // ICloudServiceProviderManager
    {"ICloudServiceProviderManager", "AddCloudServiceProvider_10659301870592999863", "SCloudServiceProviderInfo AddCloudServiceProvider(SCloudServiceProviderInfo serviceProviderInfo)", {"serviceProviderInfo"}},
    {"ICloudServiceProviderManager", "DeleteCloudServiceProvider_10162986382766633110", "bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId)", {"cloudServiceProviderId"}},
    {"ICloudServiceProviderManager", "ResyncCloudRepositoriesList_17064518203277544305", "void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId)", {"cloudServiceProviderId"}},
    {"ICloudServiceProviderManager", "GetCloudServiceProviders_14025083025160098036", "std::vector< SCloudServiceProviderInfo > GetCloudServiceProviders() const", {}},
    {"ICloudServiceProviderManager", "FindCloudServiceProvider_13471668936146381213", "apigen::Optional< SCloudServiceProviderInfo > FindCloudServiceProvider(apigen::Guid cloudServiceProviderId) const", {"cloudServiceProviderId"}},
    {"ICloudServiceProviderManager", "UpdateCloudServiceProvider_13961044848047671265", "void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo)", {"cloudServiceInfo"}},
    {"ICloudServiceProviderManager", "GetCloudServiceProviderGateways_7202936007088080598", "std::vector< SGatewayInfo > GetCloudServiceProviderGateways(apigen::Guid cloudServiceProviderId) const", {"cloudServiceProviderId"}},
    // ITarvoInstaller
    {"ITarvoInstaller", "GetSystemInformation_14796640772420918772", "SSystemInformation GetSystemInformation() const", {}},
    {"ITarvoInstaller", "IsSystemSupported_6523745946180482134", "bool IsSystemSupported() const", {}},
    {"ITarvoInstaller", "GetToolVersion_9650153311793924748", "SVersion GetToolVersion() const", {}},
    {"ITarvoInstaller", "GetPackageManager_1628991831313356514", "std::shared_ptr< IPackageManager > GetPackageManager()", {}},
    {"ITarvoInstaller", "FindService_15620865180769635232", "std::shared_ptr< IService > FindService(std::string serviceName)", {"serviceName"}},
    {"ITarvoInstaller", "GetZAMService_7046161401573418507", "std::shared_ptr< IService > GetZAMService()", {}},
    {"ITarvoInstaller", "GetZAMDeployer_6155923443671149866", "std::shared_ptr< IZAMDeployer > GetZAMDeployer()", {}},
    // IZAMDeployer
    {"IZAMDeployer", "GetAgentVersion_6425147347192826487", "SVersion GetAgentVersion() const", {}},
    {"IZAMDeployer", "GetDriverVersion_11268104998534781400", "SVersion GetDriverVersion() const", {}},
    {"IZAMDeployer", "IsSystemSupportedByProduct_9145649959737313651", "bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const", {"packageIndexXmlPath"}},
    {"IZAMDeployer", "GetInstallationInfo_4462774100910194631", "SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const", {"packageIndexXmlPath"}},
    {"IZAMDeployer", "IsProductInstalled_10605168130514402176", "bool IsProductInstalled() const", {}},
    {"IZAMDeployer", "Uninstall_18146462495559910883", "void Uninstall()", {}},
    // IService
    {"IService", "GetName_12671373201279964889", "std::string GetName() const", {}},
    {"IService", "GetServiceStatus_11547550400782890202", "EServiceStatus GetServiceStatus() const", {}},
    {"IService", "Start_11243714758416590425", "void Start()", {}},
    {"IService", "Stop_11506971857825673697", "void Stop()", {}},
    // IPackageManager
    {"IPackageManager", "FindInstalledPackage_16791466557512328961", "apigen::Optional< SPackageInfo > FindInstalledPackage(std::string packageName) const", {"packageName"}},
    {"IPackageManager", "InstalLocalPackages_18177456428110118300", "void InstalLocalPackages(std::vector< std::string > pkgPaths) const", {"pkgPaths"}},
    {"IPackageManager", "UpdateLocalPackages_15359749623785971304", "void UpdateLocalPackages(std::vector< std::string > pkgPaths) const", {"pkgPaths"}},
    {"IPackageManager", "RemovePackages_16476592220287799532", "void RemovePackages(std::vector< std::string > pkgNames) const", {"pkgNames"}},
    {"IPackageManager", "GetPackageNameFromFile_2448479667004574270", "std::string GetPackageNameFromFile(std::string pkgPath) const", {"pkgPath"}},
    // clang-format on
};

}  // namespace zamtest
