// SPDX-License-Identifier: Apache-2.0
/// \file
/// What programs get from the commands, as a JSON Schema.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "show/Json.h"

namespace zamctl {

/// The schema (draft 2020-12) of what commands write: `$defs` has each record and each shape of one's own by its name,
/// and each command, "job-list", with what `--output json` gives. A shape that nothing explains allows everything.
/// \param commands names and shapes: "SBackupJobInfo", "[SBackupJobInfo]" for rows of it, "SBackupJobInfo?" where it
///        may be null, "SBackupJobInfo|DryRun" for either
[[nodiscard]] Json Schema(const std::vector<std::pair<std::string, std::string>>& commands);

}  // namespace zamctl
