// SPDX-License-Identifier: Apache-2.0
#include "agent/daemon/CConnections.h"

#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CXmlData.h>
#include <zamclientlib/Exceptions.h>
#include <zamservice/Service.h>

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "agent/daemon/Handover.h"
#include "agent/host/Files.h"
#include "service/EventSocket.h"
#include "service/Failure.h"
#include "support/common/CDescriptorDevice.h"
#include "support/common/FrameHeader.h"
#include "support/common/PassDescriptors.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using namespace std::chrono_literals;
using apigen::common::CDescriptor;
using apigen::common::CDescriptorDevice;
using apigen::common::Clock;

/// A tool says its word as soon as it has connected.
constexpr auto WordLimit = 5s;

/// How often a thread that is to end is woken: it may have been about to wait when it was woken before.
constexpr std::uint64_t TickMicroseconds = 10'000;

/// More descriptors than this never come along with a word of a tool of ours; the kernel closes what finds no room.
constexpr std::size_t MaxDescriptors = 8;

/// Clients' objects are small, and so are the stacks that answering needs.
constexpr std::size_t StackBytes = 1024UL * 1024;

/// Of one client. All share our memory, which must not become large by one client's mistake.
constexpr std::size_t ObjectLimit = 100'000;

SPeer PeerOf(int control) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(control, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "Asking for a peer's credentials failed");
    }
    return {peer.uid, UserName(peer.uid), peer.pid};
}

/// What can go at once: nobody waits for a client that is turned away.
void SendAtOnce(int control, const std::string& bytes) {
    apigen::common::RetryInterrupted(
        [&] { return ::send(control, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT); });
}

}  // namespace

void CheckEvent(int result, const char* what) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

std::string RefusalFrame(const std::string& why) {
    const std::string text =
        apigen::CXmlData::Serialize(*zamservice::Failure(zamclientlib::CGenericException(why)));
    const auto header = apigen::common::EncodeHeader(text.size());
    return std::string(header.data(), header.size()) + text;
}

namespace {

/// A device that tells whether a request is being carried out: between its arrival and its answer. (One could have the
/// kit ask us for each answer instead, but then it copies every request and answer.)
class CTellingDevice final : public apigen::IIoDev {
public:
    CTellingDevice(apigen::IIoDev& device, std::atomic<bool>& isAnswering) noexcept
        : m_device(device), m_isAnswering(isAnswering) {}

    std::string ReadRawText(unsigned long maxBytes, bool& flag) override {
        Tell(false);
        return m_device.ReadRawText(maxBytes, flag);
    }
    std::string ReadString() override {
        Tell(false);
        std::string message = m_device.ReadString();
        Tell(true);
        return message;
    }
    std::string_view ReadMessage(std::string& room) override {
        Tell(false);
        const auto message = m_device.ReadMessage(room);
        Tell(true);
        return message;
    }
    void WriteString(const std::string& text) override {
        Tell(false);
        m_device.WriteString(text);
    }
    void WriteLater(const std::string& text) override {
        Tell(false);
        m_device.WriteLater(text);
    }
    void SendQueued() override { m_device.SendQueued(); }
    void SetDeadline(Clock::time_point deadline) override { m_device.SetDeadline(deadline); }
    void SetEvent(const apigen::io::event::IEvent* event) override { m_device.SetEvent(event); }
    std::string Peer() const override { return m_device.Peer(); }
    std::string WhyEnded() override { return m_device.WhyEnded(); }

private:
    /// Nothing hangs on the order: who looks does so again and again.
    void Tell(bool isAnswering) noexcept { m_isAnswering.store(isAnswering, std::memory_order_relaxed); }

    apigen::IIoDev& m_device;
    std::atomic<bool>& m_isAnswering;
};

}  // namespace

struct CConnections::SConnection {
    CConnections& Owner;
    CDescriptor Control;
    SPeer Peer;
    SourcePtr Watch = {};

    Clock::time_point WordDeadline = Clock::now() + WordLimit;
    std::string Word = {};
    std::vector<CDescriptor> Given = {};
    bool IsTruncated = false;

    std::shared_ptr<apigen::io::event::CAtomicEvent> EndEvent = {};
    pthread_t Thread = {};
    bool HasThread = false;
    bool IsEnding = false;
    std::atomic<bool> IsAnswering = false;  ///< a call is under way, which no signal is to disturb
    std::atomic<bool> HasEnded = false;     ///< the thread has nothing left to do
};

CConnections::CConnections(sd_event* loop, MakeControl makeControl, ILog& log, int wakeSignal)
    : m_loop(loop),
      m_makeControl(std::move(makeControl)),
      m_log(log),
      m_wakeSignal(wakeSignal),
      m_news(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_news) throw std::system_error(errno, std::generic_category(), "Making an eventfd failed");
    sd_event_source* source = nullptr;
    const auto onNews = [](sd_event_source*, int, std::uint32_t, void* self) {
        static_cast<CConnections*>(self)->OnNews();
        return 0;
    };
    CheckEvent(::sd_event_add_io(m_loop, &source, m_news.Get(), EPOLLIN, onNews, this),
               "Watching for threads that end failed");
    m_newsSource.reset(source);
    const auto onTick = [](sd_event_source*, std::uint64_t, void* self) {
        static_cast<CConnections*>(self)->OnTick();
        return 0;
    };
    CheckEvent(
        ::sd_event_add_time_relative(m_loop, &source, CLOCK_MONOTONIC, TickMicroseconds, 0, onTick, this),
        "Setting a timer failed");
    m_tick.reset(source);
    SetTick(false);
}

/// Threads that still run use what is about to go: to be called once `IsEmpty`.
CConnections::~CConnections() = default;

void CConnections::SetTick(bool isOn) {
    ::sd_event_source_set_time_relative(m_tick.get(), TickMicroseconds);
    ::sd_event_source_set_enabled(m_tick.get(), isOn ? SD_EVENT_ONESHOT : SD_EVENT_OFF);
}

void CConnections::Add(CDescriptor control) {
    SPeer peer = PeerOf(control.Get());
    if (!zamservice::IsOwnUserOrRoot(control.Get())) {
        m_log.Warning("A client of user " + peer.UserName + " (process " + std::to_string(peer.Process) +
                      ") was refused: the agent serves its own user and root");
        SendAtOnce(control.Get(),
                   RefusalFrame("The agent serves user " + UserName(::geteuid()) +
                                (::geteuid() == 0 ? "" : " and root") + ", and not user " + peer.UserName));
        return;
    }
    if (m_all.size() >= Limit) {
        m_log.Warning("A client was refused: " + std::to_string(Limit) + " are connected already");
        SendAtOnce(control.Get(), RefusalFrame("The agent serves " + std::to_string(Limit) +
                                               " connections already, and no more; close others first"));
        return;
    }
    // NOLINTNEXTLINE(modernize-make-unique): clang 14 makes no aggregates that way
    m_all.emplace_back(new SConnection{*this, std::move(control), std::move(peer)});
    auto& connection = *m_all.back();
    sd_event_source* source = nullptr;
    const auto onEvent = [](sd_event_source*, int, std::uint32_t, void* data) {
        auto& self = *static_cast<SConnection*>(data);
        self.Owner.Receive(self);
        return 0;
    };
    const int watched = ::sd_event_add_io(m_loop, &source, connection.Control.Get(), EPOLLIN | EPOLLRDHUP,
                                          onEvent, &connection);
    if (watched < 0) {
        Refuse(connection, "The agent can't serve: watching a connection failed");
        return;
    }
    connection.Watch.reset(source);
    // Most often the word is there already.
    Receive(connection);
    if (std::any_of(m_all.begin(), m_all.end(), [](const auto& each) { return !each->HasThread; }))
        SetTick(true);
}

/// Takes in what the tool says: its word, and later that it leaves.
void CConnections::Receive(SConnection& connection) {
    std::array<char, 64> bytes{};
    apigen::common::SPassedDescriptors given;
    const ssize_t got = apigen::common::ReceiveWithDescriptors(connection.Control.Get(), bytes, given);
    if (got < 0 && errno == EAGAIN) return;
    if (connection.HasThread) {
        // Nothing more is expected; descriptors are closed, and a word too many ends the service as well.
        End(connection, "the tool has left");
        return;
    }
    if (got <= 0) {
        Drop(connection);
        return;
    }
    connection.IsTruncated = connection.IsTruncated || given.IsTruncated;
    for (auto& descriptor : given.All)
        if (connection.Given.size() <= MaxDescriptors) connection.Given.push_back(std::move(descriptor));
    connection.Word.append(bytes.data(), static_cast<std::size_t>(got));
    const bool isWhole = connection.Word.size() >= handover::Word.size();
    if (connection.Word != handover::Word.substr(0, connection.Word.size())) {
        Refuse(connection,
               "The agent's tool and its daemon don't understand each other: install the same version "
               "of both, and restart the daemon");
    } else if (isWhole && (connection.IsTruncated || connection.Given.size() != 2)) {
        Refuse(connection, "The agent needs the two streams of a client, and got " +
                               (connection.IsTruncated ? "others" : std::to_string(connection.Given.size())));
    } else if (isWhole) {
        Begin(connection);
    }
}

void CConnections::Begin(SConnection& connection) {
    connection.EndEvent = std::make_shared<apigen::io::event::CAtomicEvent>();
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, StackBytes);
    const auto run = [](void* data) -> void* {
        auto& self = *static_cast<SConnection*>(data);
        self.Owner.Serve(self);
        return nullptr;
    };
    const int error = ::pthread_create(&connection.Thread, &attributes, run, &connection);
    ::pthread_attr_destroy(&attributes);
    if (error != 0) {
        Refuse(connection,
               "The agent can't serve one more client: " + std::generic_category().message(error));
        return;
    }
    connection.HasThread = true;
}

/// The thread of a connection.
void CConnections::Serve(SConnection& connection) noexcept {
    const std::string who =
        "process " + std::to_string(connection.Peer.Process) + " of user " + connection.Peer.UserName;
    try {
        // As they were given: a call on a stream that blocks takes one system call each way.
        const auto device = CDescriptorDevice::OfStandardStreams(std::move(connection.Given[0]),
                                                                 std::move(connection.Given[1]));
        device->AddEvent(connection.EndEvent);
        std::optional<zamservice::CService> service;
        try {
            service.emplace(m_makeControl(connection.Peer));
            service->SetObjectLimit(ObjectLimit);
        } catch (const std::exception& error) {
            m_log.Error("A client (" + who + ") can't be served: " + error.what());
            device->WriteString(apigen::CXmlData::Serialize(*zamservice::Failure(error)));
        }
        if (service) {
            CTellingDevice telling(*device, connection.IsAnswering);
            zamservice::Serve(*service, telling);
        }
    } catch (const apigen::InterruptedError&) {  // by us
    } catch (const std::exception& error) {
        m_log.Info("The connection of " + who + " ended: " + error.what());
    }
    connection.HasEnded = true;
    constexpr std::uint64_t One = 1;
    while (::write(m_news.Get(), &One, sizeof One) < 0 && errno == EINTR) {
    }
}

void CConnections::Refuse(SConnection& connection, const std::string& why) {
    m_log.Warning("Process " + std::to_string(connection.Peer.Process) + " of user " +
                  connection.Peer.UserName + " was refused: " + why);
    SendAtOnce(connection.Control.Get(), RefusalFrame(why));
    Drop(connection);
}

void CConnections::End(SConnection& connection, const char* why) {
    connection.Watch.reset();
    if (connection.IsEnding) return;
    connection.IsEnding = true;
    if (!connection.HasThread) return Drop(connection);
    connection.EndEvent->Set(why);
    SetTick(true);
}

void CConnections::Drop(SConnection& connection) {
    m_all.remove_if([&](const auto& each) { return each.get() == &connection; });
}

void CConnections::EndAll() {
    for (auto position = m_all.begin(); position != m_all.end();) {
        SConnection& connection = **position++;
        End(connection, "the agent ends");
    }
    OnTick();
}

/// Collects the threads that have ended.
void CConnections::OnNews() {
    std::uint64_t count = 0;
    apigen::common::RetryInterrupted([&] { return ::read(m_news.Get(), &count, sizeof count); });
    m_all.remove_if([](const auto& each) {
        if (!each->HasThread || !each->HasEnded) return false;
        ::pthread_join(each->Thread, nullptr);
        return true;
    });
}

/// Wakes threads that are to end, and gives up those that never said their word.
void CConnections::OnTick() {
    bool isNeeded = false;
    const auto now = Clock::now();
    for (auto position = m_all.begin(); position != m_all.end();) {
        SConnection& connection = **position++;
        if (!connection.HasThread) {
            if (now >= connection.WordDeadline) {
                Refuse(connection, "It connected to the agent and said nothing");
            } else {
                isNeeded = true;
            }
        } else if (connection.IsEnding) {
            if (!connection.IsAnswering && !connection.HasEnded)
                ::pthread_kill(connection.Thread, m_wakeSignal);
            isNeeded = true;
        }
    }
    SetTick(isNeeded);
}

}  // namespace tarvo
