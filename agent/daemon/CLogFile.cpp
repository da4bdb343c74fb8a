// SPDX-License-Identifier: Apache-2.0
#include "agent/daemon/CLogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "support/common/Quietly.h"
#include "support/common/Text.h"

namespace tarvo {
namespace {

/// Whether standard error is the stream to the journal that systemd has made for us, and not one of a parent's.
bool IsJournalStream() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the daemon changes the environment
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) return false;
    return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == stream;
}

/// In UTC: lines of the hour that comes twice in autumn would else stand in no order.
std::string TimeText() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    constexpr long NanosecondsOfMillisecond = 1'000'000;
    std::array<char, 40> text{};
    std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    const int rest = std::snprintf(text.data() + size, text.size() - size, ".%03ldZ",
                                   now.tv_nsec / NanosecondsOfMillisecond);
    if (rest > 0) size += static_cast<std::size_t>(rest);
    return {text.data(), size};
}

void WriteOnce(int descriptor, std::string_view line) {
    while (::write(descriptor, line.data(), line.size()) < 0 && errno == EINTR) {
    }
}

/// As the journal knows levels.
const char* JournalPrefix(char level) {
    if (level == 'E') return "<3>";
    return level == 'W' ? "<4>" : "<6>";
}

}  // namespace

CLogFile::CLogFile(std::string path, const SLogSettings& settings)
    : m_path(std::move(path)),
      m_isJournalled(IsJournalStream()),
      m_isWatched(::isatty(STDERR_FILENO) == 1),
      m_settings(settings) {
    Open();
}

void CLogFile::Use(const SLogSettings& settings) {
    const std::scoped_lock lock(m_mutex);
    m_settings = settings;
    // Who moved the file away to a place of his own wants a new one now.
    m_file.Close();
    Open();
}

void CLogFile::Write(char level, std::string_view text) noexcept {
    apigen::common::Quietly([&] {
        const std::string said = apigen::common::Escaped(text);
        const std::string line = TimeText() + ' ' + level + ' ' + said + '\n';
        const std::scoped_lock lock(m_mutex);
        if (m_isJournalled) WriteOnce(STDERR_FILENO, JournalPrefix(level) + said + '\n');
        if (m_isWatched) WriteOnce(STDERR_FILENO, line);
        WriteToFile(line);
    });
}

void CLogFile::WriteToFile(std::string_view line) {
    if (!m_file) Open();
    if (!m_file) return;
    if (m_size != 0 && m_size + line.size() > m_settings.MaxBytes) PutAside();
    WriteOnce(m_file.Get(), line);
    m_size += line.size();
}

void CLogFile::Open() {
    m_file = apigen::common::CDescriptor(
        ::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
               S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!m_file || ::fstat(m_file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return m_file.Close();
    m_size = static_cast<std::uint64_t>(status.st_size);
}

void CLogFile::PutAside() {
    const auto old = [&](unsigned number) { return m_path + '.' + std::to_string(number); };
    if (m_settings.OldFiles == 0) {
        ::unlink(m_path.c_str());
    } else {
        for (unsigned number = m_settings.OldFiles; number > 1; --number)
            ::rename(old(number - 1).c_str(), old(number).c_str());
        ::rename(m_path.c_str(), old(1).c_str());
    }
    m_file.Close();
    Open();
}

}  // namespace tarvo
