// SPDX-License-Identifier: Apache-2.0
/// \file
/// What is mounted here, and what users may mean by a text.
#pragma once

#include <zamclientlib/JobRecords.h>

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

struct SMount {
    std::string Point;   ///< its bytes, without the table's escapes
    std::string Source;  ///< a device, as a rule
    std::string Type;
    std::string Root;  ///< the folder of the file system that is mounted ("/" but for bind mounts)
    dev_t Device = 0;
    bool IsReal = false;  ///< holds files that last: no proc, no tmpfs, no overlay of a container's tool
};

/// From the text of a mountinfo; odd lines are left out. What has been mounted over is left out too.
std::vector<SMount> ParseMounts(std::string_view mountinfo);

/// Of this process.
std::vector<SMount> Mounts();

/// The mount that the path is on.
const SMount* MountOf(const std::vector<SMount>& mounts, const std::string& path);

/// Where the system describes devices; tests have folders of their own.
struct SHostPlaces {
    std::string Dev = "/dev";
    std::string Sys = "/sys";
    std::string MountInfo = "/proc/self/mountinfo";
};

/// What an object that a user names is: device paths, mount points, folders and files, `LABEL=…`, `UUID=…`, labels and
/// UUIDs as they stand. Of an input that is nothing here, the type is Unknown, and the details say so.
zamclientlib::SResolveObjectInfo Resolve(const zamclientlib::SVolumeBackupObject& object,
                                         const SHostPlaces& places = {});

/// The mount points of the file systems that an object of a volume-level source names, and nothing else.
/// Empty with `why` filled when there is none: not mounted, a raw disk without mounted parts, unknown.
std::vector<std::string> MountPointsOf(const zamclientlib::SVolumeBackupObject& object, std::string& why,
                                       const SHostPlaces& places = {});

/// The mount points of all real file systems, each once, "/" first: the entire machine.
std::vector<std::string> RealMountPoints(const SHostPlaces& places = {});

/// What a file system lies on.
enum class EDrive {
    Fixed,
    Removable,  ///< its medium can be taken out, or it is connected by USB
    Unknown     ///< on no device that the system describes
};

/// Of the file system that is mounted there. One that spans several drives counts as the most removable of them.
EDrive DriveOf(const std::string& mountPoint, const SHostPlaces& places = {});

}  // namespace tarvo
