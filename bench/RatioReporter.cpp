// SPDX-License-Identifier: Apache-2.0
// Runs everything in turns, mixed at random, and prints medians as ratios to the floors of the same run.
//
//   zam_bench [--once] [options of Google Benchmark]
//
// A benchmark is called group/subject. Each group has one floor (below), measured in between.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::array<std::string_view, 3> Floors{"bare_sockets", "bare_spawn", "scan"};

struct SSubject {
    std::string Name;
    std::vector<double> Nanoseconds;  // one value a turn
    double Switches = -1;

    double Median() const { return Sorted()[Nanoseconds.size() / 2]; }
    double Min() const { return Sorted().front(); }
    double Max() const { return Sorted().back(); }
    bool IsFloor() const { return std::find(Floors.begin(), Floors.end(), Name) != Floors.end(); }

private:
    std::vector<double> Sorted() const {
        auto sorted = Nanoseconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }
};

class CRatioReporter final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override {
        PrintBasicContext(&GetErrorStream(), context);
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration) continue;
            m_hasFailed = m_hasFailed || run.error_occurred;
            const std::string& name = run.run_name.function_name;
            const std::size_t slash = name.find('/');
            SSubject& subject = Find(name.substr(0, slash), name.substr(slash + 1));
            subject.Nanoseconds.push_back(run.real_accumulated_time / static_cast<double>(run.iterations) *
                                          1e9);
            const auto switches = run.counters.find("switches");
            if (switches != run.counters.end()) subject.Switches = switches->second;
        }
    }

    void Finalize() override {
        std::printf("%-24s %-13s %12s %25s %9s %9s\n", "group", "subject", "median ns", "min - max ns",
                    "to floor", "switches");
        for (const auto& [group, subjects] : m_groups) {
            const auto floor = std::find_if(subjects.begin(), subjects.end(),
                                            [](const SSubject& subject) { return subject.IsFloor(); });
            for (const SSubject& subject : subjects) {
                std::printf("%-24s %-13s %12.0f %12.0f -%11.0f", group.c_str(), subject.Name.c_str(),
                            subject.Median(), subject.Min(), subject.Max());
                if (floor != subjects.end()) std::printf(" %9.2f", subject.Median() / floor->Median());
                if (subject.Switches >= 0) std::printf(" %9.2f", subject.Switches);
                std::printf("%s\n", subject.IsFloor() ? "  (floor)" : "");
            }
        }
    }

    bool HasFailed() const { return m_hasFailed || m_groups.empty(); }

private:
    SSubject& Find(const std::string& group, const std::string& name) {
        auto& subjects = m_groups[group];
        // By name, since the runs come in a random order.
        auto found = std::lower_bound(
            subjects.begin(), subjects.end(), name,
            [](const SSubject& subject, const std::string& wanted) { return subject.Name < wanted; });
        if (found == subjects.end() || found->Name != name) {
            found = subjects.insert(found, SSubject{name, {}, -1});
        }
        return *found;
    }

    std::map<std::string, std::vector<SSubject>> m_groups;
    bool m_hasFailed = false;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    const auto once = std::find_if(arguments.begin(), arguments.end(),
                                   [](const char* text) { return std::strcmp(text, "--once") == 0; });
    const bool isOnce = once != arguments.end();
    if (isOnce) arguments.erase(once);

    // Before the user's own options, which so win.
    std::vector<std::string> defaults{"--benchmark_enable_random_interleaving=true",
                                      isOnce ? "--benchmark_repetitions=1" : "--benchmark_repetitions=9",
                                      isOnce ? "--benchmark_min_time=0" : "--benchmark_min_time=0.1"};
    for (std::size_t i = 0; i < defaults.size(); ++i)
        arguments.insert(arguments.begin() + 1 + static_cast<std::ptrdiff_t>(i), defaults[i].data());

    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.HasFailed() ? 1 : 0;
}
