// SPDX-License-Identifier: Apache-2.0
/// \file
/// The program that shows long output by screens.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace zamctl {

/// Writes everything. \throws COutputGone; CFailure (Refused)
void WriteAll(int descriptor, std::string_view text);

/// Feeds $ZAMCTL_PAGER, $PAGER or less. One that turns out not to start is done without: what it was given goes to
/// standard output.
class CPager {
public:
    CPager() = default;
    CPager(const CPager&) = delete;
    CPager& operator=(const CPager&) = delete;
    ~CPager();

    /// Whether it has been started; when not, there is none.
    [[nodiscard]] bool Start();

    /// \throws COutputGone when the user has left it
    void Write(std::string_view text);

    /// Waits until the user leaves it.
    void Close();

private:
    /// Whether the pager was none: the shell found no such command.
    bool Wait() noexcept;

    int m_pipe = -1;
    pid_t m_process = -1;
    bool m_isMissing = false;
    std::size_t m_capacity = 0;  ///< of the pipe: what is beyond has been read by somebody
    std::string m_copy;
};

}  // namespace zamctl
