// SPDX-License-Identifier: Apache-2.0
// Any bytes on a socket: whole frames are read as they are, everything else is refused by its proper error.
#include <apigen/ApiException.h>
#include <apigen/CInterruptibleIoDev.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/fuzz/Check.h"

namespace {

enum class EEnd {
    Gone,   // the stream ended, between frames or within one
    Broken  // a length that no frame may have
};

/// What the bytes mean: the messages, each behind a line of its own, and how they end.
EEnd ReadByModel(std::string_view bytes, std::string& messages) {
    while (bytes.size() >= 4) {
        std::size_t length = 0;
        for (unsigned i = 0; i < 4; ++i) {
            length |= static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
        }
        if (length > apigen::IIoDev::MaxMessageBytes) return EEnd::Broken;
        bytes.remove_prefix(4);
        if (bytes.size() < length) return EEnd::Gone;
        messages.append("\n").append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return EEnd::Gone;
}

EEnd ReadByDevice(apigen::CInterruptibleIoDev& device, std::string& messages) {
    try {
        while (true) {
            messages += "\n" + device.ReadString();
        }
    } catch (const apigen::BrokenMessageError&) {
        return EEnd::Broken;
    } catch (const apigen::PeerGoneError&) {
        return EEnd::Gone;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 60000) return 0;  // as much as a socket surely takes without a reader
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) Check("no sockets");
    apigen::CInterruptibleIoDev device(fds[0]);
    device.SetDeadline(apigen::IIoDev::Clock::now() + std::chrono::seconds(10));
    if (::send(fds[1], data, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) Check("not sent");
    ::close(fds[1]);

    std::string expected;
    std::string read;
    const EEnd expectedEnd = ReadByModel({reinterpret_cast<const char*>(data), size}, expected);
    const EEnd end = ReadByDevice(device, read);
    if (expected != read || expectedEnd != end) Check("the frames were read wrongly");
    return 0;
}
