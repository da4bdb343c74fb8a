// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <zamclientlib/CEventsStream.h>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"
#include "support/common/Quietly.h"
#include "support/common/Waiting.h"

namespace zamclientlib {
namespace {

using apigen::common::CDescriptor;

[[noreturn]] void ThrowErrno(const char* text) {
    throw std::system_error(errno, std::generic_category(), text);
}

[[noreturn]] void ThrowCannotConnect(int errorNumber) {
    errno = errorNumber;
    ThrowErrno("Failed to connect to event socket");
}

/// How long a source may be too busy to have a place for one more client in its queue.
constexpr std::chrono::seconds ConnectLimit{5};

void LimitSending(const CDescriptor& socket, std::chrono::microseconds limit) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
    timeval value{};
    value.tv_sec = seconds.count();
    value.tv_usec = (limit - seconds).count();
    if (::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &value, sizeof value) != 0) {
        ThrowCannotConnect(errno);
    }
}

CDescriptor ConnectTo(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        ThrowErrno("Socket path to long.");
    }
    CDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) ThrowErrno("Failed to open socket");
    // The system would take such a path for the name of something else.
    if (path.empty()) ThrowCannotConnect(ENOENT);
    if (path.find('\0') != std::string::npos) ThrowCannotConnect(EINVAL);
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());

    const auto deadline = apigen::common::DeadlineAfter(ConnectLimit);
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(ConnectLimit);
    while (true) {
        // A zero would be no limit.
        LimitSending(socket, std::max(left, std::chrono::microseconds(1)));
        if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) break;
        // One that a signal cut short while it waited for its place has not begun, and is begun anew.
        if (errno == EAGAIN) ThrowCannotConnect(ETIMEDOUT);
        if (errno != EINTR) ThrowCannotConnect(errno);
        left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - apigen::common::Clock::now());
    }
    LimitSending(socket, {});
    return socket;
}

/// A descriptor that is readable when one of the two is.
CDescriptor EitherOf(int first, int second) {
    CDescriptor both(::epoll_create1(EPOLL_CLOEXEC));
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

}  // namespace

CEventsStream::CEventsStream(const SEventConfig& config, std::shared_ptr<apigen::ILogger> logger)
    : m_logger(std::move(logger)), m_process(apigen::common::CurrentProcessMark()) {
    const std::string& path = config.v1.Value().socketPath;
    if (m_logger != nullptr) m_logger->Info("Connecting to unix socket event source: " + path);
    CDescriptor socket = ConnectTo(path);
    // An empty message opens the stream. Should it fail to go out, the first read says why.
    const std::uint32_t openingWord = 0;
    (void)::send(socket.Get(), &openingWord, sizeof openingWord, MSG_NOSIGNAL);

    const int descriptor = socket.Get();
    m_stopped = std::make_shared<apigen::io::event::CAtomicEvent>();
    CDescriptor either = EitherOf(descriptor, m_stopped->Descriptor());
    // Memory is sought before the socket changes hands, which make_shared does the other way round.
    m_device.reset(new apigen::CInterruptibleIoDev(socket.Release()));  // NOLINT(modernize-make-shared)
    m_device->AddEvent(m_stopped);
    m_descriptor = either.Release();
}

CEventsStream::~CEventsStream() {
    const CDescriptor closed(m_descriptor);
}

SBaseEvent CEventsStream::Read() {
    m_device->SetDeadline(std::chrono::steady_clock::time_point::max());
    return ReadNext();
}

SBaseEvent CEventsStream::ReadNext() {
    return apigen::DeserializeDocument<SBaseEvent>(m_device->ReadView(), "Event");
}

apigen::Optional<SBaseEvent> CEventsStream::ReadUntil(std::chrono::steady_clock::time_point deadline) {
    m_device->SetDeadline(deadline);
    try {
        return ReadNext();
    } catch (const apigen::TimeoutError&) {
        return {};
    }
}

bool CEventsStream::IsOurs() const noexcept {
    return m_process == apigen::common::CurrentProcessMark();
}

void CEventsStream::Stop() {
    if (!IsOurs()) return;
    const std::string reason = "Event stream closed";
    // What the logger throws must not keep the stream open.
    if (m_logger != nullptr)
        apigen::common::Quietly([&] { m_logger->Info("Closing event stream: " + reason); });
    m_stopped->Set(reason);
}

bool CEventsStream::IsStopped() const {
    return m_stopped->IsSet();
}

}  // namespace zamclientlib
