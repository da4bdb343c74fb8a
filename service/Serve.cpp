// SPDX-License-Identifier: Apache-2.0
// The loop that answers a client, and the service over this process's standard streams.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamservice/Service.h>

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "service/Failure.h"
#include "src/Protocol.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptorDevice.h"

namespace zamservice {
namespace {

using apigen::common::CDescriptor;
using apigen::common::CDescriptorDevice;

[[noreturn]] void ThrowErrno(const char* attempt) {
    throw std::system_error(errno, std::generic_category(), attempt);
}

/// A service without standard error, or with nobody to ask it anything, is one all the same. Without an output there is
/// nobody to serve.
void OpenStandardStreams() {
    if (::fcntl(STDOUT_FILENO, F_GETFD) < 0) ThrowErrno("Taking over a standard stream");
    for (const int stream : {STDIN_FILENO, STDERR_FILENO})
        if (!apigen::common::OpenStandardStream(stream)) ThrowErrno("Opening a standard stream");
}

/// Moves a standard stream to a descriptor of our own, and puts `replacement` in its place.
CDescriptor TakeOver(int standardStream, int replacement) {
    constexpr int FirstOwnDescriptor = 3;
    CDescriptor taken(::fcntl(standardStream, F_DUPFD_CLOEXEC, FirstOwnDescriptor));
    if (!taken) ThrowErrno("Taking over a standard stream");
    if (::dup2(replacement, standardStream) < 0) ThrowErrno("Replacing a standard stream");
    return taken;
}

std::unique_ptr<CDescriptorDevice> TakeOverStandardStreams() {
    OpenStandardStreams();
    const CDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!null) ThrowErrno("Opening /dev/null");
    CDescriptor input = TakeOver(STDIN_FILENO, null.Get());
    CDescriptor output = TakeOver(STDOUT_FILENO, STDERR_FILENO);
    return CDescriptorDevice::OfStandardStreams(std::move(input), std::move(output));
}

/// Leaves nothing of a message, which may have held a password. Memory for the next one is kept where it is worth it.
void Forget(std::string& message) {
    constexpr std::size_t Kept = 64 * 1024UL;
    ::explicit_bzero(message.data(), message.size());
    message.clear();
    if (message.capacity() > Kept) std::string().swap(message);
}

/// \param answer puts the answer to a request into a text
template <class Answer>
void ServeWith(const Answer& answer, CService& service, apigen::IIoDev& device) {
    std::string room;
    std::string text;
    try {
        device.WriteString(service.Greeting());
        while (true) {
            const std::string_view request = device.ReadMessage(room);
            answer(request, text);
            // An answer that says nothing, as that of a release, may wait for those behind it: clients send
            // releases by the thousand and don't wait for their answers.
            if (text == apigen::EmptyAnswer) {
                device.WriteLater(text);
            } else {
                device.WriteString(text);
            }
            Forget(room);
            Forget(text);
        }
    } catch (const apigen::PeerGoneError& error) {
        // The client may leave without waiting for the answers of its last releases, but not in mid-request.
        if (!error.IsOrderly()) throw;
    }
}

/// \param serve serves over a device
template <class Function>
int ServeStandardStreamsWith(const Function& serve, const std::function<CService()>& makeService) {
    try {
        // A client that goes away shows as a failed write, not as the death of the service in mid-work.
        std::signal(SIGPIPE, SIG_IGN);
        const auto device = TakeOverStandardStreams();
        std::optional<CService> service;
        try {
            service.emplace(makeService());
        } catch (const std::exception& error) {
            std::cerr << "Can't serve: " << error.what() << std::endl;
            device->WriteString(apigen::CXmlData::Serialize(*Failure(error)));
            return 1;
        }
        serve(*service, *device);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "The connection ended: " << error.what() << std::endl;
        return 1;
    }
}

}  // namespace

void Serve(CService& service, apigen::IIoDev& device) {
    const auto answer = [&](std::string_view request, std::string& text) { service.Answer(request, text); };
    ServeWith(answer, service, device);
}

void Serve(CService& service, apigen::IIoDev& device, const AnswerFunction& answer) {
    std::string copy;
    const auto answerCopy = [&](std::string_view request, std::string& text) {
        copy = request;
        text = answer(service, copy);
        Forget(copy);
    };
    ServeWith(answerCopy, service, device);
}

int ServeStandardStreams(const std::function<CService()>& makeService) {
    const auto serve = [](CService& service, apigen::IIoDev& device) { Serve(service, device); };
    return ServeStandardStreamsWith(serve, makeService);
}

int ServeStandardStreams(const std::function<CService()>& makeService, const AnswerFunction& answer) {
    const auto serve = [&](CService& service, apigen::IIoDev& device) { Serve(service, device, answer); };
    return ServeStandardStreamsWith(serve, makeService);
}

int PrintProtocolVersion() {
    return PrintProtocolVersion(zamclientlib::protocol::Version);
}

int PrintProtocolVersion(const zamclientlib::SVersion& version) {
    std::cout << apigen::SerializeDocument(zamclientlib::protocol::InfoKey,
                                           zamclientlib::SCompatibilityInfo{version})
              << std::flush;
    return std::cout ? 0 : 1;
}

}  // namespace zamservice
