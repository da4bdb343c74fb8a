// SPDX-License-Identifier: Apache-2.0
// The table of jobs.
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

namespace {

SJob ReadJob(CDatabase::CQuery& query) {
    SJob job;
    std::string config;
    query >> job.Id >> config >> job.IsEnabled >> job.IsDeleted >> job.LastBackup >> job.PromisedUntil >>
        job.NextRun >> job.CatchUp >> job.LastActiveFull;
    job.Config = RecordOf<zamclientlib::SBackupJobConfigurationInfo>(std::move(config));
    return job;
}

std::string SecretsOf(CDatabase& database, const Guid& id) {
    auto query = database.Query("SELECT secrets FROM job WHERE id = ?");
    query << id;
    std::string name;
    if (query.Next()) query >> name;
    return name;
}

}  // namespace

std::vector<SJob> CStore::Jobs() const {
    std::vector<SJob> jobs;
    for (auto query = m_database->Query("SELECT id, config, is_enabled, is_deleted, last_backup, "
                                        "promised_until, next_run, catch_up, last_active_full "
                                        "FROM job ORDER BY number");
         query.Next();) {
        jobs.push_back(ReadJob(query));
    }
    return jobs;
}

std::optional<SJob> CStore::FindJob(const Guid& id) const {
    auto query = m_database->Query(
        "SELECT id, config, is_enabled, is_deleted, last_backup, promised_until, "
        "next_run, catch_up, last_active_full FROM job WHERE id = ?");
    query << id;
    if (!query.Next()) return {};
    return ReadJob(query);
}

void CStore::AddJob(const SJob& job, const Secrets& secrets) {
    CTransaction transaction(*this);
    auto query = m_database->Query(
        "INSERT INTO job (id, config, secrets, is_enabled, is_deleted, last_backup, "
        "promised_until, next_run, catch_up, last_active_full) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    query << job.Id << TextOf(job.Config) << m_database->WriteSecrets(secrets) << job.IsEnabled
          << job.IsDeleted << job.LastBackup << job.PromisedUntil << job.NextRun << job.CatchUp
          << job.LastActiveFull;
    query.Run();
    transaction.Commit();
}

void CStore::SaveJob(const SJob& job) {
    auto query = m_database->Query(
        "UPDATE job SET config = ?, is_enabled = ?, is_deleted = ?, last_backup = ?, "
        "promised_until = ?, next_run = ?, catch_up = ?, last_active_full = ? "
        "WHERE id = ?");
    query << TextOf(job.Config) << job.IsEnabled << job.IsDeleted << job.LastBackup << job.PromisedUntil
          << job.NextRun << job.CatchUp << job.LastActiveFull << job.Id;
    query.Run();
}

void CStore::SaveJob(const SJob& job, const Secrets& secrets) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, job.Id));
    SaveJob(job);
    auto query = m_database->Query("UPDATE job SET secrets = ? WHERE id = ?");
    (query << m_database->WriteSecrets(secrets) << job.Id).Run();
    transaction.Commit();
}

void CStore::RemoveJob(const Guid& id) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, id));
    auto query = m_database->Query("DELETE FROM job WHERE id = ?");
    (query << id).Run();
    transaction.Commit();
}

Secrets CStore::JobSecrets(const Guid& id) const {
    return m_database->ReadSecrets(SecretsOf(*m_database, id));
}

bool CStore::ClaimPromise(const Guid& job, Moment expected, Moment promisedUntil,
                          std::optional<Moment> next) {
    auto query = m_database->Query(
        "UPDATE job SET promised_until = ?, next_run = ? "
        "WHERE id = ? AND promised_until = ?");
    return (query << promisedUntil << next << job << expected).Run() == 1;
}

}  // namespace tarvo
