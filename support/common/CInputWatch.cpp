// SPDX-License-Identifier: Apache-2.0
#include "support/common/CInputWatch.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace apigen::common {

CInputWatch::CInputWatch(int input, std::initializer_list<int> others) noexcept
    : m_input(input),
      m_epoll(AwayFromStandardStreams(::epoll_create1(EPOLL_CLOEXEC))),
      m_timer(AwayFromStandardStreams(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))) {
    const auto add = [this](int descriptor) { return Add(descriptor); };
    if (!add(input) || !add(m_timer.Get()) || !std::all_of(others.begin(), others.end(), add)) Close();
}

bool CInputWatch::Add(int descriptor) noexcept {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    return ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

bool CInputWatch::AwaitOnlyInput(Clock::time_point deadline) {
    if (deadline < m_alarm) SetAlarm(deadline);
    std::array<epoll_event, 2> ready;
    const int count = ::epoll_wait(m_epoll.Get(), ready.data(), ready.size(), -1);
    if (count == 1 && ready[0].data.fd == m_input) return true;
    // The alarm may be that of an earlier wait, which had less time.
    for (int i = 0; i < count; ++i)
        if (ready[i].data.fd == m_timer.Get()) m_alarm = Clock::time_point::max();
    return false;
}

void CInputWatch::SetAlarm(Clock::time_point time) noexcept {
    using namespace std::chrono;
    static_assert(Clock::is_steady);
    const auto sinceStart = std::max<nanoseconds>(time.time_since_epoch(), 1ns);  // zero would be no alarm
    itimerspec setting{};
    setting.it_value.tv_sec = duration_cast<seconds>(sinceStart).count();
    setting.it_value.tv_nsec = (sinceStart % 1s).count();
    ::timerfd_settime(m_timer.Get(), TFD_TIMER_ABSTIME, &setting, nullptr);
    m_alarm = time;
}

void CInputWatch::Close() noexcept {
    m_epoll.Close();
    m_timer.Close();
}

}  // namespace apigen::common
