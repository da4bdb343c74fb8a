// SPDX-License-Identifier: Apache-2.0
/// \file
/// A file that stands in no folder, for what reads an input from a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "tests/fuzz/Check.h"

class CMemoryFile {
public:
    CMemoryFile() : m_descriptor(::memfd_create("input", MFD_CLOEXEC)) {
        Require(m_descriptor >= 0, "there is memory for a file");
    }

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

    void Fill(const void* data, std::size_t size) const {
        Require(::ftruncate(m_descriptor, static_cast<off_t>(size)) == 0 &&
                    ::pwrite(m_descriptor, data, size, 0) == static_cast<ssize_t>(size),
                "there is room in memory");
    }

private:
    int m_descriptor;  // closed with the program
};
