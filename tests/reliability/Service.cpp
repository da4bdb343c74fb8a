// SPDX-License-Identifier: Apache-2.0
/// \file
/// A service of the kit's that keeps nothing of what it is given.
#include <zamservice/Service.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace {

using namespace zamclientlib;  // NOLINT: a program of one file

class CPackages final : public IPackageManager {
public:
    apigen::Optional<SPackageInfo> FindInstalledPackage(std::string packageName) const override {
        return SPackageInfo{std::move(packageName), "a package", "1.5-2"};
    }
    void InstalLocalPackages(std::vector<std::string> /*pkgPaths*/) const override {}
    void UpdateLocalPackages(std::vector<std::string> /*pkgPaths*/) const override {}
    void RemovePackages(std::vector<std::string> /*pkgNames*/) const override {}
    std::string GetPackageNameFromFile(std::string pkgPath) const override { return pkgPath; }
};

class CNamedService final : public IService {
public:
    explicit CNamedService(std::string name) : m_name(std::move(name)) {}
    std::string GetName() const override { return m_name; }
    EServiceStatus GetServiceStatus() const override { return {}; }
    void Start() override {}
    void Stop() override {}

private:
    std::string m_name;
};

class CRoot final : public ITarvoInstaller {
public:
    SSystemInformation GetSystemInformation() const override { return {}; }
    bool IsSystemSupported() const override { return true; }
    SVersion GetToolVersion() const override { return {2, 0, 0, 0}; }
    std::shared_ptr<IPackageManager> GetPackageManager() override { return std::make_shared<CPackages>(); }
    std::shared_ptr<IService> FindService(std::string serviceName) override {
        return std::make_shared<CNamedService>(std::move(serviceName));
    }
    std::shared_ptr<IService> GetZAMService() override { return FindService("agent"); }
    std::shared_ptr<IZAMDeployer> GetZAMDeployer() override { return nullptr; }
};

}  // namespace

/// An argument `limit=N` says how many objects a client may hold.
int main(int argc, char** argv) {
    std::size_t limit = zamservice::CService::DefaultObjectLimit;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("limit=", 0) == 0) limit = std::strtoul(argument.c_str() + 6, nullptr, 10);
    }
    return zamservice::ServeStandardStreams([limit] {
        zamservice::CService service(std::make_shared<CRoot>());
        service.SetObjectLimit(limit);
        return service;
    });
}
