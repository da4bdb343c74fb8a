// SPDX-License-Identifier: Apache-2.0
/// \file
/// Each record as a value and as its text on the wire, written down by hand.
#pragma once

#include "tests/api/RecordGoldensCommon.h"
#include "tests/api/RecordGoldensEvents.h"
#include "tests/api/RecordGoldensInfrastructure.h"
#include "tests/api/RecordGoldensInstaller.h"
#include "tests/api/RecordGoldensJobConfiguration.h"
#include "tests/api/RecordGoldensJobs.h"
