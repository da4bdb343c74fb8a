// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the records of the installer.
#pragma once

#include <zamclientlib/InstallerRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

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
     {{},
      "<PackagesVersion><major>0</major><minor>0</minor><revision>0</revision><build>0</build>"
      "</PackagesVersion><IsKmodDriver>false</IsKmodDriver>"
      "<IsInstallationSupported>false</IsInstallationSupported>"},
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
             {{},  //
              "<Name></Name><Description></Description><VersionRaw></VersionRaw>"},
             {{.Name = "n\r\n", .Description = "gr\u00fcn", .VersionRaw = std::string("\0\1", 2)},
              "<Name>n&#13;\n</Name><Description>gr\u00fcn</Description>"
              "<VersionRaw encoding=\"base64\">AAE=</VersionRaw>"}})

}  // namespace zamtest
