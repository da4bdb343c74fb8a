// SPDX-License-Identifier: Apache-2.0
/// \file
/// The one seam between the agent and what stores its data: values in, values out.
///
/// Every operation runs in the caller's thread until it is done, throws one of the errors below, and ends within
/// seconds when its stop token asks for it. Operations on different stores may run at the same time; one store has one
/// writer at a time, which is the caller's business.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

/// Something that the engine could not do. The message is fit for a log: what was attempted, on what, and the
/// engine's last words, escaped, without secrets.
class CEngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The program isn't there, or can't be started.
class CEngineMissing : public CEngineError {
    using CEngineError::CEngineError;
};
/// Its version is below the oldest that is supported, or what it says is no version.
class CEngineTooOld : public CEngineError {
    using CEngineError::CEngineError;
};
/// It said nothing for too long and was ended.
class CEngineHangs : public CEngineError {
    using CEngineError::CEngineError;
};
/// It was ended because the stop token asked for it.
class CEngineStopped : public CEngineError {
    using CEngineError::CEngineError;
};
/// The password opens nothing there.
class CWrongKey : public CEngineError {
    using CEngineError::CEngineError;
};
/// There is no store at the place (any more): the folder, or what makes it a store, is missing.
class CNoStore : public CEngineError {
    using CEngineError::CEngineError;
};
/// The location below which a store is to be made isn't there: a disk that is not mounted, for one.
class CNoLocation : public CNoStore {
    using CNoStore::CNoStore;
};
/// Another process works on the store.
class CStoreLocked : public CEngineError {
    using CEngineError::CEngineError;
};
/// What is stored can't be read as it was written.
class CStoreDamaged : public CEngineError {
    using CEngineError::CEngineError;
};
/// The file system of the store (or of the engine's own files) is full.
class CNoSpace : public CEngineError {
    using CEngineError::CEngineError;
};
/// The store holds no such point.
class CNoSuchPoint : public CEngineError {
    using CEngineError::CEngineError;
};
/// Any other failure, an exit status that nobody knows among them.
class CEngineFailed : public CEngineError {
    using CEngineError::CEngineError;
};

struct SEngineVersion {
    unsigned Major = 0;
    unsigned Minor = 0;
    unsigned Patch = 0;
    std::string Text;  ///< the line in which it said so, escaped

    friend bool operator==(const SEngineVersion&, const SEngineVersion&) = default;
};

/// The engine as it was found.
struct SEngineInfo {
    std::string Program;  ///< its path
    SEngineVersion Version;
    bool KeepsOddLinkTargets = false;  ///< targets of links that are no valid UTF-8 come back as they were
    bool KeepsSparseFiles = false;     ///< holes of files come back as holes
};

/// A store: all points of one chain.
struct SEngineStore {
    std::string Folder;                   ///< LOCATION/tarvo/JOB/CHAIN
    std::optional<std::string> Password;  ///< none: the constant key that is documented
};

/// The key of stores without a password. No secret: it stands in the README.txt beside the data.
inline constexpr std::string_view ConstantKey = "tarvo-without-password";

/// What keeps a text from being a password that opens the store in the stock engine as it stands; empty when nothing
/// does. (Empty ones, and those with white space at an end, which is dropped.)
std::string PasswordProblem(std::string_view password);

/// The folder of a store. Guids without braces.
std::string StoreFolder(std::string_view location, std::string_view job, std::uint64_t chain);

/// The location below which the store's folder stands: three levels up.
std::string LocationOf(std::string_view storeFolder);

struct SPrepareRequest {
    SEngineStore Store;
    std::string JobName;  ///< for the README.txt
};

struct SBackupProgress {
    std::uint64_t FilesDone = 0;
    std::uint64_t FilesTotal = 0;  ///< grows while the engine still counts
    std::uint64_t BytesDone = 0;
    std::uint64_t BytesTotal = 0;
    std::chrono::milliseconds CpuTime{};  ///< that the engine has used, of all processors together
};

/// An entry that could not be read, or something else that is worth a line of the session's log.
struct SEngineWarning {
    std::string Path;     ///< escaped; may be empty
    std::string Message;  ///< escaped, names the path
};

struct SBackupRequest {
    SEngineStore Store;
    std::string Job;  ///< guids without braces; they become the snapshot's tags
    std::string Point;
    std::string ListFile;     ///< absolute paths, each ended by a NUL; a folder stands for all that is in it
    std::string ExcludeFile;  ///< patterns that the walk made; empty: none
    bool OneFileSystem = true;  ///< leave out what is mounted below a listed folder and is not listed itself
    std::string Parent;         ///< the snapshot to compare with; empty: read everything
    bool Compress = true;
    std::function<void(const SBackupProgress&)> OnProgress;  ///< in the caller's thread
    std::function<void(const SEngineWarning&)> OnWarning;    ///< as they come; of very many the first
};

struct SBackupResult {
    std::string Snapshot;  ///< what the other operations know the point by
    std::uint64_t FilesTotal = 0;
    std::uint64_t BytesTotal = 0;            ///< the point's whole source
    std::uint64_t FilesRead = 0;             ///< those that are new or have changed
    std::optional<std::uint64_t> BytesRead;  ///< of these; empty when the engine does not tell: the walk does
    std::int64_t StoreGrowth = 0;            ///< bytes that the store has grown by
    std::uint64_t Warnings = 0;              ///< how many there were, reported or not
    std::chrono::milliseconds CpuTime{};     ///< that the engine has used, of all processors together
};

struct SSnapshot {
    std::string Id;
    std::string Job;  ///< guids without braces, from the tags; empty when there are none
    std::string Point;
    std::chrono::system_clock::time_point Time;
    std::string Host;
};

enum class EEntryType {
    File,
    Folder,
    Link,
    Other
};

/// One entry of a point.
struct SEntry {
    std::string Path;  ///< its bytes, as exactly as the engine tells them
    EEntryType Type = EEntryType::Other;
    std::uint64_t Size = 0;
    std::uint32_t Mode = 0;  ///< permissions
    std::uint32_t User = 0;
    std::uint32_t Group = 0;
    std::chrono::system_clock::time_point Changed;
};

struct SListRequest {
    SEngineStore Store;
    std::string Snapshot;
    std::string Path = "/";  ///< only what is at or below it; "/": all
    std::string Point = {};  ///< what people call the snapshot, for messages
};

struct SRestoreRequest {
    SEngineStore Store;
    std::string Snapshot;
    std::string Target;              ///< existing or not; entries land below it with their whole paths
    std::vector<std::string> Paths;  ///< absolute, of entries; empty: everything
    std::string Point;               ///< what people call the snapshot, for messages
    std::function<void(const SEngineWarning&)> OnWarning;
};

struct SRestoreResult {
    std::uint64_t Warnings = 0;  ///< how many entries could not be restored as they were
};

/// The part of the data that is read.
struct SVerifyPart {
    unsigned Number = 1;  ///< 1 to Of
    unsigned Of = 1;
};

struct SVerifyRequest {
    SEngineStore Store;
    std::optional<SVerifyPart> Part;  ///< none: everything
};

struct SVerifyResult {
    bool IsDamaged = false;
    std::vector<std::string> Findings;  ///< escaped lines, of very many the first
};

class IEngine {
public:
    virtual ~IEngine() = default;

    /// Asks the program once and remembers, until the file changes. \throws CEngineMissing, CEngineTooOld, CEngineHangs
    virtual SEngineInfo Info() = 0;

    /// Makes the store and the folders below its location, which must be there, and the README.txt beside it.
    virtual void Prepare(const SPrepareRequest& request, std::stop_token stop) = 0;

    /// Whether something stands there that looks like a store; asks the file system only.
    virtual bool Exists(const SEngineStore& store) = 0;

    /// Removes a lock whose owner is gone, and waits for a while for one who lives; so does `Forget`.
    virtual SBackupResult BackUp(const SBackupRequest& request, std::stop_token stop) = 0;

    /// All of the agent's snapshots there, oldest first; those of others (without tags) are left out.
    virtual std::vector<SSnapshot> Snapshots(const SEngineStore& store, std::stop_token stop) = 0;

    /// Forgets these and frees what only they needed. Those that are gone already are no failure.
    virtual void Forget(const SEngineStore& store, const std::vector<std::string>& snapshots,
                        std::stop_token stop) = 0;

    /// Hands over each entry, folders before what is in them.
    virtual void List(const SListRequest& request, const std::function<void(const SEntry&)>& entry,
                      std::stop_token stop) = 0;

    virtual SRestoreResult Restore(const SRestoreRequest& request, std::stop_token stop) = 0;

    /// \throws what keeps it from looking (CWrongKey, CNoStore, ...); damage is a result.
    virtual SVerifyResult Verify(const SVerifyRequest& request, std::stop_token stop) = 0;

    /// After it the store opens with the new password only. Safe to repeat when it was cut short: one of both opens it.
    virtual void ChangePassword(const SEngineStore& store, const std::string& newPassword,
                                std::stop_token stop) = 0;

    /// Removes locks whose owners are gone; a living one's stays.
    virtual void Unlock(const SEngineStore& store, std::stop_token stop) = 0;

    /// Bytes that the store takes up; empty where that can't be told.
    virtual std::optional<std::uint64_t> StoreSize(const SEngineStore& store) = 0;

    /// Removes the store and all that is in it, and the folders above it, up to its location, that are empty then.
    virtual void Remove(const SEngineStore& store) = 0;
};

}  // namespace tarvo
