// SPDX-License-Identifier: Apache-2.0
// What the library costs, as ratios to the least that the same work can cost on the same machine.
//
//   zam_bench [--once] [AREA...]
//
// docs/performance.md explains the rows. A goal that is missed is printed and is no failure: the machine may
// be busy. A wrong answer is one.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "bench/Areas.h"
#include "bench/InProcess.h"
#include "bench/Table.h"

namespace {

constexpr auto Once = "--once";

struct SArea {
    const char* Name;
    void (*Measure)(const zambench::CBench&);
};

// Memory goes first: what other areas leave in the heap would hide what it uses.
constexpr SArea Areas[] = {{"memory", zambench::MeasureMemory},   {"calls", zambench::MeasureCalls},
                           {"codec", zambench::MeasureCodec},     {"lists", zambench::MeasureReceivedLists},
                           {"objects", zambench::MeasureObjects}, {"events", zambench::MeasureEvents},
                           {"connect", zambench::MeasureConnect}, {"growth", zambench::MeasureGrowth},
                           {"agent", zambench::MeasureAgent},     {"zamctl", zambench::MeasureZamctl}};

void PrintUsage() {
    std::fprintf(stderr, "zam_bench [%s] [AREA...] [--benchmark_...]; areas:", Once);
    for (const auto& area : Areas)
        std::fprintf(stderr, " %s", area.Name);
    std::fprintf(
        stderr,
        "\n--benchmark_filter, --benchmark_out and the other flags of Google Benchmark apply to codec "
        "and growth\n");
}

bool IsKnown(const std::string& argument) {
    return argument == Once || std::any_of(std::begin(Areas), std::end(Areas),
                                           [&](const SArea& area) { return argument == area.Name; });
}

void MeasureAreas(std::vector<std::string> names) {
    const zambench::CBench bench(std::erase(names, Once) != 0);
    // The client finds the agent's tool as every program does.
    const char* const path = std::getenv("PATH");
    ::setenv("PATH", (std::string(BENCH_TOOL_FOLDER ":") + (path != nullptr ? path : "")).c_str(), 1);
    zambench::PrintHeader();
    for (const auto& area : Areas)
        if (names.empty() || std::find(names.begin(), names.end(), area.Name) != names.end())
            area.Measure(bench);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const auto arguments = zambench::TakeFlags(argc, argv, PrintUsage);
        const auto unknown = std::find_if_not(arguments.begin(), arguments.end(), IsKnown);
        if (unknown != arguments.end()) {
            std::fprintf(stderr, "zam_bench: unknown argument %s\n", unknown->c_str());
            PrintUsage();
            return 2;
        }
        MeasureAreas(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zam_bench: %s\n", error.what());
        return 1;
    }
}
