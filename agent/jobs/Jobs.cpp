// SPDX-License-Identifier: Apache-2.0
// Jobs: made, changed, deleted; what is to be said of them.
#include <algorithm>
#include <filesystem>
#include <utility>

#include "agent/core/Schedule.h"
#include "agent/core/Sessions.h"
#include "agent/host/Mounts.h"
#include "agent/host/Scripts.h"
#include "agent/jobs/CAgentImpl.h"
#include "agent/jobs/Source.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Quoted;

namespace {

[[noreturn]] void ThrowNoJob(const Guid& id) {
    throw CGenericException("There is no job " + id.Serialize() + "; it may have been deleted");
}

}  // namespace

std::optional<SJob> CAgent::Impl::FindJob(const Guid& id) const {
    const auto lock = LockState();
    const SJob* const job = FindById(m_jobs, id);
    return job != nullptr ? std::optional(*job) : std::nullopt;
}

SJob CAgent::Impl::RequireJob(const Guid& id) const {
    auto job = FindJob(id);
    if (!job) ThrowNoJob(id);
    return std::move(*job);
}

const SJob& CAgent::Impl::JobForChange(const Guid& id) const {
    const SJob* const job = FindById(m_jobs, id);
    if (job == nullptr) ThrowNoJob(id);
    return *job;
}

void CAgent::Impl::RequireIdle(const SJob& job) const {
    if (m_active.contains(job.Id)) throw CJobIsRunning("The job " + job.Config.JobName + " is running");
}

void CAgent::Impl::RequireName(const SBackupJobConfigurationInfo& config, const Guid& self) const {
    if (config.JobName.empty()) throw CGenericException("A job needs a name");
    for (const auto& other : m_jobs) {
        if (other.Config.JobName == config.JobName && other.Id != self) {
            throw CGenericException("There is a job called " + config.JobName + " already");
        }
    }
}

void CAgent::Impl::ShowJob(const SJob& job) {
    const auto lock = LockState();
    if (SJob* const known = FindById(m_jobs, job.Id)) {
        *known = job;
    } else {
        m_jobs.push_back(job);
    }
}

void CAgent::Impl::SaveJob(const SJob& job, const Secrets* secrets) {
    CStore::CTransaction transaction(m_store);
    secrets != nullptr ? m_store.SaveJob(job, *secrets) : m_store.SaveJob(job);
    KeepCounters();
    transaction.Commit();
    ShowJob(job);
}

void CAgent::Impl::Promise(SJob& job, bool isDropped) const {
    const Moment now = m_clock.Now();
    if (isDropped) {
        job.PromisedUntil = std::max(GoesOnFrom(job.PromisedUntil, now), now);
        job.CatchUp.reset();
    }
    job.NextRun = job.IsEnabled && m_isSchedulerAllowed
                      ? PromiseOf(job.Config.ScheduleInfo, job.PromisedUntil, now, m_clock).Next
                      : std::nullopt;
}

template <class E>
void CAgent::Impl::PublishJobEvent(EEventType type, apigen::Optional<E> SBaseEvent::*member, const Guid& job,
                                   const SPeer& peer) {
    auto event = NewEvent(type, EEventSourceType::Owner, m_sessionId);
    event.*member = E{job, peer.UserName};
    Publish(event);
}

Guid CAgent::Impl::CreateJob(const SCaller& caller, SBackupJobConfigurationInfo config) {
    SJob job;
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        RequireName(config, {});
        const Secrets secrets = TakeSecrets(config);
        job.Id = Guid::Random();
        job.Config = std::move(config);
        job.PromisedUntil = m_clock.Now();
        Promise(job, true);
        CStore::CTransaction transaction(m_store);
        m_store.AddJob(job, secrets);
        KeepCounters();
        transaction.Commit();
        ShowJob(job);
        m_log.Info(Quoted(caller.Peer.UserName) + " made " + Described(job) + " " + PlainText(job.Id));
        PublishJobEvent(EEventType::BackupJobCreated, &SBaseEvent::eventBackupJobCreated, job.Id,
                        caller.Peer);
    }
    Wake();
    return job.Id;
}

bool CAgent::Impl::DeleteJob(const SCaller& caller, const Guid& id) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    const SJob* const known = FindById(m_jobs, id);
    if (known == nullptr) return false;
    RequireIdle(*known);
    SJob job = *known;
    CStore::CTransaction transaction(m_store);
    m_store.RemoveSessionsOf(id);
    if (m_store.ChainsOf(id).empty()) {
        m_store.RemoveJob(id);
    } else {
        // Its points stay, and with them its name, until somebody forgets them.
        job.IsDeleted = true;
        job.NextRun.reset();
        job.CatchUp.reset();
        m_store.SaveJob(job, {});
    }
    KeepCounters();
    transaction.Commit();
    {
        const auto lock = LockState();
        std::erase_if(m_jobs, [&](const SJob& each) { return each.Id == id; });
    }
    m_log.Info(Quoted(caller.Peer.UserName) + " deleted " + Described(job) + " " + PlainText(id));
    PublishJobEvent(EEventType::BackupJobDeleted, &SBaseEvent::eventBackupJobDeleted, id, caller.Peer);
    return true;
}

void CAgent::Impl::UpdateJob(const SCaller& caller, const Guid& id, SBackupJobConfigurationInfo config) {
    bool hasOtherPassword = false;
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        SJob job = JobForChange(id);
        RequireIdle(job);
        RequireName(config, id);
        const Secrets before = SecretsBefore([&] { return m_store.JobSecrets(id); }, LacksSecrets(config));
        KeepSecrets(config, before);
        const Secrets secrets = TakeSecrets(config);
        hasOtherPassword =
            PasswordOf(before) && PasswordOf(secrets) && PasswordOf(before) != PasswordOf(secrets);
        auto oldSource = job.Config.Source;
        const bool hasOtherMode = oldSource.BackupMode != config.Source.BackupMode;
        oldSource.BackupMode = config.Source.BackupMode;
        const bool hasOtherSource = oldSource != config.Source;
        const bool hasOtherSchedule = job.Config.ScheduleInfo != config.ScheduleInfo;
        job.Config = std::move(config);
        if (hasOtherSchedule) Promise(job, true);
        SaveJob(job, &secrets);
        m_log.Info(Quoted(caller.Peer.UserName) + " changed " + Described(job));
        PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, id, caller.Peer);
        if (hasOtherSource) {
            PublishJobEvent(EEventType::BackupSourceUpdated, &SBaseEvent::eventBackupSourceUpdated, id,
                            caller.Peer);
        }
        if (hasOtherMode) {
            PublishJobEvent(EEventType::BackupModeChanged, &SBaseEvent::eventBackupModeChanged, id,
                            caller.Peer);
        }
    }
    if (hasOtherPassword) ChangeKeysLater(id);
    Wake();
}

bool CAgent::Impl::SetEnabled(const SCaller& caller, const Guid& id, bool isEnabled) {
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        SJob job = JobForChange(id);
        if (job.IsEnabled == isEnabled) return false;
        job.IsEnabled = isEnabled;
        Promise(job, true);
        SaveJob(job);
        m_log.Info(Quoted(caller.Peer.UserName) + (isEnabled ? " enabled " : " disabled ") + Described(job));
        PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, id, caller.Peer);
    }
    Wake();
    return true;
}

void CAgent::Impl::SetUserData(const SCaller& caller, const Guid& id, const std::string& userData) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    SJob job = JobForChange(id);
    job.Config.UserData = userData;
    SaveJob(job);
    PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, id, caller.Peer);
}

Guid CAgent::Impl::StartJob(const SCaller& caller, const Guid& id, const SJobStartOptions& options) {
    // Looking at the host may take a while: nobody waits for that.
    SJob job;
    Secrets secrets;
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        job = JobForChange(id);
        RequireIdle(job);
        secrets = m_store.JobSecrets(id);
    }
    const std::string errors = ErrorsOf(FindingsOf(job.Config, FactsOf(job.Config, secrets, false)));
    if (!errors.empty()) {
        throw CGenericException("The job " + job.Config.JobName + " can't be started. " + errors);
    }
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    job = JobForChange(id);
    RequireIdle(job);
    m_log.Info(Quoted(caller.Peer.UserName) + " started " + Described(job));
    const SOrigin origin{SOrigin::EKind::Caller, caller.Peer.UserName, m_sessionId, {}};
    return Begin(std::move(job), options, origin, nullptr, true);
}

// Findings

std::vector<SCheckJobValidityMessage> CAgent::Impl::CheckValidity(const Guid& id) {
    SJob job;
    Secrets secrets;
    {
        const std::lock_guard changes(m_changes);
        job = JobForChange(id);
        secrets = m_store.JobSecrets(id);
    }
    return FindingsOf(job.Config, FactsOf(job.Config, secrets, true));
}

SHostFacts CAgent::Impl::FactsOf(const SBackupJobConfigurationInfo& config, const Secrets& secrets,
                                 bool isThorough) {
    constexpr std::uint64_t MostEntries = 20000;
    SHostFacts facts;
    auto source = RootsOf(config.Source, Settings().Host);
    facts.MissingDirs = std::move(source.Missing);
    facts.SourceNotes = std::move(source.Notes);
    facts.UnreadableObjects = std::move(source.Unreadable);
    if (config.ScriptInfo) {
        const auto& scripts = *config.ScriptInfo;
        if (!scripts.PreJobScript.empty()) facts.PreJobScriptFault = ScriptProblem(scripts.PreJobScript);
        if (!scripts.PostJobScript.empty()) facts.PostJobScriptFault = ScriptProblem(scripts.PostJobScript);
    }
    if (const auto repository = Find<SBackupRepositoryInfo>(config.RepositoryId)) {
        facts.Repository = *repository;
        facts.RepositoryFault = RepositoryFault(*repository);
    }
    if (const auto password = PasswordOf(secrets)) {
        facts.HasPassword = true;
        facts.PasswordFault = PasswordProblem(*password);
    }
    try {
        const SEngineInfo engine = m_engine->Info();
        if (isThorough && !source.Roots.empty()) {
            SWalkRequest request;
            request.Roots = std::move(source.Roots);
            request.ExcludeDirs = config.Source.ExcludeDirs;
            request.IncludeMasks = config.Source.IncludeMasks;
            request.ExcludeMasks = config.Source.ExcludeMasks;
            request.StayOnFileSystems = source.StaysOnFileSystems;
            const auto seen = Survey(std::move(request), MostEntries, m_end.get_token());
            for (auto& [weight, text] : SightingsOf(seen, engine)) {
                (weight == ELogDetailType::Warning ? facts.SourceWarnings : facts.SourceNotes)
                    .push_back(std::move(text));
            }
        }
    } catch (const CEngineError& error) {
        facts.EngineFault = error.what();
    } catch (const CWalkStopped&) {  // NOLINT: the agent ends
    }
    return facts;
}

}  // namespace tarvo
