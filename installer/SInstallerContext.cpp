// SPDX-License-Identifier: Apache-2.0
#include "installer/SInstallerContext.h"

#include <zamclientlib/Exceptions.h>

#include <system_error>
#include <utility>

#include "support/common/Text.h"

namespace installer {

SInstallerContext MakeContext(const std::filesystem::path& root, std::shared_ptr<apigen::ILogger> log) {
    if (root.empty()) throw zamclientlib::CGenericException("The path of the system to manage is empty.");
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::canonical(root, error);
    if (!error && !std::filesystem::is_directory(resolved, error) && !error) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) {
        throw zamclientlib::CGenericException("Can't manage the system in " +
                                              apigen::common::Quoted(root.string()) + ": " +
                                              apigen::common::ErrorText(error.value()) + ".");
    }
    if (!log) log = std::make_shared<apigen::CApiEmptyLogger>();
    return {std::move(resolved), std::move(log)};
}

}  // namespace installer
