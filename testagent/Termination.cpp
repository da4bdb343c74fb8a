// SPDX-License-Identifier: Apache-2.0
#include "testagent/Termination.h"

#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

namespace testagent {
namespace {

// Written before the handler that reads them is set, and there until the process has gone.
using Path = std::array<char, sizeof(sockaddr_un::sun_path)>;
Path g_controlSocket;
Path g_eventSocket;
Path g_eventDirectory;

/// A client that has lost its patience ends the agent by a signal, perhaps in the middle of a scripted delay.
extern "C" void HandleTermination(int signal) {
    if (g_controlSocket[0] != '\0') ::unlink(g_controlSocket.data());
    ::unlink(g_eventSocket.data());
    ::rmdir(g_eventDirectory.data());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void RemoveTracesOnTermination(const CAgent& agent) {
    // A path on which a socket listens fits, with its end.
    const std::string path = agent.EventConfig().v1->socketPath;
    path.copy(g_eventSocket.data(), g_eventSocket.size() - 1);
    path.copy(g_eventDirectory.data(), path.rfind('/'));
    agent.ControlSocket().copy(g_controlSocket.data(), g_controlSocket.size() - 1);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        std::signal(signal, &HandleTermination);
}

}  // namespace testagent
