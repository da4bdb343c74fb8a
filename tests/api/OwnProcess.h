// SPDX-License-Identifier: Apache-2.0
/// \file
/// Runs a check where it may change what belongs to the whole process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace zamtest {

/// How `check` ended in a forked copy of this process: its result, or -1 when it threw or died.
inline int ResultInAProcessOfItsOwn(const std::function<int()>& check) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(60);
        int result = 255;
        try {
            result = check();
        } catch (...) {
        }
        ::_exit(result);
    }
    int status = -1;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) == 255)
        return -1;
    return WEXITSTATUS(status);
}

}  // namespace zamtest
