// SPDX-License-Identifier: Apache-2.0
/// \file
/// Drives what involves other processes. What happens inside this process alone is driven by InProcess.h.
#pragma once

#include <functional>
#include <string>

#include "bench/Round.h"

namespace zambench {

/// Something that can be repeated.
struct SSide {
    std::function<void()> Run;
    double Pieces = 1;  ///< how many pieces one run is made of
};

class CBench {
public:
    static constexpr int Rounds = 25;

    /// \param isOnce one short round of everything, to see that it works
    explicit CBench(bool isOnce) : m_isOnce(isOnce) {}

    bool IsOnce() const { return m_isOnce; }

    /// Prints a row whose rounds are one figure of each side.
    void Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const;

    /// Prints a row whose rounds are medians of many short bursts of runs, of each side by turns: it holds
    /// when the system changes its mind about where the processes run.
    void CompareRuns(const std::string& row, double goal, EClock clock, const SSide& ours, const SSide& floor,
                     int rounds = Rounds) const;

private:
    template <class Measure>
    void PrintRounds(const std::string& row, double goal, int rounds, Measure&& measure) const;

    bool m_isOnce;
};

}  // namespace zambench
