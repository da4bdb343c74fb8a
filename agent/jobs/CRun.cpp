// SPDX-License-Identifier: Apache-2.0
#include "agent/jobs/CRun.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>

#include "agent/core/Retention.h"
#include "agent/core/Schedule.h"
#include "agent/core/Sessions.h"
#include "agent/host/Files.h"
#include "agent/host/Scripts.h"
#include "agent/jobs/Source.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Escaped;
using apigen::common::Quoted;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int LowPriorityNice = 19;

/// How often progress is written down.
constexpr auto TellInterval = milliseconds(500);

/// Lines that a session's log holds; of more, their number is told.
constexpr std::size_t MostLines = 10000;

/// What is left to a post-job script when the session has been stopped.
constexpr auto StoppedScriptLimit = milliseconds(1500);

/// The session fails with this reason.
class CFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A chain can't be reached now: its disk may be away.
class CAway : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The session was stopped.
class CStop : public std::exception {};

milliseconds Span(const STimeSpan& span) {
    constexpr long Most = 60L * 60 * 24 * 365;
    return std::chrono::seconds(std::clamp(span.seconds, 0L, Most)) + milliseconds(span.milliseconds);
}

/// Removes the files that the engine is fed with.
class CListFiles {
public:
    CListFiles(const std::string& folder, const Guid& session)
        : List(folder + "/" + PlainText(session) + ".list"),
          Exclude(folder + "/" + PlainText(session) + ".exclude") {
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
            throw CFailure("The folder " + Quoted(folder) +
                           " can't be made: " + apigen::common::ErrorText(errno));
        }
    }
    CListFiles(const CListFiles&) = delete;
    CListFiles& operator=(const CListFiles&) = delete;
    ~CListFiles() {
        ::unlink(List.c_str());
        ::unlink(Exclude.c_str());
    }

    const std::string List;
    const std::string Exclude;
};

}  // namespace

CRun::CRun(CAgent::Impl& agent, ActivePtr active, bool isChecked)
    : m_agent(agent), m_active(std::move(active)), m_isChecked(isChecked) {}

void CRun::Run() noexcept {
    m_outcome = Outcome();
    bool isInterrupted = false;
    {
        const auto lock = m_agent.LockState();
        isInterrupted = m_outcome == Status::Canceled && !m_active->IsStopAsked && m_agent.m_isEnding;
    }
    try {
        RunPostJobScript();
    } catch (const std::exception& error) {
        Say(Type::Warning, std::string("The post-job script can't be run: ") + error.what());
    }
    if (m_outcome == Status::Success && m_hasWarning) m_outcome = Status::Warning;
    if (isInterrupted) Say(Type::Error, "Interrupted: the agent ends");
    if (m_linesLeftOut != 0) {
        m_lines.push_back(LogLine(Type::Warning, Counted(m_linesLeftOut, "further line is left out",
                                                         "further lines are left out")));
    }
    if (!m_isPointKept && m_progress.BytesDone != 0) {
        // How far it has come, whenever that was told last.
        const auto elapsed = std::chrono::duration_cast<milliseconds>(m_lastProgress - m_workBegan);
        m_unkept = [progress = m_progress, elapsed](SSession& session, SJob* /*job*/) {
            TellProgress(session.Info, progress, elapsed);
        };
    }
    if (m_hasSlot) m_agent.GiveSlot(m_repository.Id);
    try {
        m_agent.End(m_active, m_outcome, isInterrupted, std::exchange(m_lines, {}), std::move(m_unkept));
    } catch (const std::exception& error) {
        m_agent.m_log.Error("A session has ended badly: " + Escaped(error.what()));
    }
}

CRun::Status CRun::Outcome() {
    auto status = Status::Success;
    try {
        Work();
    } catch (const CStop&) {
        status = Status::Canceled;
    } catch (const CEngineStopped&) {
        status = Status::Canceled;
    } catch (const CWalkStopped&) {
        status = Status::Canceled;
    } catch (const std::exception& error) {
        status = IsStopped() ? Status::Canceled : Status::Failed;
        Say(Type::Error, error.what());
    }
    if (m_isPointKept && status != Status::Success) {
        Say(Type::Warning, "The point is complete, whatever came after it");
        status = Status::Warning;
    }
    return status == Status::Success && m_hasWarning ? Status::Warning : status;
}

void CRun::Say(Type type, std::string text) {
    if (type == Type::Warning) m_hasWarning = true;
    if (++m_lineCount > MostLines) {
        ++m_linesLeftOut;
        return;
    }
    m_lines.push_back(LogLine(type, std::move(text)));
}

void CRun::Tell(const std::function<void(SBackupJobSessionInfo&)>& change) {
    m_lastTold = steady_clock::now();
    m_agent.Amend(
        *m_active,
        [&](SSession& session) {
            if (change) change(session.Info);
        },
        m_lines);
    m_lines.clear();  // not before they are kept
}

void CRun::TellNowAndThen() {
    if (steady_clock::now() - m_lastTold < TellInterval) return;
    const auto elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - m_workBegan);
    const auto busy = Busy();
    try {
        Tell([&](SBackupJobSessionInfo& info) {
            TellProgress(info, m_progress, elapsed);
            TellLoads(info, busy, elapsed);
        });
    } catch (const CStateError& error) {
        // Progress is no reason to fail; the end of the session says what is wrong.
        m_agent.m_log.Warning("The progress of a session can't be kept: " + Escaped(error.what()));
    }
}

SBusyTimes CRun::Busy() const {
    const auto processors = std::max(std::thread::hardware_concurrency(), 1U);
    SBusyTimes busy;
    if (m_sourceDisks) busy.Source = m_sourceDisks->Busy();
    busy.Engine = m_cpuTime / processors;
    if (m_targetDisk) busy.Target = m_targetDisk->Busy();
    return busy;
}

void CRun::RequireGoingOn() const {
    if (IsStopped()) throw CStop();
}

void CRun::EnterState(JobState state) {
    Tell([&](SBackupJobSessionInfo& info) {
        if (info.State != JobState::Stopping) info.State = state;
    });
}

void CRun::Work() {
    {
        const std::lock_guard changes(m_agent.m_changes);
        m_session = m_active->Session;
        m_job = m_agent.JobForChange(m_session.Info.JobUid);
        m_secrets = m_agent.m_store.JobSecrets(m_job.Id);
    }
    const auto priority =
        m_session.Options.Priority ? *m_session.Options.Priority : EJobStartPriorityMode::Default;
    const bool isLow = priority == EJobStartPriorityMode::Low;
    const int nice = isLow                                     ? LowPriorityNice
                     : priority == EJobStartPriorityMode::High ? 0
                                                               : m_agent.Settings().Nice;
    LowerThisThread(nice, isLow);

    if (!m_agent.TakeSlot(*m_active, m_job.Config.RepositoryId)) throw CStop();
    m_hasSlot = true;
    m_repository.Id = m_job.Config.RepositoryId;
    if (m_session.Options.SnapshotMode == apigen::Optional(EJobStartSnapshotMode::Enabled)) {
        Say(Type::Info, "No snapshot is taken: files are read as they stand while the job runs");
    }
    EnterState(JobState::Working);

    if (!m_isChecked) Check();
    RunPreJobScript();
    FindRepository();
    ChooseChain();
    BackUp();
    EnterState(JobState::Postprocessing);
    Prune();
    VerifyNextPart();
}

void CRun::Check() {
    const auto findings = FindingsOf(m_job.Config, m_agent.FactsOf(m_job.Config, m_secrets, false));
    for (const auto& finding : findings) {
        if (finding.MessageType == Type::Error) Say(Type::Error, finding.Message);
    }
    if (!ErrorsOf(findings).empty()) throw CFailure("The job can't run as it is");
    RequireGoingOn();
}

// Scripts

bool CRun::RunOneScript(const std::string& path, const char* name, milliseconds limit,
                        const std::stop_token& stop, const std::string& outcome) {
    Say(Type::Info, std::string("Runs the ") + name + " script " + Quoted(path));
    Tell();
    SScript script;
    script.Path = path;
    script.Limit = limit;
    script.Environment = {{"TARVO_JOB_ID", PlainText(m_job.Id)},
                          {"TARVO_JOB_NAME", m_job.Config.JobName},
                          {"TARVO_SESSION_ID", PlainText(m_session.Info.Uid)}};
    if (!outcome.empty()) script.Environment.emplace_back("TARVO_RESULT", outcome);
    script.OnLine = [&](const std::string& line) { Say(Type::Info, std::string(name) + " script: " + line); };
    const auto result = RunScript(script, stop);
    if (result.Succeeded) return true;
    Say(result.Stopped ? Type::Info : Type::Warning,
        std::string("The ") + name + " script failed: it " + result.Ending);
    return false;
}

void CRun::RunPreJobScript() {
    if (!m_job.Config.ScriptInfo || m_job.Config.ScriptInfo->PreJobScript.empty()) return;
    const auto& scripts = *m_job.Config.ScriptInfo;
    const bool isDone = RunOneScript(scripts.PreJobScript, "pre-job", Span(scripts.ExecutionTimeout),
                                     m_active->Stop.get_token(), {});
    RequireGoingOn();
    if (!isDone) throw CFailure("The session is given up, since its pre-job script failed");
}

void CRun::RunPostJobScript() {
    if (!m_job.Config.ScriptInfo || m_job.Config.ScriptInfo->PostJobScript.empty()) return;
    const auto& scripts = *m_job.Config.ScriptInfo;
    auto limit = Span(scripts.ExecutionTimeout);
    // It may have to start again what the pre-job script has stopped: it runs after a stop, too, but not for long.
    if (IsStopped() && (limit.count() == 0 || limit > StoppedScriptLimit)) limit = StoppedScriptLimit;
    RunOneScript(scripts.PostJobScript, "post-job", limit, {}, std::string(NameOf(m_outcome)));
}

// Where it goes

void CRun::FindRepository() {
    const auto repository = m_agent.Find<SBackupRepositoryInfo>(m_job.Config.RepositoryId);
    if (!repository) throw CFailure("The job's repository does not exist any more");
    m_repository = *repository;
    if (const std::string fault = m_agent.RepositoryFault(m_repository); !fault.empty()) {
        throw CFailure("Nothing can be written to the repository " + Quoted(m_repository.Name) + ": " +
                       fault);
    }
    m_agent.NoteMount(m_repository);
    const std::string location = LocationOf(m_repository);
    const auto size = SizeOf(m_repository);
    Tell([&](SBackupJobSessionInfo& info) {
        info.BackupDestination = location;
        info.RepositorySizeInfo = size;
    });
}

void CRun::AmendChain(const std::function<void(SChain&)>& change) {
    change(m_chain);
    const std::lock_guard changes(m_agent.m_changes);
    // As it is now: a command beside us may have found it damaged.
    auto chain = m_agent.m_store.FindChain(m_job.Id, m_chain.Number);
    if (!chain) return;
    change(*chain);
    m_agent.m_store.SaveChain(*chain);
}

void CRun::MarkChain(EChainState state, const std::string& damage) {
    AmendChain([&](SChain& chain) {
        chain.State = state;
        chain.Damage = damage;
    });
}

void CRun::ChooseChain() {
    const auto password = PasswordOf(m_secrets);
    const bool isProtected = m_job.Config.StorageInfo.EncryptionSettings && password;
    const auto stop = m_active->Stop.get_token();
    if (isProtected) {
        try {
            m_agent.ChangeKeys(m_job.Id, *password, stop);
        } catch (const CEngineStopped&) {
            throw;
        } catch (const CEngineError& error) {
            Say(Type::Warning,
                std::string("The new password can't be set in every chain yet: ") + error.what());
        }
    }
    m_agent.DropUnprepared(m_job.Id);

    std::vector<SChain> chains;
    std::vector<SPoint> points;
    {
        const std::lock_guard changes(m_agent.m_changes);
        chains = m_agent.m_store.ChainsOf(m_job.Id);
        points = m_agent.m_store.PointsOf(m_job.Id);
    }
    // Chains come and go with their disks.
    for (auto& chain : chains) {
        const bool isThere = m_agent.m_engine->Exists(m_agent.StoreOf(chain, {}));
        const bool isNewest = &chain == &chains.back();
        auto state = chain.State;
        if (isThere && state == EChainState::Lost) state = isNewest ? EChainState::Open : EChainState::Closed;
        if (!isThere && state == EChainState::Open && chain.Repository == m_repository.Id) {
            state = EChainState::Lost;
        }
        if (state == chain.State) continue;
        chain.State = state;
        const std::lock_guard changes(m_agent.m_changes);
        m_agent.m_store.SaveChain(chain);
    }

    const auto wish = m_session.Options.ActiveFull;
    bool isActiveFull = wish && *wish == EJobStartActiveFullMode::Enabled;
    if (!wish || *wish == EJobStartActiveFullMode::Default) {
        isActiveFull = IsActiveFullDue(m_job.Config.ScheduleInfo.ActiveFullSchedule, m_job.LastActiveFull,
                                       m_agent.m_clock.Now(), m_agent.m_clock);
    }
    const SChain* current = nullptr;
    for (const auto& chain : chains) {
        if (chain.State != EChainState::Preparing) current = &chain;
    }
    const bool isEmpty =
        current != nullptr && std::none_of(points.begin(), points.end(),
                                           [&](const SPoint& each) { return each.Chain == current->Number; });
    // A chain without a point is a new one already: the attempt before has begun it.
    const auto reason = NeedsNewChain(current, m_repository.Id, isProtected, isActiveFull && !isEmpty);
    if (reason != ENewChain::No) {
        const bool isBad = reason == ENewChain::Damaged || reason == ENewChain::Lost;
        BeginChain(chains, reason, isBad ? Type::Warning : Type::Info);
    } else {
        m_chain = *current;
        const std::lock_guard changes(m_agent.m_changes);
        m_password = m_agent.m_store.ChainPassword(m_job.Id, m_chain.Number);
    }
    m_isFirst = reason != ENewChain::No || isEmpty;
    m_agent.Amend(
        *m_active,
        [&](SSession& changed) {
            changed.Chain = m_chain.Number;
            changed.Info.SessionAlgorithm =
                m_isFirst ? JobSessionAlgorithm::Full : JobSessionAlgorithm::Increment;
        },
        m_lines);
    m_lines.clear();
    RequireGoingOn();
}

void CRun::BeginChain(const std::vector<SChain>& chains, ENewChain reason, Type weight) {
    const auto password = PasswordOf(m_secrets);
    const bool isProtected = m_job.Config.StorageInfo.EncryptionSettings && password;
    Say(weight, ReasonText(reason));
    SChain chain;
    chain.Job = m_job.Id;
    chain.Number = chains.empty() ? 1 : chains.back().Number + 1;
    chain.Repository = m_repository.Id;
    chain.Location = LocationOf(m_repository);
    chain.HasPassword = isProtected;
    chain.Created = m_agent.m_clock.Now();
    // A state that was put back from a copy knows less than the disk.
    while (std::filesystem::exists(std::filesystem::symlink_status(m_agent.StoreOf(chain, {}).Folder))) {
        ++chain.Number;
    }
    m_password = isProtected ? password : std::nullopt;
    {
        const std::lock_guard changes(m_agent.m_changes);
        m_agent.m_store.AddChain(chain, m_password);
    }
    m_chain = chain;
    try {
        m_agent.m_engine->Prepare({Store(), m_job.Config.JobName}, m_active->Stop.get_token());
    } catch (...) {
        try {
            m_agent.DropUnprepared(m_job.Id);
        } catch (const std::exception& error) {  // the next run tries again
            m_agent.m_log.Warning("A folder can't be cleared up: " + Escaped(error.what()));
        }
        throw;
    }
    m_chain.State = EChainState::Open;
    const std::lock_guard changes(m_agent.m_changes);
    CStore::CTransaction transaction(m_agent.m_store);
    for (auto old : chains) {
        if (old.State != EChainState::Open) continue;
        old.State = EChainState::Closed;
        m_agent.m_store.SaveChain(old);
    }
    m_agent.m_store.SaveChain(m_chain);
    transaction.Commit();
}

// The backup

void CRun::BackUp() {
    const auto stop = m_active->Stop.get_token();
    const auto& source = m_job.Config.Source;
    auto roots = RootsOf(source, m_agent.Settings().Host);
    for (const auto& missing : roots.Missing) {
        Say(Type::Warning, "The folder " + Quoted(missing) + " to back up does not exist");
    }
    for (const auto& note : roots.Notes) {
        Say(Type::Info, note);
    }
    for (const auto& [object, why] : roots.Unreadable) {
        Say(Type::Warning, Quoted(object) + " can't be backed up: " + why);
    }
    const Guid session = m_session.Info.Uid;
    const CListFiles lists(m_agent.m_folders.Lists(), session);
    SWalkRequest walk;
    walk.Roots = std::move(roots.Roots);
    walk.ExcludeDirs = source.ExcludeDirs;
    walk.IncludeMasks = source.IncludeMasks;
    walk.ExcludeMasks = source.ExcludeMasks;
    walk.StayOnFileSystems = roots.StaysOnFileSystems;
    walk.Never = {m_agent.m_folders.Cache, m_agent.m_folders.Lists(), LocationOf(m_repository) + "/tarvo"};
    walk.ListFile = lists.List;
    walk.ExcludeFile = lists.Exclude;
    const Moment began = m_agent.m_clock.Now();
    std::string parent;
    {
        const std::lock_guard changes(m_agent.m_changes);
        for (const auto& point : m_agent.m_store.PointsOf(m_job.Id)) {
            if (point.Chain != m_chain.Number) continue;
            parent = point.EngineId;
            walk.Since = point.Created;
        }
    }
    const auto walked = Walk(walk, stop);
    for (auto& [weight, text] : SightingsOf(walked, m_agent.m_engine->Info())) {
        Say(weight, std::move(text));
    }
    if (walked.IsEmpty) throw CFailure("There is nothing to back up: every folder is missing or left out");

    SBackupRequest request;
    request.Store = Store();
    request.Job = PlainText(m_job.Id);
    request.Point = PlainText(m_session.Info.PointId);
    request.ListFile = lists.List;
    std::error_code error;
    if (std::filesystem::file_size(lists.Exclude, error) != 0 && !error) request.ExcludeFile = lists.Exclude;
    request.Compress = m_job.Config.StorageInfo.CompressionLevel != JobCompressionLevel::None;
    request.OneFileSystem = walked.OneFileSystem;
    request.Parent = parent;
    const bool isAllRead = parent.empty();
    m_sourceDisks.emplace(walked.Resolved);
    m_targetDisk.emplace(std::vector{LocationOf(m_repository)});
    m_workBegan = steady_clock::now();
    request.OnProgress = [&](const SBackupProgress& progress) {
        const auto read = isAllRead ? progress.BytesDone
                                    : ReadOf(walked.BytesSince, progress.BytesDone, progress.BytesTotal);
        m_progress = {progress.BytesDone, progress.BytesTotal, read};
        m_cpuTime = progress.CpuTime;
        m_lastProgress = steady_clock::now();
        TellNowAndThen();
    };
    request.OnWarning = [&](const SEngineWarning& warning) {
        Say(Type::Warning, warning.Message);
        TellNowAndThen();
    };
    SBackupResult result;
    try {
        result = m_agent.m_engine->BackUp(request, stop);
    } catch (const CNoLocation&) {
        throw;  // the disk is away, not the chain
    } catch (const CNoStore& lost) {
        if (m_agent.IsAway(m_chain.Repository, m_chain.Location)) {
            throw CFailure(std::string(lost.what()) + ": its disk is not mounted any more; mount it");
        }
        MarkChain(EChainState::Lost, lost.what());
        throw;
    } catch (const CStoreDamaged& damage) {
        MarkChain(EChainState::Damaged, damage.what());
        throw;
    }
    if (result.Warnings != 0) m_hasWarning = true;
    m_cpuTime = std::max(m_cpuTime, result.CpuTime);
    KeepPoint(result, result.BytesRead.value_or(walked.BytesSince), began);
}

void CRun::KeepPoint(const SBackupResult& result, std::uint64_t bytesRead, Moment began) {
    const auto elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - m_workBegan);
    const Moment now = m_agent.m_clock.Now();
    SPoint point;
    point.Id = m_session.Info.PointId;
    point.Job = m_job.Id;
    point.Chain = m_chain.Number;
    point.Session = m_session.Info.Uid;
    point.Created = began;
    point.Type = m_isFirst ? RestorePointType::Full : RestorePointType::Increment;
    point.SourceBytes = result.BytesTotal;
    point.StoredBytes = static_cast<std::uint64_t>(std::max<std::int64_t>(result.StoreGrowth, 0));
    point.EngineId = result.Snapshot;
    const auto size = SizeOf(m_repository);
    Say(Type::Info, "The point " + PlainText(point.Id) +
                        " is complete: " + Counted(result.FilesTotal, "file", "files") + ", " +
                        Counted(result.BytesTotal, "byte", "bytes"));
    const SEnding::Also keep = [agent = &m_agent, point, elapsed, bytesRead, size, now, busy = Busy()](
                                   SSession& session, SJob* job) {
        auto& info = session.Info;
        const auto percent = info.PercentCompleted;
        TellProgress(info, {point.SourceBytes, point.SourceBytes, 0}, elapsed);
        TellLoads(info, busy, elapsed);
        info.PercentCompleted = std::max(percent, info.PercentCompleted);
        info.ReadSizeBytes = bytesRead;
        info.BackedUpSizeBytes = static_cast<long>(point.SourceBytes);
        info.TransferredSizeBytes = static_cast<long>(point.StoredBytes);
        info.RepositorySizeInfo = size;
        agent->m_store.AddPoint(point);
        if (job == nullptr) return;
        job->LastBackup = now;
        if (point.Type == RestorePointType::Full) job->LastActiveFull = now;
    };
    const std::lock_guard changes(m_agent.m_changes);
    SJob job = m_agent.JobForChange(m_job.Id);
    m_isPointKept = true;
    try {
        m_agent.AmendLocked(
            *m_active, [&](SSession& session) { keep(session, &job); }, m_lines,
            [&] { m_agent.m_store.SaveJob(job); });
    } catch (const CStateError&) {
        m_unkept = keep;  // with the end of the session
        throw;
    }
    m_lines.clear();
    m_agent.ShowJob(job);
}

// Afterwards

void CRun::Prune() {
    std::vector<SChain> chains;
    std::vector<SPoint> points;
    {
        const std::lock_guard changes(m_agent.m_changes);
        chains = m_agent.m_store.ChainsOf(m_job.Id);
        points = m_agent.m_store.PointsOf(m_job.Id);
    }
    std::map<int, std::vector<SRetentionChoice>> dropped;
    std::map<int, std::size_t> kept;
    for (auto& choice :
         ChooseKept(m_job.Config.RetentionInfo, std::move(points), chains, m_agent.m_clock.Now())) {
        if (choice.IsKept) {
            ++kept[choice.Point.Chain];
        } else {
            dropped[choice.Point.Chain].push_back(std::move(choice));
        }
    }
    for (const auto& chain : chains) {
        const auto& choices = dropped[chain.Number];
        const bool isWhole = kept[chain.Number] == 0 && chain.Number != m_chain.Number;
        // In a damaged chain nothing can be tidied up: it goes as a whole or not yet.
        const bool isStuck = chain.State == EChainState::Damaged && !isWhole;
        if (isStuck || (choices.empty() && !isWhole)) continue;
        const std::string name = "Chain " + std::to_string(chain.Number);
        try {
            Forget(chain, choices, isWhole);
        } catch (const CEngineStopped&) {
            throw;
        } catch (const CAway& away) {
            Say(Type::Info, name + " keeps its old points for now: " + away.what());
        } catch (const std::exception& error) {
            Say(Type::Warning,
                name + " can't be rid of old points; the next run tries again: " + error.what());
        }
        RequireGoingOn();
    }
}

void CRun::Forget(const SChain& chain, const std::vector<SRetentionChoice>& choices, bool isWhole) {
    std::optional<std::string> password;
    {
        const std::lock_guard changes(m_agent.m_changes);
        password = m_agent.m_store.ChainPassword(m_job.Id, chain.Number);
    }
    const auto store = m_agent.StoreOf(chain, password);
    const bool isAway = m_agent.IsAway(chain.Repository, chain.Location);
    if (isWhole) {
        if (isAway && !choices.empty()) throw CAway(Quoted(chain.Location) + " is not there");
        if (!isAway) m_agent.m_engine->Remove(store);
    } else {
        if (!m_agent.m_engine->Exists(store)) throw CAway("it is not where it was");
        std::vector<std::string> snapshots;
        snapshots.reserve(choices.size());
        for (const auto& choice : choices) {
            snapshots.push_back(choice.Point.EngineId);
        }
        m_agent.m_engine->Forget(store, snapshots, m_active->Stop.get_token());
    }
    {
        const std::lock_guard changes(m_agent.m_changes);
        CStore::CTransaction transaction(m_agent.m_store);
        for (const auto& choice : choices) {
            m_agent.m_store.RemovePoint(choice.Point.Id);
        }
        if (isWhole) m_agent.m_store.RemoveChain(m_job.Id, chain.Number);
        transaction.Commit();
    }
    for (const auto& choice : choices) {
        Say(Type::Info, "The point " + PlainText(choice.Point.Id) + " is gone: " + choice.Reason);
    }
    if (isWhole) Say(Type::Info, "Chain " + std::to_string(chain.Number) + " held no other and is removed");
}

void CRun::VerifyNextPart() {
    const unsigned parts = m_agent.Settings().VerifyParts;
    if (parts == 0 || m_session.Origin.Kind != SOrigin::EKind::Scheduler) return;
    const auto before = m_chain.Verified;
    const unsigned part = before.Parts == parts ? before.Part % parts + 1 : 1;
    Say(Type::Info, "Reads part " + std::to_string(part) + " of " + std::to_string(parts) + " of the chain");
    Tell();
    const auto result =
        m_agent.m_engine->Verify({Store(), SVerifyPart{part, parts}}, m_active->Stop.get_token());
    AmendChain([&](SChain& chain) { chain.Verified = {part, parts, m_agent.m_clock.Now()}; });
    if (!result.IsDamaged) return;
    std::string damage;
    for (const auto& finding : result.Findings) {
        Say(Type::Warning, "Chain " + std::to_string(m_chain.Number) + " is damaged: " + finding);
        if (damage.empty()) damage = finding;
    }
    Say(Type::Warning, "The next run begins a new chain");
    MarkChain(EChainState::Damaged, damage);
}

}  // namespace tarvo
