// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where the agent publishes its events.
#pragma once

#include <zamclientlib/EventRecords.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "testagent/Script.h"

namespace testagent {

class IEvents {
public:
    virtual ~IEvents() = default;

    /// Never waits for a subscriber.
    virtual void Publish(const zamclientlib::SBaseEvent& event) = 0;

    /// Absolute.
    virtual const std::string& SocketPath() const noexcept = 0;

    /// Removes the socket and disconnects the subscribers. Any thread may call it, at any time.
    virtual void Stop() noexcept = 0;
};

/// Listens on the socket `name` in `directory`: as every service does, or, when there are rules, as they say.
/// \param beforeEnd  called before a rule kills the process
/// \throws std::system_error
std::unique_ptr<IEvents> MakeEvents(const std::string& directory, const std::string& name,
                                    const std::vector<SEventRule>& rules, std::function<void()> beforeEnd);

}  // namespace testagent
