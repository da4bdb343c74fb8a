// SPDX-License-Identifier: Apache-2.0
/// \file
/// Foreign bytes and system errors as parts of a message.
#pragma once

#include <apigen/Export.h>

#include <string>
#include <string_view>

namespace apigen::common {

/// The text with everything that could garble a terminal or a log line (control characters, bytes that are
/// no valid UTF-8) shown as an escape.
APIGEN_API std::string Escaped(std::string_view text);

/// `Escaped` in double quotes.
APIGEN_API std::string Quoted(std::string_view text);

/// True when every byte could stand in a plain ASCII text.
APIGEN_API bool LooksLikeText(std::string_view bytes) noexcept;

/// What an errno value means, in English whatever the caller's locale.
APIGEN_API std::string ErrorText(int errorNumber);

/// "exited with status 3", "was ended by signal 9 (Killed)"; of a status that `waitpid` does not report,
/// that the ending is unknown.
APIGEN_API std::string EndingText(int waitStatus);

}  // namespace apigen::common
