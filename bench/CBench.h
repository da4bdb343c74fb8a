// SPDX-License-Identifier: Apache-2.0
/// \file
/// Drives what involves other processes. What happens inside this process alone is driven by InProcess.h.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "bench/Round.h"

namespace zambench {

/// Something that can be repeated.
struct SSide {
    std::function<void()> Run;
    double Pieces = 1;  ///< how many pieces one run is made of
};

/// Two sides that run by turns, in bursts that are short enough for neighbours to see the same machine.
class CBursts {
public:
    /// Finds out how many runs make a burst.
    CBursts(bool isOnce, EClock clock, SSide ours, SSide floor);

    /// Medians of many pairs of bursts.
    SRound MeasureRound(bool isOursFirst) const;

private:
    bool m_isOnce;
    EClock m_clock;
    SSide m_ours;
    SSide m_floor;
    std::size_t m_ourRuns;
    std::size_t m_floorRuns;
};

class CBench {
public:
    static constexpr int Rounds = 25;

    /// \param isOnce one short round of everything, to see that it works
    explicit CBench(bool isOnce) : m_isOnce(isOnce) {}

    bool IsOnce() const { return m_isOnce; }

    /// Prints a row.
    void CompareRounds(const std::string& row, double goal, int rounds,
                       const std::function<SRound(bool isOursFirst)>& measure) const;

    /// Prints a row whose rounds are one figure of each side.
    void Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const;

    /// Prints a row whose rounds are made of bursts.
    void CompareRuns(const std::string& row, double goal, EClock clock, const SSide& ours, const SSide& floor,
                     int rounds = Rounds) const;

private:
    bool m_isOnce;
};

}  // namespace zambench
