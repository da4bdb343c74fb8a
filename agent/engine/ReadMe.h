// SPDX-License-Identifier: Apache-2.0
/// \file
/// What stands beside the data for whoever has nothing but the data.
#pragma once

#include <string>

#include "agent/engine/IEngine.h"

namespace tarvo {

/// Writes, or adds the chain to, the README.txt in the folder above the store's.
/// \throws std::system_error
void WriteReadMe(const SPrepareRequest& request);

/// The job's name as that text shows it, escaped; empty where there is none, or the file is none of ours.
std::string JobNameInReadMe(const std::string& path);

}  // namespace tarvo
