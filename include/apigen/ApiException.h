// SPDX-License-Identifier: Apache-2.0
/// \file
/// The root of every error that the library throws, and the failures of the transport below the calls.
#pragma once

#include <apigen/Export.h>

#include <exception>
#include <string>
#include <utility>

namespace apigen APIGEN_API {

/// Root of every error that the library throws. Copyable; `what()` stays valid as long as the object.
class ApiException : public std::exception {
public:
    ApiException() = default;
    /// \param message what `what()` gives
    explicit ApiException(const std::string& message) : m_message(message) {}
    ~ApiException() override = default;

    /// The message: what was attempted, on what, and why it failed.
    const char* what() const noexcept override { return m_message.c_str(); }

    /// True when what failed has cost the connection, or the event stream, that it happened on: whoever wants to go on
    /// connects anew. Otherwise the call failed alone, and the connection is as good as before. Of an exception that
    /// is none of this family, ask the connection (`zamclientlib::GetConnectionState`).
    [[nodiscard]] bool IsConnectionLost() const noexcept { return m_isConnectionLost; }

    /// For who carries calls: says so.
    void SetConnectionLost() noexcept { m_isConnectionLost = true; }

    /// For who knows more of what was attempted than who threw: adds that to the message, if there is memory for it.
    void Append(const std::string& text) noexcept;

private:
    std::string m_message;
    bool m_isConnectionLost = false;
};

inline void ApiException::Append(const std::string& text) noexcept {
    try {
        m_message += text;
    } catch (const std::exception&) {  // the message as it was is better than none
    }
}

/// The remote-call machinery failed, on this side or on the service's: the call's outcome is unknown.
class ApiInternalError : public ApiException {
public:
    using ApiException::ApiException;
    ~ApiInternalError() override = default;
};

/// The service's own machinery failed, and said so: it doesn't know the object or the method, or an implementation failed
/// in an unforeseen way. The connection is as good as before.
class ServiceInternalError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// The tool could not be started. Nothing ran; fix the path or the permissions and try again.
class ProcessLaunchError : public ApiInternalError {
public:
    /// \param errorNumber the `errno` of the failed launch
    ProcessLaunchError(const std::string& message, int errorNumber)
        : ApiInternalError(message), m_errorNumber(errorNumber) {
        SetConnectionLost();
    }

    /// The `errno` of the failed launch, `ENOENT` for a program that is not there.
    [[nodiscard]] int ErrorNumber() const noexcept { return m_errorNumber; }

private:
    int m_errorNumber;
};

/// A tool that was run for its output ended with a failure.
class ProcessFailedError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// The deadline passed before the peer answered, and with it the connection is lost; or before the call had begun,
/// which then fails alone.
class TimeoutError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// The peer ended, closed the stream, or the connection had been given up after an earlier failure.
class PeerGoneError : public ApiInternalError {
public:
    /// \param isOrderly whether the stream was closed between two messages
    explicit PeerGoneError(const std::string& message, bool isOrderly = false)
        : ApiInternalError(message), m_isOrderly(isOrderly) {
        SetConnectionLost();
    }

    /// True when the peer closed the stream between two messages, as it does when it has finished, or takes no more.
    [[nodiscard]] bool IsOrderly() const noexcept { return m_isOrderly; }

private:
    bool m_isOrderly;
};

/// The peer sent something that is no message: garbage, an over-long frame, a malformed document. As an answer it costs
/// the connection; an event or a text that was read from elsewhere costs nothing else.
class BrokenMessageError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// A wait was ended by an event: a call's (`CCancellableCalls`), a device's (`CInterruptibleIoDev::AddEvent`), or that
/// of a stream that was stopped.
class InterruptedError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

}  // namespace apigen
