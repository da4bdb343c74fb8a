// SPDX-License-Identifier: Apache-2.0
/// \file
/// The line that shows how far a session is.
#pragma once

#include <zamclientlib/JobRecords.h>

#include <chrono>
#include <string>
#include <string_view>

namespace zamctl {

/// One line, as wide as `width`: a bar, percent, sizes, rate and time left, as far as there is room and they are known:
/// "[#####     ]  42 %  1.2 GiB of 2.9 GiB  85 MiB/s  20 s left".
[[nodiscard]] std::string ProgressLine(const zamclientlib::SBackupJobSessionInfo& info, unsigned width,
                                       std::chrono::system_clock::time_point now);

/// Shows it on standard error: as a line that is drawn again and again on a terminal, not at all elsewhere. Lines of a
/// log go above it.
class CProgress {
public:
    CProgress(bool isShown, bool hasColours);
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;
    /// Takes the line away.
    ~CProgress();

    void Show(const zamclientlib::SBackupJobSessionInfo& info);
    /// A word in place of the line: "the agent is away; waiting for it".
    void ShowWord(std::string_view word);
    /// Takes the line away until the next `Show`, so that something else can be written.
    void Clear();

private:
    void Draw(std::string line);

    bool m_isShown;
    bool m_hasColours;
    bool m_isThere = false;
    std::string m_last;
};

}  // namespace zamctl
