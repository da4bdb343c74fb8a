// SPDX-License-Identifier: Apache-2.0
/// \file
/// From a job's source to the list that the engine is fed.
#pragma once

#include <cstdint>
#include <exception>
#include <stop_token>
#include <string>
#include <vector>

namespace tarvo {

struct SWalkRequest {
    std::vector<std::string> Roots;  ///< absolute; folders, files, or links (taken as they are, not followed)
    std::vector<std::string> ExcludeDirs;  ///< absolute; left out with all that is in them
    std::vector<std::string>
        IncludeMasks;  ///< for the base names of everything but folders; none: everything
    std::vector<std::string> ExcludeMasks;
    bool StayOnFileSystems =
        false;  ///< of the roots; else all real file systems below them are taken as well
    std::vector<std::string>
        Never;                ///< folders of the agent's own that no backup takes (cache, lists, store)
    std::string ListFile;     ///< made anew, 0600
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
    std::uint64_t Bytes = 0;  ///< of regular files
    SSighting MissingRoots;
    SSighting Unreadable;      ///< folders that can't be listed
    SSighting OddLinkTargets;  ///< no valid UTF-8
    SSighting SparseFiles;
    SSighting
        Unsayable;  ///< a folder left empty, or a mount point, whose name holds a newline: left out wholly
    SSighting TooLong;                  ///< paths that the system does not take
    bool IsEmpty = true;                ///< nothing is left to back up
    std::vector<std::string> Resolved;  ///< the roots that were taken, without links on the way to them
};

/// Memory does not grow with the tree (but with the folders of a single folder). What vanishes meanwhile is nothing.
/// \throws std::system_error when the files can't be written, CWalkStopped
SWalkResult Walk(const SWalkRequest& request, const std::stop_token& stop);

/// The same without files, and only until `limit` entries have been seen: what a validity check wants to know.
SWalkResult Survey(SWalkRequest request, std::uint64_t limit, const std::stop_token& stop);

class CWalkStopped : public std::exception {
public:
    const char* what() const noexcept override { return "stopped while looking for what to back up"; }
};

}  // namespace tarvo
