// SPDX-License-Identifier: Apache-2.0
#include "agent/daemon/Daemon.h"

#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/daemon/CConnections.h"
#include "agent/daemon/CControlSocket.h"
#include "agent/daemon/CLogFile.h"
#include "agent/daemon/Handover.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using namespace std::chrono_literals;
using apigen::common::CDescriptor;
using apigen::common::Clock;

/// Cuts the waiting of a thread short, and does nothing else.
constexpr int WakeSignal = SIGUSR1;

/// Out of descriptors, the listener rests for so long.
constexpr std::uint64_t RestMicroseconds = 100'000;

/// How long clients may still have to take what they have asked for.
constexpr auto EndLimit = 3s;

/// Tells who started the daemon how that went, once.
class CStarter {
public:
    explicit CStarter(int descriptor) : m_pipe(descriptor) {}

    void Tell(std::string_view report) {
        if (!m_pipe) return;
        // It may have lost its patience, and a report is shorter than any pipe.
        [[maybe_unused]] const ssize_t written = ::write(m_pipe.Get(), report.data(), report.size());
        m_pipe.Close();
    }

private:
    CDescriptor m_pipe;
};

void PrepareProcess() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        apigen::common::OpenStandardStream(stream);
    ::umask(S_IRWXG | S_IRWXO);
    // In every thread that is made from now on; the loop takes them.
    sigset_t taken;
    ::sigemptyset(&taken);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&taken, signal);
    ::pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    ::sigaction(WakeSignal, &wake, nullptr);
    // A client takes three, a subscriber to events one more.
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0) {
        constexpr rlim_t Wanted = 8192;
        const rlim_t before = files.rlim_cur;
        files.rlim_cur = std::min(std::max(before, Wanted), files.rlim_max);
        if (files.rlim_cur != before) ::setrlimit(RLIMIT_NOFILE, &files);
    }
}

CDescriptor Accept(int listener) {
    return CDescriptor(apigen::common::RetryInterrupted(
        [&] { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); }));
}

/// Who waits to be accepted by a daemon that can't serve any (more) learns why.
void TurnAway(const CControlSocket& socket, const std::string& why) {
    const std::string refusal = RefusalFrame(why);
    while (const CDescriptor client = Accept(socket.Descriptor()))
        ::send(client.Get(), refusal.data(), refusal.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

class CLoop {
public:
    CLoop(const SFolders& folders, CControlSocket& socket, IWork& work, CLogFile& log)
        : m_folders(folders), m_socket(socket), m_work(work), m_log(log) {
        sd_event* loop = nullptr;
        CheckEvent(::sd_event_new(&loop), "Making the loop failed");
        m_loop.reset(loop);
        m_connections.emplace(
            loop, [&work](const SPeer& peer) { return work.MakeControl(peer); }, log, WakeSignal);
        AddListener();
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            AddSignal(signal);
        WatchClock();
        CheckEvent(::sd_event_set_watchdog(loop, 1), "Setting up the watchdog failed");
    }

    void Run() { CheckEvent(::sd_event_loop(m_loop.get()), "The loop failed"); }

    /// \return whether nobody is left
    bool EndConnections() {
        m_connections->EndAll();
        const auto deadline = Clock::now() + EndLimit;
        while (!m_connections->IsEmpty() && Clock::now() < deadline) {
            // sd_event_run does no more after an exit; what remains is waited for by hand.
            ::poll(nullptr, 0, 1);
            m_connections->Collect();
        }
        return m_connections->IsEmpty();
    }

private:
    template <auto Member>
    static int OnIo(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/, void* self) {
        (static_cast<CLoop*>(self)->*Member)();
        return 0;
    }

    void AddListener() {
        sd_event_source* source = nullptr;
        CheckEvent(::sd_event_add_io(m_loop.get(), &source, m_socket.Descriptor(), EPOLLIN,
                                     &OnIo<&CLoop::OnClient>, this),
                   "Watching the control socket failed");
        m_listener.reset(source);
        const auto onRested = [](sd_event_source*, std::uint64_t, void* self) {
            return ::sd_event_source_set_enabled(static_cast<CLoop*>(self)->m_listener.get(), SD_EVENT_ON);
        };
        CheckEvent(::sd_event_add_time_relative(m_loop.get(), &source, CLOCK_MONOTONIC, RestMicroseconds, 0,
                                                onRested, this),
                   "Setting a timer failed");
        m_rest.reset(source);
        ::sd_event_source_set_enabled(source, SD_EVENT_OFF);
    }

    void AddSignal(int signal) {
        const auto onSignal = [](sd_event_source*, const signalfd_siginfo* info, void* self) {
            static_cast<CLoop*>(self)->OnSignal(static_cast<int>(info->ssi_signo), info->ssi_pid);
            return 0;
        };
        CheckEvent(::sd_event_add_signal(m_loop.get(), nullptr, signal, onSignal, this),
                   "Watching signals failed");
    }

    void OnSignal(int signal, unsigned sender) {
        if (signal == SIGHUP) return Reload();
        m_log.Info("Ending: signal " + std::to_string(signal) + " of process " + std::to_string(sender));
        ::sd_event_exit(m_loop.get(), 0);
    }

    void OnClient() {
        CDescriptor client = Accept(m_socket.Descriptor());
        if (client) {
            try {
                m_connections->Add(std::move(client));
            } catch (const std::exception& error) {
                m_log.Error(std::string("A client was lost: ") + error.what());
            }
            return;
        }
        if (errno == EAGAIN || errno == ECONNABORTED) return;
        m_log.Error("Accepting a client failed: " + apigen::common::ErrorText(errno));
        ::sd_event_source_set_enabled(m_listener.get(), SD_EVENT_OFF);
        ::sd_event_source_set_time_relative(m_rest.get(), RestMicroseconds);
        ::sd_event_source_set_enabled(m_rest.get(), SD_EVENT_ONESHOT);
    }

    void Reload() {
        ::sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%llu",
                     static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                         Clock::now().time_since_epoch())
                                                         .count()));
        try {
            const SSettings settings = ReadSettings(m_folders.SettingsFile);
            m_log.Use(settings.Log);
            m_work.Reload(settings);
            m_log.Info("Took up the settings of " + m_folders.SettingsFile);
        } catch (const std::exception& error) {
            m_log.Error(std::string("The settings stay as they were: ") + error.what());
        }
        ::sd_notify(0, "READY=1");
    }

    /// A timer that never comes, but is cancelled when somebody sets the clock.
    void WatchClock() {
        m_clock = CDescriptor(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
        if (!m_clock) throw std::system_error(errno, std::generic_category(), "Watching the clock failed");
        ArmClock();
        CheckEvent(
            ::sd_event_add_io(m_loop.get(), nullptr, m_clock.Get(), EPOLLIN, &OnIo<&CLoop::OnClock>, this),
            "Watching the clock failed");
    }

    void ArmClock() {
        itimerspec never{};
        never.it_value.tv_sec = std::numeric_limits<time_t>::max();
        ::timerfd_settime(m_clock.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr);
    }

    void OnClock() {
        std::uint64_t expirations = 0;
        const ssize_t got = ::read(m_clock.Get(), &expirations, sizeof expirations);
        if (got >= 0 || errno != ECANCELED) return;
        ArmClock();
        m_log.Info("The host's clock was set");
        m_work.ClockChanged();
    }

    const SFolders& m_folders;
    CControlSocket& m_socket;
    IWork& m_work;
    CLogFile& m_log;
    EventPtr m_loop;
    std::optional<CConnections> m_connections;
    SourcePtr m_listener;
    SourcePtr m_rest;
    CDescriptor m_clock;
};

int Serve(const MakeWork& makeWork, CStarter& starter) {
    const SFolders folders = FoldersOfProcess();
    MakeFolders(folders);
    const CDaemonLock lock(folders.Run);
    // Clients that come from here on wait until the work is ready, or learn why it can't be.
    CControlSocket socket(folders.ControlSocket());
    std::optional<CLogFile> log;
    std::unique_ptr<IWork> work;
    std::optional<CLoop> loop;
    try {
        const SSettings settings = ReadSettings(folders.SettingsFile);
        log.emplace(folders.LogFile(), settings.Log);
        work = makeWork(folders, settings, *log);
        loop.emplace(folders, socket, *work, *log);
        work->Start();
    } catch (const std::exception& error) {
        if (log) log->Error(std::string("The agent can't run: ") + error.what());
        TurnAway(socket, std::string("The agent can't run: ") + error.what());
        throw;
    }
    log->Info("Ready: process " + std::to_string(::getpid()) + ", listening on " + folders.ControlSocket() +
              (socket.IsFromSystemd() ? " for systemd" : ""));
    starter.Tell(handover::Ready);
    ::sd_notify(0, "READY=1");
    int status = 0;
    try {
        loop->Run();
    } catch (const std::exception& error) {
        log->Error(error.what());
        status = 1;
    }
    ::sd_notify(0, "STOPPING=1");
    socket.Hide();
    work->Stop();
    if (!socket.IsFromSystemd()) TurnAway(socket, "The agent is ending; try again");
    const bool isDone = loop->EndConnections();
    log->Info("Ended");
    if (isDone) return status;
    // A call that does not return holds on to the work. What had to be durable is.
    log->Warning("A client's call had not come to its end");
    socket.Close();
    ::_exit(status);
}

}  // namespace

int RunDaemon(const MakeWork& makeWork, int readyDescriptor) {
    CStarter starter(readyDescriptor);
    // What systemd has told the client of a tool that started us is none of our business.
    if (readyDescriptor >= 0) {
        for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID", "LISTEN_FDS",
                                       "LISTEN_PID", "LISTEN_FDNAMES", "JOURNAL_STREAM"})
            ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    }
    PrepareProcess();
    try {
        return Serve(makeWork, starter);
    } catch (const STaken& taken) {
        std::cerr << "tarvod: " << taken.Message << std::endl;
        starter.Tell(handover::Taken);
    } catch (const std::exception& error) {
        std::cerr << "tarvod: " << error.what() << std::endl;
        starter.Tell(apigen::common::Escaped(error.what()) + '\n');
    }
    return 1;
}

}  // namespace tarvo
