// SPDX-License-Identifier: Apache-2.0
/// \file
/// The listening socket of an event source, in a directory that is closed to others.
#pragma once

#include <string>

#include "support/common/CDescriptor.h"

namespace zamservice {

/// Throws std::system_error with errno.
[[noreturn]] void ThrowErrno(const std::string& what);

/// Whether the process that made `connection` belongs to our own user or to root.
bool IsOwnUserOrRoot(int connection);

/// Listens as long as it lives; its file goes with it.
class CEventSocket {
public:
    CEventSocket(const std::string& directory, const std::string& name);
    CEventSocket(const CEventSocket&) = delete;
    CEventSocket& operator=(const CEventSocket&) = delete;
    ~CEventSocket() { Close(); }

    const std::string& Path() const noexcept { return m_path; }

    /// Non-blocking.
    int Descriptor() const noexcept { return m_listener.Get(); }

    void Close() noexcept;

private:
    const std::string m_path;
    apigen::common::CDescriptor m_listener;
    unsigned long m_device = 0;  ///< with the inode: the file that we made
    unsigned long m_inode = 0;
};

}  // namespace zamservice
