// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/XmlText.h"

#include <apigen/ApiException.h>

#include <utility>

#include "support/apigen/CXmlWriter.h"
#include "support/apigen/LargeMemory.h"
#include "support/apigen/XmlParser.h"

namespace apigen {
namespace {

/// Writes what `node`, which stands `depth` levels deep, holds.
void WriteChildren(const CDocument& document, NodeId node, unsigned depth, CXmlWriter& writer) {
    const NodeId first = document.FirstChild(node);
    if (depth == MaxXmlDepth && first != CDocument::None) {
        throw ApiInternalError("The document is nested deeper than " + std::to_string(MaxXmlDepth) +
                               " levels");
    }
    for (NodeId child = first; child != CDocument::None; child = document.NextSibling(child)) {
        const std::string_view key = document.Key(child);
        if (document.IsText(child) && !document.HasChildren(child)) {
            writer.Entry(key, document.Text(child));
        } else {
            const std::size_t opened = writer.Open(key);
            WriteChildren(document, child, depth + 1, writer);
            writer.Close(key, opened);
        }
    }
}

}  // namespace

void ParseXml(std::string text, CDocument& document) {
    CXmlParser(document).Adopt(std::move(text));
}

std::string WriteXml(const CDocument& document, NodeId node) {
    CXmlWriter writer;
    const CXmlWriter* const written = document.AsText();
    if (written == nullptr) WriteChildren(document, node, 1, writer);
    const std::string_view entries = (written != nullptr ? *written : writer).Text();
    if (entries.empty()) return std::string(plain::EmptyDocument);

    char tag[plain::EndTagBytes(RootName)];
    std::string text;
    text.reserve(plain::StartTagBytes(RootName) + entries.size() + plain::EndTagBytes(RootName));
    PrepareLargeBlock(text.data(), text.capacity());
    text.append(tag, plain::PutStartTag(tag, RootName)).append(entries);
    return text.append(tag, plain::PutEndTag(tag, RootName));
}

}  // namespace apigen
