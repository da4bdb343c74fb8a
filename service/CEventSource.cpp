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
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "service/CSubscriber.h"
#include "service/EventSocket.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"
#include "support/common/ProcessMark.h"
#include "support/common/Quietly.h"
#include "support/common/Waiting.h"

namespace zamservice {
namespace {

using apigen::common::AwayFromStandardStreams;
using apigen::common::CDescriptor;
using apigen::common::Clock;
using apigen::common::DeadlineAfter;
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

/// A fork copies the memory of a source and shares its descriptors, but not its thread. `m_origin` tells the
/// process that it belongs to; in any other the mutex may be held for ever and the containers be half changed.
class CEventSource::Impl {
public:
    Impl(const std::string& directory, const std::string& name, const SEventSourceOptions& options)
        : m_options(options), m_socket(directory, name, options.StartLimit) {
        m_epoll = AwayFromStandardStreams(::epoll_create1(EPOLL_CLOEXEC));
        m_wake = AwayFromStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        m_spare = OpenSpare();
        if (!m_epoll || !m_wake || !m_spare) ThrowErrno("Preparing the event source failed");
        Watch(m_socket.Descriptor(), ListenerId);
        Watch(m_wake.Get(), WakeId);
        const CSignalsBlocked blocked;
        // No std::thread: its destructor can't leave a thread alone that another process has.
        const auto run = [](void* self) -> void* {
            static_cast<Impl*>(self)->Run();
            return nullptr;
        };
        if (const int error = ::pthread_create(&m_thread, nullptr, run, this); error != 0) {
            throw std::system_error(error, std::generic_category(),
                                    "Starting the event source's thread failed");
        }
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl() {
        const apigen::common::CNoCancellation uncancelled;
        Stop();
    }

    /// True when nothing but the memory could be left: a fork met it in the middle of a change.
    bool IsToBeAbandoned() {
        if (IsOurs()) return false;
        if (!m_mutex.try_lock()) return true;
        m_mutex.unlock();
        return false;
    }

    const std::string& Path() const noexcept { return m_socket.Path(); }

    void Publish(const zamclientlib::SBaseEvent& event) {
        if (!IsOurs()) {
            throw apigen::ApiInternalError(
                "Cannot publish an event: the event source belongs to the process that this one was forked "
                "from");
        }
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
        if (!IsOurs()) return 0;
        const std::lock_guard lock(m_mutex);
        if (!m_isStopping) TakeInNewcomers();
        return CountOpen();
    }

    void Stop() noexcept {
        if (!IsOurs()) return;
        std::call_once(m_stopOnce, [this] {
            {
                const std::lock_guard lock(m_mutex);
                m_isStopping = true;
                m_flushDeadline = DeadlineAfter(m_options.FlushLimit);
                ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, m_socket.Descriptor(), nullptr);
                m_socket.Close();
                Wake();
            }
            ::pthread_join(m_thread, nullptr);
            const std::lock_guard lock(m_mutex);
            ForEachSubscriber([](const CSubscriber&) { return false; });
        });
    }

private:
    using Id = std::uint64_t;
    static constexpr Id ListenerId = 0;
    static constexpr Id WakeId = 1;

    /// How long clients are left waiting when the system has no room for one more.
    static constexpr std::chrono::milliseconds AcceptPause{100};

    bool IsOurs() const noexcept { return m_origin.IsHere(); }

    static CDescriptor OpenSpare() noexcept {
        return AwayFromStandardStreams(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }

    void Watch(int descriptor, Id id) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = id;
        if (::epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
            ThrowErrno("Watching a socket of the event source failed");
        }
    }

    void WatchListener(bool isWatched) noexcept {
        epoll_event event{};
        if (isWatched) event.events = EPOLLIN;
        event.data.u64 = ListenerId;
        ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_MOD, m_socket.Descriptor(), &event);
    }

    /// The source's thread.
    void Run() noexcept {
        std::array<epoll_event, 64> events{};
        while (true) {
            const int count =
                ::epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()), WaitLimit());
            const std::lock_guard lock(m_mutex);
            m_wakesAt = Clock::time_point::min();
            for (int i = 0; i < count; ++i) {
                Handle(events[static_cast<std::size_t>(i)]);
            }
            if (Clock::now() >= m_acceptAgain && !m_isStopping) Accept();
            CloseLateNewcomers();
            if (m_isStopping && IsFlushed()) return;
        }
    }

    int WaitLimit() {
        const std::lock_guard lock(m_mutex);
        m_wakesAt = m_isStopping ? m_flushDeadline : m_acceptAgain;
        for (const auto& [id, subscriber] : m_subscribers) {
            m_wakesAt = std::min(m_wakesAt, subscriber.OpeningDeadline());
        }
        return apigen::common::PollTimeout(m_wakesAt);
    }

    void Wake() noexcept {
        const std::uint64_t one = 1;
        (void)RetryInterrupted([&] { return ::write(m_wake.Get(), &one, sizeof one); });
    }

    /// The source's thread has something to do at `deadline`; it may be asleep for longer.
    void WakeBy(Clock::time_point deadline) noexcept {
        if (deadline >= m_wakesAt) return;
        m_wakesAt = deadline;
        Wake();
    }

    void Handle(const epoll_event& event) {
        const std::uint64_t id = event.data.u64;  // a copy: there, it may lie at any address
        if (id == ListenerId) {
            if (!m_isStopping) Accept();
        } else if (id == WakeId) {
            std::uint64_t ignored = 0;
            (void)::read(m_wake.Get(), &ignored, sizeof ignored);
        } else if (const auto found = m_subscribers.find(id); found != m_subscribers.end()) {
            if (!found->second.Handle(event.events)) Disconnect(found);
        }
    }

    using Subscribers = std::map<Id, CSubscriber>;

    Subscribers::iterator Disconnect(Subscribers::iterator entry) {
        entry->second.Disconnect();
        return m_subscribers.erase(entry);
    }

    /// Calls `isKept` for each subscriber and disconnects those for which it is false.
    template <class F>
    void ForEachSubscriber(F isKept) {
        for (auto entry = m_subscribers.begin(); entry != m_subscribers.end();) {
            entry = isKept(entry->second) ? std::next(entry) : Disconnect(entry);
        }
    }

    void TakeInNewcomers() {
        Accept();
        ForEachSubscriber(
            [](CSubscriber& subscriber) { return subscriber.IsOpen() || subscriber.Receive(); });
    }

    void Accept() {
        while (true) {
            CDescriptor connection = AwayFromStandardStreams(
                ::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (connection) {
                if (IsWelcome(connection.Get())) Add(std::move(connection));
            } else if (errno == EAGAIN) {
                return GoOnAccepting();
            } else if (errno == EMFILE || errno == ENFILE) {
                if (!TurnAway()) return errno == EAGAIN ? GoOnAccepting() : PauseAccepting();
            } else if (errno != EINTR && errno != ECONNABORTED) {
                return PauseAccepting();
            }
        }
    }

    /// A client that can be neither accepted nor turned away keeps the listener readable, and would keep the
    /// thread busy.
    void PauseAccepting() noexcept {
        if (!IsPausing()) WatchListener(false);
        m_acceptAgain = DeadlineAfter(AcceptPause);
        WakeBy(m_acceptAgain);
    }

    void GoOnAccepting() noexcept {
        if (!m_spare) m_spare = OpenSpare();
        if (!IsPausing()) return;
        WatchListener(true);
        m_acceptAgain = Clock::time_point::max();
    }

    bool IsPausing() const noexcept { return m_acceptAgain != Clock::time_point::max(); }

    bool IsWelcome(int connection) const {
        return m_subscribers.size() < m_options.MaxSubscribers && IsOwnUserOrRoot(connection);
    }

    void Add(CDescriptor connection) {
        const Id id = ++m_lastId;
        const auto deadline = DeadlineAfter(m_options.OpeningLimit);
        try {
            Watch(connection.Get(), id);
            m_subscribers.emplace(std::piecewise_construct, std::forward_as_tuple(id),
                                  std::forward_as_tuple(std::move(connection), m_epoll.Get(), id, deadline));
        } catch (const std::exception&) {
            return;  // out of memory or watches: the connection closes, which tells its client
        }
        WakeBy(deadline);
    }

    /// Out of descriptors: closes the next connection with the help of the spare one. False with accept's
    /// error number when that fails as well: others may have taken the spare one's place.
    bool TurnAway() noexcept {
        m_spare.Close();
        CDescriptor refused(::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
        const int error = errno;
        const bool isRefused = static_cast<bool>(refused);
        refused.Close();
        m_spare = OpenSpare();
        errno = error;
        return isRefused;
    }

    /// One whose word has come is not late, however late this thread is.
    void CloseLateNewcomers() {
        const auto now = Clock::now();
        ForEachSubscriber([&](CSubscriber& subscriber) {
            return subscriber.OpeningDeadline() > now || (subscriber.Receive() && subscriber.IsOpen());
        });
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
    const apigen::common::CProcessMark m_origin;
    std::mutex m_mutex;
    CEventSocket m_socket;
    CDescriptor m_epoll;
    CDescriptor m_wake;
    CDescriptor m_spare;
    Subscribers m_subscribers;
    Id m_lastId = WakeId;  ///< never reused: an event that is under way never meets another subscriber
    bool m_isStopping = false;
    Clock::time_point m_flushDeadline{};
    Clock::time_point m_acceptAgain = Clock::time_point::max();  ///< while accepting pauses: its end
    Clock::time_point m_wakesAt = Clock::time_point::min();      ///< of the thread; `min` while it is awake
    std::once_flag m_stopOnce;
    pthread_t m_thread{};
};

CEventSource::CEventSource(const std::string& directory, const std::string& name,
                           const SEventSourceOptions& options)
    : m_impl(std::make_unique<Impl>(directory, name, options)) {}

CEventSource::~CEventSource() {
    if (m_impl->IsToBeAbandoned()) (void)m_impl.release();
}

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
