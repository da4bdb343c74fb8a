// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Encoders.h"

#include "support/apigen/Envelope.h"
#include "support/apigen/PlainText.h"
#include "support/apigen/XmlParser.h"

APIGEN_INSTANTIATE_ENCODERS(std::string);
APIGEN_INSTANTIATE_ENCODERS(int);
APIGEN_INSTANTIATE_ENCODERS(long);
APIGEN_INSTANTIATE_ENCODERS(unsigned short);
APIGEN_INSTANTIATE_ENCODERS(unsigned int);
APIGEN_INSTANTIATE_ENCODERS(unsigned long);
APIGEN_INSTANTIATE_ENCODERS(apigen::Guid);
APIGEN_INSTANTIATE_ENCODERS(apigen::Handle);

// No list of booleans: nothing carries one, and std::vector<bool> has no elements to read into.
APIGEN_INSTANTIATE_PLAIN_ENCODERS(bool);

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

}  // namespace

std::size_t EstimateEntries(std::string_view document, std::string_view key) {
    constexpr std::size_t WorthIt = 16 * 1024;
    if (document.size() < WorthIt) return 0;
    std::string tag(plain::EndTagBytes(key), '\0');
    plain::PutEndTag(tag.data(), key);
    const std::size_t end = document.find(tag);
    return end != std::string_view::npos && end != 0 ? document.size() / end : 0;
}

void AppendEntries(IData& data, std::string_view entries) {
    CDocument document;
    CXmlParser(document.Tree()).ParseBelow(CDocument::Root, entries);
    CopyEntries(document, CDocument::Root, data);
}

void detail::SetText(IData& data, const std::string& key, std::string_view text) {
    if (auto* const node = CXmlData::From(data)) return node->SetText(key, text);
    data.SetString(key, std::string(text));
}

void detail::AppendTo(IData& data, std::string_view key, WriteFunction write, const void* value) {
    RequireKey(key);
    const auto writeInto = [&](CXmlWriter& text) {
        CTextWriter writer(text);
        write(writer, key, value);
    };
    auto* const node = CXmlData::From(data);
    if (node != nullptr && node->Document().AppendAsText(key, false, writeInto)) return;
    CXmlWriter writer;
    writeInto(writer);
    if (node == nullptr) return AppendEntries(data, writer.Text());
    CDocument& document = node->Document().Tree();
    document.Tidy();
    CXmlParser(document).ParseBelow(node->Node(), writer.Text());
}

void detail::ReadFrom(const IData& data, std::string_view key, ReadFunction read, void* value) {
    if (const auto* const node = CXmlData::From(data)) {
        CReader reader(node->Document().Tree(), node->Node());
        return read(reader, key, value);
    }
    CReader reader(data);
    read(reader, key, value);
}

}  // namespace apigen

apigen::Handle apigen::HandleUtils::FromData(const IData& data) {
    Handle handle;
    Deserialize(data, envelope::HandleKey, handle);
    return handle;
}
