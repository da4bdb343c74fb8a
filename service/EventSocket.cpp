// SPDX-License-Identifier: Apache-2.0
#include "service/EventSocket.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "support/common/ProcessMark.h"
#include "support/common/Waiting.h"

namespace zamservice {
namespace {

using apigen::common::AwayFromStandardStreams;
using apigen::common::CDescriptor;
using apigen::common::Clock;
using apigen::common::RetryInterrupted;

[[noreturn]] void Refuse(int errorNumber, const std::string& what) {
    throw std::system_error(errorNumber, std::generic_category(), what);
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        Refuse(ENAMETOOLONG, "Can't listen on the event socket " + path + " of " +
                                 std::to_string(path.size()) + " bytes, where " +
                                 std::to_string(sizeof address.sun_path - 1) + " are possible");
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

bool HoldsAnythingBut(const std::string& directory, const std::string& name) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.c_str()), &::closedir);
    if (entries == nullptr) ThrowErrno("Reading the directory " + directory + " failed");
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this stream
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string found = entry->d_name;
        if (found != "." && found != ".." && found != name) return true;
    }
    return false;
}

CDescriptor OpenPrivateDirectory(const std::string& directory, const std::string& name) {
    constexpr mode_t OthersMask = S_IRWXG | S_IRWXO;
    const bool isNew = ::mkdir(directory.c_str(), S_IRWXU) == 0;
    if (!isNew && errno != EEXIST) ThrowErrno("Making the directory " + directory + " failed");
    CDescriptor opened =
        AwayFromStandardStreams(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened) ThrowErrno("Opening the directory " + directory + " failed");
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) ThrowErrno("Examining the directory " + directory + " failed");
    if (status.st_uid != ::geteuid()) {
        Refuse(EPERM, "The directory " + directory + " of the event socket belongs to another user (" +
                          std::to_string(status.st_uid) + ")");
    }
    if ((status.st_mode & OthersMask) == 0) return opened;
    if (!isNew && HoldsAnythingBut(directory, name)) {
        // Closing it might break whatever else lives there: it could be /run.
        Refuse(EPERM, "The directory " + directory +
                          " of the event socket is open to others and holds other files; name a private one");
    }
    if (::fchmod(opened.Get(), S_IRWXU) != 0)
        ThrowErrno("Closing the directory " + directory + " to others failed");
    return opened;
}

CDescriptor NewSocket() {
    CDescriptor socket =
        AwayFromStandardStreams(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) ThrowErrno("Making the event socket failed");
    return socket;
}

/// Removes what a process left behind; refuses anything else.
void RemoveStaleSocket(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return;
        ThrowErrno("Examining " + path + " failed");
    }
    if (!S_ISSOCK(status.st_mode)) {
        Refuse(EEXIST, "Can't listen on the event socket " + path + ": another file stands there");
    }
    const CDescriptor probe = NewSocket();
    const int connected = RetryInterrupted(
        [&] { return ::connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address); });
    if (connected == 0 || errno == EAGAIN) {
        Refuse(EADDRINUSE, "Can't listen on the event socket " + path + ": another process does");
    }
    if (errno != ECONNREFUSED) ThrowErrno("Asking who listens on " + path + " failed");
    if (::unlink(path.c_str()) != 0) ThrowErrno("Removing the abandoned socket " + path + " failed");
}

/// The program may change its working directory, and its clients have others.
std::string Absolute(std::string directory) {
    if (directory.empty()) Refuse(ENOENT, "The directory of the event socket has no name");
    if (directory.find('\0') != std::string::npos) {
        Refuse(EINVAL, "The name of the event socket's directory holds a zero byte");
    }
    std::error_code error;
    directory = std::filesystem::absolute(directory, error);
    if (error)
        Refuse(error.value(), "Finding the working directory, in which the event socket stands, failed");
    while (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
    return directory;
}

void CheckName(const std::string& name) {
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string("/\0", 2)) != name.npos) {
        Refuse(EINVAL, "The event socket can't have the name \"" + name + '"');
    }
}

/// Two processes that start at once take turns, so that neither removes the socket of the other.
void Lock(const CDescriptor& opened, const std::string& directory, std::chrono::milliseconds limit) {
    constexpr int PauseMilliseconds = 5;
    const auto deadline = apigen::common::DeadlineAfter(limit);
    while (RetryInterrupted([&] { return ::flock(opened.Get(), LOCK_EX | LOCK_NB); }) != 0) {
        if (errno != EWOULDBLOCK) ThrowErrno("Locking the directory " + directory + " failed");
        if (Clock::now() >= deadline) {
            Refuse(EBUSY, "The directory " + directory +
                              " of the event socket is locked by another process, and stayed so for " +
                              std::to_string(limit.count()) + " ms");
        }
        ::poll(nullptr, 0, PauseMilliseconds);
    }
}

}  // namespace

void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool IsOwnUserOrRoot(int connection) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == ::geteuid() || peer.uid == 0);
}

CEventSocket::CEventSocket(const std::string& givenDirectory, const std::string& name,
                           std::chrono::milliseconds startLimit)
    : m_path((CheckName(name), Absolute(givenDirectory) + "/" + name)) {
    const std::string directory = m_path.substr(0, m_path.size() - name.size() - 1);
    const sockaddr_un address = AddressOf(m_path);
    const CDescriptor opened = OpenPrivateDirectory(directory, name);
    Lock(opened, directory, startLimit);
    RemoveStaleSocket(m_path, address);
    m_listener = NewSocket();
    if (::bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ThrowErrno("Binding the event socket " + m_path + " failed");
    }
    struct stat status {};
    if (::chmod(m_path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::lstat(m_path.c_str(), &status) != 0 ||
        ::listen(m_listener.Get(), SOMAXCONN) != 0) {
        const int error = errno;
        ::unlink(m_path.c_str());
        Refuse(error, "Listening on the event socket " + m_path + " failed");
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

void CEventSocket::Close() noexcept {
    if (!m_listener) return;
    if (m_origin.IsHere()) {
        // Only what is ours still: a successor may have replaced it.
        struct stat status {};
        if (::lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode) {
            ::unlink(m_path.c_str());
        }
        // A copy in a forked process would keep the socket, and who waits to be accepted, alive.
        while (CDescriptor(::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC))) {
        }
        ::shutdown(m_listener.Get(), SHUT_RDWR);
    }
    m_listener.Close();
}

}  // namespace zamservice
