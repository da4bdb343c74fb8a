// SPDX-License-Identifier: Apache-2.0
/// \file
/// What an administrator does with the points: look, restore, verify, remove. Beside a running daemon and beside none.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "agent/engine/IEngine.h"
#include "agent/host/Folders.h"

namespace tarvo::commands {

/// Exit statuses.
inline constexpr int Done = 0;
inline constexpr int Failed = 1;  ///< or damaged
inline constexpr int Usage = 2;
inline constexpr int NotFound = 3;

struct SPlace {
    SFolders Folders;
    std::function<std::shared_ptr<IEngine>()> MakeEngine;  ///< asked when a command needs it
    std::ostream& Out;
    std::ostream& Errors;
    std::stop_token Stop = {};  ///< somebody has lost his patience
};

/// Whether the word names a command.
bool IsCommand(std::string_view word);

/// \param arguments the command and what follows it
/// \return the exit status
int Run(const std::vector<std::string>& arguments, const SPlace& place);

}  // namespace tarvo::commands
