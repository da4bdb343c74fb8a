// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Mounts.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <utility>

#include "support/common/Text.h"

namespace tarvo {
namespace {

using apigen::common::Escaped;
using zamclientlib::EVolumeBackupObjectType;
using zamclientlib::SResolveObjectInfo;
using zamclientlib::SVolumeBackupObject;

// They show the system's state, or are gone with it.
constexpr std::string_view Unreal[]{
    "autofs",     "binfmt_misc", "bpf",           "cgroup",    "cgroup2",   "configfs",
    "cpuset",     "debugfs",     "devpts",        "devtmpfs",  "efivarfs",  "fuse.gvfsd-fuse",
    "fuse.lxcfs", "fuse.portal", "fuse.snapfuse", "fusectl",   "hugetlbfs", "mqueue",
    "nfsd",       "nsfs",        "pipefs",        "proc",      "pstore",    "ramfs",
    "resctrl",    "rpc_pipefs",  "securityfs",    "selinuxfs", "smackfs",   "sockfs",
    "squashfs",   "sysfs",       "tmpfs",         "tracefs"};

// Other hosts' file systems, which are no part of this machine.
constexpr std::string_view Remote[]{
    "9p",   "afs",    "ceph",  "cifs", "coda", "fuse.glusterfs", "fuse.rclone", "fuse.s3fs", "fuse.sshfs",
    "gfs2", "lustre", "ncpfs", "nfs",  "nfs4", "smb3",           "smbfs",       "virtiofs"};

template <std::size_t N>
bool Holds(const std::string_view (&names)[N], std::string_view name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

/// "\040" is a space; any byte may stand so.
std::string Unescaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text[i] == '\\' && i + 3 < text.size()) {
            const auto [end, error] = std::from_chars(text.data() + i + 1, text.data() + i + 4, value, 8);
            if (error == std::errc() && end == text.data() + i + 4 && value < 256) {
                result += static_cast<char>(value);
                i += 3;
                continue;
            }
        }
        result += text[i];
    }
    return result;
}

struct SRow {
    SMount Mount;
    long Id = 0;
    long Parent = 0;
};

/// "36 35 98:0 /root /point rw shared:1 - ext4 /dev/sda1 rw"
std::optional<SRow> ParseRow(const std::string& line) {
    std::istringstream words(line);
    SRow row;
    std::string device, root, point, word;
    if (!(words >> row.Id >> row.Parent >> device >> root >> point >> word)) return std::nullopt;
    while (words >> word && word != "-") {
    }
    std::string type, source;
    if (word != "-" || !(words >> type)) return std::nullopt;
    words >> source;
    unsigned major = 0, minor = 0;
    const auto colon = device.find(':');
    if (colon == std::string::npos) return std::nullopt;
    std::from_chars(device.data(), device.data() + colon, major);
    std::from_chars(device.data() + colon + 1, device.data() + device.size(), minor);
    row.Mount.Point = Unescaped(point);
    row.Mount.Root = Unescaped(root);
    row.Mount.Type = Unescaped(type);
    row.Mount.Source = Unescaped(source);
    row.Mount.Device = ::makedev(major, minor);
    // A container's own root is a stack of layers; other stacks are what some program keeps.
    row.Mount.IsReal =
        !Holds(Unreal, row.Mount.Type) && (row.Mount.Type != "overlay" || row.Mount.Point == "/");
    return row;
}

bool IsBelowOrSame(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::vector<SMount> MountsFrom(const SHostPlaces& places) {
    std::ifstream file(places.MountInfo);
    std::ostringstream text;
    text << file.rdbuf();
    return ParseMounts(text.str());
}

std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real != nullptr ? std::string(real.get()) : std::string();
}

std::string FirstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), &::closedir);
    if (entries == nullptr) return names;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this stream
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string In(std::string_view folder, std::string_view name) {
    std::string path(folder);
    path += '/';
    return path += name;
}

/// As udev writes names of links: everything unusual as \xNN.
std::string UdevName(std::string_view text) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string name;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isUsual = byte >= 0x80 || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                             (c >= 'A' && c <= 'Z') ||
                             std::string_view("#+-.:=@_").find(c) != std::string_view::npos;
        if (isUsual) {
            name += c;
        } else {
            name.append("\\x").append(1, Digits[byte >> 4]).append(1, Digits[byte & 15]);
        }
    }
    return name;
}

/// A block device here.
struct SDevice {
    std::string Path;    ///< without links
    std::string Number;  ///< "8:1"
    dev_t Device = 0;
    EVolumeBackupObjectType Type = EVolumeBackupObjectType::Disk;
};

class CHost {
public:
    explicit CHost(const SHostPlaces& places) : m_places(places), m_mounts(MountsFrom(places)) {}

    const std::vector<SMount>& Mounts() const noexcept { return m_mounts; }

    std::optional<SDevice> DeviceAt(const std::string& path) const {
        SDevice device;
        device.Path = RealPath(path);
        struct stat status {};
        if (device.Path.empty() || ::stat(device.Path.c_str(), &status) != 0) return std::nullopt;
        if (S_ISBLK(status.st_mode)) {
            device.Device = status.st_rdev;
            device.Number =
                std::to_string(::major(device.Device)) + ":" + std::to_string(::minor(device.Device));
        } else if (!StandIn(device, status)) {
            return std::nullopt;
        }
        const std::string facts = m_places.Sys + "/dev/block/" + device.Number;
        const std::string kind = FirstLine(facts + "/dm/uuid");
        if (kind.starts_with("LVM-")) {
            device.Type = EVolumeBackupObjectType::Lvm;
        } else if (!kind.empty() || ::access((facts + "/partition").c_str(), F_OK) == 0) {
            device.Type = EVolumeBackupObjectType::Volume;
        }
        return device;
    }

    /// By what stands in /dev/disk/by-KIND.
    std::optional<SDevice> DeviceBy(std::string_view kind, std::string_view name) const {
        if (name.empty()) return std::nullopt;
        const std::string folder = m_places.Dev + "/disk/by-" + std::string(kind) + "/";
        return DeviceAt(folder + UdevName(name));
    }

    /// The name under which a link leads to the device.
    std::string NameBy(std::string_view kind, const SDevice& device) const {
        const std::string folder = m_places.Dev + "/disk/by-" + std::string(kind);
        for (const auto& name : NamesIn(folder))
            if (RealPath(In(folder, name)) == device.Path) return name;
        return {};
    }

    /// Any of the ways in which one names a device.
    std::optional<SDevice> FindDevice(const std::string& input) const {
        static constexpr std::pair<std::string_view, std::string_view> Tags[]{
            {"LABEL=", "label"}, {"UUID=", "uuid"}, {"PARTLABEL=", "partlabel"}, {"PARTUUID=", "partuuid"}};
        for (const auto& [tag, kind] : Tags) {
            if (!std::string_view(input).starts_with(tag)) continue;
            std::string_view name = std::string_view(input).substr(tag.size());
            if (name.size() > 1 && name.front() == '"' && name.back() == '"')
                name = name.substr(1, name.size() - 2);
            return DeviceBy(kind, name);
        }
        if (input.starts_with('/')) return DeviceAt(input);
        if (input.empty() || input.find('/') != std::string::npos) {
            // "vg/root", "mapper/vg-root"
            return input.empty() || input.find("..") != std::string::npos
                       ? std::nullopt
                       : DeviceAt(m_places.Dev + "/" + input);
        }
        if (input == "." || input == "..") return std::nullopt;
        if (auto device = DeviceAt(m_places.Dev + "/" + input)) return device;
        if (auto device = DeviceBy("label", input)) return device;
        return DeviceBy("uuid", input);
    }

    /// Where the device itself, or parts of it and what is made of them, are mounted.
    std::vector<const SMount*> MountsOn(const SDevice& device) const {
        std::set<std::string> numbers;
        AddParts(device.Number, numbers);
        std::vector<const SMount*> found;
        for (const auto& mount : m_mounts) {
            const auto number =
                std::to_string(::major(mount.Device)) + ":" + std::to_string(::minor(mount.Device));
            bool isOn = numbers.count(number) != 0;
            if (!isOn && mount.Source.starts_with('/')) {
                // Some file systems have a number of their own.
                const auto source = DeviceAt(mount.Source);
                isOn = source && numbers.count(source->Number) != 0;
            }
            if (isOn) found.push_back(&mount);
        }
        // A file system that is mounted several times counts once: as itself rather than a folder of it.
        std::stable_sort(found.begin(), found.end(), [](const SMount* left, const SMount* right) {
            return std::pair(left->Root.size(), left->Point.size()) <
                   std::pair(right->Root.size(), right->Point.size());
        });
        std::set<dev_t> seen;
        std::erase_if(found, [&](const SMount* mount) { return !seen.insert(mount->Device).second; });
        return found;
    }

    EDrive DriveOf(const SMount& mount) const {
        // Some file systems have a number of their own.
        std::string number =
            std::to_string(::major(mount.Device)) + ":" + std::to_string(::minor(mount.Device));
        if (::access(Facts(number).c_str(), F_OK) != 0 && mount.Source.starts_with('/')) {
            const auto source = DeviceAt(mount.Source);
            if (source) number = source->Number;
        }
        return DriveOf(number);
    }

    const SMount* MountAt(const std::string& path) const {
        for (const auto& mount : m_mounts)
            if (mount.Point == path) return &mount;
        return nullptr;
    }

private:
    std::string Facts(const std::string& number) const { return m_places.Sys + "/dev/block/" + number; }

    EDrive DriveOf(const std::string& number) const {
        const std::string facts = RealPath(Facts(number));
        if (facts.empty()) return EDrive::Unknown;
        // What is made of other devices is as they are.
        auto drive = EDrive::Fixed;
        const auto slaves = NamesIn(In(facts, "slaves"));
        for (const auto& name : slaves) {
            const auto part = FirstLine(In(In(In(facts, "slaves"), name), "dev"));
            const auto one = part.empty() || part == number ? EDrive::Unknown : DriveOf(part);
            if (one == EDrive::Removable) return one;
            if (one == EDrive::Unknown) drive = one;
        }
        if (!slaves.empty()) return drive;
        // ".../usb2/2-1/...": the bus that it is on.
        for (auto at = facts.find("/usb"); at != std::string::npos; at = facts.find("/usb", at + 1)) {
            if (at + 4 < facts.size() && facts[at + 4] >= '0' && facts[at + 4] <= '9')
                return EDrive::Removable;
        }
        const bool isPart = ::access(In(facts, "partition").c_str(), F_OK) == 0;
        const auto removable = FirstLine(In(isPart ? facts + "/.." : facts, "removable"));
        return removable == "1" ? EDrive::Removable : removable == "0" ? EDrive::Fixed : EDrive::Unknown;
    }

    /// Tests describe devices by files that hold a number.
    bool StandIn(SDevice& device, const struct stat& status) const {
        if (m_places.Dev == "/dev" || !S_ISREG(status.st_mode) ||
            !IsBelowOrSame(device.Path, RealPath(m_places.Dev)))
            return false;
        device.Number = FirstLine(device.Path);
        return device.Number.find(':') != std::string::npos;
    }

    void AddParts(const std::string& number, std::set<std::string>& numbers) const {
        if (!numbers.insert(number).second) return;
        const std::string facts = m_places.Sys + "/dev/block/" + number;
        for (const auto& name : NamesIn(facts)) {
            const auto inside = In(facts, name);
            const auto part = FirstLine(In(inside, "dev"));
            if (!part.empty() && ::access(In(inside, "partition").c_str(), F_OK) == 0)
                AddParts(part, numbers);
        }
        const auto holders = In(facts, "holders");
        for (const auto& name : NamesIn(holders)) {
            const auto holder = FirstLine(In(In(holders, name), "dev"));
            if (!holder.empty()) AddParts(holder, numbers);
        }
    }

    const SHostPlaces& m_places;
    std::vector<SMount> m_mounts;
};

std::string MountText(const SMount& mount) {
    return Escaped(mount.Type) + " file system, mounted at " + Escaped(mount.Point);
}

void Describe(const CHost& host, const SDevice& device, SResolveObjectInfo& info) {
    info.ObjectType = device.Type;
    info.DisplayName = device.Path;
    std::string details = device.Type == EVolumeBackupObjectType::Disk  ? "disk"
                          : device.Type == EVolumeBackupObjectType::Lvm ? "logical volume"
                                                                        : "volume";
    const auto mounts = host.MountsOn(device);
    for (const auto* mount : mounts)
        details += ", " + MountText(*mount);
    if (mounts.empty()) details += ", not mounted";
    if (const auto label = host.NameBy("label", device); !label.empty())
        details += ", label " + Escaped(label);
    if (const auto uuid = host.NameBy("uuid", device); !uuid.empty()) details += ", UUID " + Escaped(uuid);
    info.ResolveDetails = details;
}

/// btrfs gives the root of each subvolume this number.
bool IsSubvolume(const CHost& host, const std::string& path, const struct stat& status) {
    constexpr ino_t SubvolumeRoot = 256;
    if (status.st_ino != SubvolumeRoot) return false;
    const auto* mount = MountOf(host.Mounts(), path);
    return mount != nullptr && mount->Type == "btrfs";
}

void DescribePath(const CHost& host, const std::string& path, const struct stat& status,
                  SResolveObjectInfo& info) {
    info.DisplayName = path;
    const auto* at = host.MountAt(path);
    const auto* on = MountOf(host.Mounts(), path);
    const std::string where = on != nullptr ? " on the " + MountText(*on) : "";
    if (S_ISDIR(status.st_mode) && at != nullptr) {
        info.ObjectType = EVolumeBackupObjectType::MountPoint;
        info.ResolveDetails =
            "mount point of " + Escaped(at->Source) + ", " + Escaped(at->Type) + " file system";
    } else if (S_ISDIR(status.st_mode) && IsSubvolume(host, path, status)) {
        info.ObjectType = EVolumeBackupObjectType::BtrfsSubvolume;
        info.ResolveDetails = "subvolume" + where;
    } else if (S_ISDIR(status.st_mode)) {
        info.ObjectType = EVolumeBackupObjectType::Directory;
        info.ResolveDetails = "folder" + where;
    } else {
        info.ObjectType = EVolumeBackupObjectType::File;
        info.ResolveDetails = (S_ISREG(status.st_mode) ? "file" : "special file") + where;
    }
}

}  // namespace

std::vector<SMount> ParseMounts(std::string_view mountinfo) {
    std::vector<SRow> rows;
    std::istringstream lines{std::string(mountinfo)};
    for (std::string line; std::getline(lines, line);)
        if (auto row = ParseRow(line)) rows.push_back(std::move(*row));
    std::map<long, long> parents;
    for (const auto& row : rows)
        parents[row.Id] = row.Parent;
    const auto isUnder = [&](long id, long ancestor) {
        for (std::size_t steps = 0; steps <= rows.size(); ++steps) {
            if (id == ancestor) return true;
            const auto found = parents.find(id);
            if (found == parents.end() || found->second == id) return false;
            id = found->second;
        }
        return false;
    };
    std::vector<SMount> mounts;
    for (const auto& row : rows) {
        // What covers it without carrying it was mounted over it.
        const bool isCovered = std::any_of(rows.begin(), rows.end(), [&](const SRow& other) {
            return IsBelowOrSame(row.Mount.Point, other.Mount.Point) && !isUnder(row.Id, other.Id);
        });
        if (!isCovered) mounts.push_back(row.Mount);
    }
    return mounts;
}

std::vector<SMount> Mounts() {
    return MountsFrom({});
}

const SMount* MountOf(const std::vector<SMount>& mounts, const std::string& path) {
    const SMount* found = nullptr;
    for (const auto& mount : mounts)
        if (IsBelowOrSame(path, mount.Point) &&
            (found == nullptr || mount.Point.size() >= found->Point.size()))
            found = &mount;
    return found;
}

SResolveObjectInfo Resolve(const SVolumeBackupObject& object, const SHostPlaces& places) {
    SResolveObjectInfo info;
    info.SourceInput = object.Object;
    info.DisplayName = Escaped(object.Object);
    if (object.Object.find('\0') != std::string::npos) {
        info.ResolveDetails = "a name with a NUL character is nobody's";
        return info;
    }
    const CHost host(places);
    if (const auto device = host.FindDevice(object.Object)) {
        Describe(host, *device, info);
        return info;
    }
    struct stat status {};
    const std::string path = object.Object.starts_with('/') ? RealPath(object.Object) : "";
    if (!path.empty() && ::stat(path.c_str(), &status) == 0) {
        DescribePath(host, path, status, info);
        info.DisplayName = Escaped(info.DisplayName);
        return info;
    }
    info.ResolveDetails = object.Object.starts_with('/')
                              ? "there is no such path on this host"
                              : "there is no device, label or UUID of this name on this host";
    return info;
}

std::vector<std::string> MountPointsOf(const SVolumeBackupObject& object, std::string& why,
                                       const SHostPlaces& places) {
    why.clear();
    const std::string name = "\"" + Escaped(object.Object) + "\"";
    if (object.Object.find('\0') != std::string::npos) {
        why = name + " is nothing on this host";
        return {};
    }
    const CHost host(places);
    std::vector<std::string> points;
    if (const auto device = host.FindDevice(object.Object)) {
        for (const auto* mount : host.MountsOn(*device))
            points.push_back(mount->Point);
        if (points.empty())
            why = name + " is not mounted; only the files of mounted file systems can be backed up";
        return points;
    }
    struct stat status {};
    const std::string path = object.Object.starts_with('/') ? RealPath(object.Object) : "";
    if (path.empty() || ::stat(path.c_str(), &status) != 0) {
        why = name + " is nothing on this host";
        return {};
    }
    if (host.MountAt(path) != nullptr || (S_ISDIR(status.st_mode) && IsSubvolume(host, path, status)))
        return {path};
    why = name + " is no volume and no mount point";
    return {};
}

EDrive DriveOf(const std::string& mountPoint, const SHostPlaces& places) {
    const CHost host(places);
    const auto* const mount = host.MountAt(mountPoint);
    return mount != nullptr ? host.DriveOf(*mount) : EDrive::Unknown;
}

std::vector<std::string> RealMountPoints(const SHostPlaces& places) {
    std::vector<SMount> mounts = MountsFrom(places);
    std::erase_if(mounts, [](const SMount& mount) { return !mount.IsReal || Holds(Remote, mount.Type); });
    std::stable_sort(mounts.begin(), mounts.end(), [](const SMount& left, const SMount& right) {
        return std::pair(left.Root.size(), left.Point) < std::pair(right.Root.size(), right.Point);
    });
    std::set<dev_t> seen;
    std::vector<std::string> points;
    for (const auto& mount : mounts) {
        struct stat status {};
        // A file may be mounted over, too; its file system is seen elsewhere.
        if (places.MountInfo == SHostPlaces().MountInfo &&
            (::stat(mount.Point.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)))
            continue;
        if (seen.insert(mount.Device).second) points.push_back(mount.Point);
    }
    std::sort(points.begin(), points.end());
    return points;
}

}  // namespace tarvo
