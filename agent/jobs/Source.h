// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a job's source comes to on this host.
#pragma once

#include <zamclientlib/JobConfigurationRecords.h>

#include <string>
#include <utility>
#include <vector>

#include "agent/engine/IEngine.h"
#include "agent/host/Mounts.h"
#include "agent/host/Walk.h"

namespace tarvo {

struct SRoots {
    std::vector<std::string> Roots;
    std::vector<std::string> Missing;                             ///< of the folders that the source names
    std::vector<std::pair<std::string, std::string>> Unreadable;  ///< objects, and why
    std::vector<std::string> Notes;                               ///< what is good to know of them
    bool StaysOnFileSystems = false;
};

SRoots RootsOf(const zamclientlib::SBackupSourceInfo& source, const SHostPlaces& host = {});

/// What a walk has seen that won't come back as it was, for people.
std::vector<std::pair<zamclientlib::ELogDetailType, std::string>> SightingsOf(const SWalkResult& walk,
                                                                              const SEngineInfo& engine);

}  // namespace tarvo
