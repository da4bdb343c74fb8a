// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the installer tells about a host, its packages and the product on it.
#pragma once

#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>

#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// One network interface of the host.
struct SEthInterfaceInfo {
    std::string Name{};
    EthInterfaceStatus Status{};
    std::string MacAddress{};                ///< six octets, "52:54:00:12:34:56"; empty where there is none
    std::vector<std::string> IpAddresses{};  ///< IPv4 and IPv6, without prefix lengths

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Name", &SEthInterfaceInfo::Name);
        field("Status", &SEthInterfaceInfo::Status);
        field("MacAddress", &SEthInterfaceInfo::MacAddress);
        field("IpAddresses", &SEthInterfaceInfo::IpAddresses);
    }
};

/// A description of the host.
struct SSystemInformation {
    apigen::Guid SystemUID{};  ///< the operating system installation
    apigen::Guid BiosUID{};    ///< the machine, from its firmware; zero where it tells none
    std::string OsName{};      ///< "Debian GNU/Linux 12 (bookworm)"
    std::string OsId{};        ///< "debian"
    SVersion OsVersion{};
    std::string OsCodeName{};       ///< "bookworm"
    std::string OsKernelVersion{};  ///< the kernel's release text, "6.1.0-18-amd64"
    EOsType OsType{};
    OSHardwarePlatform OsHardwarePlatform{};
    std::string HostName{};
    std::vector<SEthInterfaceInfo> NetworkInterfaces{};
    std::string FQDN{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("SystemUID", &SSystemInformation::SystemUID);
        field("BiosUID", &SSystemInformation::BiosUID);
        field("OsName", &SSystemInformation::OsName);
        field("OsId", &SSystemInformation::OsId);
        field("OsVersion", &SSystemInformation::OsVersion);
        field("OsCodeName", &SSystemInformation::OsCodeName);
        field("OsKernelVersion", &SSystemInformation::OsKernelVersion);
        field("OsType", &SSystemInformation::OsType);
        field("OsHardwarePlatform", &SSystemInformation::OsHardwarePlatform);
        field("HostName", &SSystemInformation::HostName);
        field("NetworkInterfaces", &SSystemInformation::NetworkInterfaces);
        field("FQDN", &SSystemInformation::FQDN);
    }
};

/// What a package index offers this host.
struct SInstallationInfo {
    SVersion PackagesVersion{};
    std::vector<std::string> PackageForInstall{};  ///< for `InstalLocalPackages`: files and names
    bool IsKmodDriver = false;                     ///< the driver comes as a kernel module
    bool IsInstallationSupported = false;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("PackagesVersion", &SInstallationInfo::PackagesVersion);
        field("PackageForInstall", &SInstallationInfo::PackageForInstall);
        field("IsKmodDriver", &SInstallationInfo::IsKmodDriver);
        field("IsInstallationSupported", &SInstallationInfo::IsInstallationSupported);
    }
};

/// An installed package.
struct SPackageInfo {
    std::string Name{};
    std::string Description{};
    std::string VersionRaw{};  ///< as the package system writes it, "1:2.3-4+deb12u1"

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Name", &SPackageInfo::Name);
        field("Description", &SPackageInfo::Description);
        field("VersionRaw", &SPackageInfo::VersionRaw);
    }
};

}  // namespace zamclientlib
