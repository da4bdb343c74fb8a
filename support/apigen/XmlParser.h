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

/// Indexes a document. The text becomes the document's storage: keys and texts stay where they are, and what
/// has to be decoded (entities, CDATA, base64) shrinks in place.
class CXmlParser {
public:
    explicit CXmlParser(CDocument& document) : m_document(document) {}

    /// Takes over the text of an empty document.
    /// \throws BrokenMessageError when it is not well-formed
    void Adopt(std::string text);

    /// Adds well-formed elements as the last entries of `node`.
    void ParseBelow(NodeId node, std::string_view elements);

private:
    /// The text from some place on.
    struct SCursor {
        const char* At;
        const char* End;
    };

    void Items();
    void PlainElements();
    void Markup();
    void Blank();
    void TextRun();
    void StartTag();
    void EndTag();
    void Comment();
    void CData();
    void Instruction();
    void Declaration();

    std::string_view Name(SCursor& cursor) const;
    std::string_view Attribute(SCursor& cursor, std::string& value) const;
    bool Attributes(SCursor& cursor) const;
    void CheckChars(const char* from, const char* end) const;
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
    [[noreturn]] void FailAtEnd() const { Fail("unexpected end of the text", Size()); }

    CDocument& m_document;
    std::size_t m_at = 0;     // where the next item begins
    std::size_t m_start = 0;  // behind the byte order mark
    bool m_hasRoot = false;
    unsigned m_depth = 0;
    NodeId m_current = CDocument::None;  // the innermost open element
    NodeId m_base64 = CDocument::None;   // it too, when its text is in base64
};

}  // namespace apigen
