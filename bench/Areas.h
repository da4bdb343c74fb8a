// SPDX-License-Identifier: Apache-2.0
/// \file
/// What can be measured, each in a source of its own.
#pragma once

#include "bench/CBench.h"

namespace zambench {

void MeasureMemory(const CBench& bench);
void MeasureCalls(const CBench& bench);
void MeasureCodec(const CBench& bench);
void MeasureReceivedLists(const CBench& bench);
void MeasureObjects(const CBench& bench);
void MeasureEvents(const CBench& bench);
void MeasureConnect(const CBench& bench);
void MeasureGrowth(const CBench& bench);
void MeasureAgent(const CBench& bench);
void MeasureZamctl(const CBench& bench);

}  // namespace zambench
