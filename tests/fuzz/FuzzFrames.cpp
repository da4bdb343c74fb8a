// SPDX-License-Identifier: Apache-2.0
// Any bytes on a socket, in pieces of any size, between interruptions: whole frames are read and written as they
// are, everything else is refused by its proper error.
//
// The linker gives the device's system calls on its socket to this file: no byte goes through the kernel, and
// the input decides what each call does.
#include <apigen/ApiException.h>
#include <apigen/CInterruptibleIoDev.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tests/fuzz/Check.h"

namespace {

constexpr std::size_t HeaderSize = 4;

/// What a call on the socket does, as a byte of the input says it. Any other is so many bytes.
enum EStep : unsigned char {
    Interrupted,  // a signal came
    NotReady,     // not yet, but soon
    TimeOut,      // not before the deadline
    Event,        // not before an event
    Reset,        // never again
};

/// The event that ends a wait. The device only asks.
class CEvent final : public apigen::io::event::IEvent {
public:
    explicit CEvent(int descriptor) : m_descriptor(descriptor) {}
    bool IsSet() const override { return Set; }
    std::string Reason() const override { return "a step of the input"; }
    int Descriptor() const noexcept override { return m_descriptor; }
    bool Set = false;

private:
    int m_descriptor;
};

/// The socket's two directions.
struct SSocket {
    std::string_view Steps;  // those that are left; behind them every call does all it can
    std::string_view Arriving;
    std::size_t Arrived = 0;
    std::string Sent;
    std::size_t WaitingLimit = 0;
    bool WaitTimesOut = false;
    CEvent* Signal = nullptr;

    /// How many bytes may pass now; -1, and errno, for none.
    ssize_t Pass(std::size_t wanted) {
        if (Steps.empty()) return static_cast<ssize_t>(wanted);
        const auto step = static_cast<unsigned char>(Steps.front());
        if (step == Reset) {  // it stays so
            errno = ECONNRESET;
            return -1;
        }
        Steps.remove_prefix(1);
        WaitTimesOut = step == TimeOut;
        if (step == Event) Signal->Set = true;
        if (step <= Event) {
            errno = step == Interrupted ? EINTR : EAGAIN;
            return -1;
        }
        const std::size_t size = step < 128 ? step - Reset : 64U * (step - 127U);
        return static_cast<ssize_t>(std::min(wanted, size));
    }
} theSocket;

enum class EEnd {
    Gone,   // the stream ended, between frames or within one
    Broken  // a length that no frame may have
};

std::string Header(std::size_t length) {
    std::string header;
    for (unsigned i = 0; i < HeaderSize; ++i)
        header += static_cast<char>(length >> 8 * i & 0xFF);
    return header;
}

/// What the bytes mean: the messages, each behind a line of its own, and how they end.
EEnd ReadByModel(std::string_view bytes, std::string& messages) {
    while (bytes.size() >= HeaderSize) {
        std::size_t length = 0;
        for (unsigned i = 0; i < HeaderSize; ++i)
            length |= static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
        if (length > apigen::IIoDev::MaxMessageBytes) return EEnd::Broken;
        bytes.remove_prefix(HeaderSize);
        if (bytes.size() < length) return EEnd::Gone;
        messages.append("\n").append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return EEnd::Gone;
}

/// The device and how it is used.
class CSession {
public:
    CSession(int descriptor, unsigned mode) : m_device(descriptor), m_mode(mode) {
        m_event = std::make_shared<CEvent>(descriptor);
        theSocket.Signal = m_event.get();
        m_device.AddEvent(m_event);
        m_deadline = (mode & HasDeadline) != 0 ? apigen::IIoDev::Clock::time_point::min()
                                               : apigen::IIoDev::Clock::time_point::max();
        m_device.SetDeadline(m_deadline);
    }

    void Run() {
        if ((m_mode & IsRaw) != 0) return RunRaw();
        std::string read;
        EEnd end = EEnd::Gone;
        try {
            for (;;) {
                const std::string message = Repeat([&] { return ReadMessage(); });
                read.append("\n").append(message);
                if ((m_mode & IsEcho) != 0 && !Echo(message)) return;
            }
        } catch (const apigen::BrokenMessageError&) {
            end = EEnd::Broken;
            RequireGivenUp();
        } catch (const apigen::PeerGoneError&) {
        }
        std::string expected;
        const EEnd expectedEnd = ReadByModel(theSocket.Arriving.substr(0, theSocket.Arrived), expected);
        Require(read == expected, "every whole frame is read as it is", read);
        // More may have arrived than was looked at before the peer went away.
        Require(end == expectedEnd, "the end of the frames is told by its proper error", read);
    }

private:
    enum EMode : unsigned {
        HasDeadline = 1,
        IsView = 2,
        IsEcho = 4,
        IsRaw = 8
    };

    std::string ReadMessage() {
        return (m_mode & IsView) != 0 ? std::string(m_device.ReadView()) : m_device.ReadString();
    }

    /// An operation that its deadline or an event ended may be repeated, and goes on where it stopped.
    template <class Operation>
    std::string Repeat(Operation operation) {
        for (;;) {
            try {
                return operation();
            } catch (const apigen::TimeoutError&) {
                Require((m_mode & HasDeadline) != 0, "nothing times out without a deadline");
                if (theSocket.Steps.empty()) m_device.SetDeadline(apigen::IIoDev::Clock::time_point::max());
            } catch (const apigen::InterruptedError&) {
                Require(m_event->Set, "nothing is interrupted without an event");
                m_event->Set = false;
            }
        }
    }

    /// Sends the message back. False when it could not be.
    bool Echo(const std::string& message) {
        const std::size_t before = theSocket.Sent.size();
        const std::string frame = Header(message.size()) + message;
        const auto sent = [&] { return std::string_view(theSocket.Sent).substr(before); };
        try {
            Repeat([&] {
                m_device.WriteString(message);
                return std::string();
            });
        } catch (const apigen::PeerGoneError&) {
            Require(sent().size() < frame.size() && frame.starts_with(sent()), "nothing but a frame is sent");
            if (!sent().empty()) RequireGivenUp();
            return false;
        }
        Require(sent() == frame, "a message is sent as one frame", sent());
        return true;
    }

    /// Nothing can be read and nothing be sent any more.
    void RequireGivenUp() {
        m_event->Set = false;
        const std::size_t sent = theSocket.Sent.size();
        for (const bool isWrite : {false, true}) {
            try {
                if (isWrite)
                    m_device.WriteString("x");
                else
                    m_device.ReadString();
                Check("a stream that was given up goes on");
            } catch (const apigen::PeerGoneError&) {
            }
        }
        Require(theSocket.Sent.size() == sent, "nothing is sent on a stream that was given up");
    }

    void RunRaw() {
        const unsigned long limit = m_mode >> 4;
        bool isWhole = false;
        try {
            const std::string text = m_device.ReadRawText(limit, isWhole);
            // A reset ends it as well: bytes that never arrive were none.
            const std::string_view all = theSocket.Steps.empty()
                                             ? theSocket.Arriving
                                             : theSocket.Arriving.substr(0, theSocket.Arrived);
            Require(text == all.substr(0, limit), "raw text is what has come, up to the limit", text);
            Require(isWhole == (all.size() <= limit), "the limit is told from the end", text);
        } catch (const apigen::TimeoutError&) {
            Require((m_mode & HasDeadline) != 0, "nothing times out without a deadline");
        } catch (const apigen::InterruptedError&) {
            Require(m_event->Set, "nothing is interrupted without an event");
        } catch (const apigen::PeerGoneError&) {
            Require(!theSocket.Steps.empty(), "the end of raw text is no error");
        }
    }

    apigen::CInterruptibleIoDev m_device;
    unsigned m_mode;
    apigen::IIoDev::Clock::time_point m_deadline;
    std::shared_ptr<CEvent> m_event;
};

/// A socket for the device to own; nobody writes to it.
int NewDescriptor() {
    static const int kept = [] {
        int ends[2];
        Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
        return ends[0];
    }();
    return ::dup(kept);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

ssize_t __wrap_recv(int /*fd*/, void* into, std::size_t room, int /*flags*/) {
    const std::string_view left = theSocket.Arriving.substr(theSocket.Arrived);
    const ssize_t count = theSocket.Pass(std::min(left.size(), room));
    if (count <= 0) return count;
    left.copy(static_cast<char*>(into), static_cast<std::size_t>(count));
    theSocket.Arrived += static_cast<std::size_t>(count);
    return count;
}

ssize_t __wrap_sendmsg(int /*fd*/, const msghdr* message, int /*flags*/) {
    std::string all;
    for (std::size_t i = 0; i < message->msg_iovlen; ++i)
        all.append(static_cast<const char*>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
    const ssize_t count = theSocket.Pass(all.size());
    if (count > 0) theSocket.Sent.append(all, 0, static_cast<std::size_t>(count));
    return count;
}

int __wrap_poll(pollfd* set, nfds_t count, int /*milliseconds*/) {
    // The socket's directions come first, the event behind them.
    if (std::exchange(theSocket.WaitTimesOut, false)) return 0;
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        const bool isEvent = i + 1 == count && count > 2;
        const bool isReady = set[i].fd >= 0 && isEvent == theSocket.Signal->Set;
        set[i].revents = isReady ? set[i].events : static_cast<short>(0);
        ready += isReady ? 1 : 0;
    }
    return ready;
}
}
// NOLINTEND(bugprone-reserved-identifier)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CInput input(data, size);
    const unsigned mode = input.Byte();
    theSocket = {};
    theSocket.Steps = input.Take(input.Byte() % 16);
    theSocket.Arriving = input.Rest();
    CSession(NewDescriptor(), mode).Run();
    return 0;
}
