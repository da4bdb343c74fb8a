// SPDX-License-Identifier: Apache-2.0
/// \file
/// The writer of the text form.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string_view>

#include "support/apigen/CSmallArray.h"

namespace apigen APIGEN_API {

/// Writes the elements of a document, one behind the other, into a buffer of its own.
class CXmlWriter {
public:
    std::string_view Text() const { return {m_text.Data(), m_text.Size()}; }

    /// Drops everything behind the first `size` bytes.
    void CutTo(std::size_t size) { m_text.SetSize(size); }

    /// Begins an element that holds others; returns what `Close` wants to know.
    std::size_t Open(std::string_view key);

    /// Ends it. One that holds nothing gets the short form.
    void Close(std::string_view key, std::size_t opened);

    /// Writes markup as it is. `put` writes up to so many bytes to the place that it is given and returns the place
    /// behind them.
    template <class Put>
    void Markup(std::size_t bytes, Put put) {
        const char* const end = put(m_text.Room(bytes));
        m_text.SetSize(static_cast<std::size_t>(end - m_text.Data()));
    }

    /// Writes an element that holds `text`, whatever its bytes are.
    void Entry(std::string_view key, std::string_view text);

private:
    void EndTag(std::string_view key);
    void Append(std::string_view bytes);
    void AppendEscaped(std::string_view text);

    CSmallArray<char, 256> m_text;
};

}  // namespace apigen
