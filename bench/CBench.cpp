// SPDX-License-Identifier: Apache-2.0
#include "bench/CBench.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "bench/Table.h"

namespace zambench {
namespace {

/// Long enough for the clock not to show, short enough for neighbours to see the same machine.
constexpr double ShortestBurst = 0.4e6;
constexpr double RoundTime = 40e6;

/// Nanoseconds a piece.
double MeasureBurst(EClock clock, const SSide& side, std::size_t runs) {
    const double start = Now(clock);
    for (std::size_t i = 0; i < runs; ++i)
        side.Run();
    return (Now(clock) - start) / (static_cast<double>(runs) * side.Pieces);
}

/// How many runs take at least so long by the wall's clock.
std::size_t RunsThatTake(double time, const SSide& side) {
    for (std::size_t runs = 1;; runs *= 2) {
        const double start = Now(EClock::Wall);
        MeasureBurst(EClock::Wall, side, runs);
        if (Now(EClock::Wall) - start >= time) return runs;
    }
}

/// Where one run takes long, the other side's bursts do too: on a busy machine, only bursts of like lengths wait
/// for a processor alike.
double TimeOfABurst(const SSide& ours, const SSide& floor) {
    const double start = Now(EClock::Wall);
    ours.Run();
    const double middle = Now(EClock::Wall);
    floor.Run();
    return std::clamp(std::max(middle - start, Now(EClock::Wall) - middle), ShortestBurst, RoundTime);
}

}  // namespace

void CBench::Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const {
    PrintRounds(row, goal, Rounds, [&](bool isOursFirst) { return MeasurePair(isOursFirst, ours, floor); });
}

void CBench::CompareRuns(const std::string& row, double goal, EClock clock, const SSide& ours,
                         const SSide& floor, int rounds) const {
    const double burst = m_isOnce ? 0 : TimeOfABurst(ours, floor);
    const std::size_t ourRuns = RunsThatTake(burst, ours);
    const std::size_t floorRuns = RunsThatTake(burst, floor);
    PrintRounds(row, goal, rounds, [&](bool isOursFirst) {
        std::vector<SRound> pairs;
        const double start = Now(EClock::Wall);
        do {
            pairs.push_back(MeasurePair(
                isOursFirst, [&] { return MeasureBurst(clock, ours, ourRuns); },
                [&] { return MeasureBurst(clock, floor, floorRuns); }));
            isOursFirst = !isOursFirst;
        } while (!m_isOnce && Now(EClock::Wall) - start < RoundTime);
        return Medians(pairs);
    });
}

template <class Measure>
void CBench::PrintRounds(const std::string& row, double goal, int rounds, Measure&& measure) const {
    std::vector<SRound> measured;
    for (int round = 0; round < (m_isOnce ? 1 : rounds); ++round)
        measured.push_back(measure(round % 2 == 0));
    PrintRow(row, goal, measured);
}

}  // namespace zambench
