// SPDX-License-Identifier: Apache-2.0
/// \file
/// What happens inside this process alone, driven by Google Benchmark. A row is one benchmark. Each iteration
/// measures both sides, one behind the other; each repetition is a round; those of all rows are shuffled.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "bench/CBench.h"

namespace zambench {

/// Processor time of a run, in nanoseconds for each of the pieces that one run is made of. Inputs are made before,
/// results dropped after the clock. Small runs are taken together, so that looking at the clock costs nothing.
template <class Make, class Run>
double CpuOfAPiece(std::size_t pieces, Make&& make, Run&& run) {
    const std::size_t runs = 1 + 1000 / pieces;
    std::vector<decltype(make())> inputs;
    for (std::size_t i = 0; i < runs; ++i)
        inputs.push_back(make());
    std::vector<decltype(run(std::move(inputs[0])))> results;
    results.reserve(runs);
    const double start = Now(EClock::ThreadCpu);
    for (auto& input : inputs)
        results.push_back(run(std::move(input)));
    return (Now(EClock::ThreadCpu) - start) / static_cast<double>(runs * pieces);
}

/// The same for a run without input.
template <class Run>
double CpuOfAPiece(std::size_t pieces, Run&& run) {
    return CpuOfAPiece(
        pieces, [] { return 0; }, [&](int) { return run(); });
}

/// Hands the arguments that Google Benchmark knows to it and returns the others.
std::vector<std::string> TakeFlags(int argc, char** argv, void (*printHelp)());

/// Adds a row for the next `RunRows`. The figures are kept until then.
void AddRow(const CBench& bench, const std::string& row, double goal, const Figure& ours, const Figure& floor,
            int rounds = CBench::Rounds);

/// Runs the rows that were added, prints them in the order in which they were, and forgets them.
void RunRows();

}  // namespace zambench
