// SPDX-License-Identifier: Apache-2.0
/// \file
/// The shortest wait for one descriptor, while others are kept an eye on.
#pragma once

#include <apigen/Export.h>

#include <initializer_list>

#include "support/common/CDescriptor.h"
#include "support/common/Waiting.h"

namespace apigen::common {

/// Waits for input that nearly always comes first and in time. The kernel is told once what to look at, where `poll` is
/// told each time, and until when only if that is sooner than what it was told before: a third of the waiting is saved.
/// Whatever else happens is for `poll` to look into.
///
/// The descriptors stay their owners', and open as long as the watch is.
class APIGEN_API CInputWatch {
public:
    /// Without a descriptor left for it, or where one to watch is missing, there is no watch.
    CInputWatch(int input, std::initializer_list<int> others) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_epoll); }

    /// False as soon as there is anything else to see to, or to look into: the deadline, a signal.
    bool AwaitOnlyInput(Clock::time_point deadline);

    void Close() noexcept;

private:
    bool Add(int descriptor) noexcept;
    void SetAlarm(Clock::time_point time) noexcept;

    int m_input;
    CDescriptor m_epoll;
    CDescriptor m_timer;
    Clock::time_point m_alarm =
        Clock::time_point::max();  // what the timer is set to; no time when it has gone off
};

}  // namespace apigen::common
