// SPDX-License-Identifier: Apache-2.0
// The tables of sessions and of their logs' lines.
#include <limits>

#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

namespace {

using zamclientlib::SBackupJobSessionInfo;

std::string InfoText(const SSession& session) {
    SBackupJobSessionInfo info = session.Info;
    info.JobDetails.clear();
    return TextOf(info);
}

bool IsFinished(const SSession& session) {
    return session.HasEnded() && !session.AwaitsRetry();
}

SSession ReadSession(CDatabase::CQuery& query) {
    SSession session;
    std::string info;
    std::string options;
    int origin = 0;
    int status = 0;
    query >> info >> options >> origin >> session.Origin.UserName >> session.Origin.ControlSession >>
        session.Origin.Promise >> status >> session.RetryAt >> session.Chain >> session.IsInterrupted;
    session.Info = RecordOf<SBackupJobSessionInfo>(std::move(info));
    session.Options = RecordOf<zamclientlib::SJobStartOptions>(std::move(options));
    session.Origin.Kind = static_cast<SOrigin::EKind>(origin);
    session.Status = static_cast<zamclientlib::JobSessionTaskStatus>(status);
    return session;
}

std::vector<Guid> ReadIds(CDatabase::CQuery& query) {
    std::vector<Guid> ids;
    while (query.Next()) {
        query >> ids.emplace_back();
    }
    return ids;
}

}  // namespace

void CStore::AddSession(const SSession& session) {
    CTransaction transaction(*this);
    auto query = m_database->Query(
        "INSERT INTO session (id, job, usn, is_finished, info, options, origin, user_name, control_session, "
        "promise, status, retry_at, chain, is_interrupted) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
        "?)");
    query << session.Info.Uid << session.Info.JobUid << session.Info.Usn << IsFinished(session)
          << InfoText(session) << TextOf(session.Options) << static_cast<int>(session.Origin.Kind)
          << session.Origin.UserName << session.Origin.ControlSession << session.Origin.Promise
          << static_cast<int>(session.Status) << session.RetryAt << session.Chain << session.IsInterrupted;
    query.Run();
    AddLines(session.Info.Uid, session.Info.JobDetails);
    transaction.Commit();
}

void CStore::SaveSession(const SSession& session) {
    auto query = m_database->Query(
        "UPDATE session SET usn = ?, is_finished = ?, info = ?, status = ?, "
        "retry_at = ?, chain = ?, is_interrupted = ? WHERE id = ?");
    query << session.Info.Usn << IsFinished(session) << InfoText(session) << static_cast<int>(session.Status)
          << session.RetryAt << session.Chain << session.IsInterrupted << session.Info.Uid;
    query.Run();
}

void CStore::AddLines(const Guid& session, const std::vector<zamclientlib::SLogDetail>& lines) {
    if (lines.empty()) return;
    CTransaction transaction(*this);
    for (const auto& line : lines) {
        auto query = m_database->Query(
            "INSERT INTO line (session, number, type, usn, message) "
            "SELECT ?1, COALESCE(MAX(number), 0) + 1, ?2, ?3, ?4 FROM line WHERE session = ?1");
        (query << session << static_cast<int>(line.Type) << line.Usn << line.Message).Run();
    }
    transaction.Commit();
}

std::optional<SSession> CStore::FindSession(const Guid& id) const {
    auto query = m_database->Query(
        "SELECT info, options, origin, user_name, control_session, promise, status, "
        "retry_at, chain, is_interrupted FROM session WHERE id = ?");
    query << id;
    if (!query.Next()) return {};
    return ReadSession(query);
}

std::vector<zamclientlib::SLogDetail> CStore::LinesOf(const Guid& session) const {
    return LinesOf(session, std::numeric_limits<std::int64_t>::max());
}

std::vector<zamclientlib::SLogDetail> CStore::LinesOf(const Guid& session, std::size_t last) const {
    std::vector<zamclientlib::SLogDetail> lines;
    auto query = m_database->Query(
        "SELECT type, usn, message FROM line WHERE session = ?1 AND number > "
        "(SELECT COALESCE(MAX(number), 0) FROM line WHERE session = ?1) - ?2 ORDER BY number");
    query << session << static_cast<std::int64_t>(last);
    while (query.Next()) {
        int type = 0;
        auto& line = lines.emplace_back();
        query >> type >> line.Usn >> line.Message;
        line.Type = static_cast<zamclientlib::ELogDetailType>(type);
    }
    return lines;
}

std::vector<Guid> CStore::SessionsOf(const Guid& job) const {
    auto query = m_database->Query("SELECT id FROM session WHERE job = ? ORDER BY number");
    query << job;
    return ReadIds(query);
}

std::vector<Guid> CStore::SessionsSince(const Guid& job, long usn) const {
    auto query = m_database->Query("SELECT id FROM session WHERE job = ? AND usn > ? ORDER BY number");
    query << job << usn;
    return ReadIds(query);
}

std::optional<Guid> CStore::LastSessionOf(const Guid& job) const {
    auto query = m_database->Query("SELECT id FROM session WHERE job = ? ORDER BY number DESC LIMIT 1");
    query << job;
    const auto ids = ReadIds(query);
    return ids.empty() ? std::nullopt : std::optional(ids.front());
}

std::vector<SSession> CStore::UnfinishedSessions() const {
    std::vector<SSession> sessions;
    for (auto query =
             m_database->Query("SELECT info, options, origin, user_name, control_session, promise, status, "
                               "retry_at, chain, is_interrupted FROM session WHERE is_finished = 0 "
                               "ORDER BY number");
         query.Next();) {
        sessions.push_back(ReadSession(query));
    }
    return sessions;
}

void CStore::RemoveOldSessions(const Guid& job, unsigned kept) {
    CTransaction transaction(*this);
    auto query = m_database->Query(
        "SELECT id FROM session WHERE job = ? AND is_finished = 1 "
        "ORDER BY number DESC LIMIT -1 OFFSET ?");
    query << job << static_cast<std::int64_t>(kept);
    for (const auto& id : ReadIds(query)) {
        auto lines = m_database->Query("DELETE FROM line WHERE session = ?");
        (lines << id).Run();
        auto session = m_database->Query("DELETE FROM session WHERE id = ?");
        (session << id).Run();
    }
    transaction.Commit();
}

void CStore::RemoveSessionsOf(const Guid& job) {
    CTransaction transaction(*this);
    auto lines =
        m_database->Query("DELETE FROM line WHERE session IN (SELECT id FROM session WHERE job = ?)");
    (lines << job).Run();
    auto sessions = m_database->Query("DELETE FROM session WHERE job = ?");
    (sessions << job).Run();
    transaction.Commit();
}

}  // namespace tarvo
