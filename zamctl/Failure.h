// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a command ends, and what it says when it can't go on.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace zamctl {

/// Exit statuses. They are documented, and scripts rely on them.
enum class EExit : int {
    Done = 0,
    Refused = 1,        ///< the agent, or the host, refused
    Usage = 2,          ///< the command line can't be understood
    NotFound = 3,       ///< no such job, session, point, place...
    NoAgent = 4,        ///< the agent can't be reached, or went away
    Warnings = 5,       ///< the session ended with warnings
    SessionFailed = 6,  ///< the session failed
    Interrupted = 130,  ///< Ctrl-C
};

/// A command can't go on: the exit status, why, and what to do about it. Shown as "zamctl: WHY", the hint on a line of
/// its own.
class CFailure : public std::runtime_error {
public:
    CFailure(EExit exit, const std::string& why, std::string hint = {})
        : std::runtime_error(why), m_exit(exit), m_hint(std::move(hint)) {}

    [[nodiscard]] EExit Exit() const noexcept { return m_exit; }
    /// What the user can do; may be empty.
    [[nodiscard]] const std::string& Hint() const noexcept { return m_hint; }

private:
    EExit m_exit;
    std::string m_hint;
};

/// Nobody reads the output any more: the command ends without a word.
class COutputGone : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "nobody reads the output"; }
};

}  // namespace zamctl
