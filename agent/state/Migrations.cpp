// SPDX-License-Identifier: Apache-2.0
#include "agent/state/Migrations.h"

namespace tarvo {

namespace {

// Moments are milliseconds since 1970 in UTC; ids are texts with braces; records are the kit's own text.
constexpr const char* Version1 = R"(
CREATE TABLE fact (
    name TEXT PRIMARY KEY,
    value TEXT NOT NULL
) WITHOUT ROWID;

CREATE TABLE job (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    config TEXT NOT NULL,
    secrets TEXT NOT NULL,          -- name of a file, empty for none
    is_enabled INTEGER NOT NULL,
    is_deleted INTEGER NOT NULL,
    last_backup INTEGER,
    promised_until INTEGER NOT NULL,
    next_run INTEGER,
    catch_up INTEGER,
    last_active_full INTEGER
);

CREATE TABLE session (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    job TEXT NOT NULL,
    usn INTEGER NOT NULL,
    is_finished INTEGER NOT NULL,   -- 0 as long as it works or awaits a retry
    info TEXT NOT NULL,             -- without its lines
    options TEXT NOT NULL,
    origin INTEGER NOT NULL,
    user_name TEXT NOT NULL,
    control_session TEXT NOT NULL,
    promise INTEGER,
    status INTEGER NOT NULL,
    retry_at INTEGER,
    chain INTEGER NOT NULL,
    is_interrupted INTEGER NOT NULL
);
CREATE INDEX session_of_job ON session (job, number);
CREATE INDEX session_by_usn ON session (job, usn);
CREATE INDEX session_unfinished ON session (number) WHERE is_finished = 0;

CREATE TABLE line (
    session TEXT NOT NULL,
    number INTEGER NOT NULL,
    type INTEGER NOT NULL,
    usn TEXT NOT NULL,
    message TEXT NOT NULL,
    PRIMARY KEY (session, number)
) WITHOUT ROWID;

CREATE TABLE chain (
    job TEXT NOT NULL,
    number INTEGER NOT NULL,
    repository TEXT NOT NULL,
    location TEXT NOT NULL,
    state INTEGER NOT NULL,
    has_password INTEGER NOT NULL,
    secrets TEXT NOT NULL,
    created INTEGER NOT NULL,
    damage TEXT NOT NULL,
    verified_part INTEGER NOT NULL,
    verified_parts INTEGER NOT NULL,
    verified_at INTEGER,
    PRIMARY KEY (job, number)
) WITHOUT ROWID;

CREATE TABLE point (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    job TEXT NOT NULL,
    chain INTEGER NOT NULL,
    session TEXT NOT NULL,
    created INTEGER NOT NULL,
    type INTEGER NOT NULL,
    source_bytes INTEGER NOT NULL,
    stored_bytes INTEGER NOT NULL,
    engine_id TEXT NOT NULL
);
CREATE INDEX point_of_job ON point (job, chain);

CREATE TABLE place (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    kind INTEGER NOT NULL,
    record TEXT NOT NULL,
    secrets TEXT NOT NULL
);
CREATE INDEX place_of_kind ON place (kind, number);
)";

constexpr const char* All[] = {Version1};

}  // namespace

std::span<const char* const> Migrations() {
    return All;
}

}  // namespace tarvo
