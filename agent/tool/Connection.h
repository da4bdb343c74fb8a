// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/host/Folders.h"
#include "support/common/CDescriptor.h"

namespace tarvo::tool {

/// A connection to the daemon's control socket. Starts a daemon where none runs and waits until it is
/// ready; several tools at once start one.
/// \throws std::exception with a text for the client
apigen::common::CDescriptor ConnectToDaemon(const SFolders& folders);

/// Hands our standard input and output over to the daemon.
/// \throws std::exception
void HandOver(const apigen::common::CDescriptor& control);

}  // namespace tarvo::tool
