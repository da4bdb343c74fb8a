// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/CSimpleLogger.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "support/common/CDescriptor.h"
#include "support/common/ProcessMark.h"
#include "support/common/Waiting.h"

namespace zamclientlib {
namespace {

using apigen::common::CDescriptor;

constexpr const char* Banner =
    "=============================== Log has been started =================================";

/// While it lives, the thread can't be cancelled: that would cut a line, or strike a destructor, which can't be
/// unwound.
class CNotCancelled {
public:
    CNotCancelled() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    CNotCancelled(const CNotCancelled&) = delete;
    CNotCancelled& operator=(const CNotCancelled&) = delete;
    ~CNotCancelled() { ::pthread_setcancelstate(m_before, nullptr); }

private:
    int m_before = 0;
};

/// A recursive mutex that a forked process finds free, though a thread that it lacks held it at the fork.
class CForkProofMutex {
public:
    CForkProofMutex() : m_current(new SMutex(nullptr)) {}
    CForkProofMutex(const CForkProofMutex&) = delete;
    CForkProofMutex& operator=(const CForkProofMutex&) = delete;
    ~CForkProofMutex() { delete m_current.load(); }

    std::recursive_mutex& Get() { return Current().Mutex; }

    /// Whether somebody held it when this process was forked, and never let go of what it guarded.
    bool WasHeldAtFork() { return Current().WasPreviousHeld; }

private:
    struct SMutex {
        explicit SMutex(SMutex* previous) : Previous(previous) {
            if (previous == nullptr) return;
            WasPreviousHeld = previous->WasPreviousHeld || !previous->Mutex.try_lock();
            if (!WasPreviousHeld) previous->Mutex.unlock();
        }

        const apigen::common::CProcessMark Process;
        std::recursive_mutex Mutex;
        bool WasPreviousHeld = false;
        std::unique_ptr<SMutex> Previous;  ///< kept: who forked may hold it
    };

    SMutex& Current() {
        SMutex* current = m_current.load(std::memory_order_acquire);
        if (current->Process.IsHere()) return *current;
        auto fresh = std::make_unique<SMutex>(current);
        if (m_current.compare_exchange_strong(current, fresh.get())) return *fresh.release();
        (void)fresh->Previous.release();
        return *current;
    }

    std::atomic<SMutex*> m_current;
};

using LocalSeconds = std::chrono::time_point<std::chrono::local_t, std::chrono::seconds>;

/// The local time, following every change of the time zone.
///
/// The C library does that under a lock of its own, which a forked process finds held for ever when another
/// thread was in there at the fork. Where that was a thread of ours, the zone stays the one last seen.
LocalSeconds LocalTimeAt(std::time_t utc) {
    using namespace std::chrono;
    static auto& mutex = *new CForkProofMutex;  // for whoever logs at the very end of the program
    static seconds offset{0};
    const std::lock_guard lock(mutex.Get());
    if (!mutex.WasHeldAtFork()) {
        std::tm local{};
        ::tzset();
        if (::localtime_r(&utc, &local) != nullptr) {
            constexpr int FirstYear = 1900;
            const local_days date{year(local.tm_year + FirstYear) /
                                  month(static_cast<unsigned>(local.tm_mon) + 1) /
                                  day(static_cast<unsigned>(local.tm_mday))};
            const auto time = hours(local.tm_hour) + minutes(local.tm_min) + seconds(local.tm_sec);
            offset = (date + time).time_since_epoch() - seconds(utc);
        }
    }
    return LocalSeconds(seconds(utc) + offset);
}

CDescriptor Open(const std::string& path, int flags) {
    return apigen::common::AwayFromStandardStreams(apigen::common::RetryInterrupted(
        [&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, 0666); }));
}

/// Whether the file opens for reading and writing. Nothing waits meanwhile, and nothing notices.
bool IsTaken(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 &&
        (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode))) {
        return ::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
    }
    return Open(path, O_RDWR | O_NONBLOCK) || errno == EWOULDBLOCK;  // of a file that another program leases
}

/// The names that a log file may have, one after the other.
struct SNames {
    std::string Directory;  ///< ends in "/"
    std::string BaseName;
    std::string Extension;

    SNames(const std::string& directory, const std::string& fileName)
        : Directory(directory.back() == '/' ? directory : directory + "/") {
        const std::size_t dot = fileName.rfind('.');
        BaseName = fileName.substr(0, dot);
        if (dot != std::string::npos) Extension = fileName.substr(dot);
    }
    SNames(std::string directory, std::string baseName, std::string extension)
        : Directory(std::move(directory)), BaseName(std::move(baseName)), Extension(std::move(extension)) {}

    std::string Path(long long number) const {
        std::string path = Directory + BaseName;
        if (number > 0) path += "_" + std::to_string(number);
        return path += Extension;
    }

    long long FirstFree(long long number) const {
        const CNotCancelled notCancelled;
        while (IsTaken(Path(number))) {
            ++number;
        }
        return number;
    }
};

struct SFile {
    CDescriptor Descriptor = {};
    std::string Path = {};
    int Error = 0;
};

/// Makes the file, or none where what has a free name can't be opened but stands there all the same.
SFile MakeFile(const SNames& names) {
    const CNotCancelled notCancelled;
    long long number = 0;
    while (true) {
        number = names.FirstFree(number);
        std::string path = names.Path(number);
        CDescriptor file = Open(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW);
        if (file) return {std::move(file), std::move(path)};
        if (errno != EEXIST) return {{}, {}, errno};
        struct stat status {};
        if (!IsTaken(path) && ::lstat(path.c_str(), &status) == 0) return {{}, {}, EEXIST};
        // Another logger was quicker.
    }
}

}  // namespace

/// The open file, written a whole line at a time.
class CSimpleLogger::Impl {
public:
    explicit Impl(SFile file)
        : m_file(std::move(file.Descriptor)), m_path(std::move(file.Path)), m_error(file.Error) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void WriteLine(const std::string& message) {
        const CNotCancelled notCancelled;
        const std::lock_guard lock(m_mutex.Get());
        std::string line = "[" + GetLocalTime() + "]    " + message + "\n";
        // A line that found no room for all of itself must not become part of the next one.
        if (m_isCut) line.insert(line.begin(), '\n');
        const char* at = line.data();
        std::size_t left = m_file ? line.size() : 0;
        while (left != 0) {
            const ssize_t written =
                apigen::common::RetryInterrupted([&] { return ::write(m_file.Get(), at, left); });
            if (written <= 0) {
                m_error = written < 0 ? errno : ENOSPC;
                break;
            }
            at += written;
            left -= static_cast<std::size_t>(written);
            m_isCut = left != 0;
        }
    }

    std::recursive_mutex& Mutex() { return m_mutex.Get(); }
    const std::string& Path() const noexcept { return m_path; }
    int Error() const noexcept { return m_error; }

private:
    CDescriptor m_file;
    const std::string m_path;
    std::atomic<int> m_error;  // the last one
    CForkProofMutex m_mutex;
    bool m_isCut = false;
};

CSimpleLogger::CSimpleLogger(const std::string& directory, const std::string& fileName)
    : m_impl(std::make_unique<Impl>(MakeFile(SNames(directory, fileName)))) {
    Info(Banner);
}

CSimpleLogger::~CSimpleLogger() {
    const CNotCancelled notCancelled;
    m_impl.reset();
}

std::string CSimpleLogger::GetPath() const {
    return m_impl->Path();
}

std::error_code CSimpleLogger::GetError() const noexcept {
    return {m_impl->Error(), std::generic_category()};
}

void CSimpleLogger::Info(const std::string& message) {
    m_impl->WriteLine(message);
}

void CSimpleLogger::Error(const std::string& message, std::exception& error) {
    // Held over both lines, so that no other thread's line comes between them.
    const std::lock_guard lock(m_impl->Mutex());
    Info("ERROR: " + message);
    const char* const text = error.what();
    if (text == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    Info(text);
}

std::string CSimpleLogger::MakeFileName(const std::string& directory, const std::string& fileName) {
    const SNames names(directory, fileName);
    return names.Path(names.FirstFree(0));
}

std::string CSimpleLogger::GetFirstNonexistentFileName(const std::string& directory,
                                                       const std::string& baseName,
                                                       const std::string& extension, int number) {
    const SNames names(directory, baseName, extension);
    return names.Path(names.FirstFree(number));
}

std::string CSimpleLogger::GetLocalTime() {
    using namespace std::chrono;
    const auto now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    const auto local = LocalTimeAt(now / 1'000'000'000);
    const auto today = floor<days>(local);
    const year_month_day date(today);
    const hh_mm_ss time(local - today);
    constexpr int Century = 100;
    std::array<char, 100> text{};
    std::snprintf(text.data(), text.size(), "%02u.%02u.%02d %02d:%02d:%02d.%d",
                  static_cast<unsigned>(date.day()), static_cast<unsigned>(date.month()),
                  static_cast<int>(date.year()) % Century, static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                  static_cast<int>(now % 1'000'000'000 / 1'000'000));
    return text.data();
}

}  // namespace zamclientlib
