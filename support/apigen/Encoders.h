// SPDX-License-Identifier: Apache-2.0
/// \file
/// The definitions of the encoder family, for the sources that instantiate it for their types.
///
/// Every type is written and read by one rule, on top of small classes that know where: `CTextWriter` into a
/// text, `CTextReader` straight out of one, `CReader` out of a container, which is faster for `CXmlData` than
/// for any other `IData`.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Handle.h>
#include <apigen/Serialize.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/apigen/CTextReader.h"
#include "support/apigen/Document.h"
#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"
#include "support/apigen/TextEncoders.h"
#include "support/apigen/XmlText.h"

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

/// Reads the entries of one node: of a document of `CXmlData` on the flat tree itself, of any other container
/// through its interface.
class CReader {
public:
    CReader(const CDocument& document, NodeId node)
        : m_document(&document), m_node(node), m_next(document.FirstChild(node)) {}

    /// \param owner keeps `data` alive, or is empty when the caller does
    explicit CReader(const IData& data, std::shared_ptr<IData> owner = nullptr)
        : m_foreign(new SForeign{&data, std::move(owner), {}}) {}

    [[gnu::noinline]] bool Has(std::string_view key) const {
        return m_foreign ? m_foreign->Data->HasValue(std::string(key)) : Find(key) != CDocument::None;
    }

    /// Valid until the next call.
    [[gnu::noinline]] std::string_view Text(std::string_view key) {
        if (m_foreign) return m_foreign->Text = m_foreign->Data->GetString(std::string(key));
        const NodeId node = Take(key);
        if (m_document->HasChildren(node)) m_document->ThrowNoText(node);
        return m_document->Text(node);
    }

    [[gnu::noinline]] CReader Child(std::string_view key) {
        if (m_foreign) return CReader(m_foreign->Data->GetChild(std::string(key)));
        return {*m_document, Take(key)};
    }

    /// How many entries a list seems to have: for making room. The first ones are counted. A long list is taken
    /// to go on, but room is made for no more than a few times what the document takes.
    [[gnu::noinline]] std::size_t Count(std::string_view key, std::size_t entryBytes) const {
        constexpr std::size_t Many = 32;
        std::size_t count = 0;
        if (m_foreign) return count;
        for (NodeId node = Find(key); node != CDocument::None && m_document->HasKey(node, key);
             node = m_document->NextSibling(node)) {
            if (++count < Many) continue;
            return std::min(m_document->CountChildren(m_node),
                            Many + 2 * m_document->HeldBytes() / entryBytes);
        }
        return count;
    }

    void End() {}

    /// Reads one entry of a list into it; the list's type is known to the function alone.
    using ReadEntry = void (*)(CReader& entry, void* list);

    [[gnu::noinline]] void ForEachChild(std::string_view key, ReadEntry readEntry, void* list) {
        if (m_foreign) {
            for (auto& child : m_foreign->Data->GetChildren(std::string(key))) {
                CReader entry(std::move(child));
                readEntry(entry, list);
            }
            return;
        }
        NodeId node = Find(key);
        while (node != CDocument::None) {
            CReader entry(*m_document, node);
            readEntry(entry, list);
            Pass(node);
            node = m_document->FindFrom(m_document->NextSibling(node), key);
        }
    }

private:
    struct SForeign {
        const IData* Data;
        std::shared_ptr<IData> Owner;
        std::string Text;
    };

    /// Not inlined: every place that reads a record would have a copy.
    struct SDropForeign {
        [[gnu::noinline]] void operator()(SForeign* foreign) const noexcept { delete foreign; }
    };

    explicit CReader(std::shared_ptr<IData> data) : CReader(*data, data) {}

    /// The first entry under `key`. Fields mostly come in the order in which they are asked for, and as no
    /// field is read twice, what has been passed in that order needs no second look.
    NodeId Find(std::string_view key) const {
        return m_isInOrder ? m_document->FindFrom(m_next, key) : m_document->Find(m_node, key);
    }

    NodeId Take(std::string_view key) {
        if (m_next != CDocument::None && m_isInOrder && m_document->HasKey(m_next, key)) {
            return std::exchange(m_next, m_document->NextSibling(m_next));
        }
        return TakeOther(key);
    }

    [[gnu::noinline]] NodeId TakeOther(std::string_view key) {
        const NodeId node = Find(key);
        if (node == CDocument::None) m_document->ThrowMissing(m_node, key);
        Pass(node);
        return node;
    }

    /// Once an entry was taken out of turn, every search begins at the start.
    void Pass(NodeId taken) {
        m_isInOrder = m_isInOrder && taken == m_next;
        m_next = m_document->NextSibling(taken);
    }

    const CDocument* m_document = nullptr;
    NodeId m_node = CDocument::Root;
    NodeId m_next = CDocument::None;  // behind the entry that was taken last
    bool m_isInOrder = true;
    std::unique_ptr<SForeign, SDropForeign> m_foreign;
};

/// True for what is a text under its key, and so replaces an earlier one in a container.
template <class T>
inline constexpr bool IsPlain =
    std::is_integral_v<T> || std::is_enum_v<T> || std::is_same_v<T, std::string> || std::is_same_v<T, Guid> ||
    std::is_same_v<T, Handle>;

/// Calls `use` with the text of a plain value.
template <class T, class Use>
void WithText(const T& value, Use&& use) {
    if constexpr (std::is_same_v<T, std::string>) {
        use(std::string_view(value));
    } else if constexpr (std::is_same_v<T, bool>) {
        use(std::string_view(value ? "true" : "false"));
    } else if constexpr (std::is_enum_v<T>) {
        WithText(static_cast<int>(value), use);
    } else if constexpr (std::is_same_v<T, Handle>) {
        WithText(value.Value, use);
    } else if constexpr (std::is_same_v<T, Guid>) {
        SGuidBuffer buffer;
        use(FormatGuid(value, buffer));
    } else {
        SNumberBuffer buffer;
        use(FormatNumber(value, buffer));
    }
}

template <class T>
void Write(CTextWriter& writer, std::string_view key, const T& value) {
    if constexpr (IsPlain<T>) {
        WithText(value, [&](std::string_view text) { writer.Text(key, text); });
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
    } else if constexpr (IsRecord<T>) {
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
        const std::string_view text = reader.Text(key);
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
            child.End();
            value = std::move(present);
        }
    } else if constexpr (IsVector<T>) {
        value.reserve(value.size() + reader.Count(key, sizeof value[0]));
        constexpr auto readEntry = [](Reader& entry, void* list) {
            T& values = *static_cast<T*>(list);
            values.emplace_back();
            try {
                Read(entry, ItemKey, values.back());
                entry.End();
            } catch (...) {
                values.pop_back();
                throw;
            }
        };
        reader.ForEachChild(key, readEntry, &value);
    } else if constexpr (IsRecord<T>) {
        auto child = reader.Child(key);
        ForEachField(value, [&child](const FieldInfo& info, auto& field) { Read(child, info.Key, field); });
        child.End();
    } else {
        auto child = reader.Child(key);
        Codec<T>::Read(child, value);
        child.End();
    }
}

using WriteFunction = void (*)(CTextWriter& writer, std::string_view key, const void* value);
using ReadFunction = void (*)(CReader& reader, std::string_view key, void* value);

/// What is the same for all types: where to write to, in any container, and where to read from.
APIGEN_API void SetText(IData& data, const std::string& key, std::string_view text);
APIGEN_API void AppendTo(IData& data, std::string_view key, WriteFunction write, const void* value);
APIGEN_API void ReadFrom(const IData& data, std::string_view key, ReadFunction read, void* value);

// Functions of their own: a lambda in an exported template would be exported with it.
template <class T>
void WriteErased(CTextWriter& writer, std::string_view name, const void* object) {
    Write(writer, name, *static_cast<const T*>(object));
}
template <class T>
void ReadErased(CReader& reader, std::string_view name, void* object) {
    Read(reader, name, *static_cast<T*>(object));
}

template <class T>
void WriteTo(IData& data, const std::string& key, const T& value) {
    if constexpr (IsPlain<T>) {
        WithText(value, [&](std::string_view text) { SetText(data, key, text); });
    } else {
        AppendTo(data, key, &WriteErased<T>, &value);
    }
}

template <class T>
void ReadFrom(const IData& data, const std::string& key, T& value) {
    ReadFrom(data, key, &ReadErased<T>, &value);
}

}  // namespace detail

template <class T>
void WriteText(CXmlWriter& writer, std::string_view key, const T& value) {
    detail::CTextWriter text(writer);
    detail::Write(text, key, value);
}

template <class T>
void ReadText(CTextReader& reader, std::string_view key, T& value) {
    detail::Read(reader, key, value);
}

}  // namespace apigen

#define APIGEN_INSTANTIATE_TEXT_ENCODERS(type)                                              \
    template APIGEN_API void apigen::WriteText(CXmlWriter&, std::string_view, const type&); \
    template APIGEN_API void apigen::ReadText(CTextReader&, std::string_view, type&)

#define APIGEN_INSTANTIATE_ENCODER(type)                                                       \
    template APIGEN_API void apigen::detail::WriteTo(IData&, const std::string&, const type&); \
    template APIGEN_API void apigen::detail::ReadFrom(const IData&, const std::string&, type&)

/// Instantiates the encoders of `type`, alone and in an optional. To stand at global scope.
#define APIGEN_INSTANTIATE_PLAIN_ENCODERS(type)         \
    APIGEN_INSTANTIATE_ENCODER(type);                   \
    APIGEN_INSTANTIATE_TEXT_ENCODERS(type);             \
    APIGEN_INSTANTIATE_ENCODER(apigen::Optional<type>); \
    APIGEN_INSTANTIATE_TEXT_ENCODERS(apigen::Optional<type>)

/// As well in a list.
#define APIGEN_INSTANTIATE_ENCODERS(type)          \
    APIGEN_INSTANTIATE_PLAIN_ENCODERS(type);       \
    APIGEN_INSTANTIATE_ENCODER(std::vector<type>); \
    APIGEN_INSTANTIATE_TEXT_ENCODERS(std::vector<type>)
