// SPDX-License-Identifier: Apache-2.0
/// \file
/// The tree behind a container: all nodes in one array, all keys and texts in one run of bytes.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/apigen/CSmallArray.h"
#include "support/apigen/CXmlWriter.h"
#include "support/apigen/PlainText.h"

namespace apigen APIGEN_API {

using NodeId = std::uint32_t;

/// A tree of keyed nodes. Nodes are named by their index, so the tree can grow without moving a reference.
///
/// A received document stays in the bytes it came in: keys and texts are views into them, decoded in place.
/// Views are valid until something is added. No locking; one thread at a time.
///
/// What is appended to the root in order, as a request is built, need not be a tree for anybody: it is kept
/// as the text that it will be sent as, the tail, until somebody asks for a node.
class CDocument : public std::enable_shared_from_this<CDocument> {
public:
    static constexpr NodeId Root = 0;
    static constexpr NodeId None = 0xFFFFFFFF;

    CDocument() { m_nodes.Append({}); }

    /// Appends an empty node at the end of `parent`, whose own text is dropped.
    NodeId AppendNode(NodeId parent, std::string_view key);

    /// Appends a text entry at the end of `parent`.
    NodeId AppendText(NodeId parent, std::string_view key, std::string_view text) {
        const NodeId node = AppendNode(parent, key);
        SetText(node, text);
        return node;
    }

    /// Makes `node` an entry that holds `text` and nothing else.
    void SetText(NodeId node, std::string_view text);

    std::string_view Key(NodeId node) const { return View(m_nodes[node].KeyOffset, m_nodes[node].KeyLength); }

    /// The text of a node without children.
    std::string_view Text(NodeId node) const {
        return View(m_nodes[node].TextOffset, m_nodes[node].TextLength);
    }

    bool HasChildren(NodeId node) const { return m_nodes[node].FirstChild != None; }

    /// True for an entry made as a text, false for one made as a node. It shows in the text form of an empty
    /// one only.
    bool IsText(NodeId node) const { return m_nodes[node].IsText; }

    NodeId FirstChild(NodeId node) const { return m_nodes[node].FirstChild; }
    NodeId NextSibling(NodeId node) const { return m_nodes[node].Next; }

    /// The first entry called `key` in `parent`, or None.
    NodeId Find(NodeId parent, std::string_view key) const {
        return FindFrom(m_nodes[parent].FirstChild, key);
    }

    /// The first entry called `key` among `node` and its later siblings, or None. `node` may be None.
    NodeId FindFrom(NodeId node, std::string_view key) const {
        while (node != None && !HasKey(m_nodes[node], key)) {
            node = m_nodes[node].Next;
        }
        return node;
    }

    /// Where `node` stands, for a person: "config/Source/Objects[2]/item". Empty for the root.
    std::string Path(NodeId node) const;

    /// \throws ApiInternalError that names the key and where it was looked for.
    [[noreturn]] void ThrowMissing(NodeId parent, std::string_view key) const;

    /// \throws ApiInternalError that says that the entry holds child entries where a text was asked for.
    [[noreturn]] void ThrowNoText(NodeId node) const;

    /// Lets `write` append further entries of the root, all under `key`, to the tail.
    template <class Write>
    void AppendToTail(std::string_view key, Write&& write) {
        const std::size_t size = Tail().size();
        try {
            write(m_tail);
            NoteTailKey(key, size);
        } catch (...) {
            m_tail.CutTo(size);
            throw;
        }
    }

    /// The text of the root's entries that are not among the nodes.
    std::string_view Tail() const { return m_tail.Text(); }

    /// True when the root has an entry under `key`, in the tail or not.
    bool HasRootEntry(std::string_view key) const;

    /// Turns the tail into nodes. To be called before anything else than the root's tail is looked at.
    void Index() {
        if (!Tail().empty()) IndexTail();
    }

private:
    friend class CXmlParser;

    struct SNode {
        std::uint32_t KeyOffset = 0;
        std::uint32_t KeyLength : 31 = 0;
        std::uint32_t IsText : 1 = 0;
        std::uint32_t TextOffset = 0;
        std::uint32_t TextLength = 0;
        NodeId Parent = None;
        NodeId FirstChild = None;
        NodeId LastChild = None;
        NodeId Next = None;
    };

    bool HasKey(const SNode& node, std::string_view key) const {
        return node.KeyLength == key.size() &&
               plain::IsSameKey(m_bytes.data() + node.KeyOffset, key.data(), key.size());
    }
    std::string_view View(std::uint32_t offset, std::uint32_t length) const {
        return {m_bytes.data() + offset, length};
    }
    std::uint32_t AppendBytes(std::string_view bytes);
    NodeId Link(NodeId parent, std::uint32_t keyOffset, std::uint32_t keyLength);

    /// Where a key stands in the tail.
    struct STailKey {
        std::size_t Offset;
        std::size_t Length;
    };

    void NoteTailKey(std::string_view key, std::size_t at);
    bool IsInTail(std::string_view key) const;
    void IndexTail();

    std::string m_bytes;
    CSmallArray<SNode, 8> m_nodes;
    CXmlWriter m_tail;
    CSmallArray<STailKey, 4> m_tailKeys;  // each once
};

/// True for a key: a letter or `_`, then letters, digits, `_`, `-`, `.` (all ASCII).
APIGEN_API bool IsKey(std::string_view text);

/// \throws ApiInternalError when `key` is none.
APIGEN_API void RequireKey(std::string_view key);

}  // namespace apigen
