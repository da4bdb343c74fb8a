// SPDX-License-Identifier: Apache-2.0
// What suits many short runs: freed memory is watched for some time, not for ever, and remembers few frames.
// ASAN_OPTIONS has the last word.

// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers' names
extern "C" __attribute__((used, visibility("default"))) const char* __asan_default_options() {
    return "quarantine_size_mb=4:thread_local_quarantine_size_kb=64:malloc_context_size=2:max_malloc_fill_"
           "size=64:"
           "detect_leaks=1:strict_string_checks=1";
}
extern "C" __attribute__((used, visibility("default"))) const char* __ubsan_default_options() {
    return "print_stacktrace=1";
}
// NOLINTEND(bugprone-reserved-identifier)
