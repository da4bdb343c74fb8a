// SPDX-License-Identifier: Apache-2.0
/// \file
/// A child that is watched from its start to its end: its output in lines, limits, a stop that reaches its whole group.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <string_view>

#include "support/common/CChildProcess.h"

namespace tarvo {

struct SChildTask {
    using LineHandler = std::function<void(std::string_view line)>;

    /// Its standard streams and its group are set here; descriptors from 3 on are the caller's.
    apigen::common::SChildStart Start;

    std::function<void(pid_t)> OnStart;  ///< with its number, which stays its own until `RunChild` returns
    LineHandler OnOutput;                ///< without the line's end; very long lines come cut
    LineHandler OnErrors;                ///< none: with the output
    int OutputFile = -1;                 ///< takes the output in the handler's place
    std::function<bool()> ShouldEnd;     ///< asked after lines have come: true ends the child as a stop does

    std::optional<std::chrono::milliseconds> Limit;         ///< from start to end
    std::optional<std::chrono::milliseconds> SilenceLimit;  ///< without a byte of output
    std::chrono::milliseconds StopPatience{3000};           ///< from the end signal to SIGKILL
};

enum class EChildEnd {
    ByItself,
    Stopped,  ///< by the token
    GivenUp,  ///< by `ShouldEnd`
    TimedOut,
    Silent,
};

struct SChildOutcome {
    int WaitStatus = -1;
    EChildEnd End = EChildEnd::ByItself;
};

/// Nothing of its group is left when this returns.
/// \throws apigen::ProcessLaunchError, and what the handlers throw
SChildOutcome RunChild(const SChildTask& task, const std::stop_token& stop);

}  // namespace tarvo
