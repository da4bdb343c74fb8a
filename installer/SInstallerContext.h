// SPDX-License-Identifier: Apache-2.0
// What all parts of the installer share.
#pragma once

#include <apigen/ILogger.h>

#include <filesystem>
#include <memory>
#include <string_view>

namespace installer {

// The system that is managed, and where activity is logged.
struct SInstallerContext {
    std::filesystem::path Root;            // absolute and resolved; "/" for the running system
    std::shared_ptr<apigen::ILogger> Log;  // never empty

    bool IsRunningSystem() const { return Root == "/"; }

    // "/etc/os-release" inside the managed system.
    std::filesystem::path Inside(std::string_view absolutePath) const {
        return Root / absolutePath.substr(absolutePath.find_first_not_of('/'));
    }
};

// Resolves `root`, and replaces an empty logger by one that discards.
// Throws CGenericException when `root` is no folder.
SInstallerContext MakeContext(const std::filesystem::path& root, std::shared_ptr<apigen::ILogger> log);

}  // namespace installer
