// SPDX-License-Identifier: Apache-2.0
/// \file
/// A clock that stands still until a test moves it, in a zone that the test describes.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

#include "agent/core/IClock.h"

namespace tarvo::tests {

class CFakeClock : public IClock {
public:
    explicit CFakeClock(Moment now, std::chrono::seconds offset = std::chrono::seconds(0))
        : m_now(now.time_since_epoch().count()), m_offset(offset) {}

    /// From that moment on, the offset is another.
    void Add(Moment from, std::chrono::seconds offset) { m_changes.emplace_back(from, offset); }

    void Set(Moment now) { m_now = now.time_since_epoch().count(); }
    void Advance(std::chrono::milliseconds by) { m_now += by.count(); }

    Moment Now() const override { return Moment(std::chrono::milliseconds(m_now.load())); }

    std::chrono::seconds OffsetAt(Moment moment) const override {
        std::chrono::seconds offset = m_offset;
        for (const auto& [from, next] : m_changes) {
            if (moment >= from) offset = next;
        }
        return offset;
    }

private:
    std::atomic<std::int64_t> m_now;
    std::chrono::seconds m_offset;
    std::vector<std::pair<Moment, std::chrono::seconds>> m_changes;
};

}  // namespace tarvo::tests
