// SPDX-License-Identifier: Apache-2.0
#include "bench/CBench.h"

#include <cstdio>
#include <stdexcept>

namespace zambench {
namespace {

constexpr int Rounds = 25;

double Median(std::vector<double> values) {
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

void CBench::Compare(const std::string& row, double goal, const Figure& ours, const Figure& floor) const {
    std::vector<double> mine;
    std::vector<double> least;
    std::vector<double> ratios;
    for (int round = 0; round < (m_isOnce ? 1 : Rounds); ++round) {
        const bool isOursFirst = round % 2 == 0;
        if (isOursFirst) mine.push_back(ours());
        least.push_back(floor());
        if (!isOursFirst) mine.push_back(ours());
        ratios.push_back(mine.back() / least.back());
    }
    const auto [min, max] = std::minmax_element(ratios.begin(), ratios.end());
    const double ratio = Median(ratios);
    std::printf("%-45s %13.0f %13.0f %7.2f %7.2f -%7.2f", row.c_str(), Median(mine), Median(least), ratio,
                *min, *max);
    if (goal != 0) std::printf(" %6.2f %s", goal, ratio <= goal ? "met" : "MISSED");
    std::printf("\n");
    std::fflush(stdout);
}

void CBench::Note(const std::string& row, const std::string& text) const {
    std::printf("%-45s %s\n", row.c_str(), text.c_str());
    std::fflush(stdout);
}

}  // namespace zambench
