// SPDX-License-Identifier: Apache-2.0
/// \file
/// The definitions of the encoder family, for the sources that instantiate it for their types.
///
/// Every type is written and read by one rule, on top of two small pairs of classes that know where: a pair
/// for the documents of `CXmlData`, which works on the flat tree without an allocation per node, and a pair
/// for any other `IData`.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Handle.h>
#include <apigen/Serialize.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/apigen/Document.h"
#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"

namespace apigen {

/// The keys that belong to the encoding of optionals and lists.
inline constexpr std::string_view OptionalKey = "opt";
inline constexpr std::string_view ItemKey = "item";

/// How a type that is none of the built-in kinds, an exception for instance, is written and read.
/// A specialisation offers `Write(writer, value)` and `Read(reader, value)` for the node that holds it.
template <class T>
struct Codec;

namespace detail {

template <class T>
concept Record = requires {
    T::Fields([](const FieldInfo&, auto) {});
};

template <class T>
inline constexpr bool IsOptional = false;
template <class T>
inline constexpr bool IsOptional<Optional<T>> = true;

template <class T>
inline constexpr bool IsVector = false;
template <class T>
inline constexpr bool IsVector<std::vector<T>> = true;

/// Writes below the root of a document, straight into its text.
class CTextWriter {
public:
    explicit CTextWriter(CXmlWriter& writer) : m_writer(writer) {}
    CTextWriter(CXmlWriter& writer, std::string_view key)
        : m_writer(writer), m_key(key), m_opened(writer.Open(key)) {}
    CTextWriter(const CTextWriter&) = delete;
    CTextWriter& operator=(const CTextWriter&) = delete;

    void Text(std::string_view key, std::string_view text) { m_writer.Entry(key, text); }
    CTextWriter Child(std::string_view key) { return {m_writer, key}; }

    /// To be called on a child when everything in it is written.
    void End() { m_writer.Close(m_key, m_opened); }

private:
    CXmlWriter& m_writer;
    std::string_view m_key;
    std::size_t m_opened = 0;
};

class CDocumentWriter {
public:
    CDocumentWriter(CDocument& document, NodeId node) : m_document(document), m_node(node) {}

    void Text(std::string_view key, std::string_view text) { m_document.AppendText(m_node, key, text); }
    CDocumentWriter Child(std::string_view key) { return {m_document, m_document.AppendNode(m_node, key)}; }
    void End() {}

private:
    CDocument& m_document;
    NodeId m_node;
};

class CDocumentReader {
public:
    CDocumentReader(const CDocument& document, NodeId node)
        : m_document(document), m_node(node), m_next(document.FirstChild(node)) {}

    bool Has(std::string_view key) { return Find(key) != CDocument::None; }

    std::string_view Text(std::string_view key) {
        const NodeId node = Take(key);
        if (m_document.HasChildren(node)) m_document.ThrowNoText(node);
        return m_document.Text(node);
    }

    CDocumentReader Child(std::string_view key) { return {m_document, Take(key)}; }

    /// How many entries a list has, for making room.
    std::size_t Count(std::string_view key) const {
        std::size_t count = 0;
        for (NodeId node = Find(key); node != CDocument::None;
             node = m_document.FindFrom(m_document.NextSibling(node), key)) {
            ++count;
        }
        return count;
    }

    template <class Visitor>
    void ForEachChild(std::string_view key, Visitor&& visit) {
        NodeId node = Find(key);
        while (node != CDocument::None) {
            visit(CDocumentReader(m_document, node));
            Pass(node);
            node = m_document.FindFrom(m_document.NextSibling(node), key);
        }
    }

private:
    /// The first entry under `key`. Fields mostly come in the order in which they are asked for, and as no
    /// field is read twice, what has been passed in that order needs no second look.
    NodeId Find(std::string_view key) const {
        return m_document.FindFrom(m_isInOrder ? m_next : m_document.FirstChild(m_node), key);
    }

    NodeId Take(std::string_view key) {
        const NodeId node = Find(key);
        if (node == CDocument::None) m_document.ThrowMissing(m_node, key);
        Pass(node);
        return node;
    }

    /// Once an entry was taken out of turn, every search begins at the start.
    void Pass(NodeId taken) {
        m_isInOrder = m_isInOrder && taken == m_next;
        m_next = m_document.NextSibling(taken);
    }

    const CDocument& m_document;
    NodeId m_node;
    NodeId m_next;  // behind the entry that was taken last
    bool m_isInOrder = true;
};

class CDataWriter {
public:
    explicit CDataWriter(IData& data) : m_data(data) {}
    explicit CDataWriter(std::shared_ptr<IData> data) : m_data(*data), m_owner(std::move(data)) {}

    void Text(std::string_view key, std::string_view text) {
        m_data.SetString(std::string(key), std::string(text));
    }
    CDataWriter Child(std::string_view key) { return CDataWriter(m_data.CreateChild(std::string(key))); }
    void End() {}

private:
    IData& m_data;
    std::shared_ptr<IData> m_owner;
};

class CDataReader {
public:
    explicit CDataReader(const IData& data) : m_data(data) {}
    explicit CDataReader(std::shared_ptr<IData> data) : m_data(*data), m_owner(std::move(data)) {}

    bool Has(std::string_view key) const { return m_data.HasValue(std::string(key)); }
    std::string Text(std::string_view key) const { return m_data.GetString(std::string(key)); }
    CDataReader Child(std::string_view key) const { return CDataReader(m_data.GetChild(std::string(key))); }

    std::size_t Count(std::string_view /*key*/) const { return 0; }

    template <class Visitor>
    void ForEachChild(std::string_view key, Visitor&& visit) const {
        for (auto& child : m_data.GetChildren(std::string(key))) {
            visit(CDataReader(std::move(child)));
        }
    }

private:
    const IData& m_data;
    std::shared_ptr<IData> m_owner;
};

template <class Writer, class T>
void Write(Writer& writer, std::string_view key, const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        writer.Text(key, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        writer.Text(key, value ? "true" : "false");
    } else if constexpr (std::is_enum_v<T>) {
        Write(writer, key, static_cast<int>(value));
    } else if constexpr (std::is_integral_v<T>) {
        SNumberBuffer buffer;
        writer.Text(key, FormatNumber(value, buffer));
    } else if constexpr (std::is_same_v<T, Handle>) {
        Write(writer, key, value.Value);
    } else if constexpr (std::is_same_v<T, Guid>) {
        SGuidBuffer buffer;
        writer.Text(key, FormatGuid(value, buffer));
    } else if constexpr (IsOptional<T>) {
        if (value.HasValue()) {
            auto child = writer.Child(key);
            Write(child, OptionalKey, *value);
            child.End();
        }
    } else if constexpr (IsVector<T>) {
        for (const auto& element : value) {
            auto child = writer.Child(key);
            Write(child, ItemKey, element);
            child.End();
        }
    } else if constexpr (Record<T>) {
        auto child = writer.Child(key);
        ForEachField(value,
                     [&child](const FieldInfo& info, const auto& field) { Write(child, info.Key, field); });
        child.End();
    } else {
        auto child = writer.Child(key);
        Codec<T>::Write(child, value);
        child.End();
    }
}

template <class Reader, class T>
void Read(Reader& reader, std::string_view key, T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        value = reader.Text(key);
    } else if constexpr (std::is_same_v<T, bool>) {
        const auto& text = reader.Text(key);
        value = text == "true" || text == "True" || text == "1";
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(ParseNumber<int>(reader.Text(key)));
    } else if constexpr (std::is_integral_v<T>) {
        value = ParseNumber<T>(reader.Text(key));
    } else if constexpr (std::is_same_v<T, Handle>) {
        value.Value = ParseNumber<std::uint64_t>(reader.Text(key));
    } else if constexpr (std::is_same_v<T, Guid>) {
        value = ParseGuid(reader.Text(key));
    } else if constexpr (IsOptional<T>) {
        if (reader.Has(key)) {
            auto child = reader.Child(key);
            typename T::value_type present{};
            Read(child, OptionalKey, present);
            value = std::move(present);
        }
    } else if constexpr (IsVector<T>) {
        value.reserve(value.size() + reader.Count(key));
        reader.ForEachChild(key, [&value](auto child) {
            value.emplace_back();
            try {
                Read(child, ItemKey, value.back());
            } catch (...) {
                value.pop_back();
                throw;
            }
        });
    } else if constexpr (Record<T>) {
        auto child = reader.Child(key);
        ForEachField(value, [&child](const FieldInfo& info, auto& field) { Read(child, info.Key, field); });
    } else {
        auto child = reader.Child(key);
        Codec<T>::Read(child, value);
    }
}

/// True for what is a text under its key, and so replaces an earlier one in a container.
template <class T>
inline constexpr bool IsPlain =
    std::is_integral_v<T> || std::is_enum_v<T> || std::is_same_v<T, std::string> || std::is_same_v<T, Guid> ||
    std::is_same_v<T, Handle>;

template <class T>
void WriteTo(IData& data, const std::string& key, const T& value) {
    if constexpr (!IsPlain<T>) {
        if (auto* const node = dynamic_cast<CXmlData*>(&data)) {
            CDocument& document = node->Document();
            RequireKey(key);
            if (node->Node() == CDocument::Root) {
                CXmlWriter& tail = document.TailWriter();
                const std::size_t size = tail.Text().size();
                try {
                    CTextWriter writer(tail);
                    Write(writer, key, value);
                } catch (...) {
                    tail.CutTo(size);
                    throw;
                }
                if (tail.Text().size() != size) document.AddTailKey(key);
            } else {
                document.Index();
                CDocumentWriter writer(document, node->Node());
                Write(writer, key, value);
            }
            return;
        }
    }
    CDataWriter writer(data);
    Write(writer, key, value);
}

template <class T>
void ReadFrom(const IData& data, const std::string& key, T& value) {
    if (const auto* const document = dynamic_cast<const CXmlData*>(&data)) {
        document->Document().Index();
        CDocumentReader reader(document->Document(), document->Node());
        return Read(reader, key, value);
    }
    CDataReader reader(data);
    Read(reader, key, value);
}

}  // namespace detail

template <class T>
void Serialize(IData& data, const std::string& key, const T& value) {
    detail::WriteTo(data, key, value);
}

template <class T>
void Deserialize(const IData& data, const std::string& key, T& value) {
    detail::ReadFrom(data, key, value);
}

template <class T>
void Serialize(IData& data, const std::string& key, const Optional<T>& value) {
    detail::WriteTo(data, key, value);
}

template <class T>
void Deserialize(const IData& data, const std::string& key, Optional<T>& value) {
    detail::ReadFrom(data, key, value);
}

template <class T>
void SerializeVector(IData& data, const std::string& key, const std::vector<T>& values) {
    detail::WriteTo(data, key, values);
}

template <class T>
void DeserializeVector(const IData& data, const std::string& key, std::vector<T>& values) {
    detail::ReadFrom(data, key, values);
}

}  // namespace apigen

/// Instantiates the encoders of `type`, alone, in an optional and in a list. To stand at global scope.
#define APIGEN_INSTANTIATE_ENCODERS(type)                                                                    \
    template APIGEN_API void apigen::Serialize(IData&, const std::string&, const type&);                     \
    template APIGEN_API void apigen::Deserialize(const IData&, const std::string&, type&);                   \
    template APIGEN_API void apigen::Serialize(IData&, const std::string&, const apigen::Optional<type>&);   \
    template APIGEN_API void apigen::Deserialize(const IData&, const std::string&, apigen::Optional<type>&); \
    template APIGEN_API void apigen::SerializeVector(IData&, const std::string&, const std::vector<type>&);  \
    template APIGEN_API void apigen::DeserializeVector(const IData&, const std::string&, std::vector<type>&)
