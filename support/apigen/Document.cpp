// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Document.h"

#include <apigen/ApiException.h>

#include <algorithm>
#include <limits>

#include "support/apigen/XmlChars.h"
#include "support/apigen/XmlParser.h"
#include "support/common/Text.h"

namespace apigen {
bool IsKey(std::string_view text) {
    const char* const end = text.data() + text.size();
    return !text.empty() && xml::IsKeyStart(text.front()) && xml::SkipKeyChars(text.data(), end) == end;
}

void RequireKey(std::string_view key) {
    if (!IsKey(key)) {
        throw ApiInternalError(common::Quoted(key) +
                               " can't be a key: a letter or \"_\" comes first, then letters, " +
                               "digits, \"_\", \"-\" or \".\"");
    }
}

NodeId CDocument::AppendNode(NodeId parent, std::string_view key) {
    RequireKey(key);
    return Link(parent, AppendBytes(key), static_cast<std::uint32_t>(key.size()));
}

NodeId CDocument::Link(NodeId parent, std::uint32_t keyOffset, std::uint32_t keyLength) {
    const auto node = static_cast<NodeId>(m_nodes.Size());
    if (node == None) {
        throw ApiInternalError("A document has too many entries");
    }
    SNode added;
    added.KeyOffset = keyOffset;
    added.KeyLength = keyLength;
    added.Parent = parent;
    m_nodes.Append(added);
    SNode& above = m_nodes[parent];
    if (above.FirstChild == None) {
        above.FirstChild = node;
        above.TextLength = 0;
    } else {
        m_nodes[above.LastChild].Next = node;
    }
    above.LastChild = node;
    return node;
}

void CDocument::SetText(NodeId node, std::string_view text) {
    const std::uint32_t offset = AppendBytes(text);
    SNode& target = m_nodes[node];
    target.TextOffset = offset;
    target.TextLength = static_cast<std::uint32_t>(text.size());
    target.IsText = 1;
    target.FirstChild = None;
    target.LastChild = None;
}

/// \param at where what was written under `key`, if anything was, begins
void CDocument::NoteTailKey(std::string_view key, std::size_t at) {
    if (Tail().size() != at && !IsInTail(key)) m_tailKeys.Append({at + 1, key.size()});
}

bool CDocument::IsInTail(std::string_view key) const {
    return std::any_of(m_tailKeys.begin(), m_tailKeys.end(),
                       [&](const STailKey& each) { return Tail().substr(each.Offset, each.Length) == key; });
}

bool CDocument::HasRootEntry(std::string_view key) const {
    return IsInTail(key) || Find(Root, key) != None;
}

void CDocument::IndexTail() {
    CXmlParser(*this).ParseBelowRoot(Tail());
    m_tail.CutTo(0);
    m_tailKeys.SetSize(0);
}

std::uint32_t CDocument::AppendBytes(std::string_view bytes) {
    // Offsets are 32 bits wide; a message is at most 256 MiB, so this bound hurts nobody.
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max() - m_bytes.size()) {
        throw ApiInternalError("A document has grown past 4 GiB");
    }
    const auto offset = static_cast<std::uint32_t>(m_bytes.size());
    m_bytes.append(bytes);
    return offset;
}

std::string CDocument::Path(NodeId node) const {
    std::string path;
    while (node != Root) {
        const std::string_view key = Key(node);
        std::size_t index = 0;
        std::size_t count = 0;
        for (NodeId each = m_nodes[m_nodes[node].Parent].FirstChild; each != None;
             each = m_nodes[each].Next) {
            if (each == node) index = count;
            if (Key(each) == key) ++count;
        }
        std::string step(key);
        if (count > 1) step += "[" + std::to_string(index) + "]";
        if (!path.empty()) step += '/';
        path.insert(0, step);
        node = m_nodes[node].Parent;
    }
    return path;
}

void CDocument::ThrowMissing(NodeId parent, std::string_view key) const {
    const std::string path = Path(parent);
    throw ApiInternalError((path.empty() ? "top level" : path) + ": no " + common::Quoted(key));
}

void CDocument::ThrowNoText(NodeId node) const {
    throw ApiInternalError(Path(node) + ": holds child entries where a text was expected");
}

}  // namespace apigen
