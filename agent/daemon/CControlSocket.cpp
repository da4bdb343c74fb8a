// SPDX-License-Identifier: Apache-2.0
#include "agent/daemon/CControlSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "agent/daemon/Handover.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using apigen::common::CDescriptor;
using apigen::common::RetryInterrupted;

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

CDescriptor NewSocket() {
    CDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) ThrowErrno("Making the control socket failed");
    return socket;
}

}  // namespace

CDaemonLock::CDaemonLock(const std::string& runFolder) {
    const std::string path = runFolder + "/tarvod.lock";
    m_file = CDescriptor(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
    if (!m_file) ThrowErrno("Opening " + path + " failed");
    std::array<char, 32> text{};
    if (RetryInterrupted([&] { return ::flock(m_file.Get(), LOCK_EX | LOCK_NB); }) != 0) {
        if (errno != EWOULDBLOCK) ThrowErrno("Locking " + path + " failed");
        const ssize_t size = ::read(m_file.Get(), text.data(), text.size());
        const std::string_view pid(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
        throw STaken{"Another daemon runs already in " + runFolder + ": process " +
                     std::string(pid.substr(0, pid.find('\n')))};
    }
    // For people only: what counts is the lock.
    const std::string pid = std::to_string(::getpid()) + '\n';
    if (::ftruncate(m_file.Get(), 0) != 0 || ::write(m_file.Get(), pid.data(), pid.size()) < 0) {
        ThrowErrno("Writing " + path + " failed");
    }
}

CControlSocket::CControlSocket(const std::string& path) : m_path(path) {
    if (!TakeFromSystemd()) Bind();
}

bool CControlSocket::TakeFromSystemd() {
    const int count = ::sd_listen_fds(1);
    if (count < 0)
        throw std::system_error(-count, std::generic_category(), "Asking systemd for sockets failed");
    if (count == 0) return false;
    m_listener = CDescriptor(SD_LISTEN_FDS_START);
    if (count != 1 || ::sd_is_socket_unix(m_listener.Get(), SOCK_STREAM, 1, m_path.c_str(), 0) <= 0) {
        throw std::runtime_error("systemd handed over " + std::to_string(count) +
                                 " sockets, where one stream socket is expected that listens on " + m_path);
    }
    const int flags = ::fcntl(m_listener.Get(), F_GETFL);
    if (flags < 0 || ::fcntl(m_listener.Get(), F_SETFL, flags | O_NONBLOCK) != 0) {
        ThrowErrno("Setting up the socket of systemd failed");
    }
    return m_isFromSystemd = true;
}

void CControlSocket::Bind() {
    const sockaddr_un address = handover::AddressOf(m_path);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    struct stat status {};
    if (::lstat(m_path.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            throw std::runtime_error("Can't listen on " + m_path + ": another file stands there");
        }
        // The lock is ours, so no daemon listens; systemd may, on our behalf.
        const CDescriptor probe = NewSocket();
        if (::connect(probe.Get(), generic, sizeof address) == 0 || errno == EAGAIN) {
            throw STaken{"Can't listen on " + m_path +
                         ": another process does (systemd, perhaps: then start " +
                         "the service tarvod instead)"};
        }
        if (::unlink(m_path.c_str()) != 0) ThrowErrno("Removing the abandoned socket " + m_path + " failed");
    }
    m_listener = NewSocket();
    if (::bind(m_listener.Get(), generic, sizeof address) != 0) ThrowErrno("Binding " + m_path + " failed");
    if (::chmod(m_path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::lstat(m_path.c_str(), &status) != 0 ||
        ::listen(m_listener.Get(), SOMAXCONN) != 0) {
        const int error = errno;
        ::unlink(m_path.c_str());
        throw std::system_error(error, std::generic_category(), "Listening on " + m_path + " failed");
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

void CControlSocket::Hide() noexcept {
    struct stat status {};
    if (m_inode != 0 && ::lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
        status.st_ino == m_inode) {
        ::unlink(m_path.c_str());
    }
    m_inode = 0;
}

void CControlSocket::Close() noexcept {
    Hide();
    m_listener.Close();
}

}  // namespace tarvo
