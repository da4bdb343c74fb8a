// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zamservice/Service.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "testagent/CAgent.h"
#include "testagent/CRules.h"
#include "testagent/Script.h"

namespace testagent {

/// How a rule ends one connection: thrown where its next message would have come from.
class CDisconnected : public std::runtime_error {
public:
    CDisconnected() : std::runtime_error("A rule of the script ended the connection") {}
};

/// Carries out the script's rules in front of a service that behaves. One for each connection.
class CMisbehaviour {
public:
    using Rules = CRules<SRule>;

    /// Called before a rule ends the process, with the exit code; without one before it is killed.
    using BeforeEnd = std::function<void(std::optional<int> code)>;

    /// \param rules      those of all connections
    /// \param output     where raw bytes go that are no message
    /// \param ended      a descriptor that is readable when the connection has ended; -1 when there is none
    CMisbehaviour(std::shared_ptr<Rules> rules, int output, int ended, BeforeEnd beforeEnd);

    /// What comes before any call. Throws what a rule throws.
    void Greet();

    /// The answer to a request, which the agent notes.
    /// \throws CDisconnected
    std::string Answer(CAgent& agent, zamservice::CService& service, const std::string& request);

private:
    void EndIfAsked(const SRule& rule);

    /// Waits for the time to pass, as long as there is a client.
    void Wait(std::chrono::milliseconds time) const;

    std::shared_ptr<Rules> m_rules;
    int m_output;
    int m_ended;
    BeforeEnd m_beforeEnd;
};

}  // namespace testagent
