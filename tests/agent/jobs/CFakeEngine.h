// SPDX-License-Identifier: Apache-2.0
/// \file
/// An engine that does what a test says: for faults, and for what a real one takes too long for.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "agent/engine/IEngine.h"

namespace tarvo::tests {

class CFakeEngine final : public IEngine {
public:
    struct SKept {
        std::string Password;
        std::vector<SSnapshot> Snapshots;
    };

    SEngineInfo Info() override {
        const std::lock_guard lock(m_mutex);
        if (!m_fault.empty()) throw CEngineMissing(m_fault);
        return {"/fake", {0, 99, 0, "fake"}, true, true};
    }

    void Prepare(const SPrepareRequest& request, std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("prepare", request.Store);
        if (!std::filesystem::exists(LocationOf(request.Store.Folder))) throw CNoLocation("no location");
        std::filesystem::create_directories(request.Store.Folder);
        std::ofstream(request.Store.Folder + "/config") << "fake";
        m_stores[request.Store.Folder].Password = request.Store.Password.value_or("");
    }

    bool Exists(const SEngineStore& store) override {
        return std::filesystem::exists(store.Folder + "/config");
    }

    SBackupResult BackUp(const SBackupRequest& request, std::stop_token stop) override {
        std::unique_lock lock(m_mutex);
        Note("back up", request.Store);
        m_parents.push_back(request.Parent);
        std::ifstream list(request.ListFile, std::ios::binary);
        m_lists.emplace_back().assign(std::istreambuf_iterator<char>(list), {});
        m_oneFileSystem = request.OneFileSystem;
        ++m_running;
        m_most = std::max(m_most, m_running);
        m_news.notify_all();
        struct SEnd {
            unsigned& Running;
            ~SEnd() { --Running; }
        } const end{m_running};
        if (!m_news.wait(lock, stop, [&] { return !m_isHeld; })) throw CEngineStopped("stopped");
        if (!m_failures.empty()) {
            const auto failure = m_failures.front();
            m_failures.erase(m_failures.begin());
            failure();
        }
        auto& kept = Open(request.Store);
        lock.unlock();
        for (const auto& progress : m_progress) {
            request.OnProgress(progress);
        }
        while (m_isSeen && !m_isSeen()) {
            request.OnProgress(m_progress.back());
        }
        lock.lock();
        for (const auto& warning : m_warnings) {
            lock.unlock();
            request.OnWarning({warning, warning});
            lock.lock();
        }
        const std::string id = "snapshot" + std::to_string(++m_count);
        kept.Snapshots.push_back({id, request.Job, request.Point, std::chrono::system_clock::now(), "host"});
        if (m_afterBackup) m_afterBackup();
        return {id, 3, 3000, 2, 2000, 700, m_warnings.size(), m_cpuTime};
    }

    std::vector<SSnapshot> Snapshots(const SEngineStore& store, std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("snapshots", store);
        return Open(store).Snapshots;
    }

    void Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("forget", store);
        const std::set<std::string> gone(snapshots.begin(), snapshots.end());
        std::erase_if(Open(store).Snapshots, [&](const SSnapshot& each) { return gone.contains(each.Id); });
    }

    void List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
              std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Open(request.Store);
        SEntry file;
        file.Type = EEntryType::File;
        file.Size = 3000;
        entry(file);
    }

    SRestoreResult Restore(const SRestoreRequest&, std::stop_token) override { return {}; }

    SVerifyResult Verify(const SVerifyRequest& request, std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("verify " + (request.Part ? std::to_string(request.Part->Number) : "all"), request.Store);
        return m_verified;
    }

    void ChangePassword(const SEngineStore& store, const std::string& newPassword, std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("change password", store);
        Open(store).Password = newPassword;
        if (m_afterPassword) m_afterPassword();
    }

    void Unlock(const SEngineStore& store, std::stop_token) override {
        const std::lock_guard lock(m_mutex);
        Note("unlock", store);
    }

    std::optional<std::uint64_t> StoreSize(const SEngineStore&) override { return 1700; }

    void Remove(const SEngineStore& store) override {
        const std::lock_guard lock(m_mutex);
        Note("remove", store);
        std::filesystem::remove_all(store.Folder);
        m_stores.erase(store.Folder);
    }

    // What a test says

    void Hold(bool isHeld) {
        const std::lock_guard lock(m_mutex);
        m_isHeld = isHeld;
        m_news.notify_all();
    }

    /// Whether so many backups are under way before long.
    bool AwaitRunning(unsigned count) {
        std::unique_lock lock(m_mutex);
        return m_news.wait_for(lock, std::chrono::seconds(20), [&] { return m_running == count; });
    }

    template <class E>
    void FailNext(const std::string& text) {
        const std::lock_guard lock(m_mutex);
        m_failures.push_back([text] { throw E(text); });
    }

    unsigned Most() {
        const std::lock_guard lock(m_mutex);
        return m_most;
    }

    std::vector<std::string> Done() {
        const std::lock_guard lock(m_mutex);
        return m_done;
    }

    std::size_t CountOf(const std::string& what) {
        std::size_t count = 0;
        for (const auto& done : Done()) {
            if (done == what) ++count;
        }
        return count;
    }

    std::map<std::string, SKept> Stores() {
        const std::lock_guard lock(m_mutex);
        return m_stores;
    }

    // Set before the agent runs.
    std::string m_fault;
    std::vector<SBackupProgress> m_progress{{1, 1000, 2000}};
    std::chrono::milliseconds m_cpuTime{};
    std::function<bool()> m_isSeen;  ///< the last progress is told again until then
    std::vector<std::string> m_warnings;
    SVerifyResult m_verified;
    std::function<void()> m_afterBackup;
    std::function<void()> m_afterPassword;
    std::vector<std::string> m_parents;
    std::vector<std::string> m_lists;  ///< what was to be backed up
    bool m_oneFileSystem = false;

private:
    void Note(std::string what, const SEngineStore&) { m_done.push_back(std::move(what)); }

    SKept& Open(const SEngineStore& store) {
        if (!std::filesystem::exists(store.Folder + "/config")) throw CNoStore("no store at " + store.Folder);
        auto& kept = m_stores[store.Folder];
        if (kept.Password != store.Password.value_or("")) throw CWrongKey("wrong key");
        return kept;
    }

    std::mutex m_mutex;
    std::condition_variable_any m_news;
    bool m_isHeld = false;
    unsigned m_running = 0;
    unsigned m_most = 0;
    int m_count = 0;
    std::vector<std::function<void()>> m_failures;
    std::vector<std::string> m_done;
    std::map<std::string, SKept> m_stores;
};

}  // namespace tarvo::tests
