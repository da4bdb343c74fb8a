// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a fuzzer reports that an input broke a promise, and how it takes an input apart.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// Ends the program, so that the fuzzer keeps the input, unless `complaint` is empty.
inline void Check(const std::string& complaint) {
    if (complaint.empty()) return;
    std::fprintf(stderr, "Broken promise: %s\n", complaint.c_str());
    std::abort();
}

/// As `Check`, for what costs nothing as long as the promise holds.
inline void Require(bool holds, const char* promise, std::string_view about = {}) {
    if (!holds) Check(std::string(promise) + ": " + std::string(about));
}

/// An input, from its beginning to its end.
class CInput {
public:
    CInput(const std::uint8_t* data, std::size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

    bool IsEmpty() const { return m_rest.empty(); }
    std::string_view Rest() const { return m_rest; }

    /// 0 when nothing is left.
    unsigned char Byte() {
        const std::string_view byte = Take(1);
        return byte.empty() ? 0 : static_cast<unsigned char>(byte.front());
    }

    /// So many bytes, or what is left.
    std::string_view Take(std::size_t size) {
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    /// Up to a line feed, which is dropped.
    std::string_view Line() {
        const std::string_view line = Take(std::min(m_rest.find('\n'), m_rest.size()));
        Take(1);
        return line;
    }

private:
    std::string_view m_rest;
};
