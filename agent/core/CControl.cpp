// SPDX-License-Identifier: Apache-2.0
#include "agent/core/CControl.h"

#include <zamclientlib/Exceptions.h>

#include <string>

#include "support/common/Text.h"

namespace tarvo {

using zamclientlib::CGenericException;
using zamclientlib::ZAMOwnerMode;

zamclientlib::SZamControlOwnerInfo CControl::AfterRequest(const zamclientlib::SZamControlOwnerInfo& owner,
                                                          bool isForced) const {
    if (owner.Id == Guid{}) throw CGenericException("An owner needs an id");
    const bool isOthers = m_owner.Id != Guid{} && m_owner.Id != owner.Id;
    if (!isOthers || isForced) return owner;
    if (m_owner.Mode != ZAMOwnerMode::Shared && m_owner.Mode != ZAMOwnerMode::ReadOnly) {
        throw CGenericException("The agent is controlled by " + apigen::common::Escaped(m_owner.Name) + " " +
                                m_owner.Id.Serialize() +
                                "; ask it to give control back, or take it by force");
    }
    return m_owner;
}

GrantPtr CControl::Request(const zamclientlib::SZamControlOwnerInfo& owner, bool isForced) {
    const auto next = AfterRequest(owner, isForced);
    if (next.Id != m_owner.Id && m_owner.Id != Guid{}) EndGrants(owner.Id);
    m_owner = next;
    std::erase_if(m_grants, [](const auto& entry) { return entry.second.expired(); });
    auto& known = m_grants[owner.Id];
    GrantPtr grant = known.lock();
    if (grant == nullptr) known = grant = std::make_shared<SGrant>(SGrant{owner.Id});
    return grant;
}

void CControl::EndGrants(const Guid& except) {
    std::erase_if(m_grants, [&](const auto& entry) {
        const bool isOver = entry.first != except;
        if (const GrantPtr grant = entry.second.lock()) grant->IsOver = isOver;
        return isOver;
    });
}

void CControl::RequireOwner(const Guid& owner) const {
    if (owner == Guid{} || m_owner.Id != owner) {
        throw CGenericException("The owner " + owner.Serialize() + " does not control the agent");
    }
}

void CControl::Release(const Guid& owner) {
    RequireOwner(owner);
    m_owner = {};
    EndGrants({});
}

void CControl::SetMode(const Guid& owner, ZAMOwnerMode mode) {
    RequireOwner(owner);
    m_owner.Mode = mode;
}

void CControl::RequireChangeBy(const SGrant& grant) const {
    if (grant.IsOver) {
        throw CGenericException("Control was given back, or taken over by another; request it again");
    }
    if (m_owner.Id == grant.Owner) return;
    if (m_owner.Mode != ZAMOwnerMode::Shared) {
        throw CGenericException("The agent is controlled by " + apigen::common::Escaped(m_owner.Name) +
                                ", who shares it to look at most");
    }
}

}  // namespace tarvo
