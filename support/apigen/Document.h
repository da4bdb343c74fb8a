// SPDX-License-Identifier: Apache-2.0
/// \file
/// What is behind a container.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/apigen/CSmallArray.h"
#include "support/apigen/CXmlWriter.h"
#include "support/apigen/PlainText.h"

namespace apigen APIGEN_API {

class CXmlData;

using NodeId = std::uint32_t;

/// A document is in one of two forms:
///
/// - A *text* is what it begins as: the root's entries, written as they will be sent. It stays one as long as
///   entries are only appended to the root, and few keys are used. So what is filled and sent, as a request is,
///   never needs anything else.
/// - A *tree* of keyed nodes is what it becomes, for good, by the first call of `Tree`: whoever looks into it or
///   changes something has to ask for that. A received document is one from the start.
///
/// Nodes are named by their index, so a tree can grow without moving a reference. All keys and texts are views
/// into one run of bytes: a received document stays in the bytes it came in, decoded in place. Views are valid
/// until something is added. No locking; one thread at a time.
class CDocument : public std::enable_shared_from_this<CDocument> {
public:
    static constexpr NodeId Root = 0;
    static constexpr NodeId None = 0xFFFFFFFF;

    CDocument() { m_nodes.Append(SNode()); }
    CDocument(const CDocument&) = delete;
    CDocument& operator=(const CDocument&) = delete;

    // The text.

    /// Lets `write` append further entries of the root, all under `key`. False, and nothing done, when that takes
    /// a tree.
    /// \param isFirst there must not be an entry under `key` yet
    /// \throws ApiInternalError when `key` can't be one
    template <class Write>
    bool AppendAsText(std::string_view key, bool isFirst, Write&& write) {
        if (!CanAppendAsText(key, isFirst)) return false;
        const std::size_t size = m_text->Entries.Text().size();
        try {
            write(m_text->Entries);
            NoteKey(key, size);
        } catch (...) {
            m_text->Entries.CutTo(size);
            throw;
        }
        return true;
    }

    /// The root's entries; null for a tree.
    const CXmlWriter* AsText() const { return m_text ? &m_text->Entries : nullptr; }

    /// Makes it a tree, if it is none yet.
    CDocument& Tree() {
        if (m_text) BecomeTree();
        return *this;
    }

    // The tree. What follows is for one alone.

    /// Appends an empty node at the end of `parent`, whose own text is dropped.
    NodeId AppendNode(NodeId parent, std::string_view key);

    /// Appends a text entry at the end of `parent`.
    NodeId AppendText(NodeId parent, std::string_view key, std::string_view text);

    /// Makes `node` an entry that holds `text` and nothing else.
    void SetText(NodeId node, std::string_view text);

    /// Gives back what texts and nodes that were replaced have left behind, once it may be as much as all that is
    /// in use. Nodes get other names then; handles are told theirs.
    void Tidy() {
        if (m_hasGarbage && HeldBytes() > m_tidyAbove) Compact();
    }

    /// How much is held, garbage included.
    std::size_t HeldBytes() const { return m_bytes.size() + m_nodes.Size() * sizeof(SNode); }

    std::string_view Key(NodeId node) const {
        return View(m_nodes[node].KeyOffset, m_nodes[node].KeyLength());
    }

    /// The text of a node without children.
    std::string_view Text(NodeId node) const {
        return View(m_nodes[node].TextOffset, m_nodes[node].TextLength);
    }

    bool HasChildren(NodeId node) const { return m_nodes[node].Children != 0; }

    /// True for an entry made as a text, false for one made as a node. It shows in the text form of an empty
    /// one only.
    bool IsText(NodeId node) const { return m_nodes[node].IsText(); }

    NodeId FirstChild(NodeId node) const { return HasChildren(node) ? m_nodes[node].FirstChild : None; }
    NodeId NextSibling(NodeId node) const { return m_nodes[node].Next; }

    std::size_t CountChildren(NodeId node) const { return m_nodes[node].Children; }

    bool HasKey(NodeId node, std::string_view key) const {
        const SNode& each = m_nodes[node];
        return each.KeyLength() == key.size() &&
               plain::IsSameKey(m_bytes.data() + each.KeyOffset, key.data(), key.size());
    }

    /// The first entry called `key` in `parent`, or None.
    NodeId Find(NodeId parent, std::string_view key) const;

    /// The first entry called `key` among `node` and its later siblings, or None. `node` may be None.
    NodeId FindFrom(NodeId node, std::string_view key) const {
        while (node != None && !HasKey(node, key)) {
            node = NextSibling(node);
        }
        return node;
    }

    /// Where `node` stands, for a person: "config/Source/Objects[2]/item". Empty for the root.
    std::string Path(NodeId node) const;

    /// \throws ApiInternalError that names the key and where it was looked for.
    [[noreturn]] void ThrowMissing(NodeId parent, std::string_view key) const;

    /// \throws ApiInternalError that says that the entry holds child entries where a text was asked for.
    [[noreturn]] void ThrowNoText(NodeId node) const;

private:
    friend class CXmlParser;
    friend class CXmlData;

    static constexpr std::uint32_t MaxKeyBytes = (1U << 29) - 1;

    /// From that many children on, they are found by an index.
    static constexpr std::uint32_t IndexFrom = 32;

    static constexpr std::size_t TidyAboveAtLeast = std::size_t{64} * 1024;

    struct STextForm {
        struct SKey {
            std::size_t Offset;
            std::size_t Length;
        };
        CXmlWriter Entries;
        CSmallArray<SKey, 4> Keys;  // where they stand, each once
    };

    struct SNode {
        static constexpr std::uint32_t Text = 1U << 29;

        bool IsText() const { return (Traits & Text) != 0; }
        std::uint32_t KeyLength() const { return Traits & MaxKeyBytes; }

        std::uint32_t KeyOffset = 0;
        std::uint32_t Traits = 0;  // and the length of the key: one word, as it is read and written at once
        union {
            std::uint32_t TextOffset = 0;
            NodeId FirstChild;
        };
        union {
            std::uint32_t TextLength = 0;
            NodeId LastChild;
        };
        NodeId Parent = None;
        NodeId Next = None;           // sibling
        std::uint32_t Children = 0;   // how many; without any, it has a text, maybe an empty one
        std::uint32_t Alignment = 0;  // nodes that don't lie across two cache lines are quicker to fill
    };

    /// The first one under its key among the children of a node with many. Those are named by the first of them:
    /// when a node gets other children, what stands here for the earlier ones means nothing any more.
    struct SIndexed {
        NodeId Family = None;
        NodeId Node = None;
    };

    bool CanAppendAsText(std::string_view key, bool isFirst) const;
    bool IsInText(std::string_view key) const;
    void NoteKey(std::string_view key, std::size_t at);
    void BecomeTree();

    NodeId Parent(NodeId node) const { return m_nodes[node].Parent; }
    std::string_view View(std::uint32_t offset, std::uint32_t length) const {
        return {m_bytes.data() + offset, length};
    }
    std::uint32_t AppendKey(std::string_view key);
    std::uint32_t AppendBytes(std::string_view bytes);
    NodeId Link(NodeId parent, std::uint32_t keyOffset, std::uint32_t keyLength);
    void PutText(NodeId node, std::size_t offset, std::size_t length) {
        SNode& target = m_nodes[node];
        target.TextOffset = static_cast<std::uint32_t>(offset);
        target.TextLength = static_cast<std::uint32_t>(length);
        target.Traits |= SNode::Text;
    }
    [[noreturn]] static void ThrowTooLarge();

    std::size_t SlotOf(NodeId family, std::string_view key) const;
    void AddToIndex(NodeId family, NodeId node);
    void IndexLater(const SNode& parent, NodeId node);

    void MarkBelow(NodeId node, std::vector<NodeId>& names) const;
    void Compact();

    std::optional<STextForm> m_text{std::in_place};  // empty for a tree
    std::string m_bytes;
    CSmallArray<SNode, 8> m_nodes;
    std::vector<SIndexed> m_index;  // a hash table, at most half full
    std::size_t m_indexed = 0;
    bool m_hasGarbage = false;
    std::size_t m_tidyAbove = TidyAboveAtLeast;
    CXmlData* m_handles = nullptr;  // on nodes other than the root
};

/// True for a key: a letter or `_`, then letters, digits, `_`, `-`, `.` (all ASCII).
APIGEN_API bool IsKey(std::string_view text);

/// \throws ApiInternalError when `key` is none.
APIGEN_API void RequireKey(std::string_view key);

}  // namespace apigen
