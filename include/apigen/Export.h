// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a namespace block, or a function, as part of the binary interface; everything else is hidden. Free
/// functions are marked one by one: clang does not carry a namespace's mark to a definition elsewhere.
#define APIGEN_API __attribute__((visibility("default")))
