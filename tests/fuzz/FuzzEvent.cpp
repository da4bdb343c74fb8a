// SPDX-License-Identifier: Apache-2.0
// Any texts as events, over a real socket, in pieces: each is the event that a container of it gives, or is
// refused as that refuses it, and none is lost.
//
// Input: a letter that says how many pieces besides the last are sent, a byte for the size of each, then a line for
// each message.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/CEventsStream.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "support/apigen/TextEncoders.h"
#include "tests/fuzz/Check.h"

namespace {

using zamclientlib::SBaseEvent;

constexpr std::size_t MaxMessages = 4;

/// What becomes of a message: the event as it would be written, or which error.
template <class Read>
std::string OutcomeOf(Read read) {
    try {
        return apigen::SerializeDocument("Event", read());
    } catch (const apigen::ApiInternalError& error) {
        return std::string(typeid(error).name()) + ": " + error.what();
    }
}

SBaseEvent ReadByContainer(std::string_view text) {
    SBaseEvent event;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(std::string(text)), "Event", event);
    return event;
}

/// Both ends of a connection that is made once: no message here breaks it.
class CConnection {
public:
    CConnection() {
        char folder[] = "/tmp/fuzz_event.XXXXXX";
        Require(::mkdtemp(folder) != nullptr, "there is a folder", folder);
        const std::string path = std::string(folder) + "/socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size());
        const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        Require(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    ::listen(listener, 1) == 0,
                "there is a socket", path);
        zamclientlib::SEventConfig config;
        config.v1 = zamclientlib::SEventConfigV1{path};
        m_origin = " (from the event socket \"" + path + "\")";
        m_stream = std::make_unique<zamclientlib::CEventsStream>(config, nullptr);
        m_agent = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        std::uint32_t word = 17;
        Require(::recv(m_agent, &word, sizeof word, MSG_WAITALL) == sizeof word && word == 0,
                "an empty message opens the stream");
        ::close(listener);
        ::unlink(path.c_str());
        ::rmdir(folder);
    }

    void Send(std::string_view bytes) const {
        Require(
            ::send(m_agent, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
            "the socket takes it all");
    }

    /// Whatever has come as a whole.
    void Take(std::vector<std::string>& outcomes) {
        bool isSome = true;
        while (isSome) {
            std::string outcome = OutcomeOf([&] {
                const auto event = m_stream->ReadUntil(apigen::IIoDev::Clock::time_point::min());
                isSome = event.HasValue();
                return isSome ? *event : SBaseEvent{};
            });
            // Errors name the socket as well.
            if (outcome.ends_with(m_origin)) outcome.resize(outcome.size() - m_origin.size());
            if (isSome) outcomes.push_back(std::move(outcome));
            Require(outcomes.size() <= MaxMessages, "no message comes twice, and none breaks the stream");
        }
    }

private:
    std::unique_ptr<zamclientlib::CEventsStream> m_stream;
    std::string m_origin;
    int m_agent = -1;
};

void AppendFrame(std::string& stream, std::string_view text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    for (unsigned i = 0; i < 4; ++i)
        stream += static_cast<char>(size >> 8 * i & 0xFF);
    stream += text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static CConnection connection;
    CInput input(data, size);
    const std::string_view cuts = input.Take(input.Byte() % 4);

    std::string stream;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < MaxMessages && !input.IsEmpty(); ++i) {
        const std::string_view text = input.Line();
        AppendFrame(stream, text);
        expected.push_back(OutcomeOf([&] { return ReadByContainer(text); }));
    }

    std::vector<std::string> outcomes;
    std::string_view left = stream;
    for (const char cut : cuts) {
        const std::string_view piece = left.substr(0, static_cast<unsigned char>(cut));
        connection.Send(piece);
        left.remove_prefix(piece.size());
        connection.Take(outcomes);
    }
    connection.Send(left);
    connection.Take(outcomes);
    Require(outcomes.size() == expected.size(), "every message is taken, once",
            std::to_string(outcomes.size()) + " of " + std::to_string(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i)
        Require(outcomes[i] == expected[i], "an event is what a container gives",
                outcomes[i] + " and " + expected[i]);
    return 0;
}
