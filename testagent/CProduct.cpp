// SPDX-License-Identifier: Apache-2.0
// Control of the agent, and its product object.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "support/common/CDescriptor.h"
#include "testagent/Objects.h"

namespace testagent {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// What the agent makes of a typed name. It asks the name alone: tests get the same answer on every host.
SResolveObjectInfo Resolve(const SVolumeBackupObject& object) {
    SResolveObjectInfo info{object.Object, object.Object, {}, object.Type};
    const std::string& name = object.Object;
    if (info.ObjectType != EVolumeBackupObjectType::Unknown) {
        info.ResolveDetails = "As it was named";
    } else if (name.rfind("/dev/", 0) == 0) {
        const bool isPart = std::isdigit(static_cast<unsigned char>(name.back())) != 0;
        info.ObjectType = isPart ? EVolumeBackupObjectType::Volume : EVolumeBackupObjectType::Disk;
        info.ResolveDetails = isPart ? "A volume" : "A disk";
    } else if (name.rfind('/', 0) == 0) {
        info.ObjectType = EVolumeBackupObjectType::Directory;
        info.ResolveDetails = "A directory";
    } else {
        info.ResolveDetails = "Nothing of this name is known";
    }
    return info;
}

class CProduct final : public IZamProduct {
public:
    CProduct(AgentPtr agent, GrantPtr grant) : m_agent(std::move(agent)), m_grant(std::move(grant)) {}

    std::shared_ptr<IBackupJob> FindBackupJob(Guid jobId) const override {
        const auto lock = m_agent->Lock();
        auto job = m_agent->FindJob(jobId);
        return job != nullptr ? MakeJob(m_agent, m_grant, std::move(job)) : nullptr;
    }

    std::vector<std::shared_ptr<IBackupJob>> GetBackupJobs() const override {
        const auto lock = m_agent->Lock();
        std::vector<std::shared_ptr<IBackupJob>> jobs;
        for (const auto& job : m_agent->Jobs) {
            jobs.push_back(MakeJob(m_agent, m_grant, job));
        }
        return jobs;
    }

    std::shared_ptr<IBackupJob> CreateBackupJob(SBackupJobConfigurationInfo config) override {
        const auto lock = m_agent->Lock();
        m_agent->RequireChangeBy(*m_grant);
        return MakeJob(m_agent, m_grant, m_agent->CreateJob(config));
    }

    bool DeleteBackupJob(Guid obId) override {
        const auto lock = m_agent->Lock();
        m_agent->RequireChangeBy(*m_grant);
        return m_agent->DeleteJob(obId);
    }

    std::shared_ptr<IBackupJobSession> FindBackupJobSessionById(Guid sessionId) const override {
        const auto lock = m_agent->Lock();
        for (const auto& job : m_agent->Jobs) {
            for (const auto& session : job->Sessions) {
                if (session->Info.Uid == sessionId) return MakeSession(m_agent, m_grant, job, session);
            }
        }
        return nullptr;
    }

    void SetSchedulerPermissionToRunJobs(bool isAllowed) override {
        const auto lock = m_agent->Lock();
        m_agent->RequireChangeBy(*m_grant);
        m_agent->IsSchedulerAllowed = isAllowed;
    }

    bool IsSchedulerAllowedToRunJobs() override {
        const auto lock = m_agent->Lock();
        return m_agent->IsSchedulerAllowed;
    }

    std::shared_ptr<IBackupServerManager> GetBackupServerManager() const override {
        return MakeServerManager(m_agent, m_grant);
    }
    std::shared_ptr<ICloudServiceProviderManager> GetCloudServiceProviderManager() const override {
        return MakeProviderManager(m_agent, m_grant);
    }
    std::shared_ptr<IRepositoryManager> GetRepositoryManager() const override {
        return MakeRepositoryManager(m_agent, m_grant);
    }

    std::vector<SResolveObjectInfo> ResolveUserInput(
        std::vector<SVolumeBackupObject> objects) const override {
        std::vector<SResolveObjectInfo> resolved;
        resolved.reserve(objects.size());
        for (const auto& object : objects) {
            resolved.push_back(Resolve(object));
        }
        return resolved;
    }

    Guid GetSessionId() const override { return m_agent->SessionId(); }

private:
    AgentPtr m_agent;
    GrantPtr m_grant;
};

/// Writes a new file: what stands at the path already, be it a link, is nothing that a client may have replaced.
void WriteFile(const std::string& path, std::string_view text) {
    if (path.empty() || path.front() != '/' || path.find('\0') != path.npos) {
        throw CGenericException("Logs are gathered at an absolute path, not at \"" + path + "\"");
    }
    const apigen::common::CDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    const auto refuse = [&](int error) {
        throw CGenericException("Gathering the logs at " + path +
                                " failed: " + std::generic_category().message(error));
    };
    if (!file) refuse(errno);
    while (!text.empty()) {
        const ssize_t written = ::write(file.Get(), text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) {
            const int error = errno;
            ::unlink(path.c_str());
            refuse(error);
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

class CControl final : public IZamControl {
public:
    explicit CControl(AgentPtr agent) : m_agent(std::move(agent)) {}

    std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo owner, bool force) override {
        const auto lock = m_agent->Lock();
        return std::make_shared<CProduct>(m_agent, m_agent->RequestControl(owner, force));
    }

    void ReleaseControl(SZamControlOwnerInfo owner) override {
        const auto lock = m_agent->Lock();
        m_agent->ReleaseControl(owner.Id);
    }

    SZamProductInfo GetProductInfo() const override {
        const Guid product = Guid::Deserialize("{7a1d7a9e-4f2c-4b0e-9d52-0c1f4a6be001}");
        return {m_agent->SessionId(), product, "Test agent", "2.0.0"};
    }

    void SetOwnerMode(Guid ownerId, ZAMOwnerMode mode) override {
        const auto lock = m_agent->Lock();
        if (ownerId == Guid{} || m_agent->Owner.Id != ownerId) {
            throw CGenericException("The owner " + ownerId.Serialize() + " does not control the agent");
        }
        m_agent->Owner.Mode = mode;
    }

    SZamControlOwnerInfo GetCurrentOwner() const override {
        const auto lock = m_agent->Lock();
        return m_agent->Owner;
    }

    SEventConfig GetEventConfig() const override { return m_agent->EventConfig(); }
    Guid GetSessionId() const override { return m_agent->SessionId(); }
    bool IsOsxFDAGranted() const override { return false; }

    void GrabLogs(std::string path) const override {
        const auto lock = m_agent->Lock();
        WriteFile(path, m_agent->LogText());
    }

private:
    AgentPtr m_agent;
};

}  // namespace

std::shared_ptr<IZamControl> MakeControl(AgentPtr agent) {
    return std::make_shared<CControl>(std::move(agent));
}

}  // namespace testagent
