// SPDX-License-Identifier: Apache-2.0
#include "agent/program/CReloadableEngine.h"

#include <utility>

namespace tarvo {

void CReloadableEngine::Use(std::shared_ptr<IEngine> engine) {
    const std::scoped_lock lock(m_mutex);
    m_engine = std::move(engine);
}

std::shared_ptr<IEngine> CReloadableEngine::Current() const {
    const std::scoped_lock lock(m_mutex);
    return m_engine;
}

void CReloadableEngine::Prepare(const SPrepareRequest& request, std::stop_token stop) {
    Current()->Prepare(request, std::move(stop));
}

SBackupResult CReloadableEngine::BackUp(const SBackupRequest& request, std::stop_token stop) {
    return Current()->BackUp(request, std::move(stop));
}

std::vector<SSnapshot> CReloadableEngine::Snapshots(const SEngineStore& store, std::stop_token stop) {
    return Current()->Snapshots(store, std::move(stop));
}

void CReloadableEngine::Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                               std::stop_token stop) {
    Current()->Forget(store, snapshots, std::move(stop));
}

void CReloadableEngine::List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
                             std::stop_token stop) {
    Current()->List(request, entry, std::move(stop));
}

SRestoreResult CReloadableEngine::Restore(const SRestoreRequest& request, std::stop_token stop) {
    return Current()->Restore(request, std::move(stop));
}

SVerifyResult CReloadableEngine::Verify(const SVerifyRequest& request, std::stop_token stop) {
    return Current()->Verify(request, std::move(stop));
}

void CReloadableEngine::ChangePassword(const SEngineStore& store, const std::string& newPassword,
                                       std::stop_token stop) {
    Current()->ChangePassword(store, newPassword, std::move(stop));
}

void CReloadableEngine::Unlock(const SEngineStore& store, std::stop_token stop) {
    Current()->Unlock(store, std::move(stop));
}

}  // namespace tarvo
