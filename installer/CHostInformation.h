// SPDX-License-Identifier: Apache-2.0
// Facts about the host.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/InstallerRecords.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "installer/SInstallerContext.h"

namespace installer {

// What the operating system says about itself.
struct SOsInformation {
    std::string Id;    // "debian"; "linux" when it doesn't say
    std::string Name;  // for people
    std::string CodeName;
    zamclientlib::SVersion Version;
};

// Reads the facts anew at every call. Names, versions and the system's identity come from the files of the
// managed system; kernel, firmware and network are those of the running machine.
class CHostInformation {
public:
    explicit CHostInformation(SInstallerContext context) : m_context(std::move(context)) {}

    zamclientlib::SSystemInformation Read() const;
    SOsInformation ReadOs() const;

    // Whether the tool can manage the host: Linux with a dpkg database and its tools.
    bool IsSupported() const;

private:
    SInstallerContext m_context;
};

// The platform behind a machine name, of the kernel's ("x86_64") or the packages' kind ("amd64").
zamclientlib::OSHardwarePlatform PlatformOf(std::string_view machineName);
zamclientlib::OSHardwarePlatform HostPlatform();

// The identifier in a file's text of 32 hexadecimal digits, hyphens between them or not; zero when it holds
// anything else.
apigen::Guid GuidIn(std::string text);

// All interfaces, the loopback too, in the kernel's order.
std::vector<zamclientlib::SEthInterfaceInfo> ReadNetworkInterfaces();

// The resolver's full name of this host; `hostName` when it knows none or doesn't answer within `limit`.
std::string FullyQualifiedName(const std::string& hostName,
                               std::chrono::milliseconds limit = std::chrono::seconds(3));

}  // namespace installer
