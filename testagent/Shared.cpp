// SPDX-License-Identifier: Apache-2.0
#include "testagent/Shared.h"

#include <zamservice/Service.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "service/EventSocket.h"
#include "support/common/CDescriptor.h"
#include "support/common/PassDescriptors.h"
#include "support/common/Waiting.h"
#include "testagent/CHost.h"

namespace testagent {
namespace {

using apigen::common::CDescriptor;
using apigen::common::RetryInterrupted;

constexpr const char* Variable = "ZAM_TESTAGENT_SHARED";

// An agent that has started says so with this word, or else says why it could not.
constexpr char ReadyWord = 'R';

std::string PathOf(const std::string& folder) {
    return folder + "/" + ControlSocketName;
}

/// A connection to the folder's agent; none when nobody listens there.
CDescriptor Connect(const std::string& folder) {
    const std::string path = PathOf(folder);
    sockaddr_un address{};
    // One that is too long is refused by the start of an agent, with the reason.
    if (path.size() >= sizeof address.sun_path) return {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    CDescriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connection) zamservice::ThrowErrno("Making a socket failed");
    const int result = RetryInterrupted([&] {
        return ::connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    });
    if (result != 0) return {};
    if (!zamservice::IsOwnUserOrRoot(connection.Get())) {
        throw std::runtime_error("The agent at " + path + " belongs to another user");
    }
    return connection;
}

/// The next byte; nothing when the other end has closed.
std::optional<unsigned char> Receive(const CDescriptor& connection) {
    unsigned char byte = 0;
    const ssize_t got = RetryInterrupted([&] { return ::recv(connection.Get(), &byte, 1, 0); });
    if (got != 1) return {};
    return byte;
}

/// Hands our standard input and output over. False when the agent ends instead of taking them.
bool Join(const CDescriptor& agent) {
    constexpr std::array<int, 2> Streams = {STDIN_FILENO, STDOUT_FILENO};
    const ssize_t sent = apigen::common::SendWithDescriptors(agent.Get(), {&JoinWord, 1}, Streams);
    if (sent < 0 && errno != EPIPE && errno != ECONNRESET) {
        zamservice::ThrowErrno("Handing the standard streams to the shared agent failed");
    }
    return sent == 1 && Receive(agent) == JoinWord;
}

void Say(int descriptor, const std::string& text) {
    (void)RetryInterrupted([&] { return ::write(descriptor, text.data(), text.size()); });
}

/// The agent's process: serves until it is to end. It says on `ready` that it can be joined, or why not.
int RunAgent(const std::string& folder, CDescriptor ready) {
    try {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            throw std::runtime_error("there is no folder " + folder);
        }
        constexpr std::chrono::milliseconds StartLimit{10000};
        std::optional<zamservice::CEventSocket> socket;
        try {
            socket.emplace(folder, ControlSocketName, StartLimit);
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::address_in_use) throw;
            Say(ready.Get(), {ReadyWord});  // another was faster, and is to be joined
            return 0;
        }
        CHost host(*socket, SScript::FromEnvironment());
        Say(ready.Get(), {ReadyWord});
        ready.Close();
        host.Run();
        return 0;
    } catch (const std::exception& error) {
        if (ready) Say(ready.Get(), std::string("The shared agent can't start: ") + error.what());
        return 1;
    }
}

/// Leaves everything that is the tool's to the tool: its client, its terminal, its standard streams.
CDescriptor Detach(CDescriptor ready) {
    constexpr int FirstOwnDescriptor = 3;
    ::setsid();
    const CDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(null.Get(), stream);
    if (ready.Get() != FirstOwnDescriptor) ::dup3(ready.Get(), FirstOwnDescriptor, O_CLOEXEC);
    ::close_range(FirstOwnDescriptor + 1, ~0U, 0);
    (void)ready.Release();
    return CDescriptor(FirstOwnDescriptor);
}

/// Starts an agent for the folder, unless there is one by now.
/// \throws std::runtime_error with what the agent says
void Start(const std::string& folder) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) zamservice::ThrowErrno("Making a pipe failed");
    const CDescriptor ours(pipe[0]);
    CDescriptor theirs(pipe[1]);
    // Nothing but this thread has been started, so the copy may do whatever it likes.
    const pid_t child = ::fork();
    if (child < 0) zamservice::ThrowErrno("Starting the shared agent failed");
    if (child == 0) ::_exit(RunAgent(folder, Detach(std::move(theirs))));
    theirs.Close();
    std::string said;
    std::array<char, 4096> bytes{};
    while (true) {
        const ssize_t got = RetryInterrupted([&] { return ::read(ours.Get(), bytes.data(), bytes.size()); });
        if (got <= 0) break;
        said.append(bytes.data(), static_cast<std::size_t>(got));
    }
    if (said.empty()) throw std::runtime_error("The shared agent ended while it started");
    if (said[0] != ReadyWord) throw std::runtime_error(said);
}

/// A connection to the folder's agent that has taken our standard streams.
CDescriptor JoinOrStart(const std::string& folder) {
    // Agents come and go: the one that was met may just be ending, and the one that was started have ended.
    constexpr int Attempts = 100;
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        CDescriptor agent = Connect(folder);
        if (!agent) {
            Start(folder);
        } else if (Join(agent)) {
            return agent;
        }
    }
    throw std::runtime_error("No shared agent of the folder " + folder + " lives long enough to be joined");
}

}  // namespace

std::string SharedFolder() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes the environment
    const char* const folder = std::getenv(Variable);
    return folder != nullptr ? folder : "";
}

int ServeByShared(const std::string& folder) {
    try {
        if (folder.front() != '/') {
            throw std::runtime_error("$" + std::string(Variable) + " has to be an absolute path, not " +
                                     folder);
        }
        if (!apigen::common::OpenStandardStream(STDIN_FILENO))
            zamservice::ThrowErrno("Opening a standard stream failed");
        const CDescriptor agent = JoinOrStart(folder);
        if (const auto code = Receive(agent)) return *code;
    } catch (const std::exception& error) {
        return zamservice::ServeStandardStreams(
            [&]() -> zamservice::CService { throw std::runtime_error(error.what()); });
    }
    std::raise(SIGKILL);
    return 1;
}

int ShutDownShared(const std::string& folder) {
    if (folder.empty()) {
        std::cerr << "$" << Variable << " does not name the folder of an agent" << std::endl;
        return 1;
    }
    const CDescriptor agent = Connect(folder);
    if (!agent) return 0;
    (void)::send(agent.Get(), &ShutDownWord, 1, MSG_NOSIGNAL);
    while (Receive(agent)) {
    }
    return 0;
}

}  // namespace testagent
