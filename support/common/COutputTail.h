// SPDX-License-Identifier: Apache-2.0
/// \file
/// The end of an output of any length.
#pragma once

#include <apigen/Export.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace apigen::common {

/// Keeps the last bytes that were appended, in constant memory.
class APIGEN_API COutputTail {
public:
    static constexpr std::size_t MaxBytes = 4096;
    static constexpr std::size_t MaxLines = 20;

    void Append(std::string_view bytes) noexcept;

    /// The last lines, each escaped; led by an ellipsis when more had come. Empty when nothing but line ends
    /// came.
    std::string Text() const;

private:
    std::array<char, MaxBytes> m_ring{};
    std::size_t m_total = 0;
};

}  // namespace apigen::common
