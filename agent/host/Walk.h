// SPDX-License-Identifier: Apache-2.0
/// \file
/// From a job's source to the list that the engine is fed.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarvo {

struct SWalkRequest {
    /// Absolute; folders, files or links. What a link to a folder leads to is taken as well.
    std::vector<std::string> Roots;

    std::vector<std::string> ExcludeDirs;   ///< absolute; left out with all that is in them
    std::vector<std::string> IncludeMasks;  ///< for base names of everything but folders; none: all
    std::vector<std::string> ExcludeMasks;

    /// Only the roots' file systems; else all real file systems below them are taken as well.
    bool StayOnFileSystems = false;

    /// Folders of the agent's own (cache, lists, stores), whose content no backup takes.
    std::vector<std::string> Never;

    std::optional<std::chrono::system_clock::time_point> Since;  ///< of the point before

    std::string ListFile;     ///< for the engine; made anew, 0600
    std::string ExcludeFile;  ///< likewise
};

/// One thing that was seen, with a few of the places.
struct SSighting {
    std::uint64_t Count = 0;
    std::vector<std::string> Examples;  ///< escaped paths, the first few
};

struct SWalkResult {
    std::uint64_t Files = 0;  ///< everything but folders
    std::uint64_t Folders = 0;
    std::uint64_t Bytes = 0;       ///< of regular files
    std::uint64_t BytesSince = 0;  ///< of those that were made or changed since then; without it, of all

    SSighting MissingRoots;
    SSighting Unreadable;      ///< folders that can't be listed
    SSighting OddLinkTargets;  ///< no valid UTF-8
    SSighting SparseFiles;
    SSighting
        Unsayable;  ///< empty folders that are left out, since the engine can't be told to leave out their content
    SSighting TooLong;  ///< paths that the system does not take

    bool IsEmpty = true;                ///< nothing is left to back up
    bool OneFileSystem = true;          ///< what to tell the engine
    bool IsComplete = true;             ///< false: a survey's limit was reached
    std::vector<std::string> Resolved;  ///< the roots that were taken, without links on the way to them
};

/// Makes the list: what is taken whole is one entry, so that few masks make a short list. A file that appears after the
/// walk in such a folder is taken whatever the masks say. Memory does not grow with the tree, but with the folders in
/// a single folder. What vanishes meanwhile is nothing.
/// \throws std::system_error when the files can't be written, CWalkStopped
SWalkResult Walk(const SWalkRequest& request, const std::stop_token& stop);

/// The same without files, until `limit` entries have been seen: what a validity check wants to know.
SWalkResult Survey(SWalkRequest request, std::uint64_t limit, const std::stop_token& stop);

class CWalkStopped : public std::exception {
public:
    const char* what() const noexcept override { return "stopped while looking for what to back up"; }
};

}  // namespace tarvo
