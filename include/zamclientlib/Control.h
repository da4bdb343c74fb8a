// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent: control of it, and its product object. `GetZamControl` connects to one.
///
/// Every method is a remote call and fails as those of Installer.h do.
#pragma once

#include <apigen/Export.h>
#include <apigen/Guid.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>
#include <zamclientlib/Jobs.h>
#include <zamclientlib/Managers.h>

#include <memory>
#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// The agent as its owner sees it. Reached by `IZamControl::RequestControl`.
class IZamProduct {
public:
    /// The job, or an empty pointer when there is none.
    [[nodiscard]] virtual std::shared_ptr<IBackupJob> FindBackupJob(apigen::Guid jobId) const = 0;

    /// Every job that the agent has.
    [[nodiscard]] virtual std::vector<std::shared_ptr<IBackupJob>> GetBackupJobs() const = 0;
    /// Makes a job; its id is the agent's to give.
    /// \throws CGenericException when the agent refuses the definition
    virtual std::shared_ptr<IBackupJob> CreateBackupJob(SBackupJobConfigurationInfo config) = 0;

    /// \return whether there was such a job
    /// \throws CJobIsRunning
    virtual bool DeleteBackupJob(apigen::Guid obId) = 0;

    /// The session, or an empty pointer when there is none.
    [[nodiscard]] virtual std::shared_ptr<IBackupJobSession> FindBackupJobSessionById(
        apigen::Guid sessionId) const = 0;

    /// Allows or forbids that schedules start jobs.
    virtual void SetSchedulerPermissionToRunJobs(bool isAllowed) = 0;

    /// Whether schedules may start jobs.
    [[nodiscard]] virtual bool IsSchedulerAllowedToRunJobs() = 0;
    /// The backup servers.
    [[nodiscard]] virtual std::shared_ptr<IBackupServerManager> GetBackupServerManager() const = 0;
    /// The cloud service providers.
    [[nodiscard]] virtual std::shared_ptr<ICloudServiceProviderManager> GetCloudServiceProviderManager()
        const = 0;
    /// The repositories.
    [[nodiscard]] virtual std::shared_ptr<IRepositoryManager> GetRepositoryManager() const = 0;

    /// What the agent makes of names that a user typed, in their order.
    [[nodiscard]] virtual std::vector<SResolveObjectInfo> ResolveUserInput(
        std::vector<SVolumeBackupObject> objects) const = 0;

    /// As `IZamControl::GetSessionId`.
    [[nodiscard]] virtual apigen::Guid GetSessionId() const = 0;

    virtual ~IZamProduct() = default;
};

/// Root of the agent's objects: who controls the agent, and what the agent is.
class IZamControl {
public:
    /// Takes control of the agent for `owner`.
    /// \param force take it from another owner
    /// \return the product, or an empty pointer when the agent does not hand it out
    virtual std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo owner, bool force) = 0;

    /// Gives control back.
    virtual void ReleaseControl(SZamControlOwnerInfo owner) = 0;

    /// What the agent is. Needs no control of it.
    [[nodiscard]] virtual SZamProductInfo GetProductInfo() const = 0;

    /// Changes how exclusively the owner holds control.
    virtual void SetOwnerMode(apigen::Guid ownerId, ZAMOwnerMode mode) = 0;

    /// Who controls the agent now; the nil id when nobody does.
    [[nodiscard]] virtual SZamControlOwnerInfo GetCurrentOwner() const = 0;

    /// How to reach the event source; for `CEventsStream`.
    [[nodiscard]] virtual SEventConfig GetEventConfig() const = 0;

    /// Identifies this run of the service.
    [[nodiscard]] virtual apigen::Guid GetSessionId() const = 0;

    /// Whether the service has full disk access on macOS; false elsewhere.
    [[nodiscard]] virtual bool IsOsxFDAGranted() const = 0;

    /// Has the agent gather its logs at `path`, on the agent's host.
    virtual void GrabLogs(std::string path) const = 0;

    virtual ~IZamControl() = default;
};

}  // namespace zamclientlib
