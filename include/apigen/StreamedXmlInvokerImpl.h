// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IInvoker.h>
#include <apigen/IIoDev.h>
#include <apigen/ILogger.h>
#include <apigen/Owned.h>

#include <chrono>
#include <memory>
#include <string>

namespace apigen APIGEN_API {

/// How calls are carried.
struct SInvokerOptions {
    /// Bound of each call, waiting for its turn, sending and receiving together; 0 means none. Scopes of the calling
    /// thread take its place (CallControl.h).
    std::chrono::milliseconds CallTimeout{0};

    /// May be empty.
    std::shared_ptr<ILogger> Logger;

    /// Whether a line of the log tells of each call: method, duration, outcome. Never of an argument or a result. What
    /// the logger itself calls is left out, and so are releases, which nobody waits for.
    bool IsEachCallLogged = false;
};

/// Carries calls as XML documents over a device: one frame out, one frame back, in order.
///
/// Any thread may call; calls take turns. From the first byte of a call until its answer is whole the stream belongs
/// to it. When the call ends before that, by whatever exception or by the cancellation of its thread, the stream can't
/// be trusted any more: every later call fails at once with the first failure's text in its message.
///
/// A call can be given a time of its own, and be cancelled from another thread: CallControl.h.
///
/// A release call never waits. When the stream is in use it goes out with the next message.
///
/// In a copy of the process made by `fork`, calls are refused and releases do nothing.
class StreamedXmlInvokerImpl : public IInvoker, protected ITextInvoker {
public:
    /// \param generator may be empty
    /// \param timeout   bound of each call, waiting for its turn, sending and receiving together; 0 means none.
    ///                  A call whose time is up before its turn comes fails alone.
    /// \param logger    may be empty
    /// \throws ApiInternalError for a negative time-out
    StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device, std::shared_ptr<IApiExceptionGenerator> generator,
                           std::chrono::seconds timeout, std::shared_ptr<ILogger> logger);

    /// \throws ApiInternalError for a negative time-out
    StreamedXmlInvokerImpl(std::shared_ptr<IIoDev> device, std::shared_ptr<IApiExceptionGenerator> generator,
                           const SInvokerOptions& options);
    StreamedXmlInvokerImpl(const StreamedXmlInvokerImpl&) = delete;
    StreamedXmlInvokerImpl& operator=(const StreamedXmlInvokerImpl&) = delete;
    ~StreamedXmlInvokerImpl() override;

    std::shared_ptr<IData> CreateContainer() override;

    /// A release call returns an empty answer at once; the real one is taken before that of the next call.
    std::shared_ptr<IData> Invoke(std::shared_ptr<IData> request) override;

    std::shared_ptr<IApiExceptionGenerator> GetExceptionGenerator() const override;

    /// Whether the stream has been given up, and if nobody uses it just now, whether the peer has ended meanwhile.
    [[nodiscard]] SConnectionState GetState() override;

    [[nodiscard]] std::string Peer() const override;

protected:
    /// Takes a message that the service sends unasked, in the time of a call.
    std::shared_ptr<IData> Receive();

    /// \overload
    /// With a bound of its own; 0 means none.
    std::shared_ptr<IData> Receive(std::chrono::milliseconds timeout);

    /// Called once, when the stream is given up; never while somebody uses it.
    virtual void OnStreamLost() noexcept {}

    /// Called when a call is refused because the stream was given up before. Never at the same time as the above, and
    /// in one thread at a time.
    virtual void OnCallRefused() noexcept {}

    std::shared_ptr<IData> InvokeText(const std::string& request, ResultReader read, void* result) override;
    void ReleaseByText(const std::string& request) noexcept override;

private:
    class Impl;
    detail::COwned<Impl> m_impl;
};

}  // namespace apigen
