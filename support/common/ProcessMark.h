// SPDX-License-Identifier: Apache-2.0
/// \file
/// Whether a process is still the one that made an object, or a copy of it.
#pragma once

#include <apigen/Export.h>

#include <atomic>
#include <cstdint>

namespace apigen::common {

namespace detail {

using Mark = std::atomic<std::uint64_t>;

/// Where the number stands; zero in a copy that has none yet.
extern APIGEN_API constinit std::atomic<Mark*> markPage;

/// The same where it is not known yet, or can't be kept.
APIGEN_API std::uint64_t FindProcessMark() noexcept;

}  // namespace detail

/// A number that every copy of a process made by `fork` has different from its original. Costs no system call.
inline std::uint64_t CurrentProcessMark() noexcept {
    const detail::Mark* const page = detail::markPage.load(std::memory_order_acquire);
    const std::uint64_t mark = page != nullptr ? page->load(std::memory_order_relaxed) : 0;
    return mark != 0 ? mark : detail::FindProcessMark();
}

/// What speaks to another process belongs to the process that made it. In a copy made by `fork` it must stay
/// silent: the original goes on speaking on the same descriptors.
class CProcessMark {
public:
    /// True in the process that made this object.
    bool IsHere() const noexcept { return m_mark == CurrentProcessMark(); }

private:
    std::uint64_t m_mark = CurrentProcessMark();
};

}  // namespace apigen::common
