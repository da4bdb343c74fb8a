// SPDX-License-Identifier: Apache-2.0
#include "service/CSubscriber.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace zamservice {

using apigen::common::HeaderBytes;
using apigen::common::RetryInterrupted;

bool CSubscriber::Receive() {
    // One byte more than the word, to notice what comes behind it.
    std::array<char, HeaderBytes + 1> bytes{};
    const std::size_t room = HeaderBytes - m_opened + 1;
    const ssize_t got =
        RetryInterrupted([&] { return ::recv(m_connection.Get(), bytes.data(), room, MSG_DONTWAIT); });
    if (got < 0) return errno == EAGAIN;
    if (got == 0) {
        // A peer may close its own direction and read on.
        m_hasInputEnded = true;
        return IsOpen() && UpdateWatch();
    }
    const auto count = static_cast<std::size_t>(got);
    if (count == room || std::any_of(bytes.begin(), bytes.begin() + got, [](char c) { return c != 0; })) {
        return false;
    }
    m_opened += count;
    return true;
}

bool CSubscriber::Send(const std::shared_ptr<const std::string>& frame, std::size_t maxQueued) {
    if (!m_queue.empty() && m_queued + frame->size() > maxQueued) {
        // Full only when the socket takes nothing: the thread that empties the queue may be late.
        if (!Flush()) return false;
        if (!m_queue.empty() && m_queued + frame->size() > maxQueued) return false;
    }
    std::size_t sent = 0;
    if (m_queue.empty()) {
        const ssize_t result = RetryInterrupted([&] {
            return ::send(m_connection.Get(), frame->data(), frame->size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        });
        if (result < 0 && errno != EAGAIN) return false;
        sent = result < 0 ? 0 : static_cast<std::size_t>(result);
        if (sent == frame->size()) return true;
        m_sentOfFirst = sent;
    }
    m_queue.push_back(frame);
    m_queued += frame->size() - sent;
    return m_queue.size() > 1 || UpdateWatch();
}

bool CSubscriber::Handle(std::uint32_t events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) return false;
    if ((events & EPOLLIN) != 0 && !Receive()) return false;
    return (events & EPOLLOUT) == 0 || Flush();
}

bool CSubscriber::Flush() {
    constexpr std::size_t MaxParts = 256;
    std::array<iovec, MaxParts> parts;  // NOLINT: filled as far as used
    while (!m_queue.empty()) {
        const std::size_t count = std::min(m_queue.size(), MaxParts);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t skipped = i == 0 ? m_sentOfFirst : 0;
            parts[i] = {const_cast<char*>(m_queue[i]->data()) + skipped, m_queue[i]->size() - skipped};
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = count;
        const ssize_t result = RetryInterrupted(
            [&] { return ::sendmsg(m_connection.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL); });
        if (result < 0) return errno == EAGAIN;
        auto left = static_cast<std::size_t>(result);
        m_queued -= left;
        left += m_sentOfFirst;
        while (!m_queue.empty() && left >= m_queue.front()->size()) {
            left -= m_queue.front()->size();
            m_queue.pop_front();
        }
        m_sentOfFirst = left;
    }
    return UpdateWatch();
}

void CSubscriber::Disconnect() noexcept {
    ::epoll_ctl(m_epoll, EPOLL_CTL_DEL, m_connection.Get(), nullptr);
    ::shutdown(m_connection.Get(), SHUT_RDWR);
}

bool CSubscriber::UpdateWatch() {
    epoll_event event{};
    event.data.u64 = m_id;
    if (!m_hasInputEnded) event.events |= EPOLLIN;
    if (HasQueue()) event.events |= EPOLLOUT;
    return ::epoll_ctl(m_epoll, EPOLL_CTL_MOD, m_connection.Get(), &event) == 0;
}

}  // namespace zamservice
