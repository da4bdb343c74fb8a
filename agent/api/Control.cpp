// SPDX-License-Identifier: Apache-2.0
// Control of the agent, and its product object.
#include <utility>

#include "agent/api/Objects.h"

namespace tarvo::api {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

class CControlObject final : public IZamControl {
public:
    CControlObject(CAgent& agent, SPeer peer) : m_agent(agent), m_peer(std::move(peer)) {}

    std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo owner, bool force) override {
        return MakeProduct(m_agent, {m_peer, m_agent.RequestControl(m_peer, owner, force)});
    }
    void ReleaseControl(SZamControlOwnerInfo owner) override { m_agent.ReleaseControl(m_peer, owner); }
    SZamProductInfo GetProductInfo() const override { return m_agent.ProductInfo(); }
    void SetOwnerMode(Guid ownerId, ZAMOwnerMode mode) override {
        m_agent.SetOwnerMode(m_peer, ownerId, mode);
    }
    SZamControlOwnerInfo GetCurrentOwner() const override { return m_agent.CurrentOwner(); }
    SEventConfig GetEventConfig() const override { return m_agent.EventConfig(); }
    Guid GetSessionId() const override { return m_agent.SessionId(); }
    bool IsOsxFDAGranted() const override { return false; }
    void GrabLogs(std::string path) const override { m_agent.GrabLogs(m_peer, path); }

private:
    CAgent& m_agent;
    SPeer m_peer;
};

class CProductObject final : public IZamProduct {
public:
    CProductObject(CAgent& agent, SCaller caller) : m_agent(agent), m_caller(std::move(caller)) {}

    std::shared_ptr<IBackupJob> FindBackupJob(Guid jobId) const override {
        return m_agent.HasJob(jobId) ? MakeJob(m_agent, m_caller, jobId) : nullptr;
    }

    std::vector<std::shared_ptr<IBackupJob>> GetBackupJobs() const override {
        std::vector<std::shared_ptr<IBackupJob>> jobs;
        for (const Guid& id : m_agent.Jobs())
            jobs.push_back(MakeJob(m_agent, m_caller, id));
        return jobs;
    }

    std::shared_ptr<IBackupJob> CreateBackupJob(SBackupJobConfigurationInfo config) override {
        return MakeJob(m_agent, m_caller, m_agent.CreateJob(m_caller, config));
    }
    bool DeleteBackupJob(Guid obId) override { return m_agent.DeleteJob(m_caller, obId); }

    std::shared_ptr<IBackupJobSession> FindBackupJobSessionById(Guid sessionId) const override {
        return m_agent.HasSession(sessionId) ? MakeSession(m_agent, m_caller, sessionId) : nullptr;
    }

    void SetSchedulerPermissionToRunJobs(bool isAllowed) override {
        m_agent.SetSchedulerAllowed(m_caller, isAllowed);
    }
    bool IsSchedulerAllowedToRunJobs() override { return m_agent.IsSchedulerAllowed(); }

    std::shared_ptr<IBackupServerManager> GetBackupServerManager() const override {
        return MakeServerManager(m_agent, m_caller);
    }
    std::shared_ptr<ICloudServiceProviderManager> GetCloudServiceProviderManager() const override {
        return MakeProviderManager(m_agent, m_caller);
    }
    std::shared_ptr<IRepositoryManager> GetRepositoryManager() const override {
        return MakeRepositoryManager(m_agent, m_caller);
    }

    std::vector<SResolveObjectInfo> ResolveUserInput(
        std::vector<SVolumeBackupObject> objects) const override {
        return m_agent.ResolveUserInput(objects);
    }
    Guid GetSessionId() const override { return m_agent.SessionId(); }

private:
    CAgent& m_agent;
    SCaller m_caller;
};

}  // namespace

std::shared_ptr<IZamControl> MakeControl(CAgent& agent, SPeer peer) {
    return std::make_shared<CControlObject>(agent, std::move(peer));
}

std::shared_ptr<IZamProduct> MakeProduct(CAgent& agent, SCaller caller) {
    return std::make_shared<CProductObject>(agent, std::move(caller));
}

}  // namespace tarvo::api
