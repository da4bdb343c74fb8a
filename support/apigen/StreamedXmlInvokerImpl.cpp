// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/StreamedXmlInvokerImpl.h>

#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "support/apigen/Envelope.h"

namespace apigen {

class StreamedXmlInvokerImpl::Impl {
public:
    Impl(std::shared_ptr<IIoDev> device, std::shared_ptr<IApiExceptionGenerator> generator,
         std::chrono::seconds timeout, std::shared_ptr<ILogger> logger)
        : m_device(std::move(device)),
          m_generator(std::move(generator)),
          m_timeout(timeout),
          m_logger(std::move(logger)) {}

    std::shared_ptr<IData> Call(const std::string& text, ResultReader read, void* result) {
        m_device->WriteString(text);
        if (IsRelease(text)) {
            ++m_owedAnswers;
            return read != nullptr ? nullptr : CXmlData::CreateNew();
        }
        while (m_owedAnswers != 0) {
            std::string answer = m_device->ReadString();
            if (answer != envelope::EmptyResponse()) CXmlData::Unserialize(std::move(answer));
            --m_owedAnswers;
        }
        std::string answer = m_device->ReadString();
        if (read != nullptr && read(answer, result)) return nullptr;
        return CXmlData::Unserialize(std::move(answer));
    }

    std::shared_ptr<IData> Receive() { return CXmlData::Unserialize(m_device->ReadString()); }

    void SetDeadline() {
        // A time-out too long for the clock is as good as none.
        const auto now = IIoDev::Clock::now();
        const auto most =
            std::chrono::duration_cast<std::chrono::seconds>(IIoDev::Clock::time_point::max() - now);
        m_device->SetDeadline(m_timeout.count() <= 0 || m_timeout >= most ? IIoDev::Clock::time_point::max()
                                                                          : now + m_timeout);
    }

    /// Runs `step` with the deadline set. A failure of it is the last thing that the stream is used for.
    template <class Step>
    std::shared_ptr<IData> Guard(StreamedXmlInvokerImpl& owner, Step&& step) {
        const std::lock_guard lock(m_mutex);
        if (!m_lostCause.empty()) {
            throw PeerGoneError("The connection was given up after an earlier failure: " + m_lostCause);
        }
        try {
            SetDeadline();
            return step();
        } catch (std::exception& error) {
            m_lostCause = error.what();
            if (m_lostCause.empty()) m_lostCause = "unknown";
            owner.OnStreamLost();
            Log(error);
            throw;
        }
    }

    std::shared_ptr<IApiExceptionGenerator> Generator() const { return m_generator; }

private:
    /// A logger that fails must not hide what there was to log.
    void Log(std::exception& error) noexcept {
        try {
            if (m_logger != nullptr) m_logger->Error("The connection is given up.", error);
        } catch (...) {
        }
    }

    /// The method stands last in a request, so its text ends alike for all releases.
    static bool IsRelease(std::string_view text) {
        static const std::string ending = [] {
            const auto request = CXmlData::CreateNew();
            request->SetString(envelope::MethodKey, envelope::ReleaseMethod);
            const std::string whole = CXmlData::Serialize(*request);
            return whole.substr(whole.find(std::string("<") + envelope::MethodKey));
        }();
        return text.ends_with(ending);
    }

    std::shared_ptr<IIoDev> m_device;
    std::shared_ptr<IApiExceptionGenerator> m_generator;
    std::chrono::seconds m_timeout;
    std::shared_ptr<ILogger> m_logger;

    std::mutex m_mutex;
    std::string m_lostCause;        // empty as long as the stream can be trusted
    std::size_t m_owedAnswers = 0;  // releases that were sent, whose answers are still to come
};

StreamedXmlInvokerImpl::StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device,
                                               std::shared_ptr<IApiExceptionGenerator> generator,
                                               std::chrono::seconds timeout, std::shared_ptr<ILogger> logger)
    : m_impl(std::make_unique<Impl>(std::move(device), std::move(generator), timeout, std::move(logger))) {}

StreamedXmlInvokerImpl::~StreamedXmlInvokerImpl() = default;

std::shared_ptr<IData> StreamedXmlInvokerImpl::CreateContainer() {
    return CXmlData::CreateNew();
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Invoke(std::shared_ptr<IData> request) {
    return Invoke(CXmlData::Serialize(*request), nullptr, nullptr);
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Invoke(const std::string& request, ResultReader read,
                                                      void* result) {
    // What can't be sent is refused before the stream is touched, which so stays usable.
    if (request.size() > IIoDev::MaxMessageBytes) {
        throw ApiInternalError("A request of " + std::to_string(request.size()) +
                               " bytes is over the limit of " + std::to_string(IIoDev::MaxMessageBytes));
    }
    return m_impl->Guard(*this, [&] { return m_impl->Call(request, read, result); });
}

std::shared_ptr<IApiExceptionGenerator> StreamedXmlInvokerImpl::GetExceptionGenerator() const {
    return m_impl->Generator();
}

std::shared_ptr<IData> StreamedXmlInvokerImpl::Receive() {
    return m_impl->Guard(*this, [&] { return m_impl->Receive(); });
}

}  // namespace apigen
