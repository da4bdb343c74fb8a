// SPDX-License-Identifier: Apache-2.0
/// \file
/// What each command does, with its options read. Each returns the exit status.
#pragma once

#include <string>
#include <vector>

#include "agent/commands/Commands.h"

namespace tarvo::commands {

struct SOptions {
    std::string Job;
    std::string Point;
    std::string To;
    std::string Location;
    std::vector<std::string> Paths;
    std::string PasswordFile;
    int Chain = 0;       ///< 0: all
    unsigned Parts = 0;  ///< 0: whole
    bool IsJson = false;
    bool IsDryRun = false;
    bool IsPreview = false;
    bool Orphans = false;
};

int ShowPoints(const SPlace& place, const SOptions& options);
int ShowChains(const SPlace& place, const SOptions& options);
int ShowFiles(const SPlace& place, const SOptions& options);
int Restore(const SPlace& place, const SOptions& options);
int Verify(const SPlace& place, const SOptions& options);
int ForgetOrphans(const SPlace& place, const SOptions& options);
int Adopt(const SPlace& place, const SOptions& options);

}  // namespace tarvo::commands
