// SPDX-License-Identifier: Apache-2.0
/// \file
/// Whether a sanitizer watches, which has memory, descriptors and locks of its own.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define ZAM_ADDRESS_SANITIZER
#elif defined(__SANITIZE_THREAD__)
#define ZAM_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZAM_ADDRESS_SANITIZER
#elif __has_feature(thread_sanitizer)
#define ZAM_THREAD_SANITIZER
#endif
#endif

namespace tests {

#ifdef ZAM_THREAD_SANITIZER
inline constexpr bool IsThreadSanitized = true;
#else
inline constexpr bool IsThreadSanitized = false;
#endif

#ifdef ZAM_ADDRESS_SANITIZER
inline constexpr bool IsSanitized = true;
#else
inline constexpr bool IsSanitized = IsThreadSanitized;
#endif

/// Of so many random tries, those that are made: what a sanitizer watches takes several times as long, and the fuzzers
/// try far more.
constexpr int Tries(int plain) {
    return IsSanitized ? plain / 4 : plain;
}

}  // namespace tests
