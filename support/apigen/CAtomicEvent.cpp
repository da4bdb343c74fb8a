// SPDX-License-Identifier: Apache-2.0
#include <apigen/CAtomicEvent.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"

namespace apigen::io::event {

class CAtomicEvent::Impl {
public:
    Impl() : m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!m_descriptor) throw std::system_error(errno, std::generic_category(), "Cannot make an event");
    }

    void Set(std::string reason) {
        const std::lock_guard lock(m_mutex);
        m_reason = std::move(reason);
        if (m_set.exchange(true)) return;
        if (!m_origin.IsHere() && !Separate()) return;
        ::eventfd_write(m_descriptor.Get(), 1);  // the counter's first step can't fail
    }

    bool IsSet() const noexcept { return m_set.load(); }

    std::string Reason() const {
        const std::lock_guard lock(m_mutex);
        return m_reason;
    }

    int Descriptor() const noexcept { return m_descriptor.Get(); }

private:
    /// A fork shares the counter: setting it would end the waiting of the other process, which knows of no
    /// event. The number stays.
    bool Separate() const noexcept {
        const common::CDescriptor own(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        return own && ::dup3(own.Get(), m_descriptor.Get(), O_CLOEXEC) >= 0;
    }

    const common::CProcessMark m_origin;
    common::CDescriptor m_descriptor;
    mutable std::mutex m_mutex;
    std::string m_reason;
    std::atomic<bool> m_set = false;
};

CAtomicEvent::CAtomicEvent() : m_impl(std::make_unique<Impl>()) {}

CAtomicEvent::~CAtomicEvent() = default;

void CAtomicEvent::Set(std::string reason) {
    m_impl->Set(std::move(reason));
}

bool CAtomicEvent::IsSet() const {
    return m_impl->IsSet();
}

std::string CAtomicEvent::Reason() const {
    return m_impl->Reason();
}

int CAtomicEvent::Descriptor() const noexcept {
    return m_impl->Descriptor();
}

}  // namespace apigen::io::event
