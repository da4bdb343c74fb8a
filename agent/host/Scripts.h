// SPDX-License-Identifier: Apache-2.0
/// \file
/// Scripts around a job.
#pragma once

#include <chrono>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvo {

struct SScript {
    std::string Path;                    ///< of an executable, absolute; no shell, no arguments
    std::chrono::milliseconds Limit{0};  ///< 0: none
    std::vector<std::pair<std::string, std::string>> Environment;  ///< beside PATH, HOME, TMPDIR, LANG
    std::function<void(const std::string& line)> OnLine;  ///< both outputs, escaped, of very many the first
};

struct SScriptResult {
    bool Succeeded = false;
    bool TimedOut = false;
    bool Stopped = false;
    std::string
        Ending;  ///< "exited with status 3", "did not end within 10 s and was killed", "can't be started: …"
};

/// Runs it in a group of its own, which is killed whole when it takes too long or is stopped, and when it has ended.
SScriptResult RunScript(const SScript& script, const std::stop_token& stop);

/// Why `path` can't be run as a script; empty when it can.
std::string ScriptProblem(const std::string& path);

/// Makes this thread, and what it starts from now on, give way to others. Never undone: for the thread of a session.
void LowerThisThread(int nice, bool idleDisk);

}  // namespace tarvo
