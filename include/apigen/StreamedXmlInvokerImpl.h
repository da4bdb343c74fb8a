// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IInvoker.h>
#include <apigen/IIoDev.h>
#include <apigen/ILogger.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

/// Carries calls as XML documents over a device: one frame out, one frame back, in order.
///
/// Any thread may call; calls take turns. After a transport failure the stream can't be trusted any more:
/// every later call fails at once with the first failure's text in its message.
class StreamedXmlInvokerImpl : public IInvoker {
public:
    /// \param generator may be empty
    /// \param timeout   bound of each call, sending and receiving together; 0 means none
    /// \param logger    may be empty
    StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device, std::shared_ptr<IApiExceptionGenerator> generator,
                           std::chrono::seconds timeout, std::shared_ptr<ILogger> logger);
    StreamedXmlInvokerImpl(const StreamedXmlInvokerImpl&) = delete;
    StreamedXmlInvokerImpl& operator=(const StreamedXmlInvokerImpl&) = delete;
    ~StreamedXmlInvokerImpl() override;

    std::shared_ptr<IData> CreateContainer() override;

    /// A release call returns an empty answer at once; the real one is taken before that of the next call.
    std::shared_ptr<IData> Invoke(std::shared_ptr<IData> request) override;

    std::shared_ptr<IApiExceptionGenerator> GetExceptionGenerator() const override;

    /// For the library's own code, which can do without containers: reads the result straight out of an
    /// answer's text, or returns false when it does not know that.
    using ResultReader = bool (*)(std::string_view answer, void* result);

    /// Sends the text of a request; null when `read` has read the answer.
    /// \param read may be null; not asked about the answer of a release, which is no container then either
    std::shared_ptr<IData> Invoke(const std::string& request, ResultReader read, void* result);

protected:
    /// Takes a message that the service sends unasked.
    std::shared_ptr<IData> Receive();

    /// Called once, with the invoker locked, when the stream is given up.
    virtual void OnStreamLost() noexcept {}

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace apigen
