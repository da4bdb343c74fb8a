// SPDX-License-Identifier: Apache-2.0
#include "support/common/CFrameStream.h"

#include <apigen/ApiException.h>

#include <algorithm>
#include <array>
#include <utility>

#include "support/common/FrameHeader.h"
#include "support/common/Text.h"

namespace apigen::common {

namespace {

// A message is given room for so many times what has come of it. Room that stays untouched costs nothing.
constexpr std::size_t RoomAhead = 8;

// While it writes, a stream takes in no more than this; a peer that sends on without reading has to wait.
constexpr std::size_t MaxReceivedAhead = 2 * IIoDev::MaxMessageBytes;

// With its header a message of up to this size is copied to be sent in one piece.
constexpr std::size_t SmallMessage = 4096;

constexpr std::size_t ShownBytes = 200;
constexpr std::size_t ShownBinaryBytes = 16;

}  // namespace

std::string CFrameStream::ReadString() {
    BeginOperation("read a message from");
    if (!m_inMessage && BeginMessage()) {
        std::string message(m_input.Bytes().substr(0, m_length));
        m_input.Drop(m_length);
        return message;
    }
    return ReadRest();
}

std::string_view CFrameStream::ReadView() {
    BeginOperation("read a message from");
    if (!m_inMessage && BeginMessage()) {
        m_viewed = m_length;
        return m_input.Bytes().substr(0, m_length);
    }
    return m_longView = ReadRest();
}

std::string CFrameStream::ReadRest() {
    while (m_message.size() < m_length) {
        if (m_input.IsEmpty() && ReceiveIntoQueue() == 0)
            ThrowGone("the stream ended in the middle of a message" + Progress());
        const std::string_view bytes = m_input.Bytes().substr(0, m_length - m_message.size());
        const std::size_t needed = m_message.size() + bytes.size();
        if (needed > m_message.capacity()) m_message.reserve(std::min(m_length, RoomAhead * needed));
        m_message += bytes;
        m_input.Drop(bytes.size());
    }
    m_inMessage = false;
    return std::exchange(m_message, {});
}

/// Reads the header; true when the whole message has already arrived with it.
bool CFrameStream::BeginMessage() {
    while (m_input.Size() < HeaderBytes) {
        if (ReceiveIntoQueue() != 0) continue;
        if (m_input.IsEmpty()) ThrowGone("the stream ended");
        ThrowGone("the stream ended after " + std::to_string(m_input.Size()) +
                  " bytes that are no message: " + Quoted(m_input.Bytes()));
    }
    const std::uint32_t length = DecodeHeader(m_input.Bytes());
    if (length > IIoDev::MaxMessageBytes) RefuseOverlong(length);
    m_input.Drop(HeaderBytes);
    m_length = length;
    if (m_input.Size() >= length) return true;
    m_inMessage = true;
    m_message.clear();
    return false;
}

void CFrameStream::RefuseOverlong(unsigned long length) {
    const bool isText = LooksLikeText(m_input.Bytes().substr(0, HeaderBytes));
    if (isText) ReceiveAhead();  // so that more than its first word is shown
    std::string message = m_owner.Peer() + " sent something that is no message: ";
    if (!isText)
        message += "it announces " + std::to_string(length) + " bytes where " +
                   std::to_string(IIoDev::MaxMessageBytes) + " are allowed, and starts with ";
    message += Quoted(m_input.Bytes().substr(0, isText ? ShownBytes : ShownBinaryBytes));
    GiveUp(message);
    throw BrokenMessageError(message + m_owner.LastWords());
}

std::string CFrameStream::ReadRawText(std::size_t maxBytes, bool& ended) {
    BeginOperation("read the output of");
    std::string text;
    for (;;) {
        const std::size_t count = std::min(maxBytes - text.size(), m_input.Size());
        text.append(m_input.Bytes().substr(0, count));
        m_input.Drop(count);
        ended = m_input.IsEmpty() && ReceiveIntoQueue() == 0;
        if (ended || (text.size() == maxBytes && !m_input.IsEmpty())) return text;
    }
}

void CFrameStream::WriteString(std::string_view text) {
    if (text.size() > IIoDev::MaxMessageBytes)
        throw ApiInternalError("Cannot send a message of " + std::to_string(text.size()) + " bytes to " +
                               m_owner.Peer() + ": the limit is " + std::to_string(IIoDev::MaxMessageBytes) +
                               " bytes");
    BeginOperation("send a message to");
    SendAll(text);
}

void CFrameStream::SendAll(std::string_view text) {
    const auto header = EncodeHeader(text.size());
    // One piece is cheaper to send than two, as long as it is cheap to make.
    std::array<char, SmallMessage> whole;
    const bool isSmall = header.size() + text.size() <= whole.size();
    const std::size_t ahead = isSmall ? header.size() + text.size() : header.size();
    std::copy(header.begin(), header.end(), whole.begin());
    if (isSmall) text.copy(whole.data() + header.size(), text.size());

    std::array<iovec, 2> parts{iovec{whole.data(), ahead},
                               iovec{const_cast<char*>(text.data()), isSmall ? 0 : text.size()}};
    const std::size_t total = header.size() + text.size();
    std::size_t left = total;
    try {
        for (;;) {
            const ssize_t sent = m_channel.Write(parts.data(), isSmall ? 1 : parts.size());
            if (sent < 0) {
                if (errno == EPIPE || errno == ECONNRESET) ThrowGone("it takes no more input");
                if (errno != EAGAIN && errno != EINTR && errno != ENOBUFS) ThrowGone(ErrorText(errno));
                if (Wait(true)) ReceiveAhead();
                m_owner.Check();
                continue;
            }
            left -= static_cast<std::size_t>(sent);
            if (left == 0) return;
            for (std::size_t count = static_cast<std::size_t>(sent); iovec & part : parts) {
                const std::size_t done = std::min(count, part.iov_len);
                part.iov_base = static_cast<char*>(part.iov_base) + done;
                part.iov_len -= done;
                count -= done;
            }
        }
    } catch (const std::exception& error) {
        if (left != total) GiveUp(error.what());
        throw;
    }
}

void CFrameStream::GiveUp(std::string_view reason) noexcept {
    if (m_givenUp) return;
    m_givenUp = true;
    try {
        m_reason = reason;
    } catch (...) {  // out of memory: no reason is given then
    }
}

void CFrameStream::BeginOperation(const char* action) {
    m_action = action;
    m_continued = false;
    m_input.Drop(std::exchange(m_viewed, 0));
    if (!m_longView.empty()) m_longView = {};
    if (m_givenUp) throw PeerGoneError(Cannot("the connection was given up (" + m_reason + ')'));
    m_owner.Check();
}

std::size_t CFrameStream::Receive(char* into, std::size_t room) {
    if (std::exchange(m_continued, true)) {  // a peer that trickles must not outlast the deadline
        m_owner.Check();
        if (IsPast(m_deadline)) ThrowTimeout(Progress());
    }
    for (;;) {
        const ssize_t count = m_channel.Read(into, room);
        if (count >= 0) {
            m_inputEnded = count == 0;
            return static_cast<std::size_t>(count);
        }
        if (errno != EAGAIN && errno != EINTR) ThrowGone(ErrorText(errno));
        Wait(false);
    }
}

std::size_t CFrameStream::ReceiveIntoQueue() {
    char* const room = m_input.Room();
    const std::size_t count = Receive(room, m_input.RoomSize());
    m_input.Commit(count);
    return count;
}

/// What goes wrong here is left for the next read to meet.
void CFrameStream::ReceiveAhead() {
    char* const room = m_input.Room();
    const ssize_t count = m_channel.Read(room, m_input.RoomSize());
    if (count > 0) m_input.Commit(static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) m_inputEnded = true;
}

bool CFrameStream::Wait(bool forWriting) {
    const bool reading = !forWriting || (!m_inputEnded && m_input.Size() < MaxReceivedAhead);
    m_pollSet.clear();
    m_pollSet.push_back({reading ? m_channel.ReadDescriptor() : -1, POLLIN, 0});
    m_pollSet.push_back({forWriting ? m_channel.WriteDescriptor() : -1, POLLOUT, 0});
    m_owner.Watch(m_pollSet);
    for (;;) {
        const int ready = ::poll(m_pollSet.data(), m_pollSet.size(), PollTimeout(m_deadline));
        if (ready < 0 && errno != EINTR) ThrowGone("waiting failed: " + ErrorText(errno));
        const bool readable = ready > 0 && m_pollSet[0].revents != 0;
        const bool writable = ready > 0 && m_pollSet[1].revents != 0;
        const bool othersReady = ready > int{readable} + int{writable};
        if (othersReady) m_owner.Woken();
        if (forWriting ? writable : readable) return readable;
        if (IsPast(m_deadline)) ThrowTimeout(forWriting ? std::string() : Progress());
        if (readable) return true;
        m_owner.Check();
        // It may have written its last words after the streams were looked at and before its end was.
        if (othersReady && m_owner.HasPeerEnded() && (forWriting || !IsReadable()))
            ThrowGone("it has ended, and left its streams open in others' hands");
        m_pollSet.resize(2);
        m_owner.Watch(m_pollSet);
    }
}

bool CFrameStream::IsReadable() const {
    pollfd input{m_channel.ReadDescriptor(), POLLIN, 0};
    return !m_inputEnded && ::poll(&input, 1, 0) > 0;
}

std::string CFrameStream::Cannot(std::string_view why) const {
    return std::string("Cannot ")
        .append(m_action)
        .append(" ")
        .append(m_owner.Peer())
        .append(": ")
        .append(why);
}

std::string CFrameStream::Progress() const {
    if (!m_inMessage) return {};
    std::string text =
        " (" + std::to_string(m_message.size()) + " of " + std::to_string(m_length) + " bytes had come";
    const auto header = EncodeHeader(m_length);
    const std::string_view shownHeader(header.data(), header.size());
    if (LooksLikeText(shownHeader))  // a short text can pass for a length
        text +=
            "; they may be no message: " + Quoted(std::string(shownHeader) + m_message.substr(0, ShownBytes));
    return text + ')';
}

void CFrameStream::ThrowTimeout(const std::string& progress) {
    throw TimeoutError(Cannot("it did not respond in time" + progress + m_owner.LastWords()));
}

void CFrameStream::ThrowGone(const std::string& why) {
    throw PeerGoneError(Cannot(why + m_owner.Fate()));
}

}  // namespace apigen::common
