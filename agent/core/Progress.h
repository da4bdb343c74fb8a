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
};

/// The percentage: never less than before, and 99 at most as long as the point isn't kept.
unsigned short PercentOf(const SEngineProgress& progress, unsigned short before);

/// Bytes a second; 0 for a time too short to say.
long RateOf(std::uint64_t bytes, std::chrono::milliseconds elapsed);

/// Writes progress into what clients see.
void TellProgress(zamclientlib::SBackupJobSessionInfo& info, const SEngineProgress& progress,
                  std::chrono::milliseconds elapsed);

}  // namespace tarvo
