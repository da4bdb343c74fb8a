// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a fuzzer reports that an input broke a promise.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the program, so that the fuzzer keeps the input, unless `complaint` is empty.
inline void Check(const std::string& complaint) {
    if (complaint.empty()) return;
    std::fprintf(stderr, "%s\n", complaint.c_str());
    std::abort();
}
