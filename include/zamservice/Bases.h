// SPDX-License-Identifier: Apache-2.0
/// \file
/// Base classes for a service of one's own: each method refuses until it is overridden.
///
/// A service that derives from these, not from the interfaces, overrides what it has and goes on compiling when an
/// interface grows. The client gets a `CGenericException` "IBackupJob::Start is not implemented by this service".
#pragma once

#include <apigen/Export.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/Installer.h>

#include <memory>
#include <string>
#include <vector>

namespace zamservice APIGEN_API {

/// What the base classes throw. Clients see its base class.
class CNotImplemented : public zamclientlib::CGenericException {
public:
    /// \param method with its interface: "IBackupJob::Start"
    explicit CNotImplemented(const std::string& method);
    ~CNotImplemented() override;
};

/// An agent's product object.
class CZamProductBase : public zamclientlib::IZamProduct {
public:
    std::shared_ptr<zamclientlib::IBackupJob> FindBackupJob(apigen::Guid jobId) const override;
    std::vector<std::shared_ptr<zamclientlib::IBackupJob>> GetBackupJobs() const override;
    std::shared_ptr<zamclientlib::IBackupJob> CreateBackupJob(
        zamclientlib::SBackupJobConfigurationInfo config) override;
    bool DeleteBackupJob(apigen::Guid obId) override;
    std::shared_ptr<zamclientlib::IBackupJobSession> FindBackupJobSessionById(
        apigen::Guid sessionId) const override;
    void SetSchedulerPermissionToRunJobs(bool isAllowed) override;
    bool IsSchedulerAllowedToRunJobs() override;
    std::shared_ptr<zamclientlib::IBackupServerManager> GetBackupServerManager() const override;
    std::shared_ptr<zamclientlib::ICloudServiceProviderManager> GetCloudServiceProviderManager()
        const override;
    std::shared_ptr<zamclientlib::IRepositoryManager> GetRepositoryManager() const override;
    std::vector<zamclientlib::SResolveObjectInfo> ResolveUserInput(
        std::vector<zamclientlib::SVolumeBackupObject> objects) const override;
    apigen::Guid GetSessionId() const override;
};

/// The root of an agent.
class CZamControlBase : public zamclientlib::IZamControl {
public:
    std::shared_ptr<zamclientlib::IZamProduct> RequestControl(zamclientlib::SZamControlOwnerInfo owner,
                                                              bool force) override;
    void ReleaseControl(zamclientlib::SZamControlOwnerInfo owner) override;
    zamclientlib::SZamProductInfo GetProductInfo() const override;
    void SetOwnerMode(apigen::Guid ownerId, zamclientlib::ZAMOwnerMode mode) override;
    zamclientlib::SZamControlOwnerInfo GetCurrentOwner() const override;
    zamclientlib::SEventConfig GetEventConfig() const override;
    apigen::Guid GetSessionId() const override;
    bool IsOsxFDAGranted() const override;
    void GrabLogs(std::string path) const override;
};

/// A session of a backup job.
class CBackupJobSessionBase : public zamclientlib::IBackupJobSession {
public:
    zamclientlib::SBackupJobSessionInfo GetInfo() const override;
    bool Stop(std::string message) override;
};

/// Overrides of one of the two `GetBackupJobSessions` hide the other: name both, or
/// `using CBackupJobBase::GetBackupJobSessions;`.
class CBackupJobBase : public zamclientlib::IBackupJob {
public:
    zamclientlib::SBackupJobInfo GetInfo() const override;
    zamclientlib::SJobStartOptions GetDefaultJobStartOptions() const override;
    std::shared_ptr<zamclientlib::IBackupJobSession> Start(zamclientlib::SJobStartOptions options) override;
    bool Enable() override;
    bool Disable() override;
    zamclientlib::SBackupJobConfigurationInfo GetConfigurationInfo() const override;
    void UpdateConfigurationInfo(zamclientlib::SBackupJobConfigurationInfo configInfo) override;
    std::vector<zamclientlib::SCheckJobValidityMessage> CheckValidity() const override;
    std::string GetUserData() const override;
    void SetUserData(std::string userData) override;
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions() const override;
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions(
        zamclientlib::usn_t usn) const override;
    std::shared_ptr<zamclientlib::IBackupJobSession> FindLastBackupJobSession() const override;
    std::vector<zamclientlib::SRestoreOib> GetOibsForRestore() const override;
};

/// The repositories of an agent.
class CRepositoryManagerBase : public zamclientlib::IRepositoryManager {
public:
    zamclientlib::SBackupRepositoryInfo CreateRepository(zamclientlib::SBackupRepositoryInfo info) override;
    zamclientlib::SBackupRepositoryInfo UpdateRepository(zamclientlib::SBackupRepositoryInfo info) override;
    void DeleteRepository(apigen::Guid repositoryId) override;
    bool CanBeDeleted(apigen::Guid repositoryId) const override;
    std::vector<zamclientlib::SBackupRepositoryInfo> GetRepositories() const override;
    apigen::Optional<zamclientlib::SBackupRepositoryInfo> FindRepository(
        apigen::Guid repositoryId) const override;
    apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> RequestSizeInfo(
        apigen::Guid repositoryId) const override;
};

/// The backup servers of an agent.
class CBackupServerManagerBase : public zamclientlib::IBackupServerManager {
public:
    zamclientlib::SBackupServerInfo AddBackupServer(zamclientlib::SBackupServerInfo serverInfo) override;
    bool DeleteBackupServer(apigen::Guid backupServerId) override;
    void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId) override;
    std::vector<zamclientlib::SBackupServerInfo> GetBackupServers() const override;
    apigen::Optional<zamclientlib::SBackupServerInfo> FindBackupServer(
        apigen::Guid backupServerId) const override;
    void UpdateBackupServer(zamclientlib::SBackupServerInfo serverInfo) override;
};

/// The cloud service providers of an agent.
class CCloudServiceProviderManagerBase : public zamclientlib::ICloudServiceProviderManager {
public:
    zamclientlib::SCloudServiceProviderInfo AddCloudServiceProvider(
        zamclientlib::SCloudServiceProviderInfo serviceProviderInfo) override;
    bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) override;
    void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId) override;
    std::vector<zamclientlib::SCloudServiceProviderInfo> GetCloudServiceProviders() const override;
    apigen::Optional<zamclientlib::SCloudServiceProviderInfo> FindCloudServiceProvider(
        apigen::Guid cloudServiceProviderId) const override;
    void UpdateCloudServiceProvider(zamclientlib::SCloudServiceProviderInfo cloudServiceInfo) override;
    std::vector<zamclientlib::SGatewayInfo> GetCloudServiceProviderGateways(
        apigen::Guid cloudServiceProviderId) const override;
};

/// The package system of an installer's host.
class CPackageManagerBase : public zamclientlib::IPackageManager {
public:
    apigen::Optional<zamclientlib::SPackageInfo> FindInstalledPackage(std::string packageName) const override;
    void InstalLocalPackages(std::vector<std::string> pkgPaths) const override;
    void UpdateLocalPackages(std::vector<std::string> pkgPaths) const override;
    void RemovePackages(std::vector<std::string> pkgNames) const override;
    std::string GetPackageNameFromFile(std::string pkgPath) const override;
};

/// A service of an installer's host.
class CServiceBase : public zamclientlib::IService {
public:
    std::string GetName() const override;
    zamclientlib::EServiceStatus GetServiceStatus() const override;
    void Start() override;
    void Stop() override;
};

/// The product on an installer's host.
class CZAMDeployerBase : public zamclientlib::IZAMDeployer {
public:
    zamclientlib::SVersion GetAgentVersion() const override;
    zamclientlib::SVersion GetDriverVersion() const override;
    bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const override;
    zamclientlib::SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const override;
    bool IsProductInstalled() const override;
    void Uninstall() override;
};

/// The root of an installer.
class CTarvoInstallerBase : public zamclientlib::ITarvoInstaller {
public:
    zamclientlib::SSystemInformation GetSystemInformation() const override;
    bool IsSystemSupported() const override;
    zamclientlib::SVersion GetToolVersion() const override;
    std::shared_ptr<zamclientlib::IPackageManager> GetPackageManager() override;
    std::shared_ptr<zamclientlib::IService> FindService(std::string serviceName) override;
    std::shared_ptr<zamclientlib::IService> GetZAMService() override;
    std::shared_ptr<zamclientlib::IZAMDeployer> GetZAMDeployer() override;
};

}  // namespace zamservice
