// SPDX-License-Identifier: Apache-2.0
#include "bench/InProcess.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>

#include "bench/Table.h"

namespace zambench {
namespace {

constexpr double RoundSeconds = 0.04;

// By these names a benchmark hands its figures to the reporter.
constexpr auto Ours = "ours";
constexpr auto Floor = "floor";
constexpr auto Ratio = "ratio";
constexpr auto Goal = "goal";

/// Puts rounds into the table once all have come: shuffled rows end in any order.
class CTableReporter final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs)
            if (run.run_type == Run::RT_Iteration) Add(run);
    }

    void Finalize() override {
        for (const auto& [index, row] : m_rows)
            PrintRow(row.Name, row.Goal, row.Rounds);
    }

private:
    struct SRow {
        std::string Name;
        double Goal = 0;
        std::vector<SRound> Rounds;
    };

    void Add(const Run& run) {
        auto& row = m_rows[run.family_index];
        row.Name = run.run_name.function_name;
        row.Goal = run.counters.at(Goal);
        row.Rounds.push_back({run.counters.at(Ours), run.counters.at(Floor), run.counters.at(Ratio)});
    }

    std::map<std::int64_t, SRow> m_rows;  ///< in the order in which they were added
};

}  // namespace

std::vector<std::string> TakeFlags(int argc, char** argv, void (*printHelp)()) {
    std::string shuffle = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, shuffle.data());  // the user's own flags have the last word
    int count = argc + 1;
    benchmark::Initialize(&count, arguments.data(), printHelp);
    return {arguments.begin() + 1, arguments.begin() + count};
}

void AddRow(const CBench& bench, const std::string& row, double goal, const Figure& ours, const Figure& floor,
            int rounds) {
    const auto measure = [=](benchmark::State& state) {
        std::vector<SRound> pairs;
        for (auto _ : state)
            pairs.push_back(MeasurePair(pairs.size() % 2 == 0, ours, floor));
        const SRound round = Medians(pairs);
        state.counters[Ours] = round.Ours;
        state.counters[Floor] = round.Floor;
        state.counters[Ratio] = round.Ratio;
        state.counters[Goal] = goal;
    };
    auto* const added = benchmark::RegisterBenchmark(row.c_str(), measure)->UseRealTime();
    if (bench.IsOnce()) {
        added->Iterations(1);
    } else {
        added->MinTime(RoundSeconds)->Repetitions(rounds);
    }
}

void RunRows() {
    CTableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::ClearRegisteredBenchmarks();
}

}  // namespace zambench
