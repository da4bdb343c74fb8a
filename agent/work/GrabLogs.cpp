// SPDX-License-Identifier: Apache-2.0
// The agent's logs and what else helps to understand it, in one archive without a secret.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "agent/work/CAgentImpl.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Escaped;
using apigen::common::Quoted;

namespace {

/// How many of each job's sessions are told.
constexpr std::size_t SessionsTold = 50;

/// Of a log that is longer, the end.
constexpr std::uintmax_t MostOfALog = 64UL * 1024 * 1024;

class CArchive {
public:
    CArchive(int descriptor, Moment now)
        : m_now(now), m_archive(::archive_write_new(), ::archive_write_free) {
        Check(::archive_write_add_filter_gzip(m_archive.get()));
        Check(::archive_write_set_format_pax_restricted(m_archive.get()));
        Check(::archive_write_open_fd(m_archive.get(), descriptor));
    }

    void Add(const std::string& name, const std::string& text) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(::archive_entry_new(),
                                                                             ::archive_entry_free);
        ::archive_entry_set_pathname(entry.get(), name.c_str());
        ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(text.size()));
        ::archive_entry_set_filetype(entry.get(), AE_IFREG);
        ::archive_entry_set_perm(entry.get(), 0600);
        ::archive_entry_set_mtime(entry.get(), ToRecord(m_now).seconds, 0);
        Check(::archive_write_header(m_archive.get(), entry.get()));
        if (!text.empty() && ::archive_write_data(m_archive.get(), text.data(), text.size()) < 0) Fail();
    }

    void Close() { Check(::archive_write_close(m_archive.get())); }

private:
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

std::string EndOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (!error && size > MostOfALog) file.seekg(static_cast<std::streamoff>(size - MostOfALog));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

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
            archive.Add("log/" + entry.path().filename().string(), EndOf(entry.path()));
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
            std::string sessions;
            Read([&](const CStore& past) {
                auto ids = past.SessionsOf(job.Id);
                const std::size_t first = ids.size() > SessionsTold ? ids.size() - SessionsTold : 0;
                for (std::size_t i = first; i < ids.size(); ++i) {
                    if (const auto session = past.FindSession(ids[i])) {
                        sessions += Told(*session, past.LinesOf(ids[i]));
                    }
                }
            });
            archive.Add("sessions/" + PlainText(job.Id) + ".txt", sessions);
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
