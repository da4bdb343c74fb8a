// SPDX-License-Identifier: Apache-2.0
#include "testagent/CHost.h"

#include <apigen/CInterruptibleIoDev.h>
#include <apigen/CXmlData.h>
#include <zamservice/Service.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "service/Failure.h"
#include "support/common/PassDescriptors.h"
#include "support/common/Waiting.h"
#include "testagent/Shared.h"
#include "testagent/Termination.h"

namespace testagent {
namespace {

using apigen::common::CDescriptor;
using apigen::common::DeadlineAfter;
using apigen::common::RetryInterrupted;

/// The tool that has started the agent is still to join it.
constexpr std::chrono::milliseconds LeastFirstWait{10000};

bool IsReadable(const CDescriptor& descriptor) {
    pollfd readable{descriptor.Get(), POLLIN, 0};
    return ::poll(&readable, 1, 0) > 0;
}

void SendByte(const CDescriptor& tool, int byte) {
    const auto value = static_cast<unsigned char>(byte);
    (void)::send(tool.Get(), &value, 1, MSG_DONTWAIT | MSG_NOSIGNAL);
}

struct SWish {
    char Word = 0;  ///< none when the tool has gone
    std::vector<CDescriptor> Streams;
};

/// What a tool says, which must have come.
SWish ReceiveWish(const CDescriptor& tool) {
    SWish wish;
    apigen::common::SPassedDescriptors streams;
    (void)apigen::common::ReceiveWithDescriptors(tool.Get(), {&wish.Word, 1}, streams);
    wish.Streams = std::move(streams.All);
    return wish;
}

}  // namespace

CHost::CHost(zamservice::CEventSocket& socket, const SScript& script)
    : m_socket(socket),
      m_agent(std::make_shared<CAgent>(script, socket.Path())),
      m_rules(std::make_shared<CMisbehaviour::Rules>(script.Rules)),
      m_idleEnd(DeadlineAfter(std::max(script.IdleLimit, LeastFirstWait))) {
    // A client that goes away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    RemoveTracesOnTermination(*m_agent);
}

void CHost::Run() {
    while (m_enders.empty() && Clock::now() < m_idleEnd) {
        Wait();
        ForgetThoseWhoseToolIsGone();
        Accept();
        std::erase_if(m_newcomers, [this](Descriptor& tool) { return Receive(tool); });
        if (!m_clients.empty() || !m_newcomers.empty()) {
            m_idleEnd = Clock::time_point::max();
        } else if (m_idleEnd == Clock::time_point::max()) {
            m_idleEnd = DeadlineAfter(m_agent->Script().IdleLimit);
        }
    }
    m_socket.Close();
    m_agent->RemoveTraces();
    EndClients();
}

void CHost::Wait() {
    std::vector<pollfd> watched{{m_socket.Descriptor(), POLLIN, 0}};
    for (const auto& tool : m_newcomers)
        watched.push_back({tool.Get(), POLLIN, 0});
    for (const auto& client : m_clients)
        watched.push_back({client.Tool.Get(), POLLIN, 0});
    apigen::common::PollPatiently(watched.data(), watched.size(), apigen::common::PollTimeout(m_idleEnd));
}

void CHost::Accept() {
    constexpr int PauseMilliseconds = 10;
    while (true) {
        Descriptor tool(::accept4(m_socket.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!tool) {
            // Without descriptors there is nothing to do but to wait for a client's end.
            if (errno != EAGAIN) ::poll(nullptr, 0, PauseMilliseconds);
            return;
        }
        if (zamservice::IsOwnUserOrRoot(tool.Get())) m_newcomers.push_back(std::move(tool));
    }
}

bool CHost::Receive(Descriptor& tool) {
    if (!IsReadable(tool)) return false;
    SWish wish = ReceiveWish(tool);
    if (wish.Word == ShutDownWord) {
        m_enders.push_back(std::move(tool));
    } else if (wish.Word == JoinWord && wish.Streams.size() == 2) {
        Take(std::move(tool), std::move(wish.Streams[0]), std::move(wish.Streams[1]));
    }
    return true;
}

void CHost::Take(Descriptor tool, Descriptor input, Descriptor output) {
    auto ended = std::make_shared<apigen::io::event::CAtomicEvent>();
    SendByte(tool, JoinWord);
    const std::lock_guard lock(m_mutex);
    auto& client = m_clients.emplace_back(SClient{std::move(tool), std::move(ended), {}});
    try {
        client.Thread =
            std::thread([this, &client, in = std::move(input), out = std::move(output)]() mutable {
                Serve(client, std::move(in), std::move(out));
            });
    } catch (const std::system_error&) {
        m_clients.pop_back();  // no more threads: the client is the only one to suffer
    }
}

void CHost::Serve(SClient& client, Descriptor input, Descriptor output) {
    int code = 1;
    try {
        code = ServeToTheEnd(client, std::move(input), std::move(output));
    } catch (const std::exception&) {
        // The client left in the middle of a message, its tool has gone, or a rule ends the connection.
    }
    SendByte(client.Tool, code);
}

int CHost::ServeToTheEnd(const SClient& client, Descriptor input, Descriptor output) {
    // What is to go out raw needs a descriptor of its own.
    const Descriptor raw(::fcntl(output.Get(), F_DUPFD_CLOEXEC, 0));
    apigen::CInterruptibleIoDev device(input.Release(), output.Release());
    device.AddEvent(client.Ended);
    CMisbehaviour misbehaviour(m_rules, raw.Get(), client.Ended->Descriptor(),
                               [this](std::optional<int> code) {
                                   // Nobody is answered any more who calls from now on.
                                   m_lastLock = m_agent->Lock();
                                   m_agent->RemoveTraces();
                                   if (code) Announce(*code);
                               });
    std::optional<zamservice::CService> service;
    try {
        misbehaviour.Greet();
        service.emplace(MakeControl(m_agent));
    } catch (const CDisconnected&) {
        throw;
    } catch (const std::exception& error) {
        device.WriteString(apigen::CXmlData::Serialize(*zamservice::Failure(error)));
        return 1;
    }
    zamservice::Serve(*service, device, [&](zamservice::CService& called, const std::string& request) {
        return misbehaviour.Answer(*m_agent, called, request);
    });
    return 0;
}

void CHost::ForgetThoseWhoseToolIsGone() {
    for (auto client = m_clients.begin(); client != m_clients.end();) {
        if (!IsReadable(client->Tool)) {
            ++client;
            continue;
        }
        client->Ended->Set("The tool has gone");
        client->Thread.join();
        const std::lock_guard lock(m_mutex);
        client = m_clients.erase(client);
    }
}

void CHost::EndClients() {
    Announce(0);
    for (auto& client : m_clients) {
        client.Ended->Set("The agent ends");
        client.Thread.join();
    }
    const std::lock_guard lock(m_mutex);
    m_clients.clear();
}

void CHost::Announce(int code) {
    const std::lock_guard lock(m_mutex);
    for (const auto& client : m_clients)
        SendByte(client.Tool, code);
}

}  // namespace testagent
