// SPDX-License-Identifier: Apache-2.0
/// \file
/// A flag with a descriptor.
#pragma once

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"

namespace apigen {

/// Set once by any thread, or by a signal handler; its descriptor is readable from then on.
class CWakeup {
public:
    CWakeup() : m_descriptor(common::AwayFromStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
        if (!m_descriptor) throw std::system_error(errno, std::generic_category(), "Cannot make an event");
    }

    void Set() noexcept {
        if (m_set.exchange(true)) return;
        const int error = errno;
        if (IsOwn()) Signal();
        errno = error;
    }

    bool IsSet() const noexcept { return m_set.load(); }

    /// For a wait that begins now.
    int Descriptor() const noexcept {
        while (!IsOwn() && m_owner.load() == Replacing(common::CurrentProcessMark()))
            ::sched_yield();
        return m_descriptor.Get();
    }

private:
    static constexpr std::uint64_t Replacing(std::uint64_t process) noexcept { return process | 1ULL << 63U; }

    /// Whether the counter is this process's. A fork shares it: setting it would end the waiting of the other process,
    /// which knows of no event. So a copy takes one of its own at its first use; the number stays. Who finds another
    /// at that leaves the signal to him. Waits for nobody, as befits a signal handler.
    bool IsOwn() const noexcept {
        const std::uint64_t here = common::CurrentProcessMark();
        std::uint64_t owner = m_owner.load();
        while (owner != here) {
            if (owner == Replacing(here)) return false;
            if (!m_owner.compare_exchange_weak(owner, Replacing(here))) continue;
            const common::CDescriptor own(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
            const bool isReplaced = own && ::dup3(own.Get(), m_descriptor.Get(), O_CLOEXEC) >= 0;
            m_owner.store(isReplaced ? here : owner);
            if (!isReplaced) return false;
            if (IsSet()) Signal();
            return true;
        }
        return true;
    }

    /// The counter's first steps can't fail.
    void Signal() const noexcept { ::eventfd_write(m_descriptor.Get(), 1); }

    mutable std::atomic<std::uint64_t> m_owner = common::CurrentProcessMark();
    common::CDescriptor m_descriptor;
    std::atomic<bool> m_set = false;
};

}  // namespace apigen
