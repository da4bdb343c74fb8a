// SPDX-License-Identifier: Apache-2.0
// The table of restore points.
#include "agent/state/CDatabase.h"
#include "agent/state/CStore.h"

namespace tarvo {

namespace {

SPoint ReadPoint(CDatabase::CQuery& query) {
    SPoint point;
    int type = 0;
    std::int64_t source = 0;
    std::int64_t stored = 0;
    query >> point.Id >> point.Job >> point.Chain >> point.Session >> point.Created >> type >> source >>
        stored >> point.EngineId;
    point.Type = static_cast<zamclientlib::RestorePointType>(type);
    point.SourceBytes = static_cast<std::uint64_t>(source);
    point.StoredBytes = static_cast<std::uint64_t>(stored);
    return point;
}

}  // namespace

std::vector<SPoint> CStore::PointsOf(const Guid& job) const {
    std::vector<SPoint> points;
    auto query = m_database->Query(
        "SELECT id, job, chain, session, created, type, source_bytes, stored_bytes, "
        "engine_id FROM point WHERE job = ? ORDER BY number");
    query << job;
    while (query.Next()) {
        points.push_back(ReadPoint(query));
    }
    return points;
}

std::vector<SPoint> CStore::Points() const {
    std::vector<SPoint> points;
    for (auto query = m_database->Query("SELECT id, job, chain, session, created, type, source_bytes, "
                                        "stored_bytes, engine_id FROM point ORDER BY number");
         query.Next();) {
        points.push_back(ReadPoint(query));
    }
    return points;
}

std::optional<SPoint> CStore::FindPoint(const Guid& id) const {
    auto query = m_database->Query(
        "SELECT id, job, chain, session, created, type, source_bytes, stored_bytes, "
        "engine_id FROM point WHERE id = ?");
    query << id;
    if (!query.Next()) return {};
    return ReadPoint(query);
}

void CStore::AddPoint(const SPoint& point) {
    auto query = m_database->Query(
        "INSERT INTO point (id, job, chain, session, created, type, source_bytes, "
        "stored_bytes, engine_id) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    query << point.Id << point.Job << point.Chain << point.Session << point.Created
          << static_cast<int>(point.Type) << static_cast<std::int64_t>(point.SourceBytes)
          << static_cast<std::int64_t>(point.StoredBytes) << point.EngineId;
    query.Run();
}

void CStore::SavePoint(const SPoint& point) {
    auto query = m_database->Query(
        "UPDATE point SET type = ?, source_bytes = ?, stored_bytes = ?, engine_id = ? "
        "WHERE id = ?");
    query << static_cast<int>(point.Type) << static_cast<std::int64_t>(point.SourceBytes)
          << static_cast<std::int64_t>(point.StoredBytes) << point.EngineId << point.Id;
    query.Run();
}

void CStore::RemovePoint(const Guid& id) {
    auto query = m_database->Query("DELETE FROM point WHERE id = ?");
    (query << id).Run();
}

}  // namespace tarvo
