// SPDX-License-Identifier: Apache-2.0
/// \file
/// How everything is measured: our side and its floor by turns, so that what disturbs one disturbs both.
#pragma once

#include <functional>
#include <vector>

namespace zambench {

/// Throws when a measurement went wrong.
void Require(bool isGood, const char* what);

enum class EClock {
    Wall,
    ThreadCpu,  ///< for what happens in this thread alone: other processes don't show in it
};

/// In nanoseconds.
double Now(EClock clock);

/// Measures something once: nanoseconds a piece, or bytes.
using Figure = std::function<double()>;

/// Two figures that were taken one behind the other, or medians of such.
struct SRound {
    double Ours;
    double Floor;
    double Ratio;
};

SRound MeasurePair(bool isOursFirst, const Figure& ours, const Figure& floor);

/// The median of each member: few disturbed rounds don't show in it.
SRound Medians(const std::vector<SRound>& rounds);

}  // namespace zambench
