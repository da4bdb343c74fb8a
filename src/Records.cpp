// SPDX-License-Identifier: Apache-2.0
// The encoders of the records.
#include "src/RecordList.h"
#include "support/apigen/Encoders.h"

#define ZAM_INSTANTIATE(type) APIGEN_INSTANTIATE_ENCODER(zamclientlib::type);

ZAM_FOR_EACH_RECORD(ZAM_INSTANTIATE)
