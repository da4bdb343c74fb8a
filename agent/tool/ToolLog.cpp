// SPDX-License-Identifier: Apache-2.0
#include "agent/tool/ToolLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <exception>

#include "support/common/CDescriptor.h"
#include "support/common/Text.h"

namespace tarvo::tool {
namespace {

/// When the file has grown to this, the next line begins a new one; one old file is kept.
constexpr off_t MaxBytes = 1024L * 1024;

std::string TimeText() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    std::array<char, 32> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text.data(), size};
}

bool IsFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

}  // namespace

CToolLog::CToolLog(const std::string& folder, const std::string& name)
    : m_path(IsFileName(name) ? folder + '/' + name : "") {}

void CToolLog::Write(std::string_view text) noexcept {
    if (m_path.empty()) return;
    try {
        const apigen::common::CDescriptor file(
            ::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                   S_IRUSR | S_IWUSR));
        if (!file) return;
        struct stat status {};
        if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
        const std::string line =
            TimeText() + " [" + std::to_string(::getpid()) + "] " + apigen::common::Escaped(text) + '\n';
        const ssize_t written = ::write(file.Get(), line.data(), line.size());
        if (written > 0 && status.st_size + written > MaxBytes)
            ::rename(m_path.c_str(), (m_path + ".1").c_str());
    } catch (const std::exception&) {  // as promised
    }
}

}  // namespace tarvo::tool
