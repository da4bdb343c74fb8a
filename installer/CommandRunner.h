// SPDX-License-Identifier: Apache-2.0
// Runs the host's own tools (dpkg, apt-get, ...) and collects what they say.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace installer {

// How a command ended and what it said.
struct SCommandResult {
    int WaitStatus = -1;    // as waitpid reports it; -1, no success, when it could not be told
    std::string Output;     // of a change, like the other: the end of it, when it is long
    std::string ErrorText;  // the end of it, when it is long

    bool Succeeded() const noexcept { return WaitStatus == 0; }
    std::optional<int> ExitStatus() const noexcept;  // empty when it did not exit by itself

    // "exited with status 100: E: Unable to locate package x": how it ended and the last words of both outputs,
    // of which either may hold the reason. Fit to follow the program's name in a message, and one line.
    std::string Failure() const;
};

struct SCommand {
    std::string Program;  // looked up in PATH, and in the system's usual folders
    std::vector<std::string> Arguments;
    bool DropOutput = false;
    std::size_t MostOutput = 4UL * 1024 * 1024;  // of a query
};

// Runs a command that only looks. It is killed when it takes longer than `limit` or says more than it may. What it
// leaves running in the background is not waited for.
// Throws CGenericException when it can't be started or had to be killed.
SCommandResult RunQuery(const SCommand& command, std::chrono::milliseconds limit = std::chrono::minutes(1));

// Runs a command that changes the host, and waits for its end however long that takes. It has its own
// session and writes to files, not to pipes: it finishes its work also when this process is killed meanwhile.
// Throws CGenericException when it can't be started.
SCommandResult RunChange(const SCommand& command);

// What the commands get of our environment is what stands in a list: paths, proxies, who we are. Variables that
// change what a tool does (APT_CONFIG, DPKG_FORCE, TAR_OPTIONS, LD_PRELOAD, ...) stay behind.

// The path of a program as the functions above find it; empty when there is none.
std::string FindProgram(std::string_view name);

}  // namespace installer
