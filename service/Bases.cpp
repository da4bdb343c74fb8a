// SPDX-License-Identifier: Apache-2.0
#include <zamservice/Bases.h>

namespace zamservice {
namespace {

[[noreturn]] void Refuse(const char* method) {
    throw CNotImplemented(method);
}

}  // namespace

CNotImplemented::CNotImplemented(const std::string& method)
    : CGenericException(method + " is not implemented by this service") {}
CNotImplemented::~CNotImplemented() = default;

std::shared_ptr<zamclientlib::IBackupJob> CZamProductBase::FindBackupJob(apigen::Guid /*jobId*/) const {
    Refuse("IZamProduct::FindBackupJob");
}
std::vector<std::shared_ptr<zamclientlib::IBackupJob>> CZamProductBase::GetBackupJobs() const {
    Refuse("IZamProduct::GetBackupJobs");
}
std::shared_ptr<zamclientlib::IBackupJob> CZamProductBase::CreateBackupJob(
    zamclientlib::SBackupJobConfigurationInfo /*config*/) {
    Refuse("IZamProduct::CreateBackupJob");
}
bool CZamProductBase::DeleteBackupJob(apigen::Guid /*obId*/) {
    Refuse("IZamProduct::DeleteBackupJob");
}
std::shared_ptr<zamclientlib::IBackupJobSession> CZamProductBase::FindBackupJobSessionById(
    apigen::Guid /*sessionId*/) const {
    Refuse("IZamProduct::FindBackupJobSessionById");
}
void CZamProductBase::SetSchedulerPermissionToRunJobs(bool /*isAllowed*/) {
    Refuse("IZamProduct::SetSchedulerPermissionToRunJobs");
}
bool CZamProductBase::IsSchedulerAllowedToRunJobs() {
    Refuse("IZamProduct::IsSchedulerAllowedToRunJobs");
}
std::shared_ptr<zamclientlib::IBackupServerManager> CZamProductBase::GetBackupServerManager() const {
    Refuse("IZamProduct::GetBackupServerManager");
}
std::shared_ptr<zamclientlib::ICloudServiceProviderManager> CZamProductBase::GetCloudServiceProviderManager()
    const {
    Refuse("IZamProduct::GetCloudServiceProviderManager");
}
std::shared_ptr<zamclientlib::IRepositoryManager> CZamProductBase::GetRepositoryManager() const {
    Refuse("IZamProduct::GetRepositoryManager");
}
std::vector<zamclientlib::SResolveObjectInfo> CZamProductBase::ResolveUserInput(
    std::vector<zamclientlib::SVolumeBackupObject> /*objects*/) const {
    Refuse("IZamProduct::ResolveUserInput");
}
apigen::Guid CZamProductBase::GetSessionId() const {
    Refuse("IZamProduct::GetSessionId");
}

std::shared_ptr<zamclientlib::IZamProduct> CZamControlBase::RequestControl(
    zamclientlib::SZamControlOwnerInfo /*owner*/, bool /*force*/) {
    Refuse("IZamControl::RequestControl");
}
void CZamControlBase::ReleaseControl(zamclientlib::SZamControlOwnerInfo /*owner*/) {
    Refuse("IZamControl::ReleaseControl");
}
zamclientlib::SZamProductInfo CZamControlBase::GetProductInfo() const {
    Refuse("IZamControl::GetProductInfo");
}
void CZamControlBase::SetOwnerMode(apigen::Guid /*ownerId*/, zamclientlib::ZAMOwnerMode /*mode*/) {
    Refuse("IZamControl::SetOwnerMode");
}
zamclientlib::SZamControlOwnerInfo CZamControlBase::GetCurrentOwner() const {
    Refuse("IZamControl::GetCurrentOwner");
}
zamclientlib::SEventConfig CZamControlBase::GetEventConfig() const {
    Refuse("IZamControl::GetEventConfig");
}
apigen::Guid CZamControlBase::GetSessionId() const {
    Refuse("IZamControl::GetSessionId");
}
bool CZamControlBase::IsOsxFDAGranted() const {
    Refuse("IZamControl::IsOsxFDAGranted");
}
void CZamControlBase::GrabLogs(std::string /*path*/) const {
    Refuse("IZamControl::GrabLogs");
}

zamclientlib::SBackupJobSessionInfo CBackupJobSessionBase::GetInfo() const {
    Refuse("IBackupJobSession::GetInfo");
}
bool CBackupJobSessionBase::Stop(std::string /*message*/) {
    Refuse("IBackupJobSession::Stop");
}

zamclientlib::SBackupJobInfo CBackupJobBase::GetInfo() const {
    Refuse("IBackupJob::GetInfo");
}
zamclientlib::SJobStartOptions CBackupJobBase::GetDefaultJobStartOptions() const {
    Refuse("IBackupJob::GetDefaultJobStartOptions");
}
std::shared_ptr<zamclientlib::IBackupJobSession> CBackupJobBase::Start(
    zamclientlib::SJobStartOptions /*options*/) {
    Refuse("IBackupJob::Start");
}
bool CBackupJobBase::Enable() {
    Refuse("IBackupJob::Enable");
}
bool CBackupJobBase::Disable() {
    Refuse("IBackupJob::Disable");
}
zamclientlib::SBackupJobConfigurationInfo CBackupJobBase::GetConfigurationInfo() const {
    Refuse("IBackupJob::GetConfigurationInfo");
}
void CBackupJobBase::UpdateConfigurationInfo(zamclientlib::SBackupJobConfigurationInfo /*configInfo*/) {
    Refuse("IBackupJob::UpdateConfigurationInfo");
}
std::vector<zamclientlib::SCheckJobValidityMessage> CBackupJobBase::CheckValidity() const {
    Refuse("IBackupJob::CheckValidity");
}
std::string CBackupJobBase::GetUserData() const {
    Refuse("IBackupJob::GetUserData");
}
void CBackupJobBase::SetUserData(std::string /*userData*/) {
    Refuse("IBackupJob::SetUserData");
}
std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> CBackupJobBase::GetBackupJobSessions() const {
    Refuse("IBackupJob::GetBackupJobSessions");
}
std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> CBackupJobBase::GetBackupJobSessions(
    zamclientlib::usn_t /*usn*/) const {
    Refuse("IBackupJob::GetBackupJobSessions");
}
std::shared_ptr<zamclientlib::IBackupJobSession> CBackupJobBase::FindLastBackupJobSession() const {
    Refuse("IBackupJob::FindLastBackupJobSession");
}
std::vector<zamclientlib::SRestoreOib> CBackupJobBase::GetOibsForRestore() const {
    Refuse("IBackupJob::GetOibsForRestore");
}

zamclientlib::SBackupRepositoryInfo CRepositoryManagerBase::CreateRepository(
    zamclientlib::SBackupRepositoryInfo /*info*/) {
    Refuse("IRepositoryManager::CreateRepository");
}
zamclientlib::SBackupRepositoryInfo CRepositoryManagerBase::UpdateRepository(
    zamclientlib::SBackupRepositoryInfo /*info*/) {
    Refuse("IRepositoryManager::UpdateRepository");
}
void CRepositoryManagerBase::DeleteRepository(apigen::Guid /*repositoryId*/) {
    Refuse("IRepositoryManager::DeleteRepository");
}
bool CRepositoryManagerBase::CanBeDeleted(apigen::Guid /*repositoryId*/) const {
    Refuse("IRepositoryManager::CanBeDeleted");
}
std::vector<zamclientlib::SBackupRepositoryInfo> CRepositoryManagerBase::GetRepositories() const {
    Refuse("IRepositoryManager::GetRepositories");
}
apigen::Optional<zamclientlib::SBackupRepositoryInfo> CRepositoryManagerBase::FindRepository(
    apigen::Guid /*repositoryId*/) const {
    Refuse("IRepositoryManager::FindRepository");
}
apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> CRepositoryManagerBase::RequestSizeInfo(
    apigen::Guid /*repositoryId*/) const {
    Refuse("IRepositoryManager::RequestSizeInfo");
}

zamclientlib::SBackupServerInfo CBackupServerManagerBase::AddBackupServer(
    zamclientlib::SBackupServerInfo /*serverInfo*/) {
    Refuse("IBackupServerManager::AddBackupServer");
}
bool CBackupServerManagerBase::DeleteBackupServer(apigen::Guid /*backupServerId*/) {
    Refuse("IBackupServerManager::DeleteBackupServer");
}
void CBackupServerManagerBase::ResyncBackupServerRepositoriesList(apigen::Guid /*backupServerId*/) {
    Refuse("IBackupServerManager::ResyncBackupServerRepositoriesList");
}
std::vector<zamclientlib::SBackupServerInfo> CBackupServerManagerBase::GetBackupServers() const {
    Refuse("IBackupServerManager::GetBackupServers");
}
apigen::Optional<zamclientlib::SBackupServerInfo> CBackupServerManagerBase::FindBackupServer(
    apigen::Guid /*backupServerId*/) const {
    Refuse("IBackupServerManager::FindBackupServer");
}
void CBackupServerManagerBase::UpdateBackupServer(zamclientlib::SBackupServerInfo /*serverInfo*/) {
    Refuse("IBackupServerManager::UpdateBackupServer");
}

zamclientlib::SCloudServiceProviderInfo CCloudServiceProviderManagerBase::AddCloudServiceProvider(
    zamclientlib::SCloudServiceProviderInfo /*serviceProviderInfo*/) {
    Refuse("ICloudServiceProviderManager::AddCloudServiceProvider");
}
bool CCloudServiceProviderManagerBase::DeleteCloudServiceProvider(apigen::Guid /*cloudServiceProviderId*/) {
    Refuse("ICloudServiceProviderManager::DeleteCloudServiceProvider");
}
void CCloudServiceProviderManagerBase::ResyncCloudRepositoriesList(apigen::Guid /*cloudServiceProviderId*/) {
    Refuse("ICloudServiceProviderManager::ResyncCloudRepositoriesList");
}
std::vector<zamclientlib::SCloudServiceProviderInfo>
CCloudServiceProviderManagerBase::GetCloudServiceProviders() const {
    Refuse("ICloudServiceProviderManager::GetCloudServiceProviders");
}
apigen::Optional<zamclientlib::SCloudServiceProviderInfo>
CCloudServiceProviderManagerBase::FindCloudServiceProvider(apigen::Guid /*cloudServiceProviderId*/) const {
    Refuse("ICloudServiceProviderManager::FindCloudServiceProvider");
}
void CCloudServiceProviderManagerBase::UpdateCloudServiceProvider(
    zamclientlib::SCloudServiceProviderInfo /*cloudServiceInfo*/) {
    Refuse("ICloudServiceProviderManager::UpdateCloudServiceProvider");
}
std::vector<zamclientlib::SGatewayInfo> CCloudServiceProviderManagerBase::GetCloudServiceProviderGateways(
    apigen::Guid /*cloudServiceProviderId*/) const {
    Refuse("ICloudServiceProviderManager::GetCloudServiceProviderGateways");
}

apigen::Optional<zamclientlib::SPackageInfo> CPackageManagerBase::FindInstalledPackage(
    std::string /*packageName*/) const {
    Refuse("IPackageManager::FindInstalledPackage");
}
void CPackageManagerBase::InstalLocalPackages(std::vector<std::string> /*pkgPaths*/) const {
    Refuse("IPackageManager::InstalLocalPackages");
}
void CPackageManagerBase::UpdateLocalPackages(std::vector<std::string> /*pkgPaths*/) const {
    Refuse("IPackageManager::UpdateLocalPackages");
}
void CPackageManagerBase::RemovePackages(std::vector<std::string> /*pkgNames*/) const {
    Refuse("IPackageManager::RemovePackages");
}
std::string CPackageManagerBase::GetPackageNameFromFile(std::string /*pkgPath*/) const {
    Refuse("IPackageManager::GetPackageNameFromFile");
}

std::string CServiceBase::GetName() const {
    Refuse("IService::GetName");
}
zamclientlib::EServiceStatus CServiceBase::GetServiceStatus() const {
    Refuse("IService::GetServiceStatus");
}
void CServiceBase::Start() {
    Refuse("IService::Start");
}
void CServiceBase::Stop() {
    Refuse("IService::Stop");
}

zamclientlib::SVersion CZAMDeployerBase::GetAgentVersion() const {
    Refuse("IZAMDeployer::GetAgentVersion");
}
zamclientlib::SVersion CZAMDeployerBase::GetDriverVersion() const {
    Refuse("IZAMDeployer::GetDriverVersion");
}
bool CZAMDeployerBase::IsSystemSupportedByProduct(std::string /*packageIndexXmlPath*/) const {
    Refuse("IZAMDeployer::IsSystemSupportedByProduct");
}
zamclientlib::SInstallationInfo CZAMDeployerBase::GetInstallationInfo(
    std::string /*packageIndexXmlPath*/) const {
    Refuse("IZAMDeployer::GetInstallationInfo");
}
bool CZAMDeployerBase::IsProductInstalled() const {
    Refuse("IZAMDeployer::IsProductInstalled");
}
void CZAMDeployerBase::Uninstall() {
    Refuse("IZAMDeployer::Uninstall");
}

zamclientlib::SSystemInformation CTarvoInstallerBase::GetSystemInformation() const {
    Refuse("ITarvoInstaller::GetSystemInformation");
}
bool CTarvoInstallerBase::IsSystemSupported() const {
    Refuse("ITarvoInstaller::IsSystemSupported");
}
zamclientlib::SVersion CTarvoInstallerBase::GetToolVersion() const {
    Refuse("ITarvoInstaller::GetToolVersion");
}
std::shared_ptr<zamclientlib::IPackageManager> CTarvoInstallerBase::GetPackageManager() {
    Refuse("ITarvoInstaller::GetPackageManager");
}
std::shared_ptr<zamclientlib::IService> CTarvoInstallerBase::FindService(std::string /*serviceName*/) {
    Refuse("ITarvoInstaller::FindService");
}
std::shared_ptr<zamclientlib::IService> CTarvoInstallerBase::GetZAMService() {
    Refuse("ITarvoInstaller::GetZAMService");
}
std::shared_ptr<zamclientlib::IZAMDeployer> CTarvoInstallerBase::GetZAMDeployer() {
    Refuse("ITarvoInstaller::GetZAMDeployer");
}

}  // namespace zamservice
