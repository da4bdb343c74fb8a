// SPDX-License-Identifier: Apache-2.0
#include "installer/CommandRunner.h"

#include <apigen/ApiException.h>
#include <zamclientlib/Exceptions.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "support/common/CChildProcess.h"
#include "support/common/CDescriptor.h"
#include "support/common/COutputTail.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace installer {
namespace {

using apigen::common::CChildProcess;
using apigen::common::CDescriptor;
using apigen::common::Quoted;
using apigen::common::RetryInterrupted;
using zamclientlib::CGenericException;

constexpr std::size_t endLimit = 64 * 1024;  // what is kept of an output of which the end counts
constexpr auto trimRound = std::chrono::milliseconds(200);

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
    throw CGenericException("Cannot start " + Quoted(command.Program) + ": " +
                            apigen::common::ErrorText(error));
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

CDescriptor Opened(const SCommand& command, int descriptor) {
    if (descriptor < 0) ThrowCannotRun(command, errno);
    return CDescriptor(descriptor);
}

CDescriptor OpenNull(const SCommand& command, int flags) {
    return Opened(command, open("/dev/null", flags | O_CLOEXEC));
}

apigen::common::SPipe PipeFrom(const SCommand& command) {
    try {
        return apigen::common::MakePipeToRead(command.Program);
    } catch (const apigen::ProcessLaunchError& error) {
        throw CGenericException(error.what());
    }
}

// `output` and `errors` are the command's ends of what it writes to.
std::unique_ptr<CChildProcess> Start(const SCommand& command, const CDescriptor& output,
                                     const CDescriptor& errors) {
    const CDescriptor input = OpenNull(command, O_RDONLY);
    apigen::common::SChildStart start;
    start.Program = FindProgram(command.Program);
    if (start.Program.empty()) ThrowCannotRun(command, ENOENT);
    start.Arguments = command.Arguments;
    start.Environment = CommandEnvironment();
    start.Folder = "/";
    start.Descriptors = {
        {STDIN_FILENO, input.Get()}, {STDOUT_FILENO, output.Get()}, {STDERR_FILENO, errors.Get()}};
    try {
        return std::make_unique<CChildProcess>(start);
    } catch (const apigen::ProcessLaunchError& error) {
        throw CGenericException(error.what());
    }
}

// What comes through a pipe, or the end of it.
class CCollector {
public:
    explicit CCollector(CDescriptor pipe) : m_pipe(std::move(pipe)) {}

    int Descriptor() const { return m_pipe.Get(); }
    std::string Take() { return std::move(m_text); }
    std::size_t Size() const { return m_text.size(); }

    // Takes what has come, `limit` bytes at most.
    void Collect(std::size_t limit) {
        apigen::common::DrainPipe(m_pipe, limit, [this](std::string_view text) { m_text += text; });
    }

    void KeepTheLast(std::size_t bytes) {
        if (m_text.size() > bytes) m_text.erase(0, m_text.size() - bytes);
    }

private:
    CDescriptor m_pipe;
    std::string m_text;
};

// A file in memory that a command writes to. It takes what comes also when nobody reads it any more, as a pipe
// would not.
class CMemoryFile {
public:
    CMemoryFile(const SCommand& command, const char* name)
        : m_file(Opened(command, memfd_create(name, MFD_CLOEXEC))) {
        // A script's "> /dev/stderr" empties the file: what others write then goes on from there.
        if (fcntl(m_file.Get(), F_SETFL, O_APPEND) != 0) ThrowCannotRun(command, errno);
    }

    const CDescriptor& Descriptor() const { return m_file; }

    // Gives the memory back that nothing but the end is kept of.
    void Trim() const {
        const off_t start = Start();
        if (start > 0) fallocate(m_file.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, start);
    }

    std::string End() const {
        const off_t start = Start();
        std::string text(endLimit, '\0');
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t count = RetryInterrupted([&] {
                return pread(m_file.Get(), text.data() + done, text.size() - done,
                             start + static_cast<off_t>(done));
            });
            if (count <= 0) break;
            done += static_cast<std::size_t>(count);
        }
        text.resize(done);
        return text;
    }

private:
    // Where the end that is kept begins.
    off_t Start() const {
        struct stat status {};
        if (fstat(m_file.Get(), &status) != 0) return 0;
        return std::max<off_t>(status.st_size - static_cast<off_t>(endLimit), 0);
    }

    CDescriptor m_file;
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
    std::string errors = LastWords(ErrorText);
    const std::string output = LastWords(Output);
    std::string failure = apigen::common::EndingText(WaitStatus);
    if (!output.empty() && errors.ends_with('.')) errors.pop_back();  // the sentence ends below
    if (!errors.empty()) failure += ": " + errors;
    if (!output.empty()) failure += (errors.empty() ? ": " : ". Its output: ") + output;
    return failure;
}

SCommandResult RunQuery(const SCommand& command, std::chrono::milliseconds limit) {
    auto output = PipeFrom(command);
    auto errors = PipeFrom(command);
    if (command.DropOutput) output.Theirs = OpenNull(command, O_WRONLY);
    const auto child = Start(command, output.Theirs, errors.Theirs);
    output.Theirs.Close();
    errors.Theirs.Close();

    CCollector outputText(std::move(output.Ours));
    CCollector errorText(std::move(errors.Ours));
    const auto deadline = apigen::common::DeadlineAfter(limit);
    // Its end counts, not that of its outputs: those may be held open by what it has left running.
    for (bool hasEnded = false; !hasEnded;) {
        std::array<pollfd, 2> set{pollfd{outputText.Descriptor(), POLLIN, 0},
                                  pollfd{errorText.Descriptor(), POLLIN, 0}};
        hasEnded = child->AwaitNews(set.data(), set.size(), deadline) && child->HasEnded();
        if (!hasEnded && apigen::common::IsPast(deadline)) {
            child->Kill();
            throw CGenericException(Quoted(command.Program) + " did not answer within " +
                                    std::to_string(limit.count()) + " ms and was ended.");
        }
        outputText.Collect(command.MostOutput);
        errorText.Collect(endLimit);
        errorText.KeepTheLast(endLimit);
        if (outputText.Size() > command.MostOutput) {
            child->Kill();
            throw CGenericException(Quoted(command.Program) + " gave more than " +
                                    std::to_string(command.MostOutput) + " bytes of output and was ended.");
        }
    }
    return {child->WaitStatus(), outputText.Take(), errorText.Take()};
}

SCommandResult RunChange(const SCommand& command) {
    const CMemoryFile output(command, "output");
    const CMemoryFile errors(command, "errors");
    const auto child = Start(command, output.Descriptor(), errors.Descriptor());
    while (!child->AwaitEnd(apigen::common::DeadlineAfter(trimRound))) {
        output.Trim();
        errors.Trim();
    }
    return {child->WaitStatus(), output.End(), errors.End()};
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
