// SPDX-License-Identifier: Apache-2.0
/// \file
/// The engine: restic, as a supervised child.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "agent/engine/IEngine.h"

namespace tarvo {

struct SResticOptions {
    std::string Program;  ///< path of restic; empty: looked up in PATH
    std::string CacheFolder;
    std::chrono::milliseconds SilenceLimit = std::chrono::minutes(15);  ///< then it hangs
    std::chrono::milliseconds StopPatience = std::chrono::seconds(3);   ///< from SIGINT to SIGKILL

    /// How long a backup, and freeing space, wait for somebody else who works on the store: a restore or a verification.
    std::chrono::milliseconds LockPatience = std::chrono::minutes(15);
};

/// Threads may use it at the same time. The child runs as long as its thread: when the process dies, so does it.
std::shared_ptr<IEngine> MakeResticEngine(SResticOptions options);

}  // namespace tarvo
