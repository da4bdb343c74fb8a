// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>
#include <sys/utsname.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CTestSystem.h"
#include "TestFolder.h"
#include "installer/CHostInformation.h"
#include "installer/CommandRunner.h"
#include "installer/SmallFile.h"

namespace installer::test {
namespace {

using zamclientlib::EthInterfaceStatus;
using zamclientlib::OSHardwarePlatform;
using zamclientlib::SEthInterfaceInfo;
using zamclientlib::SVersion;

class HostInformation : public testing::Test {
protected:
    SOsInformation ReadOs() const { return CHostInformation(MakeContext(m_folder.Path(), nullptr)).ReadOs(); }

    CTestFolder m_folder;
};

TEST_F(HostInformation, ADebianReleaseIsDescribedWithItsPointRelease) {
    m_folder.Write("etc/os-release",
                   "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nVERSION_ID=\"12\"\n"
                   "VERSION_CODENAME=bookworm\nID=debian\n");
    m_folder.Write("etc/debian_version", "12.11\n");
    const SOsInformation os = ReadOs();
    EXPECT_EQ(os.Id, "debian");
    EXPECT_EQ(os.Name, "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(os.CodeName, "bookworm");
    EXPECT_EQ(os.Version, (SVersion{12, 11, 0, 0}));
}

TEST_F(HostInformation, ADebianVersionOfAnotherReleaseIsNotBelieved) {
    m_folder.Write("etc/os-release", "VERSION_ID=12\nID=debian\n");
    for (const char* const text : {"trixie/sid\n", "13.1\n", "121.5\n", "", "12\n"}) {
        m_folder.Write("etc/debian_version", text);
        EXPECT_EQ(ReadOs().Version, (SVersion{12, 0, 0, 0})) << text;
    }
    m_folder.Write("etc/debian_version", "12.11\n");
    m_folder.Write("etc/os-release", "VERSION_ID=12\nID=derived\n");
    EXPECT_EQ(ReadOs().Version, (SVersion{12, 0, 0, 0}));
    m_folder.Write("etc/os-release", "ID=debian\n");
    EXPECT_EQ(ReadOs().Version, SVersion{}) << "an unreleased system has no version";
}

TEST_F(HostInformation, OtherDistributionsTellLessOrMore) {
    m_folder.Write("etc/os-release", "NAME=\"Alpine Linux\"\nID=alpine\nVERSION_ID=3.19.1\n");
    EXPECT_EQ(ReadOs().Name, "Alpine Linux");
    EXPECT_EQ(ReadOs().Version, (SVersion{3, 19, 1, 0}));
    EXPECT_EQ(ReadOs().CodeName, "");
    m_folder.Write("etc/os-release", "NAME=Older\nVERSION=\"7 (Core)\"\n");
    EXPECT_EQ(ReadOs().Id, "linux");
    EXPECT_EQ(ReadOs().Name, "Older 7 (Core)");
    EXPECT_EQ(ReadOs().CodeName, "Core");
}

TEST_F(HostInformation, TheVendorFileCountsWhereEtcHasNone) {
    m_folder.Write("usr/lib/os-release", "ID=vendor\n");
    EXPECT_EQ(ReadOs().Id, "vendor");
    m_folder.Write("etc/os-release", "ID=local\n");
    EXPECT_EQ(ReadOs().Id, "local");
}

TEST_F(HostInformation, ASystemWithoutAnyFileIsStillALinux) {
    EXPECT_EQ(ReadOs().Id, "linux");
    EXPECT_EQ(ReadOs().Name, "Linux");
    EXPECT_EQ(ReadOs().Version, SVersion{});
}

TEST_F(HostInformation, AFifoInTheFilesPlaceDoesNotBlock) {
    std::filesystem::create_directories(m_folder.Path() / "etc");
    ASSERT_EQ(mkfifo((m_folder.Path() / "etc/os-release").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((m_folder.Path() / "etc/machine-id").c_str(), 0600), 0);
    EXPECT_EQ(ReadOs().Id, "linux");
    EXPECT_EQ(TryReadSmallFile(MakeContext(m_folder.Path(), nullptr), "/etc/machine-id"), std::nullopt);
    EXPECT_EQ(TryReadSmallFile(m_folder.Path() / "etc/machine-id"), std::nullopt);
}

TEST_F(HostInformation, IdentifiersAreReadWithAndWithoutHyphens) {
    const auto read = [](const std::string& text) { return GuidIn(text).Serialize(); };
    const std::string expected = "{3d1219c7-c4c5-404a-aa1f-6d2a48adfda4}";
    EXPECT_EQ(read("3d1219c7c4c5404aaa1f6d2a48adfda4\n"), expected);
    EXPECT_EQ(read("3D1219C7-C4C5-404A-AA1F-6D2A48ADFDA4"), expected);
    const std::string zero = apigen::Guid{}.Serialize();
    for (const char* const text : {"", "uninitialized\n", "3d1219c7", "3d1219c7c4c5404aaa1f6d2a48adfda4a",
                                   "3d1219c7c4c5404aaa1f6d2a48adfdag",
                                   "3d1219c7c4c5404aaa1f6d2a48adfda4\n3d1219c7c4c5404aaa1f6d2a48adfda4"}) {
        EXPECT_EQ(read(text), zero) << text;
    }
}

TEST_F(HostInformation, AManagedRootMustBeAFolder) {
    EXPECT_THROW_WITH(MakeContext(m_folder.Path() / "missing", nullptr), zamclientlib::CGenericException,
                      "No such file or directory");
    EXPECT_THROW_WITH(MakeContext(m_folder.Write("file", ""), nullptr), zamclientlib::CGenericException,
                      "Not a directory");
    EXPECT_THROW_WITH(MakeContext("", nullptr), zamclientlib::CGenericException, "is empty");
    EXPECT_TRUE(MakeContext("/usr/..", nullptr).IsRunningSystem());
    EXPECT_EQ(MakeContext("/", nullptr).Outside("/etc/x"), "/etc/x");
    EXPECT_THROW_WITH(MakeContext("/no\nsuch\x1b[1m", nullptr), zamclientlib::CGenericException,
                      "\"/no\\nsuch\\x1b[1m\": No such file");
}

TEST_F(HostInformation, LinksOfTheManagedSystemStayInIt) {
    const CTestFolder outside;
    outside.Write("etc/os-release", "ID=outside\n");
    outside.Write("etc/debian_version", "12.99\n");
    m_folder.Write("usr/lib/os-release", "ID=debian\nVERSION_ID=12\n");
    m_folder.Write("real/debian_version", "12.4\n");
    std::filesystem::create_directory(m_folder.Path() / "etc");
    const auto link = [&](const std::filesystem::path& target, const char* name) {
        std::filesystem::remove(m_folder.Path() / name);
        std::filesystem::create_symlink(target, m_folder.Path() / name);
    };
    link("/real/debian_version", "etc/debian_version");
    for (const char* const target :
         {"/usr/lib/os-release", "../usr/lib/os-release", "../../../../usr/lib/os-release"}) {
        link(target, "etc/os-release");
        EXPECT_EQ(ReadOs().Id, "debian") << target;
        EXPECT_EQ(ReadOs().Version, (SVersion{12, 4, 0, 0})) << target;
    }
    for (const char* const name : {"etc/os-release", "usr/lib/os-release", "etc/debian_version"}) {
        link(outside.Path() / "etc/os-release", name);
        EXPECT_EQ(ReadOs().Id, name == std::string("etc/os-release") ? "debian" : "linux") << name;
    }
    std::filesystem::remove_all(m_folder.Path() / "etc");
    link(outside.Path() / "etc", "etc");
    EXPECT_EQ(ReadOs().Id, "linux");
    EXPECT_EQ(ReadOs().Version, SVersion{});
}

TEST_F(HostInformation, ASystemIsSupportedWhenItHasADpkgDatabase) {
    EXPECT_FALSE(CHostInformation(MakeContext(m_folder.Path(), nullptr)).IsSupported());
    EXPECT_TRUE(CHostInformation(CTestSystem().Context()).IsSupported());
}

TEST(HostFacts, AreThoseOfTheKernelAndTheFiles) {
    const auto information = CHostInformation(MakeContext("/", nullptr)).Read();
    utsname names{};
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(information.HostName, names.nodename);
    EXPECT_EQ(information.OsKernelVersion, names.release);
    EXPECT_EQ(information.OsType, zamclientlib::EOsType::Linux);
    EXPECT_EQ(information.OsHardwarePlatform,
              PlatformOf(RunQuery({"uname", {"-m"}}).Output.substr(0, std::string(names.machine).size())));
    EXPECT_FALSE(information.FQDN.empty());
    EXPECT_EQ(RunQuery({"sh", {"-c", ". /etc/os-release; printf %s \"$ID|$PRETTY_NAME|$VERSION_CODENAME\""}})
                  .Output,
              information.OsId + "|" + information.OsName + "|" + information.OsCodeName);

    std::string machineId = information.SystemUID.Serialize();
    std::erase_if(machineId, [](char c) { return c == '{' || c == '}' || c == '-'; });
    std::string expected = ReadAll("/etc/machine-id");
    if (expected.size() < 32) expected = std::string(32, '0');
    EXPECT_EQ(machineId, expected.substr(0, 32));
}

TEST(HostFacts, MachineNamesOfKernelAndPackagesGiveThePlatform) {
    EXPECT_EQ(PlatformOf("x86_64"), OSHardwarePlatform::X64);
    EXPECT_EQ(PlatformOf("amd64"), OSHardwarePlatform::X64);
    EXPECT_EQ(PlatformOf("i686"), OSHardwarePlatform::X86);
    EXPECT_EQ(PlatformOf("aarch64"), OSHardwarePlatform::Arm64);
    EXPECT_EQ(PlatformOf("ppc64le"), OSHardwarePlatform::Ppc64Le);
    EXPECT_EQ(PlatformOf("s390x"), OSHardwarePlatform::S390X);
    EXPECT_EQ(PlatformOf("riscv64"), OSHardwarePlatform::RiscV64);
    EXPECT_EQ(PlatformOf(""), OSHardwarePlatform::Unknown);
    EXPECT_EQ(PlatformOf("vax"), OSHardwarePlatform::Unknown);
}

TEST(HostFacts, NetworkInterfacesAreThoseThatTheKernelLists) {
    std::vector<std::string> expectedNames;
    std::map<std::string, std::set<std::string>> expectedAddresses;
    std::istringstream links(RunQuery({"ip", {"-o", "link"}}).Output);
    for (std::string line; std::getline(links, line);) {
        std::string name = line.substr(line.find(": ") + 2);
        expectedNames.push_back(name.substr(0, name.find_first_of(":@")));
    }
    std::istringstream addresses(RunQuery({"ip", {"-o", "addr"}}).Output);
    for (std::string number, name, family, address, rest;
         addresses >> number >> name >> family >> address && std::getline(addresses, rest);) {
        expectedAddresses[name].insert(address.substr(0, address.find('/')));
    }
    ASSERT_FALSE(expectedNames.empty()) << "the tool ip is needed";

    std::vector<std::string> names;
    for (const SEthInterfaceInfo& info : ReadNetworkInterfaces()) {
        names.push_back(info.Name);
        EXPECT_EQ(std::set<std::string>(info.IpAddresses.begin(), info.IpAddresses.end()),
                  expectedAddresses[info.Name])
            << info.Name;
        std::string mac;
        std::ifstream("/sys/class/net/" + info.Name + "/address") >> mac;
        EXPECT_EQ(info.MacAddress, mac == "00:00:00:00:00:00" ? "" : mac) << info.Name;
        const std::string link = RunQuery({"ip", {"-o", "link", "show", "dev", info.Name}}).Output;
        const std::string flags =
            "," + link.substr(link.find('<') + 1, link.find('>') - link.find('<') - 1) + ",";
        std::string state;
        std::ifstream("/sys/class/net/" + info.Name + "/operstate") >> state;
        const bool isUp = flags.find(",UP,") != std::string::npos && (state == "up" || state == "unknown");
        EXPECT_EQ(info.Status, isUp ? EthInterfaceStatus::Up : EthInterfaceStatus::Down) << link << state;
    }
    EXPECT_EQ(names, expectedNames);
}

TEST(HostFacts, TheHostNameStandsInForAnUnknownFullName) {
    const CTestFolder folder;
    folder.WriteScript("hostname", "echo 'no such host' >&2; exit 1\n");
    const CEnvironmentVariable path("PATH", folder.Path().string());
    EXPECT_EQ(FullyQualifiedName("plain"), "plain");
    folder.WriteScript("hostname", "echo plain.example.org\n");
    EXPECT_EQ(FullyQualifiedName("plain"), "plain.example.org");
    folder.WriteScript("hostname", "exec sleep 1000\n");
    EXPECT_EQ(FullyQualifiedName("plain", std::chrono::milliseconds(50)), "plain");
}

}  // namespace
}  // namespace installer::test
