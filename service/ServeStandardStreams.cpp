// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamservice/Service.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <optional>
#include <string_view>
#include <system_error>

#include "service/Failure.h"
#include "src/Protocol.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"

namespace zamservice {
namespace {

using apigen::common::CDescriptor;

[[noreturn]] void ThrowErrno(const char* attempt) {
    throw std::system_error(errno, std::generic_category(), attempt);
}

/// Moves a standard stream to a descriptor of our own, and puts `replacement` in its place.
CDescriptor TakeOver(int standardStream, int replacement) {
    constexpr int FirstOwnDescriptor = 3;
    CDescriptor taken(::fcntl(standardStream, F_DUPFD_CLOEXEC, FirstOwnDescriptor));
    if (!taken) ThrowErrno("Taking over a standard stream");
    if (::dup2(replacement, standardStream) < 0) ThrowErrno("Replacing a standard stream");
    return taken;
}

CDescriptor OpenNull() {
    CDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!null) ThrowErrno("Opening /dev/null");
    return null;
}

/// Frames over the standard streams, whatever they are: pipes, sockets, a terminal. Blocking: a service has
/// nothing else to do than to wait for its client.
class CStandardStreams {
public:
    CStandardStreams()
        : m_in(TakeOver(STDIN_FILENO, OpenNull().Get())), m_out(TakeOver(STDOUT_FILENO, STDERR_FILENO)) {}

    /// Reads one message; false when the input ended before one began.
    bool Read(std::string& message) {
        std::array<char, apigen::common::HeaderBytes> header{};
        const std::size_t got = ReadBytes(header.data(), header.size());
        if (got == 0) return false;
        if (got < header.size())
            throw apigen::BrokenMessageError("The input ended inside the length of a message");
        const std::uint32_t length = apigen::common::DecodeHeader({header.data(), header.size()});
        if (length > apigen::IIoDev::MaxMessageBytes) {
            throw apigen::BrokenMessageError("A message of " + std::to_string(length) +
                                             " bytes is announced, over the limit of " +
                                             std::to_string(apigen::IIoDev::MaxMessageBytes));
        }
        message.clear();
        while (message.size() < length) {
            // No more at once than has shown to be there: the announced length alone earns no memory.
            const std::size_t before = message.size();
            const std::size_t step = std::min<std::size_t>(length - before, std::max(before, MinStep));
            message.resize(before + step);
            if (ReadBytes(message.data() + before, step) < step) {
                throw apigen::BrokenMessageError("The input ended inside a message");
            }
        }
        return true;
    }

    /// Queues one message; it goes out, with those before it, before the service waits for more input at the
    /// latest.
    void Write(const std::string& message) {
        const auto header = apigen::common::EncodeHeader(message.size());
        m_output.append(header.data(), header.size());
        if (message.size() <= MinStep) {
            m_output += message;
            if (m_output.size() > MinStep) Flush();
        } else {
            Flush();
            WriteBytes(message);
        }
    }

    void Flush() {
        WriteBytes(m_output);
        m_output.clear();
    }

private:
    static constexpr std::size_t MinStep = 64 * 1024;

    void WriteBytes(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t written = ::write(m_out.Get(), bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) ThrowErrno("Writing an answer");
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    /// Fewer bytes than asked for at the end of the input only.
    std::size_t ReadBytes(char* into, std::size_t count) {
        std::size_t done = 0;
        while (done < count) {
            if (m_begin == m_end && !Fill()) break;
            const std::size_t piece = std::min(count - done, m_end - m_begin);
            std::memcpy(into + done, m_input.data() + m_begin, piece);
            m_begin += piece;
            done += piece;
        }
        return done;
    }

    bool Fill() {
        Flush();
        while (true) {
            const ssize_t got = ::read(m_in.Get(), m_input.data(), m_input.size());
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) ThrowErrno("Reading a request");
            m_begin = 0;
            m_end = static_cast<std::size_t>(got);
            return got != 0;
        }
    }

    CDescriptor m_in;
    CDescriptor m_out;
    std::string m_input = std::string(MinStep, '\0');
    std::string m_output;  // messages that wait to be sent
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
};

}  // namespace

int ServeStandardStreams(const std::function<CService()>& makeService) {
    return ServeStandardStreams(
        makeService, [](CService& service, const std::string& request) { return service.Answer(request); });
}

int ServeStandardStreams(const std::function<CService()>& makeService, const AnswerFunction& answer) {
    try {
        // A client that goes away shows as a failed write, not as the death of the service in mid-work.
        std::signal(SIGPIPE, SIG_IGN);
        CStandardStreams streams;
        std::optional<CService> service;
        try {
            service.emplace(makeService());
        } catch (const std::exception& error) {
            std::cerr << "Can't serve: " << error.what() << std::endl;
            streams.Write(apigen::CXmlData::Serialize(*Failure(error)));
            streams.Flush();
            return 1;
        }
        streams.Write(service->Greeting());
        std::string request;
        // An answer that says nothing, as that of a release, may wait for those behind it: clients send
        // releases by the thousand and don't wait for their answers.
        const std::string& nothing = apigen::envelope::EmptyResponse();
        while (streams.Read(request)) {
            const std::string text = answer(*service, request);
            streams.Write(text);
            if (text != nothing) streams.Flush();
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "The connection ended: " << error.what() << std::endl;
        return 1;
    }
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
