// SPDX-License-Identifier: Apache-2.0
#include "agent/core/IClock.h"

#include <time.h>

namespace tarvo {

using namespace std::chrono;

zamclientlib::SDateTime ToRecord(Moment moment) {
    const auto second = floor<seconds>(moment);
    return {second.time_since_epoch().count(), static_cast<unsigned short>((moment - second).count())};
}

Moment FromRecord(const zamclientlib::SDateTime& time) {
    return Moment(seconds(time.seconds)) + milliseconds(time.milliseconds);
}

Moment CSystemClock::Now() const {
    return floor<milliseconds>(system_clock::now());
}

seconds CSystemClock::OffsetAt(Moment moment) const {
    ::tzset();  // localtime_r need not notice that the zone was changed
    const std::time_t time = floor<seconds>(moment).time_since_epoch().count();
    std::tm local{};
    return ::localtime_r(&time, &local) == nullptr ? seconds(0) : seconds(local.tm_gmtoff);
}

}  // namespace tarvo
