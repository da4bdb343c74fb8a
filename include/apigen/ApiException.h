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
    explicit ApiException(const std::string& message) : m_message(message) {}
    ~ApiException() override = default;

    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

/// The remote-call machinery failed, on this side or on the service's: the call's outcome is unknown.
class ApiInternalError : public ApiException {
public:
    using ApiException::ApiException;
    ~ApiInternalError() override = default;
};

/// The tool could not be started. Nothing ran; fix the path or the permissions and try again.
class ProcessLaunchError : public ApiInternalError {
public:
    ProcessLaunchError(const std::string& message, int errorNumber)
        : ApiInternalError(message), m_errorNumber(errorNumber) {}

    /// The `errno` of the failed launch, `ENOENT` for a program that is not there.
    int ErrorNumber() const noexcept { return m_errorNumber; }

private:
    int m_errorNumber;
};

/// A tool that was run for its output ended with a failure.
class ProcessFailedError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// The deadline passed before the peer answered.
class TimeoutError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// The peer ended, closed the stream, or the connection had been given up after an earlier failure.
class PeerGoneError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
    PeerGoneError(const std::string& message, bool isOrderly)
        : ApiInternalError(message), m_isOrderly(isOrderly) {}

    /// True when the peer closed the stream between two messages, as it does when it has finished, or takes no more.
    bool IsOrderly() const noexcept { return m_isOrderly; }

private:
    bool m_isOrderly = false;
};

/// The peer sent something that is no message: garbage, an over-long frame, a malformed document.
class BrokenMessageError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

/// A read was ended by an event of its device (`CInterruptibleIoDev::AddEvent`).
class InterruptedError : public ApiInternalError {
public:
    using ApiInternalError::ApiInternalError;
};

}  // namespace apigen
