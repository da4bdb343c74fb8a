// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/XmlText.h"

#include <apigen/ApiException.h>

#include <utility>

#include "support/apigen/Base64.h"
#include "support/apigen/XmlChars.h"
#include "support/apigen/XmlParser.h"

namespace apigen {
namespace {

constexpr std::string_view RootName = "Data";

/// True when every character is one that XML can carry.
bool IsXmlText(std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while ((at = xml::SkipPlain(at, end)) != end) {
        const unsigned bytes = xml::XmlCharBytes(at, end);
        if (bytes == 0) return false;
        at += bytes;
    }
    return true;
}

void AppendEscaped(std::string& output, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&':
                output += "&amp;";
                break;
            case '<':
                output += "&lt;";
                break;
            case '>':
                output += "&gt;";
                break;
            case '\r':
                output += "&#13;";
                break;
            default:
                output += c;
        }
    }
}

void AppendTextEntry(std::string& output, std::string_view key, std::string_view text) {
    output += '<';
    output += key;
    const char* const end = text.data() + text.size();
    if (xml::SkipPlain(text.data(), end) == end) {
        output += '>';
        output += text;
    } else if (IsXmlText(text)) {
        output += '>';
        AppendEscaped(output, text);
    } else {
        output += " encoding=\"base64\">";
        base64::Append(output, text);
    }
    output += "</";
    output += key;
    output += '>';
}

void AppendElement(const CDocument& document, NodeId node, std::string_view name, unsigned depth,
                   std::string& output) {
    NodeId child = document.FirstChild(node);
    if (depth == MaxXmlDepth && child != CDocument::None) {
        throw ApiInternalError("The document is nested deeper than " + std::to_string(MaxXmlDepth) +
                               " levels");
    }
    output += '<';
    output += name;
    if (child == CDocument::None) {
        output += "/>";
        return;
    }
    output += '>';
    for (; child != CDocument::None; child = document.NextSibling(child)) {
        if (document.IsText(child) && !document.HasChildren(child)) {
            AppendTextEntry(output, document.Key(child), document.Text(child));
        } else {
            AppendElement(document, child, document.Key(child), depth + 1, output);
        }
    }
    output += "</";
    output += name;
    output += '>';
}

}  // namespace

CDocument ParseXml(std::string text) {
    CDocument document;
    CXmlParser(document).Adopt(std::move(text));
    return document;
}

void WriteXml(const CDocument& document, NodeId node, std::string& output) {
    AppendElement(document, node, RootName, 1, output);
}

}  // namespace apigen
