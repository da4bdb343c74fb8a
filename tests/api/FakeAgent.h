// SPDX-License-Identifier: Apache-2.0
/// \file
/// An implementation of the agent's interfaces that writes down what it is asked, and fails on demand. What
/// it answers tells its methods apart: samples of records, default records, lists of both.
#pragma once

#include <zamclientlib/Control.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/api/Exchanges.h"
#include "tests/api/FakeJournal.h"

namespace zamtest {

/// The part that all objects of the agent share.
class CFakeAgentObject {
protected:
    CFakeAgentObject(Journal journal, std::string interface)
        : m_journal(std::move(journal)), m_interface(std::move(interface)) {}
    CFakeAgentObject(const CFakeAgentObject&) = delete;
    CFakeAgentObject& operator=(const CFakeAgentObject&) = delete;
    ~CFakeAgentObject() { m_journal->NoteEnd(m_interface); }

    template <class... A>
    void Note(const std::string& method, const A&... arguments) const {
        std::string shown;
        ((shown += (shown.empty() ? "" : ", ") + Shown(arguments)), ...);
        m_journal->Note(m_interface + "::" + method + '(' + shown + ')');
    }

    /// What is looked for, unless there is nothing.
    template <class T>
    T Found(T value) const {
        return m_journal->HasNothing ? T{} : value;
    }

    template <class Record>
    std::vector<Record> SampleAndDefaultRecord() const {
        return Found(std::vector<Record>{SSample<Record>::Value(), Record{}});
    }

    Journal m_journal;

private:
    std::string m_interface;
};

class CFakeRepositoryManager final : public zamclientlib::IRepositoryManager, CFakeAgentObject {
public:
    explicit CFakeRepositoryManager(Journal journal)
        : CFakeAgentObject(std::move(journal), "IRepositoryManager") {}

    zamclientlib::SBackupRepositoryInfo CreateRepository(zamclientlib::SBackupRepositoryInfo info) override {
        Note("CreateRepository", info);
        return {};
    }
    zamclientlib::SBackupRepositoryInfo UpdateRepository(zamclientlib::SBackupRepositoryInfo info) override {
        Note("UpdateRepository", info);
        return info;
    }
    void DeleteRepository(apigen::Guid repositoryId) override { Note("DeleteRepository", repositoryId); }
    bool CanBeDeleted(apigen::Guid repositoryId) const override {
        Note("CanBeDeleted", repositoryId);
        return true;
    }
    std::vector<zamclientlib::SBackupRepositoryInfo> GetRepositories() const override {
        Note("GetRepositories");
        return SampleAndDefaultRecord<zamclientlib::SBackupRepositoryInfo>();
    }
    apigen::Optional<zamclientlib::SBackupRepositoryInfo> FindRepository(
        apigen::Guid repositoryId) const override {
        Note("FindRepository", repositoryId);
        return Found(apigen::Optional(SSample<zamclientlib::SBackupRepositoryInfo>::Value()));
    }
    apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> RequestSizeInfo(
        apigen::Guid repositoryId) const override {
        Note("RequestSizeInfo", repositoryId);
        return Found(apigen::Optional(SSample<zamclientlib::SBackupRepositorySizeInfo>::Value()));
    }
};

class CFakeBackupServerManager final : public zamclientlib::IBackupServerManager, CFakeAgentObject {
public:
    explicit CFakeBackupServerManager(Journal journal)
        : CFakeAgentObject(std::move(journal), "IBackupServerManager") {}

    zamclientlib::SBackupServerInfo AddBackupServer(zamclientlib::SBackupServerInfo serverInfo) override {
        Note("AddBackupServer", serverInfo);
        return {};
    }
    bool DeleteBackupServer(apigen::Guid backupServerId) override {
        Note("DeleteBackupServer", backupServerId);
        return true;
    }
    void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId) override {
        Note("ResyncBackupServerRepositoriesList", backupServerId);
    }
    std::vector<zamclientlib::SBackupServerInfo> GetBackupServers() const override {
        Note("GetBackupServers");
        return SampleAndDefaultRecord<zamclientlib::SBackupServerInfo>();
    }
    apigen::Optional<zamclientlib::SBackupServerInfo> FindBackupServer(
        apigen::Guid backupServerId) const override {
        Note("FindBackupServer", backupServerId);
        return Found(apigen::Optional(SSample<zamclientlib::SBackupServerInfo>::Value()));
    }
    void UpdateBackupServer(zamclientlib::SBackupServerInfo serverInfo) override {
        Note("UpdateBackupServer", serverInfo);
    }
};

class CFakeCloudServiceProviderManager final : public zamclientlib::ICloudServiceProviderManager,
                                               CFakeAgentObject {
public:
    explicit CFakeCloudServiceProviderManager(Journal journal)
        : CFakeAgentObject(std::move(journal), "ICloudServiceProviderManager") {}

    zamclientlib::SCloudServiceProviderInfo AddCloudServiceProvider(
        zamclientlib::SCloudServiceProviderInfo serviceProviderInfo) override {
        Note("AddCloudServiceProvider", serviceProviderInfo);
        return {};
    }
    bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) override {
        Note("DeleteCloudServiceProvider", cloudServiceProviderId);
        return true;
    }
    void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId) override {
        Note("ResyncCloudRepositoriesList", cloudServiceProviderId);
    }
    std::vector<zamclientlib::SCloudServiceProviderInfo> GetCloudServiceProviders() const override {
        Note("GetCloudServiceProviders");
        return SampleAndDefaultRecord<zamclientlib::SCloudServiceProviderInfo>();
    }
    apigen::Optional<zamclientlib::SCloudServiceProviderInfo> FindCloudServiceProvider(
        apigen::Guid cloudServiceProviderId) const override {
        Note("FindCloudServiceProvider", cloudServiceProviderId);
        return Found(apigen::Optional(SSample<zamclientlib::SCloudServiceProviderInfo>::Value()));
    }
    void UpdateCloudServiceProvider(zamclientlib::SCloudServiceProviderInfo cloudServiceInfo) override {
        Note("UpdateCloudServiceProvider", cloudServiceInfo);
    }
    std::vector<zamclientlib::SGatewayInfo> GetCloudServiceProviderGateways(
        apigen::Guid cloudServiceProviderId) const override {
        Note("GetCloudServiceProviderGateways", cloudServiceProviderId);
        return SampleAndDefaultRecord<zamclientlib::SGatewayInfo>();
    }
};

class CFakeBackupJobSession final : public zamclientlib::IBackupJobSession, CFakeAgentObject {
public:
    explicit CFakeBackupJobSession(Journal journal)
        : CFakeAgentObject(std::move(journal), "IBackupJobSession") {}

    zamclientlib::SBackupJobSessionInfo GetInfo() const override {
        Note("GetInfo");
        return SSample<zamclientlib::SBackupJobSessionInfo>::Value();
    }
    bool Stop(std::string message) override {
        Note("Stop", message);
        return true;
    }
};

class CFakeBackupJob final : public zamclientlib::IBackupJob, CFakeAgentObject {
public:
    explicit CFakeBackupJob(Journal journal) : CFakeAgentObject(std::move(journal), "IBackupJob") {}

    zamclientlib::SBackupJobInfo GetInfo() const override {
        Note("GetInfo");
        return SSample<zamclientlib::SBackupJobInfo>::Value();
    }
    zamclientlib::SJobStartOptions GetDefaultJobStartOptions() const override {
        Note("GetDefaultJobStartOptions");
        return SSample<zamclientlib::SJobStartOptions>::Value();
    }
    std::shared_ptr<zamclientlib::IBackupJobSession> Start(zamclientlib::SJobStartOptions options) override {
        Note("Start", options);
        return Found(NewSession());
    }
    bool Enable() override {
        Note("Enable");
        return true;
    }
    bool Disable() override {
        Note("Disable");
        return false;
    }
    zamclientlib::SBackupJobConfigurationInfo GetConfigurationInfo() const override {
        Note("GetConfigurationInfo");
        return SSample<zamclientlib::SBackupJobConfigurationInfo>::Value();
    }
    void UpdateConfigurationInfo(zamclientlib::SBackupJobConfigurationInfo configInfo) override {
        Note("UpdateConfigurationInfo", configInfo);
    }
    std::vector<zamclientlib::SCheckJobValidityMessage> CheckValidity() const override {
        Note("CheckValidity");
        return SampleAndDefaultRecord<zamclientlib::SCheckJobValidityMessage>();
    }
    std::string GetUserData() const override {
        Note("GetUserData");
        return " user\r\n<data> ";
    }
    void SetUserData(std::string userData) override { Note("SetUserData", userData); }
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions() const override {
        Note("GetBackupJobSessions");
        return Found(Sessions{NewSession(), nullptr, NewSession()});
    }
    std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>> GetBackupJobSessions(
        zamclientlib::usn_t usn) const override {
        Note("GetBackupJobSessions", usn);
        return Found(Sessions{nullptr, NewSession()});
    }
    std::shared_ptr<zamclientlib::IBackupJobSession> FindLastBackupJobSession() const override {
        Note("FindLastBackupJobSession");
        return Found(NewSession());
    }
    std::vector<zamclientlib::SRestoreOib> GetOibsForRestore() const override {
        Note("GetOibsForRestore");
        return SampleAndDefaultRecord<zamclientlib::SRestoreOib>();
    }

private:
    using Sessions = std::vector<std::shared_ptr<zamclientlib::IBackupJobSession>>;

    std::shared_ptr<zamclientlib::IBackupJobSession> NewSession() const {
        return std::make_shared<CFakeBackupJobSession>(m_journal);
    }
};

class CFakeProduct final : public zamclientlib::IZamProduct, CFakeAgentObject {
public:
    explicit CFakeProduct(Journal journal) : CFakeAgentObject(std::move(journal), "IZamProduct") {}

    std::shared_ptr<zamclientlib::IBackupJob> FindBackupJob(apigen::Guid jobId) const override {
        Note("FindBackupJob", jobId);
        return Found(NewJob());
    }
    std::vector<std::shared_ptr<zamclientlib::IBackupJob>> GetBackupJobs() const override {
        Note("GetBackupJobs");
        return Found(std::vector{NewJob(), std::shared_ptr<zamclientlib::IBackupJob>(), NewJob()});
    }
    std::shared_ptr<zamclientlib::IBackupJob> CreateBackupJob(
        zamclientlib::SBackupJobConfigurationInfo config) override {
        Note("CreateBackupJob", config);
        return NewJob();
    }
    bool DeleteBackupJob(apigen::Guid obId) override {
        Note("DeleteBackupJob", obId);
        return !m_journal->HasNothing;
    }
    std::shared_ptr<zamclientlib::IBackupJobSession> FindBackupJobSessionById(
        apigen::Guid sessionId) const override {
        Note("FindBackupJobSessionById", sessionId);
        return Found(std::shared_ptr<zamclientlib::IBackupJobSession>(
            std::make_shared<CFakeBackupJobSession>(m_journal)));
    }
    void SetSchedulerPermissionToRunJobs(bool isAllowed) override {
        Note("SetSchedulerPermissionToRunJobs", isAllowed);
    }
    bool IsSchedulerAllowedToRunJobs() override {
        Note("IsSchedulerAllowedToRunJobs");
        return true;
    }
    std::shared_ptr<zamclientlib::IBackupServerManager> GetBackupServerManager() const override {
        Note("GetBackupServerManager");
        return std::make_shared<CFakeBackupServerManager>(m_journal);
    }
    std::shared_ptr<zamclientlib::ICloudServiceProviderManager> GetCloudServiceProviderManager()
        const override {
        Note("GetCloudServiceProviderManager");
        return std::make_shared<CFakeCloudServiceProviderManager>(m_journal);
    }
    std::shared_ptr<zamclientlib::IRepositoryManager> GetRepositoryManager() const override {
        Note("GetRepositoryManager");
        return std::make_shared<CFakeRepositoryManager>(m_journal);
    }
    std::vector<zamclientlib::SResolveObjectInfo> ResolveUserInput(
        std::vector<zamclientlib::SVolumeBackupObject> objects) const override {
        Note("ResolveUserInput", objects);
        return SampleAndDefaultRecord<zamclientlib::SResolveObjectInfo>();
    }
    apigen::Guid GetSessionId() const override {
        Note("GetSessionId");
        return {};
    }

private:
    std::shared_ptr<zamclientlib::IBackupJob> NewJob() const {
        return std::make_shared<CFakeBackupJob>(m_journal);
    }
};

class CFakeControl final : public zamclientlib::IZamControl, CFakeAgentObject {
public:
    explicit CFakeControl(Journal journal) : CFakeAgentObject(std::move(journal), "IZamControl") {}

    std::shared_ptr<zamclientlib::IZamProduct> RequestControl(zamclientlib::SZamControlOwnerInfo owner,
                                                              bool force) override {
        Note("RequestControl", owner, force);
        return Found(std::shared_ptr<zamclientlib::IZamProduct>(std::make_shared<CFakeProduct>(m_journal)));
    }
    void ReleaseControl(zamclientlib::SZamControlOwnerInfo owner) override { Note("ReleaseControl", owner); }
    zamclientlib::SZamProductInfo GetProductInfo() const override {
        Note("GetProductInfo");
        return SSample<zamclientlib::SZamProductInfo>::Value();
    }
    void SetOwnerMode(apigen::Guid ownerId, zamclientlib::ZAMOwnerMode mode) override {
        Note("SetOwnerMode", ownerId, mode);
    }
    zamclientlib::SZamControlOwnerInfo GetCurrentOwner() const override {
        Note("GetCurrentOwner");
        return SSample<zamclientlib::SZamControlOwnerInfo>::Value();
    }
    zamclientlib::SEventConfig GetEventConfig() const override {
        Note("GetEventConfig");
        return Found(SSample<zamclientlib::SEventConfig>::Value());
    }
    apigen::Guid GetSessionId() const override {
        Note("GetSessionId");
        return SSample<apigen::Guid>::Value();
    }
    bool IsOsxFDAGranted() const override {
        Note("IsOsxFDAGranted");
        return true;
    }
    void GrabLogs(std::string path) const override { Note("GrabLogs", path); }
};

}  // namespace zamtest
