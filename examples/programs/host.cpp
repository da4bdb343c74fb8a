// SPDX-License-Identifier: Apache-2.0
// Asks the installer tool about this host.
#include <zamclientlib/ZamClientLib.h>

#include <chrono>
#include <iostream>

int main() {
    try {
        const auto installer =
            zamclientlib::GetTarvoInstaller("tarvoinstaller", std::chrono::seconds(30), false, nullptr);
        const auto host = installer->GetSystemInformation();
        std::cout << host.HostName << " runs " << host.OsName << '\n';

        const auto package = installer->GetPackageManager()->FindInstalledPackage("zstd");
        std::cout << "zstd: " << (package ? package->VersionRaw : "not installed") << '\n';
    } catch (const apigen::ProcessLaunchError& error) {
        std::cerr << "The tool can't be started: " << error.what() << '\n';
        return 1;
    } catch (const apigen::ApiException& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
