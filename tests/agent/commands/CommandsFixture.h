// SPDX-License-Identifier: Apache-2.0
/// \file
/// Commands on a state and with an engine of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "agent/commands/Commands.h"
#include "tests/agent/CTemporaryFolder.h"

namespace tests {

class CCommandsTest : public testing::Test {
protected:
    CCommandsTest() {
        tarvo::SFoldersSource source;
        source.TarvoHome = m_folder.Path();
        m_folders = tarvo::FoldersOf(source);
    }

    int Run(const std::vector<std::string>& arguments) {
        std::ostringstream out;
        std::ostringstream errors;
        const int status =
            tarvo::commands::Run(arguments, {m_folders, [&] { return m_engine; }, out, errors});
        m_out = out.str();
        m_errors = errors.str();
        return status;
    }

    CTemporaryFolder m_folder;
    tarvo::SFolders m_folders;
    std::shared_ptr<tarvo::IEngine> m_engine;
    std::string m_out;
    std::string m_errors;
};

}  // namespace tests
