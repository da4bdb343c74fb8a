// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Encoders.h"

#include "support/apigen/Envelope.h"
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

/// Adds the elements in `text`, which a writer made, to any container.
void AddTo(IData& data, std::string_view text) {
    CDocument document;
    CXmlParser(document).ParseBelowRoot(text);
    CopyEntries(document, CDocument::Root, data);
}

}  // namespace

void detail::WriteTo(IData& data, const std::string& key, WriteValue write, const void* value) {
    RequireKey(key);
    auto* const node = dynamic_cast<CXmlData*>(&data);
    if (node == nullptr || node->Node() != CDocument::Root) {
        CXmlWriter text;
        CTextWriter writer(text);
        write(writer, key, value);
        return AddTo(data, text.Text());
    }
    CXmlWriter& tail = node->Document().TailWriter();
    const std::size_t size = tail.Text().size();
    try {
        CTextWriter writer(tail);
        write(writer, key, value);
    } catch (...) {
        tail.CutTo(size);
        throw;
    }
    if (tail.Text().size() != size) node->Document().AddTailKey(key);
}

void detail::ReadFrom(const IData& data, std::string_view key, ReadValue read, void* value) {
    if (const auto* const node = dynamic_cast<const CXmlData*>(&data)) {
        node->Document().Index();
        CReader reader(node->Document(), node->Node());
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
