// SPDX-License-Identifier: Apache-2.0
#include "support/common/CChildProcess.h"

#include <apigen/ApiException.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/common/Quietly.h"
#include "support/common/Text.h"

namespace apigen::common {

namespace {

using namespace std::chrono_literals;

// How often the end is asked for on a system that does not announce it.
constexpr auto AskingRound = 10ms;

// A killed child ends as soon as the system lets go of it; one that may not be killed never does.
constexpr auto KillPatience = 1s;

/// An errno on its way to the one place that words the message.
struct SLaunchFailure {
    int errorNumber;
    std::string detail = {};
};

[[noreturn]] void ThrowLaunchError(const std::string& program, const SLaunchFailure& failure) {
    throw ProcessLaunchError("Cannot start " + Quoted(program) + ": " + ErrorText(failure.errorNumber) +
                                 (failure.detail.empty() ? "" : ": " + failure.detail),
                             failure.errorNumber);
}

/// \param ourEnd 0 to read, 1 to write
SPipe MakePipe(const std::string& program, int ourEnd) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) ThrowLaunchError(program, {errno});
    SPipe pipe;
    pipe.Theirs = AwayFromStandardStreams(fds[1 - ourEnd]);
    pipe.Ours = AwayFromStandardStreams(fds[ourEnd]);
    if (!pipe.Theirs || !pipe.Ours || ::fcntl(pipe.Ours.Get(), F_SETFL, O_NONBLOCK) != 0)
        ThrowLaunchError(program, {errno});
    return pipe;
}

/// A text that C strings carry whole; `what` names it, since the text itself may be a secret.
const std::string& WithoutNul(const std::string& text, const char* what) {
    if (text.find('\0') != std::string::npos)
        throw SLaunchFailure{EINVAL, std::string(what) + " holds a NUL character"};
    return text;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 2);
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// The attributes and steps of one `posix_spawn`: nothing of the caller's runs between fork and exec. The first
/// step that fails is what `Run` reports.
class CSpawn {
public:
    explicit CSpawn(SChildStart::EGroup group) {
        // Neither fails: the C library allocates nothing here.
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawnattr_init(&m_attributes);
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        // sigfillset leaves out two signals of the C library, which the child would then get ignored.
        std::memset(&all, 0xff, sizeof all);
        Note(::posix_spawnattr_setsigmask(&m_attributes, &none));
        Note(::posix_spawnattr_setsigdefault(&m_attributes, &all));
        Note(::posix_spawnattr_setpgroup(&m_attributes, 0));
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (group == SChildStart::EGroup::OwnSession) flags |= POSIX_SPAWN_SETSID;
        if (group == SChildStart::EGroup::OwnGroup) flags |= POSIX_SPAWN_SETPGROUP;
        Note(::posix_spawnattr_setflags(&m_attributes, static_cast<short>(flags)));
    }
    CSpawn(const CSpawn&) = delete;
    CSpawn& operator=(const CSpawn&) = delete;
    ~CSpawn() {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }

    void Give(const std::vector<SChildStart::SGiven>& descriptors) {
        int last = -1;
        for (const auto& given : descriptors)
            last = std::max(last, given.Target);
        std::vector<bool> isGiven(static_cast<std::size_t>(last + 1));
        for (const auto& given : descriptors) {
            isGiven[static_cast<std::size_t>(given.Target)] = true;
            int source = given.Source;
            // A source among the targets could be overwritten before its turn.
            if (source <= last) {
                CDescriptor copy(::fcntl(source, F_DUPFD_CLOEXEC, last + 1));
                if (!copy) return Note(errno);
                source = copy.Get();
                m_copies.push_back(std::move(copy));
            }
            Note(::posix_spawn_file_actions_adddup2(&m_actions, source, given.Target));
        }
        // What the caller has open under a number that lies between is none of the child's business.
        for (int between = 0; between < last; ++between)
            if (!isGiven[static_cast<std::size_t>(between)])
                Note(::posix_spawn_file_actions_addclose(&m_actions, between));
        Note(::posix_spawn_file_actions_addclosefrom_np(&m_actions, last + 1));
    }

    void Enter(const std::string& folder) {
        if (!folder.empty()) Note(::posix_spawn_file_actions_addchdir_np(&m_actions, folder.c_str()));
    }

    /// \returns 0 or an error number
    int Run(pid_t& pid, const std::string& program, char* const* arguments, char* const* environment) {
        if (m_error != 0) return m_error;
        return ::posix_spawnp(&pid, program.c_str(), &m_actions, &m_attributes, arguments, environment);
    }

private:
    void Note(int error) noexcept {
        if (m_error == 0) m_error = error;
    }

    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
    std::vector<CDescriptor> m_copies;
    int m_error = 0;
};

pid_t Spawn(const SChildStart& start) {
    std::vector<char*> arguments = Pointers(start.Arguments);
    arguments.insert(arguments.begin(), const_cast<char*>(WithoutNul(start.Program, "its name").c_str()));
    for (const std::string& argument : start.Arguments)
        WithoutNul(argument, "an argument");
    CSpawn spawn(start.Group);
    spawn.Give(start.Descriptors);
    spawn.Enter(WithoutNul(start.Folder, "its folder"));
    pid_t pid = -1;
    const int failure = spawn.Run(pid, start.Program, arguments.data(), Pointers(start.Environment).data());
    if (failure != 0) throw SLaunchFailure{failure};
    return pid;
}

/// None on an old kernel, or with no descriptor left. By number, since the C library's wrapper is not declared
/// for C++ everywhere.
CDescriptor OpenPidfd(pid_t pid) {
    return AwayFromStandardStreams(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

/// As `waitpid` with WNOHANG. By the descriptor where there is one: when somebody else has collected the child, its
/// number may be that of another, which is not ours.
pid_t Collect(pid_t pid, const CDescriptor& pidfd, int& status) {
    // P_PIDFD, younger than the C library's headers may be.
    constexpr auto ByPidfd = static_cast<idtype_t>(3);
    if (pidfd) {
        siginfo_t end{};
        const auto ask = [&] {
            return ::waitid(ByPidfd, static_cast<id_t>(pidfd.Get()), &end, WEXITED | WNOHANG);
        };
        if (RetryInterrupted(ask) == 0) {
            status = end.si_code == CLD_EXITED ? W_EXITCODE(end.si_status, 0)
                                               : end.si_status | (end.si_code == CLD_DUMPED ? WCOREFLAG : 0);
            return end.si_pid;
        }
        if (errno == ECHILD) return -1;  // otherwise an old kernel, which has the descriptors alone
    }
    return RetryInterrupted([&] { return ::waitpid(pid, &status, WNOHANG); });
}

}  // namespace

SPipe MakePipeToRead(const std::string& program) {
    return MakePipe(program, 0);
}

SPipe MakePipeToWrite(const std::string& program) {
    return MakePipe(program, 1);
}

std::vector<std::string> EnvironmentWith(const std::string& program,
                                         const std::unordered_map<std::string, std::string>& additions) {
    std::vector<std::string> texts;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (additions.count(std::string(text.substr(0, text.find('=')))) == 0) texts.emplace_back(text);
    }
    for (const auto& [name, value] : additions) {
        try {
            if (name.empty() || name.find('=') != std::string::npos)
                throw SLaunchFailure{
                    EINVAL, "\"" + Escaped(name) + "\" can't be the name of an environment variable"};
            texts.push_back(WithoutNul(name, "the name of an environment variable") + '=' +
                            WithoutNul(value, "the value of an environment variable"));
        } catch (const SLaunchFailure& failure) {
            ThrowLaunchError(program, failure);
        }
    }
    return texts;
}

CChildProcess::CChildProcess(const SChildStart& start) : m_endSignal(start.EndSignal) {
    try {
        m_pid = Spawn(start);
    } catch (const SLaunchFailure& failure) {
        ThrowLaunchError(start.Program, failure);
    }
    m_pidfd = OpenPidfd(m_pid);
}

CChildProcess::~CChildProcess() {
    const CNoCancellation uncancelled;
    if (!m_origin.IsHere() || HasEnded()) return;
    Kill();
    AwaitEnd(DeadlineAfter(KillPatience));
}

bool CChildProcess::HasEnded() {
    if (m_ended) return true;
    int status = 0;
    const pid_t pid = Collect(m_pid, m_pidfd, status);
    if (pid == 0) return false;
    // Otherwise ECHILD: the caller ignores SIGCHLD or has collected the child itself.
    if (pid == m_pid) m_waitStatus = status;
    return m_ended = true;
}

bool CChildProcess::AwaitNews(pollfd* others, std::size_t count, Clock::time_point deadline) {
    constexpr std::size_t MaxOthers = 7;
    std::array<pollfd, MaxOthers + 1> set;
    std::copy_n(others, count, set.begin());
    set[count] = {m_pidfd.Get(), POLLIN, 0};
    const bool isAnnounced = static_cast<bool>(m_pidfd);
    // Without an announcement the end is found by asking now and then.
    const int timeout = PollTimeout(isAnnounced ? deadline : std::min(deadline, Clock::now() + AskingRound));
    PollPatiently(set.data(), count + 1, timeout);
    std::copy_n(set.begin(), count, others);
    return !isAnnounced || set[count].revents != 0;
}

bool CChildProcess::AwaitEnd(Clock::time_point deadline) {
    while (!HasEnded()) {
        if (IsPast(deadline)) return false;
        AwaitNews(nullptr, 0, deadline);
    }
    return true;
}

void CChildProcess::Signal(int signal) {
    if (!m_origin.IsHere() || HasEnded()) return;  // its process id may be another's by now
    if (m_pidfd) {
        ::syscall(SYS_pidfd_send_signal, m_pidfd.Get(), signal, nullptr, 0);
    } else {
        ::kill(m_pid, signal);
    }
}

}  // namespace apigen::common
