// SPDX-License-Identifier: Apache-2.0
// That costs grow no faster than what is asked for: nanoseconds a piece at several sizes.
#include <zamclientlib/Control.h>

#include <cstdio>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Codec.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

using zamclientlib::SBackupRepositoryInfo;

constexpr std::size_t Largest = 1'000'000;

/// \param measure nanoseconds of `size` pieces
void ShowGrowth(const CBench& bench, const std::string& row, auto&& measure) {
    std::string shown;
    for (const std::size_t size : std::initializer_list<std::size_t>{1, 100, 10'000, Largest}) {
        if (size == Largest && bench.IsOnce()) continue;
        std::vector<double> rounds;
        for (int round = 0; round < (bench.IsOnce() || size == Largest ? 1 : 5); ++round)
            rounds.push_back(measure(size) / static_cast<double>(size));
        std::nth_element(rounds.begin(), rounds.begin() + static_cast<std::ptrdiff_t>(rounds.size() / 2),
                         rounds.end());
        char text[64];
        std::snprintf(text, sizeof text, "%zu: %.0f   ", size, rounds[rounds.size() / 2]);
        shown += text;
    }
    bench.Note(row, shown);
}

/// Nodes made, written, read and found again through the container's interface.
double MeasureChildren(const CBench& bench, std::size_t size) {
    // The largest takes longer than the budget, and so runs once.
    return bench.PerRun(EClock::ThreadCpu, [&] {
        const auto data = apigen::CXmlData::CreateNew();
        for (std::size_t i = 0; i < size; ++i)
            data->CreateChild("child")->SetString("text", "value");
        const auto again = apigen::CXmlData::Unserialize(apigen::CXmlData::Serialize(*data));
        std::size_t found = 0;
        for (const auto& child : again->GetChildren("child"))
            found += child->GetString("text").size();
        Require(found == size * std::strlen("value"), "children of a container");
    });
}

}  // namespace

void MeasureGrowth(const CBench& bench) {
    ShowGrowth(bench, "records written and read, ns each", [&](std::size_t size) {
        const auto records = Samples<SBackupRepositoryInfo>(size);
        return bench.PerRun(EClock::ThreadCpu, [&] {
            Require(DecodeList<SBackupRepositoryInfo>(EncodeList(records)).size() == size, "a list");
        });
    });
    ShowGrowth(bench, "children of a container, ns each",
               [&](std::size_t size) { return MeasureChildren(bench, size); });
    ShowGrowth(bench, "objects taken and released, ns each", [&](std::size_t size) {
        const auto product = ProductOfSize(size);
        const auto job = product->FindBackupJob({});
        return bench.PerRun(EClock::Wall, [&] {
            Require(job->GetBackupJobSessions().size() == size, "a list of objects");
            product->GetSessionId();
        });
    });
}

}  // namespace zambench
