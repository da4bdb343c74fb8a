// SPDX-License-Identifier: Apache-2.0
/// \file
/// What tarvod.conf says.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "agent/jobs/CAgent.h"

namespace tarvo {

struct SLogSettings {
    std::uint64_t MaxBytes = 10UL * 1024 * 1024;  ///< a file that has grown to this is put aside
    unsigned OldFiles = 5;                        ///< that are kept

    friend bool operator==(const SLogSettings&, const SLogSettings&) = default;
};

struct SSettings {
    std::string Restic;  ///< path, or a name that is looked up in PATH
    SWorkSettings Work;
    SLogSettings Log;
};

/// A mistake, with its place.
class CSettingsError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// \param place stands for the file in messages
/// \throws CSettingsError also for what nobody knows: a misspelt name would pass silently otherwise
SSettings ParseSettings(const std::string& text, const std::string& place);

/// The defaults, where there is no such file.
/// \throws CSettingsError
SSettings ReadSettings(const std::string& path);

}  // namespace tarvo
