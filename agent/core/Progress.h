// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a run's progress is told.
#pragma once

#include <zamclientlib/JobRecords.h>

#include <chrono>
#include <cstdint>

namespace tarvo {

/// What the engine said last of how far it is. Its totals grow while it still looks at the source.
struct SEngineProgress {
    std::uint64_t BytesDone = 0;
    std::uint64_t BytesTotal = 0;  ///< 0 while it is unknown
    std::uint64_t BytesRead = 0;   ///< of `BytesDone`, those that were not as in the point before
};

/// How many of the bytes that have to be read were, when so much of everything is done. The engine doesn't tell: what
/// is to be read is taken to be spread evenly.
std::uint64_t ReadOf(std::uint64_t toRead, std::uint64_t done, std::uint64_t total);

/// The percentage: never less than before, and 99 at most as long as the point isn't kept.
unsigned short PercentOf(const SEngineProgress& progress, unsigned short before);

/// Bytes a second; 0 for a time too short to say.
long RateOf(std::uint64_t bytes, std::chrono::milliseconds elapsed);

/// Writes progress into what clients see.
void TellProgress(zamclientlib::SBackupJobSessionInfo& info, const SEngineProgress& progress,
                  std::chrono::milliseconds elapsed);

/// How long each part of the way was at work, of some time.
struct SBusyTimes {
    std::chrono::milliseconds Source{};
    std::chrono::milliseconds Engine{};
    std::chrono::milliseconds Target{};
};

/// Writes them into what clients see, as percentages of the time.
void TellLoads(zamclientlib::SBackupJobSessionInfo& info, const SBusyTimes& busy,
               std::chrono::milliseconds elapsed);

}  // namespace tarvo
