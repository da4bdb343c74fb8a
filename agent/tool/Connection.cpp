// SPDX-License-Identifier: Apache-2.0
#include "agent/tool/Connection.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/daemon/Handover.h"
#include "support/common/CChildProcess.h"
#include "support/common/PassDescriptors.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo::tool {
namespace {

using namespace std::chrono_literals;
using apigen::common::CChildProcess;
using apigen::common::CDescriptor;
using apigen::common::Clock;
using apigen::common::ErrorText;
using apigen::common::RetryInterrupted;

/// A daemon may have to bring its database up to date first.
constexpr auto StartLimit = 60s;
constexpr int PauseMilliseconds = 5;
constexpr int LongPauseMilliseconds = 50;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("The agent can't be reached: " + what);
}

[[noreturn]] void FailByErrno(const std::string& what) {
    Fail(what + ": " + ErrorText(errno));
}

/// Our secrets go to our own user's daemon or to root's, and to nobody else.
void CheckDaemon(const CDescriptor& control, const std::string& path) {
    ucred daemon{};
    socklen_t size = sizeof daemon;
    if (::getsockopt(control.Get(), SOL_SOCKET, SO_PEERCRED, &daemon, &size) != 0) {
        FailByErrno("who listens on " + path + " can't be found out");
    }
    if (daemon.uid == ::geteuid() || daemon.uid == 0) return;
    Fail("the daemon that listens on " + path + " is another user's (" + std::to_string(daemon.uid) +
         "), and this is user " + std::to_string(::geteuid()) +
         "; only one of the same user or of root is used");
}

/// Nothing when no daemon listens there.
std::optional<CDescriptor> TryToConnect(const std::string& path) {
    const sockaddr_un address = handover::AddressOf(path);
    CDescriptor control(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!control) FailByErrno("a socket can't be made");
    const int connected = RetryInterrupted([&] {
        return ::connect(control.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    });
    if (connected == 0) {
        CheckDaemon(control, path);
        return control;
    }
    if (errno == ENOENT || errno == ECONNREFUSED) return std::nullopt;
    if (errno == EACCES || errno == EPERM) {
        Fail("user " + std::to_string(::geteuid()) + " may not open " + path +
             ": it is another user's; an agent serves its own user and root");
    }
    FailByErrno("connecting to " + path + " failed");
}

/// The daemon beside this tool, as both were built or installed.
std::string DaemonProgram() {
    std::array<char, 4096> link{};
    const ssize_t size = ::readlink("/proc/self/exe", link.data(), link.size());
    if (size > 0 && static_cast<std::size_t>(size) < link.size()) {
        const std::string_view tool(link.data(), static_cast<std::size_t>(size));
        const std::string folder(tool.substr(0, tool.rfind('/')));
        for (const char* const place : {"/tarvod", "/../sbin/tarvod"}) {
            std::string program = folder + place;
            if (::access(program.c_str(), X_OK) == 0) return program;
        }
    }
    return "tarvod";
}

/// What the daemon says of its start.
std::string ReadReport(const CDescriptor& pipe, CChildProcess& daemon, Clock::time_point deadline) {
    constexpr std::size_t MaxBytes = 4096;
    std::string report;
    while (report.size() < MaxBytes && report.find('\n') == std::string::npos) {
        pollfd readable{pipe.Get(), POLLIN, 0};
        daemon.AwaitNews(&readable, 1, deadline);
        std::array<char, 512> part{};
        const ssize_t got = ::read(pipe.Get(), part.data(), part.size());
        if (got > 0) {
            report.append(part.data(), static_cast<std::size_t>(got));
        } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        } else if (apigen::common::IsPast(deadline)) {
            Fail("the daemon that was started did not become ready in time");
        }
    }
    return report;
}

/// \return whether a daemon has become ready; false when another one runs already
bool StartDaemon(Clock::time_point deadline) {
    constexpr int ReadyDescriptor = 3;
    apigen::common::SChildStart start;
    start.Program = DaemonProgram();
    start.Arguments = {handover::ReadinessOption, std::to_string(ReadyDescriptor)};
    start.Environment = apigen::common::EnvironmentWith(start.Program, {});
    start.Folder = "/";
    // Not a session of its own: the kernel schedules sessions as groups, and a call then takes a quarter longer. A
    // terminal's Ctrl-C and hang-up reach no group in its background.
    start.Group = apigen::common::SChildStart::EGroup::OwnGroup;
    const CDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null) FailByErrno("/dev/null can't be opened");
    auto pipe = apigen::common::MakePipeToRead(start.Program);
    start.Descriptors = {{STDIN_FILENO, null.Get()},
                         {STDOUT_FILENO, null.Get()},
                         {STDERR_FILENO, null.Get()},
                         {ReadyDescriptor, pipe.Theirs.Get()}};
    // Never deleted: the daemon outlives us.
    static CChildProcess* daemon = nullptr;
    daemon = new CChildProcess(start);  // NOLINT(cppcoreguidelines-owning-memory)
    pipe.Theirs.Close();
    const std::string report = ReadReport(pipe.Ours, *daemon, deadline);
    if (report == handover::Ready) return true;
    if (report == handover::Taken) return false;
    if (!report.empty()) Fail("the daemon can't run: " + report.substr(0, report.find('\n')));
    daemon->AwaitEnd(Clock::now() + 1s);
    Fail("the daemon " + start.Program + " ended before it was ready" +
         (daemon->HasEnded() ? ": it " + apigen::common::EndingText(daemon->WaitStatus()) : ""));
}

}  // namespace

CDescriptor ConnectToDaemon(const SFolders& folders) {
    const std::string path = folders.ControlSocket();
    if (auto control = TryToConnect(path)) return std::move(*control);
    const auto deadline = Clock::now() + StartLimit;
    try {
        MakeFolders(folders);
    } catch (const std::exception& error) {
        Fail(std::string("no daemon runs, and none can be started. ") + error.what());
    }
    const std::string lockPath = folders.Run + "/start.lock";
    const CDescriptor lock(
        ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!lock) FailByErrno("the file " + lockPath + " can't be opened");
    for (bool isOurs = false; Clock::now() < deadline; ::poll(nullptr, 0, PauseMilliseconds)) {
        // Asked again once the lock is ours: whoever held it has started one.
        isOurs = isOurs || ::flock(lock.Get(), LOCK_EX | LOCK_NB) == 0;
        if (auto control = TryToConnect(path)) return std::move(*control);
        if (!isOurs) continue;
        if (!StartDaemon(deadline)) {
            // The other one is about to listen, or about to end, which may take seconds.
            ::poll(nullptr, 0, LongPauseMilliseconds);
        } else if (auto control = TryToConnect(path)) {
            return std::move(*control);
        }
    }
    Fail("no daemon answered on " + path + " in " + std::to_string(StartLimit.count()) + " s");
}

void HandOver(const CDescriptor& control) {
    constexpr std::array<int, 2> Streams = {STDIN_FILENO, STDOUT_FILENO};
    const ssize_t sent = apigen::common::SendWithDescriptors(control.Get(), handover::Word, Streams);
    // A daemon that refuses us may have closed the connection by now; what it says of that is still to be read.
    if (sent < 0 && errno != EPIPE && errno != ECONNRESET) FailByErrno("handing over the client failed");
}

}  // namespace tarvo::tool
