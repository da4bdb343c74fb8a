// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the records that define a backup job.
#pragma once

#include <zamclientlib/JobConfigurationRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

ZAM_GOLDENS(SCredentials,
            {{{.Login = "scott", .Domain = "DB", .Password = {"tiger"}},
              "<Login>scott</Login><Domain>DB</Domain><Password><opt>tiger</opt></Password>"},
             {{},  //
              "<Login></Login><Domain></Domain>"},
             {{.Login = "a<b", .Domain = " ", .Password = {""}},
              "<Login>a&lt;b</Login><Domain> </Domain><Password><opt></opt></Password>"},
             {{.Login = "", .Domain = "", .Password = {"\x7f\xff"}},
              "<Login></Login><Domain></Domain><Password><opt encoding=\"base64\">f/8=</opt></Password>"}})

ZAM_GOLDENS(
    SBackupSourceInfo,
    {{{.BackupMode = JobBackupMode::FileLevel,
       .Objects = {{.Object = "/dev/sda", .Type = EVolumeBackupObjectType::Disk},
                   {.Object = "/home", .Type = EVolumeBackupObjectType::Directory}},
       .IncludeDirs = {"/etc", "/srv"},
       .ExcludeDirs = {"/proc"},
       .IncludeMasks = {"*.txt"},
       .ExcludeMasks = {"*.tmp", "*.bak", "core"},
       .shouldBackupUsbDrives = true,
       .shouldBackupUserProfiles = true},
      "<BackupMode>3</BackupMode>"
      "<Objects><item><Object>/dev/sda</Object><Type>1</Type></item></Objects>"
      "<Objects><item><Object>/home</Object><Type>5</Type></item></Objects>"
      "<IncludeDirs><item>/etc</item></IncludeDirs><IncludeDirs><item>/srv</item></IncludeDirs>"
      "<ExcludeDirs><item>/proc</item></ExcludeDirs><IncludeMasks><item>*.txt</item></IncludeMasks>"
      "<ExcludeMasks><item>*.tmp</item></ExcludeMasks><ExcludeMasks><item>*.bak</item></ExcludeMasks>"
      "<ExcludeMasks><item>core</item></ExcludeMasks><shouldBackupUsbDrives>true</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>true</shouldBackupUserProfiles>"},
     {{},
      "<BackupMode>0</BackupMode><shouldBackupUsbDrives>false</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>false</shouldBackupUserProfiles>"},
     {{.BackupMode = JobBackupMode{99},
       .Objects = {{}},
       .IncludeDirs = {},
       .ExcludeDirs = {"same", "same"},
       .IncludeMasks = {"", " "},
       .ExcludeMasks = {},
       .shouldBackupUsbDrives = true,
       .shouldBackupUserProfiles = false},
      "<BackupMode>99</BackupMode><Objects><item><Object></Object><Type>0</Type></item></Objects>"
      "<ExcludeDirs><item>same</item></ExcludeDirs><ExcludeDirs><item>same</item></ExcludeDirs>"
      "<IncludeMasks><item></item></IncludeMasks><IncludeMasks><item> </item></IncludeMasks>"
      "<shouldBackupUsbDrives>true</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>false</shouldBackupUserProfiles>"},
     {{.BackupMode = JobBackupMode{-1},
       .Objects = {},
       .IncludeDirs = {"/R&D"},
       .ExcludeDirs = {},
       .IncludeMasks = {},
       .ExcludeMasks = {std::string("\0", 1), "plain"},
       .shouldBackupUsbDrives = false,
       .shouldBackupUserProfiles = true},
      "<BackupMode>-1</BackupMode><IncludeDirs><item>/R&amp;D</item></IncludeDirs>"
      "<ExcludeMasks><item encoding=\"base64\">AA==</item></ExcludeMasks>"
      "<ExcludeMasks><item>plain</item></ExcludeMasks>"
      "<shouldBackupUsbDrives>false</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>true</shouldBackupUserProfiles>"}})

ZAM_GOLDENS(SEncryptionSettings,
            {{{.Password = {"correct horse"}, .PasswordHint = "battery"},
              "<Password><opt>correct horse</opt></Password><PasswordHint>battery</PasswordHint>"},
             {{},  //
              "<PasswordHint></PasswordHint>"},
             {{.Password = {" <&> "}, .PasswordHint = "\n"},
              "<Password><opt> &lt;&amp;&gt; </opt></Password><PasswordHint>\n</PasswordHint>"}})

ZAM_GOLDENS(
    SBackupStorageInfo,
    {{{.CompressionLevel = JobCompressionLevel::Extreme,
       .BlockSize = EKbBlockSize::Kb1024,
       .snapshotMode = ESnapshotMode::NoSnapshot,
       .EncryptionSettings = SEncryptionSettings{.Password = {"key"}, .PasswordHint = "lock"}},
      "<CompressionLevel>4</CompressionLevel><BlockSize>3</BlockSize><snapshotMode>2</snapshotMode>"
      "<EncryptionSettings><opt><Password><opt>key</opt></Password><PasswordHint>lock</PasswordHint></opt>"
      "</EncryptionSettings>"},
     {{}, "<CompressionLevel>0</CompressionLevel><BlockSize>0</BlockSize><snapshotMode>0</snapshotMode>"},
     {{.CompressionLevel = JobCompressionLevel{-1},
       .BlockSize = EKbBlockSize{4096},
       .snapshotMode = ESnapshotMode{2147483647},
       .EncryptionSettings = SEncryptionSettings{}},
      "<CompressionLevel>-1</CompressionLevel><BlockSize>4096</BlockSize>"
      "<snapshotMode>2147483647</snapshotMode>"
      "<EncryptionSettings><opt><PasswordHint></PasswordHint></opt></EncryptionSettings>"}})

ZAM_GOLDENS(
    SBackupIndexingInfo,
    {{{.IndexingType = BackupIndexingType::OnlyIncluded,
       .IncludedFolders = {"/var", "/opt"},
       .ExcludedFolders = {"/var/cache"}},
      "<IndexingType>2</IndexingType><IncludedFolders><item>/var</item></IncludedFolders>"
      "<IncludedFolders><item>/opt</item></IncludedFolders>"
      "<ExcludedFolders><item>/var/cache</item></ExcludedFolders>"},
     {{},  //
      "<IndexingType>0</IndexingType>"},
     {{.IndexingType = BackupIndexingType{99}, .IncludedFolders = {}, .ExcludedFolders = {"", "x", "\r"}},
      "<IndexingType>99</IndexingType><ExcludedFolders><item></item></ExcludedFolders>"
      "<ExcludedFolders><item>x</item></ExcludedFolders><ExcludedFolders><item>&#13;</item></"
      "ExcludedFolders>"}})

ZAM_GOLDENS(
    SBackupJobScriptInfo,
    {{{.PreJobScript = "pre.sh",
       .PostJobScript = "post.sh",
       .PreFreezeScript = "freeze.sh",
       .PostThawScript = "thaw.sh",
       .IgnoreSnapshotScriptsFailures = true,
       .ExecutionTimeout = {.seconds = 600, .milliseconds = 5}},
      "<PreJobScript>pre.sh</PreJobScript><PostJobScript>post.sh</PostJobScript>"
      "<PreFreezeScript>freeze.sh</PreFreezeScript><PostThawScript>thaw.sh</PostThawScript>"
      "<IgnoreSnapshotScriptsFailures>true</IgnoreSnapshotScriptsFailures>"
      "<ExecutionTimeout><seconds>600</seconds><milliseconds>5</milliseconds></ExecutionTimeout>"},
     {{},
      "<PreJobScript></PreJobScript><PostJobScript></PostJobScript><PreFreezeScript></PreFreezeScript>"
      "<PostThawScript></PostThawScript><IgnoreSnapshotScriptsFailures>false</IgnoreSnapshotScriptsFailures>"
      "<ExecutionTimeout><seconds>0</seconds><milliseconds>0</milliseconds></ExecutionTimeout>"},
     {{.PreJobScript = "a && b",
       .PostJobScript = "\t",
       .PreFreezeScript = "echo \"<x/>\"",
       .PostThawScript = "\b",
       .IgnoreSnapshotScriptsFailures = false,
       .ExecutionTimeout = {.seconds = -1, .milliseconds = 65535}},
      "<PreJobScript>a &amp;&amp; b</PreJobScript><PostJobScript>\t</PostJobScript>"
      "<PreFreezeScript>echo \"&lt;x/&gt;\"</PreFreezeScript>"
      "<PostThawScript encoding=\"base64\">CA==</PostThawScript>"
      "<IgnoreSnapshotScriptsFailures>false</IgnoreSnapshotScriptsFailures>"
      "<ExecutionTimeout><seconds>-1</seconds><milliseconds>65535</milliseconds></ExecutionTimeout>"}})

ZAM_GOLDENS(SBackupJobRetentionInfo,
            {{{.RestorePointsCount = 14, .RetainDays = 30UL},
              "<RestorePointsCount>14</RestorePointsCount><RetainDays><opt>30</opt></RetainDays>"},
             {{},  //
              "<RestorePointsCount>0</RestorePointsCount>"},
             {{.RestorePointsCount = -2147483647 - 1, .RetainDays = 18446744073709551615UL},
              "<RestorePointsCount>-2147483648</RestorePointsCount>"
              "<RetainDays><opt>18446744073709551615</opt></RetainDays>"},
             {{.RestorePointsCount = 2147483647, .RetainDays = 0UL},
              "<RestorePointsCount>2147483647</RestorePointsCount><RetainDays><opt>0</opt></RetainDays>"}})

ZAM_GOLDENS(SCalendarInfo,
            {{{.Type = ScheduleType::MonthlyByDay,
               .Days = 127,
               .Months = 4095,
               .WeekDayNumber = WeekDayNumberType::Last,
               .DayOfMonth = 31},
              "<Type>2</Type><Days>127</Days><Months>4095</Months><WeekDayNumber>5</WeekDayNumber>"
              "<DayOfMonth>31</DayOfMonth>"},
             {{},
              "<Type>0</Type><Days>0</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
              "<DayOfMonth>0</DayOfMonth>"},
             {{.Type = ScheduleType{-1},
               .Days = 4294967295,
               .Months = 2147483648,
               .WeekDayNumber = WeekDayNumberType{99},
               .DayOfMonth = 4294967294},
              "<Type>-1</Type><Days>4294967295</Days><Months>2147483648</Months>"
              "<WeekDayNumber>99</WeekDayNumber><DayOfMonth>4294967294</DayOfMonth>"}})

ZAM_GOLDENS(SActiveFullScheduleInfo,
            {{{.IsEnabled = true,
               .Calendar = {.Type = ScheduleType::MonthlyByWeekDay,
                            .Days = 64,
                            .Months = 9,
                            .WeekDayNumber = WeekDayNumberType::First,
                            .DayOfMonth = 2}},
              "<IsEnabled>true</IsEnabled><Calendar><Type>3</Type><Days>64</Days><Months>9</Months>"
              "<WeekDayNumber>1</WeekDayNumber><DayOfMonth>2</DayOfMonth></Calendar>"},
             {{},
              "<IsEnabled>false</IsEnabled><Calendar><Type>0</Type><Days>0</Days><Months>0</Months>"
              "<WeekDayNumber>0</WeekDayNumber><DayOfMonth>0</DayOfMonth></Calendar>"}})

ZAM_GOLDENS(SBackupScheduleInfo,
            {{{.IsEnabled = true,
               .TimeOfDay = {.seconds = 79200, .milliseconds = 500},
               .Calendar = {.Type = ScheduleType::Daily,
                            .Days = 31,
                            .Months = 2730,
                            .WeekDayNumber = WeekDayNumberType::Second,
                            .DayOfMonth = 15},
               .ActiveFullSchedule = {.IsEnabled = true,
                                      .Calendar = {.Type = ScheduleType::MonthlyByWeekDay,
                                                   .Days = 32,
                                                   .Months = 1365,
                                                   .WeekDayNumber = WeekDayNumberType::Fourth,
                                                   .DayOfMonth = 28}}},
              "<IsEnabled>true</IsEnabled>"
              "<TimeOfDay><seconds>79200</seconds><milliseconds>500</milliseconds></TimeOfDay>"
              "<Calendar><Type>1</Type><Days>31</Days><Months>2730</Months><WeekDayNumber>2</WeekDayNumber>"
              "<DayOfMonth>15</DayOfMonth></Calendar>"
              "<ActiveFullSchedule><IsEnabled>true</IsEnabled><Calendar><Type>3</Type><Days>32</Days>"
              "<Months>1365</Months><WeekDayNumber>4</WeekDayNumber><DayOfMonth>28</DayOfMonth></Calendar>"
              "</ActiveFullSchedule>"},
             {{},
              "<IsEnabled>false</IsEnabled>"
              "<TimeOfDay><seconds>0</seconds><milliseconds>0</milliseconds></TimeOfDay>"
              "<Calendar><Type>0</Type><Days>0</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
              "<DayOfMonth>0</DayOfMonth></Calendar>"
              "<ActiveFullSchedule><IsEnabled>false</IsEnabled><Calendar><Type>0</Type><Days>0</Days>"
              "<Months>0</Months><WeekDayNumber>0</WeekDayNumber><DayOfMonth>0</DayOfMonth></Calendar>"
              "</ActiveFullSchedule>"},
             {{.IsEnabled = true, .TimeOfDay = {}, .Calendar = {}, .ActiveFullSchedule = {}},
              "<IsEnabled>true</IsEnabled>"
              "<TimeOfDay><seconds>0</seconds><milliseconds>0</milliseconds></TimeOfDay>"
              "<Calendar><Type>0</Type><Days>0</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
              "<DayOfMonth>0</DayOfMonth></Calendar>"
              "<ActiveFullSchedule><IsEnabled>false</IsEnabled><Calendar><Type>0</Type><Days>0</Days>"
              "<Months>0</Months><WeekDayNumber>0</WeekDayNumber><DayOfMonth>0</DayOfMonth></Calendar>"
              "</ActiveFullSchedule>"}})

ZAM_GOLDENS(SOracleArchivedLogsTruncationConfig,
            {{{.TruncationMode = EArchivedLogsTruncationMode::BySize, .SizeGB = 10, .LifetimeHours = 48},
              "<TruncationMode>2</TruncationMode><SizeGB>10</SizeGB><LifetimeHours>48</LifetimeHours>"},
             {{},  //
              "<TruncationMode>0</TruncationMode><SizeGB>0</SizeGB><LifetimeHours>0</LifetimeHours>"},
             {{.TruncationMode = EArchivedLogsTruncationMode{-9},
               .SizeGB = 18446744073709551615UL,
               .LifetimeHours = 9223372036854775808UL},
              "<TruncationMode>-9</TruncationMode><SizeGB>18446744073709551615</SizeGB>"
              "<LifetimeHours>9223372036854775808</LifetimeHours>"}})

ZAM_GOLDENS(
    SOracleInfo,
    {{{.ProcessingType = EAapType::RequireSuccess,
       .Credentials = {.Login = "sys", .Domain = "ORA", .Password = {"change_on_install"}},
       .TruncationConfig = {.TruncationMode = EArchivedLogsTruncationMode::ByAge,
                            .SizeGB = 20,
                            .LifetimeHours = 72},
       .UseOracleCredential = true},
      "<ProcessingType>1</ProcessingType><Credentials><Login>sys</Login><Domain>ORA</Domain>"
      "<Password><opt>change_on_install</opt></Password></Credentials>"
      "<TruncationConfig><TruncationMode>3</TruncationMode><SizeGB>20</SizeGB>"
      "<LifetimeHours>72</LifetimeHours></TruncationConfig><UseOracleCredential>true</UseOracleCredential>"},
     {{},
      "<ProcessingType>0</ProcessingType><Credentials><Login></Login><Domain></Domain></Credentials>"
      "<TruncationConfig><TruncationMode>0</TruncationMode><SizeGB>0</SizeGB>"
      "<LifetimeHours>0</LifetimeHours></TruncationConfig>"
      "<UseOracleCredential>false</UseOracleCredential>"},
     {{.ProcessingType = EAapType{99},
       .Credentials = {},
       .TruncationConfig = {},
       .UseOracleCredential = true},
      "<ProcessingType>99</ProcessingType><Credentials><Login></Login><Domain></Domain></Credentials>"
      "<TruncationConfig><TruncationMode>0</TruncationMode><SizeGB>0</SizeGB>"
      "<LifetimeHours>0</LifetimeHours></TruncationConfig>"
      "<UseOracleCredential>true</UseOracleCredential>"}})

ZAM_GOLDENS(SMySQLInfo,
            {{{.ProcessingType = EAapType::IgnoreFailures,
               .Credentials = SCredentials{.Login = "admin", .Domain = "MY", .Password = {"sql"}},
               .AuthType = EMySQLAuthType::Password,
               .PasswordFilePath = {"/root/.my.cnf"}},
              "<ProcessingType>2</ProcessingType><Credentials><opt><Login>admin</Login><Domain>MY</Domain>"
              "<Password><opt>sql</opt></Password></opt></Credentials><AuthType>1</AuthType>"
              "<PasswordFilePath><opt>/root/.my.cnf</opt></PasswordFilePath>"},
             {{},  //
              "<ProcessingType>0</ProcessingType><AuthType>0</AuthType>"},
             {{.ProcessingType = EAapType{-1},
               .Credentials = SCredentials{},
               .AuthType = EMySQLAuthType{99},
               .PasswordFilePath = {}},
              "<ProcessingType>-1</ProcessingType><Credentials><opt><Login></Login><Domain></Domain></opt>"
              "</Credentials><AuthType>99</AuthType>"},
             {{.ProcessingType = EAapType::RequireSuccess,
               .Credentials = {},
               .AuthType = EMySQLAuthType::PasswordFile,
               .PasswordFilePath = {" "}},
              "<ProcessingType>1</ProcessingType><AuthType>2</AuthType>"
              "<PasswordFilePath><opt> </opt></PasswordFilePath>"}})

ZAM_GOLDENS(
    SPostgreSQLInfo,
    {{{.ProcessingType = EAapType::RequireSuccess,
       .Credentials = {.Login = "postgres", .Domain = "PG", .Password = {"elephant"}},
       .AuthType = EPostgreSQLAuthType::Peer},
      "<ProcessingType>1</ProcessingType><Credentials><Login>postgres</Login><Domain>PG</Domain>"
      "<Password><opt>elephant</opt></Password></Credentials><AuthType>3</AuthType>"},
     {{},
      "<ProcessingType>0</ProcessingType><Credentials><Login></Login><Domain></Domain></Credentials>"
      "<AuthType>0</AuthType>"},
     {{.ProcessingType = EAapType{7},
       .Credentials = {.Login = ">", .Domain = "", .Password = {}},
       .AuthType = EPostgreSQLAuthType{-7}},
      "<ProcessingType>7</ProcessingType><Credentials><Login>&gt;</Login><Domain></Domain></Credentials>"
      "<AuthType>-7</AuthType>"}})

ZAM_GOLDENS(
    SAapInfo,
    {{{.OracleInfo = SOracleInfo{.ProcessingType = EAapType::RequireSuccess,
                                 .Credentials = {.Login = "ol", .Domain = "od", .Password = {"op"}},
                                 .TruncationConfig = {.TruncationMode = EArchivedLogsTruncationMode::ByAge,
                                                      .SizeGB = 5,
                                                      .LifetimeHours = 24},
                                 .UseOracleCredential = true},
       .MySQLInfo = SMySQLInfo{.ProcessingType = EAapType::IgnoreFailures,
                               .Credentials = SCredentials{.Login = "ml", .Domain = "md", .Password = {"mp"}},
                               .AuthType = EMySQLAuthType{4},
                               .PasswordFilePath = {"mf"}},
       .PostgreSQLInfo = SPostgreSQLInfo{.ProcessingType = EAapType{6},
                                         .Credentials = {.Login = "pl", .Domain = "pd", .Password = {"pp"}},
                                         .AuthType = EPostgreSQLAuthType{7}}},
      "<OracleInfo><opt><ProcessingType>1</ProcessingType>"
      "<Credentials><Login>ol</Login><Domain>od</Domain><Password><opt>op</opt></Password></Credentials>"
      "<TruncationConfig><TruncationMode>3</TruncationMode><SizeGB>5</SizeGB>"
      "<LifetimeHours>24</LifetimeHours></TruncationConfig>"
      "<UseOracleCredential>true</UseOracleCredential></opt></OracleInfo>"
      "<MySQLInfo><opt><ProcessingType>2</ProcessingType>"
      "<Credentials><opt><Login>ml</Login><Domain>md</Domain><Password><opt>mp</opt></Password></opt>"
      "</Credentials><AuthType>4</AuthType><PasswordFilePath><opt>mf</opt></PasswordFilePath></opt>"
      "</MySQLInfo>"
      "<PostgreSQLInfo><opt><ProcessingType>6</ProcessingType>"
      "<Credentials><Login>pl</Login><Domain>pd</Domain><Password><opt>pp</opt></Password></Credentials>"
      "<AuthType>7</AuthType></opt></PostgreSQLInfo>"},
     {{},  //
      ""},
     {{.OracleInfo = {}, .MySQLInfo = SMySQLInfo{}, .PostgreSQLInfo = {}},
      "<MySQLInfo><opt><ProcessingType>0</ProcessingType><AuthType>0</AuthType></opt></MySQLInfo>"},
     {{.OracleInfo = SOracleInfo{}, .MySQLInfo = {}, .PostgreSQLInfo = SPostgreSQLInfo{}},
      "<OracleInfo><opt><ProcessingType>0</ProcessingType>"
      "<Credentials><Login></Login><Domain></Domain></Credentials>"
      "<TruncationConfig><TruncationMode>0</TruncationMode><SizeGB>0</SizeGB>"
      "<LifetimeHours>0</LifetimeHours></TruncationConfig>"
      "<UseOracleCredential>false</UseOracleCredential></opt></OracleInfo>"
      "<PostgreSQLInfo><opt><ProcessingType>0</ProcessingType>"
      "<Credentials><Login></Login><Domain></Domain></Credentials><AuthType>0</AuthType></opt>"
      "</PostgreSQLInfo>"}})

ZAM_GOLDENS(SRetriesInfo,
            {{{.AttemptsNum = 3, .TimeoutMs = 600000},
              "<AttemptsNum>3</AttemptsNum><TimeoutMs>600000</TimeoutMs>"},
             {{},  //
              "<AttemptsNum>0</AttemptsNum><TimeoutMs>0</TimeoutMs>"},
             {{.AttemptsNum = 18446744073709551615UL, .TimeoutMs = 18446744073709551614UL},
              "<AttemptsNum>18446744073709551615</AttemptsNum><TimeoutMs>18446744073709551614</TimeoutMs>"}})

ZAM_GOLDENS(
    SBackupJobConfigurationInfo,
    {{{.JobName = "all of it",
       .Source = {.BackupMode = JobBackupMode::VolumeLevel,
                  .Objects = {{.Object = "vg0", .Type = EVolumeBackupObjectType::BtrfsSubvolume}},
                  .IncludeDirs = {"/i1", "/i2"},
                  .ExcludeDirs = {"/x1"},
                  .IncludeMasks = {"*.i"},
                  .ExcludeMasks = {"*.x"},
                  .shouldBackupUsbDrives = true,
                  .shouldBackupUserProfiles = true},
       .RepositoryId = GuidOf("{c0f16000-0a0b-0c0d-0e0f-101112131415}"),
       .StorageInfo = {.CompressionLevel = JobCompressionLevel{11},
                       .BlockSize = EKbBlockSize{12},
                       .snapshotMode = ESnapshotMode{13},
                       .EncryptionSettings = SEncryptionSettings{.Password = {"pw"}, .PasswordHint = "hint"}},
       .IndexingInfo = {.IndexingType = BackupIndexingType{14},
                        .IncludedFolders = {"/f1"},
                        .ExcludedFolders = {"/f2"}},
       .ScriptInfo = SBackupJobScriptInfo{.PreJobScript = "s1",
                                          .PostJobScript = "s2",
                                          .PreFreezeScript = "s3",
                                          .PostThawScript = "s4",
                                          .IgnoreSnapshotScriptsFailures = true,
                                          .ExecutionTimeout = {.seconds = 15, .milliseconds = 16}},
       .RetentionInfo = {.RestorePointsCount = 17, .RetainDays = 18UL},
       .ScheduleInfo = {.IsEnabled = true,
                        .TimeOfDay = {.seconds = 19, .milliseconds = 20},
                        .Calendar = {.Type = ScheduleType{21},
                                     .Days = 22,
                                     .Months = 23,
                                     .WeekDayNumber = WeekDayNumberType{24},
                                     .DayOfMonth = 25},
                        .ActiveFullSchedule = {.IsEnabled = true,
                                               .Calendar = {.Type = ScheduleType{26},
                                                            .Days = 27,
                                                            .Months = 28,
                                                            .WeekDayNumber = WeekDayNumberType{29},
                                                            .DayOfMonth = 30}}},
       .AapInfo =
           {.OracleInfo = SOracleInfo{.ProcessingType = EAapType{31},
                                      .Credentials = {.Login = "l1", .Domain = "d1", .Password = {"p1"}},
                                      .TruncationConfig = {.TruncationMode = EArchivedLogsTruncationMode{32},
                                                           .SizeGB = 33,
                                                           .LifetimeHours = 34},
                                      .UseOracleCredential = true},
            .MySQLInfo =
                SMySQLInfo{.ProcessingType = EAapType{35},
                           .Credentials = SCredentials{.Login = "l2", .Domain = "d2", .Password = {"p2"}},
                           .AuthType = EMySQLAuthType{36},
                           .PasswordFilePath = {"file"}},
            .PostgreSQLInfo =
                SPostgreSQLInfo{.ProcessingType = EAapType{37},
                                .Credentials = {.Login = "l3", .Domain = "d3", .Password = {"p3"}},
                                .AuthType = EPostgreSQLAuthType{38}}},
       .UserData = "{\"mine\": 1}",
       .RetriesInfo = SRetriesInfo{.AttemptsNum = 39, .TimeoutMs = 40}},
      "<JobName>all of it</JobName>"
      "<Source><BackupMode>2</BackupMode><Objects><item><Object>vg0</Object><Type>7</Type></item></Objects>"
      "<IncludeDirs><item>/i1</item></IncludeDirs><IncludeDirs><item>/i2</item></IncludeDirs>"
      "<ExcludeDirs><item>/x1</item></ExcludeDirs><IncludeMasks><item>*.i</item></IncludeMasks>"
      "<ExcludeMasks><item>*.x</item></ExcludeMasks><shouldBackupUsbDrives>true</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>true</shouldBackupUserProfiles></Source>"
      "<RepositoryId>{c0f16000-0a0b-0c0d-0e0f-101112131415}</RepositoryId>"
      "<StorageInfo><CompressionLevel>11</CompressionLevel><BlockSize>12</BlockSize>"
      "<snapshotMode>13</snapshotMode><EncryptionSettings><opt><Password><opt>pw</opt></Password>"
      "<PasswordHint>hint</PasswordHint></opt></EncryptionSettings></StorageInfo>"
      "<IndexingInfo><IndexingType>14</IndexingType><IncludedFolders><item>/f1</item></IncludedFolders>"
      "<ExcludedFolders><item>/f2</item></ExcludedFolders></IndexingInfo>"
      "<ScriptInfo><opt><PreJobScript>s1</PreJobScript><PostJobScript>s2</PostJobScript>"
      "<PreFreezeScript>s3</PreFreezeScript><PostThawScript>s4</PostThawScript>"
      "<IgnoreSnapshotScriptsFailures>true</IgnoreSnapshotScriptsFailures>"
      "<ExecutionTimeout><seconds>15</seconds><milliseconds>16</milliseconds></ExecutionTimeout></opt>"
      "</ScriptInfo>"
      "<RetentionInfo><RestorePointsCount>17</RestorePointsCount><RetainDays><opt>18</opt></RetainDays>"
      "</RetentionInfo>"
      "<ScheduleInfo><IsEnabled>true</IsEnabled>"
      "<TimeOfDay><seconds>19</seconds><milliseconds>20</milliseconds></TimeOfDay>"
      "<Calendar><Type>21</Type><Days>22</Days><Months>23</Months><WeekDayNumber>24</WeekDayNumber>"
      "<DayOfMonth>25</DayOfMonth></Calendar>"
      "<ActiveFullSchedule><IsEnabled>true</IsEnabled><Calendar><Type>26</Type><Days>27</Days>"
      "<Months>28</Months><WeekDayNumber>29</WeekDayNumber><DayOfMonth>30</DayOfMonth></Calendar>"
      "</ActiveFullSchedule></ScheduleInfo>"
      "<AapInfo><OracleInfo><opt><ProcessingType>31</ProcessingType>"
      "<Credentials><Login>l1</Login><Domain>d1</Domain><Password><opt>p1</opt></Password></Credentials>"
      "<TruncationConfig><TruncationMode>32</TruncationMode><SizeGB>33</SizeGB>"
      "<LifetimeHours>34</LifetimeHours></TruncationConfig>"
      "<UseOracleCredential>true</UseOracleCredential></opt></OracleInfo>"
      "<MySQLInfo><opt><ProcessingType>35</ProcessingType>"
      "<Credentials><opt><Login>l2</Login><Domain>d2</Domain><Password><opt>p2</opt></Password></opt>"
      "</Credentials><AuthType>36</AuthType><PasswordFilePath><opt>file</opt></PasswordFilePath></opt>"
      "</MySQLInfo>"
      "<PostgreSQLInfo><opt><ProcessingType>37</ProcessingType>"
      "<Credentials><Login>l3</Login><Domain>d3</Domain><Password><opt>p3</opt></Password></Credentials>"
      "<AuthType>38</AuthType></opt></PostgreSQLInfo></AapInfo>"
      "<UserData>{\"mine\": 1}</UserData>"
      "<RetriesInfo><opt><AttemptsNum>39</AttemptsNum><TimeoutMs>40</TimeoutMs></opt></RetriesInfo>"},
     {{},
      "<JobName></JobName>"
      "<Source><BackupMode>0</BackupMode><shouldBackupUsbDrives>false</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>false</shouldBackupUserProfiles></Source>"
      "<RepositoryId>{00000000-0000-0000-0000-000000000000}</RepositoryId>"
      "<StorageInfo><CompressionLevel>0</CompressionLevel><BlockSize>0</BlockSize>"
      "<snapshotMode>0</snapshotMode></StorageInfo>"
      "<IndexingInfo><IndexingType>0</IndexingType></IndexingInfo>"
      "<RetentionInfo><RestorePointsCount>0</RestorePointsCount></RetentionInfo>"
      "<ScheduleInfo><IsEnabled>false</IsEnabled>"
      "<TimeOfDay><seconds>0</seconds><milliseconds>0</milliseconds></TimeOfDay>"
      "<Calendar><Type>0</Type><Days>0</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
      "<DayOfMonth>0</DayOfMonth></Calendar>"
      "<ActiveFullSchedule><IsEnabled>false</IsEnabled><Calendar><Type>0</Type><Days>0</Days>"
      "<Months>0</Months><WeekDayNumber>0</WeekDayNumber><DayOfMonth>0</DayOfMonth></Calendar>"
      "</ActiveFullSchedule></ScheduleInfo><AapInfo/><UserData></UserData>"},
     {{.JobName = "\t",
       .Source = {},
       .RepositoryId = {},
       .StorageInfo = {},
       .IndexingInfo = {},
       .ScriptInfo = {},
       .RetentionInfo = {},
       .ScheduleInfo = {},
       .AapInfo = {},
       .UserData = std::string("\x1f\x8b\0", 3),
       .RetriesInfo = SRetriesInfo{}},
      "<JobName>\t</JobName>"
      "<Source><BackupMode>0</BackupMode><shouldBackupUsbDrives>false</shouldBackupUsbDrives>"
      "<shouldBackupUserProfiles>false</shouldBackupUserProfiles></Source>"
      "<RepositoryId>{00000000-0000-0000-0000-000000000000}</RepositoryId>"
      "<StorageInfo><CompressionLevel>0</CompressionLevel><BlockSize>0</BlockSize>"
      "<snapshotMode>0</snapshotMode></StorageInfo>"
      "<IndexingInfo><IndexingType>0</IndexingType></IndexingInfo>"
      "<RetentionInfo><RestorePointsCount>0</RestorePointsCount></RetentionInfo>"
      "<ScheduleInfo><IsEnabled>false</IsEnabled>"
      "<TimeOfDay><seconds>0</seconds><milliseconds>0</milliseconds></TimeOfDay>"
      "<Calendar><Type>0</Type><Days>0</Days><Months>0</Months><WeekDayNumber>0</WeekDayNumber>"
      "<DayOfMonth>0</DayOfMonth></Calendar>"
      "<ActiveFullSchedule><IsEnabled>false</IsEnabled><Calendar><Type>0</Type><Days>0</Days>"
      "<Months>0</Months><WeekDayNumber>0</WeekDayNumber><DayOfMonth>0</DayOfMonth></Calendar>"
      "</ActiveFullSchedule></ScheduleInfo><AapInfo/><UserData encoding=\"base64\">H4sA</UserData>"
      "<RetriesInfo><opt><AttemptsNum>0</AttemptsNum><TimeoutMs>0</TimeoutMs></opt></RetriesInfo>"}})

}  // namespace zamtest
