// SPDX-License-Identifier: Apache-2.0
/// \file
/// Who controls the agent, and what that lets others do.
#pragma once

#include <zamclientlib/JobRecords.h>

#include <map>
#include <memory>

#include "agent/core/Values.h"

namespace tarvo {

/// One owner's leave to use the agent: from its request of control until control is given back, or until another
/// takes it by force. It doesn't come back with a later request.
struct SGrant {
    Guid Owner;
    bool IsOver = false;
};
using GrantPtr = std::shared_ptr<SGrant>;

/// The rules of control. One thread at a time. What is refused throws zamclientlib::CGenericException and changes
/// nothing.
class CControl {
public:
    /// \param owner who held control when the agent last ran; an empty one for nobody
    explicit CControl(zamclientlib::SZamControlOwnerInfo owner = {}) : m_owner(std::move(owner)) {}

    const zamclientlib::SZamControlOwnerInfo& Owner() const noexcept { return m_owner; }

    /// The owner as it would be after the request: what has to be made durable before `Request`.
    zamclientlib::SZamControlOwnerInfo AfterRequest(const zamclientlib::SZamControlOwnerInfo& owner,
                                                    bool isForced) const;

    /// Throws unless that owner may give control back, or change its mode.
    void RequireOwner(const Guid& owner) const;

    GrantPtr Request(const zamclientlib::SZamControlOwnerInfo& owner, bool isForced);
    void Release(const Guid& owner);
    void SetMode(const Guid& owner, zamclientlib::ZAMOwnerMode mode);

    /// Throws unless things may be changed by that leave as matters stand.
    void RequireChangeBy(const SGrant& grant) const;

private:
    void EndGrants(const Guid& except);

    zamclientlib::SZamControlOwnerInfo m_owner;
    std::map<Guid, std::weak_ptr<SGrant>> m_grants;  ///< those that are not over; guests come and go
};

}  // namespace tarvo
