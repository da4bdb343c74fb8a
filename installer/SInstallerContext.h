// SPDX-License-Identifier: Apache-2.0
// What all parts of the installer share.
#pragma once

#include <apigen/ILogger.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "installer/InsideRoot.h"

namespace installer {

// The system that is managed, and where activity is logged.
struct SInstallerContext {
    std::filesystem::path Root;            // absolute and resolved; "/" for the running system
    std::shared_ptr<apigen::ILogger> Log;  // never empty

    bool IsRunningSystem() const { return Root == "/"; }

    // Files of the managed system, by their paths in it ("/etc/os-release"). No link leads out of it.
    apigen::common::CDescriptor Open(std::string_view path, int flags) const {
        return OpenInside(Root, path, flags);
    }
    std::optional<std::filesystem::path> Resolve(std::string_view path) const {
        return ResolveInside(Root, path);
    }

    // How such a path is called in a message: as seen from outside.
    std::filesystem::path Outside(std::string_view path) const {
        return Root / path.substr(path.find_first_not_of('/'));
    }
};

// Resolves `root`, and replaces an empty logger by one that discards.
// Throws CGenericException when `root` is no folder.
SInstallerContext MakeContext(const std::filesystem::path& root, std::shared_ptr<apigen::ILogger> log);

}  // namespace installer
