// SPDX-License-Identifier: Apache-2.0
// The command line of the test agent: that of the agent's tool, as far as clients use it.
#include <fcntl.h>
#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "testagent/CMisbehaviour.h"
#include "testagent/Objects.h"
#include "testagent/Shared.h"
#include "testagent/Termination.h"

namespace testagent {
namespace {

constexpr int UsageError = 2;

int Serve() {
    // The kit takes the standard streams over; what is to go out raw needs a descriptor of its own.
    constexpr int FirstOwnDescriptor = 3;
    const int output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, FirstOwnDescriptor);
    AgentPtr agent;
    std::optional<CMisbehaviour> misbehaviour;
    const auto makeService = [&]() -> zamservice::CService {
        const SScript script = SScript::FromEnvironment();
        misbehaviour.emplace(std::make_shared<CMisbehaviour::Rules>(script.Rules), output, -1,
                             [&agent](std::optional<int> /*code*/) {
                                 if (agent != nullptr) agent->RemoveTraces();
                             });
        try {
            misbehaviour->Greet();
        } catch (const CDisconnected&) {
            ::_exit(1);  // without a greeting
        }
        agent = std::make_shared<CAgent>(script);
        RemoveTracesOnTermination(*agent);
        return MakeControl(agent);
    };
    const auto answer = [&](zamservice::CService& service, const std::string& request) {
        return misbehaviour->Answer(*agent, service, request);
    };
    return zamservice::ServeStandardStreams(makeService, answer);
}

int Run(const std::vector<std::string>& arguments) {
    if (arguments == std::vector<std::string>{"extended", "protocolVersion"}) {
        return zamservice::PrintProtocolVersion(SScript::FromEnvironment().ProtocolVersion);
    }
    if (arguments.size() == 4 && arguments[0] == "extended" && arguments[1] == "startCommandInvoker" &&
        arguments[2] == "--logFileName") {
        const std::string shared = SharedFolder();
        return shared.empty() ? Serve() : ServeByShared(shared);
    }
    if (arguments == std::vector<std::string>{"extended", "shutdown"}) return ShutDownShared(SharedFolder());
    std::cerr << "An agent in memory, for tests. Usage:\n"
                 "  tarvoconfig extended startCommandInvoker --logFileName NAME\n"
                 "  tarvoconfig extended protocolVersion\n"
                 "  tarvoconfig extended shutdown\n";
    return UsageError;
}

}  // namespace
}  // namespace testagent

int main(int argc, char** argv) {
    try {
        return testagent::Run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        return 1;
    }
}
