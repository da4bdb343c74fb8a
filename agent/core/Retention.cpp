// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Retention.h"
