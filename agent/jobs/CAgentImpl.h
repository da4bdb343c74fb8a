// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent's inside. A file a concern: Control, Jobs, Places, Runs (how sessions begin and end), Scheduler, CRun (what
/// a session does), Source (what there is to back up), GrabLogs.
#pragma once

#include <zamservice/EventSource.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <stop_token>
#include <thread>

#include "agent/core/Secrets.h"
#include "agent/core/Validity.h"
#include "agent/engine/IEngine.h"
#include "agent/host/Folders.h"
#include "agent/jobs/CAgent.h"
#include "agent/state/CStore.h"

namespace tarvo {

/// Where a job's configuration keeps the password of its backups.
inline constexpr const char* PasswordPath = "StorageInfo.EncryptionSettings.Password";

std::optional<std::string> PasswordOf(const Secrets& secrets);

/// What `read` gives, for an update of a record. That they are lost is no hindrance where none of them is needed.
Secrets SecretsBefore(const std::function<Secrets()>& read, bool isNeeded);

/// A session at work, or one that awaits its retry. Whoever changes it holds `m_changes`, and `m_state` for the moment
/// of the change; either lets one read.
struct SActive {
    SSession Session;  ///< without its lines
    std::vector<zamclientlib::SLogDetail> Lines;
    std::stop_source Stop;
    std::atomic<bool> IsStopAsked = false;  ///< by a client
};
using ActivePtr = std::shared_ptr<SActive>;

/// How a session ended.
struct SEnding {
    /// What else is written with it. It may be written long after its maker is gone.
    using Also = std::function<void(SSession&, SJob*)>;

    zamclientlib::JobSessionTaskStatus Status{};
    bool IsInterrupted = false;
    std::vector<zamclientlib::SLogDetail> Lines;
    Also Along;
    Moment At{};
    std::size_t LinesShown = 0;  ///< so many of them are seen by clients already
};

/// Two locks, always taken in this order:
/// - `m_changes` lets one change happen at a time: what is written to the database, then to memory, then published. It
///   may be held while the disk is waited for, never while a child, the source or a repository is.
/// - `m_state` guards what is in memory, for moments.
/// A third, `m_reading`, guards the connection for questions about the past; nothing else is taken within it.
class CAgent::Impl {
public:
    Impl(const SFolders& folders, const SWorkSettings& settings, std::shared_ptr<IEngine> engine,
         const IClock& clock, ILog& log);
    ~Impl() { Stop(); }

    void Start();
    void Reload(const SWorkSettings& settings);
    void Wake() noexcept;
    void Stop() noexcept;

    /// \name Control
    /// @{
    GrantPtr RequestControl(const SPeer& peer, const zamclientlib::SZamControlOwnerInfo& owner,
                            bool isForced);
    void ReleaseControl(const SPeer& peer, const Guid& owner);
    void SetOwnerMode(const SPeer& peer, const Guid& owner, zamclientlib::ZAMOwnerMode mode);
    void SetSchedulerAllowed(const SCaller& caller, bool isAllowed);
    void GrabLogs(const SPeer& peer, const std::string& path);
    /// @}

    /// \name Jobs
    /// @{
    SJob RequireJob(const Guid& id) const;
    Guid CreateJob(const SCaller& caller, zamclientlib::SBackupJobConfigurationInfo config);
    bool DeleteJob(const SCaller& caller, const Guid& id);
    void UpdateJob(const SCaller& caller, const Guid& id, zamclientlib::SBackupJobConfigurationInfo config);
    bool SetEnabled(const SCaller& caller, const Guid& id, bool isEnabled);
    void SetUserData(const SCaller& caller, const Guid& id, const std::string& userData);
    Guid StartJob(const SCaller& caller, const Guid& id, const zamclientlib::SJobStartOptions& options);
    std::vector<zamclientlib::SCheckJobValidityMessage> CheckValidity(const Guid& id);
    /// @}

    /// \name Sessions
    /// @{
    ActivePtr FindInMemory(const Guid& id) const;  ///< with m_state held
    bool HasSession(const Guid& id);
    zamclientlib::SBackupJobSessionInfo SessionInfo(const Guid& id);
    bool StopSession(const SCaller& caller, const Guid& id, const std::string& message);
    /// @}

    /// \name Places for backups
    /// @{
    zamclientlib::SBackupRepositoryInfo CreateRepository(const SCaller& caller,
                                                         zamclientlib::SBackupRepositoryInfo info);
    zamclientlib::SBackupRepositoryInfo UpdateRepository(const SCaller& caller,
                                                         zamclientlib::SBackupRepositoryInfo info);
    void DeleteRepository(const SCaller& caller, const Guid& id);
    bool CanRepositoryBeDeleted(const Guid& id) const;
    apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> RepositorySize(const Guid& id) const;

    /// Why nothing can be written there now; empty when it can.
    std::string RepositoryFault(const zamclientlib::SBackupRepositoryInfo& repository);

    /// Whether the disk of that place is not mounted, though the folder on which it was may be there.
    bool IsAway(const Guid& repository, const std::string& location);

    template <class R>
    std::vector<R> All() const;
    template <class R>
    apigen::Optional<R> Find(const Guid& id) const;
    template <class R>
    R Add(const SCaller& caller, R info);
    template <class R>
    R Update(const SCaller& caller, R info);
    template <class R>
    bool Delete(const SCaller& caller, const Guid& id);
    template <class R>
    void RefuseResync(const SCaller& caller, const Guid& id);
    /// @}

    /// A question about the past.
    template <class Ask>
    auto Read(Ask&& ask) {
        const std::lock_guard lock(m_reading);
        return ask(m_past);
    }

    std::unique_lock<std::mutex> LockState() const { return std::unique_lock(m_state); }

    // Guarded by m_state; changed with m_changes held as well.
    std::vector<SJob> m_jobs;
    CControl m_control;
    bool m_isSchedulerAllowed = true;
    std::vector<zamclientlib::SBackupRepositoryInfo> m_repositories;
    std::vector<zamclientlib::SBackupServerInfo> m_servers;
    std::vector<zamclientlib::SCloudServiceProviderInfo> m_providers;

    const Guid m_sessionId = Guid::Random();
    Guid m_instance;
    std::optional<zamservice::CEventSource> m_events;

private:
    friend class CRun;

    /// \name Changes. With m_changes held.
    /// @{
    void RequireChangeBy(const SCaller& caller) const;
    const SJob& JobForChange(const Guid& id) const;
    void RequireIdle(const SJob& job) const;
    void RequireName(const zamclientlib::SBackupJobConfigurationInfo& config, const Guid& self) const;

    /// Writes the job, then lets everybody see it.
    void SaveJob(const SJob& job, const Secrets* secrets = nullptr);
    void ShowJob(const SJob& job);
    void Promise(SJob& job, bool isDropped) const;  ///< what comes next, after a change of the schedule

    zamclientlib::SBaseEvent NewEvent(zamclientlib::EEventType type, zamclientlib::EEventSourceType source,
                                      const Guid& controlSession);
    template <class E>
    void PublishJobEvent(zamclientlib::EEventType type, apigen::Optional<E> zamclientlib::SBaseEvent::*member,
                         const Guid& job, const SPeer& peer);
    void PublishStarted(const SJob& job, const SSession& session);
    void Publish(const zamclientlib::SBaseEvent& event) noexcept;
    void KeepCounters();
    /// @}

    /// \name Runs
    /// @{
    /// Makes the session durable, tells of it and starts its thread. With m_changes held.
    Guid Begin(SJob job, const zamclientlib::SJobStartOptions& options, const SOrigin& origin,
               const SSession* previous, bool isChecked, const std::function<void(SJob&)>& claim = {});

    /// Changes a session: in the database together with what `also` writes, then in memory. Takes m_changes.
    void Amend(SActive& active, const std::function<void(SSession&)>& change,
               std::vector<zamclientlib::SLogDetail> lines = {}, const std::function<void()>& also = {});
    void AmendLocked(SActive& active, const std::function<void(SSession&)>& change,
                     std::vector<zamclientlib::SLogDetail> lines, const std::function<void()>& also);

    /// Ends a session. `also` writes what belongs to it. While that can't be written, the session goes on as far as
    /// anybody can see, and the scheduler tries again.
    void End(const ActivePtr& active, zamclientlib::JobSessionTaskStatus status, bool isInterrupted,
             std::vector<zamclientlib::SLogDetail> lines, SEnding::Also also = {});
    void EndLocked(const ActivePtr& active, zamclientlib::JobSessionTaskStatus status, bool isInterrupted,
                   std::vector<zamclientlib::SLogDetail> lines, SEnding::Also also);
    void WriteEnding(const ActivePtr& active, SEnding& ending);

    /// Tries again to write what could not be written, when it is time for it. With m_changes held.
    void WriteEndings(bool isLastTime);

    void StartThread(std::function<void()> work);
    void ReapThreads();

    /// Finds out what became of sessions that were under way when the agent ended, one job's at a time.
    void Adopt(const std::vector<ActivePtr>& left);
    void Adopt(const ActivePtr& active);
    void DropUnprepared(const Guid& job);

    /// Waits until the session may work: so many at once, one a repository.
    bool TakeSlot(SActive& active, const Guid& repository);
    void GiveSlot(const Guid& repository) noexcept;
    bool IsSlotFree(const Guid& repository) const;

    /// Gives chains whose password was changed their new one.
    void ChangeKeys(const Guid& job, const std::string& password, const std::stop_token& stop);
    void ChangeKeysLater(const Guid& job);
    /// @}

    /// \name Scheduler
    /// @{
    void RunScheduler();
    void DoDue();
    void DoDueOf(const SJob& job, Moment now);
    void RetryDue(const ActivePtr& active, Moment now);
    std::vector<SJob> ScheduledJobs() const;  ///< those that may begin by themselves
    std::optional<Moment> NextMoment(Moment now);
    /// @}

    SHostFacts FactsOf(const zamclientlib::SBackupJobConfigurationInfo& config, const Secrets& secrets,
                       bool isThorough);
    std::optional<SJob> FindJob(const Guid& id) const;
    SWorkSettings Settings() const;
    SEngineStore StoreOf(const SChain& chain, const std::optional<std::string>& password) const;

    /// Notes on which mount point the repository stands, for `IsAway`.
    void NoteMount(const zamclientlib::SBackupRepositoryInfo& repository) noexcept;

    template <class R>
    std::vector<R>& ListOf();

    const SFolders m_folders;
    SWorkSettings m_settings;  // guarded by m_state
    const std::shared_ptr<IEngine> m_engine;
    const IClock& m_clock;
    ILog& m_log;

    std::mutex m_changes;
    CStore m_store;                                          // guarded by m_changes
    long m_usn = 0;                                          // likewise
    unsigned long m_event = 0;                               // likewise
    std::vector<std::pair<ActivePtr, SEnding>> m_unwritten;  // likewise
    std::chrono::steady_clock::time_point m_writeAgain;      // likewise

    mutable std::mutex m_state;
    std::map<Guid, ActivePtr> m_active;  ///< by job
    std::set<Guid> m_busyRepositories;
    unsigned m_working = 0;
    std::condition_variable_any m_slotFree;
    bool m_isWoken = false;
    bool m_isEnding = false;
    bool m_isStarted = false;
    std::condition_variable m_wake;

    struct SThread {
        std::thread Thread;
        std::shared_ptr<std::atomic<bool>> IsDone;
    };
    std::list<SThread> m_threads;                   // guarded by m_state
    std::map<Guid, std::vector<ActivePtr>> m_left;  // by job; until `Start`
    std::stop_source m_end;
    std::thread m_scheduler;

    std::mutex m_reading;
    CStore m_past;
};

/// The element of a list whose `Id` this is, or null.
template <class List>
auto FindById(List& list, const Guid& id) -> decltype(&list.front()) {
    for (auto& element : list) {
        if (element.Id == id) return &element;
    }
    return nullptr;
}

/// \name What the host says of things that jobs name
/// @{
/// Where the repository's files stand; empty when it is no folder of this host.
std::string LocationOf(const zamclientlib::SBackupRepositoryInfo& repository);

/// Why nothing can be written there now; empty when it can.
std::string LocationFault(const zamclientlib::SBackupRepositoryInfo& repository);

apigen::Optional<zamclientlib::SBackupRepositorySizeInfo> SizeOf(
    const zamclientlib::SBackupRepositoryInfo& repository);
/// @}

/// What a log line names for the commonest names of all.
std::string Described(const SJob& job);

}  // namespace tarvo
