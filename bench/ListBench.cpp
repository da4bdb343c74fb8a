// SPDX-License-Identifier: Apache-2.0
// What a list of records costs a client that receives it from a real child: its own processor time, against
// receiving the same bytes and scanning them; and its memory, against the message and the records.
#include <zamclientlib/Control.h>

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Codec.h"
#include "bench/Samples.h"
#include "bench/Table.h"

namespace zambench {
namespace {

using zamclientlib::SBackupRepositoryInfo;

std::string EncodeRepositories(std::size_t size) {
    return Encode(Samples<SBackupRepositoryInfo>(size));
}

/// A line of /proc/self/status, in bytes.
double StatusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kibibytes = 0;
        if (word == name + ':' && status >> kibibytes) return kibibytes * 1024;
    }
    Require(false, "/proc/self/status");
    return 0;
}

std::size_t HeapBytes(const std::string& text) {
    return text.capacity() > std::string().capacity() ? text.capacity() + 1 : 0;
}

std::size_t Bytes(const SBackupRepositoryInfo& info) {
    std::size_t bytes = sizeof info + HeapBytes(info.Name) + HeapBytes(info.Location);
    if (info.OriginalName) bytes += HeapBytes(*info.OriginalName);
    if (info.SharedFolderInfo) {
        bytes += HeapBytes(info.SharedFolderInfo->Directory) + HeapBytes(info.SharedFolderInfo->Username) +
                 HeapBytes(info.SharedFolderInfo->Domain);
    }
    return bytes;
}

struct SMemory {
    double Growth;   ///< of the peak, over what there was before
    double Message;  ///< the size of the answer
    double Records;  ///< the size of the records, with all that they own
};

SMemory ReceiveAndCount(std::size_t size) {
    const auto repositories = ProductOfSize(size)->GetRepositoryManager();
    const double before = StatusBytes("VmRSS");
    std::ofstream("/proc/self/clear_refs") << "5";  // forgets the peak so far
    const auto records = repositories->GetRepositories();
    SMemory memory{StatusBytes("VmHWM") - before, 0, 0};
    for (const auto& record : records)
        memory.Records += static_cast<double>(Bytes(record));
    memory.Message = static_cast<double>(EncodeRepositories(size).size());
    return memory;
}

/// As above, in a process that does nothing else.
SMemory MemoryOfReceiving(std::size_t size) {
    std::array<int, 2> ends{};
    Require(::pipe(ends.data()) == 0, "pipe");
    const pid_t pid = ::fork();
    Require(pid >= 0, "fork");
    if (pid == 0) {
        bool isGood = false;
        try {
            const SMemory memory = ReceiveAndCount(size);
            isGood = ::write(ends[1], &memory, sizeof memory) == sizeof memory;
        } catch (const std::exception&) {
        }
        ::_exit(isGood ? 0 : 1);
    }
    ::close(ends[1]);
    SMemory memory{};
    const bool isGood = ::read(ends[0], &memory, sizeof memory) == sizeof memory;
    ::close(ends[0]);
    ::waitpid(pid, nullptr, 0);
    Require(isGood, "the process whose memory is counted");
    return memory;
}

}  // namespace

void MeasureMemory(const CBench& bench) {
    constexpr std::size_t Size = 10'000;
    SMemory memory = MemoryOfReceiving(Size);
    const double least = memory.Message + memory.Records;
    bench.Compare(
        "peak memory of 10,000 received records, bytes", (3 * memory.Message + memory.Records) / least,
        [&] {
            memory = MemoryOfReceiving(Size);
            return memory.Growth;
        },
        [&] { return least; });
    PrintNote("  of the floor", "message " + std::to_string(static_cast<long>(memory.Message)) +
                                    ", records " + std::to_string(static_cast<long>(memory.Records)));
}

void MeasureReceivedLists(const CBench& bench) {
    // What waking another processor costs would show in this one's time, now and then.
    const CPinned pinned(EPlace::OneCpu);
    for (const std::size_t size : {1, 100, 10'000}) {
        const auto repositories = ProductOfSize(size)->GetRepositoryManager();
        const std::string text = EncodeRepositories(size);
        CBareChild bare(100, text.size() + 4);
        const auto receive = [&] {
            Require(repositories->GetRepositories().size() == size, "a received list");
        };
        const auto receiveAndScan = [&] {
            bare.Exchange();
            benchmark::DoNotOptimize(CountTags(text));
        };
        const auto pieces = static_cast<double>(size);
        bench.CompareRuns("client's CPU, " + std::to_string(size) + " received, ns each", 0,
                          EClock::ThreadCpu, {receive, pieces}, {receiveAndScan, pieces});
    }
}

}  // namespace zambench
