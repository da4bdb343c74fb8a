// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/Export.h>
#include <apigen/Owned.h>

#include <memory>
#include <string>

namespace apigen APIGEN_API {

/// Ends the waiting of calls for good: give it to a `CCancellableCalls`. Any thread may use it, at any time.
///
/// A forked process has a copy: to cancel that one ends no waiting in the other process.
class CCancellation final : public io::event::IEvent {
public:
    /// \throws std::system_error when the process is out of descriptors.
    CCancellation();
    CCancellation(const CCancellation&) = delete;
    CCancellation& operator=(const CCancellation&) = delete;
    ~CCancellation() override;

    /// Once is enough. May be called by a signal handler.
    void Cancel() noexcept;

    bool IsSet() const override;
    std::string Reason() const override;
    int Descriptor() const noexcept override;

private:
    class Impl;
    detail::COwned<Impl> m_impl;
};

}  // namespace apigen
