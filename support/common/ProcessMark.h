// SPDX-License-Identifier: Apache-2.0
/// \file
/// Whether a process is still the one that made an object, or a copy of it.
#pragma once

#include <apigen/Export.h>

#include <cstdint>

namespace apigen::common {

/// A number that every copy of a process made by `fork` has different from its original. Costs no system call.
APIGEN_API std::uint64_t CurrentProcessMark() noexcept;

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
