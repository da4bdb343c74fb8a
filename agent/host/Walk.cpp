// SPDX-License-Identifier: Apache-2.0
#include "agent/host/Walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/host/Mounts.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

using apigen::common::CDescriptor;
using apigen::common::Escaped;
using apigen::common::Quoted;

// The engine compares every path with every pattern.
constexpr std::size_t MostPatterns = 256;
constexpr std::size_t MostExamples = 5;
constexpr std::size_t FlushAt = 64 * 1024;
constexpr std::int64_t LeastHole = 4096;

bool IsUtf8(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned lead = at(i);
        const std::size_t length = lead < 0x80                   ? 1
                                   : lead >= 0xc2 && lead < 0xe0 ? 2
                                   : (lead & 0xf0U) == 0xe0      ? 3
                                   : lead >= 0xf0 && lead < 0xf5 ? 4
                                                                 : 0;
        if (length == 0 || i + length > text.size()) return false;
        for (std::size_t next = 1; next < length; ++next)
            if ((at(i + next) & 0xc0U) != 0x80) return false;
        const unsigned second = length > 1 ? at(i + 1) : 0;
        const bool isOverlong = (lead == 0xe0 && second < 0xa0) || (lead == 0xf0 && second < 0x90);
        const bool isBeyond = (lead == 0xed && second >= 0xa0) || (lead == 0xf4 && second >= 0x90);
        if (isOverlong || isBeyond) return false;
        i += length;
    }
    return true;
}

bool IsBelowOrSame(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string Joined(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (path != "/") path += '/';
    path += name;
    return path;
}

/// Empty when the path leads nowhere.
std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real != nullptr ? std::string(real.get()) : std::string();
}

std::string WithoutSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

/// The path of the entry itself, without links on the way to it.
std::string EntryPath(const std::string& path) {
    std::string plain = WithoutSlashes(path);
    const auto slash = plain.rfind('/');
    if (plain == "/" || slash == std::string::npos) return plain;
    const std::string name = plain.substr(slash + 1);
    if (name == "." || name == "..") return RealPath(plain);
    const std::string folder = RealPath(slash == 0 ? "/" : plain.substr(0, slash));
    return folder.empty() ? std::string() : Joined(folder, name);
}

/// Where a folder is, or would be. A link is itself: who excludes it means that name, not what it leads to.
std::string FolderPath(const std::string& path) {
    std::string entry = EntryPath(path);
    return entry.empty() ? WithoutSlashes(path) : entry;
}

[[noreturn]] void FailToWrite(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), "Writing " + Quoted(path) + " failed");
}

CDescriptor NewFile(const std::string& path) {
    ::unlink(path.c_str());
    CDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file) FailToWrite(path);
    return file;
}

void WriteAll(const CDescriptor& file, std::string_view bytes, const std::string& path) {
    while (!bytes.empty()) {
        const auto written =
            apigen::common::RetryInterrupted([&] { return ::write(file.Get(), bytes.data(), bytes.size()); });
        if (written < 0) FailToWrite(path);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// Entries, each ended by a NUL; the last ones can be taken back.
class CList {
public:
    /// Nowhere to, when `path` is empty.
    explicit CList(const std::string& path) : m_path(path) {
        if (!path.empty()) m_file = NewFile(path);
    }

    std::uint64_t Position() const noexcept { return m_flushed + m_buffer.size(); }

    void Add(std::string_view path) {
        m_buffer.append(path).push_back('\0');
        if (m_buffer.size() >= FlushAt) Flush();
    }

    void TakeBackTo(std::uint64_t position) {
        if (position >= m_flushed) {
            m_buffer.resize(static_cast<std::size_t>(position - m_flushed));
            return;
        }
        m_buffer.clear();
        m_flushed = position;
        if (!m_file) return;
        const auto offset = static_cast<off_t>(position);
        if (::ftruncate(m_file.Get(), offset) != 0 || ::lseek(m_file.Get(), offset, SEEK_SET) < 0)
            FailToWrite(m_path);
    }

    void Flush() {
        if (m_file) WriteAll(m_file, m_buffer, m_path);
        m_flushed += m_buffer.size();
        m_buffer.clear();
    }

private:
    std::string m_path;
    CDescriptor m_file;
    std::string m_buffer;
    std::uint64_t m_flushed = 0;
};

/// While it lives, the thread's names are UTF-8, whatever the process is started with: "?" stands for a letter, not for
/// half of one. In a name that is none, it stands for a byte.
class CUtf8Names {
public:
    CUtf8Names() noexcept : m_before(Utf8() != nullptr ? ::uselocale(Utf8()) : nullptr) {}
    CUtf8Names(const CUtf8Names&) = delete;
    CUtf8Names& operator=(const CUtf8Names&) = delete;
    ~CUtf8Names() {
        if (m_before != nullptr) ::uselocale(m_before);
    }

private:
    /// Loaded once, and for as long as there is any thread.
    static locale_t Utf8() noexcept {
        static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }

    locale_t m_before;
};

class CWalker {
public:
    CWalker(const SWalkRequest& request, std::uint64_t limit, const std::stop_token& stop)
        : m_request(request), m_limit(limit), m_stop(stop), m_mounts(Mounts()), m_list(request.ListFile) {
        for (const auto& folder : request.ExcludeDirs)
            m_excluded.insert(FolderPath(folder));
        for (const auto& folder : request.Never)
            m_never.insert(FolderPath(folder));
        if (request.Since)
            m_since = std::chrono::duration_cast<std::chrono::nanoseconds>(request.Since->time_since_epoch());
    }

    SWalkResult Run() {
        for (const auto& root : m_request.Roots)
            AddRoot(root);
        if (!m_request.StayOnFileSystems) AddMountsBelow();
        // By index: file systems that no table knows are added on the way.
        for (std::size_t i = 0; i < m_roots.size() && m_result.IsComplete; ++i) {
            const SRoot root = m_roots[i];
            m_device = root.Device;
            m_path = root.Path;
            if (root.IsFolder) {
                ++m_result.Folders;
                WalkFolder();
            } else {
                TakeRootFile(root.Path);
            }
        }
        m_list.Flush();
        m_result.IsEmpty = m_list.Position() == 0;
        WritePatterns();
        return std::move(m_result);
    }

private:
    enum class EKept {
        Whole,
        Partly,   ///< its entries are in the list, as far as there are any
        Nothing,  ///< but nothing was left out either
    };

    struct SRoot {
        std::string Path;
        dev_t Device;
        bool IsFolder;
    };

    void AddRoot(const std::string& given) {
        const std::string path = EntryPath(given);
        struct stat status {};
        if (path.empty() || ::lstat(path.c_str(), &status) != 0) return See(m_result.MissingRoots, given);
        if (S_ISLNK(status.st_mode)) {
            const std::string target = RealPath(path);
            struct stat led {};
            if (!target.empty() && ::lstat(target.c_str(), &led) == 0 && S_ISDIR(led.st_mode))
                AddRoot(target, led);
        }
        AddRoot(path, status);
    }

    void AddRoot(const std::string& path, const struct stat& status) {
        if (IsLeftOut(path)) return;
        const bool isFolder = S_ISDIR(status.st_mode);
        const auto covers = [](const SRoot& outer, const std::string& inner, dev_t device) {
            return outer.Path == inner ||
                   (outer.IsFolder && outer.Device == device && IsBelowOrSame(inner, outer.Path));
        };
        for (const auto& root : m_roots)
            if (covers(root, path, status.st_dev)) return;
        const SRoot added{path, status.st_dev, isFolder};
        std::erase_if(m_roots, [&](const SRoot& root) { return covers(added, root.Path, root.Device); });
        m_roots.push_back(added);
        m_result.Resolved.push_back(path);
    }

    bool IsLeftOut(std::string_view path) const {
        const auto isBelow = [&](const std::string& folder) { return IsBelowOrSame(path, folder); };
        return std::any_of(m_excluded.begin(), m_excluded.end(), isBelow) ||
               std::any_of(m_never.begin(), m_never.end(), isBelow);
    }

    void AddMountsBelow() {
        const auto roots = m_roots;
        for (const auto& mount : m_mounts) {
            if (!mount.IsReal || IsLeftOut(mount.Point)) continue;
            const bool isWanted = std::any_of(roots.begin(), roots.end(), [&](const SRoot& root) {
                return root.IsFolder && root.Path != mount.Point && IsBelowOrSame(mount.Point, root.Path);
            });
            struct stat status {};
            if (isWanted && ::lstat(mount.Point.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
                AddExtra(mount.Point, status.st_dev);
        }
    }

    void AddExtra(const std::string& path, dev_t device) {
        for (const auto& root : m_roots)
            if (root.Path == path ||
                (root.Device == device && root.IsFolder && IsBelowOrSame(path, root.Path)))
                return;
        m_roots.push_back({path, device, true});
    }

    static void See(SSighting& sighting, std::string_view path) {
        if (++sighting.Count <= MostExamples) sighting.Examples.push_back(Escaped(path));
    }

    bool IsWanted(const char* name) const {
        const auto fits = [&](const std::string& mask) { return ::fnmatch(mask.c_str(), name, 0) == 0; };
        const auto& included = m_request.IncludeMasks;
        const auto& excluded = m_request.ExcludeMasks;
        if (!included.empty() && std::none_of(included.begin(), included.end(), fits)) return false;
        return std::none_of(excluded.begin(), excluded.end(), fits);
    }

    void Count() {
        if (++m_seen % 256 == 0 && m_stop.stop_requested()) throw CWalkStopped();
        if (m_seen >= m_limit) m_result.IsComplete = false;
    }

    void TakeRootFile(const std::string& path) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) return;
        const char* const name = path.c_str() + path.rfind('/') + 1;
        if (!IsWanted(name)) return;
        m_list.Add(path);
        Look(AT_FDCWD, path.c_str(), path, status);
    }

    /// What is worth knowing of an entry that is taken.
    void Look(int folder, const char* name, const std::string& path, const struct stat& status) {
        ++m_result.Files;
        if (S_ISLNK(status.st_mode)) {
            std::array<char, PATH_MAX> target;
            const auto length = ::readlinkat(folder, name, target.data(), target.size());
            if (length > 0 && !IsUtf8({target.data(), static_cast<std::size_t>(length)}))
                See(m_result.OddLinkTargets, path);
        }
        if (!S_ISREG(status.st_mode)) return;
        const auto size = static_cast<std::uint64_t>(status.st_size);
        m_result.Bytes += size;
        const auto changed =
            std::chrono::seconds(status.st_ctim.tv_sec) + std::chrono::nanoseconds(status.st_ctim.tv_nsec);
        if (!m_since || changed >= *m_since) m_result.BytesSince += size;
        if (status.st_size - status.st_blocks * 512 >= LeastHole && HasHole(folder, name, status.st_size))
            See(m_result.SparseFiles, path);
    }

    /// Fewer blocks than bytes: a hole, or a file system that compresses.
    static bool HasHole(int folder, const char* name, off_t size) {
        const CDescriptor file(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!file) return false;
        const off_t hole = ::lseek(file.Get(), 0, SEEK_HOLE);
        return hole >= 0 && hole < size;
    }

    /// Of the folder `m_path`, which is as it was when this returns.
    EKept WalkFolder() {
        const auto start = m_list.Position();
        bool isWhole = true;
        std::string folders;  // names, each ended by a NUL
        {
            const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(m_path.c_str()), &::closedir);
            if (folder == nullptr) {
                if (errno == ENOENT || errno == ENOTDIR) return EKept::Nothing;
                See(errno == ENAMETOOLONG ? m_result.TooLong : m_result.Unreadable, m_path);
                m_list.Add(m_path);
                return EKept::Whole;  // the engine tells why it can't read it
            }
            isWhole = TakeFiles(folder.get(), folders);
        }
        for (const char* name = folders.c_str();
             name != folders.c_str() + folders.size() && m_result.IsComplete;
             name += std::char_traits<char>::length(name) + 1) {
            const auto length = m_path.size();
            if (m_path != "/") m_path += '/';
            m_path += name;
            ++m_result.Folders;
            if (!WalkBelow()) isWhole = false;
            m_path.resize(length);
        }
        return Close(start, isWhole);
    }

    /// \return whether all of them are wanted
    bool TakeFiles(DIR* folder, std::string& folders) {
        bool isWhole = true;
        const int descriptor = ::dirfd(folder);
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this stream
        while (const dirent* entry = m_result.IsComplete ? ::readdir(folder) : nullptr) {
            const char* const name = entry->d_name;
            const std::string_view text(name);
            if (text == "." || text == "..") continue;
            Count();
            struct stat status {};
            if (::fstatat(descriptor, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
                // Gone, or with a file system that does not answer for it: the engine will say so.
                if (errno != ENOENT) m_list.Add(Joined(m_path, text));
                continue;
            }
            if (S_ISDIR(status.st_mode)) {
                folders.append(text).push_back('\0');
                continue;
            }
            if (!IsWanted(name)) {
                isWhole = false;
                continue;
            }
            const std::string path = Joined(m_path, text);
            if (status.st_dev != m_device) m_hasForeignFiles = true;
            m_list.Add(path);
            Look(descriptor, name, path, status);
        }
        return isWhole;
    }

    /// Of a folder in a folder. \return whether the outer one stays whole
    bool WalkBelow() {
        if (m_excluded.count(m_path) != 0) {
            --m_result.Folders;
            return TakePattern(m_path, "");
        }
        struct stat status {};
        if (::lstat(m_path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return true;
        if (m_never.count(m_path) != 0) return Empty();
        if (status.st_dev != m_device) return TakeBoundary(status.st_dev);
        return WalkFolder() != EKept::Partly;
    }

    /// Another file system: an empty folder here. One that is no mount (a subvolume) belongs to what it is in.
    bool TakeBoundary(dev_t device) {
        const bool isMounted = std::any_of(m_mounts.begin(), m_mounts.end(),
                                           [&](const SMount& mount) { return mount.Point == m_path; });
        const bool isRoot = std::any_of(m_roots.begin(), m_roots.end(),
                                        [&](const SRoot& root) { return root.Path == m_path; });
        if (!isMounted && !isRoot) m_roots.push_back({m_path, device, true});
        if (!isMounted || isRoot) return true;
        const bool isOnTheWay = std::any_of(m_roots.begin(), m_roots.end(), [&](const SRoot& root) {
            return IsBelowOrSame(root.Path, m_path);
        });
        // In a folder that is taken whole, the engine keeps it empty by itself.
        if (!isOnTheWay && TakePattern(m_path, "/*")) m_list.Add(m_path);
        return true;
    }

    /// Keeps the folder without its content.
    bool Empty() {
        if (!TakePattern(m_path, "/*")) {
            See(m_result.Unsayable, m_path);
            return false;
        }
        m_list.Add(m_path);
        return true;
    }

    EKept Close(std::uint64_t start, bool isWhole) {
        const bool isBare = m_list.Position() == start;
        const bool isByMask = !m_request.IncludeMasks.empty();
        if (isWhole) {
            if (isBare && isByMask) return EKept::Nothing;
            m_list.TakeBackTo(start);
            m_list.Add(m_path);
            return EKept::Whole;
        }
        // All that was in it is left out; the folder itself was not.
        if (isBare && !isByMask) Empty();
        return EKept::Partly;
    }

    /// False when the engine can't be told so.
    bool TakePattern(std::string_view path, std::string_view more) {
        if (path.find('\n') != std::string_view::npos || m_patterns.size() >= MostPatterns) return false;
        // White space at the end of a line, and there are many kinds of it, would be dropped.
        if (more.empty() && (path.back() <= ' ' || path.back() > '~')) return false;
        std::string pattern;
        for (const char c : path) {
            if (std::string_view("*?[]\\").find(c) != std::string_view::npos) pattern += '\\';
            if (c == '$') pattern += '$';  // else the name of a variable
            pattern += c;
        }
        m_patterns.push_back(pattern.append(more));
        return true;
    }

    void WritePatterns() {
        // Where files have another device than their folder, as in a stack of file systems, the engine must not go by
        // devices.
        m_result.OneFileSystem = !m_hasForeignFiles;
        if (m_request.ExcludeFile.empty()) return;
        const CDescriptor file = NewFile(m_request.ExcludeFile);
        std::string text;
        for (const auto& pattern : m_patterns)
            text += pattern + '\n';
        WriteAll(file, text, m_request.ExcludeFile);
    }

    const CUtf8Names m_names;
    const SWalkRequest& m_request;
    const std::uint64_t m_limit;
    const std::stop_token& m_stop;
    const std::vector<SMount> m_mounts;
    std::optional<std::chrono::nanoseconds> m_since;
    std::set<std::string, std::less<>> m_excluded;
    std::set<std::string, std::less<>> m_never;
    std::vector<SRoot> m_roots;
    CList m_list;
    std::vector<std::string> m_patterns;
    bool m_hasForeignFiles = false;
    std::uint64_t m_seen = 0;
    std::string m_path;  ///< where the walk is
    dev_t m_device = 0;
    SWalkResult m_result;
};

}  // namespace

SWalkResult Walk(const SWalkRequest& request, const std::stop_token& stop) {
    return CWalker(request, UINT64_MAX, stop).Run();
}

SWalkResult Survey(SWalkRequest request, std::uint64_t limit, const std::stop_token& stop) {
    request.ListFile.clear();
    request.ExcludeFile.clear();
    return CWalker(request, limit, stop).Run();
}

}  // namespace tarvo
