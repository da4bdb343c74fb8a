// SPDX-License-Identifier: Apache-2.0
#include "agent/jobs/Source.h"

#include <sys/stat.h>

#include "agent/core/Values.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// No path with a NUL character does; what stands before that is another one.
bool Exists(const std::string& path) {
    struct stat status {};
    return path.find('\0') == std::string::npos && ::lstat(path.c_str(), &status) == 0;
}

bool IsDevice(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && (S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode));
}

void AddFileLevel(const SBackupSourceInfo& source, SRoots& roots) {
    for (const auto& folder : source.IncludeDirs) {
        if (folder.rfind('/', 0) != 0) continue;  // a finding of its own
        if (IsDevice(folder)) {
            roots.Unreadable.emplace_back(folder,
                                          "it is a device, of which a backup of files holds no content");
            continue;
        }
        (Exists(folder) ? roots.Roots : roots.Missing).push_back(folder);
    }
    for (const auto& object : source.Objects) {
        if (object.Object.rfind('/', 0) != 0 || object.Object.rfind("/dev/", 0) == 0) {
            roots.Unreadable.emplace_back(object.Object,
                                          "among files, an object has to be the path of a folder or a file");
        } else if (!Exists(object.Object)) {
            roots.Unreadable.emplace_back(object.Object, "it does not exist");
        } else {
            roots.Roots.push_back(object.Object);
        }
    }
}

void AddEntireMachine(const SBackupSourceInfo& source, const SHostPlaces& host, SRoots& roots) {
    for (auto& point : RealMountPoints(host)) {
        // The system itself is never left out, wherever it runs from.
        const auto drive =
            source.shouldBackupUsbDrives || point == "/" ? EDrive::Fixed : DriveOf(point, host);
        if (drive == EDrive::Removable) {
            roots.Notes.push_back("The file system at " + apigen::common::Quoted(point) +
                                  " is left out: it is on a removable or USB drive");
            continue;
        }
        if (drive == EDrive::Unknown) {
            roots.Notes.push_back("Whether the file system at " + apigen::common::Quoted(point) +
                                  " is on a removable or USB drive can't be told; it is backed up");
        }
        roots.Roots.push_back(std::move(point));
    }
}

std::string Told(const SSighting& sighting, const char* one, const char* many) {
    std::string told = Counted(sighting.Count, one, many) + ": ";
    for (const auto& example : sighting.Examples) {
        if (&example != &sighting.Examples.front()) told += ", ";
        told += example;
    }
    if (sighting.Examples.size() < sighting.Count) told += ", …";
    return told;
}

}  // namespace

SRoots RootsOf(const SBackupSourceInfo& source, const SHostPlaces& host) {
    SRoots roots;
    switch (source.BackupMode) {
        case JobBackupMode::FileLevel:
            AddFileLevel(source, roots);
            break;
        case JobBackupMode::EntireMachine:
            AddEntireMachine(source, host, roots);
            roots.StaysOnFileSystems = true;
            break;
        case JobBackupMode::VolumeLevel:
            roots.StaysOnFileSystems = true;
            for (const auto& object : source.Objects) {
                std::string why;
                const auto points = MountPointsOf(object, why, host);
                if (points.empty()) roots.Unreadable.emplace_back(object.Object, why);
                roots.Roots.insert(roots.Roots.end(), points.begin(), points.end());
            }
            break;
        case JobBackupMode::Unknown:
            break;
    }
    return roots;
}

std::vector<std::pair<ELogDetailType, std::string>> SightingsOf(const SWalkResult& walk,
                                                                const SEngineInfo& engine) {
    std::vector<std::pair<ELogDetailType, std::string>> told;
    const auto add = [&](ELogDetailType type, const SSighting& sighting, const char* one, const char* many) {
        if (sighting.Count != 0) told.emplace_back(type, Told(sighting, one, many));
    };
    add(ELogDetailType::Warning, walk.Unreadable, "folder can't be read", "folders can't be read");
    add(ELogDetailType::Warning, walk.Unsayable,
        "folder is left out, since the engine can't be told its name",
        "folders are left out, since the engine can't be told their names");
    add(ELogDetailType::Warning, walk.TooLong, "path is left out, since it is too long",
        "paths are left out, since they are too long");
    if (!engine.KeepsOddLinkTargets) {
        add(ELogDetailType::Warning, walk.OddLinkTargets,
            "link whose target is no valid UTF-8 is altered by this version of the engine",
            "links whose targets are no valid UTF-8 are altered by this version of the engine");
    }
    if (!engine.KeepsSparseFiles) {
        add(ELogDetailType::Info, walk.SparseFiles,
            "file with holes comes back without them with this version of the engine",
            "files with holes come back without them with this version of the engine");
    }
    return told;
}

}  // namespace tarvo
