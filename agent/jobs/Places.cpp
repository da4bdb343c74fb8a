// SPDX-License-Identifier: Apache-2.0
// Repositories, servers and providers.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "agent/host/Files.h"
#include "agent/host/Mounts.h"
#include "agent/jobs/CAgentImpl.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::ErrorText;
using apigen::common::Quoted;

namespace {

template <class R>
constexpr const char* KindOf = "";
template <>
constexpr const char* KindOf<SBackupRepositoryInfo> = "repository";
template <>
constexpr const char* KindOf<SBackupServerInfo> = "backup server";
template <>
constexpr const char* KindOf<SCloudServiceProviderInfo> = "cloud service provider";

template <class R>
void CheckName(const std::vector<R>& list, const R& record) {
    const std::string kind = KindOf<R>;
    if (record.Name.empty()) throw CGenericException("A " + kind + " needs a name");
    for (const auto& other : list) {
        if (other.Name == record.Name && other.Id != record.Id) {
            throw CGenericException("There is a " + kind + " called " + record.Name + " already");
        }
    }
}

[[noreturn]] void ThrowUnknown(const char* kind, const Guid& id) {
    throw CGenericException("There is no " + std::string(kind) + " " + id.Serialize());
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void CheckFolder(const SBackupRepositoryInfo& info) {
    if (info.Location.find('\0') != std::string::npos) {
        throw CGenericException("The location " + Quoted(info.Location) + " holds a NUL character");
    }
    if (info.Type != BackupTargetType::LocalFolder) return;
    if (info.Location.rfind('/', 0) != 0) {
        throw CGenericException(
            "A repository in a local folder needs a location that is an absolute path, not " +
            Quoted(info.Location));
    }
}

/// Makes the last folder of the location. \return whether it was missing
bool MakeFolder(const SBackupRepositoryInfo& info) {
    if (info.Type != BackupTargetType::LocalFolder || IsFolder(info.Location)) return false;
    if (::mkdir(info.Location.c_str(), 0700) != 0) {
        const int error = errno;
        const std::string hint = error == ENOENT   ? "; make the folders above it first"
                                 : error == EEXIST ? ": something else stands there"
                                                   : "";
        throw CGenericException("The folder " + Quoted(info.Location) +
                                " can't be made: " + ErrorText(error) + hint);
    }
    return true;
}

std::string MountFact(const Guid& repository) {
    return "mount of " + PlainText(repository);
}

/// The mount point that the folder's file system has; empty where nothing is there.
std::string MountPointOf(const std::string& location, const std::vector<SMount>& mounts) {
    std::error_code error;
    const auto real = std::filesystem::canonical(location, error);
    const SMount* const mount = error ? nullptr : MountOf(mounts, real.string());
    return mount != nullptr ? mount->Point : "";
}

}  // namespace

// The host's view

std::string LocationOf(const SBackupRepositoryInfo& repository) {
    switch (repository.Type) {
        case BackupTargetType::LocalFolder:
            return repository.Location;
        case BackupTargetType::SharedFolder: {
            if (!repository.Location.empty()) return repository.Location;
            if (!repository.SharedFolderInfo) return {};
            for (const auto& mount : Mounts()) {
                if (mount.Source == repository.SharedFolderInfo->Directory) return mount.Point;
            }
            return {};
        }
        default:
            return {};
    }
}

std::string LocationFault(const SBackupRepositoryInfo& repository) {
    const bool isShared = repository.Type == BackupTargetType::SharedFolder;
    const std::string location = LocationOf(repository);
    if (location.empty()) {
        return isShared ? "the shared folder is not mounted on this host; mount it" : "it has no location";
    }
    if (location.front() != '/') return "its location " + Quoted(location) + " is no absolute path";
    struct stat status {};
    if (::stat(location.c_str(), &status) != 0) {
        return "its folder " + Quoted(location) + " can't be reached: " + ErrorText(errno) +
               "; make it available (is a disk not mounted?)";
    }
    if (!S_ISDIR(status.st_mode)) return Quoted(location) + " is no folder";
    if (isShared) {
        const auto mounts = Mounts();
        const SMount* const mount = MountOf(mounts, location);
        if (mount == nullptr || mount->Point == "/") {
            return "no shared folder is mounted at " + Quoted(location) + "; mount it there";
        }
    }
    if (::access(location.c_str(), W_OK | X_OK) != 0) {
        return "its folder " + Quoted(location) + " can't be written to: " + ErrorText(errno);
    }
    return {};
}

apigen::Optional<SBackupRepositorySizeInfo> SizeOf(const SBackupRepositoryInfo& repository) {
    const std::string location = LocationOf(repository);
    if (location.empty()) return {};
    const auto space = SpaceOf(location);
    if (!space) return {};
    return SBackupRepositorySizeInfo{space->Capacity, space->Free};
}

std::string CAgent::Impl::RepositoryFault(const SBackupRepositoryInfo& repository) {
    if (auto fault = LocationFault(repository); !fault.empty()) return fault;
    const std::string location = LocationOf(repository);
    if (!IsAway(repository.Id, location)) return {};
    return "the disk of its folder " + Quoted(location) +
           " is not mounted, and what stands there now is not what was there; mount it";
}

bool CAgent::Impl::IsAway(const Guid& repository, const std::string& location) {
    if (::access(location.c_str(), F_OK) != 0) return true;
    std::vector<SChain> chains;
    std::optional<std::string> before;
    Read([&](const CStore& past) {
        before = past.Fact(MountFact(repository));
        if (before) chains = past.Chains();
    });
    if (!before) return false;
    const auto mounts = Mounts();
    if (MountPointOf(location, mounts) == *before) return false;
    for (const auto& mount : mounts) {
        // Where a file system is mounted on demand, that is noted as a mount of its own.
        if (mount.Point == *before && mount.Type != "autofs") return false;
    }
    // Disks may be mounted elsewhere, with the folder as a link to them: what is in it tells.
    return std::none_of(chains.begin(), chains.end(), [&](const SChain& chain) {
        return chain.Repository == repository && chain.Location == location &&
               m_engine->Exists(StoreOf(chain, {}));
    });
}

void CAgent::Impl::NoteMount(const SBackupRepositoryInfo& repository) noexcept {
    try {
        const auto point = MountPointOf(LocationOf(repository), Mounts());
        if (point.empty()) return;
        const std::lock_guard changes(m_changes);
        if (m_store.Fact(MountFact(repository.Id)) != point) m_store.SetFact(MountFact(repository.Id), point);
    } catch (const std::exception& error) {  // the next run tries again
        m_log.Warning("The mount point of a repository can't be noted: " +
                      apigen::common::Escaped(error.what()));
    }
}

// All kinds

template <>
std::vector<SBackupRepositoryInfo>& CAgent::Impl::ListOf() {
    return m_repositories;
}
template <>
std::vector<SBackupServerInfo>& CAgent::Impl::ListOf() {
    return m_servers;
}
template <>
std::vector<SCloudServiceProviderInfo>& CAgent::Impl::ListOf() {
    return m_providers;
}

template <class R>
std::vector<R> CAgent::Impl::All() const {
    const auto lock = LockState();
    return const_cast<Impl*>(this)->ListOf<R>();  // NOLINT: only read
}

template <class R>
apigen::Optional<R> CAgent::Impl::Find(const Guid& id) const {
    const auto lock = LockState();
    const R* const found = FindById(const_cast<Impl*>(this)->ListOf<R>(), id);  // NOLINT: only read
    return found != nullptr ? apigen::Optional<R>(*found) : apigen::Optional<R>();
}

template <class R>
R CAgent::Impl::Add(const SCaller& caller, R info) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    info.Id = Guid::Random();
    auto& list = ListOf<R>();
    CheckName(list, info);
    const Secrets secrets = TakeSecrets(info);
    m_store.AddPlace(info, secrets);
    m_log.Info(Quoted(caller.Peer.UserName) + " added the " + KindOf<R> + " " + Quoted(info.Name));
    const auto lock = LockState();
    return list.emplace_back(std::move(info));
}

template <class R>
R CAgent::Impl::Update(const SCaller& caller, R info) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    auto& list = ListOf<R>();
    R* const known = FindById(list, info.Id);
    if (known == nullptr) ThrowUnknown(KindOf<R>, info.Id);
    CheckName(list, info);
    bool keepsPassword = false;
    if constexpr (std::is_same_v<R, SCloudServiceProviderInfo>) {
        // Its password has a kind of its own beside it: who doesn't say either keeps both.
        keepsPassword = !info.Password && known->Password;
        if (keepsPassword) info.Password = known->Password;
    }
    const Secrets before =
        SecretsBefore([&] { return m_store.PlaceSecrets(info.Id); }, keepsPassword || LacksSecrets(info));
    if (keepsPassword) GiveSecrets(info, before);
    KeepSecrets(info, before);
    const Secrets secrets = TakeSecrets(info);
    CStore::CTransaction transaction(m_store);
    m_store.SavePlace(info, secrets);
    if constexpr (std::is_same_v<R, SBackupRepositoryInfo>) {
        const std::string location = LocationOf(info);
        for (auto& chain : m_store.Chains()) {
            if (chain.Repository != info.Id || chain.Location == location || location.empty()) continue;
            chain.Location = location;
            m_store.SaveChain(chain);
        }
    }
    transaction.Commit();
    m_log.Info(Quoted(caller.Peer.UserName) + " changed the " + KindOf<R> + " " + Quoted(info.Name));
    const auto lock = LockState();
    return *known = std::move(info);
}

template <class R>
bool CAgent::Impl::Delete(const SCaller& caller, const Guid& id) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    auto& list = ListOf<R>();
    const R* const known = FindById(list, id);
    if (known == nullptr) return false;
    const auto isOffered = [&](const SBackupRepositoryInfo& repository) {
        return repository.ServerId == apigen::Optional<Guid>(id);
    };
    CStore::CTransaction transaction(m_store);
    for (const auto& repository : m_repositories) {
        if (!isOffered(repository)) continue;
        for (const auto& job : m_jobs) {
            if (job.Config.RepositoryId != repository.Id) continue;
            throw CGenericException("The " + std::string(KindOf<R>) + " offers the repository " +
                                    repository.Name + ", which the job " + job.Config.JobName + " uses");
        }
        m_store.RemovePlace<SBackupRepositoryInfo>(repository.Id);
    }
    m_store.RemovePlace<R>(id);
    transaction.Commit();
    m_log.Info(Quoted(caller.Peer.UserName) + " deleted the " + KindOf<R> + " " + Quoted(known->Name));
    const auto lock = LockState();
    std::erase_if(m_repositories, isOffered);
    std::erase_if(list, [&](const R& record) { return record.Id == id; });
    return true;
}

template <class R>
void CAgent::Impl::RefuseResync(const SCaller& caller, const Guid& id) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    const R* const known = FindById(ListOf<R>(), id);
    if (known == nullptr) ThrowUnknown(KindOf<R>, id);
    throw CGenericException("The " + std::string(KindOf<R>) + " " + known->Name +
                            " can't be asked for its repositories: this version talks to none; create "
                            "repositories on this host, in a local or in a mounted shared folder");
}

template std::vector<SBackupRepositoryInfo> CAgent::Impl::All() const;
template std::vector<SBackupServerInfo> CAgent::Impl::All() const;
template std::vector<SCloudServiceProviderInfo> CAgent::Impl::All() const;
template apigen::Optional<SBackupRepositoryInfo> CAgent::Impl::Find(const Guid&) const;
template apigen::Optional<SBackupServerInfo> CAgent::Impl::Find(const Guid&) const;
template apigen::Optional<SCloudServiceProviderInfo> CAgent::Impl::Find(const Guid&) const;
template SBackupServerInfo CAgent::Impl::Add(const SCaller&, SBackupServerInfo);
template SCloudServiceProviderInfo CAgent::Impl::Add(const SCaller&, SCloudServiceProviderInfo);
template SBackupServerInfo CAgent::Impl::Update(const SCaller&, SBackupServerInfo);
template SCloudServiceProviderInfo CAgent::Impl::Update(const SCaller&, SCloudServiceProviderInfo);
template bool CAgent::Impl::Delete<SBackupServerInfo>(const SCaller&, const Guid&);
template bool CAgent::Impl::Delete<SCloudServiceProviderInfo>(const SCaller&, const Guid&);
template void CAgent::Impl::RefuseResync<SBackupServerInfo>(const SCaller&, const Guid&);
template void CAgent::Impl::RefuseResync<SCloudServiceProviderInfo>(const SCaller&, const Guid&);

// Repositories

SBackupRepositoryInfo CAgent::Impl::CreateRepository(const SCaller& caller, SBackupRepositoryInfo info) {
    {
        // Nothing is made for somebody who may not.
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        auto unnamed = info;
        unnamed.Id = {};
        CheckName(m_repositories, unnamed);
    }
    CheckFolder(info);
    const bool isMade = MakeFolder(info);
    const std::string location = info.Location;
    try {
        auto added = Add(caller, std::move(info));
        NoteMount(added);
        return added;
    } catch (...) {
        if (isMade) ::rmdir(location.c_str());
        throw;
    }
}

SBackupRepositoryInfo CAgent::Impl::UpdateRepository(const SCaller& caller, SBackupRepositoryInfo info) {
    CheckFolder(info);
    bool isMade = false;
    bool isMoved = false;
    {
        const std::lock_guard changes(m_changes);
        RequireChangeBy(caller);
        const auto* const known = FindById(m_repositories, info.Id);
        if (known == nullptr) ThrowUnknown(KindOf<SBackupRepositoryInfo>, info.Id);
        CheckName(m_repositories, info);
        isMoved = known->Location != info.Location || known->Type != info.Type;
        if (isMoved) {
            for (const auto& [job, active] : m_active) {
                const auto* const running = FindById(m_jobs, job);
                if (running != nullptr && running->Config.RepositoryId == info.Id) {
                    throw CJobIsRunning("The job " + running->Config.JobName +
                                        " is running; its repository can't be moved now");
                }
            }
        }
    }
    isMade = MakeFolder(info);
    const std::string location = info.Location;
    try {
        auto updated = Update(caller, std::move(info));
        if (isMoved) NoteMount(updated);
        return updated;
    } catch (...) {
        if (isMade) ::rmdir(location.c_str());
        throw;
    }
}

void CAgent::Impl::DeleteRepository(const SCaller& caller, const Guid& id) {
    const std::lock_guard changes(m_changes);
    RequireChangeBy(caller);
    const auto* const known = FindById(m_repositories, id);
    if (known == nullptr) ThrowUnknown(KindOf<SBackupRepositoryInfo>, id);
    for (const auto& job : m_jobs) {
        if (job.Config.RepositoryId == id) {
            throw CGenericException("The job " + job.Config.JobName + " uses the repository " + known->Name);
        }
    }
    m_store.RemovePlace<SBackupRepositoryInfo>(id);
    m_log.Info(Quoted(caller.Peer.UserName) + " deleted the repository " + Quoted(known->Name) +
               "; its files stay");
    const auto lock = LockState();
    std::erase_if(m_repositories, [&](const auto& each) { return each.Id == id; });
}

bool CAgent::Impl::CanRepositoryBeDeleted(const Guid& id) const {
    const auto lock = LockState();
    return FindById(m_repositories, id) != nullptr &&
           std::none_of(m_jobs.begin(), m_jobs.end(),
                        [&](const SJob& job) { return job.Config.RepositoryId == id; });
}

apigen::Optional<SBackupRepositorySizeInfo> CAgent::Impl::RepositorySize(const Guid& id) const {
    const auto repository = Find<SBackupRepositoryInfo>(id);
    return repository ? SizeOf(*repository) : apigen::Optional<SBackupRepositorySizeInfo>();
}

}  // namespace tarvo
