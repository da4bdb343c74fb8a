// SPDX-License-Identifier: Apache-2.0
/// \file
/// Each record as a value and as its text on the wire, written down by hand.
#pragma once

#include <apigen/Guid.h>

#include <string>
#include <string_view>
#include <vector>

#include "src/RecordList.h"

namespace zamtest {

/// A record and what stands between the tags of its node.
template <class Record>
struct SGolden {
    Record Value;
    std::string Text;
};

/// The rows of a record. The first has a value of its own, none of them the default, in every field.
template <class Record>
const std::vector<SGolden<Record>>& Goldens();

#define ZAM_GOLDENS(record, ...)                                                    \
    template <>                                                                     \
    inline const std::vector<SGolden<zamclientlib::record>>& Goldens() {            \
        using namespace zamclientlib;                                               \
        static const std::vector<SGolden<zamclientlib::record>> rows = __VA_ARGS__; \
        return rows;                                                                \
    }

inline apigen::Guid GuidOf(const char* text) {
    return apigen::Guid::Deserialize(text);
}

ZAM_GOLDENS(SVersion, {{{.major = 1, .minor = 2, .revision = 3, .build = 345},
                        "<major>1</major><minor>2</minor><revision>3</revision><build>345</build>"},
                       {{},  //
                        "<major>0</major><minor>0</minor><revision>0</revision><build>0</build>"},
                       {{.major = 65535, .minor = 0, .revision = 65535, .build = 9},
                        "<major>65535</major><minor>0</minor><revision>65535</revision><build>9</build>"}})

ZAM_GOLDENS(SCompatibilityInfo,
            {{{.protocolVersion = {.major = 2, .minor = 5, .revision = 7, .build = 11}},
              "<protocolVersion><major>2</major><minor>5</minor><revision>7</revision><build>11</build>"
              "</protocolVersion>"}})

ZAM_GOLDENS(SDateTime, {{{.seconds = 1636120989, .milliseconds = 42},
                         "<seconds>1636120989</seconds><milliseconds>42</milliseconds>"},
                        {{.seconds = -9223372036854775807L - 1, .milliseconds = 999},
                         "<seconds>-9223372036854775808</seconds><milliseconds>999</milliseconds>"}})

ZAM_GOLDENS(STimeSpan, {{{.seconds = 86400, .milliseconds = 7},
                         "<seconds>86400</seconds><milliseconds>7</milliseconds>"},
                        {{.seconds = 9223372036854775807L, .milliseconds = 65535},
                         "<seconds>9223372036854775807</seconds><milliseconds>65535</milliseconds>"}})

ZAM_GOLDENS(
    SEthInterfaceInfo,
    {{{.Name = "eth0",
       .Status = EthInterfaceStatus::Up,
       .MacAddress = "52:54:00:12:34:56",
       .IpAddresses = {"192.0.2.7", "2001:db8::7"}},
      "<Name>eth0</Name><Status>1</Status><MacAddress>52:54:00:12:34:56</MacAddress>"
      "<IpAddresses><item>192.0.2.7</item></IpAddresses><IpAddresses><item>2001:db8::7</item></IpAddresses>"},
     {{}, "<Name></Name><Status>0</Status><MacAddress></MacAddress>"},
     {{.Name = "a<b>&c",
       .Status = static_cast<EthInterfaceStatus>(-99),
       .MacAddress = " \t\n",
       .IpAddresses = {"", "x", ""}},
      "<Name>a&lt;b&gt;&amp;c</Name><Status>-99</Status><MacAddress> \t\n</MacAddress>"
      "<IpAddresses><item></item></IpAddresses><IpAddresses><item>x</item></IpAddresses>"
      "<IpAddresses><item></item></IpAddresses>"}})

ZAM_GOLDENS(
    SSystemInformation,
    {{{.SystemUID = GuidOf("{0123abcd-0004-f00d-0102-030405060708}"),
       .BiosUID = GuidOf("{fedcba98-7654-3210-fedc-ba9876543210}"),
       .OsName = "Debian GNU/Linux 12",
       .OsId = "debian",
       .OsVersion = {.major = 12, .minor = 21, .revision = 13, .build = 14},
       .OsCodeName = "bookworm",
       .OsKernelVersion = "6.1.0-18-amd64",
       .OsType = EOsType::Unix,
       .OsHardwarePlatform = OSHardwarePlatform::S390X,
       .HostName = "host",
       .NetworkInterfaces = {{.Name = "lo",
                              .Status = EthInterfaceStatus::Up,
                              .MacAddress = "none",
                              .IpAddresses = {"127.0.0.1", "::1"}},
                             {.Name = "eth1",
                              .Status = EthInterfaceStatus::Down,
                              .MacAddress = "52:54:00:ab:cd:ef",
                              .IpAddresses = {}}},
       .FQDN = "host.example"},
      "<SystemUID>{0123abcd-0004-f00d-0102-030405060708}</SystemUID>"
      "<BiosUID>{fedcba98-7654-3210-fedc-ba9876543210}</BiosUID>"
      "<OsName>Debian GNU/Linux 12</OsName><OsId>debian</OsId>"
      "<OsVersion><major>12</major><minor>21</minor><revision>13</revision><build>14</build></OsVersion>"
      "<OsCodeName>bookworm</OsCodeName><OsKernelVersion>6.1.0-18-amd64</OsKernelVersion>"
      "<OsType>3</OsType><OsHardwarePlatform>5</OsHardwarePlatform><HostName>host</HostName>"
      "<NetworkInterfaces><item><Name>lo</Name><Status>1</Status><MacAddress>none</MacAddress>"
      "<IpAddresses><item>127.0.0.1</item></IpAddresses><IpAddresses><item>::1</item></IpAddresses>"
      "</item></NetworkInterfaces>"
      "<NetworkInterfaces><item><Name>eth1</Name><Status>2</Status>"
      "<MacAddress>52:54:00:ab:cd:ef</MacAddress></item></NetworkInterfaces>"
      "<FQDN>host.example</FQDN>"},
     {{},
      "<SystemUID>{00000000-0000-0000-0000-000000000000}</SystemUID>"
      "<BiosUID>{00000000-0000-0000-0000-000000000000}</BiosUID>"
      "<OsName></OsName><OsId></OsId>"
      "<OsVersion><major>0</major><minor>0</minor><revision>0</revision><build>0</build></OsVersion>"
      "<OsCodeName></OsCodeName><OsKernelVersion></OsKernelVersion><OsType>0</OsType>"
      "<OsHardwarePlatform>0</OsHardwarePlatform><HostName></HostName><FQDN></FQDN>"}})

ZAM_GOLDENS(
    SInstallationInfo,
    {{{.PackagesVersion = {.major = 6, .minor = 4, .revision = 3, .build = 2},
       .PackageForInstall = {"agent.deb", "driver.deb"},
       .IsKmodDriver = true,
       .IsInstallationSupported = true},
      "<PackagesVersion><major>6</major><minor>4</minor><revision>3</revision><build>2</build>"
      "</PackagesVersion><PackageForInstall><item>agent.deb</item></PackageForInstall>"
      "<PackageForInstall><item>driver.deb</item></PackageForInstall><IsKmodDriver>true</IsKmodDriver>"
      "<IsInstallationSupported>true</IsInstallationSupported>"},
     {{.PackagesVersion = {},
       .PackageForInstall = {},
       .IsKmodDriver = true,
       .IsInstallationSupported = false},
      "<PackagesVersion><major>0</major><minor>0</minor><revision>0</revision><build>0</build>"
      "</PackagesVersion><IsKmodDriver>true</IsKmodDriver>"
      "<IsInstallationSupported>false</IsInstallationSupported>"},
     {{.PackagesVersion = {},
       .PackageForInstall = {"c", "a", "b"},
       .IsKmodDriver = false,
       .IsInstallationSupported = true},
      "<PackagesVersion><major>0</major><minor>0</minor><revision>0</revision><build>0</build>"
      "</PackagesVersion><PackageForInstall><item>c</item></PackageForInstall>"
      "<PackageForInstall><item>a</item></PackageForInstall>"
      "<PackageForInstall><item>b</item></PackageForInstall><IsKmodDriver>false</IsKmodDriver>"
      "<IsInstallationSupported>true</IsInstallationSupported>"}})

ZAM_GOLDENS(SPackageInfo,
            {{{.Name = "zstd", .Description = "fast compressor", .VersionRaw = "1:2.3-4+deb12u1"},
              "<Name>zstd</Name><Description>fast compressor</Description>"
              "<VersionRaw>1:2.3-4+deb12u1</VersionRaw>"},
             {{.Name = "n\r\n", .Description = "gr\u00fcn", .VersionRaw = std::string("\0\1", 2)},
              "<Name>n&#13;\n</Name><Description>gr\u00fcn</Description>"
              "<VersionRaw encoding=\"base64\">AAE=</VersionRaw>"}})

}  // namespace zamtest
