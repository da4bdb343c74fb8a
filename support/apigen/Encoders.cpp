// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Encoders.h"

#include "support/apigen/Envelope.h"
#include "support/apigen/PlainText.h"
#include "support/apigen/XmlParser.h"

APIGEN_INSTANTIATE_ENCODER(std::string);
APIGEN_INSTANTIATE_ENCODER(int);
APIGEN_INSTANTIATE_ENCODER(long);
APIGEN_INSTANTIATE_ENCODER(unsigned short);
APIGEN_INSTANTIATE_ENCODER(unsigned int);
APIGEN_INSTANTIATE_ENCODER(unsigned long);
APIGEN_INSTANTIATE_ENCODER(apigen::Guid);
APIGEN_INSTANTIATE_ENCODER(apigen::Handle);
APIGEN_INSTANTIATE_ENCODER(bool);

namespace apigen {

namespace {

void CopyEntries(const CDocument& from, NodeId node, IData& to) {
    for (NodeId child = from.FirstChild(node); child != CDocument::None; child = from.NextSibling(child)) {
        const std::string key(from.Key(child));
        if (from.IsText(child)) {
            to.SetString(key, std::string(from.Text(child)));
        } else {
            CopyEntries(from, child, *to.CreateChild(key));
        }
    }
}

/// How many entries under `key` a long document that holds nothing else may have, going by its first one; 0
/// for a short one.
std::size_t EstimateEntries(std::string_view document, std::string_view key) {
    constexpr std::size_t WorthIt = 16 * 1024;
    if (document.size() < WorthIt) return 0;
    std::string tag(plain::EndTagBytes(key), '\0');
    plain::PutEndTag(tag.data(), key);
    const std::size_t end = document.find(tag);
    return end != std::string_view::npos && end != 0 ? document.size() / end : 0;
}

}  // namespace

void AppendEntries(IData& data, std::string_view entries) {
    CDocument document;
    CXmlParser(document.Tree()).ParseBelow(CDocument::Root, entries);
    CopyEntries(document, CDocument::Root, data);
}

namespace detail {

namespace {

void WriteSource(CTextWriter& writer, std::string_view key, const SSource& source) {
    const SEncoder& encoder = source.Encoder;
    switch (source.Shape) {
        case EShape::Value:
            return encoder.Write(writer, key, source.First);
        case EShape::Optional:
            if (source.Count != 0) WriteOptional(writer, key, encoder.Write, source.First);
            return;
        case EShape::List:
            return WriteList(writer, key, encoder.Write, source.First, source.Count, encoder.Size);
    }
}

template <class Reader>
void ReadTarget(Reader& reader, std::string_view key, ReadFunction<Reader> read, const STarget& target) {
    const SEncoder& encoder = target.Encoder;
    switch (target.Shape) {
        case EShape::Value:
            return read(reader, key, target.Object);
        case EShape::Optional:
            if (reader.Has(key)) ReadOptional(reader, key, read, encoder.Hold, target.Object);
            return;
        case EShape::List:
            return ReadList(reader, key, read, encoder.List, target.Object, encoder.Size);
    }
}

template <class Reader>
struct SChild {
    Reader& Content;
    ReadFunction<Reader> Read;
};

template <class Reader>
void ReadPresent(Reader& reader, std::string_view key, ReadFunction<Reader> read, HoldFunction hold,
                 void* optional) {
    auto content = reader.Child(key);
    SChild<Reader> child{content, read};
    constexpr auto fill = [](void* context, void* value) {
        const auto& [found, readValue] = *static_cast<SChild<Reader>*>(context);
        readValue(found, OptionalKey, value);
        found.End();
    };
    hold(optional, fill, &child);
}

template <class Reader>
struct SListed {
    void* List;
    ListFunction Step;
    ReadFunction<Reader> Read;
};

template <class Reader>
void ReadEntries(Reader& reader, std::string_view key, SListed<Reader> listed, std::size_t size) {
    listed.Step(listed.List, EListStep::MakeRoom, reader.Count(key, size));
    constexpr auto readEntry = [](Reader& entry, void* context) {
        const auto& [list, step, read] = *static_cast<SListed<Reader>*>(context);
        void* const value = step(list, EListStep::Add, 1);
        try {
            read(entry, ItemKey, value);
            entry.End();
        } catch (...) {
            step(list, EListStep::Drop, 1);
            throw;
        }
    };
    reader.ForEachChild(key, readEntry, &listed);
}

}  // namespace

void WriteOptional(CTextWriter& writer, std::string_view key, WriteFunction write, const void* value) {
    auto child = writer.Child(key);
    write(child, OptionalKey, value);
    child.End();
}

void WriteList(CTextWriter& writer, std::string_view key, WriteFunction write, const void* first,
               std::size_t count, std::size_t size) {
    const auto* value = static_cast<const char*>(first);
    for (; count != 0; --count, value += size) {
        auto child = writer.Child(key);
        write(child, ItemKey, value);
        child.End();
    }
}

void ReadOptional(CTextReader& reader, std::string_view key, ReadFunction<CTextReader> read,
                  HoldFunction hold, void* optional) {
    ReadPresent(reader, key, read, hold, optional);
}
void ReadOptional(CReader& reader, std::string_view key, ReadFunction<CReader> read, HoldFunction hold,
                  void* optional) {
    ReadPresent(reader, key, read, hold, optional);
}

void ReadList(CTextReader& reader, std::string_view key, ReadFunction<CTextReader> read, ListFunction step,
              void* list, std::size_t size) {
    ReadEntries<CTextReader>(reader, key, {list, step, read}, size);
}
void ReadList(CReader& reader, std::string_view key, ReadFunction<CReader> read, ListFunction step,
              void* list, std::size_t size) {
    ReadEntries<CReader>(reader, key, {list, step, read}, size);
}

void WriteText(CXmlWriter& writer, std::string_view key, const SSource& source) {
    CTextWriter text(writer);
    WriteSource(text, key, source);
}

void ReadText(CTextReader& reader, std::string_view key, const STarget& target) {
    ReadTarget(reader, key, target.Encoder.ReadText, target);
}

bool ReadDocument(std::string_view document, std::string_view key, const STarget& target) {
    // A list is given its room at once. Never much more than the text has taken, whatever that pretends.
    if (target.Shape == EShape::List) {
        const std::size_t count =
            std::min(EstimateEntries(document, key), 4 * document.size() / target.Encoder.Size);
        target.Encoder.List(target.Object, EListStep::MakeRoom, count);
    }
    CTextCursor cursor(document);
    CTextReader root(cursor, RootName);
    ReadTarget(root, key, target.Encoder.ReadText, target);
    root.End();
    return cursor.IsWhollyRead();
}

void Write(IData& data, const std::string& key, const SSource& source) {
    auto* const node = CXmlData::From(data);
    // A text replaces an earlier one.
    if (source.Shape == EShape::Value && source.Encoder.TextOf != nullptr) {
        UTextBuffer buffer;
        const std::string_view text = source.Encoder.TextOf(source.First, buffer);
        return node != nullptr ? node->SetText(key, text) : data.SetString(key, std::string(text));
    }
    RequireKey(key);
    const auto writeInto = [&](CXmlWriter& writer) { WriteText(writer, key, source); };
    if (node != nullptr && node->Document().AppendAsText(key, false, writeInto)) return;
    CXmlWriter writer;
    writeInto(writer);
    if (node == nullptr) return AppendEntries(data, writer.Text());
    CDocument& document = node->Document().Tree();
    document.Tidy();
    CXmlParser(document).ParseBelow(node->Node(), writer.Text());
}

void Read(const IData& data, const std::string& key, const STarget& target) {
    if (const auto* const node = CXmlData::From(data)) {
        CReader reader(node->Document().Tree(), node->Node());
        return ReadTarget(reader, key, target.Encoder.ReadNode, target);
    }
    CReader reader(data);
    ReadTarget(reader, key, target.Encoder.ReadNode, target);
}

}  // namespace detail
}  // namespace apigen

apigen::Handle apigen::HandleUtils::FromData(const IData& data) {
    Handle handle;
    Deserialize(data, envelope::HandleKey, handle);
    return handle;
}
