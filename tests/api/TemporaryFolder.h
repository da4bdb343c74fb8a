// SPDX-License-Identifier: Apache-2.0
/// \file
/// A folder of a test's own.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zamtest {

/// Gone, with its content, with the object. Everybody may write in it.
class CTemporaryFolder {
public:
    CTemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zamtest-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
        m_path = pattern;
        std::filesystem::permissions(m_path, std::filesystem::perms::all);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string Path(const std::string& name = {}) const {
        return name.empty() ? m_path.string() : (m_path / name).string();
    }

    void Write(const std::string& name, const std::string& text) const { std::ofstream(Path(name)) << text; }

private:
    std::filesystem::path m_path;
};

inline std::vector<std::string> LinesOf(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace zamtest
