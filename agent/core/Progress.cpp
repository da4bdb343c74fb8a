// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Progress.h"

#include <algorithm>
#include <limits>

namespace tarvo {

unsigned short PercentOf(const SEngineProgress& progress, unsigned short before) {
    constexpr unsigned short Most = 99;
    if (progress.BytesTotal == 0) return std::min(before, Most);
    const double part = static_cast<double>(progress.BytesDone) / static_cast<double>(progress.BytesTotal);
    const auto percent = static_cast<unsigned short>(std::min(part, 1.0) * 100);
    return std::min(std::max(percent, before), Most);
}

long RateOf(std::uint64_t bytes, std::chrono::milliseconds elapsed) {
    if (elapsed.count() <= 0) return 0;
    const double rate = static_cast<double>(bytes) * 1000 / static_cast<double>(elapsed.count());
    constexpr auto Most = static_cast<double>(std::numeric_limits<long>::max()) / 2;
    return static_cast<long>(std::min(rate, Most));
}

void TellProgress(zamclientlib::SBackupJobSessionInfo& info, const SEngineProgress& progress,
                  std::chrono::milliseconds elapsed) {
    info.PercentCompleted = PercentOf(progress, info.PercentCompleted);
    info.BackedUpSizeBytes = std::max(info.BackedUpSizeBytes, static_cast<long>(progress.BytesDone));
    info.ProcessingRateByteInSec = RateOf(progress.BytesDone, elapsed);
}

}  // namespace tarvo
