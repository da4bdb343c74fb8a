// SPDX-License-Identifier: Apache-2.0
/// \file
/// The bytes below a stream of messages: pipes to a child, or a socket.
#pragma once

#include <apigen/Export.h>

#include <poll.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>

namespace apigen::common {

/// A way each for bytes, on descriptors that it does not own. No operation raises SIGPIPE and none waits,
/// but on descriptors that are taken as they are.
class APIGEN_API CChannel {
public:
    /// A connected socket. Its own flags are left as they are.
    static CChannel Socket(int fd) noexcept { return {fd, fd, EKind::Socket}; }

    /// Two descriptors of any kind that are non-blocking.
    static CChannel Pipes(int readFd, int writeFd) noexcept { return {readFd, writeFd, EKind::Pipes}; }

    /// Two descriptors whose flags belong to others as well: the standard streams of a program that ignores SIGPIPE.
    static CChannel AsTheyAre(int readFd, int writeFd) noexcept {
        return {readFd, writeFd, EKind::AsTheyAre};
    }

    /// Whether a read of nothing may wait.
    bool BlocksInReading() const noexcept { return m_kind == EKind::AsTheyAre; }

    /// For `poll`: the descriptor to read from and the one to write to, as far as `events` ask for them.
    std::array<pollfd, 2> PollSet(short events) const noexcept {
        return {{{(events & POLLIN) != 0 ? m_readFd : -1, POLLIN, 0},
                 {(events & POLLOUT) != 0 ? m_writeFd : -1, POLLOUT, 0}}};
    }
    /// What such a set says afterwards, as `events` again.
    static short Ready(const pollfd* set) noexcept {
        return static_cast<short>((set[0].revents != 0 ? POLLIN : 0) | (set[1].revents != 0 ? POLLOUT : 0));
    }

    /// As `read`.
    ssize_t Read(char* into, std::size_t room) const;

    /// As `writev`.
    ssize_t Write(const iovec* parts, std::size_t count) const;

private:
    enum class EKind {
        Socket,
        Pipes,
        AsTheyAre
    };

    CChannel(int readFd, int writeFd, EKind kind) noexcept
        : m_readFd(readFd), m_writeFd(writeFd), m_kind(kind) {}

    int m_readFd;
    int m_writeFd;
    EKind m_kind;
};

/// `writev` without SIGPIPE on any system: keeps the signal from the calling thread for as long as it
/// writes, which takes system calls of its own.
APIGEN_API ssize_t WriteWithSignalHeld(int fd, const iovec* parts, std::size_t count);

}  // namespace apigen::common
