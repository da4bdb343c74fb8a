// SPDX-License-Identifier: Apache-2.0
/// \file
/// A logger that keeps its lines for the test to look at.
#pragma once

#include <apigen/ILogger.h>

#include <mutex>
#include <string>
#include <vector>

namespace zamtest {

class CMemoryLogger final : public apigen::ILogger {
public:
    void Info(const std::string& message) override { Add("I " + message); }
    void Error(const std::string& message, std::exception& error) override {
        Add("E " + message + " / " + error.what());
    }

    std::vector<std::string> Lines() const {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    void Add(std::string line) {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(std::move(line));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

}  // namespace zamtest
