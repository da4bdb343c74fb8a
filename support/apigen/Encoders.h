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

// A function behind a pointer knows a type; what calls it knows none, and stands in the libraries once.
using WriteFunction = void (*)(CTextWriter& writer, std::string_view key, const void* value);
template <class Reader>
using ReadFunction = void (*)(Reader& reader, std::string_view key, void* value);

/// Sets an optional to a value that `fill` has filled, unless that throws.
using FillFunction = void (*)(void* context, void* value);
using HoldFunction = void (*)(void* optional, FillFunction fill, void* context);

/// Makes room in a list for `count` more, adds an element and returns it, or drops the last one.
enum class EListStep {
    MakeRoom,
    Add,
    Drop
};
using ListFunction = void* (*)(void* list, EListStep step, std::size_t count);

struct SEncoder {
    std::size_t Size;                                                    // of a value
    std::string_view (*TextOf)(const void* value, UTextBuffer& buffer);  // none for what is no text
    WriteFunction Write;
    ReadFunction<CTextReader> ReadText;
    ReadFunction<CReader> ReadNode;
    HoldFunction Hold;  // none for what stands in no optional
    ListFunction List;  // none for what stands in no list
};

APIGEN_API void WriteOptional(CTextWriter& writer, std::string_view key, WriteFunction write,
                              const void* value);
APIGEN_API void WriteList(CTextWriter& writer, std::string_view key, WriteFunction write, const void* first,
                          std::size_t count, std::size_t size);
APIGEN_API void ReadOptional(CTextReader& reader, std::string_view key, ReadFunction<CTextReader> read,
                             HoldFunction hold, void* optional);
APIGEN_API void ReadOptional(CReader& reader, std::string_view key, ReadFunction<CReader> read,
                             HoldFunction hold, void* optional);
APIGEN_API void ReadList(CTextReader& reader, std::string_view key, ReadFunction<CTextReader> read,
                         ListFunction step, void* list, std::size_t size);
APIGEN_API void ReadList(CReader& reader, std::string_view key, ReadFunction<CReader> read, ListFunction step,
                         void* list, std::size_t size);

template <class T>
void WriteErased(CTextWriter& writer, std::string_view key, const void* value);
template <class Reader, class T>
void ReadErased(Reader& reader, std::string_view key, void* value);

template <class T>
void Hold(void* optional, FillFunction fill, void* context) {
    T present{};
    fill(context, &present);
    *static_cast<Optional<T>*>(optional) = std::move(present);
}

template <class T>
void* ListStep(void* list, EListStep step, std::size_t count) {
    auto& values = *static_cast<std::vector<T>*>(list);
    switch (step) {
        case EListStep::MakeRoom:
            values.reserve(values.size() + count);
            return nullptr;
        case EListStep::Add:
            return &values.emplace_back();
        case EListStep::Drop:
            values.pop_back();
    }
    return nullptr;
}

template <class T>
std::string_view TextOf(const void* value, UTextBuffer& buffer) {
    return FormatText(*static_cast<const T*>(value), buffer);
}

template <class T>
void Write(CTextWriter& writer, std::string_view key, const T& value) {
    if constexpr (IsPlain<T>) {
        UTextBuffer buffer;
        writer.Text(key, FormatText(value, buffer));
    } else if constexpr (IsOptional<T>) {
        using Value = typename T::value_type;
        if (!value.HasValue()) return;
        if constexpr (std::is_enum_v<Value>) {
            const int number = static_cast<int>(*value);
            WriteOptional(writer, key, &WriteErased<int>, &number);
        } else {
            WriteOptional(writer, key, &WriteErased<Value>, &*value);
        }
    } else if constexpr (IsVector<T>) {
        using Value = typename T::value_type;
        WriteList(writer, key, &WriteErased<Value>, value.data(), value.size(), sizeof(Value));
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
    if constexpr (IsPlain<T>) {
        ReadPlain(reader, key, value);
    } else if constexpr (IsOptional<T>) {
        using Value = typename T::value_type;
        if (!reader.Has(key)) return;
        ReadOptional(reader, key, &ReadErased<Reader, Value>, &Hold<Value>, &value);
    } else if constexpr (IsVector<T>) {
        using Value = typename T::value_type;
        ReadList(reader, key, &ReadErased<Reader, Value>, &ListStep<Value>, &value, sizeof(Value));
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

template <class T>
void WriteErased(CTextWriter& writer, std::string_view key, const void* value) {
    Write(writer, key, *static_cast<const T*>(value));
}
template <class Reader, class T>
void ReadErased(Reader& reader, std::string_view key, void* value) {
    Read(reader, key, *static_cast<T*>(value));
}

template <class T>
const SEncoder& EncoderOf<T>::Get() noexcept {
    static constexpr SEncoder Encoder = [] {
        SEncoder encoder{
            sizeof(T), nullptr, &WriteErased<T>, &ReadErased<CTextReader, T>, &ReadErased<CReader, T>,
            nullptr,   nullptr};
        if constexpr (IsPlain<T>) encoder.TextOf = &TextOf<T>;
        if constexpr (IsValue<T>) encoder.Hold = &Hold<T>;
        if constexpr (IsElement<T>) encoder.List = &ListStep<T>;
        return encoder;
    }();
    return Encoder;
}

}  // namespace detail
}  // namespace apigen

#define APIGEN_INSTANTIATE_ENCODER(type) \
    template APIGEN_API const apigen::detail::SEncoder& apigen::detail::EncoderOf<type>::Get() noexcept
