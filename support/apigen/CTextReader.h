// SPDX-License-Identifier: Apache-2.0
/// \file
/// The short way from a text to a record, without a document between.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

/// Goes once through a text that is just what `CXmlWriter` makes of the entries that are asked for, in their
/// order.
///
/// It never refuses a text; it says that it doesn't know it. Whoever wants an answer then, be it a record or
/// what is wrong with the text, parses the text into a document.
class CTextCursor {
public:
    explicit CTextCursor(std::string_view text) : m_at(text.data()), m_end(text.data() + text.size()) {}

    /// The element `key` begins here.
    bool IsAtStart(std::string_view key) const;

    /// Steps into the element `key`, and out of it. The text is given up when it stands elsewhere.
    /// \return false for one in the short form: it holds nothing, and the cursor stands behind it already
    bool Open(std::string_view key);
    void Close(std::string_view key);

    /// Steps over the entry `key`; empty when the text is given up. Valid until the next call.
    std::string_view Text(std::string_view key);

    /// Nothing is left, and all there was is known.
    bool IsWhollyRead() const { return m_isKnown && m_at == m_end; }

    void GiveUp() {
        m_isKnown = false;
        m_at = m_end;
    }

private:
    const char* Unescape(const char* from, const char* at);

    const char* m_at;
    const char* m_end;
    bool m_isKnown = true;
    std::string m_unescaped;
};

/// Reads the entries of one element. A text that is given up reads as empty from there on.
class CTextReader {
public:
    /// Of an element that the cursor stands in.
    explicit CTextReader(CTextCursor& cursor) : m_cursor(cursor) {}
    /// Of the element `key`, which the cursor stands before.
    CTextReader(CTextCursor& cursor, std::string_view key)
        : m_cursor(cursor), m_key(key), m_isEmpty(!m_cursor.Open(key)) {}
    CTextReader(const CTextReader&) = delete;
    CTextReader& operator=(const CTextReader&) = delete;

    bool Has(std::string_view key) const { return !m_isEmpty && m_cursor.IsAtStart(key); }
    std::string_view Text(std::string_view key) {
        RequireContent();
        return m_cursor.Text(key);
    }
    CTextReader Child(std::string_view key) {
        RequireContent();
        return {m_cursor, key};
    }

    /// To be called on a child when everything in it is read.
    void End() {
        if (!m_isEmpty) m_cursor.Close(m_key);
    }

    std::size_t Count(std::string_view /*key*/, std::size_t /*entryBytes*/) const { return 0; }

    void ForEachChild(std::string_view key, void (*readEntry)(CTextReader& entry, void* list), void* list) {
        while (Has(key)) {
            CTextReader entry = Child(key);
            readEntry(entry, list);
        }
    }

private:
    void RequireContent() {
        if (m_isEmpty) m_cursor.GiveUp();
    }

    CTextCursor& m_cursor;
    std::string_view m_key;
    bool m_isEmpty = false;
};

}  // namespace apigen
