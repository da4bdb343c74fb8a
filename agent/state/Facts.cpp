// SPDX-License-Identifier: Apache-2.0
// The table of single facts.
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

namespace {
constexpr const char* OwnerFact = "owner";
}

std::optional<std::string> CStore::Fact(const std::string& name) const {
    auto query = m_database->Query("SELECT value FROM fact WHERE name = ?");
    query << name;
    if (!query.Next()) return {};
    std::string value;
    query >> value;
    return value;
}

void CStore::SetFact(const std::string& name, const std::string& value) {
    auto query = m_database->Query("INSERT OR REPLACE INTO fact (name, value) VALUES (?, ?)");
    (query << name << value).Run();
}

std::int64_t CStore::Number(const std::string& name) const {
    auto query = m_database->Query("SELECT value FROM fact WHERE name = ?");
    query << name;
    std::int64_t value = 0;
    if (query.Next()) query >> value;
    return value;
}

void CStore::SetNumber(const std::string& name, std::int64_t value) {
    SetFact(name, std::to_string(value));
}

zamclientlib::SZamControlOwnerInfo CStore::Owner() const {
    auto text = Fact(OwnerFact);
    return text ? RecordOf<zamclientlib::SZamControlOwnerInfo>(std::move(*text))
                : zamclientlib::SZamControlOwnerInfo{};
}

void CStore::SetOwner(const zamclientlib::SZamControlOwnerInfo& owner) {
    SetFact(OwnerFact, TextOf(owner));
}

}  // namespace tarvo
