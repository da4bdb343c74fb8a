// SPDX-License-Identifier: Apache-2.0
/// \file
/// Implementations of every interface that do nothing but count and fail on demand. What they answer comes from
/// what they are given.
#pragma once

#include <zamclientlib/Control.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/Installer.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// What happens to the objects of one service.
struct SWorld {
    std::size_t Living = 0;
    std::size_t Calls = 0;
    char Failure = 0;  ///< of the next call

    void Fail() {
        using zamclientlib::CIndexingUnmetDependencies;
        switch (std::exchange(Failure, char{})) {
            case 'g':
                throw zamclientlib::CGenericException("a <generic> failure");
            case 'j':
                throw zamclientlib::CJobIsRunning("a job \xff");
            case 'p':
                throw zamclientlib::CPackageManagerIsLocked(std::string("locked\0", 7));
            case 'd':
                throw CIndexingUnmetDependencies("missing", zamclientlib::EIndexingDependency{99});
            case 'a':
                throw apigen::ApiInternalError("");
            case 's':
                throw std::runtime_error("any other\r\n");
            case 'n':
                throw 17;  // NOLINT: of no class at all
            default:
                break;
        }
    }
};

/// The part that all of them share.
template <class I>
class CFake : public I {
public:
    explicit CFake(SWorld& world) : m_world(world) { ++m_world.Living; }
    CFake(const CFake&) = delete;
    CFake& operator=(const CFake&) = delete;
    ~CFake() override { --m_world.Living; }

protected:
    template <class R>
    R Answer(R result) const {
        Count();
        return result;
    }
    void Count() const {
        ++m_world.Calls;
        m_world.Fail();
    }
    template <class Fake>
    std::shared_ptr<Fake> Make() const {
        Count();
        return std::make_shared<Fake>(m_world);
    }
    /// Of an even number of bytes there is one.
    template <class Fake>
    std::shared_ptr<Fake> Find(bool isThere) const {
        Count();
        return isThere ? std::make_shared<Fake>(m_world) : nullptr;
    }
    static bool IsThere(const apigen::Guid& id) { return id.Data1 % 2 == 0; }

    SWorld& m_world;
};

class CFakePackages final : public CFake<zamclientlib::IPackageManager> {
public:
    using CFake::CFake;
    apigen::Optional<zamclientlib::SPackageInfo> FindInstalledPackage(
        std::string packageName) const override {
        Count();
        if (packageName.empty()) return {};
        zamclientlib::SPackageInfo info;
        info.Name = std::move(packageName);
        return info;
    }
    void InstalLocalPackages(std::vector<std::string>) const override { Count(); }
    void UpdateLocalPackages(std::vector<std::string>) const override { Count(); }
    void RemovePackages(std::vector<std::string>) const override { Count(); }
    std::string GetPackageNameFromFile(std::string pkgPath) const override { return Answer(pkgPath); }
};

class CFakeSystemService final : public CFake<zamclientlib::IService> {
public:
    using CFake::CFake;
    std::string GetName() const override { return Answer(std::string("name\r")); }
    zamclientlib::EServiceStatus GetServiceStatus() const override {
        return Answer(zamclientlib::EServiceStatus{-3});
    }
    void Start() override { Count(); }
    void Stop() override { Count(); }
};

class CFakeDeployer final : public CFake<zamclientlib::IZAMDeployer> {
public:
    using CFake::CFake;
    zamclientlib::SVersion GetAgentVersion() const override {
        return Answer(zamclientlib::SVersion{1, 2, 3, 4});
    }
    zamclientlib::SVersion GetDriverVersion() const override { return Answer(zamclientlib::SVersion{}); }
    bool IsSystemSupportedByProduct(std::string packageIndexXmlPath) const override {
        return Answer(!packageIndexXmlPath.empty());
    }
    zamclientlib::SInstallationInfo GetInstallationInfo(std::string packageIndexXmlPath) const override {
        zamclientlib::SInstallationInfo info;
        info.PackageForInstall = {std::move(packageIndexXmlPath), ""};
        return Answer(info);
    }
    bool IsProductInstalled() const override { return Answer(true); }
    void Uninstall() override { Count(); }
};

class CFakeInstaller final : public CFake<zamclientlib::ITarvoInstaller> {
public:
    using CFake::CFake;
    zamclientlib::SSystemInformation GetSystemInformation() const override {
        return Answer(zamclientlib::SSystemInformation{});
    }
    bool IsSystemSupported() const override { return Answer(false); }
    zamclientlib::SVersion GetToolVersion() const override {
        return Answer(zamclientlib::SVersion{2, 0, 0, 1});
    }
    std::shared_ptr<zamclientlib::IPackageManager> GetPackageManager() override {
        return Make<CFakePackages>();
    }
    std::shared_ptr<zamclientlib::IService> FindService(std::string serviceName) override {
        return Find<CFakeSystemService>(serviceName.size() % 2 == 0);
    }
    std::shared_ptr<zamclientlib::IService> GetZAMService() override { return Make<CFakeSystemService>(); }
    std::shared_ptr<zamclientlib::IZAMDeployer> GetZAMDeployer() override { return Make<CFakeDeployer>(); }
};

class CFakeRepositories final : public CFake<zamclientlib::IRepositoryManager> {
public:
    using CFake::CFake;
    zamclientlib::SBackupRepositoryInfo CreateRepository(zamclientlib::SBackupRepositoryInfo info) override {
        return Answer(info);
    }
    zamclientlib::SBackupRepositoryInfo UpdateRepository(zamclientlib::SBackupRepositoryInfo info) override {
        return Answer(info);
    }
    void DeleteRepository(apigen::Guid) override { Count(); }
    bool CanBeDeleted(apigen::Guid repositoryId) const override { return Answer(IsThere(repositoryId)); }
    std::vector<zamclientlib::SBackupRepositoryInfo> GetRepositories() const override {
        return Answer(std::vector<zamclientlib::SBackupRepositoryInfo>(2));
    }
    apigen::Optional<zamclientlib::SBackupRepositoryInfo> FindRepository(
        apigen::Guid repositoryId) const override {
        Count();
        if (!IsThere(repositoryId)) return {};
        zamclientlib::SBackupRepositoryInfo info;
        info.Id = repositoryId;
        return info;
    }
    apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> RequestSizeInfo(apigen::Guid) const override {
        return Answer(apigen::Optional(zamclientlib::SBackupRepositorySizeInfo{}));
    }
};

class CFakeServers final : public CFake<zamclientlib::IBackupServerManager> {
public:
    using CFake::CFake;
    zamclientlib::SBackupServerInfo AddBackupServer(zamclientlib::SBackupServerInfo serverInfo) override {
        return Answer(serverInfo);
    }
    bool DeleteBackupServer(apigen::Guid backupServerId) override { return Answer(IsThere(backupServerId)); }
    void ResyncBackupServerRepositoriesList(apigen::Guid) override { Count(); }
    std::vector<zamclientlib::SBackupServerInfo> GetBackupServers() const override {
        return Answer(std::vector<zamclientlib::SBackupServerInfo>(1));
    }
    apigen::Optional<zamclientlib::SBackupServerInfo> FindBackupServer(
        apigen::Guid backupServerId) const override {
        Count();
        if (!IsThere(backupServerId)) return {};
        return zamclientlib::SBackupServerInfo{};
    }
    void UpdateBackupServer(zamclientlib::SBackupServerInfo) override { Count(); }
};

class CFakeProviders final : public CFake<zamclientlib::ICloudServiceProviderManager> {
public:
    using CFake::CFake;
    zamclientlib::SCloudServiceProviderInfo AddCloudServiceProvider(
        zamclientlib::SCloudServiceProviderInfo serviceProviderInfo) override {
        return Answer(serviceProviderInfo);
    }
    bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) override {
        return Answer(IsThere(cloudServiceProviderId));
    }
    void ResyncCloudRepositoriesList(apigen::Guid) override { Count(); }
    std::vector<zamclientlib::SCloudServiceProviderInfo> GetCloudServiceProviders() const override {
        return Answer(std::vector<zamclientlib::SCloudServiceProviderInfo>(1));
    }
    apigen::Optional<zamclientlib::SCloudServiceProviderInfo> FindCloudServiceProvider(
        apigen::Guid cloudServiceProviderId) const override {
        Count();
        if (!IsThere(cloudServiceProviderId)) return {};
        return zamclientlib::SCloudServiceProviderInfo{};
    }
    void UpdateCloudServiceProvider(zamclientlib::SCloudServiceProviderInfo) override { Count(); }
    std::vector<zamclientlib::SGatewayInfo> GetCloudServiceProviderGateways(apigen::Guid) const override {
        return Answer(std::vector<zamclientlib::SGatewayInfo>(3));
    }
};

class CFakeJobSession final : public CFake<zamclientlib::IBackupJobSession> {
public:
    using CFake::CFake;
    zamclientlib::SBackupJobSessionInfo GetInfo() const override {
        return Answer(zamclientlib::SBackupJobSessionInfo{});
    }
    bool Stop(std::string message) override { return Answer(message.empty()); }
};

class CFakeJob final : public CFake<zamclientlib::IBackupJob> {
public:
    using CFake::CFake;
    zamclientlib::SBackupJobInfo GetInfo() const override { return Answer(zamclientlib::SBackupJobInfo{}); }
    zamclientlib::SJobStartOptions GetDefaultJobStartOptions() const override {
        return Answer(zamclientlib::SJobStartOptions{});
    }
    std::shared_ptr<zamclientlib::IBackupJobSession> Start(zamclientlib::SJobStartOptions) override {
        return Make<CFakeJobSession>();
    }
    bool Enable() override { return Answer(true); }
    bool Disable() override { return Answer(false); }
    zamclientlib::SBackupJobConfigurationInfo GetConfigurationInfo() const override {
        return Answer(m_configuration);
    }
    void UpdateConfigurationInfo(zamclientlib::SBackupJobConfigurationInfo configInfo) override {
        Count();
        m_configuration = std::move(configInfo);
    }
    std::vector<zamclientlib::SCheckJobValidityMessage> CheckValidity() const override {
        return Answer(std::vector<zamclientlib::SCheckJobValidityMessage>(1));
    }
    std::string GetUserData() const override { return Answer(m_userData); }
    void SetUserData(std::string userData) override {
        Count();
        m_userData = std::move(userData);
    }
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions() const override {
        return Sessions(2);
    }
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions(
        zamclientlib::usn_t usn) const override {
        return Sessions(static_cast<std::size_t>(usn) % 4);
    }
    std::shared_ptr<zamclientlib::IBackupJobSession> FindLastBackupJobSession() const override {
        return Find<CFakeJobSession>(m_userData.size() % 2 == 0);
    }
    std::vector<zamclientlib::SRestoreOib> GetOibsForRestore() const override {
        return Answer(std::vector<zamclientlib::SRestoreOib>(1));
    }

private:
    /// With a gap behind the first.
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> Sessions(std::size_t count) const {
        Count();
        std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> sessions;
        for (std::size_t i = 0; i < count; ++i) {
            if (i == 1) sessions.emplace_back();
            sessions.push_back(std::make_shared<CFakeJobSession>(m_world));
        }
        return sessions;
    }

    zamclientlib::SBackupJobConfigurationInfo m_configuration;
    std::string m_userData;
};

class CFakeProduct final : public CFake<zamclientlib::IZamProduct> {
public:
    using CFake::CFake;
    std::shared_ptr<zamclientlib::IBackupJob> FindBackupJob(apigen::Guid jobId) const override {
        return Find<CFakeJob>(IsThere(jobId));
    }
    std::vector<std::shared_ptr<zamclientlib::IBackupJob>> GetBackupJobs() const override {
        Count();
        return {std::make_shared<CFakeJob>(m_world), nullptr, std::make_shared<CFakeJob>(m_world)};
    }
    std::shared_ptr<zamclientlib::IBackupJob> CreateBackupJob(
        zamclientlib::SBackupJobConfigurationInfo config) override {
        auto job = Make<CFakeJob>();
        job->UpdateConfigurationInfo(std::move(config));
        return job;
    }
    bool DeleteBackupJob(apigen::Guid obId) override { return Answer(IsThere(obId)); }
    std::shared_ptr<zamclientlib::IBackupJobSession> FindBackupJobSessionById(
        apigen::Guid sessionId) const override {
        return Find<CFakeJobSession>(IsThere(sessionId));
    }
    void SetSchedulerPermissionToRunJobs(bool) override { Count(); }
    bool IsSchedulerAllowedToRunJobs() override { return Answer(true); }
    std::shared_ptr<zamclientlib::IBackupServerManager> GetBackupServerManager() const override {
        return Make<CFakeServers>();
    }
    std::shared_ptr<zamclientlib::ICloudServiceProviderManager> GetCloudServiceProviderManager()
        const override {
        return Make<CFakeProviders>();
    }
    std::shared_ptr<zamclientlib::IRepositoryManager> GetRepositoryManager() const override {
        return Make<CFakeRepositories>();
    }
    std::vector<zamclientlib::SResolveObjectInfo> ResolveUserInput(
        std::vector<zamclientlib::SVolumeBackupObject> objects) const override {
        return Answer(std::vector<zamclientlib::SResolveObjectInfo>(objects.size()));
    }
    apigen::Guid GetSessionId() const override { return Answer(apigen::Guid{}); }
};

class CFakeControl final : public CFake<zamclientlib::IZamControl> {
public:
    using CFake::CFake;
    std::shared_ptr<zamclientlib::IZamProduct> RequestControl(zamclientlib::SZamControlOwnerInfo owner,
                                                              bool force) override {
        return Find<CFakeProduct>(force || IsThere(owner.Id));
    }
    void ReleaseControl(zamclientlib::SZamControlOwnerInfo) override { Count(); }
    zamclientlib::SZamProductInfo GetProductInfo() const override {
        return Answer(zamclientlib::SZamProductInfo{});
    }
    void SetOwnerMode(apigen::Guid, zamclientlib::ZAMOwnerMode) override { Count(); }
    zamclientlib::SZamControlOwnerInfo GetCurrentOwner() const override {
        return Answer(zamclientlib::SZamControlOwnerInfo{});
    }
    zamclientlib::SEventConfig GetEventConfig() const override {
        return Answer(zamclientlib::SEventConfig{});
    }
    apigen::Guid GetSessionId() const override { return Answer(apigen::Guid{}); }
    bool IsOsxFDAGranted() const override { return Answer(false); }
    void GrabLogs(std::string) const override { Count(); }
};
