// SPDX-License-Identifier: Apache-2.0
#include "bench/Round.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <stdexcept>
#include <string>

namespace zambench {
namespace {

double MedianOf(const std::vector<SRound>& rounds, double SRound::*member) {
    std::vector<double> values;
    for (const auto& round : rounds)
        values.push_back(round.*member);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

void Require(bool isGood, const char* what) {
    if (!isGood) throw std::runtime_error(std::string("The benchmark failed: ") + what);
}

double Now(EClock clock) {
    timespec time{};
    ::clock_gettime(clock == EClock::Wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

SRound MeasurePair(bool isOursFirst, const Figure& ours, const Figure& floor) {
    SRound pair{};
    if (isOursFirst) pair.Ours = ours();
    pair.Floor = floor();
    if (!isOursFirst) pair.Ours = ours();
    pair.Ratio = pair.Ours / pair.Floor;
    return pair;
}

SRound Medians(const std::vector<SRound>& rounds) {
    return {MedianOf(rounds, &SRound::Ours), MedianOf(rounds, &SRound::Floor),
            MedianOf(rounds, &SRound::Ratio)};
}

}  // namespace zambench
