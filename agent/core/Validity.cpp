// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Validity.h"

#include <algorithm>

#include "agent/core/Schedule.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Quoted;

namespace {

class CFindings {
public:
    void Error(std::string text) { m_all.push_back({std::move(text), ELogDetailType::Error}); }
    void Warning(std::string text) { m_all.push_back({std::move(text), ELogDetailType::Warning}); }
    void Note(std::string text) { m_all.push_back({std::move(text), ELogDetailType::Info}); }
    std::vector<SCheckJobValidityMessage> Take() { return std::move(m_all); }

private:
    std::vector<SCheckJobValidityMessage> m_all;
};

bool IsAbsolute(const std::string& path) {
    return path.rfind('/', 0) == 0;
}

void CheckMasks(const std::vector<std::string>& masks, CFindings& findings) {
    for (const auto& mask : masks) {
        if (mask.empty() || mask.find('/') != std::string::npos) {
            findings.Warning("The mask " + Quoted(mask) +
                             " fits nothing: masks are compared with names, without the folders above them");
        }
    }
}

void CheckFileLevel(const SBackupSourceInfo& source, const SHostFacts& facts, CFindings& findings) {
    if (source.IncludeDirs.empty() && source.Objects.empty()) {
        findings.Error("The job backs up no folder; name one at least");
    }
    const bool isNothingLeft = !facts.MissingDirs.empty() && source.Objects.empty() &&
                               facts.MissingDirs.size() >= source.IncludeDirs.size();
    for (const auto& folder : source.IncludeDirs) {
        if (!IsAbsolute(folder)) {
            findings.Error("The folder " + Quoted(folder) + " to back up needs an absolute path");
        } else if (std::find(facts.MissingDirs.begin(), facts.MissingDirs.end(), folder) !=
                   facts.MissingDirs.end()) {
            const std::string text = "The folder " + Quoted(folder) + " to back up does not exist";
            isNothingLeft ? findings.Error(text) : findings.Warning(text);
        }
    }
    if (source.shouldBackupUserProfiles) {
        findings.Warning("The users' own folders are backed up only where the folders to back up hold them");
    }
}

void CheckSource(const SBackupSourceInfo& source, const SHostFacts& facts, CFindings& findings) {
    switch (source.BackupMode) {
        case JobBackupMode::FileLevel:
            CheckFileLevel(source, facts, findings);
            break;
        case JobBackupMode::EntireMachine:
            findings.Note("The entire machine is backed up as the files of its mounted file systems");
            if (!source.IncludeDirs.empty() || !source.Objects.empty()) {
                findings.Warning(
                    "The entire machine is backed up: what else the source names changes nothing");
            }
            break;
        case JobBackupMode::VolumeLevel:
            if (source.Objects.empty()) findings.Error("The job backs up no volume; name one at least");
            findings.Note("Volumes are backed up as the files of the file systems mounted from them");
            if (!source.IncludeDirs.empty()) {
                findings.Warning("Volumes are backed up: the folders that the source names change nothing");
            }
            break;
        case JobBackupMode::Unknown:
        default:
            findings.Error("The source does not say what is backed up: files, volumes or the entire machine");
    }
    for (const auto& [object, why] : facts.UnreadableObjects) {
        findings.Error(Quoted(object) + " can't be backed up: " + why);
    }
    for (const auto& folder : source.ExcludeDirs) {
        if (!IsAbsolute(folder)) {
            findings.Warning("The folder " + Quoted(folder) + " to leave out needs an absolute path");
        }
    }
    CheckMasks(source.IncludeMasks, findings);
    CheckMasks(source.ExcludeMasks, findings);
    for (const auto& warning : facts.SourceWarnings) {
        findings.Warning(warning);
    }
    for (const auto& note : facts.SourceNotes) {
        findings.Note(note);
    }
}

void CheckRepository(const SHostFacts& facts, CFindings& findings) {
    if (!facts.Repository) {
        findings.Error("The job's repository does not exist; choose another one");
        return;
    }
    switch (facts.Repository->Type) {
        case BackupTargetType::LocalFolder:
        case BackupTargetType::SharedFolder:
            if (!facts.RepositoryFault.empty()) {
                findings.Error("Nothing can be written to the repository " + Quoted(facts.Repository->Name) +
                               ": " + facts.RepositoryFault);
            }
            break;
        default: {
            const auto type = NameOf(facts.Repository->Type);
            findings.Error("The repository " + Quoted(facts.Repository->Name) + " is of the type " +
                           (type.empty() ? "unknown" : std::string(type)) +
                           ", which this version can't write to; choose a local or a shared folder");
        }
    }
}

void CheckStorage(const SBackupStorageInfo& storage, const SHostFacts& facts, CFindings& findings) {
    if (storage.BlockSize != EKbBlockSize::Automatic) {
        findings.Warning("The block size is the engine's own; the one that the job names is not used");
    }
    if (storage.snapshotMode == ESnapshotMode::Snapshot ||
        storage.snapshotMode == ESnapshotMode::CrashConsistent) {
        findings.Warning("No snapshot is taken: files are read as they stand while the job runs");
    }
    if (storage.EncryptionSettings && !facts.HasPassword) {
        findings.Error("Encryption is asked for, but no password was given; give one");
    } else if (!facts.PasswordFault.empty()) {
        findings.Error("The password can't be used: " + facts.PasswordFault);
    }
}

std::string UnusableScript(const char* which, const std::string& path, const std::string& why) {
    return std::string("The ") + which + " script " + Quoted(path) + " can't be run: " + why +
           (path.find(' ') != std::string::npos ? "; it is the path of a program, without arguments" : "");
}

void CheckScripts(const SBackupJobScriptInfo& scripts, const SHostFacts& facts, CFindings& findings) {
    if (!facts.PreJobScriptFault.empty()) {
        findings.Error(UnusableScript("pre-job", scripts.PreJobScript, facts.PreJobScriptFault));
    }
    if (!facts.PostJobScriptFault.empty()) {
        findings.Warning(UnusableScript("post-job", scripts.PostJobScript, facts.PostJobScriptFault));
    }
    if (!scripts.PreFreezeScript.empty() || !scripts.PostThawScript.empty()) {
        findings.Warning("No snapshot is taken, so the scripts around it (freeze and thaw) are not run");
    }
    if (scripts.ExecutionTimeout.seconds < 0) {
        findings.Warning("A script's time-out can't be negative; none is set");
    }
}

void CheckSchedule(const SBackupScheduleInfo& schedule, CFindings& findings) {
    constexpr long Day = 24L * 60 * 60;
    if (!schedule.IsEnabled) return;
    if (const std::string fault = Fault(schedule.Calendar); !fault.empty()) {
        findings.Warning("The schedule never starts the job: " + fault);
    }
    if (schedule.TimeOfDay.seconds < 0 || schedule.TimeOfDay.seconds >= Day) {
        findings.Warning("The schedule's time of the day lies outside of the day; its nearest end is taken");
    }
    if (const auto& full = schedule.ActiveFullSchedule; full.IsEnabled && !Fault(full.Calendar).empty()) {
        findings.Warning("The schedule of active full backups never asks for one: " + Fault(full.Calendar));
    }
}

void CheckDatabases(const SAapInfo& databases, CFindings& findings) {
    const auto check = [&](const auto& database, const char* name) {
        if (!database || database->ProcessingType == EAapType::Disabled) return;
        findings.Error(std::string(name) +
                       " databases can't be backed up as such; disable their processing, and have a script "
                       "write what they hold into files");
    };
    check(databases.OracleInfo, "Oracle");
    check(databases.MySQLInfo, "MySQL");
    check(databases.PostgreSQLInfo, "PostgreSQL");
}

}  // namespace

std::vector<SCheckJobValidityMessage> FindingsOf(const SBackupJobConfigurationInfo& config,
                                                 const SHostFacts& facts) {
    CFindings findings;
    if (!facts.EngineFault.empty()) findings.Error("The engine can't be used: " + facts.EngineFault);
    CheckSource(config.Source, facts, findings);
    CheckRepository(facts, findings);
    CheckStorage(config.StorageInfo, facts, findings);
    if (config.IndexingInfo.IndexingType != BackupIndexingType::None) {
        findings.Note("Every point lists all of its files, whatever the job says of indexing");
    }
    if (config.ScriptInfo) CheckScripts(*config.ScriptInfo, facts, findings);
    if (config.RetentionInfo.RestorePointsCount < 0) {
        findings.Warning("A negative number of points to keep counts as none given");
    }
    CheckSchedule(config.ScheduleInfo, findings);
    CheckDatabases(config.AapInfo, findings);
    return findings.Take();
}

std::string ErrorsOf(const std::vector<SCheckJobValidityMessage>& findings) {
    std::string text;
    for (const auto& finding : findings) {
        if (finding.MessageType != ELogDetailType::Error) continue;
        text += (text.empty() ? "" : ". ") + finding.Message;
    }
    return text;
}

}  // namespace tarvo
