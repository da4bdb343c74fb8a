// SPDX-License-Identifier: Apache-2.0
/// \file
/// A folder of a test's own, which goes with it.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace tests {

class CTemporaryFolder {
public:
    CTemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "tarvo-test-XXXXXX").string()) {
        if (::mkdtemp(m_path.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), "mkdtemp");
        m_path = std::filesystem::canonical(m_path);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::string& Path() const noexcept { return m_path; }
    std::string operator/(std::string_view name) const { return m_path + "/" + std::string(name); }

    /// A file, in folders that are made as needed.
    std::string Write(std::string_view name, std::string_view content, mode_t mode = 0644) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        ::chmod(path.c_str(), mode);
        return path;
    }
    std::string Folder(std::string_view name) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(path);
        return path;
    }

private:
    std::string m_path;
};

/// The file's bytes.
inline std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace tests
