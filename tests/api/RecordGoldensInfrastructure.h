// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the records of repositories and servers.
#pragma once

#include <zamclientlib/InfrastructureRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

ZAM_GOLDENS(SServerConnectionInfo,
            {{{.Address = "backup.example", .Port = 10006},
              "<Address>backup.example</Address><Port>10006</Port>"},
             {{},  //
              "<Address></Address><Port>0</Port>"},
             {{.Address = " [2001:db8::1] & co", .Port = -2147483647 - 1},
              "<Address> [2001:db8::1] &amp; co</Address><Port>-2147483648</Port>"},
             {{.Address = "\t", .Port = 2147483647}, "<Address>\t</Address><Port>2147483647</Port>"}})

ZAM_GOLDENS(
    SGatewayInfo,
    {{{.Connection = {.Address = "gate.example", .Port = 6180}, .Priority = 3},
      "<Connection><Address>gate.example</Address><Port>6180</Port></Connection><Priority>3</Priority>"},
     {{},  //
      "<Connection><Address></Address><Port>0</Port></Connection><Priority>0</Priority>"},
     {{.Connection = {.Address = "<none>", .Port = 70000}, .Priority = 65535},
      "<Connection><Address>&lt;none&gt;</Address><Port>70000</Port></Connection>"
      "<Priority>65535</Priority>"}})

ZAM_GOLDENS(
    SSharedFolderInfo,
    {{{.FolderType = SharedFolderType::Smb,
       .Directory = "//nas.example/backups",
       .Username = "keeper",
       .Domain = "OFFICE",
       .Password = {"s3cret"}},
      "<FolderType>2</FolderType><Directory>//nas.example/backups</Directory><Username>keeper</Username>"
      "<Domain>OFFICE</Domain><Password><opt>s3cret</opt></Password>"},
     {{},  //
      "<FolderType>0</FolderType><Directory></Directory><Username></Username><Domain></Domain>"},
     {{.FolderType = SharedFolderType{-1},
       .Directory = "a\r\nb",
       .Username = "\"quoted\" 'twice'",
       .Domain = "   ",
       .Password = {""}},
      "<FolderType>-1</FolderType><Directory>a&#13;\nb</Directory><Username>\"quoted\" 'twice'</Username>"
      "<Domain>   </Domain><Password><opt></opt></Password>"},
     {{.FolderType = SharedFolderType::Nfs,
       .Directory = "nas:/export",
       .Username = "",
       .Domain = "",
       .Password = std::string("a\0b", 3)},
      "<FolderType>1</FolderType><Directory>nas:/export</Directory><Username></Username><Domain></Domain>"
      "<Password><opt encoding=\"base64\">YQBi</opt></Password>"}})

ZAM_GOLDENS(
    SBackupRepositoryInfo,
    {{{.Id = GuidOf("{11111111-2222-3333-4444-555555555501}"),
       .Name = "main store",
       .OriginalName = {"old store"},
       .Type = BackupTargetType::Cloud,
       .Location = "/srv/backups",
       .ServerId = GuidOf("{11111111-2222-3333-4444-555555555502}"),
       .SharedFolderInfo = SSharedFolderInfo{.FolderType = SharedFolderType::Nfs,
                                             .Directory = "nas:/export/b",
                                             .Username = "mounter",
                                             .Domain = "HOME",
                                             .Password = {"hush"}}},
      "<Id>{11111111-2222-3333-4444-555555555501}</Id><Name>main store</Name>"
      "<OriginalName><opt>old store</opt></OriginalName><Type>4</Type><Location>/srv/backups</Location>"
      "<ServerId><opt>{11111111-2222-3333-4444-555555555502}</opt></ServerId>"
      "<SharedFolderInfo><opt><FolderType>1</FolderType><Directory>nas:/export/b</Directory>"
      "<Username>mounter</Username><Domain>HOME</Domain><Password><opt>hush</opt></Password></opt>"
      "</SharedFolderInfo>"},
     {{}, "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name></Name><Type>0</Type><Location></Location>"},
     {{.Id = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"),
       .Name = "\xff",
       .OriginalName = {},
       .Type = BackupTargetType{99},
       .Location = "\n",
       .ServerId = {},
       .SharedFolderInfo = SSharedFolderInfo{}},
      "<Id>{ffffffff-ffff-ffff-ffff-ffffffffffff}</Id><Name encoding=\"base64\">/w==</Name>"
      "<Type>99</Type><Location>\n</Location>"
      "<SharedFolderInfo><opt><FolderType>0</FolderType><Directory></Directory><Username></Username>"
      "<Domain></Domain></opt></SharedFolderInfo>"},
     {{.Id = {},
       .Name = "n",
       .OriginalName = {""},
       .Type = BackupTargetType::ObjectStorage,
       .Location = "bucket",
       .ServerId = apigen::Guid{},
       .SharedFolderInfo = {}},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name>n</Name>"
      "<OriginalName><opt></opt></OriginalName><Type>5</Type><Location>bucket</Location>"
      "<ServerId><opt>{00000000-0000-0000-0000-000000000000}</opt></ServerId>"}})

ZAM_GOLDENS(SBackupRepositorySizeInfo,
            {{{.Capacity = 4398046511104, .FreeSpace = 1099511627776},
              "<Capacity>4398046511104</Capacity><FreeSpace>1099511627776</FreeSpace>"},
             {{},  //
              "<Capacity>0</Capacity><FreeSpace>0</FreeSpace>"},
             {{.Capacity = -9223372036854775807L - 1, .FreeSpace = 9223372036854775807L},
              "<Capacity>-9223372036854775808</Capacity><FreeSpace>9223372036854775807</FreeSpace>"}})

ZAM_GOLDENS(
    SBackupServerInfo,
    {{{.Id = GuidOf("{0a0b0c0d-0e0f-1011-1213-141516171819}"),
       .Name = "central",
       .Connection = {{.Address = "one.example", .Port = 10005}, {.Address = "192.0.2.2", .Port = 443}},
       .Username = "agent",
       .Domain = "CORP",
       .Password = {"open sesame"},
       .OnlyForRestore = true},
      "<Id>{0a0b0c0d-0e0f-1011-1213-141516171819}</Id><Name>central</Name>"
      "<Connection><item><Address>one.example</Address><Port>10005</Port></item></Connection>"
      "<Connection><item><Address>192.0.2.2</Address><Port>443</Port></item></Connection>"
      "<Username>agent</Username><Domain>CORP</Domain><Password><opt>open sesame</opt></Password>"
      "<OnlyForRestore>true</OnlyForRestore>"},
     {{},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name></Name><Username></Username><Domain></Domain>"
      "<OnlyForRestore>false</OnlyForRestore>"},
     {{.Id = {},
       .Name = "ser<v>er",
       .Connection = {{}, {.Address = "b", .Port = -1}, {}},
       .Username = "\x07",
       .Domain = "d\u00e9",
       .Password = {" & "},
       .OnlyForRestore = false},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name>ser&lt;v&gt;er</Name>"
      "<Connection><item><Address></Address><Port>0</Port></item></Connection>"
      "<Connection><item><Address>b</Address><Port>-1</Port></item></Connection>"
      "<Connection><item><Address></Address><Port>0</Port></item></Connection>"
      "<Username encoding=\"base64\">Bw==</Username><Domain>d\u00e9</Domain>"
      "<Password><opt> &amp; </opt></Password><OnlyForRestore>false</OnlyForRestore>"}})

ZAM_GOLDENS(SCloudServiceProviderPassword,
            {{{.Value = "tok-en", .Type = ECloudServiceProviderPasswordType::Token},
              "<Value>tok-en</Value><Type>3</Type>"},
             {{},  //
              "<Value></Value><Type>0</Type>"},
             {{.Value = "]]>", .Type = ECloudServiceProviderPasswordType{2147483647}},
              "<Value>]]&gt;</Value><Type>2147483647</Type>"}})

ZAM_GOLDENS(
    SCloudServiceProviderInfo,
    {{{.Id = GuidOf("{c10d0000-0001-0002-0304-05060708090a}"),
       .Name = "cumulus",
       .Connection = {{.Address = "cloud.example", .Port = 6443}},
       .Username = "tenant",
       .Password = SCloudServiceProviderPassword{.Value = "rain",
                                                 .Type = ECloudServiceProviderPasswordType::Hashed},
       .TrustedThumbprint = "AB:CD:EF"},
      "<Id>{c10d0000-0001-0002-0304-05060708090a}</Id><Name>cumulus</Name>"
      "<Connection><item><Address>cloud.example</Address><Port>6443</Port></item></Connection>"
      "<Username>tenant</Username><Password><opt><Value>rain</Value><Type>2</Type></opt></Password>"
      "<TrustedThumbprint>AB:CD:EF</TrustedThumbprint>"},
     {{},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name></Name><Username></Username>"
      "<TrustedThumbprint></TrustedThumbprint>"},
     {{.Id = {},
       .Name = " ",
       .Connection = {{.Address = "z", .Port = 2}, {.Address = "y", .Port = 1}, {.Address = "z", .Port = 2}},
       .Username = "",
       .Password = SCloudServiceProviderPassword{},
       .TrustedThumbprint = "\xef\xbf\xbe"},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name> </Name>"
      "<Connection><item><Address>z</Address><Port>2</Port></item></Connection>"
      "<Connection><item><Address>y</Address><Port>1</Port></item></Connection>"
      "<Connection><item><Address>z</Address><Port>2</Port></item></Connection><Username></Username>"
      "<Password><opt><Value></Value><Type>0</Type></opt></Password>"
      "<TrustedThumbprint encoding=\"base64\">77++</TrustedThumbprint>"}})

}  // namespace zamtest
