// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "agent/engine/IEngine.h"

namespace tarvo {

/// An engine that may be replaced by another while it is used: what is under way is finished by the one that began it.
class CReloadableEngine final : public IEngine {
public:
    explicit CReloadableEngine(std::shared_ptr<IEngine> engine) : m_engine(std::move(engine)) {}

    void Use(std::shared_ptr<IEngine> engine);

    SEngineInfo Info() override { return Current()->Info(); }
    void Prepare(const SPrepareRequest& request, std::stop_token stop) override;
    bool Exists(const SEngineStore& store) override { return Current()->Exists(store); }
    SBackupResult BackUp(const SBackupRequest& request, std::stop_token stop) override;
    std::vector<SSnapshot> Snapshots(const SEngineStore& store, std::stop_token stop) override;
    void Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                std::stop_token stop) override;
    void List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
              std::stop_token stop) override;
    SRestoreResult Restore(const SRestoreRequest& request, std::stop_token stop) override;
    SVerifyResult Verify(const SVerifyRequest& request, std::stop_token stop) override;
    void ChangePassword(const SEngineStore& store, const std::string& newPassword,
                        std::stop_token stop) override;
    void Unlock(const SEngineStore& store, std::stop_token stop) override;
    std::optional<std::uint64_t> StoreSize(const SEngineStore& store) override {
        return Current()->StoreSize(store);
    }
    void Remove(const SEngineStore& store) override { Current()->Remove(store); }

private:
    std::shared_ptr<IEngine> Current() const;

    mutable std::mutex m_mutex;
    std::shared_ptr<IEngine> m_engine;
};

}  // namespace tarvo
