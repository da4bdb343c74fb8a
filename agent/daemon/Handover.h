// SPDX-License-Identifier: Apache-2.0
/// \file
/// How the tool hands a client over to the daemon.
///
/// The tool connects to the control socket and sends one word, with the client's two descriptors attached: what the
/// client writes into, and what it reads from. From then on the daemon speaks with the client. Whatever the daemon
/// sends on the control socket itself is meant for the client as well: a greeting that refuses it. The connection
/// lasts as long as the client is served; either side leaves by closing it.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarvo::handover {

/// Changes when tool and daemon no longer understand each other.
constexpr std::string_view Word = "tarvo-handover 1\n";

/// What a daemon tells by the pipe of which its starter gave it the number: this, or why it can't run.
constexpr std::string_view Ready = "ready\n";
constexpr std::string_view Taken = "another daemon runs already\n";
constexpr const char* ReadinessOption = "--ready-fd";

/// \throws std::runtime_error for a path that no socket can have
inline sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("The control socket can't stand at " + path + ": the path has " +
                                 std::to_string(path.size()) + " bytes, where " +
                                 std::to_string(sizeof address.sun_path - 1) +
                                 " are possible; choose a folder with a shorter name");
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

}  // namespace tarvo::handover
