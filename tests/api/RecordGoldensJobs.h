// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the records of the product, its owner, jobs, sessions and restore points.
#pragma once

#include <zamclientlib/JobRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

ZAM_GOLDENS(
    SZamProductInfo,
    {{{.InstanceGuid = GuidOf("{10203040-5060-7080-90a0-b0c0d0e0f001}"),
       .ProductId = GuidOf("{10203040-5060-7080-90a0-b0c0d0e0f002}"),
       .Name = "Agent",
       .Version = "7.1 beta"},
      "<InstanceGuid>{10203040-5060-7080-90a0-b0c0d0e0f001}</InstanceGuid>"
      "<ProductId>{10203040-5060-7080-90a0-b0c0d0e0f002}</ProductId>"
      "<Name>Agent</Name><Version>7.1 beta</Version>"},
     {{},
      "<InstanceGuid>{00000000-0000-0000-0000-000000000000}</InstanceGuid>"
      "<ProductId>{00000000-0000-0000-0000-000000000000}</ProductId><Name></Name><Version></Version>"},
     {{.InstanceGuid = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"),
       .ProductId = GuidOf("{00000001-0002-0003-0004-000000000005}"),
       .Name = "A & B",
       .Version = "\r"},
      "<InstanceGuid>{ffffffff-ffff-ffff-ffff-ffffffffffff}</InstanceGuid>"
      "<ProductId>{00000001-0002-0003-0004-000000000005}</ProductId>"
      "<Name>A &amp; B</Name><Version>&#13;</Version>"}})

ZAM_GOLDENS(SZamControlOwnerInfo,
            {{{.Id = GuidOf("{0ace0ace-1111-2222-3333-444455556666}"),
               .Name = "console",
               .Type = ZAMOwnerType::CloudProvider,
               .Mode = ZAMOwnerMode::Exclusive},
              "<Id>{0ace0ace-1111-2222-3333-444455556666}</Id><Name>console</Name><Type>4</Type>"
              "<Mode>3</Mode>"},
             {{}, "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name></Name><Type>0</Type><Mode>0</Mode>"},
             {{.Id = {}, .Name = "\t \n", .Type = ZAMOwnerType{99}, .Mode = ZAMOwnerMode{-2147483647 - 1}},
              "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name>\t \n</Name><Type>99</Type>"
              "<Mode>-2147483648</Mode>"}})

ZAM_GOLDENS(SBackupJobInfo,
            {{{.Id = GuidOf("{abcdef01-2345-6789-abcd-ef0123456789}"),
               .Name = "nightly",
               .Enabled = true,
               .LastBackupTimeUtc = SDateTime{.seconds = 1700000000, .milliseconds = 250}},
              "<Id>{abcdef01-2345-6789-abcd-ef0123456789}</Id><Name>nightly</Name><Enabled>true</Enabled>"
              "<LastBackupTimeUtc><opt><seconds>1700000000</seconds><milliseconds>250</milliseconds></opt>"
              "</LastBackupTimeUtc>"},
             {{}, "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name></Name><Enabled>false</Enabled>"},
             {{.Id = {}, .Name = "\xc3\x28", .Enabled = false, .LastBackupTimeUtc = SDateTime{}},
              "<Id>{00000000-0000-0000-0000-000000000000}</Id><Name encoding=\"base64\">wyg=</Name>"
              "<Enabled>false</Enabled><LastBackupTimeUtc><opt><seconds>0</seconds>"
              "<milliseconds>0</milliseconds></opt></LastBackupTimeUtc>"}})

ZAM_GOLDENS(SJobStartOptions,
            {{{.Retries = EJobStartRetriesMode::Enabled,
               .Priority = EJobStartPriorityMode::High,
               .ActiveFull = EJobStartActiveFullMode::Disabled,
               .SnapshotMode = EJobStartSnapshotMode{4}},
              "<Retries><opt>1</opt></Retries><Priority><opt>3</opt></Priority>"
              "<ActiveFull><opt>2</opt></ActiveFull><SnapshotMode><opt>4</opt></SnapshotMode>"},
             {{},  //
              ""},
             {{.Retries = EJobStartRetriesMode::Default,
               .Priority = {},
               .ActiveFull = EJobStartActiveFullMode{-7},
               .SnapshotMode = {}},
              "<Retries><opt>0</opt></Retries><ActiveFull><opt>-7</opt></ActiveFull>"},
             {{.Retries = {},
               .Priority = EJobStartPriorityMode{2147483647},
               .ActiveFull = {},
               .SnapshotMode = EJobStartSnapshotMode::Enabled},
              "<Priority><opt>2147483647</opt></Priority>"
              "<SnapshotMode><opt>1</opt></SnapshotMode>"}})

ZAM_GOLDENS(SCheckJobValidityMessage, {{{.Message = "no repository", .MessageType = ELogDetailType::Error},
                                        "<Message>no repository</Message><MessageType>4</MessageType>"},
                                       {{},  //
                                        "<Message></Message><MessageType>0</MessageType>"},
                                       {{.Message = " \"1 < 2\" ", .MessageType = ELogDetailType{-5}},
                                        "<Message> \"1 &lt; 2\" </Message><MessageType>-5</MessageType>"}})

ZAM_GOLDENS(SVolumeBackupObject, {{{.Object = "/dev/vg0/root", .Type = EVolumeBackupObjectType::Lvm},
                                   "<Object>/dev/vg0/root</Object><Type>4</Type>"},
                                  {{},  //
                                   "<Object></Object><Type>0</Type>"},
                                  {{.Object = std::string("/\0", 2), .Type = EVolumeBackupObjectType{1000}},
                                   "<Object encoding=\"base64\">LwA=</Object><Type>1000</Type>"}})

ZAM_GOLDENS(SResolveObjectInfo,
            {{{.SourceInput = "sda1",
               .DisplayName = "/dev/sda1",
               .ResolveDetails = "ext4, 20 GB",
               .ObjectType = EVolumeBackupObjectType::Volume},
              "<SourceInput>sda1</SourceInput><DisplayName>/dev/sda1</DisplayName>"
              "<ResolveDetails>ext4, 20 GB</ResolveDetails><ObjectType>2</ObjectType>"},
             {{},
              "<SourceInput></SourceInput><DisplayName></DisplayName><ResolveDetails></ResolveDetails>"
              "<ObjectType>0</ObjectType>"},
             {{.SourceInput = "&amp;",
               .DisplayName = "  ",
               .ResolveDetails = "line\nline",
               .ObjectType = EVolumeBackupObjectType{-1}},
              "<SourceInput>&amp;amp;</SourceInput><DisplayName>  </DisplayName>"
              "<ResolveDetails>line\nline</ResolveDetails><ObjectType>-1</ObjectType>"}})

ZAM_GOLDENS(SLogDetail,
            {{{.Type = ELogDetailType::Warning,
               .Usn = GuidOf("{00c0ffee-00c0-ffee-00c0-ffee00c0ffee}"),
               .Message = "disk nearly full"},
              "<Type>3</Type><Usn>{00c0ffee-00c0-ffee-00c0-ffee00c0ffee}</Usn>"
              "<Message>disk nearly full</Message>"},
             {{}, "<Type>0</Type><Usn>{00000000-0000-0000-0000-000000000000}</Usn><Message></Message>"},
             {{.Type = ELogDetailType{99}, .Usn = {}, .Message = "\x1b[1mbold"},
              "<Type>99</Type><Usn>{00000000-0000-0000-0000-000000000000}</Usn>"
              "<Message encoding=\"base64\">G1sxbWJvbGQ=</Message>"}})

ZAM_GOLDENS(SJobSessionRetriesInfo,
            {{{.IsJobAwaitingForRetry = true, .InitialRetriesNumber = 5, .CurrentAttemptNumber = 2},
              "<IsJobAwaitingForRetry>true</IsJobAwaitingForRetry>"
              "<InitialRetriesNumber>5</InitialRetriesNumber><CurrentAttemptNumber>2</CurrentAttemptNumber>"},
             {{},
              "<IsJobAwaitingForRetry>false</IsJobAwaitingForRetry>"
              "<InitialRetriesNumber>0</InitialRetriesNumber><CurrentAttemptNumber>0</CurrentAttemptNumber>"},
             {{.IsJobAwaitingForRetry = false,
               .InitialRetriesNumber = 18446744073709551615UL,
               .CurrentAttemptNumber = 9223372036854775808UL},
              "<IsJobAwaitingForRetry>false</IsJobAwaitingForRetry>"
              "<InitialRetriesNumber>18446744073709551615</InitialRetriesNumber>"
              "<CurrentAttemptNumber>9223372036854775808</CurrentAttemptNumber>"}})

ZAM_GOLDENS(
    SBackupJobSessionInfo,
    {{{.Uid = GuidOf("{5e551000-0000-0000-0000-000000000001}"),
       .JobUid = GuidOf("{5e551000-0000-0000-0000-000000000002}"),
       .PointId = GuidOf("{5e551000-0000-0000-0000-000000000003}"),
       .OibId = GuidOf("{5e551000-0000-0000-0000-000000000004}"),
       .Usn = 7001,
       .JobName = "weekly",
       .JobDetails = {{.Type = ELogDetailType::Info,
                       .Usn = GuidOf("{5e551000-0000-0000-0000-000000000005}"),
                       .Message = "started"},
                      {.Type = ELogDetailType::Success,
                       .Usn = GuidOf("{5e551000-0000-0000-0000-000000000006}"),
                       .Message = "done"}},
       .State = JobState::Postprocessing,
       .Result = JobResult::Failed,
       .StartTimeUtc = {.seconds = 1690000001, .milliseconds = 101},
       .EndTimeUtc = {.seconds = 1690000002, .milliseconds = 102},
       .SessionAlgorithm = JobSessionAlgorithm{9},
       .SourceLoad = 61,
       .ProxyLoad = 62,
       .NetworkLoad = 63,
       .TargetLoad = 64,
       .SourceWanLoad = 65,
       .TargetWanLoad = 66,
       .ReadSizeBytes = 90001,
       .BackedUpSizeBytes = 90002,
       .TransferredSizeBytes = 90003,
       .ProcessingRateByteInSec = 90004,
       .TypeOfJob = JobType{12},
       .OriginalSessionId = GuidOf("{5e551000-0000-0000-0000-000000000007}"),
       .PercentCompleted = 77,
       .BackupDestination = "vault",
       .RepositorySizeInfo = SBackupRepositorySizeInfo{.Capacity = 800000, .FreeSpace = 300000},
       .RetriesInfo = SJobSessionRetriesInfo{.IsJobAwaitingForRetry = true,
                                             .InitialRetriesNumber = 15,
                                             .CurrentAttemptNumber = 14}},
      "<Uid>{5e551000-0000-0000-0000-000000000001}</Uid>"
      "<JobUid>{5e551000-0000-0000-0000-000000000002}</JobUid>"
      "<PointId>{5e551000-0000-0000-0000-000000000003}</PointId>"
      "<OibId>{5e551000-0000-0000-0000-000000000004}</OibId>"
      "<Usn>7001</Usn><JobName>weekly</JobName>"
      "<JobDetails><item><Type>1</Type><Usn>{5e551000-0000-0000-0000-000000000005}</Usn>"
      "<Message>started</Message></item></JobDetails>"
      "<JobDetails><item><Type>2</Type><Usn>{5e551000-0000-0000-0000-000000000006}</Usn>"
      "<Message>done</Message></item></JobDetails>"
      "<State>8</State><Result>3</Result>"
      "<StartTimeUtc><seconds>1690000001</seconds><milliseconds>101</milliseconds></StartTimeUtc>"
      "<EndTimeUtc><seconds>1690000002</seconds><milliseconds>102</milliseconds></EndTimeUtc>"
      "<SessionAlgorithm>9</SessionAlgorithm><SourceLoad>61</SourceLoad><ProxyLoad>62</ProxyLoad>"
      "<NetworkLoad>63</NetworkLoad><TargetLoad>64</TargetLoad><SourceWanLoad>65</SourceWanLoad>"
      "<TargetWanLoad>66</TargetWanLoad><ReadSizeBytes>90001</ReadSizeBytes>"
      "<BackedUpSizeBytes>90002</BackedUpSizeBytes><TransferredSizeBytes>90003</TransferredSizeBytes>"
      "<ProcessingRateByteInSec>90004</ProcessingRateByteInSec><TypeOfJob>12</TypeOfJob>"
      "<OriginalSessionId>{5e551000-0000-0000-0000-000000000007}</OriginalSessionId>"
      "<PercentCompleted>77</PercentCompleted><BackupDestination>vault</BackupDestination>"
      "<RepositorySizeInfo><opt><Capacity>800000</Capacity><FreeSpace>300000</FreeSpace></opt>"
      "</RepositorySizeInfo>"
      "<RetriesInfo><opt><IsJobAwaitingForRetry>true</IsJobAwaitingForRetry>"
      "<InitialRetriesNumber>15</InitialRetriesNumber><CurrentAttemptNumber>14</CurrentAttemptNumber></opt>"
      "</RetriesInfo>"},
     {{},
      "<Uid>{00000000-0000-0000-0000-000000000000}</Uid>"
      "<JobUid>{00000000-0000-0000-0000-000000000000}</JobUid>"
      "<PointId>{00000000-0000-0000-0000-000000000000}</PointId>"
      "<OibId>{00000000-0000-0000-0000-000000000000}</OibId>"
      "<Usn>0</Usn><JobName></JobName><State>0</State><Result>0</Result>"
      "<StartTimeUtc><seconds>0</seconds><milliseconds>0</milliseconds></StartTimeUtc>"
      "<EndTimeUtc><seconds>0</seconds><milliseconds>0</milliseconds></EndTimeUtc>"
      "<SessionAlgorithm>0</SessionAlgorithm><SourceLoad>0</SourceLoad><ProxyLoad>0</ProxyLoad>"
      "<NetworkLoad>0</NetworkLoad><TargetLoad>0</TargetLoad><SourceWanLoad>0</SourceWanLoad>"
      "<TargetWanLoad>0</TargetWanLoad><ReadSizeBytes>0</ReadSizeBytes>"
      "<BackedUpSizeBytes>0</BackedUpSizeBytes><TransferredSizeBytes>0</TransferredSizeBytes>"
      "<ProcessingRateByteInSec>0</ProcessingRateByteInSec><TypeOfJob>0</TypeOfJob>"
      "<OriginalSessionId>{00000000-0000-0000-0000-000000000000}</OriginalSessionId>"
      "<PercentCompleted>0</PercentCompleted><BackupDestination></BackupDestination>"},
     {{.Uid = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"),
       .JobUid = {},
       .PointId = {},
       .OibId = {},
       .Usn = -9223372036854775807L - 1,
       .JobName = "a&b\r",
       .JobDetails = {{}, {.Type = ELogDetailType{-1}, .Usn = {}, .Message = " "}, {}},
       .State = JobState{-1},
       .Result = JobResult{99},
       .StartTimeUtc = {.seconds = -1, .milliseconds = 65535},
       .EndTimeUtc = {.seconds = 9223372036854775807L, .milliseconds = 0},
       .SessionAlgorithm = JobSessionAlgorithm{2147483647},
       .SourceLoad = -2147483647 - 1,
       .ProxyLoad = 2147483647,
       .NetworkLoad = -1,
       .TargetLoad = 0,
       .SourceWanLoad = 100,
       .TargetWanLoad = -100,
       .ReadSizeBytes = 18446744073709551615UL,
       .BackedUpSizeBytes = -9223372036854775807L - 1,
       .TransferredSizeBytes = 9223372036854775807L,
       .ProcessingRateByteInSec = -1,
       .TypeOfJob = JobType{-2147483647 - 1},
       .OriginalSessionId = {},
       .PercentCompleted = 65535,
       .BackupDestination = "\x01",
       .RepositorySizeInfo = SBackupRepositorySizeInfo{.Capacity = -1, .FreeSpace = -1},
       .RetriesInfo = {}},
      "<Uid>{ffffffff-ffff-ffff-ffff-ffffffffffff}</Uid>"
      "<JobUid>{00000000-0000-0000-0000-000000000000}</JobUid>"
      "<PointId>{00000000-0000-0000-0000-000000000000}</PointId>"
      "<OibId>{00000000-0000-0000-0000-000000000000}</OibId>"
      "<Usn>-9223372036854775808</Usn><JobName>a&amp;b&#13;</JobName>"
      "<JobDetails><item><Type>0</Type><Usn>{00000000-0000-0000-0000-000000000000}</Usn><Message></Message>"
      "</item></JobDetails>"
      "<JobDetails><item><Type>-1</Type><Usn>{00000000-0000-0000-0000-000000000000}</Usn>"
      "<Message> </Message></item></JobDetails>"
      "<JobDetails><item><Type>0</Type><Usn>{00000000-0000-0000-0000-000000000000}</Usn><Message></Message>"
      "</item></JobDetails>"
      "<State>-1</State><Result>99</Result>"
      "<StartTimeUtc><seconds>-1</seconds><milliseconds>65535</milliseconds></StartTimeUtc>"
      "<EndTimeUtc><seconds>9223372036854775807</seconds><milliseconds>0</milliseconds></EndTimeUtc>"
      "<SessionAlgorithm>2147483647</SessionAlgorithm><SourceLoad>-2147483648</SourceLoad>"
      "<ProxyLoad>2147483647</ProxyLoad><NetworkLoad>-1</NetworkLoad><TargetLoad>0</TargetLoad>"
      "<SourceWanLoad>100</SourceWanLoad><TargetWanLoad>-100</TargetWanLoad>"
      "<ReadSizeBytes>18446744073709551615</ReadSizeBytes>"
      "<BackedUpSizeBytes>-9223372036854775808</BackedUpSizeBytes>"
      "<TransferredSizeBytes>9223372036854775807</TransferredSizeBytes>"
      "<ProcessingRateByteInSec>-1</ProcessingRateByteInSec><TypeOfJob>-2147483648</TypeOfJob>"
      "<OriginalSessionId>{00000000-0000-0000-0000-000000000000}</OriginalSessionId>"
      "<PercentCompleted>65535</PercentCompleted>"
      "<BackupDestination encoding=\"base64\">AQ==</BackupDestination>"
      "<RepositorySizeInfo><opt><Capacity>-1</Capacity><FreeSpace>-1</FreeSpace></opt>"
      "</RepositorySizeInfo>"}})

ZAM_GOLDENS(
    SRestoreOib,
    {{{.Id = GuidOf("{01b00000-0102-0304-0506-0708090a0b0c}"),
       .CreationTimeUtc = {.seconds = 1680000000, .milliseconds = 31},
       .ApproxSize = 123456789,
       .StorageSize = 23456789,
       .Type = RestorePointType::Increment},
      "<Id>{01b00000-0102-0304-0506-0708090a0b0c}</Id>"
      "<CreationTimeUtc><seconds>1680000000</seconds><milliseconds>31</milliseconds></CreationTimeUtc>"
      "<ApproxSize>123456789</ApproxSize><StorageSize>23456789</StorageSize><Type>2</Type>"},
     {{},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id>"
      "<CreationTimeUtc><seconds>0</seconds><milliseconds>0</milliseconds></CreationTimeUtc>"
      "<ApproxSize>0</ApproxSize><StorageSize>0</StorageSize><Type>0</Type>"},
     {{.Id = {},
       .CreationTimeUtc = {.seconds = -1, .milliseconds = 1000},
       .ApproxSize = 18446744073709551615UL,
       .StorageSize = 9223372036854775808UL,
       .Type = RestorePointType{-3}},
      "<Id>{00000000-0000-0000-0000-000000000000}</Id>"
      "<CreationTimeUtc><seconds>-1</seconds><milliseconds>1000</milliseconds></CreationTimeUtc>"
      "<ApproxSize>18446744073709551615</ApproxSize><StorageSize>9223372036854775808</StorageSize>"
      "<Type>-3</Type>"}})

}  // namespace zamtest
