// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/Owned.h>

#include <memory>
#include <string>

namespace apigen {
namespace io {
namespace event APIGEN_API {

/// Something that happens once and ends the waiting of the devices that registered it.
class IEvent {
public:
    /// True once the event has been set.
    virtual bool IsSet() const = 0;

    /// Why it was set; empty before.
    virtual std::string Reason() const = 0;

    /// A descriptor that is readable once the event has been set; owned by the event.
    virtual int Descriptor() const noexcept = 0;

    virtual ~IEvent() = default;
};

/// An event that any thread may set, once; unset when made. A forked process has a copy: setting that one
/// ends no waiting in the other process.
class CAtomicEvent final : public IEvent {
public:
    /// \throws std::system_error when the process is out of descriptors.
    CAtomicEvent();
    CAtomicEvent(const CAtomicEvent&) = delete;
    CAtomicEvent& operator=(const CAtomicEvent&) = delete;
    ~CAtomicEvent() override;

    /// Marks the event set. Setting it again replaces the reason.
    void Set(std::string reason);

    bool IsSet() const override;
    std::string Reason() const override;
    int Descriptor() const noexcept override;

private:
    class Impl;
    detail::COwned<Impl> m_impl;
};

}  // namespace event
}  // namespace io
}  // namespace event
