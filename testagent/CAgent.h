// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent's whole state, in memory.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/Exceptions.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testagent/CPrivateDirectory.h"
#include "testagent/Events.h"
#include "testagent/Script.h"

namespace testagent {

using apigen::Guid;

/// One run of a job.
struct SSession {
    zamclientlib::SBackupJobSessionInfo Info;
    zamclientlib::SJobStartOptions Options;
    unsigned Steps = 0;
    bool IsStopping = false;
};

struct SJob {
    Guid Id;
    zamclientlib::SBackupJobConfigurationInfo Config;  ///< with its passwords
    bool IsEnabled = true;
    bool IsDeleted = false;
    apigen::Optional<zamclientlib::SDateTime> LastBackupTime;
    std::vector<std::shared_ptr<SSession>> Sessions;  ///< oldest first
    std::shared_ptr<SSession> Active;                 ///< running, or failed and waiting for its retry
    std::vector<zamclientlib::SRestoreOib> RestorePoints;
};

/// One owner's leave to use the agent: from its request of control until control is given back, or until
/// another takes it by force. It does not come back with a later request.
struct SGrant {
    Guid Owner;
    bool IsOver = false;
};
using GrantPtr = std::shared_ptr<SGrant>;

/// What one agent knows and does. The objects that clients call are thin views of it.
///
/// Calls and the clock come from several threads: whoever touches a member of `State` holds `Lock()`.
class CAgent {
public:
    /// \param controlSocket where clients join the agent; empty when there is one alone
    explicit CAgent(SScript script, std::string controlSocket = {});
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;
    ~CAgent();

    std::unique_lock<std::mutex> Lock() const { return std::unique_lock(m_mutex); }

    const SScript& Script() const noexcept { return m_script; }
    const Guid& SessionId() const noexcept { return m_sessionId; }
    zamclientlib::SEventConfig EventConfig() const {
        return {zamclientlib::SEventConfigV1{m_events->SocketPath()}};
    }
    const std::string& ControlSocket() const noexcept { return m_controlSocket; }

    /// Takes everything away that would outlive the process. For an end without destructors; any thread may ask.
    void RemoveTraces() noexcept;

    /// Notes that a method was called.
    void Log(const std::string& methodId);

    /// The identifiers of the methods that were called, the latest ones at least. With the lock held.
    std::string LogText() const;

    /// \name Control. To be called with the lock held, like all that follows.
    /// @{
    zamclientlib::SZamControlOwnerInfo Owner;
    GrantPtr RequestControl(const zamclientlib::SZamControlOwnerInfo& owner, bool isForced);
    void ReleaseControl(const Guid& owner);

    /// Throws unless things may be changed by that leave as matters stand.
    void RequireChangeBy(const SGrant& grant) const;
    /// @}

    /// \name Jobs
    /// @{
    std::vector<std::shared_ptr<SJob>> Jobs;
    bool IsSchedulerAllowed = true;

    std::shared_ptr<SJob> FindJob(const Guid& id) const;
    std::shared_ptr<SJob> CreateJob(const zamclientlib::SBackupJobConfigurationInfo& config);
    bool DeleteJob(const Guid& id);
    void UpdateJob(SJob& job, zamclientlib::SBackupJobConfigurationInfo config);
    bool SetEnabled(SJob& job, bool isEnabled);
    void SetUserData(SJob& job, const std::string& userData);
    std::shared_ptr<SSession> Start(SJob& job, const zamclientlib::SJobStartOptions& options);
    bool Stop(SJob& job, SSession& session, const std::string& message);

    /// One step of the job's active session.
    void Step(SJob& job);
    /// @}

    /// \name Places for backups
    /// @{
    std::vector<zamclientlib::SBackupRepositoryInfo> Repositories;
    std::vector<zamclientlib::SBackupServerInfo> Servers;
    std::vector<zamclientlib::SCloudServiceProviderInfo> Providers;

    bool IsUsed(const Guid& repository) const;
    /// @}

private:
    void Listen();
    void EndGrants(const Guid& except);
    void CheckConfig(const zamclientlib::SBackupJobConfigurationInfo& config, const Guid& self) const;
    std::shared_ptr<SSession> NewSession(SJob& job, const zamclientlib::SJobStartOptions& options,
                                         const SSession* previous);
    void Finish(SJob& job, SSession& session, zamclientlib::JobSessionTaskStatus status);
    void AddRestorePoint(SJob& job, const SSession& session);
    void Touch(SSession& session) { session.Info.Usn = ++m_usn; }
    void RunClock();

    zamclientlib::SBaseEvent NewEvent(zamclientlib::EEventType type, zamclientlib::EEventSourceType source);

    /// Publishes one of the events that are about a job as a whole.
    template <class E>
    void PublishJobEvent(zamclientlib::EEventType type, apigen::Optional<E> zamclientlib::SBaseEvent::*member,
                         const SJob& job);
    void PublishStarted(const SJob& job, const SSession& session);

    const SScript m_script;
    const std::string m_controlSocket;
    const Guid m_sessionId = Guid::Random();
    mutable std::mutex m_mutex;
    std::deque<std::string> m_log;
    std::map<Guid, GrantPtr> m_grants;  ///< those that are not over
    std::optional<CPrivateDirectory> m_directory;
    std::unique_ptr<IEvents> m_events;
    std::once_flag m_tracesRemoved;
    unsigned long m_eventId = 0;
    long m_usn = 0;
    bool m_isEnding = false;
    std::condition_variable m_end;
    std::thread m_clock;
};

/// The current time.
zamclientlib::SDateTime Now();

/// The element of a list whose `Id` this is, or null.
template <class List>
auto FindById(List& list, const Guid& id) -> decltype(&list.front()) {
    for (auto& element : list) {
        if (element.Id == id) return &element;
    }
    return nullptr;
}

/// As `FindById`, for what has to be there; `kind` is the word for it in the message.
template <class List>
auto& RequireById(List& list, const Guid& id, const char* kind) {
    auto* const found = FindById(list, id);
    if (found == nullptr) {
        throw zamclientlib::CGenericException("There is no " + std::string(kind) + " " + id.Serialize());
    }
    return *found;
}

}  // namespace testagent
