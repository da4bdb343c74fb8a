// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/common/CDescriptor.h"

namespace testagent {

/// A new directory of our own below `$TMPDIR`, for a socket, and gone with the object.
///
/// An agent that was killed can't clear up, so the next one does: a directory that no living agent keeps is
/// removed. Between its making and `Keep` a directory looks like that, too.
class CPrivateDirectory {
public:
    /// Removes those that were left and makes a new one.
    /// \throws std::system_error
    CPrivateDirectory();
    CPrivateDirectory(const CPrivateDirectory&) = delete;
    CPrivateDirectory& operator=(const CPrivateDirectory&) = delete;
    ~CPrivateDirectory();

    const std::string& Path() const noexcept { return m_path; }

    /// Protects the directory, with the socket in it, for as long as the object or the process lives.
    /// \return false when another agent has removed them already
    bool Keep();

    /// What the socket in it has to be called, to be removed with it.
    static constexpr const char* SocketName = "events.sock";

private:
    std::string m_path;
    apigen::common::CDescriptor m_lock;
};

}  // namespace testagent
