// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tarvo::tool {

/// The tool's own log: who came when, and why it failed. A line that can't be written is lost.
class CToolLog {
public:
    /// \param name as the client gave it; one that is no plain file name is not used
    CToolLog(const std::string& folder, const std::string& name);

    void Write(std::string_view text) noexcept;

private:
    std::string m_path;
};

}  // namespace tarvo::tool
