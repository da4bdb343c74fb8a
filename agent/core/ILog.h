// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where the agent writes down what it does.
#pragma once

#include <string>

namespace tarvo {

/// A log of lines. Any thread may write; a line that can't be written is lost, and nobody fails for it.
class ILog {
public:
    virtual void Info(const std::string& text) noexcept = 0;
    virtual void Warning(const std::string& text) noexcept = 0;
    virtual void Error(const std::string& text) noexcept = 0;

    ILog() = default;
    ILog(const ILog&) = delete;
    ILog& operator=(const ILog&) = delete;
    virtual ~ILog() = default;
};

}  // namespace tarvo
