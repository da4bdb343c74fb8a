// SPDX-License-Identifier: Apache-2.0
// The encoders of the enumerations.
#include <zamclientlib/Enums.h>

#include "src/EnumList.h"
#include "support/apigen/Encoders.h"

#define ZAM_INSTANTIATE(type) APIGEN_INSTANTIATE_PLAIN_ENCODERS(zamclientlib::type);

ZAM_FOR_EACH_ENUM(ZAM_INSTANTIATE)
