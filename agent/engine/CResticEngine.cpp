// SPDX-License-Identifier: Apache-2.0
#include "agent/engine/CResticEngine.h"

#include <apigen/ApiException.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "agent/engine/ReadMe.h"
#include "agent/engine/ResticWords.h"
#include "agent/host/Loads.h"
#include "agent/host/RunChild.h"
#include "support/common/CDescriptor.h"
#include "support/common/COutputTail.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using apigen::common::CDescriptor;
using apigen::common::COutputTail;
using apigen::common::Escaped;
using apigen::common::Quoted;
using restic::EFailure;
namespace fs = std::filesystem;

// Format 2 of the store, which compresses, came with it.
constexpr unsigned OldestMajor = 0;
constexpr unsigned OldestMinor = 14;

// Hosts come and go; what a job has stored stays findable.
constexpr const char* HostName = "tarvo";

constexpr std::uint64_t MostWarnings = 1000;
constexpr std::size_t MostFindings = 100;
constexpr int PartialBackup = 3;
constexpr auto LockRound = std::chrono::milliseconds(500);

constexpr const char* UsualPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

/// What restic may know of our environment. Other variables change what it does, or where.
constexpr const char* HandedOn[]{"HOME", "TMPDIR", "TZ"};

std::string FromEnvironment(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the agent changes the environment
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool IsProgram(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

/// Empty when there is none.
std::string FindProgram(std::string_view name) {
    if (name.find('/') != std::string_view::npos)
        return IsProgram(std::string(name)) ? std::string(name) : "";
    std::string path = FromEnvironment("PATH");
    path += path.empty() ? UsualPath : std::string(":") + UsualPath;
    for (std::size_t start = 0; start < path.size();) {
        const auto end = std::min(path.find(':', start), path.size());
        std::string candidate = path.substr(start, end - start) + "/" + std::string(name);
        if (candidate.front() == '/' && candidate[1] != '/' && IsProgram(candidate)) return candidate;
        start = end + 1;
    }
    return {};
}

/// A secret as a file that nobody else can open and no disk sees.
CDescriptor SecretFile(std::string_view secret) {
    CDescriptor file(::memfd_create("key", MFD_CLOEXEC));
    if (!file) throw CEngineFailed("No memory file for a password: " + apigen::common::ErrorText(errno));
    while (!secret.empty()) {
        const auto written = apigen::common::RetryInterrupted(
            [&] { return ::write(file.Get(), secret.data(), secret.size()); });
        if (written < 0)
            throw CEngineFailed("Writing a password to memory failed: " + apigen::common::ErrorText(errno));
        secret.remove_prefix(static_cast<std::size_t>(written));
    }
    return file;
}

/// The last words in one line, as a log has them.
std::string OneLine(const COutputTail& tail) {
    std::string words = tail.Text();
    for (auto end = words.find('\n'); end != std::string::npos; end = words.find('\n', end))
        words.replace(end, 1, " / ");
    return words;
}

std::string_view KeyOf(const SEngineStore& store) {
    return store.Password ? std::string_view(*store.Password) : ConstantKey;
}

/// One run of restic.
struct SRun {
    std::string What;  ///< "Backing up to …", for messages
    const SEngineStore* Store = nullptr;
    std::vector<std::string> Arguments = {};
    std::optional<std::string> NewPassword = {};
    std::function<void(pid_t)> OnStart = {};
    SChildTask::LineHandler OnOutput = {};
    /// Beside what is always done with them; true where the line is told already, and no part of the last words.
    std::function<bool(std::string_view line)> OnErrors = {};
    int OutputFile = -1;
    bool IsDamageExpected = false;  ///< a missing file of the store ends the run: it is what is looked for
};

struct SOutcome {
    int ExitStatus = -1;
    EFailure Failure = EFailure::None;
    std::string LastWords;
    std::string Ending;
};

bool HasConfig(const std::string& store) {
    return ::access((store + "/config").c_str(), F_OK) == 0;
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Of a store that isn't there: it makes a difference whether its whole location is away.
[[noreturn]] void ThrowNoStore(const SEngineStore& store, const std::string& message) {
    const std::string location = LocationOf(store.Folder);
    if (IsFolder(location)) throw CNoStore(message);
    throw CNoLocation(message + ": the folder " + Quoted(location) + " is not there; is its disk mounted?");
}

/// Of all files below a folder; empty when it can't be looked through.
std::optional<std::uint64_t> SizeBelow(const std::string& folder) {
    std::error_code error;
    fs::recursive_directory_iterator each(folder, error);
    if (error) return std::nullopt;
    std::uint64_t size = 0;
    for (; each != fs::recursive_directory_iterator(); each.increment(error)) {
        if (error) return std::nullopt;
        std::error_code gone;  // while it is looked at
        if (each->is_regular_file(gone) && !each->is_symlink(gone)) {
            const auto more = each->file_size(gone);
            if (!gone) size += more;
        }
    }
    return error ? std::nullopt : std::optional(size);
}

/// Counts all, hands on the first.
class CWarnings {
public:
    explicit CWarnings(const std::function<void(const SEngineWarning&)>& handler) : m_handler(handler) {}

    /// What comes from here on waits until it is known whether it is worth a word.
    void Hold() { m_isHolding = true; }
    void Release() {
        m_isHolding = false;
        for (const auto& warning : std::exchange(m_held, {}))
            Add(warning);
    }

    void Add(std::string_view path, const std::string& reason) {
        const std::string shown = Escaped(path);
        Add({shown, shown.empty() ? reason : shown + ": " + reason});
    }
    void Add(const SEngineWarning& warning) {
        if (m_isHolding) {
            m_held.push_back(warning);
            if (m_held.size() == MostWarnings) Release();
            return;
        }
        if (++m_count > MostWarnings || !m_handler) return;
        m_handler(warning);
        if (m_count == MostWarnings) m_handler({"", "Further warnings are counted, but not listed"});
    }
    std::uint64_t Count() const noexcept { return m_count; }

private:
    const std::function<void(const SEngineWarning&)>& m_handler;
    std::uint64_t m_count = 0;
    bool m_isHolding = false;
    std::vector<SEngineWarning> m_held;
};

/// What could not be restored. restic tells names as they are, so that one may go over several lines.
class CRestoreErrors {
public:
    CRestoreErrors(CWarnings& warnings, std::string target)
        : m_warnings(warnings), m_target(std::move(target)) {
        if (m_target.ends_with('/')) m_target.pop_back();
    }

    /// False of a line that is about something else.
    bool Take(std::string_view line) {
        constexpr std::string_view Begin = "ignoring error for ";
        constexpr std::size_t Longest = 64UL * 1024;
        if (line.starts_with(Begin)) {
            Finish();
            m_isOpen = true;
            m_text = line.substr(Begin.size());
            return true;
        }
        if (!m_isOpen) return false;
        if (line.starts_with("Fatal: ") || line.starts_with("Warning: ") || restic::IsRetry(line)) {
            Finish();
            return false;
        }
        if (m_text.size() < Longest) (m_text += '\n') += line;
        return true;
    }

    /// With the last line.
    void Finish() {
        if (!std::exchange(m_isOpen, false)) return;
        while (m_text.ends_with('\n'))
            m_text.pop_back();
        if (m_text == std::exchange(m_last, m_text)) return;  // one of a file's parts after another
        const std::string path = Path();
        m_paths.insert(std::hash<std::string>()(path));
        m_warnings.Add({Escaped(path), Escaped(m_text)});
        const auto reason = m_text.rfind(": ");
        if (reason == std::string::npos ||
            restic::FailureIn(std::string_view(m_text).substr(reason)) != EFailure::NoSpace)
            return;
        if (m_crowded.empty()) m_firstCrowded = Escaped(m_text.substr(reason + 2)) + ": " + Quoted(path);
        m_crowded.insert(std::hash<std::string>()(path));
    }

    /// How many entries are not as they were.
    std::uint64_t Count() const noexcept { return m_paths.size(); }

    /// Why, and for which entries, there was no room; empty when there was.
    std::string Crowded() const {
        if (m_crowded.size() < 2) return m_firstCrowded;
        return m_firstCrowded + " and " + std::to_string(m_crowded.size() - 1) + " more";
    }

private:
    /// The entry's: the reason mostly names it again, below the target, which tells where an odd name ends.
    std::string Path() const {
        const std::string_view text = m_text;
        auto end = text.find(": ");
        for (auto at = end; at != std::string_view::npos; at = text.find(": ", at + 1)) {
            const std::string again = m_target + std::string(text.substr(0, at)) + ": ";
            if (text.find(again, at) != std::string_view::npos) end = at;
        }
        return std::string(text.substr(0, end));
    }

    CWarnings& m_warnings;
    std::string m_target;
    bool m_isOpen = false;
    std::string m_text;
    std::string m_last;
    std::string m_firstCrowded;
    std::unordered_set<std::size_t> m_paths;  ///< as hashes: there may be very many
    std::unordered_set<std::size_t> m_crowded;
};

bool IsBelowOrSame(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

class CResticEngine final : public IEngine {
public:
    explicit CResticEngine(SResticOptions options) : m_options(std::move(options)) {}

    SEngineInfo Info() override;
    void Prepare(const SPrepareRequest& request, std::stop_token stop) override;
    bool Exists(const SEngineStore& store) override { return HasConfig(store.Folder); }
    SBackupResult BackUp(const SBackupRequest& request, std::stop_token stop) override;
    std::vector<SSnapshot> Snapshots(const SEngineStore& store, std::stop_token stop) override;
    void Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                std::stop_token stop) override;
    void List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
              std::stop_token stop) override;
    SRestoreResult Restore(const SRestoreRequest& request, std::stop_token stop) override;
    SVerifyResult Verify(const SVerifyRequest& request, std::stop_token stop) override;
    void ChangePassword(const SEngineStore& store, const std::string& newPassword,
                        std::stop_token stop) override;
    void Unlock(const SEngineStore& store, std::stop_token stop) override;
    std::optional<std::uint64_t> StoreSize(const SEngineStore& store) override {
        return SizeBelow(store.Folder);
    }
    void Remove(const SEngineStore& store) override;

private:
    std::string Program() const;
    SChildTask Task(const std::string& program) const;
    SOutcome Run(const SRun& run, const std::stop_token& stop);
    void RunWell(const SRun& run, const std::stop_token& stop);
    SBackupResult BackUp(const SBackupRequest& request, const std::string& parent,
                         const std::stop_token& stop);
    template <class F>
    auto WhenUnlocked(const SEngineStore& store, const std::stop_token& stop, const F& operation);
    void ClearUnfinished(const SEngineStore& store);

    const SResticOptions m_options;
    std::mutex m_infoLock;  ///< guards the two below; held while the program is asked for its version
    std::optional<SEngineInfo> m_info;
    std::optional<std::pair<timespec, ino_t>> m_infoMark;
};

std::string CResticEngine::Program() const {
    std::string program = FindProgram(m_options.Program.empty() ? "restic" : m_options.Program);
    if (!program.empty()) return program;
    throw CEngineMissing(m_options.Program.empty()
                             ? "restic, which stores the backups, is not installed: no such program in PATH"
                             : "restic, which stores the backups, is not there: " +
                                   Quoted(m_options.Program) + " is no program that can be run");
}

SChildTask CResticEngine::Task(const std::string& program) const {
    SChildTask task;
    auto& start = task.Start;
    start.Program = program;
    // The child ends with the thread that runs it, and so with the agent, whatever ends that. As with Ctrl-C, it
    // takes its locks along.
    static const std::string setpriv = FindProgram("setpriv");
    if (!setpriv.empty()) {
        start.Program = setpriv;
        start.Arguments = {"--pdeathsig", "INT", "--", program};
    }
    start.EndSignal = SIGINT;  // SIGTERM leaves a lock behind
    for (const char* name : HandedOn)
        if (const auto value = FromEnvironment(name); !value.empty())
            start.Environment.push_back(std::string(name) + "=" + value);
    const auto path = FromEnvironment("PATH");
    start.Environment.push_back("PATH=" + (path.empty() ? UsualPath : path));
    start.Environment.emplace_back("LC_ALL=C");
    start.Environment.emplace_back("RESTIC_PROGRESS_FPS=2");
    start.Environment.push_back("RESTIC_CACHE_DIR=" + m_options.CacheFolder);
    task.SilenceLimit = m_options.SilenceLimit;
    task.StopPatience = m_options.StopPatience;
    return task;
}

SEngineInfo CResticEngine::Info() {
    const std::string program = Program();
    struct stat status {};
    if (::stat(program.c_str(), &status) != 0) throw CEngineMissing(Quoted(program) + " is gone");
    const std::lock_guard lock(m_infoLock);
    const auto isSame = [&](const std::pair<timespec, ino_t>& mark) {
        return mark.second == status.st_ino && mark.first.tv_sec == status.st_mtim.tv_sec &&
               mark.first.tv_nsec == status.st_mtim.tv_nsec;
    };
    if (m_info && m_info->Program == program && m_infoMark && isSame(*m_infoMark)) return *m_info;

    SChildTask task = Task(program);
    task.Start.Arguments.emplace_back("version");
    task.Limit = std::min(m_options.SilenceLimit, std::chrono::milliseconds(std::chrono::seconds(30)));
    std::string first;
    COutputTail tail;
    task.OnOutput = [&](std::string_view line) {
        if (first.empty()) first = line.substr(0, 1000);
        tail.Append(line);
        tail.Append("\n");
    };
    SChildOutcome outcome;
    try {
        outcome = RunChild(task, {});
    } catch (const apigen::ProcessLaunchError& error) {
        throw CEngineMissing(error.what());
    }
    if (outcome.End != EChildEnd::ByItself)
        throw CEngineHangs(Quoted(program) + " did not tell its version in time and was ended");
    const auto version = restic::ParseVersion(first);
    if (!version) {
        const auto words = OneLine(tail);
        throw CEngineTooOld(Quoted(program) + " is no restic that could be used: asked for its version, it " +
                            apigen::common::EndingText(outcome.WaitStatus) +
                            (words.empty() ? " and said nothing" : ": " + words));
    }
    if (std::pair(version->Major, version->Minor) < std::pair(OldestMajor, OldestMinor)) {
        throw CEngineTooOld(Quoted(program) + " is too old: restic " + std::to_string(OldestMajor) + "." +
                            std::to_string(OldestMinor) + " or later is needed, and it says " +
                            Quoted(version->Text));
    }
    const auto isFrom = [&](unsigned major, unsigned minor) {
        return std::pair(version->Major, version->Minor) >= std::pair(major, minor);
    };
    m_info = SEngineInfo{program, *version, isFrom(0, 16), isFrom(0, 15)};
    m_infoMark = std::pair(status.st_mtim, status.st_ino);
    return *m_info;
}

SOutcome CResticEngine::Run(const SRun& run, const std::stop_token& stop) {
    const auto info = Info();
    if (stop.stop_requested()) throw CEngineStopped(run.What + " was stopped");
    SChildTask task = Task(info.Program);
    auto& start = task.Start;
    start.Arguments.insert(start.Arguments.end(), run.Arguments.begin(), run.Arguments.end());
    start.Arguments.emplace_back("--repo");
    start.Arguments.push_back(run.Store->Folder);
    const CDescriptor key = SecretFile(KeyOf(*run.Store));
    start.Descriptors.push_back({3, key.Get()});
    start.Environment.emplace_back("RESTIC_PASSWORD_FILE=/proc/self/fd/3");
    CDescriptor newKey;
    if (run.NewPassword) {
        newKey = SecretFile(*run.NewPassword);
        start.Descriptors.push_back({4, newKey.Get()});
    }

    SOutcome outcome;
    COutputTail tail;
    auto said = EFailure::None;
    bool isHopeless = false;
    task.OnErrors = [&](std::string_view raw) {
        const std::string_view line = restic::WithoutTerminalWords(raw);
        if (line.empty() && !raw.empty()) return;
        // One that reads or writes a file of the store again and again goes on so for a quarter of an hour.
        if (restic::IsRetry(line)) {
            const auto failure = restic::FailureIn(line);
            if (failure == EFailure::NoSpace) said = failure, isHopeless = true;
            if (failure == EFailure::Other && !HasConfig(run.Store->Folder))
                said = EFailure::NoStore, isHopeless = true;
            if (run.IsDamageExpected && line.find("no such file or directory") != std::string_view::npos) {
                if (!isHopeless) said = EFailure::Damaged;
                isHopeless = true;
            }
        }
        const bool isTold = run.OnErrors && run.OnErrors(line);
        if (line.empty() || line.starts_with('{')) return;
        if (!isHopeless && (said == EFailure::None || said == EFailure::Other))
            said = restic::FailureIn(line);
        if (isTold) return;
        tail.Append(line);
        tail.Append("\n");
    };
    task.OnStart = run.OnStart;
    task.OnOutput = run.OnOutput;
    task.OutputFile = run.OutputFile;
    task.ShouldEnd = [&] { return isHopeless; };

    SChildOutcome ended;
    try {
        ended = RunChild(task, stop);
    } catch (const apigen::ProcessLaunchError& error) {
        throw CEngineMissing(error.what());
    }
    outcome.LastWords = OneLine(tail);
    const std::string words = outcome.LastWords.empty() ? "" : ": " + outcome.LastWords;
    switch (ended.End) {
        case EChildEnd::Stopped:
            throw CEngineStopped(run.What + " was stopped");
        case EChildEnd::Silent:
        case EChildEnd::TimedOut:
            throw CEngineHangs(
                run.What + " failed: restic said nothing for " +
                std::to_string(std::chrono::ceil<std::chrono::seconds>(m_options.SilenceLimit).count()) +
                " s and was ended" + words);
        case EChildEnd::GivenUp:
            outcome.ExitStatus = 1;
            outcome.Failure = said;
            outcome.Ending = "was ended, since it only tried again";
            return outcome;
        case EChildEnd::ByItself:
            break;
    }
    outcome.Ending = apigen::common::EndingText(ended.WaitStatus);
    if (!WIFEXITED(ended.WaitStatus)) {
        outcome.Failure = EFailure::Other;
        return outcome;
    }
    outcome.ExitStatus = WEXITSTATUS(ended.WaitStatus);
    outcome.Failure = restic::FailureOf(outcome.ExitStatus, said);
    return outcome;
}

std::string Failed(const SRun& run, const SOutcome& outcome) {
    return run.What + " failed: restic " + outcome.Ending +
           (outcome.LastWords.empty() ? "" : ": " + outcome.LastWords);
}

[[noreturn]] void ThrowFailure(EFailure failure, const SRun& run, const SOutcome& outcome) {
    if (failure == EFailure::NoStore) ThrowNoStore(*run.Store, Failed(run, outcome));
    restic::Throw(failure, Failed(run, outcome));
}

void CResticEngine::RunWell(const SRun& run, const std::stop_token& stop) {
    const auto outcome = Run(run, stop);
    if (outcome.Failure != EFailure::None) ThrowFailure(outcome.Failure, run, outcome);
}

void MakeFolder(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), S_IRWXU) != 0) {
        if (errno == EEXIST) return;
        const std::string message =
            "Making the folder " + Quoted(path) + " failed: " + apigen::common::ErrorText(errno);
        if (errno == ENOSPC || errno == EDQUOT) throw CNoSpace(message);
        throw CEngineFailed(message);
    }
    ::chmod(path.c_str(), mode);
}

/// What a preparation that was cut short has left: keys that open nothing, which would only confuse.
void CResticEngine::ClearUnfinished(const SEngineStore& store) {
    std::error_code error;
    if (!fs::exists(store.Folder, error)) return;
    for (const char* data : {"snapshots", "index"}) {
        for (fs::directory_iterator each(store.Folder + "/" + data, error);
             !error && each != fs::directory_iterator();)
            throw CStoreDamaged("The store " + Quoted(store.Folder) + " holds data, but not its config file");
    }
    for (const char* part : {"keys", "locks", "data", "snapshots", "index"})
        fs::remove_all(store.Folder + "/" + part, error);
}

void CResticEngine::Prepare(const SPrepareRequest& request, std::stop_token stop) {
    const auto& store = request.Store;
    const std::string location = LocationOf(store.Folder);
    struct stat status {};
    if (::stat(location.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        throw CNoLocation("The folder " + Quoted(location) +
                          ", which is to take the backups, is not there: is its disk mounted?");
    }
    const fs::path folder(store.Folder);
    // Who may write to the location may keep backups there; each job's are its owner's alone.
    MakeFolder(folder.parent_path().parent_path(), status.st_mode & ALLPERMS);
    MakeFolder(folder.parent_path(), S_IRWXU);
    if (!HasConfig(store.Folder)) {
        ClearUnfinished(store);
        RunWell(
            {.What = "Preparing the store " + Quoted(store.Folder), .Store = &store, .Arguments = {"init"}},
            stop);
    } else {
        // Prepared before, and its preparer died. Whether it opens shows with the first use.
        Unlock(store, stop);
    }
    try {
        WriteReadMe(request);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_space_on_device) throw CNoSpace(error.what());
        throw CEngineFailed(error.what());
    }
}

/// The whole id where the store's folder tells it: a short one may become ambiguous.
std::string WholeId(const SEngineStore& store, const std::string& shortId) {
    std::string whole;
    std::error_code error;
    for (fs::directory_iterator each(store.Folder + "/snapshots", error);
         !error && each != fs::directory_iterator(); each.increment(error)) {
        const std::string name = each->path().filename();
        if (!name.starts_with(shortId)) continue;
        if (!whole.empty()) return shortId;
        whole = name;
    }
    return whole.empty() ? shortId : whole;
}

bool HasLocks(const SEngineStore& store) {
    std::error_code error;
    return !fs::is_empty(store.Folder + "/locks", error) && !error;
}

template <class F>
auto CResticEngine::WhenUnlocked(const SEngineStore& store, const std::stop_token& stop, const F& operation) {
    const auto deadline = apigen::common::DeadlineAfter(m_options.LockPatience);
    std::mutex mutex;
    std::condition_variable_any never;
    for (;;) {
        try {
            return operation();
        } catch (const CStoreLocked&) {
            Unlock(store, stop);
            if (apigen::common::IsPast(deadline)) throw;
        }
        // Somebody at work. To look at the folder costs nothing, unlike another try.
        std::unique_lock lock(mutex);
        while (HasLocks(store) && !apigen::common::IsPast(deadline) && !stop.stop_requested())
            never.wait_for(lock, stop, LockRound, [] { return false; });
        if (stop.stop_requested())
            throw CEngineStopped("Waiting for " + Quoted(store.Folder) + " was stopped");
    }
}

SBackupResult CResticEngine::BackUp(const SBackupRequest& request, std::stop_token stop) {
    return WhenUnlocked(request.Store, stop, [&] {
        if (!request.Parent.empty()) {
            try {
                return BackUp(request, request.Parent, stop);
            } catch (const CNoSuchPoint&) {  // then everything is read
            }
        }
        return BackUp(request, "", stop);
    });
}

SBackupResult CResticEngine::BackUp(const SBackupRequest& request, const std::string& parent,
                                    const std::stop_token& stop) {
    const auto& store = request.Store;
    // A run makes no store and no location: its disk may only be away.
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));

    SBackupResult result;
    CWarnings warnings(request.OnWarning);
    std::optional<restic::SSummary> summary;
    SRun run;
    run.What = "Backing up to " + Quoted(store.Folder);
    run.Store = &store;
    run.Arguments = {"backup",
                     "--json",
                     "--host",
                     HostName,
                     "--tag",
                     "tarvo-job=" + request.Job,
                     "--tag",
                     "tarvo-point=" + request.Point,
                     "--compression",
                     request.Compress ? "auto" : "off",
                     "--files-from-raw",
                     request.ListFile};
    if (!request.ExcludeFile.empty())
        run.Arguments.insert(run.Arguments.end(), {"--exclude-file", request.ExcludeFile});
    if (request.OneFileSystem) run.Arguments.emplace_back("--one-file-system");
    if (parent.empty()) {
        run.Arguments.emplace_back("--force");
    } else {
        run.Arguments.insert(run.Arguments.end(), {"--parent", parent});
    }
    // Until it deals with files: what it says of a lock or a parent that is gone, another attempt makes up for.
    warnings.Hold();
    pid_t process = 0;
    run.OnStart = [&](pid_t number) { process = number; };
    const auto take = [&](std::string_view line) {
        auto message = restic::ParseMessage(line);
        if (auto* progress = std::get_if<SBackupProgress>(&message)) {
            if (progress->FilesDone != 0 || progress->FilesTotal != 0) warnings.Release();
            progress->CpuTime = CpuTimeOf(process);
            if (request.OnProgress) request.OnProgress(*progress);
        } else if (auto* done = std::get_if<restic::SSummary>(&message)) {
            summary = std::move(*done);
            result.CpuTime = CpuTimeOf(process);  // it ends with that
        } else if (const auto* error = std::get_if<restic::SReadError>(&message);
                   error != nullptr && !error->IsScan) {
            warnings.Release();
            std::string reason = error->Reason;
            // Of folders it does not say why; we are told the same when we ask.
            if (reason.empty() && ::access(error->Item.c_str(), R_OK) != 0)
                reason = apigen::common::ErrorText(errno);
            warnings.Add(error->Item, "can't be read" + (reason.empty() ? "" : ": " + Escaped(reason)));
        }
    };
    run.OnOutput = take;
    run.OnErrors = [&](std::string_view line) {
        constexpr std::string_view Gone = " does not exist, skipping";
        constexpr std::size_t LongestTold = 1000;
        if (line.ends_with(Gone)) {
            warnings.Add(line.substr(0, line.size() - Gone.size()), "is gone since it was listed");
            return true;
        }
        if (line.starts_with('{')) {
            take(line);
        } else if (!line.empty() && !restic::IsRetry(line) &&
                   !line.starts_with("Warning: at least one source file") && !line.starts_with("Fatal: ")) {
            // What it finds worth telling is worth reading: an attribute that can't be read, for one.
            warnings.Add("", Escaped(line.substr(0, LongestTold)));
        }
        return false;
    };
    const auto before = SizeBelow(store.Folder);
    const auto outcome = Run(run, stop);
    const bool isPartial = outcome.ExitStatus == PartialBackup;
    if (outcome.Failure != EFailure::Locked && outcome.Failure != EFailure::NoSuchPoint) warnings.Release();
    if (outcome.Failure != EFailure::None && !isPartial) ThrowFailure(outcome.Failure, run, outcome);
    if (!summary || summary->Snapshot.empty()) {
        throw CEngineFailed(run.What + " failed: restic " + outcome.Ending +
                            " without telling of a snapshot" +
                            (outcome.LastWords.empty() ? "" : ": " + outcome.LastWords));
    }
    if (isPartial && warnings.Count() == 0) warnings.Add("", "Something could not be read, but not what");
    const auto after = SizeBelow(store.Folder);
    result.Snapshot = WholeId(store, summary->Snapshot);
    result.FilesTotal = summary->FilesTotal;
    result.BytesTotal = summary->BytesTotal;
    result.FilesRead = summary->FilesNew + summary->FilesChanged;
    if (result.FilesRead == 0) result.BytesRead = 0;
    if (result.FilesRead == summary->FilesTotal) result.BytesRead = summary->BytesTotal;
    if (before && after)
        result.StoreGrowth = static_cast<std::int64_t>(*after) - static_cast<std::int64_t>(*before);
    result.Warnings = warnings.Count();
    return result;
}

struct SCloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

std::vector<SSnapshot> CResticEngine::Snapshots(const SEngineStore& store, std::stop_token stop) {
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));
    // To a file: one line, which may hold the paths of very many entries.
    const std::unique_ptr<std::FILE, SCloseFile> file(std::tmpfile());
    if (file == nullptr) throw CEngineFailed("No temporary file: " + apigen::common::ErrorText(errno));
    SRun run{.What = "Listing what is in " + Quoted(store.Folder),
             .Store = &store,
             .Arguments = {"snapshots", "--json", "--no-lock"}};
    run.OutputFile = ::fileno(file.get());
    RunWell(run, stop);
    std::rewind(file.get());
    std::vector<SSnapshot> snapshots;
    const bool isSense = restic::ParseSnapshots(file.get(), [&](SSnapshot snapshot) {
        if (!snapshot.Point.empty()) snapshots.push_back(std::move(snapshot));
    });
    if (!isSense) throw CEngineFailed(run.What + " failed: what restic said makes no sense");
    std::stable_sort(snapshots.begin(), snapshots.end(),
                     [](const SSnapshot& left, const SSnapshot& right) { return left.Time < right.Time; });
    return snapshots;
}

void CResticEngine::Unlock(const SEngineStore& store, std::stop_token stop) {
    RunWell({.What = "Unlocking " + Quoted(store.Folder), .Store = &store, .Arguments = {"unlock"}}, stop);
}

void CResticEngine::Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                           std::stop_token stop) {
    if (snapshots.empty()) return;
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));
    SRun run{.What = "Removing points from " + Quoted(store.Folder),
             .Store = &store,
             .Arguments = {"forget", "--prune", "--cleanup-cache"}};
    run.Arguments.insert(run.Arguments.end(), snapshots.begin(), snapshots.end());
    WhenUnlocked(store, stop, [&] {
        const auto outcome = Run(run, stop);
        // Those that are gone already it tells of, and goes on.
        if (outcome.Failure != EFailure::None && outcome.Failure != EFailure::NoSuchPoint)
            ThrowFailure(outcome.Failure, run, outcome);
    });
}

/// Gives paths of a JSON listing, in which each byte that is no valid UTF-8 has become a replacement character, their
/// bytes back, by the plain listing of the same entries in the same order.
class CPlainListing {
public:
    explicit CPlainListing(std::FILE* file) : m_file(file) {}

    /// False when the two have nothing to do with one another.
    bool Restore(std::string& path) {
        constexpr std::string_view Replacement = "\xef\xbf\xbd";
        std::string bytes;
        for (std::size_t at = 0; at < path.size();) {
            const int next = std::getc(m_file);
            if (next == EOF) return false;
            const char byte = static_cast<char>(next);
            bytes += byte;
            if (byte == path[at]) {
                ++at;
            } else if (std::string_view(path).substr(at).starts_with(Replacement)) {
                at += Replacement.size();
            } else {
                return false;
            }
        }
        if (std::getc(m_file) != '\n') return false;
        path = std::move(bytes);
        return true;
    }

    /// Over the line that leads it.
    void SkipLine() {
        for (int next = 0; next != EOF && next != '\n';)
            next = std::getc(m_file);
    }

private:
    std::FILE* m_file;
};

/// As people know it.
template <class Request>
std::string PointText(const Request& request) {
    return "the point " + (request.Point.empty() ? "of the snapshot " + request.Snapshot : request.Point);
}

void CResticEngine::List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
                         std::stop_token stop) {
    const auto& store = request.Store;
    const auto& snapshot = request.Snapshot;
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));
    SRun run{.What = "Listing " + PointText(request) + " from " + Quoted(store.Folder),
             .Store = &store,
             .Arguments = {"ls", "--json", "--no-lock", snapshot}};
    // Its own filter takes no files and no odd names, and it reads every folder anyway.
    const auto isWanted = [&](std::string_view each) { return IsBelowOrSame(each, request.Path); };
    const std::unique_ptr<std::FILE, SCloseFile> lines(std::tmpfile());
    if (lines == nullptr) throw CEngineFailed("No temporary file: " + apigen::common::ErrorText(errno));
    bool hasOddNames = false;
    run.OnOutput = [&](std::string_view line) {
        if (line.find("\xef\xbf\xbd") != std::string_view::npos ||
            line.find("\\ufffd") != std::string_view::npos)
            hasOddNames = true;
        std::fwrite(line.data(), 1, line.size(), lines.get());
        std::putc('\n', lines.get());
    };
    const auto check = [&](const SOutcome& outcome) {
        auto failure = outcome.Failure;
        // It finds nothing, says so, and is content.
        if (failure == EFailure::None && restic::FailureIn(outcome.LastWords) == EFailure::NoSuchPoint)
            failure = EFailure::NoSuchPoint;
        if (failure != EFailure::None) ThrowFailure(failure, run, outcome);
    };
    check(Run(run, stop));
    if (std::fflush(lines.get()) != 0)
        throw CNoSpace(run.What + " failed: " + apigen::common::ErrorText(errno));

    std::unique_ptr<std::FILE, SCloseFile> plain;
    if (hasOddNames) {
        plain.reset(std::tmpfile());
        if (plain == nullptr) throw CEngineFailed("No temporary file: " + apigen::common::ErrorText(errno));
        run.Arguments = {"ls", "--no-lock", snapshot};
        run.OnOutput = nullptr;
        run.OutputFile = ::fileno(plain.get());
        check(Run(run, stop));
        std::rewind(plain.get());
    }
    CPlainListing listing(plain.get());
    if (plain != nullptr) listing.SkipLine();
    std::rewind(lines.get());
    char* line = nullptr;
    std::size_t capacity = 0;
    const auto free = [](char** text) { std::free(*text); };
    const std::unique_ptr<char*, decltype(free)> owner(&line, free);
    for (ssize_t length = 0; (length = ::getline(&line, &capacity, lines.get())) > 0;) {
        auto found = restic::ParseEntry({line, static_cast<std::size_t>(length) - 1});
        if (!found) continue;
        if (plain != nullptr && !listing.Restore(found->Path)) {
            plain.reset();  // better the names that are readable than none
        }
        if (isWanted(found->Path)) entry(*found);
    }
}

SRestoreResult CResticEngine::Restore(const SRestoreRequest& request, std::stop_token stop) {
    const auto& store = request.Store;
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));
    CWarnings warnings(request.OnWarning);
    CRestoreErrors errors(warnings, request.Target);
    SRun run{.What = "Restoring " + PointText(request) + " from " + Quoted(store.Folder),
             .Store = &store,
             .Arguments = {"restore", request.Snapshot, "--target", request.Target}};
    for (const auto& path : request.Paths)
        run.Arguments.insert(run.Arguments.end(), {"--include", restic::LiteralPattern(path)});
    if (::access(store.Folder.c_str(), W_OK) != 0) run.Arguments.emplace_back("--no-lock");
    run.OnErrors = [&](std::string_view line) { return errors.Take(line); };
    const auto outcome = Run(run, stop);
    errors.Finish();
    // Each was told by itself.
    if (outcome.Failure == EFailure::NoSpace && !errors.Crowded().empty())
        throw CNoSpace(run.What + " failed: " + errors.Crowded());
    // It restores what it can of a damaged store.
    const bool isIncomplete = (outcome.Failure == EFailure::Other || outcome.Failure == EFailure::Damaged) &&
                              outcome.ExitStatus == 1 && errors.Count() != 0;
    if (outcome.Failure != EFailure::None && !isIncomplete) ThrowFailure(outcome.Failure, run, outcome);
    return {errors.Count()};
}

SVerifyResult CResticEngine::Verify(const SVerifyRequest& request, std::stop_token stop) {
    const auto& store = request.Store;
    if (!HasConfig(store.Folder)) ThrowNoStore(store, "There is no store in " + Quoted(store.Folder));
    // Its cache for a check would stay when it is killed; on a disk of this host it would gain little.
    SRun run{
        .What = "Verifying " + Quoted(store.Folder), .Store = &store, .Arguments = {"check", "--no-cache"}};
    if (request.Part && request.Part->Of > 1) {
        run.Arguments.push_back("--read-data-subset=" + std::to_string(request.Part->Number) + "/" +
                                std::to_string(request.Part->Of));
    } else {
        run.Arguments.emplace_back("--read-data");
    }
    if (::access(store.Folder.c_str(), W_OK) != 0) run.Arguments.emplace_back("--no-lock");
    run.IsDamageExpected = true;
    SVerifyResult result;
    run.OnErrors = [&](std::string_view line) {
        if (line.empty() || line.starts_with("Fatal: repository contains errors") ||
            line.starts_with("using temporary cache"))
            return false;
        if (const auto again = line.find(" returned error, retrying after");
            again != std::string_view::npos) {
            const auto reason = line.find(": ", again);
            result.Findings.push_back(
                Escaped(std::string(line.substr(0, again)) +
                        std::string(reason != std::string_view::npos ? line.substr(reason) : "")));
            return false;
        }
        if (result.Findings.size() < MostFindings) result.Findings.push_back(Escaped(line));
        return false;
    };
    const auto outcome = Run(run, stop);
    if (outcome.Failure == EFailure::None) {
        result.Findings.clear();  // hints
        return result;
    }
    if (outcome.Failure != EFailure::Damaged) ThrowFailure(outcome.Failure, run, outcome);
    result.IsDamaged = true;
    if (result.Findings.empty()) result.Findings.push_back(Failed(run, outcome));
    return result;
}

void CResticEngine::ChangePassword(const SEngineStore& store, const std::string& newPassword,
                                   std::stop_token stop) {
    // The engine would take it, and nobody could open the store any more.
    if (const std::string problem = PasswordProblem(newPassword); !problem.empty())
        throw CEngineFailed("The password of " + Quoted(store.Folder) + " stays as it is: " + problem);
    SRun run{.What = "Changing the password of " + Quoted(store.Folder),
             .Store = &store,
             .Arguments = {"key", "passwd", "--new-password-file", "/proc/self/fd/4"},
             .NewPassword = newPassword};
    try {
        RunWell(run, stop);
    } catch (const CWrongKey&) {
        // It may have been done before by somebody who could not remember it.
        const SEngineStore changed{store.Folder, newPassword};
        RunWell({.What = run.What, .Store = &changed, .Arguments = {"cat", "config", "--no-lock"}}, stop);
    }
}

void CResticEngine::Remove(const SEngineStore& store) {
    const fs::path folder(store.Folder);
    const fs::path job = folder.parent_path();
    const fs::path all = job.parent_path();
    if (all.filename() != "tarvo" || folder.filename().empty())
        throw CEngineFailed(Quoted(store.Folder) + " is no store of the agent's and is left alone");
    std::error_code error;
    fs::remove_all(folder, error);
    if (error) throw CEngineFailed("Removing " + Quoted(store.Folder) + " failed: " + error.message());
    const auto isLast = [&] {
        for (const auto& each : fs::directory_iterator(job, error))
            if (each.path().filename() != "README.txt") return false;
        return !error;
    };
    if (isLast()) {
        fs::remove(job / "README.txt", error);
        fs::remove(job, error);
        ::rmdir(all.c_str());
    }
}

}  // namespace

std::shared_ptr<IEngine> MakeResticEngine(SResticOptions options) {
    return std::make_shared<CResticEngine>(std::move(options));
}

}  // namespace tarvo
