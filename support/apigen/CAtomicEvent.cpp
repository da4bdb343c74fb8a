// SPDX-License-Identifier: Apache-2.0
#include <apigen/CAtomicEvent.h>
#include <apigen/CCancellation.h>

#include <mutex>
#include <utility>

#include "support/apigen/CWakeup.h"

namespace apigen::io::event {

class CAtomicEvent::Impl {
public:
    void Set(std::string reason) {
        const std::lock_guard lock(m_mutex);
        m_reason = std::move(reason);
        m_wakeup.Set();
    }

    std::string Reason() const {
        const std::lock_guard lock(m_mutex);
        return m_reason;
    }

    const CWakeup& Wakeup() const noexcept { return m_wakeup; }

private:
    CWakeup m_wakeup;
    mutable std::mutex m_mutex;
    std::string m_reason;
};

CAtomicEvent::CAtomicEvent() : m_impl(std::make_unique<Impl>()) {}

CAtomicEvent::~CAtomicEvent() = default;

void CAtomicEvent::Set(std::string reason) {
    m_impl->Set(std::move(reason));
}

bool CAtomicEvent::IsSet() const {
    return m_impl->Wakeup().IsSet();
}

std::string CAtomicEvent::Reason() const {
    return m_impl->Reason();
}

int CAtomicEvent::Descriptor() const noexcept {
    return m_impl->Wakeup().Descriptor();
}

}  // namespace apigen::io::event

namespace apigen {

class CCancellation::Impl {
public:
    CWakeup Wakeup;
};

CCancellation::CCancellation() : m_impl(std::make_unique<Impl>()) {}

CCancellation::~CCancellation() = default;

void CCancellation::Cancel() noexcept {
    m_impl->Wakeup.Set();
}

bool CCancellation::IsSet() const {
    return m_impl->Wakeup.IsSet();
}

std::string CCancellation::Reason() const {
    return IsSet() ? "cancelled by the caller" : std::string();
}

int CCancellation::Descriptor() const noexcept {
    return m_impl->Wakeup.Descriptor();
}

}  // namespace apigen
