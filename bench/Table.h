// SPDX-License-Identifier: Apache-2.0
/// \file
/// The one table that everything is printed in.
#pragma once

#include <string>
#include <vector>

#include "bench/Round.h"

namespace zambench {

void PrintHeader();

/// Medians of the rounds, with the least and the greatest ratio.
/// \param goal 0 when there is none
void PrintRow(const std::string& row, double goal, const std::vector<SRound>& rounds);

/// Prints figures that have no floor.
void PrintNote(const std::string& row, const std::string& text);

}  // namespace zambench
