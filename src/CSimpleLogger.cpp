// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/CSimpleLogger.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>
#include <stdexcept>

namespace zamclientlib {
namespace {

constexpr const char* Banner =
    "=============================== Log has been started =================================";

int Open(const std::string& path, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

}  // namespace

/// The open file, written a whole line at a time.
class CSimpleLogger::Impl {
public:
    explicit Impl(const std::string& path) : m_descriptor(Open(path, O_WRONLY | O_CREAT | O_TRUNC)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }

    void WriteLine(const std::string& message) {
        const std::lock_guard lock(m_mutex);
        const std::string line = "[" + GetLocalTime() + "]    " + message + "\n";
        const char* at = line.data();
        std::size_t left = m_descriptor >= 0 ? line.size() : 0;
        while (left != 0) {
            const ssize_t written = ::write(m_descriptor, at, left);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) break;
            at += written;
            left -= static_cast<std::size_t>(written);
        }
    }

    std::recursive_mutex& Mutex() { return m_mutex; }

private:
    int m_descriptor;
    std::recursive_mutex m_mutex;
};

CSimpleLogger::CSimpleLogger(const std::string& directory, const std::string& fileName)
    : m_impl(std::make_unique<Impl>(MakeFileName(directory, fileName))) {
    Info(Banner);
}

CSimpleLogger::~CSimpleLogger() = default;

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
    const std::size_t dot = fileName.rfind('.');
    const std::string baseName = fileName.substr(0, dot);
    const std::string extension = dot == std::string::npos ? std::string() : fileName.substr(dot);
    return GetFirstNonexistentFileName(directory.back() == '/' ? directory : directory + "/", baseName,
                                       extension, 0);
}

std::string CSimpleLogger::GetFirstNonexistentFileName(const std::string& directory,
                                                       const std::string& baseName,
                                                       const std::string& extension, int number) {
    while (true) {
        std::string candidate = directory + baseName;
        if (number > 0) candidate += "_" + std::to_string(number);
        candidate += extension;
        const int descriptor = Open(candidate, O_RDWR);
        if (descriptor < 0) return candidate;
        ::close(descriptor);
        ++number;
    }
}

std::string CSimpleLogger::GetLocalTime() {
    using namespace std::chrono;
    const auto nanoseconds =
        duration_cast<std::chrono::nanoseconds>(system_clock::now().time_since_epoch()).count();
    const std::time_t seconds = nanoseconds / 1'000'000'000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[100];
    const std::size_t length = std::strftime(text, sizeof text, "%d.%m.%y %H:%M:%S.", &local);
    return std::string(text, length) + std::to_string(nanoseconds % 1'000'000'000 / 1'000'000);
}

}  // namespace zamclientlib
