// SPDX-License-Identifier: Apache-2.0
/// \file
/// How every child of ours is started.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "support/common/CDescriptor.h"

namespace apigen::common {

/// One start of a program. The child has no signal blocked, none ignored and no descriptor but those that it
/// is given here, whatever the caller has set or leaked. The first step that fails is what `Run` reports.
class CSpawn {
public:
    /// \param flags of `posix_spawnattr_setflags`, on top of our own
    explicit CSpawn(short flags = 0);
    CSpawn(const CSpawn&) = delete;
    CSpawn& operator=(const CSpawn&) = delete;
    ~CSpawn();

    /// The child has a duplicate of `descriptor` as `target`, which is at most `LastTarget`.
    void Give(int target, const CDescriptor& descriptor);

    /// The child has that file open as `target`.
    void GiveFile(int target, const char* path, int flags);

    void EnterFolder(const char* path);

    /// Looks a name without a slash up in PATH. To be called once.
    /// \param arguments begin with the program's name
    /// \param environment of entries NAME=VALUE
    /// \returns 0 or an error number
    int Run(pid_t& pid, const std::string& program, std::vector<std::string> arguments,
            std::vector<std::string> environment);

    static constexpr int LastTarget = 3;

private:
    void Note(int error) noexcept {
        if (m_error == 0) m_error = error;
    }

    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
    std::vector<CDescriptor> m_copies;
    int m_firstToClose = 0;
    int m_error = 0;
};

}  // namespace apigen::common
