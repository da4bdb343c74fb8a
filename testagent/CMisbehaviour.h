// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zamservice/Service.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "testagent/Script.h"

namespace testagent {

/// Carries out the script's rules in front of a service that behaves.
class CMisbehaviour {
public:
    /// \param output     where raw bytes go that are no message
    /// \param beforeEnd  called before the process ends itself
    CMisbehaviour(const std::vector<SRule>& rules, int output, std::function<void()> beforeEnd);

    /// What comes before any call. Throws what a rule throws.
    void Greet();

    /// The answer to a request.
    std::string Answer(zamservice::CService& service, const std::string& request);

    /// The identifier of the method that a request calls; empty when it can't be understood.
    static std::string MethodOf(const std::string& request);

private:
    struct SState {
        SRule Rule;
        unsigned long Seen = 0;  ///< calls that it fits
    };

    /// The first rule that is due for the method, or null. Counts for all that fit.
    const SRule* Due(std::string_view method);
    void EndIfAsked(const SRule& rule);

    /// Waits for the time to pass, as long as there is a client.
    void Wait(std::chrono::milliseconds time) const;

    std::vector<SState> m_rules;
    int m_output;
    std::function<void()> m_beforeEnd;
};

}  // namespace testagent
