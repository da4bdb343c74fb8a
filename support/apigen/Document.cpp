// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Document.h"

#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "support/apigen/XmlChars.h"
#include "support/apigen/XmlParser.h"
#include "support/common/Text.h"

namespace apigen {
namespace {

/// More keys are better found in a tree. No request has that many.
constexpr std::size_t MaxTextKeys = 16;

}  // namespace

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

bool CDocument::CanAppendAsText(std::string_view key, bool isFirst) const {
    if (!m_text) return false;
    RequireKey(key);
    return IsInText(key) ? !isFirst : m_text->Keys.Size() < MaxTextKeys;
}

bool CDocument::IsInText(std::string_view key) const {
    const std::string_view text = m_text->Entries.Text();
    return std::any_of(m_text->Keys.begin(), m_text->Keys.end(), [&](const STextForm::SKey& each) {
        return text.substr(each.Offset, each.Length) == key;
    });
}

/// \param at where what was written under `key`, if anything was, begins
void CDocument::NoteKey(std::string_view key, std::size_t at) {
    if (m_text->Entries.Text().size() != at && !IsInText(key)) m_text->Keys.Append({at + 1, key.size()});
}

void CDocument::BecomeTree() {
    try {
        CXmlParser(*this).ParseBelow(Root, m_text->Entries.Text());
    } catch (...) {
        m_nodes.SetSize(1);
        m_nodes[Root] = SNode();
        m_bytes.clear();
        m_index.clear();
        m_indexed = 0;
        throw;
    }
    m_text.reset();
}

NodeId CDocument::AppendNode(NodeId parent, std::string_view key) {
    return Link(parent, AppendKey(key), static_cast<std::uint32_t>(key.size()));
}

NodeId CDocument::AppendText(NodeId parent, std::string_view key, std::string_view text) {
    const std::uint32_t keyOffset = AppendKey(key);
    const std::uint32_t textOffset = AppendBytes(text);
    const NodeId node = Link(parent, keyOffset, static_cast<std::uint32_t>(key.size()));
    PutText(node, textOffset, text.size());
    return node;
}

/// Puts an empty node at the end of `parent`.
NodeId CDocument::Link(NodeId parent, std::uint32_t keyOffset, std::uint32_t keyLength) {
    const auto node = static_cast<NodeId>(m_nodes.Size());
    if (node == None) ThrowTooLarge();
    SNode& added = *m_nodes.Room(1);
    added = SNode();
    added.KeyOffset = keyOffset;
    added.Traits = keyLength;
    added.Parent = parent;
    SNode& above = m_nodes[parent];
    if (above.Children != 0) {
        if (above.Children >= IndexFrom) IndexLater(above, node);
        m_nodes[above.LastChild].Next = node;
    } else {
        m_hasGarbage = m_hasGarbage || above.TextLength != 0;
        above.FirstChild = node;
    }
    above.LastChild = node;
    ++above.Children;
    m_nodes.SetSize(m_nodes.Size() + 1);
    return node;
}

void CDocument::ThrowTooLarge() {
    throw ApiInternalError("A document has too many entries, or too long a key");
}

void CDocument::SetText(NodeId node, std::string_view text) {
    const bool fits = !HasChildren(node) && text.size() <= m_nodes[node].TextLength;
    const std::uint32_t offset = fits ? m_nodes[node].TextOffset : AppendBytes(text);
    SNode& target = m_nodes[node];
    if (fits) std::copy(text.begin(), text.end(), m_bytes.begin() + offset);
    m_hasGarbage = m_hasGarbage || target.Children != 0 || text.size() != target.TextLength;
    target.Children = 0;
    PutText(node, offset, text.size());
}

NodeId CDocument::Find(NodeId parent, std::string_view key) const {
    const SNode& above = m_nodes[parent];
    if (!HasChildren(parent)) return None;
    if (above.Children <= IndexFrom) return FindFrom(above.FirstChild, key);
    return m_index[SlotOf(above.FirstChild, key)].Node;
}

/// Where `key` stands in the index, or may be put.
std::size_t CDocument::SlotOf(NodeId family, std::string_view key) const {
    // A peer that chooses keys does not know where the document stands, and so not which keys would meet.
    std::uint64_t hash = reinterpret_cast<std::uintptr_t>(this) + (std::uint64_t{family} << 32);
    const auto mix = [&hash](std::uint64_t word) {
        __extension__ using Wide = unsigned __int128;
        const Wide product = Wide{hash ^ word} * 0x9E3779B97F4A7C15U;
        hash = static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
    };
    mix(key.size());
    for (std::string_view rest = key; !rest.empty();) {
        std::uint64_t word = 0;
        const std::size_t bytes = std::min(rest.size(), sizeof word);
        std::memcpy(&word, rest.data(), bytes);
        mix(word);
        rest.remove_prefix(bytes);
    }
    const std::size_t mask = m_index.size() - 1;
    std::size_t slot = hash & mask;
    while (m_index[slot].Node != None &&
           (m_index[slot].Family != family || !HasKey(m_index[slot].Node, key))) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

void CDocument::AddToIndex(NodeId family, NodeId node) {
    if (2 * m_indexed >= m_index.size()) {
        std::vector<SIndexed> smaller(std::max<std::size_t>(4 * IndexFrom, 2 * m_index.size()));
        smaller.swap(m_index);
        for (const SIndexed& each : smaller) {
            if (each.Node != None) m_index[SlotOf(each.Family, Key(each.Node))] = each;
        }
    }
    SIndexed& slot = m_index[SlotOf(family, Key(node))];
    if (slot.Node != None) return;
    slot = {family, node};
    ++m_indexed;
}

/// Sees to the index when `node` is about to become the last of many children.
void CDocument::IndexLater(const SNode& parent, NodeId node) {
    if (parent.Children == IndexFrom) {
        for (NodeId each = parent.FirstChild; each != None; each = NextSibling(each)) {
            AddToIndex(parent.FirstChild, each);
        }
    } else if (HasKey(parent.LastChild, Key(node))) {
        return;  // one more of a list
    }
    AddToIndex(parent.FirstChild, node);
}

/// Gives a name to `top` and all below. What has one already has it with all below.
void CDocument::MarkBelow(NodeId top, std::vector<NodeId>& names) const {
    NodeId node = top;
    while (true) {
        const bool isNew = names[node] == None;
        names[node] = 0;
        if (isNew && HasChildren(node)) {
            node = m_nodes[node].FirstChild;
            continue;
        }
        while (node != top && NextSibling(node) == None) {
            node = Parent(node);
        }
        if (node == top) return;
        node = NextSibling(node);
    }
}

void CDocument::Compact() {
    // In use is what can be reached: from the root, or from a handle on a node that is in the tree no more.
    std::vector<NodeId> names(m_nodes.Size(), None);
    MarkBelow(Root, names);
    for (const CXmlData* handle = m_handles; handle != nullptr; handle = handle->m_nextHandle) {
        // With those behind it, and what it stood below: its path is asked for in errors.
        for (NodeId node = handle->m_node; names[node] == None;) {
            MarkBelow(node, names);
            node = NextSibling(node) != None ? NextSibling(node) : Parent(node);
        }
    }
    NodeId count = 0;
    std::size_t size = 0;
    for (NodeId node = 0; node < names.size(); ++node) {
        if (names[node] == None) continue;
        names[node] = count++;
        size += Key(node).size() + (HasChildren(node) ? 0 : Text(node).size());
    }
    std::string bytes;
    bytes.reserve(size);

    // From here on nothing fails. Nodes keep their order, so none is overwritten before its turn.
    const auto move = [&bytes](std::string_view text) {
        const std::size_t offset = bytes.size();
        bytes.append(text);
        return static_cast<std::uint32_t>(offset);
    };
    for (NodeId node = 0; node < names.size(); ++node) {
        if (names[node] == None) continue;
        SNode moved = m_nodes[node];
        moved.KeyOffset = move(Key(node));
        if (moved.Children != 0) {
            moved.FirstChild = names[moved.FirstChild];
            moved.LastChild = names[moved.LastChild];
        } else {
            moved.TextOffset = move(Text(node));
        }
        if (moved.Parent != None) moved.Parent = names[moved.Parent];
        if (moved.Next != None) moved.Next = names[moved.Next];
        m_nodes[names[node]] = moved;
    }
    m_nodes.SetSize(count);
    m_bytes.swap(bytes);
    for (CXmlData* handle = m_handles; handle != nullptr; handle = handle->m_nextHandle) {
        handle->m_node = names[handle->m_node];
    }

    // There is room: what is indexed now was indexed before.
    std::fill(m_index.begin(), m_index.end(), SIndexed());
    m_indexed = 0;
    for (NodeId node = 0; node < count; ++node) {
        if (m_nodes[node].Children <= IndexFrom) continue;
        for (NodeId child = FirstChild(node); child != None; child = NextSibling(child)) {
            AddToIndex(FirstChild(node), child);
        }
    }
    m_hasGarbage = false;
    m_tidyAbove = std::max(TidyAboveAtLeast, 2 * HeldBytes());
}

std::uint32_t CDocument::AppendKey(std::string_view key) {
    RequireKey(key);
    if (key.size() > MaxKeyBytes) ThrowTooLarge();
    return AppendBytes(key);
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
        const NodeId parent = Parent(node);
        std::size_t index = 0;
        std::size_t count = 0;
        for (NodeId each = FirstChild(parent); each != None; each = NextSibling(each)) {
            if (each == node) index = count;
            if (Key(each) == key) ++count;
        }
        std::string step(key);
        if (count > 1) step += "[" + std::to_string(index) + "]";
        if (!path.empty()) step += '/';
        path.insert(0, step);
        node = parent;
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
