// SPDX-License-Identifier: Apache-2.0
#include "support/common/CFrameStream.h"

#include <apigen/ApiException.h>
#include <apigen/IIoDev.h>

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "support/common/FrameHeader.h"
#include "support/common/Text.h"

namespace apigen::common {

namespace {

using EState = CMessageAssembler::EState;

// While it writes, a stream takes in no more than this; a peer that sends on without reading has to wait.
constexpr std::size_t MaxReceivedAhead = 2 * IIoDev::MaxMessageBytes;

// A message of up to this size is copied behind its header, to be sent in one piece.
constexpr std::size_t SmallMessage = 64 * 1024;

// Of messages that wait for a full channel, so many more bytes come together before it is asked again.
constexpr std::size_t BetweenTries = 1024;

// Room for messages to come that is worth keeping.
constexpr std::size_t KeptOutput = 2 * SmallMessage;

constexpr std::size_t ShownBytes = 200;
constexpr std::size_t ShownBinaryBytes = 16;

constexpr const char* StreamEnded = "the stream ended";
constexpr const char* PeerEnded = "it has ended, and left its streams open in others' hands";

}  // namespace

/// A message on its way out. Left before it has been sent, by whatever exception, it is taken back; when a part of it
/// is gone, the stream is.
class CFrameStream::COutgoing {
public:
    /// Puts the message, or of a large one what precedes its text, behind the output. `text` is what remains to be
    /// sent behind that.
    COutgoing(CFrameStream& stream, std::string_view& text, std::size_t copied)
        : m_stream(stream), m_begin(stream.m_output.size()) {
        const auto header = EncodeHeader(text.size());
        const bool isCopied = text.size() <= copied;
        auto& output = m_stream.m_output;
        output.reserve(m_begin + header.size() + (isCopied ? text.size() : 0));
        output.append(header.data(), header.size());
        if (isCopied) output.append(std::exchange(text, {}));
    }
    COutgoing(const COutgoing&) = delete;
    COutgoing& operator=(const COutgoing&) = delete;
    ~COutgoing() {
        if (m_isDone) return;
        Failed("a message was cut off");
        if (m_stream.m_sent <= m_begin) m_stream.m_output.resize(m_begin);
    }

    void Done() noexcept { m_isDone = true; }
    void Failed(const char* why) noexcept {
        if (m_stream.m_sent > m_begin) m_stream.GiveUp(why);
    }

private:
    CFrameStream& m_stream;
    std::size_t m_begin;
    bool m_isDone = false;
};

std::string CFrameStream::ReadString() {
    AwaitMessage();
    return m_input.Take();
}

std::string_view CFrameStream::ReadView() {
    AwaitMessage();
    return m_input.View();
}

void CFrameStream::AwaitMessage() {
    Begin("read a message from");
    for (;;) {
        const EState state = m_input.Advance();
        if (state == EState::Whole) return;
        if (state == EState::Overlong) ThrowOverlong();
        if (!Receive()) ThrowEnded();
    }
}

std::string_view CFrameStream::ReadMessage(std::string& room) {
    AwaitMessage();
    return m_input.IsInPlace() ? m_input.View() : room = m_input.Take();
}

std::string CFrameStream::ReadRawText(std::size_t maxBytes, bool& ended) {
    Begin("read the output of");
    std::string text;
    for (;;) {
        const std::size_t count = std::min(maxBytes - text.size(), m_input.Loose().size());
        text.append(m_input.Loose().substr(0, count));
        m_input.DropLoose(count);
        const bool isMoreThere = !m_input.Loose().empty();
        ended = !isMoreThere && !Receive();
        if (ended || isMoreThere) return text;
    }
}

void CFrameStream::WriteString(std::string_view text) {
    BeginMessage(text);
    COutgoing outgoing(*this, text, SmallMessage);
    try {
        Send(text);
    } catch (const std::exception& error) {
        outgoing.Failed(error.what());
        throw;
    }
    outgoing.Done();
}

void CFrameStream::WriteLater(std::string_view text) {
    BeginMessage(text);
    COutgoing(*this, text, text.size()).Done();
}

void CFrameStream::SendQueued() {
    Begin("send a message to");
    if (m_output.size() < m_nextTry) return;
    std::string_view nothingElse;
    while (!m_output.empty()) {
        if (SendSome(nothingElse)) continue;
        // A peer whose own output is full takes no more input until somebody reads that.
        if (errno == EINTR || (errno == EAGAIN && ReceiveAhead())) continue;
        m_nextTry = m_output.size() + BetweenTries;
        return;
    }
}

pollfd CFrameStream::EventToPoll() const {
    return {m_event != nullptr ? m_event->Descriptor() : -1, POLLIN, 0};
}

bool CFrameStream::IsInterrupted() const {
    return m_event != nullptr && m_event->IsSet();
}

void CFrameStream::GiveUp(std::string_view reason) noexcept {
    if (m_lost) return;
    m_lost.emplace();
    try {
        *m_lost = reason;
    } catch (const std::bad_alloc&) {  // no reason is given then
    }
}

void CFrameStream::Begin(const char* action) {
    m_action = action;
    m_isContinued = false;
    if (!m_origin.IsHere())
        throw PeerGoneError(Cannot("the connection belongs to the process that this one was forked from"));
    if (m_lost) throw PeerGoneError(Cannot("the connection was given up (" + *m_lost + ')'));
}

void CFrameStream::BeginMessage(std::string_view text) {
    if (text.size() > IIoDev::MaxMessageBytes)
        throw ApiInternalError("Cannot send a message of " + std::to_string(text.size()) + " bytes to " +
                               m_owner.Peer() + ": the limit is " + std::to_string(IIoDev::MaxMessageBytes) +
                               " bytes");
    Begin("send a message to");
}

/// Takes in what comes next, waiting for it when nothing is there; false at the end of the input.
bool CFrameStream::Receive() {
    if (!m_output.empty()) Send({});
    // Where bytes never cease to come, nobody waits: the deadline and the owner get their say here.
    const bool isContinued = std::exchange(m_isContinued, true);
    if (isContinued && IsInterrupted()) ThrowInterrupted();
    // An answer to what has just been sent is hardly there yet: to look for it first would mostly be in vain.
    bool isToWait = (isContinued || m_isAnswerAwaited) && !m_channel.BlocksInReading();
    for (bool isFirst = !isContinued; m_end == nullptr; isFirst = false) {
        if (isToWait) {
            if (!isFirst && IsPast(m_deadline)) ThrowTimeout();
            const short ready = m_owner.Wait(POLLIN, m_deadline);
            if (ready == 0) ThrowUnready();
            if ((ready & POLLIN) == 0) {
                m_end = PeerEnded;
                break;
            }
        }
        char* const room = m_input.Room();
        const ssize_t count = m_channel.Read(room, m_input.RoomSize());
        if (count > 0) {
            m_input.Commit(static_cast<std::size_t>(count));
            m_isAnswerAwaited = false;
            return true;
        }
        // A peer that closes a socket without having read everything resets it.
        if (count == 0 || errno == ECONNRESET) {
            m_end = StreamEnded;
        } else if (errno != EAGAIN && errno != EINTR) {
            ThrowGone(ErrorText(errno));
        }
        isToWait = true;
    }
    return false;
}

bool CFrameStream::MayReceiveAhead() const noexcept {
    return m_end == nullptr && m_input.Loose().size() < MaxReceivedAhead;
}

/// Takes in what is there; what goes wrong is left for the next read to meet. False when nothing was there.
bool CFrameStream::ReceiveAhead() {
    if (!MayReceiveAhead()) return false;
    char* const room = m_input.Room();
    const ssize_t count = m_channel.Read(room, m_input.RoomSize());
    if (count > 0) m_input.Commit(static_cast<std::size_t>(count));
    if (count == 0) m_end = StreamEnded;
    return count > 0;
}

/// Sends what waits, and `text` behind it.
void CFrameStream::Send(std::string_view text) {
    while (!m_output.empty() || !text.empty()) {
        if (SendSome(text)) continue;
        if (errno == EPIPE || errno == ECONNRESET) ThrowClosed("it takes no more input");
        if (errno != EAGAIN && errno != EINTR && errno != ENOBUFS) ThrowGone(ErrorText(errno));
        if (IsPast(m_deadline)) ThrowTimeout();
        if (IsInterrupted()) ThrowInterrupted();
        const int events = POLLOUT | (MayReceiveAhead() ? POLLIN : 0);
        const short ready = m_owner.Wait(static_cast<short>(events), m_deadline);
        if (ready == 0) ThrowUnready();
        if ((ready & events) == 0) ThrowGone(PeerEnded);
        if ((ready & POLLIN) != 0) ReceiveAhead();
    }
}

/// One write; false, with errno, when nothing could be written.
bool CFrameStream::SendSome(std::string_view& text) {
    const std::array<iovec, 2> parts{iovec{m_output.data() + m_sent, m_output.size() - m_sent},
                                     iovec{const_cast<char*>(text.data()), text.size()}};
    const ssize_t result = m_channel.Write(parts.data(), text.empty() ? 1 : parts.size());
    if (result < 0) return false;
    m_isAnswerAwaited = true;
    m_nextTry = 0;
    const auto sent = static_cast<std::size_t>(result);
    const std::size_t ofOutput = std::min(sent, m_output.size() - m_sent);
    m_sent += ofOutput;
    text.remove_prefix(sent - ofOutput);
    // Kept as long as the text behind it is on its way: the message begins in here.
    if (m_sent != m_output.size() || !text.empty()) return true;
    m_sent = 0;
    m_output.clear();
    if (m_output.capacity() > KeptOutput) m_output.shrink_to_fit();
    return true;
}

void CFrameStream::ThrowOverlong() {
    const bool isText = LooksLikeText(m_input.Loose().substr(0, HeaderBytes));
    if (isText && !m_channel.BlocksInReading()) ReceiveAhead();  // so that more than its first word is shown
    std::string message = m_owner.Peer() + " sent something that is no message: ";
    if (!isText)
        message += "it announces " + std::to_string(m_input.Length()) + " bytes where " +
                   std::to_string(IIoDev::MaxMessageBytes) + " are allowed, and starts with ";
    message += Quoted(m_input.Loose().substr(0, isText ? ShownBytes : ShownBinaryBytes));
    GiveUp(message);
    BrokenMessageError error(message + m_owner.Epitaph(false));
    error.SetConnectionLost();
    throw error;
}

void CFrameStream::ThrowEnded() {
    const std::string progress = Progress();
    if (m_end == PeerEnded) ThrowGone(PeerEnded + progress);
    if (!progress.empty()) ThrowGone(std::string(m_end) + " in the middle of a message" + progress);
    const std::string_view rest = m_input.Loose();
    if (rest.empty()) ThrowClosed(m_end);
    ThrowGone(std::string(m_end) + " after " + std::to_string(rest.size()) +
              " bytes that are no message: " + Quoted(rest));
}

/// The peer has closed its end, and did so when it was free to.
void CFrameStream::ThrowClosed(const char* how) {
    throw PeerGoneError(Cannot(how + m_owner.Epitaph(true)), true);
}

void CFrameStream::ThrowTimeout() {
    throw TimeoutError(Cannot("it did not respond in time" + Progress() + m_owner.Epitaph(false)));
}

void CFrameStream::ThrowInterrupted() {
    throw InterruptedError(Cannot(m_event->Reason() + Progress()));
}

/// After a wait that ended with nothing.
void CFrameStream::ThrowUnready() {
    if (IsInterrupted()) ThrowInterrupted();
    ThrowTimeout();
}

void CFrameStream::ThrowGone(const std::string& why) {
    throw PeerGoneError(Cannot(why + m_owner.Epitaph(true)));
}

std::string CFrameStream::Cannot(std::string_view why) const {
    return std::string("Cannot ")
        .append(m_action)
        .append(" ")
        .append(m_owner.Peer())
        .append(": ")
        .append(why);
}

/// How far the message has come that is being read.
std::string CFrameStream::Progress() const {
    if (!m_input.IsWithin()) return {};
    const std::string_view begun = m_input.Begun();
    std::string text =
        " (" + std::to_string(begun.size()) + " of " + std::to_string(m_input.Length()) + " bytes had come";
    const auto header = EncodeHeader(m_input.Length());
    const std::string_view shownHeader(header.data(), header.size());
    if (LooksLikeText(shownHeader))  // a short text can pass for a length
        text += "; they may be no message: " +
                Quoted(std::string(shownHeader).append(begun.substr(0, ShownBytes)));
    return text + ')';
}

}  // namespace apigen::common
