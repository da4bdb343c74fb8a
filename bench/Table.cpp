// SPDX-License-Identifier: Apache-2.0
#include "bench/Table.h"

#include <algorithm>
#include <cstdio>

namespace zambench {

void PrintHeader() {
    std::printf("%-45s %13s %13s %7s %16s %6s\n", "", "ours", "floor", "ratio", "min -    max", "goal");
}

void PrintRow(const std::string& row, double goal, const std::vector<SRound>& rounds) {
    const SRound middle = Medians(rounds);
    const auto [min, max] =
        std::minmax_element(rounds.begin(), rounds.end(),
                            [](const SRound& one, const SRound& other) { return one.Ratio < other.Ratio; });
    std::printf("%-45s %13.0f %13.0f %7.2f %7.2f -%7.2f", row.c_str(), middle.Ours, middle.Floor,
                middle.Ratio, min->Ratio, max->Ratio);
    if (goal != 0) std::printf(" %6.2f %s", goal, middle.Ratio <= goal ? "met" : "MISSED");
    std::printf("\n");
    std::fflush(stdout);
}

void PrintNote(const std::string& row, const std::string& text) {
    std::printf("%-45s %s\n", row.c_str(), text.c_str());
    std::fflush(stdout);
}

}  // namespace zambench
