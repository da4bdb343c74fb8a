// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where implementations of the interfaces that serve tests write down what they are asked.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zamtest {

/// Where the calls end up; shared by all objects of one service.
struct SJournal {
    std::vector<std::string> Calls;
    std::vector<std::string> Ends;                   ///< the objects that were destroyed, in order
    std::function<void(const std::string&)> OnCall;  ///< may throw; gets the call as it was noted
    std::function<void(const std::string&)> OnEnd;
    bool HasNothing = false;  ///< the agent's lists are empty and its searches find nothing

    void Note(const std::string& call) {
        Calls.push_back(call);
        if (OnCall) OnCall(call);
    }
    void NoteEnd(const std::string& name) {
        Ends.push_back(name);
        if (OnEnd) OnEnd(name);
    }
};
using Journal = std::shared_ptr<SJournal>;

}  // namespace zamtest
