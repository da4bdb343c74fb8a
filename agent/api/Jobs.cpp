// SPDX-License-Identifier: Apache-2.0
// Jobs and their sessions as a client sees them.
#include <zamclientlib/Exceptions.h>

#include <string>
#include <utility>

#include "agent/api/Objects.h"
#include "agent/engine/IEngine.h"

namespace tarvo::api {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// The chains that a job has get its new password at once: one that the engine can't use would lock everybody out.
void RequireUsablePassword(const SBackupJobConfigurationInfo& config) {
    const auto& encryption = config.StorageInfo.EncryptionSettings;
    if (!encryption || !encryption->Password) return;
    const std::string problem = PasswordProblem(*encryption->Password);
    if (problem.empty()) return;
    throw CGenericException("The job stays as it is. The password can't be used: " + problem);
}

class CSessionObject final : public IBackupJobSession {
public:
    CSessionObject(CAgent& agent, SCaller caller, const Guid& id)
        : m_agent(agent), m_caller(std::move(caller)), m_id(id) {}

    SBackupJobSessionInfo GetInfo() const override { return m_agent.SessionInfo(m_id); }
    bool Stop(std::string message) override { return m_agent.StopSession(m_caller, m_id, message); }

private:
    CAgent& m_agent;
    SCaller m_caller;
    Guid m_id;
};

class CJobObject final : public IBackupJob {
public:
    CJobObject(CAgent& agent, SCaller caller, const Guid& id)
        : m_agent(agent), m_caller(std::move(caller)), m_id(id) {}

    SBackupJobInfo GetInfo() const override { return m_agent.JobInfo(m_id); }
    SJobStartOptions GetDefaultJobStartOptions() const override { return m_agent.DefaultStartOptions(m_id); }
    std::shared_ptr<IBackupJobSession> Start(SJobStartOptions options) override {
        return Session(m_agent.StartJob(m_caller, m_id, options));
    }
    bool Enable() override { return m_agent.SetEnabled(m_caller, m_id, true); }
    bool Disable() override { return m_agent.SetEnabled(m_caller, m_id, false); }
    SBackupJobConfigurationInfo GetConfigurationInfo() const override { return m_agent.Configuration(m_id); }
    void UpdateConfigurationInfo(SBackupJobConfigurationInfo configInfo) override {
        RequireUsablePassword(configInfo);
        m_agent.UpdateJob(m_caller, m_id, configInfo);
    }
    std::vector<SCheckJobValidityMessage> CheckValidity() const override {
        return m_agent.CheckValidity(m_id);
    }
    std::string GetUserData() const override { return m_agent.UserData(m_id); }
    void SetUserData(std::string userData) override { m_agent.SetUserData(m_caller, m_id, userData); }

    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions() const override {
        return Sessions(m_agent.SessionsOf(m_id));
    }
    std::vector<std::shared_ptr<IBackupJobSession>> GetBackupJobSessions(usn_t usn) const override {
        return Sessions(m_agent.SessionsSince(m_id, usn));
    }
    std::shared_ptr<IBackupJobSession> FindLastBackupJobSession() const override {
        const auto last = m_agent.LastSessionOf(m_id);
        return last ? Session(*last) : nullptr;
    }
    std::vector<SRestoreOib> GetOibsForRestore() const override { return m_agent.PointsForRestore(m_id); }

private:
    std::shared_ptr<IBackupJobSession> Session(const Guid& id) const {
        return MakeSession(m_agent, m_caller, id);
    }
    std::vector<std::shared_ptr<IBackupJobSession>> Sessions(const std::vector<Guid>& ids) const {
        std::vector<std::shared_ptr<IBackupJobSession>> sessions;
        sessions.reserve(ids.size());
        for (const Guid& id : ids)
            sessions.push_back(Session(id));
        return sessions;
    }

    CAgent& m_agent;
    SCaller m_caller;
    Guid m_id;
};

}  // namespace

std::shared_ptr<IBackupJob> MakeJob(CAgent& agent, SCaller caller, const Guid& id) {
    return std::make_shared<CJobObject>(agent, std::move(caller), id);
}

std::shared_ptr<IBackupJobSession> MakeSession(CAgent& agent, SCaller caller, const Guid& id) {
    return std::make_shared<CSessionObject>(agent, std::move(caller), id);
}

}  // namespace tarvo::api
