// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CInterruptibleIoDev.h>
#include <zamclientlib/CEventsStream.h>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"
#include "support/common/Quietly.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace zamclientlib {
namespace {

using apigen::common::AwayFromStandardStreams;
using apigen::common::CDescriptor;

[[noreturn]] void ThrowErrno(const std::string& text) {
    throw std::system_error(errno, std::generic_category(), text);
}

[[noreturn]] void ThrowCannotConnect(int errorNumber, const std::string& path) {
    throw std::system_error(errorNumber, std::generic_category(),
                            "Failed to connect to event socket " + apigen::common::Quoted(path));
}

/// What the logger throws must keep no stream from being opened or stopped.
void Log(const std::shared_ptr<apigen::ILogger>& logger, const std::string& message) {
    if (logger != nullptr) apigen::common::Quietly([&] { logger->Info(message); });
}

/// How long a source may be too busy to have a place for one more client in its queue.
constexpr std::chrono::seconds ConnectLimit{5};

void LimitSending(const CDescriptor& socket, std::chrono::microseconds limit, const std::string& path) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
    timeval value{};
    value.tv_sec = seconds.count();
    value.tv_usec = (limit - seconds).count();
    if (::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &value, sizeof value) != 0) {
        ThrowCannotConnect(errno, path);
    }
}

CDescriptor ConnectTo(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(),
                                "Socket path to long. It may have " +
                                    std::to_string(sizeof address.sun_path - 1) + " bytes, and is " +
                                    apigen::common::Quoted(path));
    }
    CDescriptor socket = AwayFromStandardStreams(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) ThrowErrno("Failed to open socket");
    // The system would take such a path for the name of something else.
    if (path.empty()) ThrowCannotConnect(ENOENT, path);
    if (path.find('\0') != std::string::npos) ThrowCannotConnect(EINVAL, path);
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());

    const auto deadline = apigen::common::DeadlineAfter(ConnectLimit);
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(ConnectLimit);
    while (true) {
        // A zero would be no limit.
        LimitSending(socket, std::max(left, std::chrono::microseconds(1)), path);
        if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) break;
        // One that a signal cut short while it waited for its place has not begun, and is begun anew.
        if (errno == EAGAIN) ThrowCannotConnect(ETIMEDOUT, path);
        if (errno != EINTR) ThrowCannotConnect(errno, path);
        left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - apigen::common::Clock::now());
    }
    LimitSending(socket, {}, path);
    return socket;
}

/// A descriptor that is readable when one of the two is.
CDescriptor EitherOf(int first, int second) {
    CDescriptor both = AwayFromStandardStreams(::epoll_create1(EPOLL_CLOEXEC));
    if (!both) ThrowErrno("Failed to watch the event socket");
    for (const int each : {first, second}) {
        epoll_event event{};
        event.events = EPOLLIN;
        if (::epoll_ctl(both.Get(), EPOLL_CTL_ADD, each, &event) != 0) {
            ThrowErrno("Failed to watch the event socket");
        }
    }
    return both;
}

/// The process that listens at the other end, to be watched; none where nobody can tell.
CDescriptor OpenListener(const CDescriptor& socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) return {};
    return AwayFromStandardStreams(static_cast<int>(::syscall(SYS_pidfd_open, peer.pid, 0)));
}

}  // namespace

/// What any thread may use.
struct CEventsStream::SStop {
    apigen::common::CProcessMark Process;
    std::shared_ptr<apigen::ILogger> Logger;
    std::shared_ptr<apigen::io::event::CAtomicEvent> Event;
};

/// The other end, and what is known of it.
class CEventsStream::CSource {
public:
    CSource(std::string path, CDescriptor socket,
            const std::shared_ptr<apigen::io::event::CAtomicEvent>& stopped)
        : m_path(std::move(path)), m_listener(OpenListener(socket)) {
        m_isPlaceKnown = ::stat(m_path.c_str(), &m_place) == 0;
        m_either = EitherOf(socket.Get(), stopped->Descriptor());
        // Memory is sought before the socket changes hands, which make_unique does the other way round.
        m_device.reset(new apigen::CInterruptibleIoDev(socket.Release()));
        m_device->AddEvent(stopped);
    }

    apigen::CInterruptibleIoDev& Device() noexcept { return *m_device; }
    int Descriptor() const noexcept { return m_either.Get(); }
    std::string Name() const { return " (from the event socket " + apigen::common::Quoted(m_path) + ')'; }

    /// Whether it lives and publishes on, of a source that has ended the stream.
    bool IsAlive() {
        if (!m_isAlive) m_isAlive = IsListenerAlive() && IsAtItsPlace();
        return *m_isAlive;
    }

private:
    bool IsListenerAlive() const {
        if (!m_listener) return false;
        // A process that dies closes its sockets a moment before its end can be seen.
        const auto deadline = apigen::common::DeadlineAfter(std::chrono::milliseconds(100));
        pollfd ended{m_listener.Get(), POLLIN, 0};
        do {
            apigen::common::PollPatiently(&ended, 1, apigen::common::PollTimeout(deadline));
            if (ended.revents != 0) return false;
        } while (!apigen::common::IsPast(deadline));
        return true;
    }

    bool IsAtItsPlace() const {
        struct stat now {};
        return m_isPlaceKnown && ::stat(m_path.c_str(), &now) == 0 && now.st_dev == m_place.st_dev &&
               now.st_ino == m_place.st_ino;
    }

    std::string m_path;
    CDescriptor m_listener;
    struct stat m_place {};
    bool m_isPlaceKnown = false;
    std::optional<bool> m_isAlive;
    CDescriptor m_either;
    std::unique_ptr<apigen::CInterruptibleIoDev> m_device;
};

CEventsStream::CEventsStream(const SEventConfig& config, std::shared_ptr<apigen::ILogger> logger) {
    const std::string& path = config.v1.Value().socketPath;
    Log(logger, "Connecting to unix socket event source: " + path);
    CDescriptor socket = ConnectTo(path);
    // An empty message opens the stream. Should it fail to go out, the first read says why.
    const std::uint32_t openingWord = 0;
    (void)::send(socket.Get(), &openingWord, sizeof openingWord, MSG_NOSIGNAL);

    auto stopped = std::make_shared<apigen::io::event::CAtomicEvent>();
    m_source = std::make_unique<CSource>(path, std::move(socket), stopped);
    m_stop = std::make_shared<SStop>(SStop{{}, std::move(logger), std::move(stopped)});
    m_descriptor = m_source->Descriptor();
}

CEventsStream::CEventsStream(CEventsStream&& other) noexcept
    : m_source(std::move(other.m_source)),
      m_stop(other.m_stop),  // NOLINT: not moved, so that another thread may use it meanwhile
      m_descriptor(std::exchange(other.m_descriptor, -1)) {}

CEventsStream& CEventsStream::operator=(CEventsStream&& other) noexcept {
    if (this == &other) return *this;
    m_source = std::move(other.m_source);
    m_stop = other.m_stop;
    m_descriptor = std::exchange(other.m_descriptor, -1);
    return *this;
}

CEventsStream::~CEventsStream() = default;

SBaseEvent CEventsStream::Read() {
    return ReadNext(std::chrono::steady_clock::time_point::max());
}

SBaseEvent CEventsStream::ReadNext(std::chrono::steady_clock::time_point deadline) {
    if (!m_source) throw apigen::ApiInternalError("Cannot read from an event stream that was moved from");
    m_source->Device().SetDeadline(deadline);
    try {
        return apigen::DeserializeDocument<SBaseEvent>(m_source->Device().ReadView(), "Event");
    } catch (const apigen::TimeoutError&) {
        throw;
    } catch (apigen::PeerGoneError& error) {
        error.Append(m_source->Name());
        if (!m_stop->Process.IsHere() || !m_source->IsAlive()) throw;
        throw EventsLostError(
            std::string(
                "The agent lives and has disconnected this reader, as it does with one that falls behind. ") +
                error.what(),
            error.IsOrderly());
    } catch (apigen::ApiException& error) {
        error.Append(m_source->Name());
        throw;
    }
}

apigen::Optional<SBaseEvent> CEventsStream::ReadUntil(std::chrono::steady_clock::time_point deadline) {
    try {
        return ReadNext(deadline);
    } catch (const apigen::TimeoutError&) {
        return {};
    }
}

void CEventsStream::Stop() {
    if (!m_stop->Process.IsHere()) return;
    const std::string reason = "Event stream closed";
    Log(m_stop->Logger, "Closing event stream: " + reason);
    m_stop->Event->Set(reason);
}

bool CEventsStream::IsStopped() const {
    return m_stop->Event->IsSet();
}

CEventsStream::CIterator CEventsStream::begin() {
    CIterator first;
    first.m_stream = this;
    return ++first;
}

CEventsStream::CIterator CEventsStream::end() noexcept {
    return {};
}

CEventsStream::CIterator& CEventsStream::CIterator::operator++() {
    try {
        m_event = m_stream->Read();
    } catch (const apigen::InterruptedError&) {
        m_stream = nullptr;
    }
    return *this;
}

}  // namespace zamclientlib
