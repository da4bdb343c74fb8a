// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "agent/core/ILog.h"
#include "agent/daemon/Settings.h"
#include "support/common/CDescriptor.h"

namespace tarvo {

/// The daemon's log: a file that is put aside once it is large enough, as NAME.1, NAME.2 and so on. Under systemd each
/// line goes to the journal as well, by standard error.
///
/// Any thread may write. Each line is written at once and whole, with everything that could garble it escaped.
class CLogFile final : public ILog {
public:
    CLogFile(std::string path, const SLogSettings& settings);

    void Info(const std::string& text) noexcept override { Write('I', text); }
    void Warning(const std::string& text) noexcept override { Write('W', text); }
    void Error(const std::string& text) noexcept override { Write('E', text); }

    void Use(const SLogSettings& settings);

private:
    void Write(char level, std::string_view text) noexcept;
    void WriteToFile(std::string_view line);
    void Open();
    void PutAside();

    const std::string m_path;
    const bool m_isJournalled;  ///< standard error is the journal
    const bool m_isWatched;     ///< or a terminal
    std::mutex m_mutex;         ///< of all that follows
    SLogSettings m_settings;
    apigen::common::CDescriptor m_file;
    std::uint64_t m_size = 0;
};

}  // namespace tarvo
