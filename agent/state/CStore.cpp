// SPDX-License-Identifier: Apache-2.0
#include "agent/state/CStore.h"

#include <filesystem>
#include <set>
#include <utility>

#include "agent/host/Files.h"
#include "agent/state/CDatabase.h"

namespace tarvo {

CStore::CStore(std::string folder, const SStoreOptions& options)
    : m_database(std::make_unique<CDatabase>(std::move(folder), options)) {}

CStore::~CStore() = default;

CStore::CTransaction::CTransaction(CStore& store) : m_store(store) {
    m_store.m_database->Begin();
}

CStore::CTransaction::~CTransaction() {
    if (m_isOpen) m_store.m_database->RollBack();
}

void CStore::CTransaction::Commit() {
    m_store.m_database->Commit();
    m_isOpen = false;
}

void CStore::RemoveStraySecrets() {
    // Others write files of secrets, then what speaks of them: in a transaction, during which this one waits.
    const CTransaction transaction(*this);
    std::set<std::string> known;
    for (auto query = m_database->Query("SELECT secrets FROM job UNION SELECT secrets FROM chain "
                                        "UNION SELECT secrets FROM place");
         query.Next();) {
        std::string name;
        query >> name;
        known.insert(std::move(name));
    }
    std::error_code error;
    const std::filesystem::directory_iterator files(m_database->SecretsFolder(), error);
    if (error) return;
    for (const auto& file : files) {
        if (!known.contains(file.path().filename())) std::filesystem::remove(file.path(), error);
    }
}

}  // namespace tarvo
