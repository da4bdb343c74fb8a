// SPDX-License-Identifier: Apache-2.0
#include "agent/state/CDatabase.h"

#include <fcntl.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/host/Files.h"
#include "agent/state/Migrations.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {

using apigen::common::Quoted;

namespace {

EStateFault FaultOf(const SQLite::Exception& error, sqlite3* handle) {
    switch (error.getErrorCode()) {
        case SQLITE_FULL:
            return EStateFault::Full;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return EStateFault::Locked;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return EStateFault::Broken;
        case SQLITE_IOERR: {
            const int reason = handle != nullptr ? ::sqlite3_system_errno(handle) : 0;
            return reason == ENOSPC || reason == EDQUOT ? EStateFault::Full : EStateFault::Other;
        }
        default:
            return EStateFault::Other;
    }
}

EStateFault FaultOf(const std::error_code& code) {
    const bool isFull = code == std::errc::no_space_on_device || code.value() == EDQUOT;
    return isFull ? EStateFault::Full : EStateFault::Other;
}

/// What is kept of secrets in one file.
constexpr std::size_t MostSecretBytes = 4UL * 1024 * 1024;

const char* WhatToDo(EStateFault fault) {
    switch (fault) {
        case EStateFault::Full:
            return "; make room on its file system";
        case EStateFault::Locked:
            return "; another process holds it";
        case EStateFault::Broken:
            return "; it is damaged: put a sound copy in its place, or move it away to begin anew";
        case EStateFault::Newer:
        case EStateFault::Other:
            break;
    }
    return "";
}

}  // namespace

CDatabase::CDatabase(std::string folder, const SStoreOptions& options)
    : m_folder(std::move(folder)), m_file(m_folder + "/" + CStore::FileName) {
    Open(options);
}

void CDatabase::Open(const SStoreOptions& options) {
    using apigen::common::CDescriptor;
    if (::mkdir(m_folder.c_str(), 0700) != 0 && errno != EEXIST) {
        const std::error_code code(errno, std::system_category());
        throw CStateError(FaultOf(code), "The folder " + Quoted(m_folder) +
                                             " can't be made: " + apigen::common::ErrorText(code.value()));
    }
    // The database makes its files as open to others as the first one is. One that is there is not opened here: closing
    // it would drop the locks that connections of this process hold, and others would take the log away from them.
    CDescriptor made(::open(m_file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    struct stat status {};
    if (!made && (errno != EEXIST || ::lstat(m_file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))) {
        const std::error_code code(errno, std::system_category());
        throw CStateError(FaultOf(code), "The state " + Quoted(m_file) +
                                             " can't be opened: " + apigen::common::ErrorText(code.value()));
    }
    made.Close();
    try {
        m_database.emplace(m_file, SQLite::OPEN_READWRITE, static_cast<int>(options.BusyLimit.count()));
        WriteAhead(options.BusyLimit);
        m_database->exec("PRAGMA synchronous=FULL");
        m_database->exec("PRAGMA cache_size=-1024");
        Migrate();
        if (options.IsReadOnly) m_database->exec("PRAGMA query_only=ON");
    } catch (const SQLite::Exception& error) {
        Fail(error, "opened");
    }
}

/// Where another process is at the same, this is refused at once: the limit that the database was given doesn't count.
void CDatabase::WriteAhead(std::chrono::milliseconds limit) {
    const auto deadline = apigen::common::DeadlineAfter(limit);
    for (;;) {
        const int outcome = m_database->tryExec("PRAGMA journal_mode=WAL");
        if (outcome == SQLITE_OK) return;
        if (outcome != SQLITE_BUSY || apigen::common::IsPast(deadline))
            throw SQLite::Exception(m_database->getHandle(), outcome);
        ::poll(nullptr, 0, 1);
    }
}

void CDatabase::Migrate() {
    const auto migrations = Migrations();
    const auto newest = static_cast<int>(migrations.size());
    const auto version = [&] { return m_database->execAndGet("PRAGMA user_version").getInt(); };
    if (version() == newest) return;
    m_database->exec("BEGIN IMMEDIATE");  // another process may be at the same
    try {
        const int found = version();
        if (found > newest || found < 0) {
            throw CStateError(EStateFault::Newer, "The state " + Quoted(m_file) + " has the form " +
                                                      std::to_string(found) +
                                                      " of a later version of the agent; this one knows " +
                                                      std::to_string(newest) + " at most");
        }
        if (found == 0) PutSecretsAside();
        for (int number = found; number < newest; ++number) {
            m_database->exec(migrations[static_cast<std::size_t>(number)]);
        }
        m_database->exec("PRAGMA user_version=" + std::to_string(newest));
        m_database->exec("COMMIT");
    } catch (...) {
        m_database->tryExec("ROLLBACK");
        throw;
    }
}

void CDatabase::Fail(const SQLite::Exception& error, std::string_view attempt) const {
    const EStateFault fault = FaultOf(error, m_database ? m_database->getHandle() : nullptr);
    throw CStateError(fault, "The state " + Quoted(m_file) + " can't be " + std::string(attempt) + ": " +
                                 apigen::common::Escaped(error.what()) + WhatToDo(fault));
}

void CDatabase::Execute(const std::string& sql) {
    try {
        m_database->exec(sql);
    } catch (const SQLite::Exception& error) {
        Fail(error, "written");
    }
}

// Transactions

void CDatabase::Begin() {
    if (m_depth == 0) {
        Execute("BEGIN IMMEDIATE");
        m_isDoomed = false;
    }
    ++m_depth;
}

void CDatabase::Commit() {
    if (m_depth > 1 || m_isDoomed) {
        if (m_isDoomed) throw CStateError(EStateFault::Other, "A part of the change has failed");
        --m_depth;
        return;
    }
    Execute("COMMIT");  // it may be tried again, or rolled back
    m_depth = 0;
    m_written.clear();
    for (const auto& name : std::exchange(m_dropped, {})) {
        try {
            RemoveFile(SecretsFolder() + "/" + name);
        } catch (
            const std::exception&) {  // NOLINT: nothing speaks of it any more; it goes with the next start
        }
    }
}

void CDatabase::RollBack() noexcept {
    if (--m_depth > 0) {
        m_isDoomed = true;
        return;
    }
    m_database->tryExec("ROLLBACK");
    m_dropped.clear();
    for (const auto& name : std::exchange(m_written, {})) {
        try {
            RemoveFile(SecretsFolder() + "/" + name);
        } catch (const std::exception&) {  // NOLINT: as above
        }
    }
}

// Secrets

std::string CDatabase::SecretsFolder() const {
    return m_folder + "/" + CStore::SecretsFolder;
}

/// Those of a state that is gone, whose passwords somebody may still need. Here they would be strays, and be removed.
void CDatabase::PutSecretsAside() const {
    namespace fs = std::filesystem;
    const fs::path folder = SecretsFolder();
    std::error_code error;
    if (fs::is_empty(folder, error) || error) return;
    int number = 1;
    const auto aside = [&] { return folder.native() + "." + std::to_string(number); };
    while (fs::exists(fs::symlink_status(aside(), error)))
        ++number;
    fs::rename(folder, aside(), error);
    if (error) {
        throw CStateError(FaultOf(error), "The secrets of an earlier state can't be put aside: " +
                                              Quoted(folder.native()) + ": " + error.message());
    }
}

std::string CDatabase::WriteSecrets(const Secrets& secrets) {
    if (secrets.empty()) return {};
    const auto data = apigen::CXmlData::CreateNew();
    for (const auto& [path, value] : secrets) {
        const auto child = data->CreateChild("secret");
        child->SetString("path", path);
        child->SetString("value", value);
    }
    const std::string text = apigen::CXmlData::Serialize(*data);
    if (text.size() > MostSecretBytes) {
        throw CStateError(EStateFault::Other, "A secret can't be kept: it is longer than " +
                                                  std::to_string(MostSecretBytes) + " bytes");
    }
    std::string name = PlainText(Guid::Random());
    const std::string folder = SecretsFolder();
    try {
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
            throw std::system_error(errno, std::system_category(), folder);
        }
        m_written.push_back(name);
        WriteSecretFile(folder + "/" + name, text);
    } catch (const std::system_error& error) {
        throw CStateError(FaultOf(error.code()),
                          std::string("A secret can't be kept: ") + apigen::common::Escaped(error.what()));
    }
    return name;
}

Secrets CDatabase::ReadSecrets(const std::string& name) const {
    Secrets secrets;
    if (name.empty()) return secrets;
    try {
        auto text = ReadSecretFile(SecretsFolder() + "/" + name, MostSecretBytes);
        if (!text) {
            throw CStateError(EStateFault::Broken,
                              "The file " + Quoted(SecretsFolder() + "/" + name) +
                                  " with a secret of the agent is missing; give the password again");
        }
        for (const auto& child : apigen::CXmlData::Unserialize(std::move(*text))->GetChildren("secret")) {
            secrets[child->GetString("path")] = child->GetString("value");
        }
    } catch (const CStateError&) {
        throw;
    } catch (const std::exception& error) {
        throw CStateError(EStateFault::Broken,
                          std::string("A secret can't be read: ") + apigen::common::Escaped(error.what()));
    }
    return secrets;
}

void CDatabase::DropSecrets(const std::string& name) {
    if (!name.empty()) m_dropped.push_back(name);
}

// Queries

CDatabase::CQuery::CQuery(CDatabase& database, const char* sql)
    : m_database(database), m_statement([&]() -> SQLite::Statement& {
          try {
              return database.m_statements.try_emplace(sql, *database.m_database, sql).first->second;
          } catch (const SQLite::Exception& error) {
              database.Fail(error, "read");
          }
      }()) {}

CDatabase::CQuery::~CQuery() {
    m_statement.tryReset();
    try {
        m_statement.clearBindings();      // a text may be a long one
    } catch (const SQLite::Exception&) {  // NOLINT: it is bound anew anyway
    }
}

CDatabase::CQuery& CDatabase::CQuery::operator<<(std::int64_t value) {
    try {
        m_statement.bind(++m_bound, value);
    } catch (const SQLite::Exception& error) {
        m_database.Fail(error, "asked");
    }
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator<<(const std::string& value) {
    try {
        m_statement.bind(++m_bound, value);
    } catch (const SQLite::Exception& error) {
        m_database.Fail(error, "asked");
    }
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator<<(const std::optional<Moment>& value) {
    if (value) return *this << *value;
    ++m_bound;  // unbound is NULL
    return *this;
}

bool CDatabase::CQuery::Next() {
    m_column = 0;
    try {
        return m_statement.executeStep();
    } catch (const SQLite::Exception& error) {
        m_database.Fail(error, "read");
    }
}

int CDatabase::CQuery::Run() {
    try {
        return m_statement.exec();
    } catch (const SQLite::Exception& error) {
        m_database.Fail(error, "written");
    }
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(std::int64_t& value) {
    value = m_statement.getColumn(m_column++).getInt64();
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(std::string& value) {
    value = m_statement.getColumn(m_column++).getString();
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(bool& value) {
    value = m_statement.getColumn(m_column++).getInt64() != 0;
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(int& value) {
    value = m_statement.getColumn(m_column++).getInt();
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(Guid& value) {
    value = Guid::Deserialize(m_statement.getColumn(m_column++).getString());
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(Moment& value) {
    value = Moment(std::chrono::milliseconds(m_statement.getColumn(m_column++).getInt64()));
    return *this;
}

CDatabase::CQuery& CDatabase::CQuery::operator>>(std::optional<Moment>& value) {
    const auto column = m_statement.getColumn(m_column++);
    value.reset();
    if (!column.isNull()) value = Moment(std::chrono::milliseconds(column.getInt64()));
    return *this;
}

}  // namespace tarvo
