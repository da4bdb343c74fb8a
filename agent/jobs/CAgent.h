// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent at work: everything that the objects of the interfaces hand on to.
#pragma once

#include <zamclientlib/EventRecords.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/core/CControl.h"
#include "agent/core/IClock.h"
#include "agent/core/ILog.h"
#include "agent/core/Values.h"
#include "agent/host/Mounts.h"

namespace tarvo {

class IEngine;
struct SFolders;

/// What the settings say of the work.
struct SWorkSettings {
    unsigned AtOnce = 2;             ///< sessions that work at the same time; the others are pending
    int Nice = 10;                   ///< of the engine, for starts that say nothing else
    std::chrono::seconds Jitter{0};  ///< scheduled runs begin up to so much later
    unsigned SessionsKept = 1000;    ///< of each job; older ones are forgotten
    unsigned VerifyParts = 0;        ///< read so many parts' next one after a scheduled run; 0: never
    SHostPlaces Host;                ///< where devices and mounts are looked up
};

/// A client that changes something.
struct SCaller {
    SPeer Peer;
    GrantPtr Grant;
};

/// Jobs, sessions, schedules and places for backups, durable, and the threads that work on them.
///
/// Every method may be called from any thread. None waits for a backup: a change waits for changes before it to be on
/// the disk, a question not even for that. A change is durable first, then the event is published, then the method
/// returns. What is refused throws zamclientlib::CGenericException with the reason, unless stated otherwise; an id
/// that nothing has (any more) is refused, too, where the method needs it.
class CAgent {
public:
    /// Opens the state, and adopts or fails what an end without a farewell has left.
    /// \throws CStateError, std::system_error
    CAgent(const SFolders& folders, const SWorkSettings& settings, std::shared_ptr<IEngine> engine,
           const IClock& clock, ILog& log);
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;
    ~CAgent();  ///< as `Stop`

    /// Begins with the schedules and with awaited retries.
    void Start();

    /// Takes other settings; sessions under way keep theirs.
    void Reload(const SWorkSettings& settings);

    /// The host's clock was set, or its time zone: schedules are looked at anew.
    void ClockChanged() noexcept;

    /// Stops the sessions, marks them interrupted, ends the threads. Within seconds. Later calls that would start
    /// something are refused.
    void Stop() noexcept;

    /// \name Control
    /// @{
    GrantPtr RequestControl(const SPeer& peer, const zamclientlib::SZamControlOwnerInfo& owner,
                            bool isForced);
    void ReleaseControl(const SPeer& peer, const zamclientlib::SZamControlOwnerInfo& owner);
    void SetOwnerMode(const SPeer& peer, const Guid& owner, zamclientlib::ZAMOwnerMode mode);
    zamclientlib::SZamControlOwnerInfo CurrentOwner() const;
    Guid SessionId() const;  ///< of this run of the agent
    zamclientlib::SZamProductInfo ProductInfo() const;
    zamclientlib::SEventConfig EventConfig() const;

    /// Writes a .tar.gz without a secret to `path`, which has to be absolute, and new.
    void GrabLogs(const SPeer& peer, const std::string& path) const;
    /// @}

    /// \name The product
    /// @{
    std::vector<zamclientlib::SResolveObjectInfo> ResolveUserInput(
        const std::vector<zamclientlib::SVolumeBackupObject>& objects) const;
    void SetSchedulerAllowed(const SCaller& caller, bool isAllowed);
    bool IsSchedulerAllowed() const;
    /// @}

    /// \name Jobs. CJobIsRunning where the job's run doesn't allow it.
    /// @{
    bool HasJob(const Guid& id) const;
    std::vector<Guid> Jobs() const;  ///< in the order in which they were made
    Guid CreateJob(const SCaller& caller, const zamclientlib::SBackupJobConfigurationInfo& config);

    /// Its points stay. \return whether there was such a job
    bool DeleteJob(const SCaller& caller, const Guid& id);

    zamclientlib::SBackupJobInfo JobInfo(const Guid& id) const;
    zamclientlib::SJobStartOptions DefaultStartOptions(const Guid& id) const;

    /// \return the session
    Guid StartJob(const SCaller& caller, const Guid& id, const zamclientlib::SJobStartOptions& options);

    /// \return whether that changed anything
    bool SetEnabled(const SCaller& caller, const Guid& id, bool isEnabled);

    zamclientlib::SBackupJobConfigurationInfo Configuration(const Guid& id) const;  ///< without secrets
    void UpdateJob(const SCaller& caller, const Guid& id,
                   const zamclientlib::SBackupJobConfigurationInfo& config);
    std::vector<zamclientlib::SCheckJobValidityMessage> CheckValidity(const Guid& id) const;
    std::string UserData(const Guid& id) const;
    void SetUserData(const SCaller& caller, const Guid& id, const std::string& userData);
    std::vector<zamclientlib::SRestoreOib> PointsForRestore(const Guid& id) const;  ///< oldest first
    /// @}

    /// \name Sessions
    /// @{
    std::vector<Guid> SessionsOf(const Guid& job) const;               ///< oldest first
    std::vector<Guid> SessionsSince(const Guid& job, long usn) const;  ///< those with a greater number
    std::optional<Guid> LastSessionOf(const Guid& job) const;
    bool HasSession(const Guid& id) const;
    zamclientlib::SBackupJobSessionInfo SessionInfo(const Guid& id) const;

    /// \return whether there was something to stop
    bool StopSession(const SCaller& caller, const Guid& id, const std::string& message);
    /// @}

    /// \name Repositories. What is shown has no secrets.
    /// @{
    zamclientlib::SBackupRepositoryInfo CreateRepository(const SCaller& caller,
                                                         const zamclientlib::SBackupRepositoryInfo& info);
    zamclientlib::SBackupRepositoryInfo UpdateRepository(const SCaller& caller,
                                                         const zamclientlib::SBackupRepositoryInfo& info);
    void DeleteRepository(const SCaller& caller, const Guid& id);
    bool CanRepositoryBeDeleted(const Guid& id) const;
    std::vector<zamclientlib::SBackupRepositoryInfo> Repositories() const;
    apigen::Optional<zamclientlib::SBackupRepositoryInfo> FindRepository(const Guid& id) const;
    apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> RepositorySize(const Guid& id) const;
    /// @}

    /// \name Servers and providers
    /// @{
    zamclientlib::SBackupServerInfo AddServer(const SCaller& caller,
                                              const zamclientlib::SBackupServerInfo& info);
    void UpdateServer(const SCaller& caller, const zamclientlib::SBackupServerInfo& info);
    bool DeleteServer(const SCaller& caller, const Guid& id);
    void ResyncServer(const SCaller& caller, const Guid& id);
    std::vector<zamclientlib::SBackupServerInfo> Servers() const;
    apigen::Optional<zamclientlib::SBackupServerInfo> FindServer(const Guid& id) const;

    zamclientlib::SCloudServiceProviderInfo AddProvider(const SCaller& caller,
                                                        const zamclientlib::SCloudServiceProviderInfo& info);
    void UpdateProvider(const SCaller& caller, const zamclientlib::SCloudServiceProviderInfo& info);
    bool DeleteProvider(const SCaller& caller, const Guid& id);
    void ResyncProvider(const SCaller& caller, const Guid& id);
    std::vector<zamclientlib::SCloudServiceProviderInfo> Providers() const;
    apigen::Optional<zamclientlib::SCloudServiceProviderInfo> FindProvider(const Guid& id) const;
    std::vector<zamclientlib::SGatewayInfo> GatewaysOf(const Guid& provider) const;
    /// @}

    class Impl;  ///< the inside, for the files of this room

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace tarvo
