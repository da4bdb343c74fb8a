// SPDX-License-Identifier: Apache-2.0
/// \file
/// Time: the host's clock, and the local time that people mean.
#pragma once

#include <zamclientlib/CommonRecords.h>

#include <chrono>

namespace tarvo {

/// A moment, in UTC and whole milliseconds.
using Moment = std::chrono::sys_time<std::chrono::milliseconds>;

zamclientlib::SDateTime ToRecord(Moment moment);
Moment FromRecord(const zamclientlib::SDateTime& time);

/// Local time, and how far it is from UTC: rules of summer time included. Any thread may ask.
class IClock {
public:
    /// The host's clock, which jumps when somebody sets it.
    virtual Moment Now() const = 0;

    /// What is added to UTC at that moment to get local time.
    virtual std::chrono::seconds OffsetAt(Moment moment) const = 0;

    IClock() = default;
    IClock(const IClock&) = delete;
    IClock& operator=(const IClock&) = delete;
    virtual ~IClock() = default;
};

/// The clock and the time zone of this host, asked anew each time: the zone may be changed while we run.
class CSystemClock final : public IClock {
public:
    Moment Now() const override;
    std::chrono::seconds OffsetAt(Moment moment) const override;
};

}  // namespace tarvo
