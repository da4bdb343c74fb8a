// SPDX-License-Identifier: Apache-2.0
// What records cost to write and to read in this process, against a scan of the same text.
#include "bench/Areas.h"
#include "bench/Codec.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

constexpr double DecodeGoal = 3.5;
constexpr double EncodeGoal = 3;

/// \param batch runs between two looks at the clock, so that looking costs nothing
void CompareCodec(const CBench& bench, const std::string& row, std::size_t batch, bool hasGoal,
                  const std::string& text, auto&& encode, auto&& decode) {
    const auto scan = [&] {
        return bench.PerRun(EClock::ThreadCpu, [&] {
            for (std::size_t i = 0; i < batch; ++i)
                Keep(CountTags(text));
        }) / static_cast<double>(batch);
    };
    bench.Compare(
        row + ", decode, ns", hasGoal ? DecodeGoal : 0,
        [&] {
            return bench.PerRunWithInput(
                EClock::ThreadCpu, batch, [&] { return std::string(text); }, decode);
        },
        scan);
    bench.Compare(
        row + ", encode, ns", hasGoal ? EncodeGoal : 0,
        [&] {
            return bench.PerRunWithInput(
                EClock::ThreadCpu, batch, [] { return 0; }, encode);
        },
        scan);
}

template <class Record>
void CompareLists(const CBench& bench, const std::string& name) {
    for (const std::size_t size : {1, 100, 10'000}) {
        const auto records = Samples<Record>(size);
        const std::string text = EncodeList(records);
        Require(DecodeList<Record>(std::string(text)) == records, "a list does not survive");
        CompareCodec(
            bench, std::to_string(size) + ' ' + name, 1 + 1000 / size, size == 10'000, text,
            [&](int) { return EncodeList(records); },
            [](std::string&& received) { return DecodeList<Record>(std::move(received)); });
    }
}

using zamclientlib::SBackupJobConfigurationInfo;

SBackupJobConfigurationInfo DecodeConfiguration(std::string&& text) {
    SBackupJobConfigurationInfo config;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(std::move(text)), "__result", config);
    return config;
}

std::string EncodeConfiguration(const SBackupJobConfigurationInfo& config) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "__result", config);
    return apigen::CXmlData::Serialize(*data);
}

}  // namespace

void MeasureCodec(const CBench& bench) {
    CompareLists<zamclientlib::SBackupRepositoryInfo>(bench, "SBackupRepositoryInfo");
    CompareLists<zamclientlib::SBackupJobSessionInfo>(bench, "SBackupJobSessionInfo");

    const auto config = Sample<SBackupJobConfigurationInfo>(1);
    const std::string text = EncodeConfiguration(config);
    Require(DecodeConfiguration(std::string(text)) == config, "a job's configuration does not survive");
    CompareCodec(
        bench, "SBackupJobConfigurationInfo", 1000, false, text,
        [&](int) { return EncodeConfiguration(config); }, DecodeConfiguration);
}

}  // namespace zambench
