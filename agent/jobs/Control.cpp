// SPDX-License-Identifier: Apache-2.0
// Beginning and end of the agent, control of it, and its events.
#include <algorithm>
#include <utility>

#include "agent/core/Schedule.h"
#include "agent/jobs/CAgentImpl.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Quoted;

namespace {
constexpr const char* UsnFact = "usn";
constexpr const char* EventFact = "event";
constexpr const char* InstanceFact = "instance";
constexpr const char* SchedulerFact = "is scheduler forbidden";
}  // namespace

std::optional<std::string> PasswordOf(const Secrets& secrets) {
    const auto found = secrets.find(PasswordPath);
    return found != secrets.end() ? std::optional(found->second) : std::nullopt;
}

Secrets SecretsBefore(const std::function<Secrets()>& read, bool isNeeded) {
    try {
        return read();
    } catch (const CStateError& error) {
        if (isNeeded || error.Fault != EStateFault::Broken) throw;
        return {};
    }
}

std::string Described(const SJob& job) {
    return "the job " + Quoted(job.Config.JobName);
}

CAgent::Impl::Impl(const SFolders& folders, const SWorkSettings& settings, std::shared_ptr<IEngine> engine,
                   const IClock& clock, ILog& log)
    : m_folders(folders),
      m_settings(settings),
      m_engine(std::move(engine)),
      m_clock(clock),
      m_log(log),
      m_store(folders.State),
      m_past(folders.State, {true, std::chrono::seconds(5)}) {
    const std::lock_guard changes(m_changes);
    m_store.RemoveStraySecrets();
    m_usn = m_store.Number(UsnFact);
    m_event = static_cast<unsigned long>(m_store.Number(EventFact));
    if (const auto instance = m_store.Fact(InstanceFact)) {
        m_instance = Guid::Deserialize(*instance);
    } else {
        m_instance = Guid::Random();
        m_store.SetFact(InstanceFact, m_instance.Serialize());
    }
    m_isSchedulerAllowed = m_store.Number(SchedulerFact) == 0;
    m_control = CControl(m_store.Owner());
    for (auto& job : m_store.Jobs()) {
        if (!job.IsDeleted) m_jobs.push_back(std::move(job));
    }
    m_repositories = m_store.Places<SBackupRepositoryInfo>();
    m_servers = m_store.Places<SBackupServerInfo>();
    m_providers = m_store.Places<SCloudServiceProviderInfo>();
    // What was under way counts as running until it is known what has become of it.
    for (auto& session : m_store.UnfinishedSessions()) {
        auto active = std::make_shared<SActive>();
        active->Lines = m_store.LinesOf(session.Info.Uid);
        active->Session = std::move(session);
        const Guid job = active->Session.Info.JobUid;
        if (!active->Session.AwaitsRetry()) m_left[job].push_back(active);
        m_active[job] = std::move(active);
    }
    m_events.emplace(m_folders.Run);
}

void CAgent::Impl::Start() {
    std::map<Guid, std::vector<ActivePtr>> left;
    std::vector<Guid> jobs;
    {
        const auto lock = LockState();
        if (m_isStarted || m_isEnding) return;
        m_isStarted = true;
        left.swap(m_left);
        for (const auto& job : m_jobs) {
            jobs.push_back(job.Id);
        }
    }
    for (const auto& [job, sessions] : left) {
        StartThread([this, sessions = sessions] { Adopt(sessions); });
    }
    for (const auto& job : jobs) {
        ChangeKeysLater(job);  // where the last end came before that was done
    }
    m_scheduler = std::thread([this] { RunScheduler(); });
}

void CAgent::Impl::Reload(const SWorkSettings& settings) {
    {
        const auto lock = LockState();
        m_settings = settings;
    }
    m_slotFree.notify_all();
    Wake();
}

SWorkSettings CAgent::Impl::Settings() const {
    const auto lock = LockState();
    return m_settings;
}

void CAgent::Impl::Wake() noexcept {
    {
        const std::lock_guard lock(m_state);
        m_isWoken = true;
    }
    m_wake.notify_all();
}

void CAgent::Impl::Stop() noexcept {
    std::list<SThread> threads;
    {
        // With the changes held, so that nothing begins beside it.
        const std::lock_guard changes(m_changes);
        const std::lock_guard lock(m_state);
        m_isEnding = true;
        for (const auto& [job, active] : m_active) {
            active->Stop.request_stop();
        }
    }
    m_end.request_stop();
    m_wake.notify_all();
    m_slotFree.notify_all();
    if (m_scheduler.joinable()) m_scheduler.join();
    for (;;) {
        {
            const std::lock_guard lock(m_state);
            threads.splice(threads.end(), m_threads);
        }
        if (threads.empty()) break;
        for (auto& thread : threads) {
            thread.Thread.join();
        }
        threads.clear();
    }
    try {
        const std::lock_guard changes(m_changes);
        WriteEndings(true);
    } catch (const std::exception& error) {
        m_log.Error("The end goes badly: " + apigen::common::Escaped(error.what()));
    }
    if (m_events) m_events->Stop();
}

// Control

GrantPtr CAgent::Impl::RequestControl(const SPeer& peer, const SZamControlOwnerInfo& owner, bool isForced) {
    const std::lock_guard changes(m_changes);
    const auto before = m_control.Owner();
    const auto next = m_control.AfterRequest(owner, isForced);
    if (next != before) m_store.SetOwner(next);
    if (next.Id != before.Id) {
        m_log.Info("Control goes to " + Quoted(next.Name) + " (" + Quoted(peer.UserName) + ")" +
                   (before.Id != Guid{} ? ", taken from " + Quoted(before.Name) : ""));
    }
    const auto lock = LockState();
    return m_control.Request(owner, isForced);
}

void CAgent::Impl::ReleaseControl(const SPeer& peer, const Guid& owner) {
    const std::lock_guard changes(m_changes);
    m_control.RequireOwner(owner);
    m_store.SetOwner({});
    m_log.Info("Control was given back by " + Quoted(m_control.Owner().Name) + " (" + Quoted(peer.UserName) +
               ")");
    const auto lock = LockState();
    m_control.Release(owner);
}

void CAgent::Impl::SetOwnerMode(const SPeer& /*peer*/, const Guid& owner, ZAMOwnerMode mode) {
    const std::lock_guard changes(m_changes);
    m_control.RequireOwner(owner);
    auto next = m_control.Owner();
    next.Mode = mode;
    m_store.SetOwner(next);
    const auto lock = LockState();
    m_control.SetMode(owner, mode);
}

void CAgent::Impl::RequireChangeBy(const SCaller& caller) const {
    if (caller.Grant == nullptr) throw CGenericException("Control was not asked for; request it first");
    m_control.RequireChangeBy(*caller.Grant);
}

void CAgent::Impl::SetSchedulerAllowed(const SCaller& caller, bool isAllowed) {
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        if (m_isSchedulerAllowed == isAllowed) return;
        std::vector<SJob> jobs;
        CStore::CTransaction transaction(m_store);
        m_store.SetNumber(SchedulerFact, isAllowed ? 0 : 1);
        if (isAllowed) {
            for (auto job : m_jobs) {
                Promise(job, true);
                m_store.SaveJob(job);
                jobs.push_back(std::move(job));
            }
        }
        transaction.Commit();
        m_log.Info(std::string("Schedules are ") + (isAllowed ? "allowed" : "forbidden") + " by " +
                   Quoted(caller.Peer.UserName));
        const auto lock = LockState();
        m_isSchedulerAllowed = isAllowed;
        if (isAllowed) m_jobs = std::move(jobs);
    }
    Wake();
}

// Events

SBaseEvent CAgent::Impl::NewEvent(EEventType type, EEventSourceType source, const Guid& controlSession) {
    SBaseEvent event;
    event.Type = type;
    event.Id = ++m_event;
    event.CreateTimeUTC = ToRecord(m_clock.Now());
    event.SourceType = source;
    event.ControlSessionId = controlSession;
    return event;
}

void CAgent::Impl::Publish(const SBaseEvent& event) noexcept {
    try {
        m_events->Publish(event);
    } catch (const std::exception& error) {
        m_log.Error("An event can't be published: " + apigen::common::Escaped(error.what()));
    }
}

void CAgent::Impl::KeepCounters() {
    // Events that belong to the change are numbered after it: leave room for them.
    constexpr unsigned long MostOfAChange = 4;
    m_store.SetNumber(UsnFact, m_usn);
    m_store.SetNumber(EventFact, static_cast<std::int64_t>(m_event + MostOfAChange));
}

}  // namespace tarvo
