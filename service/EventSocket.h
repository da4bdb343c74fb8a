// SPDX-License-Identifier: Apache-2.0
/// \file
/// The listening socket of an event source, in a directory that is closed to others.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"

namespace zamservice {

/// Throws std::system_error with errno.
[[noreturn]] void ThrowErrno(const std::string& what);

/// Whether the process that made `connection` belongs to our own user or to root.
bool IsOwnUserOrRoot(int connection);

/// Listens as long as it lives; its file goes with it. A forked process only closes its copy.
class CEventSocket {
public:
    /// \param startLimit how long another process may keep the directory locked
    CEventSocket(const std::string& directory, const std::string& name, std::chrono::milliseconds startLimit);
    CEventSocket(const CEventSocket&) = delete;
    CEventSocket& operator=(const CEventSocket&) = delete;
    ~CEventSocket() { Close(); }

    /// Absolute, whatever the directory was.
    const std::string& Path() const noexcept { return m_path; }

    /// Non-blocking.
    int Descriptor() const noexcept { return m_listener.Get(); }

    void Close() noexcept;

private:
    const std::string m_path;
    const apigen::common::CProcessMark m_origin;
    apigen::common::CDescriptor m_listener;
    unsigned long m_device = 0;  ///< with the inode: the file that we made
    unsigned long m_inode = 0;
};

}  // namespace zamservice
