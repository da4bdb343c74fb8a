// SPDX-License-Identifier: Apache-2.0
/// \file
/// An agent of a benchmark's own.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/Round.h"

namespace zambench {

/// A home of the agent's own, with whatever daemon a client has started there.
class CHome {
public:
    CHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zambench-XXXXXX").string();
        Require(::mkdtemp(pattern.data()) != nullptr, "a folder");
        m_path = pattern;
        ::setenv("TARVO_HOME", m_path.c_str(), 1);
    }
    CHome(const CHome&) = delete;
    CHome& operator=(const CHome&) = delete;
    ~CHome() {
        EndDaemon();
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
        ::unsetenv("TARVO_HOME");
    }

    const std::string& Path() const { return m_path; }

    pid_t Daemon() const {
        pid_t pid = 0;
        std::ifstream(m_path + "/run/tarvod.lock") >> pid;
        return pid;
    }

    /// Returns when it has ended, which frees its lock.
    void EndDaemon() const {
        const int lock = ::open((m_path + "/run/tarvod.lock").c_str(), O_RDONLY | O_CLOEXEC);
        if (lock < 0) return;
        if (::flock(lock, LOCK_EX | LOCK_NB) != 0) {
            ::kill(Daemon(), SIGTERM);
            ::flock(lock, LOCK_EX);
        }
        ::close(lock);
    }

private:
    std::string m_path;
};

/// Whose tool is found in PATH.
class CUsed {
public:
    explicit CUsed(const char* folder) : m_before(std::getenv("PATH")) {
        ::setenv("PATH", (std::string(folder) + ':' + m_before).c_str(), 1);
    }
    CUsed(const CUsed&) = delete;
    CUsed& operator=(const CUsed&) = delete;
    ~CUsed() { ::setenv("PATH", m_before.c_str(), 1); }

private:
    std::string m_before;
};

}  // namespace zambench
