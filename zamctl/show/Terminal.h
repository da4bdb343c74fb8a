// SPDX-License-Identifier: Apache-2.0
/// \file
/// What is at the other end of the standard streams, and how to ask it.
#pragma once

#include <string>

namespace zamctl {

[[nodiscard]] bool IsInputTerminal();
[[nodiscard]] bool IsOutputTerminal();
[[nodiscard]] bool IsErrorTerminal();

/// Columns of the terminal at standard output; those of $COLUMNS where it is none, else 80. 40 at least.
[[nodiscard]] unsigned TerminalWidth();

/// Columns of the terminal at standard error, 80 where it is none.
[[nodiscard]] unsigned ErrorWidth();

/// Lines of the terminal at standard output, 24 where it is none.
[[nodiscard]] unsigned TerminalHeight();

/// Whether colours may be used: on a terminal that is not "dumb", and not under NO_COLOR.
[[nodiscard]] bool HasColours();

/// Asks on the terminal (not on the standard streams, which may be redirected); only "y" and "yes" are one.
/// \throws CFailure (Usage) without a terminal; CFailure (Interrupted) on Ctrl-C
[[nodiscard]] bool Confirm(const std::string& question);

/// Asks without echo, twice when `isNew`. The terminal is as before afterwards, however this ends.
/// \throws CFailure (Usage) without a terminal, or when the two differ; CFailure (Interrupted) on Ctrl-C
[[nodiscard]] std::string AskPassword(const std::string& prompt, bool isNew);

/// The first line of a file (of 64 KiB at most), or of a descriptor when `path` is "fd:N".
/// \throws CFailure (Usage)
[[nodiscard]] std::string PasswordFrom(const std::string& path);

}  // namespace zamctl
