// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Loads.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>

namespace tarvo {
namespace {

using std::chrono::milliseconds;

/// The number behind so many others.
std::optional<unsigned long long> NumberAt(std::istream& numbers, int before) {
    std::string other;
    for (; before > 0; --before)
        numbers >> other;
    unsigned long long number = 0;
    return numbers >> number ? std::optional(number) : std::nullopt;
}

std::optional<milliseconds> BusyTime(const std::string& stat) {
    constexpr int BusyField = 9;
    std::ifstream file(stat);
    const auto busy = NumberAt(file, BusyField);
    return busy ? std::optional(milliseconds(*busy)) : std::nullopt;
}

}  // namespace

milliseconds CpuTimeOf(pid_t process) {
    constexpr int BeforeTimes = 11;
    constexpr int Times = 4;  // of the process, of its children; each in programs and in the system
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    // The program's name, in brackets, may hold anything.
    const auto name = line.rfind(") ");
    if (name == std::string::npos) return {};
    std::istringstream fields(line.substr(name + 2));
    unsigned long long ticks = 0;
    for (int i = 0; i < Times; ++i)
        ticks += NumberAt(fields, i == 0 ? BeforeTimes : 0).value_or(0);
    static const auto second = static_cast<unsigned long long>(std::max(::sysconf(_SC_CLK_TCK), 1L));
    return milliseconds(ticks * 1000 / second);
}

CDiskWatch::CDiskWatch(const std::vector<std::string>& paths, const std::string& sys) {
    std::set<dev_t> devices;
    for (const auto& path : paths) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0) devices.insert(status.st_dev);
    }
    for (const auto device : devices) {
        std::string stat = sys + "/dev/block/" + std::to_string(::major(device)) + ":" +
                           std::to_string(::minor(device)) + "/stat";
        if (const auto before = BusyTime(stat)) m_disks.emplace_back(std::move(stat), *before);
    }
}

milliseconds CDiskWatch::Busy() const {
    milliseconds most{};
    for (const auto& [stat, before] : m_disks)
        most = std::max(most, BusyTime(stat).value_or(before) - before);
    return most;
}

}  // namespace tarvo
