// SPDX-License-Identifier: Apache-2.0
// What records cost to write and to read in this process, against a scan of the same text.
#include <memory>

#include "bench/Areas.h"
#include "bench/Codec.h"
#include "bench/InProcess.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

using zamclientlib::SBackupJobConfigurationInfo;

constexpr double DecodeGoal = 3.5;
constexpr double EncodeGoal = 3;

/// \param size how many records the value is made of
template <class Value>
void AddRows(const CBench& bench, const std::string& name, std::size_t size, Value value,
             std::string (*encode)(const Value&), Value (*decode)(const std::string&)) {
    const auto text = std::make_shared<const std::string>(encode(value));
    Require(decode(*text) == value, "what was written is read again");
    const auto copy = [=] { return *text; };
    const auto scan = [=] { return CpuOfAPiece(size, [&] { return CountTags(*text); }); };
    const bool hasGoals = size == 10'000;

    AddRow(
        bench, name + ", parse, ns each", 0, [=] { return CpuOfAPiece(size, copy, Parse); }, scan);
    AddRow(
        bench, name + ", decode, ns each", hasGoals ? DecodeGoal : 0,
        [=] { return CpuOfAPiece(size, copy, DecodeAnswer<Value>); }, scan);
    AddRow(
        bench, name + ", decode by a container, ns each", hasGoals ? DecodeGoal : 0,
        [=] { return CpuOfAPiece(size, [&] { return decode(*text); }); }, scan);
    AddRow(
        bench, name + ", encode, ns each", hasGoals ? EncodeGoal : 0,
        [=, written = std::make_shared<const Value>(std::move(value))] {
            return CpuOfAPiece(size, [&] { return encode(*written); });
        },
        scan);
}

template <class Record>
void AddLists(const CBench& bench, const std::string& name) {
    for (const std::size_t size : {1, 100, 10'000}) {
        AddRows<std::vector<Record>>(bench, std::to_string(size) + ' ' + name, size, Samples<Record>(size),
                                     Encode, DecodeList<Record>);
    }
}

}  // namespace

void MeasureCodec(const CBench& bench) {
    AddLists<zamclientlib::SBackupRepositoryInfo>(bench, "SBackupRepositoryInfo");
    AddLists<zamclientlib::SBackupJobSessionInfo>(bench, "SBackupJobSessionInfo");
    AddRows<SBackupJobConfigurationInfo>(bench, "SBackupJobConfigurationInfo", 1,
                                         Sample<SBackupJobConfigurationInfo>(1), Encode, Decode);
    RunRows();
}

}  // namespace zambench
