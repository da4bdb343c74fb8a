// SPDX-License-Identifier: Apache-2.0
#include "testagent/CAgent.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "testagent/Secrets.h"

namespace testagent {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

constexpr unsigned long FullSize = 64UL * 1024 * 1024;
constexpr unsigned long IncrementSize = 4UL * 1024 * 1024;

void AddDetail(SSession& session, ELogDetailType type, const std::string& message) {
    session.Info.JobDetails.push_back({type, Guid::Random(), message});
}

void SetProgress(SBackupJobSessionInfo& info, unsigned percent) {
    const unsigned long size = info.SessionAlgorithm == JobSessionAlgorithm::Full ? FullSize : IncrementSize;
    info.PercentCompleted = static_cast<unsigned short>(percent);
    info.ReadSizeBytes = size * percent / 100;
    info.BackedUpSizeBytes = static_cast<long>(info.ReadSizeBytes);
    info.TransferredSizeBytes = info.BackedUpSizeBytes / 2;
}

/// How many attempts may follow the first one.
unsigned long Retries(const SJob& job, const SJobStartOptions& options) {
    const bool isForbidden = options.Retries && *options.Retries == EJobStartRetriesMode::Disabled;
    return job.Config.RetriesInfo && !isForbidden ? job.Config.RetriesInfo->AttemptsNum : 0;
}

unsigned long AttemptOf(const SSession& session) {
    return session.Info.RetriesInfo ? session.Info.RetriesInfo->CurrentAttemptNumber : 0;
}

}  // namespace

SDateTime Now() {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return {now / 1000, static_cast<unsigned short>(now % 1000)};
}

CAgent::CAgent(SScript script, std::string controlSocket)
    : Owner(script.Owner), m_script(std::move(script)), m_controlSocket(std::move(controlSocket)) {
    Listen();
    for (auto repository : m_script.Repositories) {
        if (repository.Id == Guid{}) repository.Id = Guid::Random();
        Repositories.push_back(repository);
    }
    for (const auto& scripted : m_script.Jobs) {
        auto config = scripted.Config;
        for (const auto& repository : Repositories) {
            if (repository.Name == scripted.RepositoryName) config.RepositoryId = repository.Id;
        }
        CreateJob(config)->IsEnabled = scripted.IsEnabled;
    }
    if (m_script.Clock != EClock::Calls) m_clock = std::thread([this] { RunClock(); });
}

CAgent::~CAgent() {
    {
        const auto lock = Lock();
        m_isEnding = true;
    }
    m_end.notify_all();
    if (m_clock.joinable()) m_clock.join();
}

void CAgent::Listen() {
    // Another agent that starts just now may take our directory for one that was left, until we keep it.
    constexpr int Attempts = 100;
    for (int attempt = 1;; ++attempt) {
        m_directory.emplace();
        try {
            m_events = MakeEvents(m_directory->Path(), CPrivateDirectory::SocketName, m_script.EventRules,
                                  [this] { RemoveTraces(); });
            if (m_directory->Keep()) return;
            m_events.reset();
            if (attempt == Attempts) throw std::runtime_error("The folder of the event socket is taken away");
        } catch (const std::system_error& error) {
            if (error.code() == std::errc::filename_too_long) {
                throw std::runtime_error(std::string(error.what()) + "; let $TMPDIR name a shorter one");
            }
            if (error.code() != std::errc::no_such_file_or_directory || attempt == Attempts) throw;
        }
    }
}

void CAgent::RemoveTraces() noexcept {
    std::call_once(m_tracesRemoved, [this] {
        if (!m_controlSocket.empty()) ::unlink(m_controlSocket.c_str());
        m_events->Stop();
        m_directory.reset();
    });
}

void CAgent::Log(const std::string& methodId) {
    constexpr std::size_t MaxLines = 10000;
    const auto lock = Lock();
    if (m_log.size() == MaxLines) m_log.pop_front();
    m_log.push_back(methodId);
}

std::string CAgent::LogText() const {
    std::string text;
    for (const auto& line : m_log) {
        text += line + "\n";
    }
    return text;
}

// Control

GrantPtr CAgent::RequestControl(const SZamControlOwnerInfo& owner, bool isForced) {
    if (owner.Id == Guid{}) throw CGenericException("An owner needs an id");
    const bool isOthers = Owner.Id != Guid{} && Owner.Id != owner.Id;
    if (!isOthers || isForced) {
        if (isOthers) EndGrants(owner.Id);
        Owner = owner;
    } else if (Owner.Mode != ZAMOwnerMode::Shared && Owner.Mode != ZAMOwnerMode::ReadOnly) {
        throw CGenericException("The agent is controlled by " + Owner.Name +
                                "; ask it to give control back, or take it by force");
    }
    auto& grant = m_grants[owner.Id];
    if (grant == nullptr) grant = std::make_shared<SGrant>(SGrant{owner.Id});
    return grant;
}

void CAgent::EndGrants(const Guid& except) {
    for (const auto& [owner, grant] : m_grants) {
        grant->IsOver = owner != except;
    }
    std::erase_if(m_grants, [](const auto& entry) { return entry.second->IsOver; });
}

void CAgent::ReleaseControl(const Guid& owner) {
    if (Owner.Id == Guid{} || Owner.Id != owner) {
        throw CGenericException("The owner " + owner.Serialize() + " does not control the agent");
    }
    Owner = {};
    EndGrants({});
}

void CAgent::RequireChangeBy(const SGrant& grant) const {
    if (grant.IsOver) {
        throw CGenericException("Control was given back, or taken over by another; request it again");
    }
    if (Owner.Id == grant.Owner) return;
    if (Owner.Mode != ZAMOwnerMode::Shared) {
        throw CGenericException("The agent is controlled by " + Owner.Name +
                                ", who shares it to look at most");
    }
}

// Jobs

std::shared_ptr<SJob> CAgent::FindJob(const Guid& id) const {
    for (const auto& job : Jobs) {
        if (job->Id == id) return job;
    }
    return nullptr;
}

void CAgent::CheckConfig(const SBackupJobConfigurationInfo& config, const Guid& self) const {
    if (config.JobName.empty()) throw CGenericException("A job needs a name");
    for (const auto& other : Jobs) {
        if (other->Config.JobName == config.JobName && other->Id != self) {
            throw CGenericException("There is a job called " + config.JobName + " already");
        }
    }
}

std::shared_ptr<SJob> CAgent::CreateJob(const SBackupJobConfigurationInfo& config) {
    CheckConfig(config, {});
    auto job = std::make_shared<SJob>();
    job->Id = Guid::Random();
    job->Config = config;
    Jobs.push_back(job);
    PublishJobEvent(EEventType::BackupJobCreated, &SBaseEvent::eventBackupJobCreated, *job);
    return job;
}

bool CAgent::DeleteJob(const Guid& id) {
    const auto job = FindJob(id);
    if (job == nullptr) return false;
    if (job->Active != nullptr) throw CJobIsRunning("The job " + job->Config.JobName + " is running");
    job->IsDeleted = true;
    std::erase(Jobs, job);
    PublishJobEvent(EEventType::BackupJobDeleted, &SBaseEvent::eventBackupJobDeleted, *job);
    return true;
}

void CAgent::UpdateJob(SJob& job, SBackupJobConfigurationInfo config) {
    if (job.Active != nullptr) throw CJobIsRunning("The job " + job.Config.JobName + " is running");
    CheckConfig(config, job.Id);
    KeepSecrets(config, job.Config);
    auto oldSource = job.Config.Source;
    const bool hasOtherMode = oldSource.BackupMode != config.Source.BackupMode;
    oldSource.BackupMode = config.Source.BackupMode;
    const bool hasOtherSource = oldSource != config.Source;
    job.Config = std::move(config);
    PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, job);
    if (hasOtherSource) {
        PublishJobEvent(EEventType::BackupSourceUpdated, &SBaseEvent::eventBackupSourceUpdated, job);
    }
    if (hasOtherMode) {
        PublishJobEvent(EEventType::BackupModeChanged, &SBaseEvent::eventBackupModeChanged, job);
    }
}

bool CAgent::SetEnabled(SJob& job, bool isEnabled) {
    if (std::exchange(job.IsEnabled, isEnabled) == isEnabled) return false;
    PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, job);
    return true;
}

void CAgent::SetUserData(SJob& job, const std::string& userData) {
    job.Config.UserData = userData;
    PublishJobEvent(EEventType::BackupJobModified, &SBaseEvent::eventBackupJobModified, job);
}

// Sessions

std::shared_ptr<SSession> CAgent::Start(SJob& job, const SJobStartOptions& options) {
    if (job.Active != nullptr) throw CJobIsRunning("The job " + job.Config.JobName + " is running");
    if (FindById(Repositories, job.Config.RepositoryId) == nullptr) {
        throw CGenericException("The job " + job.Config.JobName + " has no repository to write to");
    }
    auto session = NewSession(job, options, nullptr);
    PublishStarted(job, *session);
    return session;
}

std::shared_ptr<SSession> CAgent::NewSession(SJob& job, const SJobStartOptions& options,
                                             const SSession* previous) {
    auto session = std::make_shared<SSession>();
    session->Options = options;
    auto& info = session->Info;
    info.Uid = Guid::Random();
    info.JobUid = job.Id;
    info.PointId = Guid::Random();
    info.OibId = Guid::Random();
    info.JobName = job.Config.JobName;
    info.State = JobState::Starting;
    info.StartTimeUtc = Now();
    const bool isFull = job.RestorePoints.empty() ||
                        (options.ActiveFull && *options.ActiveFull == EJobStartActiveFullMode::Enabled);
    info.SessionAlgorithm = isFull ? JobSessionAlgorithm::Full : JobSessionAlgorithm::Increment;
    info.TypeOfJob = JobType::Backup;
    if (const auto* const repository = FindById(Repositories, job.Config.RepositoryId)) {
        info.BackupDestination = repository->Location.empty() ? repository->Name : repository->Location;
    }
    if (const unsigned long retries = Retries(job, options); retries != 0) {
        info.RetriesInfo = SJobSessionRetriesInfo{false, retries, 0};
    }
    if (previous != nullptr) {
        const auto& before = previous->Info;
        info.OriginalSessionId = before.OriginalSessionId == Guid{} ? before.Uid : before.OriginalSessionId;
        info.RetriesInfo->CurrentAttemptNumber = AttemptOf(*previous) + 1;
    }
    AddDetail(*session, ELogDetailType::Info, "Started");
    Touch(*session);
    job.Sessions.push_back(session);
    job.Active = session;
    return session;
}

bool CAgent::Stop(SJob& job, SSession& session, const std::string& message) {
    if (job.Active.get() != &session || session.IsStopping) return false;
    AddDetail(session, ELogDetailType::Warning, "Stop was asked for: " + message);
    if (session.Info.State == JobState::Stopped) {
        // It has failed and waits for its retry, which is called off.
        session.Info.RetriesInfo->IsJobAwaitingForRetry = false;
        job.Active = nullptr;
    } else {
        session.IsStopping = true;
        session.Info.State = JobState::Stopping;
    }
    Touch(session);
    return true;
}

void CAgent::Step(SJob& job) {
    const auto session = job.Active;
    if (session == nullptr) return;
    auto& info = session->Info;
    if (session->IsStopping) {
        Finish(job, *session, JobSessionTaskStatus::Canceled);
    } else if (info.State == JobState::Stopped) {
        info.RetriesInfo->IsJobAwaitingForRetry = false;
        Touch(*session);
        const auto retry = NewSession(job, session->Options, session.get());
        auto event = NewEvent(EEventType::BackupJobRetried, EEventSourceType::Service);
        event.eventBackupJobRetried = SEventBackupJobRetried{job.Id, retry->Info.Uid};
        m_events->Publish(event);
        PublishStarted(job, *retry);
    } else if (++session->Steps >= m_script.Steps) {
        const bool hasFailed = AttemptOf(*session) < m_script.FailedAttempts;
        Finish(job, *session, hasFailed ? JobSessionTaskStatus::Failed : JobSessionTaskStatus::Success);
    } else {
        info.State = JobState::Working;
        SetProgress(info, session->Steps * 100 / m_script.Steps);
        info.SourceLoad = 40;
        info.TargetLoad = 60;
        Touch(*session);
    }
}

void CAgent::Finish(SJob& job, SSession& session, JobSessionTaskStatus status) {
    auto& info = session.Info;
    const bool isSuccess = status == JobSessionTaskStatus::Success;
    info.State = JobState::Stopped;
    info.Result = isSuccess ? JobResult::Success : JobResult::Failed;
    info.EndTimeUtc = Now();
    const bool isRetried = status == JobSessionTaskStatus::Failed && info.RetriesInfo &&
                           info.RetriesInfo->CurrentAttemptNumber < info.RetriesInfo->InitialRetriesNumber;
    if (isRetried) {
        info.RetriesInfo->IsJobAwaitingForRetry = true;
    } else {
        job.Active = nullptr;
    }
    if (isSuccess) {
        SetProgress(info, 100);
        AddRestorePoint(job, session);
        job.LastBackupTime = info.EndTimeUtc;
    }
    AddDetail(session, isSuccess ? ELogDetailType::Success : ELogDetailType::Error,
              "Ended: " + std::string(NameOf(status)));
    Touch(session);
    auto event = NewEvent(EEventType::BackupJobFinished, EEventSourceType::Service);
    event.eventBackupJobFinished =
        SEventBackupJobFinished{job.Id, info.Uid, status, job.Config.Source.BackupMode};
    m_events->Publish(event);
}

void CAgent::AddRestorePoint(SJob& job, const SSession& session) {
    const bool isFull = session.Info.SessionAlgorithm == JobSessionAlgorithm::Full;
    job.RestorePoints.push_back({session.Info.OibId, session.Info.EndTimeUtc, FullSize,
                                 isFull ? FullSize / 2 : IncrementSize / 2,
                                 isFull ? RestorePointType::Full : RestorePointType::Increment});
    const int kept = job.Config.RetentionInfo.RestorePointsCount;
    if (kept > 0 && job.RestorePoints.size() > static_cast<std::size_t>(kept)) {
        job.RestorePoints.erase(job.RestorePoints.begin(), job.RestorePoints.end() - kept);
        // What was built upon the dropped ones takes their place.
        job.RestorePoints.front().Type = RestorePointType::Full;
    }
}

bool CAgent::IsUsed(const Guid& repository) const {
    return std::any_of(Jobs.begin(), Jobs.end(),
                       [&](const auto& job) { return job->Config.RepositoryId == repository; });
}

void CAgent::RunClock() {
    // Steady: the system's clock may jump.
    using Clock = std::chrono::steady_clock;
    auto lock = Lock();
    while (!m_end.wait_until(lock, Clock::now() + m_script.Step, [this] { return m_isEnding; })) {
        for (const auto& job : Jobs) {
            const bool isDue =
                m_script.Clock == EClock::Time || (job->Active != nullptr && job->Active->IsStopping);
            if (isDue) Step(*job);
        }
    }
}

// Events

SBaseEvent CAgent::NewEvent(EEventType type, EEventSourceType source) {
    SBaseEvent event;
    event.Type = type;
    event.Id = ++m_eventId;
    event.CreateTimeUTC = Now();
    event.SourceType = source;
    event.ControlSessionId = m_sessionId;
    return event;
}

template <class E>
void CAgent::PublishJobEvent(EEventType type, apigen::Optional<E> SBaseEvent::*member, const SJob& job) {
    auto event = NewEvent(type, EEventSourceType::Owner);
    event.*member = E{job.Id, Owner.Name};
    m_events->Publish(event);
}

void CAgent::PublishStarted(const SJob& job, const SSession& session) {
    auto event = NewEvent(EEventType::BackupJobStarted, EEventSourceType::Owner);
    event.eventBackupJobStarted =
        SEventBackupJobStarted{job.Id, session.Info.Uid, Owner.Name, job.Config.Source.BackupMode};
    m_events->Publish(event);
}

}  // namespace testagent
