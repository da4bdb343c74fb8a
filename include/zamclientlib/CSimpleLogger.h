// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/ILogger.h>
#include <apigen/Owned.h>

#include <memory>
#include <string>
#include <system_error>

namespace zamclientlib APIGEN_API {

/// Writes a log file of its own: "[" local time "]", four blanks, the message.
///
/// An existing file is never overwritten: the new one is numbered `_1`, `_2`, ... before its extension, and
/// two loggers, of whatever programs, never share one. Each line is on disk when the call returns. In a
/// directory that is missing or not writable, or where something that can't be opened has the name, the logger
/// drops every line silently, and so it does with what finds no room; it goes on when there is some. `GetError` tells. A program
/// that limits the size of its files (`RLIMIT_FSIZE`) gets the signal of that limit, SIGXFSZ, for these as well.
///
/// Safe to use from several threads; lines of two threads never mix. A forked process writes into the same
/// file, in whole lines as well. One thing may stop it there: the C library's own lock around local time, when
/// a thread of the program's was converting a time just at the fork, other than for a logger.
class CSimpleLogger final : public apigen::ILogger {
public:
    /// \param directory with or without a trailing "/"; not empty; never created
    CSimpleLogger(const std::string& directory, const std::string& fileName);
    CSimpleLogger(const CSimpleLogger&) = delete;
    CSimpleLogger& operator=(const CSimpleLogger&) = delete;
    ~CSimpleLogger() override;

    /// The file that is written; empty when there is none.
    [[nodiscard]] std::string GetPath() const;

    /// Why the file could not be made, or the last line that failed not be written; no error as long as all is well.
    /// Any thread may ask.
    [[nodiscard]] std::error_code GetError() const noexcept;

    void Info(const std::string& message) override;

    /// Writes two lines that stay together: "ERROR: " with the message, and the exception's text.
    void Error(const std::string& message, std::exception& error) override;

    /// The path that a logger for `fileName` in `directory` would write, if nobody else takes it meanwhile.
    static std::string MakeFileName(const std::string& directory, const std::string& fileName);

    /// The first path of the sequence `base.ext`, `base_1.ext`, ... from `number` on that can't be opened
    /// for reading and writing. Nothing is made, and what stands there does not notice.
    /// \param directory ends in "/"
    /// \param extension with its dot, or empty
    static std::string GetFirstNonexistentFileName(const std::string& directory, const std::string& baseName,
                                                   const std::string& extension, int number);

    /// "05.11.21 14:03:09.42": the milliseconds stand unpadded. Follows changes of the time zone.
    static std::string GetLocalTime();

private:
    class Impl;
    apigen::detail::COwned<Impl> m_impl;
};

}  // namespace zamclientlib
