// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/StreamedXmlInvokerImpl.h>

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/apigen/CallLimits.h"
#include "support/apigen/CallText.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/Timeout.h"
#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"
#include "support/common/Quietly.h"
#include "support/common/Waiting.h"

namespace apigen {

namespace {

using common::Clock;

/// Who may use the stream, and whether anybody still may.
///
/// The mutex is never held while anybody waits for the peer.
class CTurns {
public:
    /// Waits for its turn; takes over the releases that have to go out first.
    /// \throws TimeoutError at the deadline, InterruptedError, PeerGoneError when the stream is lost
    std::vector<std::string> Take(const SCallLimits& limits) {
        std::unique_lock lock(m_mutex);
        const bool hasWaited = IsToWait();
        if (hasWaited) limits.Event == nullptr ? Await(lock, limits.Deadline) : AwaitEither(lock, limits);
        if (!m_lostCause.empty())
            throw PeerGoneError("The connection was given up after an earlier failure: " + m_lostCause);
        if (hasWaited || limits.IsOfScope) RequireTime(limits, hasWaited);
        m_isTaken = true;
        return std::exchange(m_releases, {});
    }

    /// Takes the turn if nobody has it; false otherwise, with the reason if it's that the stream is lost.
    bool TryTake(std::string& lostCause) {
        const std::lock_guard lock(m_mutex);
        lostCause = m_lostCause;
        return !m_isTaken && m_lostCause.empty() && (m_isTaken = true);
    }

    /// Takes the turn if nobody has it, and hands over the releases that go out before this one. If somebody has, this
    /// one waits for the next message, too. False when there is nothing to do.
    bool TakeFor(const std::string& release, std::vector<std::string>& before) {
        const std::lock_guard lock(m_mutex);
        if (!m_lostCause.empty()) return false;
        if (m_isTaken) {
            m_releases.push_back(release);
            return false;
        }
        before.swap(m_releases);
        return m_isTaken = true;
    }

    void GiveBack() noexcept {
        const std::lock_guard lock(m_mutex);
        m_isTaken = false;
        WakeOne();
    }

    /// Ends all turns for good. True the first time.
    bool Lose(const char* cause) noexcept {
        const std::lock_guard lock(m_mutex);
        m_freed.notify_all();
        WakeWatchers();
        if (!m_lostCause.empty()) return false;
        try {
            m_lostCause = *cause != '\0' ? cause : "unknown";
        } catch (const std::bad_alloc&) {
            m_lostCause = "no memory";  // short enough to need none
        }
        return true;
    }

private:
    /// One who waits for an event as well as for its turn: by a descriptor, since an event wakes no condition variable.
    class CWatcher {
    public:
        CWatcher(CTurns& turns, std::unique_lock<std::mutex>& lock)
            : m_turns(turns),
              m_lock(lock),
              m_freed(common::AwayFromStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
            if (m_freed) turns.m_watchers.push_back(m_freed.Get());
        }
        CWatcher(const CWatcher&) = delete;
        CWatcher& operator=(const CWatcher&) = delete;
        ~CWatcher() {
            if (!m_lock.owns_lock()) m_lock.lock();
            auto& watchers = m_turns.m_watchers;
            watchers.erase(std::remove(watchers.begin(), watchers.end(), m_freed.Get()), watchers.end());
        }

        void Wait(const SCallLimits& limits) {
            m_lock.unlock();
            std::array<pollfd, 2> set{pollfd{m_freed.Get(), POLLIN, 0},
                                      pollfd{limits.Event->Descriptor(), POLLIN, 0}};
            int timeout = common::PollTimeout(limits.Deadline);
            // Without a descriptor to spare, one asks now and then.
            constexpr int Round = 10;
            if (!m_freed) timeout = timeout < 0 ? Round : std::min(timeout, Round);
            common::PollPatiently(set.data(), set.size(), timeout);
            eventfd_t ignored = 0;
            if (m_freed) ::eventfd_read(m_freed.Get(), &ignored);
            m_lock.lock();
        }

    private:
        CTurns& m_turns;
        std::unique_lock<std::mutex>& m_lock;
        common::CDescriptor m_freed;
    };

    bool IsToWait() const noexcept { return m_isTaken && m_lostCause.empty(); }

    void Await(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
        while (IsToWait()) {
            if (deadline == Clock::time_point::max()) {
                m_freed.wait(lock);
            } else if (m_freed.wait_until(lock, deadline) == std::cv_status::timeout) {
                return;
            }
        }
    }

    void AwaitEither(std::unique_lock<std::mutex>& lock, const SCallLimits& limits) {
        CWatcher watcher(*this, lock);
        while (IsToWait() && !limits.IsCancelled() && !common::IsPast(limits.Deadline))
            watcher.Wait(limits);
    }

    /// Lets nobody begin who has no time for it.
    void RequireTime(const SCallLimits& limits, bool hasWaited) {
        const bool isCancelled = limits.IsCancelled();
        if (!m_isTaken && !isCancelled && !common::IsPast(limits.Deadline)) return;
        // Who was woken for this turn hands it on.
        if (!m_isTaken) WakeOne();
        if (isCancelled)
            throw InterruptedError("The call had not begun when it was ended: " + limits.Event->Reason());
        throw TimeoutError(hasWaited
                               ? "The connection was busy with other calls until the time for this one was up"
                               : "The time for the call was up before it began");
    }

    void WakeOne() noexcept {
        m_freed.notify_one();
        WakeWatchers();
    }

    void WakeWatchers() const noexcept {
        for (const int each : m_watchers)
            ::eventfd_write(each, 1);
    }

    std::mutex m_mutex;
    std::condition_variable m_freed;
    std::vector<int> m_watchers;
    bool m_isTaken = false;
    std::string m_lostCause;  // empty as long as the stream can be trusted
    std::vector<std::string> m_releases;
};

}  // namespace

class StreamedXmlInvokerImpl::Impl {
public:
    Impl(StreamedXmlInvokerImpl& owner, std::shared_ptr<IIoDev> device,
         std::shared_ptr<IApiExceptionGenerator> generator, SInvokerOptions options)
        : m_owner(owner),
          m_device(std::move(device)),
          m_generator(std::move(generator)),
          m_options(std::move(options)),
          m_turns(std::make_unique<CTurns>()) {
        RequireTimeout(m_options.CallTimeout);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        // In a copy of the process, threads that were left behind in the original seem to wait here for ever.
        // Their memory goes back, without their end.
        if (!m_origin.IsHere()) ::operator delete(m_turns.release());
    }

    /// Sends `request`, if there is one, and takes the next message for its answer.
    std::shared_ptr<IData> Call(const std::string* request, ResultReader read, void* result,
                                std::chrono::milliseconds timeout) {
        if (!m_origin.IsHere()) throw PeerGoneError(ForkedText);
        if (m_options.IsEachCallLogged && m_options.Logger != nullptr && !t_isLogging)
            return LoggedCall(request, read, result, timeout);
        return PlainCall(request, read, result, timeout);
    }

    /// In the time of a call.
    std::shared_ptr<IData> Call(const std::string* request, ResultReader read, void* result) {
        return Call(request, read, result, m_options.CallTimeout);
    }

    SConnectionState State() {
        if (!m_origin.IsHere()) return {false, ForkedText};
        std::string reason;
        if (m_turns->TryTake(reason)) {
            const CTurn turn(*this);
            reason = m_device->WhyEnded();
        }
        return {reason.empty(), reason};
    }

    std::string Peer() const { return m_device->Peer(); }

    void Release(const std::string& request) noexcept {
        const common::CNoCancellation uncancelled;
        common::Quietly([&] {
            if (!m_origin.IsHere()) return;
            std::vector<std::string> before;
            if (!m_turns->TakeFor(request, before)) return;
            const CTurn turn(*this);
            // Of the connection, not of the thread: a device of one's own may wait here all the same.
            const auto timeout = m_options.CallTimeout;
            m_device->SetDeadline(timeout.count() == 0 ? Clock::time_point::max()
                                                       : common::DeadlineAfter(timeout));
            QueueAll(before);
            Queue(request);
            m_device->SendQueued();
        });
    }

    std::shared_ptr<IApiExceptionGenerator> Generator() const { return m_generator; }

private:
    /// The stream is its own, until it is left in whatever way. Left with an answer still to come, the stream is
    /// lost: the next to use it would take that answer for its own.
    class CTurn {
    public:
        explicit CTurn(Impl& impl) noexcept : m_impl(impl) {}
        CTurn(const CTurn&) = delete;
        CTurn& operator=(const CTurn&) = delete;
        ~CTurn() {
            if (m_hasEvent) m_impl.m_device->SetEvent(nullptr);
            if (m_isAnswerToCome)
                Lose("a call was cut off by the end of its thread or by a foreign exception");
            m_impl.m_turns->GiveBack();
        }

        void Begin(const SCallLimits& limits) {
            m_isAnswerToCome = true;
            m_impl.m_device->SetDeadline(limits.Deadline);
            m_hasEvent = limits.Event != nullptr;
            if (m_hasEvent) m_impl.m_device->SetEvent(limits.Event.get());
        }
        void AnswerHasCome() noexcept { m_isAnswerToCome = false; }
        bool IsAnswerToCome() const noexcept { return m_isAnswerToCome; }

        /// \return whether this was what ended the stream
        bool Lose(const char* cause) noexcept {
            m_isAnswerToCome = false;
            return m_impl.Lose(cause);
        }

    private:
        Impl& m_impl;
        bool m_isAnswerToCome = false;
        bool m_hasEvent = false;
    };

    std::shared_ptr<IData> PlainCall(const std::string* request, ResultReader read, void* result,
                                     std::chrono::milliseconds timeout) {
        bool isLost = false;
        try {
            return CallInTurn(request, read, result, timeout, isLost);
        } catch (std::exception& error) {
            // Only now that the turn has been given back: the logger may use this very connection.
            if (isLost) Log(error);
            throw;
        }
    }

    std::shared_ptr<IData> LoggedCall(const std::string* request, ResultReader read, void* result,
                                      std::chrono::milliseconds timeout) {
        const auto begin = Clock::now();
        try {
            auto answer = PlainCall(request, read, result, timeout);
            common::Quietly([&] { LogCall(request, begin, OutcomeText(answer.get())); });
            return answer;
        } catch (const std::exception& error) {
            LogCall(request, begin, std::string("failed: ") + error.what());
            throw;
        }
    }

    void LogCall(const std::string* request, Clock::time_point begin, const std::string& outcome) const {
        const auto took = Clock::now() - begin;
        common::Quietly([&] {
            const std::string line = CallLine(request, outcome, took);
            WithLogger([&](ILogger& logger) { logger.Info(line); });
        });
    }

    std::shared_ptr<IData> CallInTurn(const std::string* request, ResultReader read, void* result,
                                      std::chrono::milliseconds timeout, bool& isLost) {
        const SCallLimits limits = LimitsOfCall(timeout);
        const auto releases = TakeTurn(request, limits);
        CTurn turn(*this);
        try {
            turn.Begin(limits);
            std::string room;
            const std::string_view answer = Exchange(releases, request, room);
            turn.AnswerHasCome();
            if (read != nullptr && read(answer, result)) return nullptr;
            if (answer.data() != room.data()) room = answer;
            return CXmlData::Unserialize(std::move(room));
        } catch (const std::bad_alloc&) {
            // With a whole answer behind it, the stream is as good as before.
            if (turn.IsAnswerToCome()) isLost = turn.Lose("no memory");
            throw;
        } catch (ApiException& error) {
            error.SetConnectionLost();
            Explain(error, request, limits);
            isLost = turn.Lose(error.what());
            throw;
        } catch (const std::exception& error) {
            isLost = turn.Lose(error.what());
            throw;
        }
    }

    std::vector<std::string> TakeTurn(const std::string* request, const SCallLimits& limits) {
        try {
            return m_turns->Take(limits);
        } catch (ApiException& error) {
            if (error.IsConnectionLost()) {
                const std::unique_lock lock(m_ending, std::try_to_lock);
                if (lock) m_owner.OnCallRefused();
            }
            Explain(error, request, limits);
            throw;
        }
    }

    /// Adds to a message what it is about.
    void Explain(ApiException& error, const std::string* request, const SCallLimits& limits) const {
        common::Quietly([&] { ExplainCall(error, request, m_device->Peer(), limits); });
    }

    /// The answer stands in `room`, or in the device until that is used again.
    std::string_view Exchange(const std::vector<std::string>& releases, const std::string* request,
                              std::string& room) {
        QueueAll(releases);
        if (request != nullptr) m_device->WriteString(*request);
        for (; m_owedAnswers != 0; --m_owedAnswers) {
            const std::string_view answer = m_device->ReadMessage(room);
            if (answer != EmptyAnswer) CXmlData::Unserialize(std::string(answer));
        }
        return m_device->ReadMessage(room);
    }

    void QueueAll(const std::vector<std::string>& releases) {
        for (const std::string& release : releases)
            Queue(release);
    }

    void Queue(const std::string& release) {
        m_device->WriteLater(release);
        ++m_owedAnswers;
    }

    bool Lose(const char* cause) noexcept {
        if (!m_turns->Lose(cause)) return false;
        const std::lock_guard lock(m_ending);
        m_owner.OnStreamLost();
        return true;
    }

    void Log(std::exception& error) const {
        if (m_options.Logger != nullptr)
            WithLogger([&](ILogger& logger) { logger.Error("The connection is given up.", error); });
    }

    /// A logger that fails must not hide what there was to log.
    template <class F>
    void WithLogger(F&& write) const {
        const struct SLogging {
            bool Before = std::exchange(t_isLogging, true);
            ~SLogging() { t_isLogging = Before; }
        } logging;
        common::Quietly([&] { write(*m_options.Logger); });
    }

    static constexpr const char* ForkedText =
        "The connection belongs to the process that this one was forked from";

    /// Of this thread, which may call from within a logger.
    static inline constinit thread_local bool t_isLogging = false;

    StreamedXmlInvokerImpl& m_owner;
    std::shared_ptr<IIoDev> m_device;
    std::shared_ptr<IApiExceptionGenerator> m_generator;
    const SInvokerOptions m_options;
    common::CProcessMark m_origin;
    std::unique_ptr<CTurns> m_turns;
    std::mutex m_ending;  // of what the owner does about a lost stream
    // How many releases went out whose answers are still to come; whose turn it is may touch it.
    std::size_t m_owedAnswers = 0;
};

StreamedXmlInvokerImpl::StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device,
                                               std::shared_ptr<IApiExceptionGenerator> generator,
                                               std::chrono::seconds timeout, std::shared_ptr<ILogger> logger)
    : m_impl(std::make_unique<Impl>(*this, std::move(device), std::move(generator),
                                    SInvokerOptions{Milliseconds(timeout), std::move(logger), false})) {}

StreamedXmlInvokerImpl::StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device,
                                               std::shared_ptr<IApiExceptionGenerator> generator,
                                               const SInvokerOptions& options)
    : m_impl(std::make_unique<Impl>(*this, std::move(device), std::move(generator), options)) {}

StreamedXmlInvokerImpl::~StreamedXmlInvokerImpl() = default;

std::shared_ptr<IData> StreamedXmlInvokerImpl::CreateContainer() {
    return CXmlData::CreateNew();
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Invoke(std::shared_ptr<IData> request) {
    const std::string text = CXmlData::Serialize(*request);
    if (!IsReleaseRequest(text)) return InvokeText(text, nullptr, nullptr);
    ReleaseByText(text);
    return CXmlData::CreateNew();
}

std::shared_ptr<IApiExceptionGenerator> StreamedXmlInvokerImpl::GetExceptionGenerator() const {
    return m_impl->Generator();
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::InvokeText(const std::string& request, ResultReader read,
                                                          void* result) {
    // What can't be sent is refused before the stream is touched, which so stays usable.
    if (request.size() > IIoDev::MaxMessageBytes) {
        throw ApiInternalError("A request of " + std::to_string(request.size()) +
                               " bytes is over the limit of " + std::to_string(IIoDev::MaxMessageBytes) +
                               " (in " + CallName(&request) + " of " + Peer() + ')');
    }
    return m_impl->Call(&request, read, result);
}

void StreamedXmlInvokerImpl::ReleaseByText(const std::string& request) noexcept {
    m_impl->Release(request);
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Receive() {
    return m_impl->Call(nullptr, nullptr, nullptr);
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Receive(std::chrono::milliseconds timeout) {
    return m_impl->Call(nullptr, nullptr, nullptr, timeout);
}

SConnectionState StreamedXmlInvokerImpl::GetState() {
    return m_impl->State();
}

std::string StreamedXmlInvokerImpl::Peer() const {
    return m_impl->Peer();
}

}  // namespace apigen
