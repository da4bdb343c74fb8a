// SPDX-License-Identifier: Apache-2.0
#include "installer/CHostInformation.h"

#include <zamclientlib/Exceptions.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <map>
#include <optional>

#include "installer/CommandRunner.h"
#include "installer/OsRelease.h"
#include "installer/SmallFile.h"
#include "installer/VersionText.h"
#include "support/common/Text.h"

namespace installer {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::EthInterfaceStatus;
using zamclientlib::OSHardwarePlatform;
using zamclientlib::SEthInterfaceInfo;

struct SMachine {
    std::string_view Name;
    OSHardwarePlatform Platform;
};
constexpr SMachine machines[]{
    {"x86_64", OSHardwarePlatform::X64},      {"amd64", OSHardwarePlatform::X64},
    {"i386", OSHardwarePlatform::X86},        {"i486", OSHardwarePlatform::X86},
    {"i586", OSHardwarePlatform::X86},        {"i686", OSHardwarePlatform::X86},
    {"aarch64", OSHardwarePlatform::Arm64},   {"arm64", OSHardwarePlatform::Arm64},
    {"ppc64le", OSHardwarePlatform::Ppc64Le}, {"ppc64el", OSHardwarePlatform::Ppc64Le},
    {"s390x", OSHardwarePlatform::S390X},     {"riscv64", OSHardwarePlatform::RiscV64},
};

utsname Uname() {
    utsname names{};
    if (uname(&names) != 0) {
        throw CGenericException("Can't ask the kernel for its name: " + apigen::common::ErrorText(errno) +
                                ".");
    }
    return names;
}

// "bookworm" of "12 (bookworm)": older systems name the release only there.
std::string CodeNameIn(const std::string& version) {
    const std::size_t open = version.find('(');
    const std::size_t close = version.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) return {};
    return version.substr(open + 1, close - open - 1);
}

std::optional<std::string> AddressText(const sockaddr& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* bytes = nullptr;
    if (address.sa_family == AF_INET) {
        bytes = &reinterpret_cast<const sockaddr_in&>(address).sin_addr;
    } else if (address.sa_family == AF_INET6) {
        bytes = &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    } else {
        return std::nullopt;
    }
    if (inet_ntop(address.sa_family, bytes, text.data(), text.size()) == nullptr) return std::nullopt;
    return text.data();
}

// Empty for an interface without a hardware address: the loopback's is all zeros.
std::string MacText(const sockaddr_ll& address) {
    const unsigned char* const octets = address.sll_addr;
    if (address.sll_halen != 6 || std::all_of(octets, octets + 6, [](unsigned char o) { return o == 0; })) {
        return {};
    }
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", octets[0], octets[1], octets[2],
                  octets[3], octets[4], octets[5]);
    return text.data();
}

SEthInterfaceInfo& EntryFor(std::vector<SEthInterfaceInfo>& interfaces, const ifaddrs& entry) {
    // An address with a label ("eth0:1") is one of eth0.
    const std::string label = entry.ifa_name;
    const std::string name = label.substr(0, label.find(':'));
    const auto known = std::find_if(interfaces.begin(), interfaces.end(),
                                    [&](const SEthInterfaceInfo& info) { return info.Name == name; });
    if (known != interfaces.end()) return *known;
    SEthInterfaceInfo& added = interfaces.emplace_back();
    added.Name = name;
    const bool isUp = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_RUNNING) != 0;
    added.Status = isUp ? EthInterfaceStatus::Up : EthInterfaceStatus::Down;
    return added;
}

}  // namespace

zamclientlib::SSystemInformation CHostInformation::Read() const {
    const utsname names = Uname();
    SOsInformation os = ReadOs();
    zamclientlib::SSystemInformation information;
    information.SystemUID = GuidIn(TryReadSmallFile(m_context, "/etc/machine-id").value_or(""));
    information.BiosUID = GuidIn(TryReadSmallFile("/sys/class/dmi/id/product_uuid").value_or(""));
    information.OsName = std::move(os.Name);
    information.OsId = std::move(os.Id);
    information.OsVersion = os.Version;
    information.OsCodeName = std::move(os.CodeName);
    information.OsKernelVersion = names.release;
    information.OsType = zamclientlib::EOsType::Linux;
    information.OsHardwarePlatform = PlatformOf(names.machine);
    information.HostName = names.nodename;
    information.NetworkInterfaces = ReadNetworkInterfaces();
    information.FQDN = FullyQualifiedName(information.HostName);
    return information;
}

SOsInformation CHostInformation::ReadOs() const {
    std::optional<std::string> text = TryReadSmallFile(m_context, "/etc/os-release");
    if (!text) text = TryReadSmallFile(m_context, "/usr/lib/os-release");
    std::map<std::string, std::string> release = ParseOsRelease(text.value_or(""));

    SOsInformation os;
    os.Id = release["ID"].empty() ? "linux" : release["ID"];
    os.Name = release["PRETTY_NAME"];
    if (os.Name.empty()) {
        os.Name = Trimmed((release["NAME"].empty() ? "Linux" : release["NAME"]) + " " + release["VERSION"]);
    }
    os.CodeName = release["VERSION_CODENAME"];
    if (os.CodeName.empty()) os.CodeName = CodeNameIn(release["VERSION"]);

    std::string version = release["VERSION_ID"];
    if (os.Id == "debian" && !version.empty()) {
        // os-release holds the major number alone; this file knows the point release.
        const std::string point = Trimmed(TryReadSmallFile(m_context, "/etc/debian_version").value_or(""));
        if (point.starts_with(version + ".")) version = point;
    }
    os.Version = LeadingVersion(version);
    return os;
}

bool CHostInformation::IsSupported() const {
    const auto database = m_context.Open("/var/lib/dpkg/status", O_PATH);
    struct stat status {};
    return database && fstat(database.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
           !FindProgram("dpkg").empty() && !FindProgram("dpkg-query").empty();
}

OSHardwarePlatform PlatformOf(std::string_view machineName) {
    const auto* const found = std::find_if(std::begin(machines), std::end(machines),
                                           [&](const SMachine& row) { return row.Name == machineName; });
    return found == std::end(machines) ? OSHardwarePlatform::Unknown : found->Platform;
}

OSHardwarePlatform HostPlatform() {
    return PlatformOf(Uname().machine);
}

apigen::Guid GuidIn(std::string text) {
    std::string digits = Trimmed(std::move(text));
    std::erase(digits, '-');
    if (digits.size() != 32 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return {};
    }
    for (const std::size_t group : {20, 16, 12, 8})
        digits.insert(group, "-");
    return apigen::Guid::Deserialize("{" + digits + "}");
}

std::vector<SEthInterfaceInfo> ReadNetworkInterfaces() {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        throw CGenericException("Can't list the network interfaces: " + apigen::common::ErrorText(errno) +
                                ".");
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, &freeifaddrs);
    std::vector<SEthInterfaceInfo> interfaces;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        SEthInterfaceInfo& info = EntryFor(interfaces, *entry);
        if (entry->ifa_addr == nullptr) continue;
        if (entry->ifa_addr->sa_family == AF_PACKET) {
            info.MacAddress = MacText(reinterpret_cast<const sockaddr_ll&>(*entry->ifa_addr));
        } else if (auto address = AddressText(*entry->ifa_addr)) {
            info.IpAddresses.push_back(std::move(*address));
        }
    }
    return interfaces;
}

std::string FullyQualifiedName(const std::string& hostName, std::chrono::milliseconds limit) {
    // A resolver without an answer blocks its caller for half a minute and can't be stopped from within:
    // let a process ask that can be ended.
    try {
        const SCommandResult answer = RunQuery({"hostname", {"--fqdn"}}, limit);
        std::string name = Trimmed(answer.Output);
        if (answer.Succeeded() && !name.empty()) return name;
    } catch (const CGenericException&) {
        // The plain name is all there is to tell then.
    }
    return hostName;
}

}  // namespace installer
