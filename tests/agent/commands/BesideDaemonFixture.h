// SPDX-License-Identifier: Apache-2.0
/// \file
/// The daemon's commands, run beside a daemon that serves clients.
#pragma once

#include <string>
#include <vector>

#include "tests/agent/api/ApiFixture.h"

namespace tests {

class CBesideDaemonTest : public CAgentApiTest {
protected:
    int Run(std::vector<std::string> words) {
        words.insert(words.begin(), Daemon());
        CChild child(words);
        Output = ReadBytes(child.Out, 1'000'000);
        Errors = child.ReadErrors();
        return child.Ended();
    }

    std::string Output;
    std::string Errors;
};

}  // namespace tests
