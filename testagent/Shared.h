// SPDX-License-Identifier: Apache-2.0
/// \file
/// The tool's end of an agent that outlives its connections: the tool hands its standard streams to that agent, a
/// process of its own, and waits for the connection's end.
#pragma once

#include <string>

namespace testagent {

/// The folder that `$ZAM_TESTAGENT_SHARED` names; empty when nothing asks for sharing.
std::string SharedFolder();

/// Has the agent of the folder, which is started when there is none, serve the client at our standard streams.
/// \return the exit code. Does not return when the agent dies without a word: then we are killed, too.
int ServeByShared(const std::string& folder);

/// Ends the agent of the folder and waits until it has gone.
/// \return the exit code
int ShutDownShared(const std::string& folder);

/// \name What goes over the control socket, a byte each
/// @{
inline constexpr const char* ControlSocketName = "control.sock";
inline constexpr char JoinWord = 'J';  ///< comes with two descriptors, and is sent back when they are taken
inline constexpr char ShutDownWord = 'S';  ///< is answered by the end of the connection
// Behind the answer to a `JoinWord` comes, at the end of the client's connection, the tool's exit code.
/// @}

}  // namespace testagent
