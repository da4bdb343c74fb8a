// SPDX-License-Identifier: Apache-2.0
/// \file
/// What tests with real tools share: the scripted tool, and the proof that nothing of it is left.
#pragma once

#include <apigen/ApiException.h>
#include <zamclientlib/ApiClient.h>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "tests/MessageOf.h"
#include "tests/api/TemporaryFolder.h"

namespace zamtest {

using tests::MessageOf;

/// An environment variable that has another value as long as the object lives.
class CScopedVariable {
public:
    CScopedVariable(std::string name, const std::string& value) : m_name(std::move(name)) {
        const char* const old = std::getenv(m_name.c_str());
        m_wasSet = old != nullptr;
        if (m_wasSet) m_old = old;
        ::setenv(m_name.c_str(), value.c_str(), 1);
    }
    CScopedVariable(const CScopedVariable&) = delete;
    CScopedVariable& operator=(const CScopedVariable&) = delete;
    ~CScopedVariable() {
        if (m_wasSet) {
            ::setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            ::unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    std::string m_old;
    bool m_wasSet = false;
};

inline double SecondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Each test ends with no child left and no descriptor lost.
class ToolTest : public testing::Test {
protected:
    ToolTest() : m_descriptors(OpenDescriptors()) { Set("ZAM_RECORD", m_folder.Path("record")); }

    ~ToolTest() override {
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
        EXPECT_EQ(errno, ECHILD);
        EXPECT_EQ(OpenDescriptors(), m_descriptors) << "a descriptor was lost";
        while (!m_variables.empty())
            m_variables.pop_back();  // the last first, so that the oldest value comes back
    }

    void Set(const std::string& name, const std::string& value) { m_variables.emplace_back(name, value); }

    std::shared_ptr<zamclientlib::ITarvoInstaller> Connect(
        const std::string& script, std::chrono::seconds timeout = std::chrono::seconds(30),
        const std::shared_ptr<apigen::ILogger>& logger = nullptr) {
        Set("ZAM_SCRIPT", script);
        return zamclientlib::GetTarvoInstaller(SCRIPTED_TOOL, timeout, logger != nullptr, logger);
    }

    std::vector<std::string> Recorded() const { return LinesOf(m_folder.Path("record")); }

    CTemporaryFolder m_folder;

private:
    static std::ptrdiff_t OpenDescriptors() {
        const std::filesystem::directory_iterator folder("/proc/self/fd");
        return std::distance(begin(folder), end(folder));
    }

    std::deque<CScopedVariable> m_variables;
    std::ptrdiff_t m_descriptors;
};

}  // namespace zamtest
