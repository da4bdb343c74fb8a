// SPDX-License-Identifier: Apache-2.0
// The command line of the test agent: that of the agent's tool, as far as clients use it.
#include <zamservice/Main.h>

#include <fcntl.h>
#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "testagent/CMisbehaviour.h"
#include "testagent/Objects.h"
#include "testagent/Shared.h"
#include "testagent/Termination.h"

namespace testagent {
namespace {

using namespace std::string_view_literals;

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

int Run(int argc, char** argv) {
    if (argc == 3 && argv[1] == "extended"sv && argv[2] == "shutdown"sv)
        return ShutDownShared(SharedFolder());
    zamservice::STool tool;
    tool.Kind = zamservice::EToolKind::Agent;
    tool.Serve = [](const std::string& /*logName*/) {
        const std::string shared = SharedFolder();
        return shared.empty() ? Serve() : ServeByShared(shared);
    };
    tool.ProtocolVersion = [] { return SScript::FromEnvironment().ProtocolVersion; };
    tool.Description = "An agent in memory, for tests. `extended shutdown` ends a shared one.";
    return zamservice::Main(argc, argv, tool);
}

}  // namespace
}  // namespace testagent

int main(int argc, char** argv) {
    try {
        return testagent::Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        return 1;
    }
}
