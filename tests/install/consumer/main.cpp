// SPDX-License-Identifier: Apache-2.0
// A program on the installed headers alone: writes a record, reads it back, asks a tool for its version.
#include <apigen/ApiGen.h>
#include <zamclientlib/ZamClientLib.h>

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

}  // namespace

int main(int argc, char* argv[]) {
    try {
        if (argc != 2) {
            std::cerr << "usage: consumer PATH-OF-THE-INSTALLER-TOOL\n";
            return 2;
        }
        const bool fine = RecordSurvivesTheTextForm() && MissingToolIsReportedByType() &&
                          zamclientlib::IsInstallerApiCompatible(argv[1]);
        std::cout << (fine ? "fine" : "NOT as expected") << '\n';
        return fine ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
