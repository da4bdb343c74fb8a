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
    WriteChildren(document, node, 1, writer);
    const std::string_view tail = node == CDocument::Root ? document.Tail() : std::string_view();

    std::string text;
    if (writer.Text().empty() && tail.empty()) return text.append("<").append(RootName).append("/>");
    text.reserve(2 * RootName.size() + 5 + writer.Text().size() + tail.size());
    PrepareLargeBlock(text.data(), text.capacity());
    text.append("<").append(RootName).append(">");
    text.append(writer.Text()).append(tail);
    return text.append("</").append(RootName).append(">");
}

}  // namespace apigen
