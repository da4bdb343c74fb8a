// SPDX-License-Identifier: Apache-2.0
// Jobs and their sessions as a client sees them.
#include <utility>

#include "testagent/Objects.h"
#include "testagent/Secrets.h"

namespace testagent {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

class CSession final : public IBackupJobSession {
public:
    CSession(AgentPtr agent, GrantPtr grant, std::shared_ptr<SJob> job, std::shared_ptr<SSession> session)
        : m_agent(std::move(agent)),
          m_grant(std::move(grant)),
          m_job(std::move(job)),
          m_session(std::move(session)) {}

    SBackupJobSessionInfo GetInfo() const override {
        const auto lock = m_agent->Lock();
        const bool isOwnStep = m_agent->Script().Clock == EClock::Calls && m_job->Active == m_session;
        if (isOwnStep) m_agent->Step(*m_job);
        return m_session->Info;
    }

    bool Stop(std::string message) override {
        const auto lock = m_agent->Lock();
        m_agent->RequireChangeBy(*m_grant);
        return m_agent->Stop(*m_job, *m_session, message);
    }

private:
    AgentPtr m_agent;
    GrantPtr m_grant;
    std::shared_ptr<SJob> m_job;
    std::shared_ptr<SSession> m_session;
};

class CJob final : public IBackupJob {
public:
    CJob(AgentPtr agent, GrantPtr grant, std::shared_ptr<SJob> job)
        : m_agent(std::move(agent)), m_grant(std::move(grant)), m_job(std::move(job)) {}

    SBackupJobInfo GetInfo() const override {
        const auto lock = LockToLook();
        return {m_job->Id, m_job->Config.JobName, m_job->IsEnabled, m_job->LastBackupTime};
    }

    SJobStartOptions GetDefaultJobStartOptions() const override {
        const auto lock = LockToLook();
        const bool hasRetries = m_job->Config.RetriesInfo.HasValue();
        const bool hasSnapshot = m_job->Config.StorageInfo.snapshotMode != ESnapshotMode::NoSnapshot;
        return {hasRetries ? EJobStartRetriesMode::Enabled : EJobStartRetriesMode::Disabled,
                EJobStartPriorityMode::Normal, EJobStartActiveFullMode::Disabled,
                hasSnapshot ? EJobStartSnapshotMode::Enabled : EJobStartSnapshotMode::Disabled};
    }

    std::shared_ptr<IBackupJobSession> Start(SJobStartOptions options) override {
        const auto lock = LockToChange();
        return Session(m_agent->Start(*m_job, options));
    }

    bool Enable() override {
        const auto lock = LockToChange();
        return m_agent->SetEnabled(*m_job, true);
    }

    bool Disable() override {
        const auto lock = LockToChange();
        return m_agent->SetEnabled(*m_job, false);
    }

    SBackupJobConfigurationInfo GetConfigurationInfo() const override {
        const auto lock = LockToLook();
        return WithoutSecrets(m_job->Config);
    }

    void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo) override {
        const auto lock = LockToChange();
        m_agent->UpdateJob(*m_job, std::move(configInfo));
    }

    std::vector<SCheckJobValidityMessage> CheckValidity() const override {
        const auto lock = LockToLook();
        std::vector<SCheckJobValidityMessage> findings;
        const auto& config = m_job->Config;
        if (FindById(m_agent->Repositories, config.RepositoryId) == nullptr) {
            findings.push_back({"The job's repository does not exist", ELogDetailType::Error});
        }
        const auto& source = config.Source;
        if (source.BackupMode == JobBackupMode::FileLevel && source.IncludeDirs.empty()) {
            findings.push_back({"The job backs up no directory", ELogDetailType::Warning});
        }
        return findings;
    }

    std::string GetUserData() const override {
        const auto lock = LockToLook();
        return m_job->Config.UserData;
    }

    void SetUserData(std::string userData) override {
        const auto lock = LockToChange();
        m_agent->SetUserData(*m_job, userData);
    }

    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions() const override {
        const auto lock = LockToLook();
        std::vector<std::shared_ptr<IBackupJobSession>> sessions;
        for (const auto& session : m_job->Sessions) {
            sessions.push_back(Session(session));
        }
        return sessions;
    }

    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions(usn_t usn) const override {
        const auto lock = LockToLook();
        std::vector<std::shared_ptr<IBackupJobSession>> sessions;
        for (const auto& session : m_job->Sessions) {
            if (session->Info.Usn > usn) sessions.push_back(Session(session));
        }
        return sessions;
    }

    std::shared_ptr<IBackupJobSession> FindLastBackupJobSession() const override {
        const auto lock = LockToLook();
        return m_job->Sessions.empty() ? nullptr : Session(m_job->Sessions.back());
    }

    std::vector<SRestoreOib> GetOibsForRestore() const override {
        const auto lock = LockToLook();
        return m_job->RestorePoints;
    }

private:
    std::unique_lock<std::mutex> LockToLook() const {
        auto lock = m_agent->Lock();
        if (m_job->IsDeleted) throw CGenericException("The job " + m_job->Id.Serialize() + " was deleted");
        return lock;
    }

    std::unique_lock<std::mutex> LockToChange() const {
        auto lock = LockToLook();
        m_agent->RequireChangeBy(*m_grant);
        return lock;
    }

    std::shared_ptr<IBackupJobSession> Session(std::shared_ptr<SSession> session) const {
        return MakeSession(m_agent, m_grant, m_job, std::move(session));
    }

    AgentPtr m_agent;
    GrantPtr m_grant;
    std::shared_ptr<SJob> m_job;
};

}  // namespace

std::shared_ptr<IBackupJob> MakeJob(AgentPtr agent, GrantPtr grant, std::shared_ptr<SJob> job) {
    return std::make_shared<CJob>(std::move(agent), std::move(grant), std::move(job));
}

std::shared_ptr<IBackupJobSession> MakeSession(AgentPtr agent, GrantPtr grant, std::shared_ptr<SJob> job,
                                               std::shared_ptr<SSession> session) {
    return std::make_shared<CSession>(std::move(agent), std::move(grant), std::move(job), std::move(session));
}

}  // namespace testagent
