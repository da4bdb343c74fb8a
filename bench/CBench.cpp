// SPDX-License-Identifier: Apache-2.0
#include "bench/CBench.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "bench/Table.h"

namespace zambench {
namespace {

/// Long enough for the clock not to show.
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

CBursts::CBursts(bool isOnce, EClock clock, SSide ours, SSide floor)
    : m_isOnce(isOnce), m_clock(clock), m_ours(std::move(ours)), m_floor(std::move(floor)) {
    const double burst = m_isOnce ? 0 : TimeOfABurst(m_ours, m_floor);
    m_ourRuns = RunsThatTake(burst, m_ours);
    m_floorRuns = RunsThatTake(burst, m_floor);
}

SRound CBursts::MeasureRound(bool isOursFirst) const {
    std::vector<SRound> pairs;
    const double start = Now(EClock::Wall);
    do {
        pairs.push_back(MeasurePair(
            isOursFirst, [&] { return MeasureBurst(m_clock, m_ours, m_ourRuns); },
            [&] { return MeasureBurst(m_clock, m_floor, m_floorRuns); }));
        isOursFirst = !isOursFirst;
    } while (!m_isOnce && Now(EClock::Wall) - start < RoundTime);
    return Medians(pairs);
}

void CBench::CompareRounds(const std::string& row, double goal, int rounds,
                           const std::function<SRound(bool isOursFirst)>& measure) const {
    std::vector<SRound> measured;
    for (int round = 0; round < (m_isOnce ? 1 : rounds); ++round)
        measured.push_back(measure(round % 2 == 0));
    PrintRow(row, goal, measured);
}

void CBench::Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const {
    CompareRounds(row, goal, Rounds, [&](bool isOursFirst) { return MeasurePair(isOursFirst, ours, floor); });
}

void CBench::CompareRuns(const std::string& row, double goal, EClock clock, const SSide& ours,
                         const SSide& floor, int rounds) const {
    const CBursts bursts(m_isOnce, clock, ours, floor);
    CompareRounds(row, goal, rounds, [&](bool isOursFirst) { return bursts.MeasureRound(isOursFirst); });
}

}  // namespace zambench
