// SPDX-License-Identifier: Apache-2.0
// A tool whose main is the kit's: an agent when it is called tarvoconfig, an installer otherwise. ZAM_SCRIPT makes it
// fail while it makes its service.
#include <zamclientlib/Exceptions.h>
#include <zamservice/Bases.h>
#include <zamservice/Main.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

void Prepare(const std::string& logName) {
    const std::string record = Variable("ZAM_RECORD");
    if (!record.empty()) std::ofstream(record, std::ios::app) << "log " << logName << std::endl;
    const std::string script = Variable("ZAM_SCRIPT");
    if (script == "locked") throw zamclientlib::CPackageManagerIsLocked("held by process 7");
    if (script == "standard") throw std::runtime_error("the disk is full");
    if (script == "number") throw 42;  // NOLINT: what programs do
}

class CAgent final : public zamservice::CZamControlBase {
public:
    zamclientlib::SZamProductInfo GetProductInfo() const override {
        zamclientlib::SZamProductInfo info;
        info.Version = "6.1.0.27";
        return info;
    }
};

class CInstaller final : public zamservice::CTarvoInstallerBase {
public:
    zamclientlib::SVersion GetToolVersion() const override { return {1, 2, 3, 4}; }
    std::shared_ptr<zamclientlib::IPackageManager> GetPackageManager() override {
        return std::make_shared<zamservice::CPackageManagerBase>();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (std::string(argv[0]).find("tarvoconfig") != std::string::npos) {
        return zamservice::Main(argc, argv, [](const std::string& logName) {
            Prepare(logName);
            return Variable("ZAM_SCRIPT") == "nothing" ? nullptr : std::make_shared<CAgent>();
        });
    }
    zamservice::STool tool;
    tool.Kind = zamservice::EToolKind::Installer;
    tool.MakeService = [](const std::string& logName) -> zamservice::CService {
        Prepare(logName);
        return {std::make_shared<CInstaller>()};
    };
    tool.ProtocolVersion = []() -> zamclientlib::SVersion {
        if (Variable("ZAM_SCRIPT") == "standard") throw std::runtime_error("no\nversion");
        return {2, 7, 0, 0};
    };
    tool.Description = "A tool for tests.";
    tool.Version = "1.2.3";
    return zamservice::Main(argc, argv, tool);
}
