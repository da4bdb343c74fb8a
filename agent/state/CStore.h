// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the agent remembers: a database, and beside it the secrets in files of their own.
#pragma once

#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobRecords.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/core/Secrets.h"
#include "agent/core/Values.h"
#include "agent/state/CStateError.h"

namespace tarvo {

class CDatabase;

struct SStoreOptions {
    bool IsReadOnly = false;                    ///< refuses changes
    std::chrono::milliseconds BusyLimit{5000};  ///< how long another process may hold the database
};

/// One connection to the state. A thread at a time; other connections, of this process or of others, may be open.
///
/// Every failure is a CStateError. A change outside of a transaction is one of its own.
class CStore {
public:
    static constexpr const char* FileName = "state.db";
    static constexpr const char* SecretsFolder = "secrets";

    /// Opens the state in that folder, makes it where there is none, and brings it up to this version's form.
    explicit CStore(std::string folder, const SStoreOptions& options = {});
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;
    ~CStore();

    /// Changes that happen all or not at all. Ends without `Commit` when they don't.
    class CTransaction {
    public:
        explicit CTransaction(CStore& store);
        CTransaction(const CTransaction&) = delete;
        CTransaction& operator=(const CTransaction&) = delete;
        ~CTransaction();

        /// Returns when they are on the disk.
        void Commit();

    private:
        CStore& m_store;
        bool m_isOpen = true;
    };

    /// \name Single facts
    /// @{
    std::optional<std::string> Fact(const std::string& name) const;
    void SetFact(const std::string& name, const std::string& value);
    std::int64_t Number(const std::string& name) const;  ///< 0 when there is none
    void SetNumber(const std::string& name, std::int64_t value);
    zamclientlib::SZamControlOwnerInfo Owner() const;
    void SetOwner(const zamclientlib::SZamControlOwnerInfo& owner);
    /// @}

    /// \name Jobs. Their secrets are kept apart.
    /// @{
    std::vector<SJob> Jobs() const;  ///< in the order in which they were made, deleted ones too
    std::optional<SJob> FindJob(const Guid& id) const;
    void AddJob(const SJob& job, const Secrets& secrets);
    void SaveJob(const SJob& job);
    void SaveJob(const SJob& job, const Secrets& secrets);
    void RemoveJob(const Guid& id);
    Secrets JobSecrets(const Guid& id) const;

    /// Moves a schedule on, unless somebody else has done so.
    bool ClaimPromise(const Guid& job, Moment expected, Moment promisedUntil, std::optional<Moment> next);
    /// @}

    /// \name Sessions
    /// @{
    void AddSession(const SSession& session);
    void SaveSession(const SSession& session);
    void AddLines(const Guid& session, const std::vector<zamclientlib::SLogDetail>& lines);
    std::optional<SSession> FindSession(const Guid& id) const;  ///< without its lines
    std::vector<zamclientlib::SLogDetail> LinesOf(const Guid& session) const;
    std::vector<zamclientlib::SLogDetail> LinesOf(const Guid& session, std::size_t last) const;
    std::vector<Guid> SessionsOf(const Guid& job) const;  ///< oldest first
    std::vector<Guid> SessionsSince(const Guid& job, long usn) const;
    std::optional<Guid> LastSessionOf(const Guid& job) const;
    std::vector<SSession> UnfinishedSessions() const;  ///< at work when the agent ended, or awaiting a retry
    void RemoveOldSessions(const Guid& job, unsigned kept);
    void RemoveSessionsOf(const Guid& job);
    /// @}

    /// \name Chains and points
    /// @{
    std::vector<SChain> ChainsOf(const Guid& job) const;  ///< by number
    std::vector<SChain> Chains() const;
    std::optional<SChain> FindChain(const Guid& job, int number) const;
    void AddChain(const SChain& chain, const std::optional<std::string>& password);
    void SaveChain(const SChain& chain);
    void RemoveChain(const Guid& job, int number);  ///< with its points

    /// None: the well-known one.
    std::optional<std::string> ChainPassword(const Guid& job, int number) const;
    void SetChainPassword(const Guid& job, int number, const std::string& password);

    std::vector<SPoint> PointsOf(const Guid& job) const;  ///< oldest first
    std::vector<SPoint> Points() const;
    std::optional<SPoint> FindPoint(const Guid& id) const;
    void AddPoint(const SPoint& point);
    void SavePoint(const SPoint& point);
    void RemovePoint(const Guid& id);
    /// @}

    /// \name Places for backups, in the order in which they were made. Their secrets are kept apart.
    ///
    /// `R` is SBackupRepositoryInfo, SBackupServerInfo or SCloudServiceProviderInfo.
    /// @{
    template <class R>
    std::vector<R> Places() const;
    template <class R>
    void AddPlace(const R& place, const Secrets& secrets);
    template <class R>
    void SavePlace(const R& place, const Secrets& secrets);
    template <class R>
    void RemovePlace(const Guid& id);
    Secrets PlaceSecrets(const Guid& id) const;
    /// @}

    /// Removes files of secrets that nothing speaks of: an end without a farewell leaves such.
    void RemoveStraySecrets();

private:
    std::unique_ptr<CDatabase> m_database;
};

}  // namespace tarvo
