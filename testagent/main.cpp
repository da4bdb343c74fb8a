// SPDX-License-Identifier: Apache-2.0
// The command line of the test agent: that of the agent's tool, as far as clients use it.
#include <zamservice/Main.h>

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>
#include <optional>
#include <string>

#include "testagent/CMisbehaviour.h"
#include "testagent/Methods.h"
#include "testagent/Objects.h"

namespace testagent {
namespace {

// Written before the handler that reads them is set, and there until the process has gone.
std::array<char, sizeof(sockaddr_un::sun_path)> g_socketPath;
std::array<char, sizeof(sockaddr_un::sun_path)> g_socketDirectory;

/// A client that has lost its patience ends the agent by a signal, perhaps in the middle of a scripted delay.
extern "C" void HandleTermination(int signal) {
    ::unlink(g_socketPath.data());
    ::rmdir(g_socketDirectory.data());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void RemoveTracesOnTermination(const CAgent& agent) {
    // A path on which a socket listens fits, with its end.
    const std::string path = agent.EventConfig().v1->socketPath;
    path.copy(g_socketPath.data(), g_socketPath.size() - 1);
    path.copy(g_socketDirectory.data(), path.rfind('/'));
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        std::signal(signal, &HandleTermination);
}

int Serve() {
    // The kit takes the standard streams over; what is to go out raw needs a descriptor of its own.
    constexpr int FirstOwnDescriptor = 3;
    const int output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, FirstOwnDescriptor);
    AgentPtr agent;
    std::optional<CMisbehaviour> misbehaviour;
    const auto makeService = [&]() -> zamservice::CService {
        const SScript script = SScript::FromEnvironment();
        misbehaviour.emplace(script.Rules, output, [&agent] {
            if (agent != nullptr) agent->RemoveTraces();
        });
        misbehaviour->Greet();
        agent = std::make_shared<CAgent>(script);
        RemoveTracesOnTermination(*agent);
        return MakeControl(agent);
    };
    const auto answer = [&](zamservice::CService& service, const std::string& request) {
        // Names of methods alone: arguments may hold secrets, and a name that no method has anything.
        const std::string method = CMisbehaviour::MethodOf(request);
        if (FindMethod(method) != nullptr) agent->Log(method);
        return misbehaviour->Answer(service, request);
    };
    return zamservice::ServeStandardStreams(makeService, answer);
}

int Run(int argc, char** argv) {
    zamservice::STool tool;
    tool.Kind = zamservice::EToolKind::Agent;
    tool.Serve = [](const std::string& /*logName*/) { return Serve(); };
    tool.ProtocolVersion = [] { return SScript::FromEnvironment().ProtocolVersion; };
    tool.Description = "An agent in memory, for tests.";
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
