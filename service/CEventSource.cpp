// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/IIoDev.h>
#include <zamservice/EventSource.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "service/CSubscriber.h"
#include "service/EventSocket.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"
#include "support/common/Waiting.h"

namespace zamservice {
namespace {

using apigen::common::CDescriptor;
using apigen::common::Clock;
using apigen::common::RetryInterrupted;

/// A frame with the event's document.
std::string FrameOf(const zamclientlib::SBaseEvent& event) {
    const std::string text = apigen::SerializeDocument("Event", event);
    if (text.size() > apigen::IIoDev::MaxMessageBytes) {
        throw apigen::ApiInternalError("Cannot publish an event of " + std::to_string(text.size()) +
                                       " bytes: the limit of a message is " +
                                       std::to_string(apigen::IIoDev::MaxMessageBytes) + " bytes");
    }
    const auto header = apigen::common::EncodeHeader(text.size());
    std::string frame;
    frame.reserve(header.size() + text.size());
    return frame.append(header.data(), header.size()).append(text);
}

/// While it lives, threads start with every signal blocked: the program's signals stay with its own threads.
class CSignalsBlocked {
public:
    CSignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    CSignalsBlocked(const CSignalsBlocked&) = delete;
    CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;
    ~CSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

}  // namespace

class CEventSource::Impl {
public:
    Impl(const std::string& directory, const std::string& name, const SEventSourceOptions& options)
        : m_options(options), m_socket(directory, name) {
        m_epoll = CDescriptor(::epoll_create1(EPOLL_CLOEXEC));
        m_wake = CDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        m_spare = CDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!m_epoll || !m_wake || !m_spare) ThrowErrno("Preparing the event source failed");
        Watch(m_socket.Descriptor(), ListenerId);
        Watch(m_wake.Get(), WakeId);
        const CSignalsBlocked blocked;
        m_thread = std::thread([this] { Run(); });
    }

    ~Impl() {
        const apigen::common::CNoCancellation uncancelled;
        Stop();
    }

    const std::string& Path() const noexcept { return m_socket.Path(); }

    void Publish(const zamclientlib::SBaseEvent& event) {
        const std::lock_guard lock(m_mutex);
        if (m_isStopping) return;
        // Whoever connected before this call is to see the event, however late the source's thread runs.
        TakeInNewcomers();
        if (CountOpen() == 0) return;
        const auto frame = std::make_shared<const std::string>(FrameOf(event));
        ForEachSubscriber([&](CSubscriber& subscriber) {
            return !subscriber.IsOpen() || subscriber.Send(frame, m_options.MaxQueuedBytes);
        });
    }

    std::size_t SubscriberCount() {
        const std::lock_guard lock(m_mutex);
        if (!m_isStopping) TakeInNewcomers();
        return CountOpen();
    }

    void Stop() noexcept {
        std::call_once(m_stopOnce, [this] {
            {
                const std::lock_guard lock(m_mutex);
                m_isStopping = true;
                m_flushDeadline = Clock::now() + m_options.FlushLimit;
                m_socket.Close();
            }
            const std::uint64_t one = 1;
            (void)RetryInterrupted([&] { return ::write(m_wake.Get(), &one, sizeof one); });
            m_thread.join();
            const std::lock_guard lock(m_mutex);
            m_subscribers.clear();
        });
    }

private:
    using Id = std::uint64_t;
    static constexpr Id ListenerId = 0;
    static constexpr Id WakeId = 1;

    void Watch(int descriptor, Id id) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = id;
        if (::epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
            ThrowErrno("Watching a socket of the event source failed");
        }
    }

    /// The source's thread.
    void Run() noexcept {
        std::array<epoll_event, 64> events{};
        while (true) {
            const int count =
                ::epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()), WaitLimit());
            const std::lock_guard lock(m_mutex);
            for (int i = 0; i < count; ++i) {
                Handle(events[static_cast<std::size_t>(i)]);
            }
            CloseLateNewcomers();
            if (m_isStopping && IsFlushed()) return;
        }
    }

    int WaitLimit() {
        const std::lock_guard lock(m_mutex);
        auto next = m_isStopping ? m_flushDeadline : Clock::time_point::max();
        for (const auto& [id, subscriber] : m_subscribers) {
            next = std::min(next, subscriber.OpeningDeadline());
        }
        return apigen::common::PollTimeout(next);
    }

    void Handle(const epoll_event& event) {
        if (event.data.u64 == ListenerId) {
            if (!m_isStopping) Accept();
        } else if (event.data.u64 == WakeId) {
            std::uint64_t ignored = 0;
            (void)::read(m_wake.Get(), &ignored, sizeof ignored);
        } else if (const auto found = m_subscribers.find(event.data.u64); found != m_subscribers.end()) {
            if (!found->second.Handle(event.events)) m_subscribers.erase(found);
        }
    }

    /// Calls `isKept` for each subscriber and disconnects those for which it is false.
    template <class F>
    void ForEachSubscriber(F isKept) {
        for (auto entry = m_subscribers.begin(); entry != m_subscribers.end();) {
            entry = isKept(entry->second) ? std::next(entry) : m_subscribers.erase(entry);
        }
    }

    void TakeInNewcomers() {
        Accept();
        ForEachSubscriber(
            [](CSubscriber& subscriber) { return subscriber.IsOpen() || subscriber.Receive(); });
    }

    void Accept() {
        while (true) {
            CDescriptor connection(
                ::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (connection) {
                if (IsWelcome(connection.Get())) Add(std::move(connection));
            } else if (errno == EMFILE || errno == ENFILE) {
                if (!TurnAway()) return;
            } else if (errno != EINTR && errno != ECONNABORTED) {
                return;
            }
        }
    }

    bool IsWelcome(int connection) const {
        return m_subscribers.size() < m_options.MaxSubscribers && IsOwnUserOrRoot(connection);
    }

    void Add(CDescriptor connection) {
        const Id id = ++m_lastId;
        try {
            Watch(connection.Get(), id);
            m_subscribers.emplace(std::piecewise_construct, std::forward_as_tuple(id),
                                  std::forward_as_tuple(std::move(connection), m_epoll.Get(), id,
                                                        Clock::now() + m_options.OpeningLimit));
        } catch (const std::exception&) {
            // Out of memory or watches: the connection closes, which tells its client.
        }
    }

    /// Out of descriptors: closes the next connection with the help of the spare one. Left waiting it would
    /// keep the listener readable and this thread busy.
    bool TurnAway() {
        m_spare.Close();
        CDescriptor refused(::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
        const bool isRefused = static_cast<bool>(refused);
        refused.Close();
        m_spare = CDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        return isRefused;
    }

    void CloseLateNewcomers() {
        const auto now = Clock::now();
        ForEachSubscriber([&](const CSubscriber& subscriber) { return subscriber.OpeningDeadline() > now; });
    }

    bool IsFlushed() const {
        if (Clock::now() >= m_flushDeadline) return true;
        for (const auto& [id, subscriber] : m_subscribers) {
            if (subscriber.HasQueue()) return false;
        }
        return true;
    }

    std::size_t CountOpen() const {
        std::size_t count = 0;
        for (const auto& [id, subscriber] : m_subscribers) {
            if (subscriber.IsOpen()) ++count;
        }
        return count;
    }

    const SEventSourceOptions m_options;
    std::mutex m_mutex;
    CEventSocket m_socket;
    CDescriptor m_epoll;
    CDescriptor m_wake;
    CDescriptor m_spare;
    std::map<Id, CSubscriber> m_subscribers;
    Id m_lastId = WakeId;  ///< never reused: an event that is under way never meets another subscriber
    bool m_isStopping = false;
    Clock::time_point m_flushDeadline{};
    std::once_flag m_stopOnce;
    std::thread m_thread;
};

CEventSource::CEventSource(const std::string& directory, const std::string& name,
                           const SEventSourceOptions& options)
    : m_impl(std::make_unique<Impl>(directory, name, options)) {}

CEventSource::~CEventSource() = default;

void CEventSource::Publish(const zamclientlib::SBaseEvent& event) {
    // It may accept newcomers, and a cancelled thread would lose one between the system and its descriptor.
    const apigen::common::CNoCancellation uncancelled;
    m_impl->Publish(event);
}

const std::string& CEventSource::SocketPath() const noexcept {
    return m_impl->Path();
}

zamclientlib::SEventConfig CEventSource::Config() const {
    return {zamclientlib::SEventConfigV1{SocketPath()}};
}

std::size_t CEventSource::SubscriberCount() const {
    const apigen::common::CNoCancellation uncancelled;
    return m_impl->SubscriberCount();
}

void CEventSource::Stop() noexcept {
    const apigen::common::CNoCancellation uncancelled;
    m_impl->Stop();
}

}  // namespace zamservice
