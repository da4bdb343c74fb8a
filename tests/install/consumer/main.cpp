// SPDX-License-Identifier: Apache-2.0
// A program on the installed headers alone: writes a record, reads it back, asks tools for their versions.
#include <apigen/ApiGen.h>
#include <zamclientlib/ZamClientLib.h>

#include <stdlib.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace {

bool RecordSurvivesTheTextForm() {
    zamclientlib::SVersion written;
    written.major = 2;
    written.build = 65535;

    const std::shared_ptr<apigen::IData> document = apigen::CXmlData::CreateNew();
    apigen::Serialize(*document, "Version", written);
    const std::string text = apigen::CXmlData::Serialize(*document);
    std::cout << text << '\n';

    zamclientlib::SVersion read;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(text), "Version", read);
    return read == written;
}

bool MissingToolIsReportedByType() {
    try {
        zamclientlib::IsInstallerApiCompatible("/nonexistent/tarvoinstaller");
    } catch (const apigen::ProcessLaunchError& error) {
        std::cout << error.what() << '\n';
        return true;
    }
    return false;
}

// Built elsewhere on the same headers.
bool ServiceAnswersAndRefuses() {
    const auto installer = zamclientlib::GetTarvoInstaller(SERVICE, std::chrono::seconds(30), false, nullptr);
    if (installer->GetToolVersion() != zamclientlib::SVersion{1, 2, 3, 4}) return false;
    try {
        installer->GetZAMDeployer();
    } catch (const zamclientlib::CGenericException& error) {
        std::cout << error.what() << '\n';
        return std::string(error.what()).find("ITarvoInstaller::GetZAMDeployer") != std::string::npos;
    }
    return false;
}

bool TestAgentStartsFromItsFolder() {
    const char* const path = std::getenv("PATH");
    setenv("PATH", (TESTAGENT_DIR ":" + std::string(path != nullptr ? path : "")).c_str(), 1);
    return !zamclientlib::GetZamControl(std::chrono::seconds(30), false, nullptr)
                ->GetProductInfo()
                .Version.empty();
}

}  // namespace

int main() {
    try {
        const bool fine = RecordSurvivesTheTextForm() && MissingToolIsReportedByType() &&
                          zamclientlib::IsInstallerApiCompatible(TARVOINSTALLER) &&
                          ServiceAnswersAndRefuses() && TestAgentStartsFromItsFolder();
        std::cout << (fine ? "fine" : "NOT as expected") << '\n';
        return fine ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
