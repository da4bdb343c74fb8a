// SPDX-License-Identifier: Apache-2.0
/// \file
/// Ownership of a file descriptor.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "support/common/Quietly.h"

namespace apigen::common {

class CDescriptor {
public:
    CDescriptor() noexcept = default;
    explicit CDescriptor(int fd) noexcept : m_fd(fd) {}
    CDescriptor(CDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept {
        if (this != &other) Close(), m_fd = std::exchange(other.m_fd, -1);
        return *this;
    }
    ~CDescriptor() { Close(); }

    explicit operator bool() const noexcept { return m_fd >= 0; }

    /// -1 when there is none, which `poll` skips.
    int Get() const noexcept { return m_fd; }

    int Release() noexcept { return std::exchange(m_fd, -1); }

    /// Not repeated after EINTR: the descriptor is free by then and may be somebody else's. By the C library's
    /// function, which sanitizers know, though the thread might be cancelled there.
    void Close() noexcept {
        if (m_fd < 0) return;
        const CNoCancellation uncancelled;
        ::close(std::exchange(m_fd, -1));
    }

private:
    int m_fd = -1;
};

/// The descriptor, moved out of 0..2: a caller that has closed its standard streams must not find ours in
/// their place. None, with errno, when there is none or it can't be moved.
inline CDescriptor AwayFromStandardStreams(int fd) noexcept {
    CDescriptor descriptor(fd);
    if (fd > STDERR_FILENO || fd < 0) return descriptor;
    return CDescriptor(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

/// For a program's start: a standard stream that is closed becomes an empty one, so that no other file ever gets its
/// number. Those with lower numbers come first.
/// \return false, with errno, when it stays closed
inline bool OpenStandardStream(int stream) noexcept {
    return ::fcntl(stream, F_GETFD) >= 0 || ::open("/dev/null", O_RDWR) == stream;
}

}  // namespace apigen::common
