// SPDX-License-Identifier: Apache-2.0
/// \file
/// The database underneath: statements, transactions, and failures by type. Its includers are the tables' files alone.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agent/state/CStore.h"

namespace tarvo {

/// A record as the text that it is kept as.
template <class R>
std::string TextOf(const R& record) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "record", record);
    return apigen::CXmlData::Serialize(*data);
}

template <class R>
R RecordOf(std::string text) {
    R record;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(std::move(text)), "record", record);
    return record;
}

/// Statements are compiled once. A thread at a time.
class CDatabase {
public:
    CDatabase(std::string folder, const SStoreOptions& options);
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;

    /// One use of a statement. Values are bound and columns read in their order.
    class CQuery {
    public:
        CQuery(CDatabase& database, const char* sql);
        CQuery(const CQuery&) = delete;
        CQuery& operator=(const CQuery&) = delete;
        ~CQuery();

        CQuery& operator<<(std::int64_t value);
        CQuery& operator<<(const std::string& value);
        CQuery& operator<<(bool value) { return *this << static_cast<std::int64_t>(value); }
        CQuery& operator<<(int value) { return *this << static_cast<std::int64_t>(value); }
        CQuery& operator<<(const Guid& value) { return *this << value.Serialize(); }
        CQuery& operator<<(Moment value) { return *this << value.time_since_epoch().count(); }
        CQuery& operator<<(const std::optional<Moment>& value);

        bool Next();
        int Run();  ///< \return how many rows it changed

        CQuery& operator>>(std::int64_t& value);
        CQuery& operator>>(std::string& value);
        CQuery& operator>>(bool& value);
        CQuery& operator>>(int& value);
        CQuery& operator>>(Guid& value);
        CQuery& operator>>(Moment& value);
        CQuery& operator>>(std::optional<Moment>& value);

    private:
        CDatabase& m_database;
        SQLite::Statement& m_statement;
        int m_bound = 0;
        int m_column = 0;
    };

    CQuery Query(const char* sql) { return CQuery(*this, sql); }
    void Execute(const std::string& sql);

    /// \name Transactions within one another are one.
    /// @{
    void Begin();
    void Commit();
    void RollBack() noexcept;
    /// @}

    /// \name Files of secrets. What a transaction writes goes when it fails; what it drops goes when it doesn't.
    /// @{
    std::string WriteSecrets(const Secrets& secrets);  ///< \return its name; empty where there are none
    Secrets ReadSecrets(const std::string& name) const;
    void DropSecrets(const std::string& name);
    std::string SecretsFolder() const;
    /// @}

    /// The failure of `error` while something was attempted.
    [[noreturn]] void Fail(const SQLite::Exception& error, std::string_view attempt) const;

private:
    void Open(const SStoreOptions& options);
    void WriteAhead(std::chrono::milliseconds limit);
    void Migrate();
    void PutSecretsAside() const;

    std::string m_folder;
    std::string m_file;
    std::optional<SQLite::Database> m_database;
    std::unordered_map<const char*, SQLite::Statement> m_statements;
    int m_depth = 0;
    bool m_isDoomed = false;
    std::vector<std::string> m_written;
    std::vector<std::string> m_dropped;
};

}  // namespace tarvo
