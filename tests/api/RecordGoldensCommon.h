// SPDX-License-Identifier: Apache-2.0
/// \file
/// Golden texts of the small values that other records embed.
#pragma once

#include <zamclientlib/CommonRecords.h>

#include "tests/api/RecordGoldensBase.h"

namespace zamtest {

ZAM_GOLDENS(SVersion, {{{.major = 1, .minor = 2, .revision = 3, .build = 345},
                        "<major>1</major><minor>2</minor><revision>3</revision><build>345</build>"},
                       {{},  //
                        "<major>0</major><minor>0</minor><revision>0</revision><build>0</build>"},
                       {{.major = 65535, .minor = 0, .revision = 65535, .build = 9},
                        "<major>65535</major><minor>0</minor><revision>65535</revision><build>9</build>"}})

ZAM_GOLDENS(SCompatibilityInfo,
            {{{.protocolVersion = {.major = 2, .minor = 5, .revision = 7, .build = 11}},
              "<protocolVersion><major>2</major><minor>5</minor><revision>7</revision><build>11</build>"
              "</protocolVersion>"},
             {{},
              "<protocolVersion><major>0</major><minor>0</minor><revision>0</revision><build>0</build>"
              "</protocolVersion>"}})

ZAM_GOLDENS(SDateTime, {{{.seconds = 1636120989, .milliseconds = 42},
                         "<seconds>1636120989</seconds><milliseconds>42</milliseconds>"},
                        {{},  //
                         "<seconds>0</seconds><milliseconds>0</milliseconds>"},
                        {{.seconds = -9223372036854775807L - 1, .milliseconds = 999},
                         "<seconds>-9223372036854775808</seconds><milliseconds>999</milliseconds>"}})

ZAM_GOLDENS(STimeSpan, {{{.seconds = 86400, .milliseconds = 7},
                         "<seconds>86400</seconds><milliseconds>7</milliseconds>"},
                        {{},  //
                         "<seconds>0</seconds><milliseconds>0</milliseconds>"},
                        {{.seconds = 9223372036854775807L, .milliseconds = 65535},
                         "<seconds>9223372036854775807</seconds><milliseconds>65535</milliseconds>"}})

}  // namespace zamtest
