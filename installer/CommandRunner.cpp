// SPDX-License-Identifier: Apache-2.0
#include "installer/CommandRunner.h"

#include <zamclientlib/Exceptions.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "support/common/CDescriptor.h"
#include "support/common/COutputTail.h"
#include "support/common/CSpawn.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace installer {
namespace {

using apigen::common::CDescriptor;
using apigen::common::Quoted;
using apigen::common::RetryInterrupted;
using zamclientlib::CGenericException;

constexpr off_t outputLimit = 4 * 1024 * 1024;
constexpr off_t errorTextLimit = 64 * 1024;
// dpkg insists on finding ldconfig and start-stop-daemon, which the PATH of a plain user lacks.
constexpr std::string_view systemFolders = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// What the tools and the packages' scripts may know of our environment: where they find and put things, how
// they reach the network, and who runs them. Of everything else some variable changes what some tool does.
constexpr std::string_view handedOn[]{"HOME",        "TMPDIR",    "USER",      "LOGNAME",  "http_proxy",
                                      "https_proxy", "ftp_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                                      "HTTPS_PROXY", "FTP_PROXY", "ALL_PROXY", "NO_PROXY"};

// Lines that tell of progress, or warn, but never say what went wrong.
constexpr std::string_view chatter[]{"Reading package lists...",
                                     "Building dependency tree...",
                                     "Reading state information...",
                                     "Need to get ",
                                     "After this operation, ",
                                     "Get:",
                                     "(Reading database ",
                                     "Selecting previously ",
                                     "Preparing to unpack ",
                                     "W: ",
                                     "N: "};

[[noreturn]] void ThrowCannotRun(const SCommand& command, int error) {
    throw CGenericException("Can't run " + Quoted(command.Program) + ": " + apigen::common::ErrorText(error) +
                            ".");
}

std::string SearchPath() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes the environment
    const char* const path = std::getenv("PATH");
    if (path == nullptr || *path == '\0') return std::string(systemFolders);
    return std::string(path) + ":" + std::string(systemFolders);
}

std::vector<std::string> CommandEnvironment() {
    std::vector<std::string> environment;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        const std::string_view name = text.substr(0, text.find('='));
        if (std::find(std::begin(handedOn), std::end(handedOn), name) != std::end(handedOn)) {
            environment.emplace_back(text);
        }
    }
    environment.push_back("PATH=" + SearchPath());
    environment.emplace_back("LC_ALL=C");  // their words are looked at
    environment.emplace_back("TERM=dumb");
    environment.emplace_back("DEBIAN_FRONTEND=noninteractive");
    return environment;
}

// A running command.
class CCommand {
public:
    enum class EWatch {
        No,
        Yes,  // its end can be waited for with a limit, by a descriptor that it holds open
    };

    CCommand(const SCommand& command, EWatch watch) : m_command(command) {
        // Files rather than pipes: a command whose reader is gone must not die of it.
        m_output = CDescriptor(m_command.DropOutput ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                                                    : memfd_create("output", MFD_CLOEXEC));
        m_errorText = CDescriptor(memfd_create("errors", MFD_CLOEXEC));
        if (!m_output || !m_errorText) ThrowCannotRun(m_command, errno);
        std::array<int, 2> life{-1, -1};
        if (watch == EWatch::Yes && pipe2(life.data(), O_CLOEXEC) != 0) ThrowCannotRun(m_command, errno);
        m_life = CDescriptor(life[0]);
        Spawn(CDescriptor(life[1]));
    }
    CCommand(const CCommand&) = delete;
    CCommand& operator=(const CCommand&) = delete;

    // False when it still runs after `limit`.
    bool Wait(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            // The pipe has no writer any more when the command has ended.
            pollfd end{m_life.Get(), POLLIN, 0};
            if (poll(&end, 1, static_cast<int>(left.count())) > 0) return true;
        }
    }

    void Kill() noexcept { kill(m_pid, SIGKILL); }

    int Reap() noexcept {
        int status = -1;
        const pid_t pid = RetryInterrupted([&] { return waitpid(m_pid, &status, 0); });
        return pid == m_pid ? status : -1;
    }

    SCommandResult Finish() {
        SCommandResult result;
        result.WaitStatus = Reap();
        if (!m_command.DropOutput) {
            result.Output = ReadFrom(m_output, 0, outputLimit);
        }
        const off_t size = SizeOf(m_errorText);
        result.ErrorText = ReadFrom(m_errorText, std::max<off_t>(0, size - errorTextLimit), errorTextLimit);
        return result;
    }

    bool SaidTooMuch() const { return !m_command.DropOutput && SizeOf(m_output) > outputLimit; }

private:
    void Spawn(const CDescriptor& lifeWriter) {
        const std::string path = FindProgram(m_command.Program);
        if (path.empty()) ThrowCannotRun(m_command, ENOENT);

        apigen::common::CSpawn spawn(POSIX_SPAWN_SETSID);
        spawn.GiveFile(STDIN_FILENO, "/dev/null", O_RDONLY);
        spawn.Give(STDOUT_FILENO, m_output);
        spawn.Give(STDERR_FILENO, m_errorText);
        if (lifeWriter) spawn.Give(STDERR_FILENO + 1, lifeWriter);
        spawn.EnterFolder("/");

        std::vector<std::string> arguments = m_command.Arguments;
        arguments.insert(arguments.begin(), m_command.Program);
        const int error = spawn.Run(m_pid, path, std::move(arguments), CommandEnvironment());
        if (error != 0) ThrowCannotRun(m_command, error);
    }

    static off_t SizeOf(const CDescriptor& file) {
        struct stat status {};
        return fstat(file.Get(), &status) == 0 ? status.st_size : 0;
    }

    static std::string ReadFrom(const CDescriptor& file, off_t offset, off_t limit) {
        std::string text(static_cast<std::size_t>(std::clamp<off_t>(SizeOf(file) - offset, 0, limit)), '\0');
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t count = RetryInterrupted([&] {
                return pread(file.Get(), text.data() + done, text.size() - done,
                             offset + static_cast<off_t>(done));
            });
            if (count <= 0) break;
            done += static_cast<std::size_t>(count);
        }
        text.resize(done);
        return text;
    }

    SCommand m_command;
    CDescriptor m_output;
    CDescriptor m_errorText;
    CDescriptor m_life;
    pid_t m_pid = -1;
};

bool IsChatter(std::string_view line) {
    return std::any_of(std::begin(chatter), std::end(chatter),
                       [&](std::string_view start) { return line.starts_with(start); });
}

// The end of what a tool said, in one line that a log or a terminal can take.
std::string LastWords(std::string_view text) {
    apigen::common::COutputTail tail;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        line.remove_prefix(line.rfind('\r') + 1);  // written over, as progress is
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.empty() || IsChatter(line)) continue;
        tail.Append(line);
        tail.Append("\n");
    }
    std::string words = tail.Text();
    for (std::size_t at = words.find('\n'); at != std::string::npos; at = words.find('\n', at))
        words.replace(at, 1, " / ");
    return words;
}

}  // namespace

std::optional<int> SCommandResult::ExitStatus() const noexcept {
    if (!WIFEXITED(WaitStatus)) return std::nullopt;
    return WEXITSTATUS(WaitStatus);
}

std::string SCommandResult::Failure() const {
    const std::string errors = LastWords(ErrorText);
    const std::string output = LastWords(Output);
    std::string failure = apigen::common::EndingText(WaitStatus);
    if (!errors.empty()) failure += ": " + errors;
    if (!output.empty()) failure += (errors.empty() ? ": " : ". Before that: ") + output;
    return failure;
}

SCommandResult RunQuery(const SCommand& command, std::chrono::milliseconds limit) {
    CCommand running(command, CCommand::EWatch::Yes);
    if (!running.Wait(limit)) {
        running.Kill();
        running.Reap();
        throw CGenericException(Quoted(command.Program) + " did not answer within " +
                                std::to_string(limit.count()) + " ms and was ended.");
    }
    SCommandResult result = running.Finish();
    if (running.SaidTooMuch()) {
        throw CGenericException(Quoted(command.Program) + " gave more than " + std::to_string(outputLimit) +
                                " bytes of output.");
    }
    return result;
}

SCommandResult RunChange(const SCommand& command) {
    return CCommand(command, CCommand::EWatch::No).Finish();
}

std::string FindProgram(std::string_view name) {
    if (name.find('/') != std::string_view::npos) return std::string(name);
    const std::string path = SearchPath();
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find(':', start), path.size());
        const std::string folder = path.substr(start, end - start);
        start = end + 1;
        // A relative folder would mean another place in the child than here.
        if (!folder.starts_with('/')) continue;
        std::string candidate = folder + "/" + std::string(name);
        struct stat status {};
        if (stat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

}  // namespace installer
