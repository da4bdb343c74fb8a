// SPDX-License-Identifier: Apache-2.0
#include "show/CProgress.h"

#include <zamclientlib/Chrono.h>
#include <zamclientlib/RecordText.h>

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "show/Terminal.h"
#include "show/Words.h"

namespace zamctl {
namespace {

using zamclientlib::JobState;
using zamclientlib::SBackupJobSessionInfo;

constexpr std::size_t LeastBar = 10;  ///< cells
/// Before it the percentage says too little about the whole.
constexpr unsigned TellingPercent = 5;

std::string PercentWords(unsigned percent) {
    const std::string digits = std::to_string(percent);
    return std::string(3 - std::min<std::size_t>(digits.size(), 3), ' ') + digits + " %";
}

unsigned PercentOf(const SBackupJobSessionInfo& info) {
    return std::min<unsigned>(info.PercentCompleted, 100);
}

std::string Sizes(const SBackupJobSessionInfo& info) {
    const std::int64_t read =
        static_cast<std::int64_t>(std::min<std::uint64_t>(info.ReadSizeBytes, INT64_MAX));
    const unsigned percent = PercentOf(info);
    if (read == 0) return {};
    if (percent < TellingPercent || percent == 100) return SizeWords(read);
    constexpr double Most = 9e18;  // of what fits
    const double whole = std::min(static_cast<double>(read) * 100 / percent, Most);
    return SizeWords(read) + " of " + SizeWords(static_cast<std::int64_t>(whole));
}

std::string TimeLeft(const SBackupJobSessionInfo& info, std::chrono::system_clock::time_point now) {
    const unsigned percent = PercentOf(info);
    const bool isWorking = info.State == JobState::Working || info.State == JobState::Unknown;
    if (!isWorking) {
        std::string state = zamclientlib::ToText(info.State);
        std::transform(state.begin(), state.end(), state.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        return state;
    }
    const auto start = zamclientlib::ToTimePoint(info.StartTimeUtc);
    // One before 1970 is none, and may be too far away to count from.
    if (start.time_since_epoch().count() <= 0) return {};
    const auto gone = std::chrono::duration_cast<std::chrono::milliseconds>(now - start);
    // A clock that was set meanwhile tells nothing.
    if (percent < TellingPercent || percent == 100 || gone.count() < 1000 ||
        gone > std::chrono::hours(24 * 365)) {
        return {};
    }
    return SpanWords(gone * (100 - percent) / percent) + " left";
}

/// What stands behind the bar, the most important first.
std::vector<std::string> Parts(const SBackupJobSessionInfo& info, std::chrono::system_clock::time_point now) {
    std::vector<std::string> parts{Sizes(info)};
    parts.push_back(info.ProcessingRateByteInSec > 0 ? SizeWords(info.ProcessingRateByteInSec) + "/s"
                                                     : std::string());
    parts.push_back(TimeLeft(info, now));
    return parts;
}

void WriteError(const std::string& text) {
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

}  // namespace

std::string ProgressLine(const SBackupJobSessionInfo& info, unsigned width,
                         std::chrono::system_clock::time_point now) {
    const unsigned percent = PercentOf(info);
    std::string tail = PercentWords(percent);
    if (width < tail.size() + LeastBar + 4) return CutTo(tail, width);
    tail.insert(0, " ");
    std::vector<std::string> parts = Parts(info, now);
    std::size_t room = width - ColumnsOf(tail) - LeastBar - 2;
    // The time left is missed most; sizes and rate go first where there is little room.
    std::vector<bool> isShown(parts.size());
    for (const std::size_t i : {2U, 0U, 1U}) {
        const std::size_t needed = parts[i].empty() ? 0 : ColumnsOf(parts[i]) + 2;
        isShown[i] = needed != 0 && needed <= room;
        if (isShown[i]) room -= needed;
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (isShown[i]) tail.append("  ").append(parts[i]);
    }
    const std::size_t bar = width - ColumnsOf(tail) - 2;
    const std::size_t full = bar * percent / 100;
    return '[' + std::string(full, '#') + std::string(bar - full, ' ') + ']' + tail;
}

CProgress::CProgress(bool isShown, bool hasColours)
    : m_isShown(isShown && IsErrorTerminal()), m_hasColours(hasColours) {}

CProgress::~CProgress() {
    Clear();
}

void CProgress::Show(const SBackupJobSessionInfo& info) {
    if (!m_isShown) return;
    // In the last column some terminals begin a new line.
    std::string line = ProgressLine(info, ErrorWidth() - 1, std::chrono::system_clock::now());
    const std::size_t end = line.find_first_not_of('#', 1);
    if (m_hasColours && line.front() == '[' && end > 1) {
        line.insert(end, "\033[0m");
        line.insert(1, "\033[32m");
    }
    Draw(std::move(line));
}

void CProgress::ShowWord(std::string_view word) {
    if (!m_isShown) return;
    Draw(CutTo(Escaped(word), ErrorWidth() - 1));
}

void CProgress::Clear() {
    if (!m_isThere) return;
    WriteError("\r\033[K");
    m_isThere = false;
    m_last.clear();
}

void CProgress::Draw(std::string line) {
    if (m_isThere && line == m_last) return;
    WriteError("\r" + line + "\033[K");
    m_isThere = true;
    m_last = std::move(line);
}

}  // namespace zamctl
