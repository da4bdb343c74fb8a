// SPDX-License-Identifier: Apache-2.0
#include "testagent/Events.h"

#include <zamservice/EventSource.h>

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <string_view>
#include <utility>

#include "service/EventSocket.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"
#include "support/common/Waiting.h"
#include "testagent/CRules.h"

namespace testagent {
namespace {

using apigen::common::CDescriptor;
using apigen::common::HeaderBytes;
using apigen::common::RetryInterrupted;
using zamclientlib::SBaseEvent;

class CGoodEvents final : public IEvents {
public:
    CGoodEvents(const std::string& directory, const std::string& name) : m_source(directory, name) {}

    void Publish(const SBaseEvent& event) override { m_source.Publish(event); }
    const std::string& SocketPath() const noexcept override { return m_source.SocketPath(); }
    void Stop() noexcept override { m_source.Stop(); }

private:
    zamservice::CEventSource m_source;
};

std::string Frame(std::string_view text) {
    const auto header = apigen::common::EncodeHeader(text.size());
    return std::string(header.data(), header.size()).append(text);
}

/// One connection of a socket that misbehaves. The operations that return a bool return false once it is of no
/// more use.
class CVictim {
public:
    explicit CVictim(CDescriptor connection) noexcept : m_connection(std::move(connection)) {}

    /// Whether the opening word has come.
    bool IsOpen() const noexcept { return m_opened == HeaderBytes; }

    /// Takes in what has come of the opening word.
    bool Receive() {
        pollfd gone{m_connection.Get(), 0, 0};
        if (::poll(&gone, 1, 0) > 0) return false;
        while (!IsOpen()) {
            std::array<char, HeaderBytes> bytes{};
            const ssize_t got =
                ::recv(m_connection.Get(), bytes.data(), HeaderBytes - m_opened, MSG_DONTWAIT);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return errno == EAGAIN;
            if (got == 0) return false;
            m_opened += static_cast<std::size_t>(got);
        }
        return true;
    }

    /// Sends what was held back, then `bytes`. False as well when the socket does not take it all.
    bool Send(std::string_view bytes) {
        if (!m_held.empty() && !SendNow(std::exchange(m_held, {}))) return false;
        return SendNow(bytes);
    }

    /// Sends the first half of `frame` and holds the rest back, with all that comes behind it.
    bool SendHalf(std::string_view frame) {
        constexpr std::size_t MaxHeld = 4UL * 1024 * 1024;
        const std::size_t half = m_held.empty() ? frame.size() / 2 : 0;
        if (!SendNow(frame.substr(0, half))) return false;
        m_held += frame.substr(half);
        return m_held.size() <= MaxHeld;
    }

private:
    bool SendNow(std::string_view bytes) const {
        const ssize_t sent = RetryInterrupted([&] {
            return ::send(m_connection.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        });
        return sent == static_cast<ssize_t>(bytes.size());
    }

    CDescriptor m_connection;
    std::size_t m_opened = 0;  ///< how many bytes of the opening word have come
    std::string m_held;
};

/// Without a thread: who connects is let in by the next event, and who does not read is disconnected by it.
class CBadEvents final : public IEvents {
public:
    CBadEvents(const std::string& directory, const std::string& name, const std::vector<SEventRule>& rules,
               std::function<void()> beforeEnd)
        : m_rules(rules),
          m_beforeEnd(std::move(beforeEnd)),
          m_path(directory + "/" + name),
          m_socket(directory, name, zamservice::SEventSourceOptions().StartLimit) {}

    void Publish(const SBaseEvent& event) override {
        const std::string frame = Frame(apigen::SerializeDocument("Event", event));
        std::unique_lock lock(m_mutex);
        if (m_isStopped) return;
        TakeInNewcomers();
        if (!HasSubscriber()) return;
        const auto rule =
            m_rules.Due([&](const SEventRule& each) { return !each.Event || *each.Event == event.Type; });
        if (!rule) return ForEachSubscriber([&](CVictim& victim) { return victim.Send(frame); });
        const bool isKill = rule->Action == EEventAction::Kill;
        ForEachSubscriber([&](CVictim& victim) { return Mistreat(victim, *rule, frame) || isKill; });
        if (!isKill) return;
        lock.unlock();
        // Half a frame is what the subscribers have got, and all that they are to see of the end.
        m_beforeEnd();
        std::raise(SIGKILL);
    }

    const std::string& SocketPath() const noexcept override { return m_path; }

    void Stop() noexcept override {
        const std::lock_guard lock(m_mutex);
        m_isStopped = true;
        m_socket.Close();
    }

private:
    static bool Mistreat(CVictim& victim, const SEventRule& rule, const std::string& frame) {
        switch (rule.Action) {
            case EEventAction::Stall:
                return victim.SendHalf(frame);
            case EEventAction::HalfFrame:
            case EEventAction::Kill:
                (void)victim.SendHalf(frame);
                return false;
            case EEventAction::Garbage:
                return victim.Send(rule.Message);
            case EEventAction::Malformed:
                return victim.Send(Frame("<Data><unfinished>"));
            case EEventAction::Disconnect:
                break;
        }
        return false;
    }

    void TakeInNewcomers() {
        constexpr std::size_t MaxSubscribers = 256;
        while (m_victims.size() < MaxSubscribers) {
            CDescriptor connection(
                ::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (!connection) break;
            if (zamservice::IsOwnUserOrRoot(connection.Get())) m_victims.emplace_back(std::move(connection));
        }
        std::erase_if(m_victims, [](CVictim& victim) { return !victim.Receive(); });
    }

    bool HasSubscriber() const {
        for (const auto& victim : m_victims) {
            if (victim.IsOpen()) return true;
        }
        return false;
    }

    /// Calls `isKept` for each subscriber and disconnects those for which it is false.
    template <class F>
    void ForEachSubscriber(F isKept) {
        std::erase_if(m_victims, [&](CVictim& victim) { return victim.IsOpen() && !isKept(victim); });
    }

    CRules<SEventRule> m_rules;
    const std::function<void()> m_beforeEnd;
    const std::string m_path;
    std::mutex m_mutex;
    zamservice::CEventSocket m_socket;
    std::vector<CVictim> m_victims;
    bool m_isStopped = false;
};

}  // namespace

std::unique_ptr<IEvents> MakeEvents(const std::string& directory, const std::string& name,
                                    const std::vector<SEventRule>& rules, std::function<void()> beforeEnd) {
    if (rules.empty()) return std::make_unique<CGoodEvents>(directory, name);
    return std::make_unique<CBadEvents>(directory, name, rules, std::move(beforeEnd));
}

}  // namespace testagent
