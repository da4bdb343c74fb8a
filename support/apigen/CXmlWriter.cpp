// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CXmlWriter.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "support/apigen/Base64.h"
#include "support/apigen/PlainText.h"
#include "support/apigen/XmlChars.h"

namespace apigen {

void CXmlWriter::Append(std::string_view bytes) {
    std::memcpy(m_text.Room(bytes.size()), bytes.data(), bytes.size());
    m_text.SetSize(m_text.Size() + bytes.size());
}

std::size_t CXmlWriter::Open(std::string_view key) {
    const std::size_t bytes = plain::StartTagBytes(key);
    plain::PutStartTag(m_text.Room(bytes), key);
    m_text.SetSize(m_text.Size() + bytes);
    return m_text.Size();
}

void CXmlWriter::EndTag(std::string_view key) {
    const std::size_t bytes = plain::EndTagBytes(key);
    plain::PutEndTag(m_text.Room(bytes), key);
    m_text.SetSize(m_text.Size() + bytes);
}

void CXmlWriter::Close(std::string_view key, std::size_t opened) {
    if (m_text.Size() != opened) return EndTag(key);
    plain::PutEmptyEnd(m_text.Room(1));
    m_text.SetSize(m_text.Size() + 1);
}

void CXmlWriter::Entry(std::string_view key, std::string_view text) {
    const char* const end = text.data() + text.size();
    if (xml::SkipPlain(text.data(), end) == end) {
        const std::size_t bytes = plain::StartTagBytes(key) + text.size() + plain::EndTagBytes(key);
        char* const at = plain::PutStartTag(m_text.Room(bytes), key);
        std::memcpy(at, text.data(), text.size());
        plain::PutEndTag(at + text.size(), key);
        return m_text.SetSize(m_text.Size() + bytes);
    }
    if (xml::SkipXmlChars(text.data(), end) == end) {
        Open(key);
        AppendEscaped(text);
    } else {
        for (const std::string_view part :
             {std::string_view("<"), key, std::string_view(" "), plain::EncodingName, std::string_view("=\""),
              plain::Base64Name, std::string_view("\">")}) {
            Append(part);
        }
        std::string encoded;
        base64::Append(encoded, text);
        Append(encoded);
    }
    EndTag(key);
}

void CXmlWriter::AppendEscaped(std::string_view text) {
    while (!text.empty()) {
        const auto isSpecial = [](char c) { return xml::Classify(c) == xml::EChar::Special; };
        const auto special = std::find_if(text.begin(), text.end(), isSpecial);
        const auto plain = static_cast<std::size_t>(special - text.begin());
        Append(text.substr(0, plain));
        if (special == text.end()) break;
        Append(plain::Escape(*special));
        text.remove_prefix(plain + 1);
    }
}

}  // namespace apigen
