// SPDX-License-Identifier: Apache-2.0
// Describes this host through the installer tool, and shows what a failing call looks like.
//
//     demo_host [PATH-OF-TARVOINSTALLER]
#include <zamclientlib/ZamClientLib.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace zamclientlib;

void Title(const std::string& text) {
    std::cout << "\n== " << text << "\n";
}

std::string Text(const SVersion& version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.revision) + "." + std::to_string(version.build);
}

std::string Text(const std::string& text) {
    return text;
}

std::string Text(bool value) {
    return value ? "yes" : "no";
}

std::string Text(const apigen::Guid& guid) {
    return guid.Serialize();
}

template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
std::string Text(Enum value) {
    const std::string_view name = NameOf(value);
    return name.empty() ? std::to_string(static_cast<int>(value)) : std::string(name);
}

template <class T>
std::string Text(const std::vector<T>& values) {
    return std::to_string(values.size());
}

std::string Text(const std::vector<std::string>& values) {
    std::string text;
    for (const auto& value : values)
        text += (text.empty() ? "" : ", ") + value;
    return text;
}

/// A record's list of fields lets a program print it without knowing it; secrets stay secret.
template <class Record>
void Print(const Record& record) {
    apigen::ForEachField(record, [](const apigen::FieldInfo& field, const auto& value) {
        std::cout << "  " << field.Key << ": " << (field.IsSecret ? "********" : Text(value)) << "\n";
    });
}

void PrintService(ITarvoInstaller& installer, const std::string& name) {
    try {
        if (const auto service = installer.FindService(name)) {
            std::cout << "  " << service->GetName() << ": " << Text(service->GetServiceStatus()) << "\n";
        } else {
            std::cout << "  there is no service called " << name << "\n";
        }
    } catch (const apigen::ApiException& error) {
        std::cout << "  " << error.what() << "\n";
    }
}

void Demonstrate(const std::string& tool) {
    const bool isCompatible = IsInstallerApiCompatible(tool);
    std::cout << "The installer tool " << (isCompatible ? "speaks" : "does not speak")
              << " this library's protocol version.\n";
    const auto installer = GetTarvoInstaller(tool, std::chrono::seconds(60), false, nullptr);

    Title("Host");
    const SSystemInformation host = installer->GetSystemInformation();
    Print(host);
    std::cout << "  supported: " << Text(installer->IsSystemSupported()) << "\n";
    std::cout << "  version of the tool: " << Text(installer->GetToolVersion()) << "\n";

    Title("Network interfaces");
    for (const auto& each : host.NetworkInterfaces)
        Print(each);

    Title("Packages");
    const auto packages = installer->GetPackageManager();
    if (packages == nullptr) throw std::runtime_error("The installer tool handed out no package manager");
    for (const char* name : {"dpkg", "libc6", "systemd", "no-such-package"}) {
        const auto package = packages->FindInstalledPackage(name);
        std::cout << "  " << name << ": " << (package ? package->VersionRaw : "not installed") << "\n";
    }

    Title("A service");
    PrintService(*installer, "cron");

    Title("A call that fails");
    try {
        packages->InstalLocalPackages({"/no/such/file.deb"});
    } catch (const CPackageManagerIsLocked& error) {
        std::cout << "  somebody else is at it: " << error.what() << "\n";
    } catch (const CGenericException& error) {
        std::cout << "  CGenericException: " << error.what() << "\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Demonstrate(argc > 1 ? argv[1] : "tarvoinstaller");
        return 0;
    } catch (const std::exception& error) {
        // A message may quote several lines of the tool's.
        std::string reason = error.what();
        std::replace(reason.begin(), reason.end(), '\n', ' ');
        std::cerr << "demo_host: " << reason << "\n";
        return 1;
    }
}
