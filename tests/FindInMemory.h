// SPDX-License-Identifier: Apache-2.0
/// \file
/// What another process keeps in its memory.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>

namespace tests {

/// How often, and where, a process's memory holds the text whose inversion is `hidden`.
inline std::map<std::string, int> FindInMemory(pid_t pid, const std::string& hidden) {
    std::map<std::string, int> found;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    const int memory = ::open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    if (memory < 0) return {{"unreadable", 1}};
    for (std::string line; std::getline(maps, line);) {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        char permissions[5] = {};
        if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s", &begin, &end, permissions) != 3)
            continue;
        if (permissions[0] != 'r' || permissions[1] != 'w') continue;
        std::string bytes(end - begin, '\0');
        const ssize_t count = ::pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(begin));
        if (count <= 0) continue;
        for (char& byte : bytes)
            byte = static_cast<char>(~byte);
        const std::size_t name = line.find_first_of("/[");
        for (std::size_t at = bytes.find(hidden); at != std::string::npos; at = bytes.find(hidden, at + 1))
            ++found[name == std::string::npos ? "anonymous" : line.substr(name)];
    }
    ::close(memory);
    return found;
}

/// Found neither in this program nor in what it sends, unless it is there in the clear.
inline std::string Inverted(std::string text) {
    for (char& byte : text)
        byte = static_cast<char>(~byte);
    return text;
}

}  // namespace tests
