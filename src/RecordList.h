// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every record of the API, for what is instantiated for each.
#pragma once

#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/InstallerRecords.h>

#define ZAM_FOR_EACH_RECORD(apply)                                                                        \
    apply(SVersion) apply(SCompatibilityInfo) apply(SDateTime) apply(STimeSpan) apply(SSystemInformation) \
        apply(SEthInterfaceInfo) apply(SInstallationInfo) apply(SPackageInfo)
