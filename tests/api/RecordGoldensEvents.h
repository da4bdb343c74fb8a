// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the records of the event stream.
#pragma once

#include <zamclientlib/EventRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

ZAM_GOLDENS(SEventConfigV1,
            {{{.socketPath = "/run/agent/events.sock"},  //
              "<socketPath>/run/agent/events.sock</socketPath>"},
             {{},  //
              "<socketPath></socketPath>"},
             {{.socketPath = " /tmp/<a> & b "}, "<socketPath> /tmp/&lt;a&gt; &amp; b </socketPath>"},
             {{.socketPath = std::string("\0abstract", 9)},
              "<socketPath encoding=\"base64\">AGFic3RyYWN0</socketPath>"}})

ZAM_GOLDENS(SEventConfig, {{{.v1 = SEventConfigV1{.socketPath = "/run/e"}},
                            "<v1><opt><socketPath>/run/e</socketPath></opt></v1>"},
                           {{},  //
                            ""},
                           {{.v1 = SEventConfigV1{}},  //
                            "<v1><opt><socketPath></socketPath></opt></v1>"}})

ZAM_GOLDENS(SEventBackupJobCreated,
            {{{.JobId = GuidOf("{c4ea7ed0-0001-0002-0304-050607080910}"), .Username = "ann"},
              "<JobId>{c4ea7ed0-0001-0002-0304-050607080910}</JobId><Username>ann</Username>"},
             {{},  //
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username></Username>"},
             {{.JobId = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"), .Username = "DOMAIN\\a&b"},
              "<JobId>{ffffffff-ffff-ffff-ffff-ffffffffffff}</JobId><Username>DOMAIN\\a&amp;b</Username>"}})

ZAM_GOLDENS(SEventBackupJobDeleted,
            {{{.JobId = GuidOf("{de1e7ed0-0001-0002-0304-050607080911}"), .Username = "bob"},
              "<JobId>{de1e7ed0-0001-0002-0304-050607080911}</JobId><Username>bob</Username>"},
             {{},  //
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username></Username>"},
             {{.JobId = {}, .Username = " "},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username> </Username>"}})

ZAM_GOLDENS(SEventBackupJobModified,
            {{{.JobId = GuidOf("{30d1f1ed-0001-0002-0304-050607080912}"), .Username = "cid"},
              "<JobId>{30d1f1ed-0001-0002-0304-050607080912}</JobId><Username>cid</Username>"},
             {{},  //
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username></Username>"},
             {{.JobId = {}, .Username = "\xed\xa0\x80"},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
              "<Username encoding=\"base64\">7aCA</Username>"}})

ZAM_GOLDENS(SEventBackupSourceUpdated,
            {{{.JobId = GuidOf("{50c4ce00-0001-0002-0304-050607080913}"), .Username = "dot"},
              "<JobId>{50c4ce00-0001-0002-0304-050607080913}</JobId><Username>dot</Username>"},
             {{},  //
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username></Username>"},
             {{.JobId = {}, .Username = "\r\n"},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username>&#13;\n</Username>"}})

ZAM_GOLDENS(SEventBackupModeChanged,
            {{{.JobId = GuidOf("{30de0000-0001-0002-0304-050607080914}"), .Username = "eve"},
              "<JobId>{30de0000-0001-0002-0304-050607080914}</JobId><Username>eve</Username>"},
             {{},  //
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username></Username>"},
             {{.JobId = {}, .Username = "\U0001f600"},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId><Username>\U0001f600</Username>"}})

ZAM_GOLDENS(SEventBackupJobFinished, {{{.JobId = GuidOf("{f1217500-0001-0002-0304-050607080915}"),
                                        .SessionId = GuidOf("{f1217500-0001-0002-0304-050607080916}"),
                                        .Status = JobSessionTaskStatus::Canceled,
                                        .JobMode = JobBackupMode::FileLevel},
                                       "<JobId>{f1217500-0001-0002-0304-050607080915}</JobId>"
                                       "<SessionId>{f1217500-0001-0002-0304-050607080916}</SessionId>"
                                       "<Status>6</Status><JobMode>3</JobMode>"},
                                      {{},
                                       "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
                                       "<SessionId>{00000000-0000-0000-0000-000000000000}</SessionId>"
                                       "<Status>0</Status><JobMode>0</JobMode>"},
                                      {{.JobId = {},
                                        .SessionId = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"),
                                        .Status = JobSessionTaskStatus{-2147483647 - 1},
                                        .JobMode = JobBackupMode{2147483647}},
                                       "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
                                       "<SessionId>{ffffffff-ffff-ffff-ffff-ffffffffffff}</SessionId>"
                                       "<Status>-2147483648</Status><JobMode>2147483647</JobMode>"}})

ZAM_GOLDENS(SEventBackupJobStarted,
            {{{.JobId = GuidOf("{57a47ed0-0001-0002-0304-050607080917}"),
               .SessionId = GuidOf("{57a47ed0-0001-0002-0304-050607080918}"),
               .Username = "fay",
               .JobMode = JobBackupMode::EntireMachine},
              "<JobId>{57a47ed0-0001-0002-0304-050607080917}</JobId>"
              "<SessionId>{57a47ed0-0001-0002-0304-050607080918}</SessionId>"
              "<Username>fay</Username><JobMode>1</JobMode>"},
             {{},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
              "<SessionId>{00000000-0000-0000-0000-000000000000}</SessionId>"
              "<Username></Username><JobMode>0</JobMode>"},
             {{.JobId = {}, .SessionId = {}, .Username = "<root>", .JobMode = JobBackupMode{99}},
              "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
              "<SessionId>{00000000-0000-0000-0000-000000000000}</SessionId>"
              "<Username>&lt;root&gt;</Username><JobMode>99</JobMode>"}})

ZAM_GOLDENS(SEventBackupJobRetried, {{{.JobId = GuidOf("{4e741ed0-0001-0002-0304-050607080919}"),
                                       .SessionId = GuidOf("{4e741ed0-0001-0002-0304-050607080920}")},
                                      "<JobId>{4e741ed0-0001-0002-0304-050607080919}</JobId>"
                                      "<SessionId>{4e741ed0-0001-0002-0304-050607080920}</SessionId>"},
                                     {{},
                                      "<JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
                                      "<SessionId>{00000000-0000-0000-0000-000000000000}</SessionId>"}})

ZAM_GOLDENS(
    SBaseEvent,
    {{{.Type = EEventType{42},
       .Id = 9000000000,
       .CreateTimeUTC = {.seconds = 1710000000, .milliseconds = 512},
       .SourceType = EEventSourceType::Service,
       .ControlSessionId = GuidOf("{ba5eeee0-1001-2002-3003-400450056000}"),
       .eventBackupJobCreated =
           SEventBackupJobCreated{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056001}"),
                                  .Username = "u1"},
       .eventBackupJobDeleted =
           SEventBackupJobDeleted{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056002}"),
                                  .Username = "u2"},
       .eventBackupJobModified =
           SEventBackupJobModified{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056003}"),
                                   .Username = "u3"},
       .eventBackupSourceUpdated =
           SEventBackupSourceUpdated{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056004}"),
                                     .Username = "u4"},
       .eventBackupModeChanged =
           SEventBackupModeChanged{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056005}"),
                                   .Username = "u5"},
       .eventBackupJobFinished =
           SEventBackupJobFinished{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056006}"),
                                   .SessionId = GuidOf("{ba5eeee0-1001-2002-3003-400450056007}"),
                                   .Status = JobSessionTaskStatus::Failed,
                                   .JobMode = JobBackupMode::VolumeLevel},
       .eventBackupJobStarted =
           SEventBackupJobStarted{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-400450056008}"),
                                  .SessionId = GuidOf("{ba5eeee0-1001-2002-3003-400450056009}"),
                                  .Username = "u6",
                                  .JobMode = JobBackupMode::EntireMachine},
       .eventBackupJobRetried =
           SEventBackupJobRetried{.JobId = GuidOf("{ba5eeee0-1001-2002-3003-40045005600a}"),
                                  .SessionId = GuidOf("{ba5eeee0-1001-2002-3003-40045005600b}")}},
      "<Type>42</Type><Id>9000000000</Id>"
      "<CreateTimeUTC><seconds>1710000000</seconds><milliseconds>512</milliseconds></CreateTimeUTC>"
      "<SourceType>3</SourceType><ControlSessionId>{ba5eeee0-1001-2002-3003-400450056000}</ControlSessionId>"
      "<eventBackupJobCreated><opt><JobId>{ba5eeee0-1001-2002-3003-400450056001}</JobId>"
      "<Username>u1</Username></opt></eventBackupJobCreated>"
      "<eventBackupJobDeleted><opt><JobId>{ba5eeee0-1001-2002-3003-400450056002}</JobId>"
      "<Username>u2</Username></opt></eventBackupJobDeleted>"
      "<eventBackupJobModified><opt><JobId>{ba5eeee0-1001-2002-3003-400450056003}</JobId>"
      "<Username>u3</Username></opt></eventBackupJobModified>"
      "<eventBackupSourceUpdated><opt><JobId>{ba5eeee0-1001-2002-3003-400450056004}</JobId>"
      "<Username>u4</Username></opt></eventBackupSourceUpdated>"
      "<eventBackupModeChanged><opt><JobId>{ba5eeee0-1001-2002-3003-400450056005}</JobId>"
      "<Username>u5</Username></opt></eventBackupModeChanged>"
      "<eventBackupJobFinished><opt><JobId>{ba5eeee0-1001-2002-3003-400450056006}</JobId>"
      "<SessionId>{ba5eeee0-1001-2002-3003-400450056007}</SessionId><Status>5</Status><JobMode>2</JobMode>"
      "</opt></eventBackupJobFinished>"
      "<eventBackupJobStarted><opt><JobId>{ba5eeee0-1001-2002-3003-400450056008}</JobId>"
      "<SessionId>{ba5eeee0-1001-2002-3003-400450056009}</SessionId><Username>u6</Username>"
      "<JobMode>1</JobMode></opt></eventBackupJobStarted>"
      "<eventBackupJobRetried><opt><JobId>{ba5eeee0-1001-2002-3003-40045005600a}</JobId>"
      "<SessionId>{ba5eeee0-1001-2002-3003-40045005600b}</SessionId></opt></eventBackupJobRetried>"},
     {{},
      "<Type>0</Type><Id>0</Id>"
      "<CreateTimeUTC><seconds>0</seconds><milliseconds>0</milliseconds></CreateTimeUTC>"
      "<SourceType>0</SourceType><ControlSessionId>{00000000-0000-0000-0000-000000000000}</"
      "ControlSessionId>"},
     {{.Type = EEventType{-2147483647 - 1},
       .Id = 18446744073709551615UL,
       .CreateTimeUTC = {.seconds = -1, .milliseconds = 65535},
       .SourceType = EEventSourceType{2147483647},
       .ControlSessionId = GuidOf("{ffffffff-ffff-ffff-ffff-ffffffffffff}"),
       .eventBackupJobCreated = {},
       .eventBackupJobDeleted = SEventBackupJobDeleted{},
       .eventBackupJobModified = {},
       .eventBackupSourceUpdated = {},
       .eventBackupModeChanged = {},
       .eventBackupJobFinished = {},
       .eventBackupJobStarted = {},
       .eventBackupJobRetried = SEventBackupJobRetried{}},
      "<Type>-2147483648</Type><Id>18446744073709551615</Id>"
      "<CreateTimeUTC><seconds>-1</seconds><milliseconds>65535</milliseconds></CreateTimeUTC>"
      "<SourceType>2147483647</SourceType>"
      "<ControlSessionId>{ffffffff-ffff-ffff-ffff-ffffffffffff}</ControlSessionId>"
      "<eventBackupJobDeleted><opt><JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
      "<Username></Username></opt></eventBackupJobDeleted>"
      "<eventBackupJobRetried><opt><JobId>{00000000-0000-0000-0000-000000000000}</JobId>"
      "<SessionId>{00000000-0000-0000-0000-000000000000}</SessionId></opt></eventBackupJobRetried>"}})

}  // namespace zamtest
