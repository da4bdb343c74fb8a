// SPDX-License-Identifier: Apache-2.0
// What is written to a descriptor, as a text.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace zamctl {

/// While one lives a standard stream is a file in memory, or what is given instead.
class CRedirected {
public:
    explicit CRedirected(int stream, int instead = ::memfd_create("output", MFD_CLOEXEC))
        : m_stream(stream), m_instead(instead), m_before(::dup(stream)) {
        std::fflush(nullptr);
        if (m_instead < 0 || m_before < 0 || ::dup2(m_instead, stream) < 0) {
            throw std::runtime_error("a stream can't be redirected");
        }
    }
    CRedirected(const CRedirected&) = delete;
    CRedirected& operator=(const CRedirected&) = delete;
    ~CRedirected() {
        std::fflush(nullptr);
        ::dup2(m_before, m_stream);
        ::close(m_before);
        ::close(m_instead);
    }

    [[nodiscard]] std::string Text() const {
        std::string text(static_cast<std::size_t>(::lseek(m_instead, 0, SEEK_END)), '\0');
        text.resize(static_cast<std::size_t>(::pread(m_instead, text.data(), text.size(), 0)));
        return text;
    }

private:
    int m_stream;
    int m_instead;
    int m_before;
};

}  // namespace zamctl
