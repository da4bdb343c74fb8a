// SPDX-License-Identifier: Apache-2.0
// The table of chains.
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

namespace {

constexpr const char* PasswordPath = "Password";

SChain ReadChain(CDatabase::CQuery& query) {
    SChain chain;
    int state = 0;
    int part = 0;
    int parts = 0;
    query >> chain.Job >> chain.Number >> chain.Repository >> chain.Location >> state >> chain.HasPassword >>
        chain.Created >> chain.Damage >> part >> parts >> chain.Verified.Last;
    chain.State = static_cast<EChainState>(state);
    chain.Verified.Part = static_cast<unsigned>(part);
    chain.Verified.Parts = static_cast<unsigned>(parts);
    return chain;
}

std::string SecretsOf(CDatabase& database, const Guid& job, int number) {
    auto query = database.Query("SELECT secrets FROM chain WHERE job = ? AND number = ?");
    query << job << number;
    std::string name;
    if (query.Next()) query >> name;
    return name;
}

}  // namespace

std::vector<SChain> CStore::ChainsOf(const Guid& job) const {
    std::vector<SChain> chains;
    auto query = m_database->Query(
        "SELECT job, number, repository, location, state, has_password, created, "
        "damage, verified_part, verified_parts, verified_at "
        "FROM chain WHERE job = ? ORDER BY number");
    query << job;
    while (query.Next()) {
        chains.push_back(ReadChain(query));
    }
    return chains;
}

std::vector<SChain> CStore::Chains() const {
    std::vector<SChain> chains;
    for (auto query = m_database->Query("SELECT job, number, repository, location, state, has_password, "
                                        "created, damage, verified_part, verified_parts, verified_at "
                                        "FROM chain ORDER BY job, number");
         query.Next();) {
        chains.push_back(ReadChain(query));
    }
    return chains;
}

std::optional<SChain> CStore::FindChain(const Guid& job, int number) const {
    auto query = m_database->Query(
        "SELECT job, number, repository, location, state, has_password, created, "
        "damage, verified_part, verified_parts, verified_at "
        "FROM chain WHERE job = ? AND number = ?");
    query << job << number;
    if (!query.Next()) return {};
    return ReadChain(query);
}

void CStore::AddChain(const SChain& chain, const std::optional<std::string>& password) {
    CTransaction transaction(*this);
    auto query = m_database->Query(
        "INSERT INTO chain (job, number, repository, location, state, has_password, "
        "secrets, created, damage, verified_part, verified_parts, verified_at) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    query << chain.Job << chain.Number << chain.Repository << chain.Location << static_cast<int>(chain.State)
          << password.has_value()
          << m_database->WriteSecrets(password ? Secrets{{PasswordPath, *password}} : Secrets{})
          << chain.Created << chain.Damage << static_cast<int>(chain.Verified.Part)
          << static_cast<int>(chain.Verified.Parts) << chain.Verified.Last;
    query.Run();
    transaction.Commit();
}

void CStore::SaveChain(const SChain& chain) {
    auto query = m_database->Query(
        "UPDATE chain SET repository = ?, location = ?, state = ?, damage = ?, "
        "verified_part = ?, verified_parts = ?, verified_at = ? "
        "WHERE job = ? AND number = ?");
    query << chain.Repository << chain.Location << static_cast<int>(chain.State) << chain.Damage
          << static_cast<int>(chain.Verified.Part) << static_cast<int>(chain.Verified.Parts)
          << chain.Verified.Last << chain.Job << chain.Number;
    query.Run();
}

void CStore::RemoveChain(const Guid& job, int number) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, job, number));
    auto points = m_database->Query("DELETE FROM point WHERE job = ? AND chain = ?");
    (points << job << number).Run();
    auto chain = m_database->Query("DELETE FROM chain WHERE job = ? AND number = ?");
    (chain << job << number).Run();
    transaction.Commit();
}

std::optional<std::string> CStore::ChainPassword(const Guid& job, int number) const {
    const auto secrets = m_database->ReadSecrets(SecretsOf(*m_database, job, number));
    const auto found = secrets.find(PasswordPath);
    return found != secrets.end() ? std::optional(found->second) : std::nullopt;
}

void CStore::SetChainPassword(const Guid& job, int number, const std::string& password) {
    CTransaction transaction(*this);
    m_database->DropSecrets(SecretsOf(*m_database, job, number));
    auto query =
        m_database->Query("UPDATE chain SET secrets = ?, has_password = 1 WHERE job = ? AND number = ?");
    (query << m_database->WriteSecrets({{PasswordPath, password}}) << job << number).Run();
    transaction.Commit();
}

}  // namespace tarvo
