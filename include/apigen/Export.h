// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a namespace block or a class as part of the binary interface; everything else is hidden.
#define APIGEN_API __attribute__((visibility("default")))
