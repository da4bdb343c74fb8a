// SPDX-License-Identifier: Apache-2.0
// Goes on for long, and shows that memory and descriptors don't. docs/reliability.md has a turn of it.
#include <apigen/CApiClientInvoker.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CEventsStream.h>
#include <zamclientlib/InstallerProxies.h>
#include <zamservice/EventSource.h>

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/Sanitized.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Intervals = 10;
// What a process may grow by after its first tenth: an allocator's whims, no leak of a byte a round. A sanitizer
// keeps what is freed.
constexpr long AllowedGrowthKiB = tests::IsSanitized ? 1024L * 1024 : 512;

struct SOptions {
    unsigned long Calls = 1'000'000;
    unsigned long Events = 1'000'000;
    unsigned long Connections = 10'000;
};

long ResidentKiB(const std::string& process = "self") {
    std::ifstream file("/proc/" + process + "/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

long Descriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<long>(std::distance(begin(folder), end(folder)));
}

/// The processes that were started by this one and are still there.
std::vector<std::string> Children() {
    std::vector<std::string> all;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "children");
        for (std::string pid; file >> pid;)
            all.push_back(pid);
    }
    return all;
}

/// Does `round` so often and prints where things stand ten times; false when something has grown.
template <class Round>
bool Soak(const char* what, unsigned long count, Round&& round) {
    if (count == 0) return true;
    std::printf("\n%-12s %12s %14s %14s %12s\n", what, "seconds", "memory KiB", "tool's KiB", "descriptors");
    const auto start = Clock::now();
    long firstMemory = 0;
    long firstTool = 0;
    long firstDescriptors = 0;
    bool isConstant = true;
    for (unsigned long i = 1; i <= count; ++i) {
        round(i);
        if (i % std::max(count / Intervals, 1UL) != 0) continue;
        const auto children = Children();
        const long memory = ResidentKiB();
        const long tool = children.empty() ? 0 : ResidentKiB(children.front());
        const long descriptors = Descriptors();
        std::printf("%12lu %12.1f %14ld %14ld %12ld\n", i,
                    std::chrono::duration<double>(Clock::now() - start).count(), memory, tool, descriptors);
        std::fflush(stdout);
        if (firstMemory == 0) {
            firstMemory = memory;
            firstTool = tool;
            firstDescriptors = descriptors;
        }
        isConstant = isConstant && memory <= firstMemory + AllowedGrowthKiB &&
                     tool <= firstTool + AllowedGrowthKiB && descriptors == firstDescriptors;
    }
    if (!isConstant) std::printf("%s: GROWING\n", what);
    return isConstant;
}

std::shared_ptr<zamclientlib::ITarvoInstaller> Connect() {
    auto invoker = apigen::CApiClientInvoker::CreateByProcess(
        RELIABILITY_SERVICE, {}, std::make_shared<zamclientlib::CApiExceptionGenerator>(nullptr),
        std::chrono::seconds(60), nullptr);
    const auto root = invoker->GetRootHandle();
    return std::make_shared<zamclientlib::ITarvoInstaller_Proxy>(std::move(invoker), root);
}

void Require(bool isRight, const char* what) {
    if (isRight) return;
    std::printf("WRONG: %s\n", what);
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): the end
}

/// Values, records and objects with their releases, by turns; now and then a large one.
bool SoakCalls(unsigned long count) {
    const auto root = Connect();
    const auto packages = root->GetPackageManager();
    const std::string large(300'000, 'x');
    return Soak("calls", count, [&](unsigned long i) {
        switch (i % 4) {
            case 0:
                Require(root->IsSystemSupported(), "a boolean");
                break;
            case 1:
                Require(packages->FindInstalledPackage("zstd")->VersionRaw == "1.5-2", "a record");
                break;
            case 2:
                Require(root->FindService("name") != nullptr, "an object");
                break;
            default:
                Require(packages->GetPackageNameFromFile("x") == "x", "a text");
        }
        // Early, so that the first look already sees what the allocators keep after it.
        if (i % 10'000 == 50) Require(packages->GetPackageNameFromFile(large) == large, "a large text");
    });
}

bool SoakEvents(unsigned long count) {
    std::string folder = (std::filesystem::temp_directory_path() / "zam-soak-XXXXXX").string();
    Require(::mkdtemp(folder.data()) != nullptr, "a folder");
    bool isConstant = false;
    {
        zamservice::CEventSource source(folder);
        zamclientlib::CEventsStream stream(source.Config(), nullptr);
        while (source.SubscriberCount() == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        zamclientlib::SBaseEvent event;
        event.Type = zamclientlib::EEventType::BackupJobCreated;
        event.eventBackupJobCreated = zamclientlib::SEventBackupJobCreated{{}, "somebody"};
        unsigned long published = 0;
        isConstant = Soak("events", count, [&](unsigned long i) {
            while (published < std::min(i + 99, count)) {
                event.Id = ++published;
                source.Publish(event);
            }
            Require(stream.Read().Id == i, "an event");
        });
    }
    std::filesystem::remove_all(folder);
    return isConstant;
}

bool SoakConnections(unsigned long count) {
    return Soak("connections", count, [](unsigned long) {
        Require(Connect()->GetPackageManager()->GetPackageNameFromFile("x") == "x", "a connection");
    });
}

int Usage() {
    std::fprintf(stderr, "usage: zam_soak [--calls N] [--events N] [--connections N]   0 leaves one out\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    SOptions options;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if (i + 1 == argc) return Usage();
        const unsigned long number = std::strtoul(argv[i + 1], nullptr, 10);
        if (name == "--calls") {
            options.Calls = number;
        } else if (name == "--events") {
            options.Events = number;
        } else if (name == "--connections") {
            options.Connections = number;
        } else {
            return Usage();
        }
    }
    try {
        const bool calls = SoakCalls(options.Calls);
        const bool events = SoakEvents(options.Events);
        const bool connections = SoakConnections(options.Connections);
        Require(Children().empty(), "a child is left");
        return calls && events && connections ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
