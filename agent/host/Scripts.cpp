// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Scripts.h"

#include <apigen/ApiException.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "agent/host/RunChild.h"
#include "support/common/Text.h"

namespace tarvo {
namespace {

constexpr std::size_t MostLines = 200;
constexpr std::size_t LongestLine = 1000;
constexpr const char* HandedOn[]{"HOME", "LANG", "LOGNAME", "TMPDIR", "TZ", "USER"};

std::string FromEnvironment(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the agent changes the environment
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string LimitText(std::chrono::milliseconds limit) {
    const auto count = limit.count();
    return count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms";
}

}  // namespace

SScriptResult RunScript(const SScript& script, const std::stop_token& stop) {
    SScriptResult result;
    if (auto problem = ScriptProblem(script.Path); !problem.empty()) {
        result.Ending = "can't be started: " + problem;
        return result;
    }
    SChildTask task;
    task.Start.Program = script.Path;
    task.Start.Folder = "/";
    for (const char* name : HandedOn)
        if (const auto value = FromEnvironment(name); !value.empty())
            task.Start.Environment.push_back(std::string(name) + "=" + value);
    const auto path = FromEnvironment("PATH");
    task.Start.Environment.push_back(
        "PATH=" + (path.empty() ? "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin" : path));
    for (const auto& [name, value] : script.Environment)
        task.Start.Environment.push_back(name + "=" + value.substr(0, value.find('\0')));
    if (script.Limit > std::chrono::milliseconds::zero()) task.Limit = script.Limit;
    task.StopPatience = std::chrono::seconds(2);
    std::size_t lines = 0;
    task.OnOutput = [&](std::string_view line) {
        if (line.empty() || ++lines > MostLines + 1 || !script.OnLine) return;
        if (lines > MostLines) return script.OnLine("... (more output is not kept)");
        script.OnLine(apigen::common::Escaped(line.substr(0, LongestLine)) +
                      (line.size() > LongestLine ? "..." : ""));
    };
    SChildOutcome outcome;
    try {
        outcome = RunChild(task, stop);
    } catch (const apigen::ProcessLaunchError& error) {
        result.Ending = "can't be started: " + apigen::common::ErrorText(error.ErrorNumber());
        return result;
    }
    switch (outcome.End) {
        case EChildEnd::Stopped:
            result.Stopped = true;
            result.Ending = "was stopped";
            return result;
        case EChildEnd::TimedOut:
            result.TimedOut = true;
            result.Ending = "did not end within " + LimitText(script.Limit) + " and was ended";
            return result;
        default:
            break;
    }
    result.Succeeded = outcome.WaitStatus == 0;
    result.Ending = apigen::common::EndingText(outcome.WaitStatus);
    return result;
}

std::string ScriptProblem(const std::string& path) {
    if (!path.starts_with('/')) return "the path is not absolute";
    if (path.find('\0') != std::string::npos) return "the path holds a NUL character";
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return apigen::common::ErrorText(errno);
    if (!S_ISREG(status.st_mode)) return "it is no file";
    if (::access(path.c_str(), X_OK) != 0) return "it is not executable: " + apigen::common::ErrorText(errno);
    return {};
}

void LowerThisThread(int nice, bool idleDisk) {
    // Of a thread, whatever POSIX says; what it starts begins with the same.
    const auto self = static_cast<id_t>(::syscall(SYS_gettid));
    if (nice != 0) ::setpriority(PRIO_PROCESS, self, nice);
    if (!idleDisk) return;
    constexpr int WhoProcess = 1;
    constexpr int IdleClass = 3 << 13;
    ::syscall(SYS_ioprio_set, WhoProcess, 0, IdleClass);
}

}  // namespace tarvo
