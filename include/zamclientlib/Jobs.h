// SPDX-License-Identifier: Apache-2.0
/// \file
/// Backup jobs and their runs.
///
/// Every method is a remote call and fails as those of Installer.h do.
#pragma once

#include <apigen/Export.h>
#include <apigen/Guid.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <memory>
#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// Number of a change, as the service counts them.
using usn_t = long;

/// One run of a job.
class IBackupJobSession {
public:
    /// How far the run is, or how it ended.
    [[nodiscard]] virtual SBackupJobSessionInfo GetInfo() const = 0;

    /// Asks the run to stop.
    /// \param message kept in the session's log
    /// \return whether there was something to stop
    virtual bool Stop(std::string message) = 0;

    virtual ~IBackupJobSession() = default;
};

/// One backup job.
class IBackupJob {
public:
    /// The job in short: id, name, whether it is enabled, and when it last ran.
    [[nodiscard]] virtual SBackupJobInfo GetInfo() const = 0;
    /// How the job starts when nobody says otherwise; for `Start`, changed or not.
    [[nodiscard]] virtual SJobStartOptions GetDefaultJobStartOptions() const = 0;

    /// Starts a run.
    /// \throws CJobIsRunning when the job runs already
    virtual std::shared_ptr<IBackupJobSession> Start(SJobStartOptions options) = 0;

    /// \return what the service answers
    virtual bool Enable() = 0;

    /// \return what the service answers
    virtual bool Disable() = 0;

    /// The whole definition, for `UpdateConfigurationInfo` after changes.
    [[nodiscard]] virtual SBackupJobConfigurationInfo GetConfigurationInfo() const = 0;

    /// Replaces the whole definition.
    /// \throws CJobIsRunning
    virtual void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo) = 0;

    /// The findings of a check of the definition; empty when all is well.
    [[nodiscard]] virtual std::vector<SCheckJobValidityMessage> CheckValidity() const = 0;

    /// The text that `SetUserData` left; empty when there is none.
    [[nodiscard]] virtual std::string GetUserData() const = 0;

    /// Keeps a text of the caller's own with the job.
    virtual void SetUserData(std::string userData) = 0;

    /// Every session of the job.
    [[nodiscard]] virtual std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions() const = 0;

    /// The sessions that the service lists for `usn`: those changed since, for instance.
    [[nodiscard]] virtual std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions(
        usn_t usn) const = 0;

    /// The newest session, or an empty pointer when the job has not run.
    [[nodiscard]] virtual std::shared_ptr<IBackupJobSession> FindLastBackupJobSession() const = 0;

    /// The restore points.
    [[nodiscard]] virtual std::vector<SRestoreOib> GetOibsForRestore() const = 0;

    virtual ~IBackupJob() = default;
};

}  // namespace zamclientlib
