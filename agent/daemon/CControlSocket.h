// SPDX-License-Identifier: Apache-2.0
/// \file
/// Being the one daemon of a run-time folder, and its socket.
#pragma once

#include <string>

#include "support/common/CDescriptor.h"

namespace tarvo {

/// Another daemon runs already.
struct STaken {
    std::string Message;
};

/// As long as it lives, this process is the daemon of the run-time folder.
class CDaemonLock {
public:
    /// \throws STaken, std::system_error
    explicit CDaemonLock(const std::string& runFolder);

private:
    apigen::common::CDescriptor m_file;
};

/// The listening control socket: systemd's, where it has given us one, or one of our own, whose file goes with it.
class CControlSocket {
public:
    /// Replaces what a dead daemon has left; to be called with the lock held.
    /// \throws std::runtime_error, std::system_error, STaken
    explicit CControlSocket(const std::string& path);
    CControlSocket(const CControlSocket&) = delete;
    CControlSocket& operator=(const CControlSocket&) = delete;
    ~CControlSocket() { Close(); }

    /// Non-blocking.
    int Descriptor() const noexcept { return m_listener.Get(); }

    bool IsFromSystemd() const noexcept { return m_isFromSystemd; }

    /// Where the socket is our own, nobody finds it any more; who waits already can still be accepted.
    void Hide() noexcept;

    void Close() noexcept;

private:
    bool TakeFromSystemd();
    void Bind();

    std::string m_path;
    bool m_isFromSystemd = false;
    apigen::common::CDescriptor m_listener;
    unsigned long m_device = 0;  ///< with the inode: the file that we made
    unsigned long m_inode = 0;
};

}  // namespace tarvo
