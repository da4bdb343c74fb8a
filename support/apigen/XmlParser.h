// SPDX-License-Identifier: Apache-2.0
/// \file
/// The reader of the text form, strict about well-formedness (XML 1.0, fifth edition).
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/apigen/Document.h"

namespace apigen APIGEN_API {

/// Indexes a document while its text arrives. The text becomes the document's storage: keys and texts stay
/// where they are, and what has to be decoded (entities, CDATA, base64) shrinks in place.
class CXmlParser {
public:
    explicit CXmlParser(CDocument& document) : m_document(document) {}

    /// Takes over the whole text of an empty document at once.
    void Adopt(std::string text);

    /// Adds well-formed elements as the last entries of the root.
    void ParseBelowRoot(std::string_view elements);

    /// Adds a piece of the text and parses what is complete.
    void Feed(std::string_view piece);

    /// The text has ended.
    /// \throws BrokenMessageError when the document has not.
    void Finish();

private:
    /// A cursor over the bytes that have arrived. Reading functions return false at their end.
    struct SCursor {
        const char* At;
        const char* End;
    };

    void Advance();
    bool Item();
    void PlainElements();
    bool Markup();
    bool Blank();
    bool TextRun();
    bool StartTag();
    bool EndTag();
    bool Comment();
    bool CData();
    bool Instruction();
    bool Declaration();

    bool Name(SCursor& cursor, std::string_view& name) const;
    bool Attribute(SCursor& cursor, std::string_view& name, std::string& value) const;
    bool Attributes(SCursor& cursor, bool& isBase64) const;
    const char* CheckChars(const char* from, const char* end) const;
    std::size_t Decode(const char* from, const char* end, char* target) const;
    const char* Reference(const char* from, const char* end, std::string& output) const;

    NodeId Open(std::string_view name);
    void Close(bool isText);
    void StoreText(std::size_t from, std::size_t end, bool isPlain);

    const char* Base() const { return m_document.m_bytes.data(); }
    std::size_t Size() const { return m_document.m_bytes.size(); }
    SCursor Cursor(std::size_t skip) const { return {Base() + m_at + skip, Base() + Size()}; }
    std::size_t Offset(const char* at) const { return static_cast<std::size_t>(at - Base()); }
    bool StartsWith(std::string_view text) const { return Rest().substr(0, text.size()) == text; }
    std::string_view Rest() const { return std::string_view(m_document.m_bytes).substr(m_at); }
    [[noreturn]] void Fail(const std::string& reason, std::size_t offset) const;
    [[noreturn]] void Fail(const std::string& reason, const char* at) const { Fail(reason, Offset(at)); }

    CDocument& m_document;
    std::size_t m_at = 0;       // where the next item begins
    std::size_t m_retryAt = 0;  // how many bytes must have come before an incomplete item is tried again
    std::size_t m_start = 0;    // behind the byte order mark
    bool m_started = false;     // m_start is known
    bool m_final = false;       // no more bytes will come
    bool m_hasRoot = false;
    unsigned m_depth = 0;
    NodeId m_current = CDocument::None;  // the innermost open element
    NodeId m_base64 = CDocument::None;   // it too, when its text is in base64
};

}  // namespace apigen
