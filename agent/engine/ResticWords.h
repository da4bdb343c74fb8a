// SPDX-License-Identifier: Apache-2.0
/// \file
/// What restic says, and what it means. No I/O.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/engine/IEngine.h"

namespace tarvo::restic {

/// What a failure is about.
enum class EFailure {
    None,
    WrongKey,
    NoStore,
    Locked,
    Damaged,
    NoSpace,
    NoSuchPoint,
    Other,
};

/// By the line in which restic said so; Other for most.
EFailure FailureIn(std::string_view line);

/// By an exit status and the strongest of what its lines said. An unknown status is Other; None only for 0.
EFailure FailureOf(int exitStatus, EFailure said);

/// Throws the error for a failure that is not None.
[[noreturn]] void Throw(EFailure failure, const std::string& message);

/// "restic 0.14.0 compiled with …"; empty when the line is no such.
std::optional<SEngineVersion> ParseVersion(std::string_view line);

/// Of the summary that ends a backup.
struct SSummary {
    std::string Snapshot;
    std::uint64_t FilesNew = 0;
    std::uint64_t FilesChanged = 0;
    std::uint64_t FilesTotal = 0;
    std::uint64_t BytesTotal = 0;
};

/// An entry that could not be read. `IsScan`: while counting only, which says nothing of the backup.
struct SReadError {
    std::string Item;
    std::string Reason;  ///< may be empty
    bool IsScan = false;
};

/// A line of JSON; nothing where it is something else or nonsense.
using Message = std::variant<std::monostate, SBackupProgress, SSummary, SReadError>;
Message ParseMessage(std::string_view line);

/// An entry of a listing; nothing for the line that leads it.
std::optional<SEntry> ParseEntry(std::string_view line);

/// Reads the list of snapshots, of any length, with little memory. False when it is nonsense.
bool ParseSnapshots(std::FILE* file, const std::function<void(SSnapshot)>& snapshot);

/// The line without the sequence that clears a terminal's; empty for one that only tells that it was asked to end.
std::string_view WithoutTerminalWords(std::string_view line);

/// True of a line that tells of another try after a failure.
bool IsRetry(std::string_view line);

/// The path with everything escaped that a pattern gives a meaning to.
std::string LiteralPattern(std::string_view path);

}  // namespace tarvo::restic
