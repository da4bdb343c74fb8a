// SPDX-License-Identifier: Apache-2.0
// How sessions begin, change and end, and what becomes of those that an end of the agent left.
#include <algorithm>
#include <utility>

#include "agent/core/Schedule.h"
#include "agent/core/Sessions.h"
#include "agent/jobs/CAgentImpl.h"
#include "agent/jobs/CRun.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Escaped;
using apigen::common::Quoted;
using std::chrono::milliseconds;

namespace {

/// How often it is tried to write an end that could not be written.
constexpr auto WritePace = std::chrono::seconds(1);

milliseconds RetryAfter(const SJob& job) {
    constexpr unsigned long Most = 1000UL * 60 * 60 * 24 * 365;
    const auto& retries = job.Config.RetriesInfo;
    return milliseconds(static_cast<long>(std::min(retries ? retries->TimeoutMs : 0, Most)));
}

SLogDetail StartLine(const SOrigin& origin, Moment now) {
    if (origin.Kind == SOrigin::EKind::Caller) {
        return LogLine(ELogDetailType::Info, "Started by " + Escaped(origin.UserName));
    }
    const std::string late = origin.Promise ? LateText(*origin.Promise, now) : "";
    return LogLine(ELogDetailType::Info, "Started by the schedule" + (late.empty() ? "" : ", " + late));
}

}  // namespace

// Questions

ActivePtr CAgent::Impl::FindInMemory(const Guid& id) const {
    for (const auto& [job, active] : m_active) {
        if (active->Session.Info.Uid == id) return active;
    }
    return nullptr;
}

bool CAgent::Impl::HasSession(const Guid& id) {
    {
        const auto lock = LockState();
        if (FindInMemory(id) != nullptr) return true;
    }
    return Read([&](const CStore& past) { return past.FindSession(id).has_value(); });
}

SBackupJobSessionInfo CAgent::Impl::SessionInfo(const Guid& id) {
    {
        const auto lock = LockState();
        if (const auto active = FindInMemory(id)) {
            auto info = active->Session.Info;
            info.JobDetails = active->Lines;
            return info;
        }
    }
    return Read([&](const CStore& past) {
        auto session = past.FindSession(id);
        if (!session) throw CGenericException("There is no session " + id.Serialize());
        session->Info.JobDetails = past.LinesOf(id);
        return std::move(session->Info);
    });
}

// Threads

void CAgent::Impl::StartThread(std::function<void()> work) {
    ReapThreads();
    const auto lock = LockState();
    auto isDone = std::make_shared<std::atomic<bool>>(false);
    m_threads.push_back({std::thread([this, work = std::move(work), isDone] {
                             try {
                                 work();
                             } catch (const std::exception& error) {
                                 m_log.Error("A thread has failed: " + Escaped(error.what()));
                             }
                             *isDone = true;
                         }),
                         isDone});
}

void CAgent::Impl::ReapThreads() {
    std::list<SThread> done;
    {
        const auto lock = LockState();
        for (auto thread = m_threads.begin(); thread != m_threads.end();) {
            const auto next = std::next(thread);
            if (*thread->IsDone) done.splice(done.end(), m_threads, thread);
            thread = next;
        }
    }
    for (auto& thread : done) {
        thread.Thread.join();
    }
}

// Begin and end

void CAgent::Impl::PublishStarted(const SJob& job, const SSession& session) {
    const bool isScheduled = session.Origin.Kind == SOrigin::EKind::Scheduler;
    auto event = NewEvent(EEventType::BackupJobStarted,
                          isScheduled ? EEventSourceType::Scheduler : EEventSourceType::Owner,
                          session.Origin.ControlSession);
    event.eventBackupJobStarted = SEventBackupJobStarted{job.Id, session.Info.Uid, session.Origin.UserName,
                                                         job.Config.Source.BackupMode};
    Publish(event);
}

Guid CAgent::Impl::Begin(SJob job, const SJobStartOptions& options, const SOrigin& origin,
                         const SSession* previous, bool isChecked, const std::function<void(SJob&)>& claim) {
    {
        const auto lock = LockState();
        if (m_isEnding) throw CGenericException("The agent ends; start the job again when it runs");
    }
    const Moment now = m_clock.Now();
    const auto active = std::make_shared<SActive>();
    SSession& session = active->Session;
    session = NewSession(job, options, origin, now, previous);
    session.Info.Usn = ++m_usn;
    if (const auto* const repository = FindById(m_repositories, job.Config.RepositoryId)) {
        const std::string location = LocationOf(*repository);
        session.Info.BackupDestination = location.empty() ? repository->Name : location;
    }
    if (previous == nullptr) {
        active->Lines.push_back(StartLine(origin, now));
    } else {
        active->Lines.push_back(LogLine(
            ELogDetailType::Info, "Retry " + std::to_string(session.Info.RetriesInfo->CurrentAttemptNumber) +
                                      " of " +
                                      std::to_string(session.Info.RetriesInfo->InitialRetriesNumber)));
    }

    CStore::CTransaction transaction(m_store);
    if (claim) claim(job);
    auto stored = session;
    stored.Info.JobDetails = active->Lines;
    m_store.AddSession(stored);
    m_store.RemoveOldSessions(job.Id, Settings().SessionsKept);
    if (claim) m_store.SaveJob(job);
    KeepCounters();
    transaction.Commit();

    if (claim) ShowJob(job);
    {
        const auto lock = LockState();
        m_active[job.Id] = active;
    }
    if (previous != nullptr) {
        auto event = NewEvent(EEventType::BackupJobRetried, EEventSourceType::Service, origin.ControlSession);
        event.eventBackupJobRetried = SEventBackupJobRetried{job.Id, session.Info.Uid};
        Publish(event);
    }
    PublishStarted(job, session);
    const Guid id = session.Info.Uid;
    try {
        StartThread([this, active, isChecked] { CRun(*this, active, isChecked).Run(); });
    } catch (const std::exception& error) {
        EndLocked(active, JobSessionTaskStatus::Failed, false,
                  {LogLine(ELogDetailType::Error, "The session can't work: " + Escaped(error.what()))}, {});
    }
    return id;
}

void CAgent::Impl::Amend(SActive& active, const std::function<void(SSession&)>& change,
                         std::vector<SLogDetail> lines, const std::function<void()>& also) {
    const std::lock_guard changes(m_changes);
    AmendLocked(active, change, std::move(lines), also);
}

void CAgent::Impl::AmendLocked(SActive& active, const std::function<void(SSession&)>& change,
                               std::vector<SLogDetail> lines, const std::function<void()>& also) {
    SSession session = active.Session;
    CStore::CTransaction transaction(m_store);
    if (change) change(session);
    session.Info.Usn = ++m_usn;
    m_store.SaveSession(session);
    m_store.AddLines(session.Info.Uid, lines);
    if (also) also();
    KeepCounters();
    transaction.Commit();
    const auto lock = LockState();
    active.Session = std::move(session);
    std::move(lines.begin(), lines.end(), std::back_inserter(active.Lines));
}

void CAgent::Impl::End(const ActivePtr& active, JobSessionTaskStatus status, bool isInterrupted,
                       std::vector<SLogDetail> lines, SEnding::Also also) {
    {
        const std::lock_guard changes(m_changes);
        EndLocked(active, status, isInterrupted, std::move(lines), std::move(also));
    }
    Wake();
}

void CAgent::Impl::EndLocked(const ActivePtr& active, JobSessionTaskStatus status, bool isInterrupted,
                             std::vector<SLogDetail> lines, SEnding::Also also) {
    SEnding ending{status, isInterrupted, std::move(lines), std::move(also), m_clock.Now()};
    try {
        WriteEnding(active, ending);
    } catch (const std::exception& error) {
        m_log.Error("The end of a session of " + Quoted(active->Session.Info.JobName) +
                    " can't be written down yet: " + Escaped(error.what()));
        ending.Lines.push_back(
            LogLine(ELogDetailType::Warning,
                    std::string("The session is over, but that can't be written down yet: ") + error.what()));
        ending.LinesShown = ending.Lines.size();
        {
            const auto lock = LockState();
            active->Lines.insert(active->Lines.end(), ending.Lines.begin(), ending.Lines.end());
        }
        m_unwritten.emplace_back(active, std::move(ending));
        m_writeAgain = std::chrono::steady_clock::now() + WritePace;
    }
}

void CAgent::Impl::WriteEndings(bool isLastTime) {
    if (m_unwritten.empty() || (!isLastTime && std::chrono::steady_clock::now() < m_writeAgain)) return;
    while (!m_unwritten.empty()) {
        auto& [active, ending] = m_unwritten.front();
        try {
            WriteEnding(active, ending);
        } catch (const std::exception& error) {
            if (isLastTime) {
                // The next start takes up what was done: the session is still under way there.
                m_log.Error("The ends of sessions are left to the next start: " + Escaped(error.what()));
            }
            m_writeAgain = std::chrono::steady_clock::now() + WritePace;
            return;
        }
        m_unwritten.erase(m_unwritten.begin());
    }
}

void CAgent::Impl::WriteEnding(const ActivePtr& active, SEnding& ending) {
    SSession session = active->Session;
    std::optional<SJob> job;
    milliseconds retryAfter(0);
    if (const SJob* const known = FindById(m_jobs, session.Info.JobUid)) {
        job = *known;
        retryAfter = RetryAfter(*known);
    }
    Finish(session, ending.Status, ending.At, retryAfter);
    if (active->IsStopAsked && session.RetryAt) {
        session.RetryAt.reset();
        session.Info.RetriesInfo->IsJobAwaitingForRetry = false;
    }
    session.IsInterrupted = ending.IsInterrupted;
    session.Info.Usn = ++m_usn;
    const auto mode = job ? job->Config.Source.BackupMode : JobBackupMode::Unknown;
    if (ending.IsInterrupted && job && session.Origin.Kind == SOrigin::EKind::Scheduler) {
        job->CatchUp = session.Origin.Promise;
    }
    const auto type = session.Info.Result == JobResult::Success   ? ELogDetailType::Success
                      : session.Info.Result == JobResult::Warning ? ELogDetailType::Warning
                                                                  : ELogDetailType::Error;
    const std::string status(NameOf(ending.Status));
    auto lines = ending.Lines;
    lines.push_back(LogLine(type, "Ended: " + status));

    CStore::CTransaction transaction(m_store);
    if (ending.Along) ending.Along(session, job ? &*job : nullptr);
    m_store.SaveSession(session);
    m_store.AddLines(session.Info.Uid, lines);
    if (job) m_store.SaveJob(*job);
    KeepCounters();
    transaction.Commit();

    if (job) ShowJob(*job);
    m_log.Info("A session of " + Quoted(session.Info.JobName) + " ended: " + status);
    const Guid id = session.Info.JobUid;
    {
        const auto lock = LockState();
        const bool isOver = !session.AwaitsRetry();
        active->Session = session;
        std::move(lines.begin() + static_cast<std::ptrdiff_t>(ending.LinesShown), lines.end(),
                  std::back_inserter(active->Lines));
        const auto found = m_active.find(id);
        if (isOver && found != m_active.end() && found->second == active) m_active.erase(found);
    }
    auto event =
        NewEvent(EEventType::BackupJobFinished, EEventSourceType::Service, session.Origin.ControlSession);
    event.eventBackupJobFinished = SEventBackupJobFinished{id, session.Info.Uid, ending.Status, mode};
    Publish(event);
}

bool CAgent::Impl::StopSession(const SCaller& caller, const Guid& id, const std::string& message) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    ActivePtr active;
    for (const auto& [job, each] : m_active) {
        if (each->Session.Info.Uid == id) active = each;
    }
    if (active == nullptr || active->IsStopAsked) return false;
    const bool isWaiting = active->Session.AwaitsRetry();
    AmendLocked(*active,
                [&](SSession& session) {
                    if (!isWaiting) {
                        session.Info.State = JobState::Stopping;
                        return;
                    }
                    session.RetryAt.reset();
                    session.Info.RetriesInfo->IsJobAwaitingForRetry = false;
                },
                {LogLine(ELogDetailType::Warning, "Stop was asked for by " + Escaped(caller.Peer.UserName) +
                                                      (message.empty() ? "" : ": " + Escaped(message)))},
                {});
    active->IsStopAsked = true;
    if (isWaiting) {
        const auto lock = LockState();
        m_active.erase(active->Session.Info.JobUid);
    } else {
        active->Stop.request_stop();
    }
    return true;
}

// Slots

bool CAgent::Impl::IsSlotFree(const Guid& repository) const {
    return m_working < std::max(m_settings.AtOnce, 1U) && !m_busyRepositories.contains(repository);
}

bool CAgent::Impl::TakeSlot(SActive& active, const Guid& repository) {
    auto lock = LockState();
    if (!IsSlotFree(repository)) {
        const bool isBusy = m_busyRepositories.contains(repository);
        lock.unlock();
        Amend(active,
              [](SSession& session) {
                  if (session.Info.State == JobState::Starting) session.Info.State = JobState::Pending;
              },
              {LogLine(ELogDetailType::Info, isBusy ? "Waits: another session works on the repository"
                                                    : "Waits: enough sessions are at work")});
        lock.lock();
    }
    if (!m_slotFree.wait(lock, active.Stop.get_token(), [&] { return IsSlotFree(repository); })) return false;
    if (active.Stop.stop_requested()) return false;
    ++m_working;
    m_busyRepositories.insert(repository);
    return true;
}

void CAgent::Impl::GiveSlot(const Guid& repository) noexcept {
    {
        const std::lock_guard lock(m_state);
        --m_working;
        m_busyRepositories.erase(repository);
    }
    m_slotFree.notify_all();
}

// Passwords

SEngineStore CAgent::Impl::StoreOf(const SChain& chain, const std::optional<std::string>& password) const {
    return {StoreFolder(chain.Location, PlainText(chain.Job), static_cast<std::uint64_t>(chain.Number)),
            password};
}

void CAgent::Impl::ChangeKeys(const Guid& job, const std::string& password, const std::stop_token& stop) {
    std::vector<std::pair<SChain, std::string>> chains;
    {
        const std::lock_guard changes(m_changes);
        for (auto& chain : m_store.ChainsOf(job)) {
            if (!chain.HasPassword || chain.State == EChainState::Preparing) continue;
            std::optional<std::string> old;
            try {
                old = m_store.ChainPassword(job, chain.Number);
                if (!old || *old == password) continue;
            } catch (const CStateError& error) {
                // Lost: perhaps the job's is the one.
                if (error.Fault != EStateFault::Broken) throw;
            }
            chains.emplace_back(std::move(chain), old.value_or(password));
        }
    }
    for (const auto& [chain, old] : chains) {
        try {
            m_engine->ChangePassword(StoreOf(chain, old), password, stop);
        } catch (const CWrongKey&) {
            // It was changed, but the agent ended before it could note that.
            m_engine->Snapshots(StoreOf(chain, password), stop);
        } catch (const CNoStore&) {
            continue;  // it may come back
        }
        const std::lock_guard changes(m_changes);
        m_store.SetChainPassword(job, chain.Number, password);
        m_log.Info("Chain " + std::to_string(chain.Number) + " of the job " + PlainText(job) +
                   " has its new password");
    }
}

void CAgent::Impl::ChangeKeysLater(const Guid& job) {
    std::optional<std::string> password;
    Guid repository;
    {
        const std::lock_guard changes(m_changes);
        const SJob* const known = FindById(m_jobs, job);
        if (known == nullptr) return;
        repository = known->Config.RepositoryId;
        try {
            password = PasswordOf(m_store.JobSecrets(job));
            if (!password) return;
            const auto chains = m_store.ChainsOf(job);
            const bool isNeeded = std::any_of(chains.begin(), chains.end(), [&](const SChain& chain) {
                return chain.HasPassword && m_store.ChainPassword(job, chain.Number) != password;
            });
            if (!isNeeded) return;
        } catch (const CStateError& error) {
            m_log.Warning("The passwords of " + Described(*known) +
                          " can't be compared: " + Escaped(error.what()));
            return;
        }
    }
    StartThread([this, job, repository, password = *password] {
        {
            auto lock = LockState();
            const auto isFree = [&] { return !m_busyRepositories.contains(repository); };
            if (!m_slotFree.wait(lock, m_end.get_token(), isFree) || m_isEnding) return;
            ++m_working;
            m_busyRepositories.insert(repository);
        }
        try {
            ChangeKeys(job, password, m_end.get_token());
        } catch (const std::exception& error) {
            m_log.Warning(
                "The password of the job " + PlainText(job) +
                " can't be changed in its chains yet; its next run tries again: " + Escaped(error.what()));
        }
        GiveSlot(repository);
    });
}

// What an end without a farewell left

void CAgent::Impl::DropUnprepared(const Guid& job) {
    std::vector<SChain> chains;
    {
        const std::lock_guard changes(m_changes);
        chains = m_store.ChainsOf(job);
    }
    for (const auto& chain : chains) {
        if (chain.State != EChainState::Preparing) continue;
        try {
            m_engine->Remove(StoreOf(chain, {}));
        } catch (const std::exception& error) {
            m_log.Warning("The folder of a chain that was never finished stays: " + Escaped(error.what()));
            continue;
        }
        const std::lock_guard changes(m_changes);
        m_store.RemoveChain(job, chain.Number);
    }
}

void CAgent::Impl::Adopt(const std::vector<ActivePtr>& left) {
    for (const auto& active : left) {
        Adopt(active);
    }
}

void CAgent::Impl::Adopt(const ActivePtr& active) {
    SSession session;
    {
        const auto lock = LockState();
        session = active->Session;
    }
    const Guid job = session.Info.JobUid;
    std::vector<SLogDetail> lines;
    std::optional<SPoint> adopted;
    bool isKept = false;
    try {
        DropUnprepared(job);
        std::optional<SChain> chain;
        std::optional<std::string> password;
        std::vector<SPoint> known;
        {
            const std::lock_guard changes(m_changes);
            isKept = m_store.FindPoint(session.Info.PointId).has_value();
            if (session.Chain != 0) chain = m_store.FindChain(job, session.Chain);
            if (chain) password = m_store.ChainPassword(job, session.Chain);
            for (auto& point : m_store.PointsOf(job)) {
                if (point.Chain == session.Chain) known.push_back(std::move(point));
            }
        }
        if (chain) {
            const auto stop = m_end.get_token();
            const auto store = StoreOf(*chain, password);
            m_engine->Unlock(store, stop);
            const auto snapshots = m_engine->Snapshots(store, stop);
            // What was being forgotten is gone from the store, but not yet from our list.
            for (const auto& point : known) {
                const bool isThere =
                    std::any_of(snapshots.begin(), snapshots.end(),
                                [&](const SSnapshot& each) { return each.Point == PlainText(point.Id); });
                if (isThere) continue;
                const std::lock_guard changes(m_changes);
                m_store.RemovePoint(point.Id);
            }
            const auto found = std::find_if(snapshots.begin(), snapshots.end(), [&](const SSnapshot& each) {
                return each.Point == PlainText(session.Info.PointId);
            });
            if (!isKept && found != snapshots.end()) {
                SPoint point;
                point.Id = session.Info.PointId;
                point.Job = job;
                point.Chain = session.Chain;
                point.Session = session.Info.Uid;
                point.Created = std::chrono::floor<milliseconds>(found->Time);
                point.Type = known.empty() ? RestorePointType::Full : RestorePointType::Increment;
                point.EngineId = found->Id;
                m_engine->List(
                    {store, found->Id},
                    [&](const SEntry& entry) {
                        if (entry.Type == EEntryType::File) point.SourceBytes += entry.Size;
                    },
                    stop);
                std::uint64_t before = 0;
                for (const auto& each : known) {
                    before += each.StoredBytes;
                }
                const auto size = m_engine->StoreSize(store).value_or(0);
                point.StoredBytes = size > before ? size - before : 0;
                adopted = point;
            }
        }
    } catch (const CEngineStopped&) {
        return;  // the agent ends again; the next start sees to it
    } catch (const std::exception& error) {
        lines.push_back(LogLine(ELogDetailType::Warning,
                                std::string("What became of it can't be found out: ") + error.what()));
    }
    if (adopted || isKept) {
        lines.push_back(LogLine(ELogDetailType::Warning,
                                "The agent ended before the session did; its point is complete"));
        End(active, JobSessionTaskStatus::Warning, false, std::move(lines),
            [this, adopted](SSession& ended, SJob* known) {
                if (!adopted) return;
                m_store.AddPoint(*adopted);
                ended.Info.BackedUpSizeBytes = static_cast<long>(adopted->SourceBytes);
                ended.Info.TransferredSizeBytes = static_cast<long>(adopted->StoredBytes);
                if (known != nullptr) known->LastBackup = adopted->Created;
            });
        return;
    }
    lines.push_back(LogLine(ELogDetailType::Error, "Interrupted: the agent ended before the session did"));
    End(active, JobSessionTaskStatus::Canceled, true, std::move(lines));
}

}  // namespace tarvo
