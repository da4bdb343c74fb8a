// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zamclientlib/Exceptions.h>

namespace tarvo {

enum class EStateFault {
    Other,
    Full,    ///< no space for it
    Locked,  ///< another process holds it for too long
    Broken,  ///< it is no database, or a damaged one
    Newer,   ///< a later version of the agent has written it
};

/// The agent's state can't be read or written. Nothing has changed.
class CStateError : public zamclientlib::CGenericException {
public:
    CStateError(EStateFault fault, const std::string& message) : CGenericException(message), Fault(fault) {}

    EStateFault Fault;
};

}  // namespace tarvo
