// SPDX-License-Identifier: Apache-2.0
// A service of somebody who uses the installed kit: an installer that knows its version and nothing else.
#include <zamservice/Bases.h>
#include <zamservice/Main.h>

#include <memory>
#include <string>

namespace {

class CInstaller final : public zamservice::CTarvoInstallerBase {
public:
    zamclientlib::SVersion GetToolVersion() const override { return {1, 2, 3, 4}; }
};

}  // namespace

int main(int argc, char* argv[]) {
    return zamservice::Main(argc, argv, [](const std::string&) { return std::make_shared<CInstaller>(); });
}
