// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/StreamedXmlInvokerImpl.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/apigen/RequestText.h"
#include "support/apigen/Timeout.h"
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
    /// \throws TimeoutError at the deadline, PeerGoneError when the stream is lost
    std::vector<std::string> Take(Clock::time_point deadline) {
        std::unique_lock lock(m_mutex);
        while (m_isTaken && m_lostCause.empty()) {
            if (deadline == Clock::time_point::max()) {
                m_freed.wait(lock);
            } else if (m_freed.wait_until(lock, deadline) == std::cv_status::timeout && m_isTaken) {
                throw TimeoutError(
                    "The connection was busy with other calls until the time for this one was up");
            }
        }
        if (!m_lostCause.empty())
            throw PeerGoneError("The connection was given up after an earlier failure: " + m_lostCause);
        m_isTaken = true;
        return std::exchange(m_releases, {});
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
        m_freed.notify_one();
    }

    /// Ends all turns for good. True the first time.
    bool Lose(const char* cause) noexcept {
        const std::lock_guard lock(m_mutex);
        m_freed.notify_all();
        if (!m_lostCause.empty()) return false;
        try {
            m_lostCause = *cause != '\0' ? cause : "unknown";
        } catch (const std::bad_alloc&) {
            m_lostCause = "no memory";  // short enough to need none
        }
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_freed;
    bool m_isTaken = false;
    std::string m_lostCause;  // empty as long as the stream can be trusted
    std::vector<std::string> m_releases;
};

}  // namespace

void RequireTimeout(std::chrono::seconds timeout) {
    if (timeout.count() < 0)
        throw ApiInternalError("A time-out of " + std::to_string(timeout.count()) +
                               " s is negative; 0 means no limit");
}

class StreamedXmlInvokerImpl::Impl {
public:
    Impl(StreamedXmlInvokerImpl& owner, std::shared_ptr<IIoDev> device,
         std::shared_ptr<IApiExceptionGenerator> generator, std::chrono::seconds timeout,
         std::shared_ptr<ILogger> logger)
        : m_owner(owner),
          m_device(std::move(device)),
          m_generator(std::move(generator)),
          m_timeout(timeout),
          m_logger(std::move(logger)),
          m_turns(std::make_unique<CTurns>()) {
        RequireTimeout(timeout);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        // In a copy of the process, threads that were left behind in the original seem to wait here for ever.
        // Their memory goes back, without their end.
        if (!m_origin.IsHere()) ::operator delete(m_turns.release());
    }

    /// Sends `request`, if there is one, and takes the next message for its answer.
    std::shared_ptr<IData> Call(const std::string* request, ResultReader read, void* result) {
        if (!m_origin.IsHere())
            throw PeerGoneError("The connection belongs to the process that this one was forked from");
        bool isLost = false;
        try {
            return CallInTurn(request, read, result, isLost);
        } catch (std::exception& error) {
            // Only now that the turn has been given back: the logger may use this very connection.
            if (isLost) Log(error);
            throw;
        }
    }

    void Release(const std::string& request) noexcept {
        const common::CNoCancellation uncancelled;
        common::Quietly([&] {
            if (!m_origin.IsHere()) return;
            std::vector<std::string> before;
            if (!m_turns->TakeFor(request, before)) return;
            const CTurn turn(*this);
            m_device->SetDeadline(Deadline());
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
            if (m_isAnswerToCome)
                Lose("a call was cut off by the end of its thread or by a foreign exception");
            m_impl.m_turns->GiveBack();
        }

        void Begin() noexcept { m_isAnswerToCome = true; }
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
    };

    std::shared_ptr<IData> CallInTurn(const std::string* request, ResultReader read, void* result,
                                      bool& isLost) {
        const auto deadline = Deadline();
        const auto releases = TakeTurn(deadline);
        CTurn turn(*this);
        try {
            turn.Begin();
            m_device->SetDeadline(deadline);
            std::string answer = Exchange(releases, request);
            turn.AnswerHasCome();
            if (read != nullptr && read(answer, result)) return nullptr;
            return CXmlData::Unserialize(std::move(answer));
        } catch (const std::bad_alloc&) {
            // With a whole answer behind it, the stream is as good as before.
            if (turn.IsAnswerToCome()) isLost = turn.Lose("no memory");
            throw;
        } catch (const std::exception& error) {
            isLost = turn.Lose(error.what());
            throw;
        }
    }

    std::vector<std::string> TakeTurn(Clock::time_point deadline) {
        try {
            return m_turns->Take(deadline);
        } catch (const PeerGoneError&) {
            const std::unique_lock lock(m_ending, std::try_to_lock);
            if (lock) m_owner.OnCallRefused();
            throw;
        }
    }

    std::string Exchange(const std::vector<std::string>& releases, const std::string* request) {
        QueueAll(releases);
        if (request != nullptr) m_device->WriteString(*request);
        for (; m_owedAnswers != 0; --m_owedAnswers) {
            std::string answer = m_device->ReadString();
            if (answer != EmptyAnswer) CXmlData::Unserialize(std::move(answer));
        }
        return m_device->ReadString();
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

    Clock::time_point Deadline() const noexcept {
        return m_timeout.count() == 0 ? Clock::time_point::max() : common::DeadlineAfter(m_timeout);
    }

    /// A logger that fails must not hide what there was to log.
    void Log(std::exception& error) const {
        if (m_logger != nullptr)
            common::Quietly([&] { m_logger->Error("The connection is given up.", error); });
    }

    StreamedXmlInvokerImpl& m_owner;
    std::shared_ptr<IIoDev> m_device;
    std::shared_ptr<IApiExceptionGenerator> m_generator;
    const std::chrono::seconds m_timeout;
    std::shared_ptr<ILogger> m_logger;
    common::CProcessMark m_origin;
    std::unique_ptr<CTurns> m_turns;
    std::mutex m_ending;  // of what the owner does about a lost stream
    // How many releases went out whose answers are still to come; whose turn it is may touch it.
    std::size_t m_owedAnswers = 0;
};

StreamedXmlInvokerImpl::StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device,
                                               std::shared_ptr<IApiExceptionGenerator> generator,
                                               std::chrono::seconds timeout, std::shared_ptr<ILogger> logger)
    : m_impl(std::make_unique<Impl>(*this, std::move(device), std::move(generator), timeout,
                                    std::move(logger))) {}

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
                               " bytes is over the limit of " + std::to_string(IIoDev::MaxMessageBytes));
    }
    return m_impl->Call(&request, read, result);
}

void StreamedXmlInvokerImpl::ReleaseByText(const std::string& request) noexcept {
    m_impl->Release(request);
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Receive() {
    return m_impl->Call(nullptr, nullptr, nullptr);
}

}  // namespace apigen
