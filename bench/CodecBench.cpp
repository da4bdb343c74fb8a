// SPDX-License-Identifier: Apache-2.0
// What lists of records cost to write and to read, against a scan of the same text for '<'.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/InstallerRecords.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using apigen::CXmlData;
using zamclientlib::SEthInterfaceInfo;
using zamclientlib::SPackageInfo;
using zamclientlib::SVersion;

template <class Record>
Record Sample(int index);

template <>
SEthInterfaceInfo Sample<SEthInterfaceInfo>(int index) {
    const std::string number = std::to_string(index);
    return {"eth" + number,
            zamclientlib::EthInterfaceStatus::Up,
            "52:54:00:12:34:56",
            {"192.0.2." + number, "2001:db8::" + number}};
}

template <>
SPackageInfo Sample<SPackageInfo>(int index) {
    return {"package-" + std::to_string(index), "A program & its <configuration>, for every host there is",
            "1:2.3-4+deb12u1"};
}

template <>
SVersion Sample<SVersion>(int index) {
    return {2, 0, 17, static_cast<unsigned short>(index)};
}

template <class Record>
std::vector<Record> Samples(benchmark::State& state) {
    std::vector<Record> records;
    for (int i = 0; i < state.range(0); ++i)
        records.push_back(Sample<Record>(i));
    return records;
}

template <class Record>
std::string Encode(const std::vector<Record>& records) {
    const auto data = CXmlData::CreateNew();
    apigen::SerializeVector(*data, "__result", records);
    return CXmlData::Serialize(*data);
}

template <class Record>
std::vector<Record> Decode(const std::string& text) {
    std::vector<Record> records;
    apigen::DeserializeVector(*CXmlData::Unserialize(text), "__result", records);
    return records;
}

void CountBytes(benchmark::State& state, const std::string& text) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

template <class Record>
void EncodeList(benchmark::State& state) {
    const auto records = Samples<Record>(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(Encode(records));
    CountBytes(state, Encode(records));
}

template <class Record>
void DecodeList(benchmark::State& state) {
    const auto records = Samples<Record>(state);
    const std::string text = Encode(records);
    if (Decode<Record>(text) != records) throw std::logic_error("a list does not survive");
    for (auto _ : state)
        benchmark::DoNotOptimize(Decode<Record>(text));
    CountBytes(state, text);
}

template <class Record>
void ParseOnly(benchmark::State& state) {
    const std::string text = Encode(Samples<Record>(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(CXmlData::Unserialize(text));
    CountBytes(state, text);
}

template <class Record>
void ScanForTags(benchmark::State& state) {
    const std::string text = Encode(Samples<Record>(state));
    for (auto _ : state) {
        std::size_t count = 0;
        const char* const end = text.data() + text.size();
        for (const char* at = text.data();
             (at = static_cast<const char*>(std::memchr(at, '<', static_cast<std::size_t>(end - at)))); ++at)
            ++count;
        benchmark::DoNotOptimize(count);
    }
    CountBytes(state, text);
}

template <class Record>
void Register(const std::string& record) {
    for (const int size : {1, 100, 10'000}) {
        const std::string group = record + "_x" + std::to_string(size) + '/';
        benchmark::RegisterBenchmark((group + "encode").c_str(), EncodeList<Record>)->Arg(size);
        benchmark::RegisterBenchmark((group + "decode").c_str(), DecodeList<Record>)->Arg(size);
        benchmark::RegisterBenchmark((group + "parse_only").c_str(), ParseOnly<Record>)->Arg(size);
        benchmark::RegisterBenchmark((group + "scan").c_str(), ScanForTags<Record>)->Arg(size);
    }
}

const bool IsRegistered = [] {
    Register<SEthInterfaceInfo>("SEthInterfaceInfo");
    Register<SPackageInfo>("SPackageInfo");
    Register<SVersion>("SVersion");
    return true;
}();

}  // namespace
