// SPDX-License-Identifier: Apache-2.0
/// \file
/// A service whose methods cost nothing, for measuring what a call costs.
#include <zamservice/Service.h>

namespace {

using namespace zamclientlib;

class CIdleInstaller final : public ITarvoInstaller {
public:
    SSystemInformation GetSystemInformation() const override { return {}; }
    bool IsSystemSupported() const override { return true; }
    SVersion GetToolVersion() const override { return {2, 0, 0, 0}; }
    std::shared_ptr<IPackageManager> GetPackageManager() override { return nullptr; }
    std::shared_ptr<IService> FindService(std::string /*serviceName*/) override { return nullptr; }
    std::shared_ptr<IService> GetZAMService() override { return nullptr; }
    std::shared_ptr<IZAMDeployer> GetZAMDeployer() override { return nullptr; }
};

}  // namespace

int main() {
    return zamservice::ServeStandardStreams(
        [] { return zamservice::CService(std::make_shared<CIdleInstaller>()); });
}
