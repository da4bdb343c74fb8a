// SPDX-License-Identifier: Apache-2.0
/// \file
/// How busy parts of the host are, as the system counts it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace tarvo {

/// Of all processors together: what the process has used, with those of its children that it has collected. 0 when it
/// is gone.
std::chrono::milliseconds CpuTimeOf(pid_t process);

/// Watches the disks that some files lie on.
class CDiskWatch {
public:
    /// \param sys where the system describes devices; tests have a folder of their own
    explicit CDiskWatch(const std::vector<std::string>& paths, const std::string& sys = "/sys");

    /// How long the busiest of them has been at work since the watch began, whoever had it work. 0 where the system
    /// counts for none: files in memory, on other hosts, on file systems that span disks.
    std::chrono::milliseconds Busy() const;

private:
    std::vector<std::pair<std::string, std::chrono::milliseconds>>
        m_disks;  ///< where it is counted, and from what on
};

}  // namespace tarvo
