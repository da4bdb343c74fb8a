// SPDX-License-Identifier: Apache-2.0
/// \file
/// Which restore points a job keeps, and why.
#pragma once

#include <zamclientlib/JobConfigurationRecords.h>

#include <string>
#include <vector>

#include "agent/core/Values.h"

namespace tarvo {

struct SRetentionChoice {
    SPoint Point;
    bool IsKept = true;
    std::string Reason;  ///< for people: "one of the newest 7", "older than 14 days"
};

/// The job's points, newest first, each with what becomes of it.
/// \param points oldest first, in the order of their making
///
/// The newest `RestorePointsCount` are kept, and so is what is younger than `RetainDays`; where neither is asked for,
/// everything. The newest stays whatever is asked for. Points of a chain that is damaged or lost don't count, and go
/// only when as many sound ones are newer: what can still be had of them is not given up for nothing.
std::vector<SRetentionChoice> ChooseKept(const zamclientlib::SBackupJobRetentionInfo& retention,
                                         std::vector<SPoint> points, const std::vector<SChain>& chains,
                                         Moment now);

}  // namespace tarvo
