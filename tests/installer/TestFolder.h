// SPDX-License-Identifier: Apache-2.0
// A folder of a test's own, and other means that the installer's tests share.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

// Runs `statement`, which must throw `Exception`, and gives its message to `check`.
#define EXPECT_THROW_WITH(statement, Exception, part)                                                      \
    try {                                                                                                  \
        statement;                                                                                         \
        ADD_FAILURE() << "no exception";                                                                   \
    } catch (const Exception& error) {                                                                     \
        EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << "message: " << error.what(); \
    }

namespace installer::test {

class CTestFolder {
public:
    CTestFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "installer-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    CTestFolder(const CTestFolder&) = delete;
    CTestFolder& operator=(const CTestFolder&) = delete;
    ~CTestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& Path() const { return m_path; }

    // Writes a file; the folders above it are made.
    std::filesystem::path Write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = m_path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

    std::filesystem::path WriteScript(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = Write(name, "#!/bin/sh\n" + content);
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        return file;
    }

private:
    std::filesystem::path m_path;
};

inline std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Whether `condition` comes true before a generous deadline.
inline bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Sets an environment variable for the lifetime of the object.
class CEnvironmentVariable {
public:
    CEnvironmentVariable(std::string name, const std::string& value) : m_name(std::move(name)) {
        if (const char* const old = std::getenv(m_name.c_str())) m_old = old;
        setenv(m_name.c_str(), value.c_str(), 1);
    }
    CEnvironmentVariable(const CEnvironmentVariable&) = delete;
    CEnvironmentVariable& operator=(const CEnvironmentVariable&) = delete;
    ~CEnvironmentVariable() {
        if (m_old) {
            setenv(m_name.c_str(), m_old->c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace installer::test
