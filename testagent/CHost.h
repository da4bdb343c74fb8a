// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/CAtomicEvent.h>

#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "service/EventSocket.h"
#include "support/common/CDescriptor.h"
#include "support/common/Waiting.h"
#include "testagent/CMisbehaviour.h"
#include "testagent/Objects.h"

namespace testagent {

/// One agent for many clients, whose connections tools hand over at a control socket. A thread serves each.
class CHost {
public:
    CHost(zamservice::CEventSocket& socket, const SScript& script);

    /// Serves until a tool says that it is to end, or until it has had no client for long.
    void Run();

private:
    using Descriptor = apigen::common::CDescriptor;
    using Clock = apigen::common::Clock;

    struct SClient {
        Descriptor Tool;
        std::shared_ptr<apigen::io::event::CAtomicEvent> Ended;
        std::thread Thread;
    };

    void Wait();
    void Accept();

    /// Takes in what a tool wants. False as long as it has not said so.
    bool Receive(Descriptor& tool);
    void Take(Descriptor tool, Descriptor input, Descriptor output);
    void Serve(SClient& client, Descriptor input, Descriptor output);
    int ServeToTheEnd(const SClient& client, Descriptor input, Descriptor output);
    void ForgetThoseWhoseToolIsGone();
    void EndClients();

    /// Tells every tool its exit code.
    void Announce(int code);

    zamservice::CEventSocket& m_socket;
    AgentPtr m_agent;
    std::shared_ptr<CMisbehaviour::Rules> m_rules;
    std::vector<Descriptor> m_newcomers;  ///< tools that have not said what they want
    std::vector<Descriptor> m_enders;     ///< those that wait for our end
    std::mutex m_mutex;
    std::list<SClient> m_clients;  ///< changed by the thread of `Run` alone, with the mutex held
    Clock::time_point m_idleEnd;
    std::unique_lock<std::mutex> m_lastLock;  ///< of the agent, once a rule ends the process
};

}  // namespace testagent
