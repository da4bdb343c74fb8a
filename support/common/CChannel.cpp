// SPDX-License-Identifier: Apache-2.0
#include "support/common/CChannel.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace apigen::common {

namespace {

// RWF_NOSIGNAL of Linux 6.18, younger than the C library's headers may be.
constexpr int WriteWithoutSignalFlag = 0x100;

ssize_t WriteToPipe(int fd, const iovec* parts, std::size_t count) {
    static std::atomic<bool> systemHasFlag = true;
    if (systemHasFlag.load(std::memory_order_relaxed)) {
        const ssize_t written = ::pwritev2(fd, parts, static_cast<int>(count), -1, WriteWithoutSignalFlag);
        if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL)) return written;
        systemHasFlag.store(false, std::memory_order_relaxed);
    }
    return WriteWithSignalHeld(fd, parts, count);
}

}  // namespace

ssize_t WriteWithSignalHeld(int fd, const iovec* parts, std::size_t count) {
    sigset_t brokenPipe;
    ::sigemptyset(&brokenPipe);
    ::sigaddset(&brokenPipe, SIGPIPE);
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    sigset_t pending;
    ::sigemptyset(&pending);
    if (::sigismember(&before, SIGPIPE) == 1) ::sigpending(&pending);
    const ssize_t written = ::writev(fd, parts, static_cast<int>(count));
    const int error = errno;
    if (written < 0 && error == EPIPE && ::sigismember(&pending, SIGPIPE) == 0) {
        constexpr timespec AtOnce{};
        ::sigtimedwait(&brokenPipe, nullptr, &AtOnce);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

ssize_t CChannel::Read(char* into, std::size_t room) const {
    return m_kind == EKind::Socket ? ::recv(m_readFd, into, room, MSG_DONTWAIT)
                                   : ::read(m_readFd, into, room);
}

ssize_t CChannel::Write(const iovec* parts, std::size_t count) const {
    if (m_kind == EKind::Pipes) return WriteToPipe(m_writeFd, parts, count);
    if (m_kind == EKind::AsTheyAre) {
        return count == 1 ? ::write(m_writeFd, parts->iov_base, parts->iov_len)
                          : ::writev(m_writeFd, parts, static_cast<int>(count));
    }
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(parts);
    message.msg_iovlen = count;
    return ::sendmsg(m_writeFd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace apigen::common
