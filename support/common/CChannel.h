// SPDX-License-Identifier: Apache-2.0
/// \file
/// The bytes below a stream of messages: pipes to a child, or a socket.
#pragma once

#include <apigen/Export.h>

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace apigen::common {

/// A way each for bytes, on descriptors that it does not own. No operation waits, none raises SIGPIPE.
class APIGEN_API CChannel {
public:
    /// A connected socket. Its own flags are left as they are.
    static CChannel Socket(int fd) noexcept { return {fd, fd, EKind::Socket}; }

    /// Two pipes, our ends of which are non-blocking.
    static CChannel Pipes(int readFd, int writeFd) noexcept { return {readFd, writeFd, EKind::Pipes}; }

    int ReadDescriptor() const noexcept { return m_readFd; }
    int WriteDescriptor() const noexcept { return m_writeFd; }

    /// As `read`.
    ssize_t Read(char* into, std::size_t room) const noexcept;

    /// As `writev`.
    ssize_t Write(const iovec* parts, std::size_t count) const noexcept;

private:
    enum class EKind {
        Socket,
        Pipes
    };

    CChannel(int readFd, int writeFd, EKind kind) noexcept
        : m_readFd(readFd), m_writeFd(writeFd), m_kind(kind) {}

    int m_readFd;
    int m_writeFd;
    EKind m_kind;
};

/// `writev` without SIGPIPE on any system: keeps the signal from the calling thread for as long as it
/// writes, which takes system calls of its own.
APIGEN_API ssize_t WriteWithSignalHeld(int fd, const iovec* parts, std::size_t count) noexcept;

}  // namespace apigen::common
