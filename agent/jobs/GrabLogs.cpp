// SPDX-License-Identifier: Apache-2.0
// The agent's logs and what else helps to understand it, in one archive without a secret.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "agent/jobs/CAgentImpl.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Escaped;
using apigen::common::Quoted;

namespace {

/// How many of each job's sessions are told.
constexpr std::size_t SessionsTold = 50;

/// How many of each session's lines, its last ones.
constexpr std::size_t LinesTold = 200;

class CArchive {
public:
    CArchive(int descriptor, Moment now)
        : m_now(now), m_archive(::archive_write_new(), ::archive_write_free) {
        Check(::archive_write_add_filter_gzip(m_archive.get()));
        Check(::archive_write_set_format_pax_restricted(m_archive.get()));
        Check(::archive_write_open_fd(m_archive.get(), descriptor));
    }

    void Add(const std::string& name, const std::string& text) {
        Begin(name, static_cast<std::int64_t>(text.size()));
        Write(text.data(), text.size());
    }

    /// A file as long as it is now, a block at a time. One that shrinks meanwhile is filled up.
    void AddFile(const std::string& name, const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        std::error_code error;
        std::uintmax_t left = std::filesystem::file_size(path, error);
        if (!file || error) return;
        Begin(name, static_cast<std::int64_t>(left));
        std::vector<char> block(64UL * 1024);
        while (left != 0) {
            const auto wanted = std::min<std::uintmax_t>(left, block.size());
            file.read(block.data(), static_cast<std::streamsize>(wanted));
            if (file.gcount() <= 0) break;
            Write(block.data(), static_cast<std::size_t>(file.gcount()));
            left -= static_cast<std::uintmax_t>(file.gcount());
        }
    }

    void Close() { Check(::archive_write_close(m_archive.get())); }

private:
    void Begin(const std::string& name, std::int64_t size) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(::archive_entry_new(),
                                                                             ::archive_entry_free);
        ::archive_entry_set_pathname(entry.get(), name.c_str());
        ::archive_entry_set_size(entry.get(), size);
        ::archive_entry_set_filetype(entry.get(), AE_IFREG);
        ::archive_entry_set_perm(entry.get(), 0600);
        ::archive_entry_set_mtime(entry.get(), ToRecord(m_now).seconds, 0);
        Check(::archive_write_header(m_archive.get(), entry.get()));
    }

    void Write(const char* data, std::size_t size) {
        if (size != 0 && ::archive_write_data(m_archive.get(), data, size) < 0) Fail();
    }

    void Check(int result) {
        if (result < ARCHIVE_WARN) Fail();
    }
    [[noreturn]] void Fail() {
        const char* const text = ::archive_error_string(m_archive.get());
        throw CGenericException("The logs can't be written: " + Escaped(text != nullptr ? text : "?"));
    }

    Moment m_now;
    std::unique_ptr<archive, int (*)(archive*)> m_archive;
};

std::string Told(const SSession& session, const std::vector<SLogDetail>& lines) {
    const auto& info = session.Info;
    std::string text = "session " + PlainText(info.Uid) + " of " + Quoted(info.JobName) + ": " +
                       std::string(NameOf(info.State)) + ", " + std::string(NameOf(info.Result)) + ", from " +
                       std::to_string(info.StartTimeUtc.seconds) + " to " +
                       std::to_string(info.EndTimeUtc.seconds) + "\n";
    for (const auto& line : lines) {
        text += "  " + std::string(NameOf(line.Type)) + ": " + Escaped(line.Message) + "\n";
    }
    return text;
}

}  // namespace

void CAgent::Impl::GrabLogs(const SPeer& peer, const std::string& path) {
    using apigen::common::CDescriptor;
    const auto refuse = [&](int error) {
        throw CGenericException("The logs can't be written to " + Quoted(path) + ": " +
                                apigen::common::ErrorText(error));
    };
    if (path.rfind('/', 0) != 0) {
        throw CGenericException(
            "The path for the logs has to be absolute: the agent has a working directory of "
            "its own");
    }
    if (path.find('\0') != std::string::npos) refuse(EINVAL);
    const CDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) refuse(errno);
    m_log.Info("Logs are gathered for " + Quoted(peer.UserName));
    try {
        CArchive archive(file.Get(), m_clock.Now());
        archive.Add("about.txt", "tarvod " ZAM_VERSION "\n");
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(m_folders.Log, ignored)) {
            if (!entry.is_regular_file(ignored) || entry.is_symlink(ignored)) continue;
            if (std::filesystem::equivalent(entry.path(), path, ignored)) continue;
            archive.AddFile("log/" + entry.path().filename().string(), entry.path());
        }
        std::vector<SJob> jobs;
        {
            const auto lock = LockState();
            jobs = m_jobs;
        }
        std::string configurations;
        for (const auto& job : jobs) {
            const auto data = apigen::CXmlData::CreateNew();
            apigen::Serialize(*data, "job", job.Config);  // it holds no secrets
            configurations += PlainText(job.Id) + (job.IsEnabled ? "" : " (disabled)") + "\n" +
                              apigen::CXmlData::Serialize(*data) + "\n";
            const auto ids = Read([&](const CStore& past) { return past.SessionsOf(job.Id); });
            const std::size_t first = ids.size() > SessionsTold ? ids.size() - SessionsTold : 0;
            // A file each: no more than one session's lines are held.
            for (std::size_t i = first; i < ids.size(); ++i) {
                const std::string told = Read([&](const CStore& past) {
                    const auto session = past.FindSession(ids[i]);
                    return session ? Told(*session, past.LinesOf(ids[i], LinesTold)) : std::string();
                });
                if (told.empty()) continue;
                archive.Add("sessions/" + PlainText(job.Id) + "/" + std::to_string(i + 1) + ".txt", told);
            }
        }
        archive.Add("jobs.txt", configurations);
        archive.Close();
        if (::fsync(file.Get()) != 0) refuse(errno);
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
}

}  // namespace tarvo
