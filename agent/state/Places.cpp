// SPDX-License-Identifier: Apache-2.0
// The table of repositories, servers and providers.
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of little else

namespace {

template <class R>
constexpr int KindOf = 0;
template <>
constexpr int KindOf<SBackupRepositoryInfo> = 1;
template <>
constexpr int KindOf<SBackupServerInfo> = 2;
template <>
constexpr int KindOf<SCloudServiceProviderInfo> = 3;

std::string SecretsOf(CDatabase& database, const Guid& id) {
    auto query = database.Query("SELECT secrets FROM place WHERE id = ?");
    query << id;
    std::string name;
    if (query.Next()) query >> name;
    return name;
}

}  // namespace

template <class R>
std::vector<R> CStore::Places() const {
    std::vector<R> places;
    auto query = m_database->Query("SELECT record FROM place WHERE kind = ? ORDER BY number");
    query << KindOf<R>;
    while (query.Next()) {
        std::string text;
        query >> text;
        places.push_back(RecordOf<R>(std::move(text)));
    }
    return places;
}

template <class R>
void CStore::AddPlace(const R& place, const Secrets& secrets) {
    CTransaction transaction(*this);
    auto query = m_database->Query("INSERT INTO place (id, kind, record, secrets) VALUES (?, ?, ?, ?)");
    (query << place.Id << KindOf<R> << TextOf(place) << m_database->WriteSecrets(secrets)).Run();
    transaction.Commit();
}

template <class R>
void CStore::SavePlace(const R& place, const Secrets& secrets) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, place.Id));
    auto query = m_database->Query("UPDATE place SET record = ?, secrets = ? WHERE id = ?");
    (query << TextOf(place) << m_database->WriteSecrets(secrets) << place.Id).Run();
    transaction.Commit();
}

template <class R>
void CStore::RemovePlace(const Guid& id) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, id));
    auto query = m_database->Query("DELETE FROM place WHERE id = ? AND kind = ?");
    (query << id << KindOf<R>).Run();
    transaction.Commit();
}

Secrets CStore::PlaceSecrets(const Guid& id) const {
    return m_database->ReadSecrets(SecretsOf(*m_database, id));
}

template std::vector<SBackupRepositoryInfo> CStore::Places() const;
template std::vector<SBackupServerInfo> CStore::Places() const;
template std::vector<SCloudServiceProviderInfo> CStore::Places() const;
template void CStore::AddPlace(const SBackupRepositoryInfo&, const Secrets&);
template void CStore::AddPlace(const SBackupServerInfo&, const Secrets&);
template void CStore::AddPlace(const SCloudServiceProviderInfo&, const Secrets&);
template void CStore::SavePlace(const SBackupRepositoryInfo&, const Secrets&);
template void CStore::SavePlace(const SBackupServerInfo&, const Secrets&);
template void CStore::SavePlace(const SCloudServiceProviderInfo&, const Secrets&);
template void CStore::RemovePlace<SBackupRepositoryInfo>(const Guid&);
template void CStore::RemovePlace<SBackupServerInfo>(const Guid&);
template void CStore::RemovePlace<SCloudServiceProviderInfo>(const Guid&);

}  // namespace tarvo
