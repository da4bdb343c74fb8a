// SPDX-License-Identifier: Apache-2.0
// That costs grow no faster than what is asked for: a piece of few or of many, against a piece of a hundred.
#include "bench/Areas.h"
#include "bench/Codec.h"
#include "bench/InProcess.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

using zamclientlib::SBackupRepositoryInfo;

constexpr std::size_t Largest = 1'000'000;

/// Records that are written and read again, nanoseconds each.
double MeasureRecords(std::size_t size) {
    const auto records = Samples<SBackupRepositoryInfo>(size);
    return CpuOfAPiece(size, [&] {
        const auto again = DecodeAnswer<std::vector<SBackupRepositoryInfo>>(Encode(records));
        Require(again.size() == size, "a list");
        return again.size();
    });
}

/// Nodes that are made, written, read and found again through the container's interface, nanoseconds each.
double MeasureChildren(std::size_t size) {
    return CpuOfAPiece(size, [&] {
        const auto data = apigen::CXmlData::CreateNew();
        for (std::size_t i = 0; i < size; ++i)
            data->CreateChild("child")->SetString("text", "value");
        const auto again = Parse(apigen::CXmlData::Serialize(*data));
        std::size_t found = 0;
        for (const auto& child : again->GetChildren("child"))
            found += child->GetString("text").size();
        Require(found == size * std::strlen("value"), "children of a container");
        return found;
    });
}

void AddSizes(const CBench& bench, const std::string& name, double (*measure)(std::size_t)) {
    const auto add = [&](std::size_t size, int rounds) {
        const auto hundred = [=] {
            // Before, the allocator sorts what the larger one left behind.
            for (std::size_t sorted = 0; sorted <= size; sorted += Largest / 50)
                measure(100);
            return measure(100);
        };
        AddRow(
            bench, name + ' ' + std::to_string(size) + ", ns each; to 100", 0, [=] { return measure(size); },
            hundred, rounds);
    };
    add(1, CBench::Rounds);
    add(10'000, CBench::Rounds);
    if (bench.IsOnce()) return;
    add(100'000, 5);
    add(Largest, 3);
}

}  // namespace

void MeasureGrowth(const CBench& bench) {
    AddSizes(bench, "records written and read,", MeasureRecords);
    AddSizes(bench, "children of a container,", MeasureChildren);
    RunRows();
}

}  // namespace zambench
