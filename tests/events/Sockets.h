// SPDX-License-Identifier: Apache-2.0
/// \file
/// Both ends of an event socket, by hand.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/CEventsStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "tests/MessageOf.h"

namespace tests {

using namespace std::chrono_literals;  // NOLINT: for tests alone

inline constexpr auto Patience = 20s;

class CTemporaryFolder {
public:
    CTemporaryFolder() {
        if (::mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("mkdtemp");
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder() { std::filesystem::remove_all(m_path); }

    const std::string& Path() const { return m_path; }

private:
    std::string m_path = "/tmp/events-XXXXXX";
};

class CSocket {
public:
    explicit CSocket(int fd) : m_fd(fd) {
        if (fd < 0) throw std::system_error(errno, std::generic_category(), "socket");
    }
    CSocket(CSocket&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    CSocket& operator=(CSocket&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~CSocket() { Close(); }

    static CSocket New() { return CSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

    /// Connects to an event source without the opening word.
    void Connect(const std::string& path) const {
        const auto address = AddressOf(path);
        if (::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::system_error(errno, std::generic_category(), "connect");
        }
    }

    static sockaddr_un AddressOf(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    int Fd() const { return m_fd; }
    void Close() {
        if (m_fd >= 0) ::close(std::exchange(m_fd, -1));
    }

    void Send(const std::string& bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t count = ::send(m_fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (count < 0) throw std::system_error(errno, std::generic_category(), "send");
            done += static_cast<std::size_t>(count);
        }
    }

    /// What comes next, at most `max` bytes; empty when the peer has closed the connection.
    std::string Receive(std::size_t max = 65536) const {
        pollfd item{m_fd, POLLIN, 0};
        const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(Patience).count();
        if (::poll(&item, 1, static_cast<int>(patience)) != 1) throw std::runtime_error("nothing has come");
        std::string bytes(max, '\0');
        const ssize_t count = ::recv(m_fd, bytes.data(), bytes.size(), 0);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

private:
    int m_fd;
};

inline const std::string OpeningWord(4, '\0');

inline CSocket Connected(const std::string& path, const std::string& opening = OpeningWord) {
    CSocket socket = CSocket::New();
    socket.Connect(path);
    if (!opening.empty()) socket.Send(opening);
    return socket;
}

inline std::string Frame(const std::string& text) {
    std::string frame;
    for (unsigned i = 0; i < 4; ++i) {
        frame += static_cast<char>(text.size() >> 8 * i);
    }
    return frame + text;
}

inline zamclientlib::SBaseEvent NumberedEvent(unsigned long id) {
    zamclientlib::SBaseEvent event;
    event.Type = zamclientlib::EEventType::BackupJobCreated;
    event.Id = id;
    event.eventBackupJobCreated = zamclientlib::SEventBackupJobCreated{{}, "tester"};
    return event;
}

inline std::string EventFrame(const zamclientlib::SBaseEvent& event) {
    const auto document = apigen::CXmlData::CreateNew();
    apigen::Serialize(*document, "Event", event);
    return Frame(apigen::CXmlData::Serialize(*document));
}

inline std::string EventFrame(unsigned long id) {
    return EventFrame(NumberedEvent(id));
}

inline zamclientlib::SEventConfig ConfigFor(const std::string& path) {
    return {zamclientlib::SEventConfigV1{path}};
}

/// An event source by hand.
class CRawServer {
public:
    /// Whether a reader whose connection ends finds the source's process alive.
    enum class EProcess {
        Lives,
        IsGone
    };

    explicit CRawServer(const std::string& path, int backlog = 8, EProcess process = EProcess::Lives)
        : m_listener(CSocket::New()) {
        const auto address = CSocket::AddressOf(path);
        if (::bind(m_listener.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            !(process == EProcess::Lives ? Listen(backlog) : ListenInAProcessThatEnds(backlog))) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

    CSocket Accept() const { return CSocket(::accept4(m_listener.Fd(), nullptr, nullptr, SOCK_CLOEXEC)); }

private:
    bool Listen(int backlog) const { return ::listen(m_listener.Fd(), backlog) == 0; }
    bool ListenInAProcessThatEnds(int backlog) const {
        const pid_t child = ::fork();
        if (child == 0) ::_exit(Listen(backlog) ? 0 : 1);
        int status = -1;
        return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
    }

    CSocket m_listener;
};

/// Waits until `condition` holds; false when it does not in time.
inline bool Eventually(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + Patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

}  // namespace tests
