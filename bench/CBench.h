// SPDX-License-Identifier: Apache-2.0
/// \file
/// Measures in rounds, our side and its floor by turns, and prints the medians as ratios.
#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zambench {

/// Throws when a measurement went wrong.
void Require(bool isGood, const char* what);

/// Makes the compiler believe that `value` is used.
template <class T>
void Keep(const T& value) {
    asm volatile("" : : "r"(&value) : "memory");
}

enum class EClock {
    Wall,
    ThreadCpu,  ///< for what happens in this thread alone: other processes don't show in it
};

/// In nanoseconds.
double Now(EClock clock);

class CBench {
public:
    /// One figure of one round: nanoseconds a piece, or bytes.
    using Figure = std::function<double()>;

    /// \param isOnce one short round of everything, to see that it works
    explicit CBench(bool isOnce) : m_isOnce(isOnce) {}

    bool IsOnce() const { return m_isOnce; }

    /// How long a figure is measured; a figure is made of one run at least.
    double Budget() const { return m_isOnce ? 0 : 20e6; }

    /// Prints one row. The ratio is taken in each round, since what disturbs a round disturbs both sides.
    /// \param goal 0 when there is none
    void Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const;

    /// Prints figures that have no floor.
    void Note(const std::string& row, const std::string& text) const;

    /// Nanoseconds of one `run`.
    template <class Run>
    double PerRun(EClock clock, Run&& run) const {
        for (std::size_t count = 1;; count *= 2) {
            const double start = Now(clock);
            for (std::size_t i = 0; i < count; ++i)
                run();
            const double passed = Now(clock) - start;
            if (passed >= Budget()) return passed / static_cast<double>(count);
        }
    }

    /// As above for a run that uses its input up. Inputs are made before, results dropped after the clock.
    /// \param batch runs between two looks at the clock
    template <class Make, class Run>
    double PerRunWithInput(EClock clock, std::size_t batch, Make&& make, Run&& run) const {
        double passed = 0;
        std::size_t count = 0;
        do {
            std::vector<decltype(make())> inputs;
            for (std::size_t i = 0; i < batch; ++i)
                inputs.push_back(make());
            std::vector<decltype(run(std::move(inputs[0])))> results;
            results.reserve(batch);
            const double start = Now(clock);
            for (auto& input : inputs)
                results.push_back(run(std::move(input)));
            passed += Now(clock) - start;
            count += batch;
        } while (passed < Budget());
        return passed / static_cast<double>(count);
    }

private:
    bool m_isOnce;
};

}  // namespace zambench
