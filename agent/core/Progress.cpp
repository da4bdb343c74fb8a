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

std::uint64_t ReadOf(std::uint64_t toRead, std::uint64_t done, std::uint64_t total) {
    if (total == 0) return 0;
    const double part = std::min(static_cast<double>(done) / static_cast<double>(total), 1.0);
    return std::min({static_cast<std::uint64_t>(static_cast<double>(toRead) * part), toRead, done});
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
    info.ReadSizeBytes = std::max(info.ReadSizeBytes, progress.BytesRead);
    info.ProcessingRateByteInSec = RateOf(progress.BytesDone, elapsed);
}

void TellLoads(zamclientlib::SBackupJobSessionInfo& info, const SBusyTimes& busy,
               std::chrono::milliseconds elapsed) {
    const auto load = [&](std::chrono::milliseconds time) {
        if (elapsed.count() <= 0) return 0;
        return static_cast<int>(
            std::clamp<std::chrono::milliseconds::rep>(time.count() * 100 / elapsed.count(), 0, 100));
    };
    info.SourceLoad = load(busy.Source);
    info.ProxyLoad = load(busy.Engine);
    info.TargetLoad = load(busy.Target);
}

}  // namespace tarvo
