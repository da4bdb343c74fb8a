// SPDX-License-Identifier: Apache-2.0
// What the library costs, as ratios to the least that the same work can cost on the same machine.
//
//   zam_bench [--once] [AREA...]
//
// docs/performance.md explains the rows. A goal that is missed is printed and is no failure: the machine may
// be busy. A wrong answer is one.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "bench/Areas.h"

namespace {

struct SArea {
    const char* Name;
    void (*Measure)(const zambench::CBench&);
};

// Memory goes first: what other areas leave in the heap would hide what it uses.
constexpr SArea Areas[] = {{"memory", zambench::MeasureMemory},   {"calls", zambench::MeasureCalls},
                           {"codec", zambench::MeasureCodec},     {"lists", zambench::MeasureReceivedLists},
                           {"proxies", zambench::MeasureProxies}, {"events", zambench::MeasureEvents},
                           {"connect", zambench::MeasureConnect}, {"growth", zambench::MeasureGrowth}};

bool IsWanted(const SArea& area, int argc, char** argv) {
    bool isAnyNamed = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--once") == 0) continue;
        if (std::strcmp(argv[i], area.Name) == 0) return true;
        isAnyNamed = true;
    }
    return !isAnyNamed;
}

bool IsKnown(const char* argument) {
    bool isKnown = std::strcmp(argument, "--once") == 0;
    for (const auto& area : Areas)
        isKnown = isKnown || std::strcmp(argument, area.Name) == 0;
    return isKnown;
}

}  // namespace

int main(int argc, char** argv) {
    bool isOnce = false;
    for (int i = 1; i < argc; ++i) {
        if (!IsKnown(argv[i])) {
            std::fprintf(stderr,
                         "zam_bench: unknown argument %s\nzam_bench [--once] [AREA...]; areas:", argv[i]);
            for (const auto& area : Areas)
                std::fprintf(stderr, " %s", area.Name);
            std::fprintf(stderr, "\n");
            return 2;
        }
        isOnce = isOnce || std::strcmp(argv[i], "--once") == 0;
    }
    try {
        // The client finds the agent's tool as every program does.
        const char* const path = std::getenv("PATH");
        ::setenv("PATH", (std::string(BENCH_TOOL_FOLDER ":") + (path != nullptr ? path : "")).c_str(), 1);
        std::printf("%-45s %13s %13s %7s %16s %6s\n", "", "ours", "floor", "ratio", "min -    max", "goal");
        const zambench::CBench bench(isOnce);
        for (const auto& area : Areas)
            if (IsWanted(area, argc, argv)) area.Measure(bench);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zam_bench: %s\n", error.what());
        return 1;
    }
}
