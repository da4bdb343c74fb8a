// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <typeinfo>
#include <utility>

#include "support/apigen/Document.h"
#include "support/apigen/XmlText.h"

namespace apigen {
namespace {

/// A document and its root in one allocation.
struct SRootedDocument final : CDocument {
    CXmlData RootNode{*this, Root, nullptr};
};

std::shared_ptr<IData> ShareRoot(const std::shared_ptr<SRootedDocument>& document) {
    return {document, &document->RootNode};
}

std::shared_ptr<CXmlData> Share(CDocument& document, NodeId node) {
    return std::make_shared<CXmlData>(document, node, document.shared_from_this());
}

NodeId Require(const CDocument& document, NodeId parent, std::string_view key) {
    const NodeId found = document.Find(parent, key);
    if (found == CDocument::None) document.ThrowMissing(parent, key);
    return found;
}

}  // namespace

CXmlData::CXmlData(CDocument& document, std::uint32_t node, std::shared_ptr<CDocument> owner) noexcept
    : m_document(document), m_node(node), m_owner(std::move(owner)) {
    if (m_owner == nullptr) return;
    m_nextHandle = document.m_handles;
    m_toThis = &document.m_handles;
    if (m_nextHandle != nullptr) m_nextHandle->m_toThis = &m_nextHandle;
    document.m_handles = this;
}

CXmlData::~CXmlData() {
    if (m_toThis == nullptr) return;
    *m_toThis = m_nextHandle;
    if (m_nextHandle != nullptr) m_nextHandle->m_toThis = m_toThis;
}

const CXmlData* CXmlData::From(const IData& data) noexcept {
    // Nothing is derived from this class, so there is no need to search for it among bases.
    return typeid(data) == typeid(CXmlData) ? static_cast<const CXmlData*>(&data) : nullptr;
}

CXmlData* CXmlData::From(IData& data) noexcept {
    return const_cast<CXmlData*>(From(std::as_const(data)));
}

std::shared_ptr<IData> CXmlData::CreateNew() {
    return ShareRoot(std::make_shared<SRootedDocument>());
}

std::shared_ptr<IData> CXmlData::Unserialize(const std::string& text) {
    return Unserialize(std::string(text));
}

std::shared_ptr<IData> CXmlData::Unserialize(std::string&& text) {
    const auto document = std::make_shared<SRootedDocument>();
    ParseXml(std::move(text), *document);
    return ShareRoot(document);
}

std::string CXmlData::Serialize(const IData& data) {
    const auto* const node = From(data);
    if (node == nullptr) {
        throw ApiInternalError("Only a container that CXmlData made has a text form");
    }
    return WriteXml(node->m_document, node->m_node);
}

bool CXmlData::HasValue(const std::string& key) const {
    return m_document.Tree().Find(m_node, key) != CDocument::None;
}

std::shared_ptr<IData> CXmlData::CreateChild(const std::string& key) {
    CDocument& document = m_document.Tree();
    document.Tidy();
    const auto child =
        Share(document, CDocument::Root);  // first, so that nothing fails once the entry is there
    child->m_node = document.AppendNode(m_node, key);
    return child;
}

std::vector<std::shared_ptr<IData>> CXmlData::GetChildren(const std::string& key) const {
    CDocument& document = m_document.Tree();
    std::vector<std::shared_ptr<IData>> children;
    NodeId child = document.Find(m_node, key);
    while (child != CDocument::None) {
        children.push_back(Share(document, child));
        child = document.FindFrom(document.NextSibling(child), key);
    }
    return children;
}

std::shared_ptr<IData> CXmlData::GetChild(const std::string& key) const {
    CDocument& document = m_document.Tree();
    return Share(document, Require(document, m_node, key));
}

bool CXmlData::HasString(const std::string& key) const {
    const CDocument& document = m_document.Tree();
    const NodeId found = document.Find(m_node, key);
    return found != CDocument::None && !document.HasChildren(found);
}

void CXmlData::SetString(const std::string& key, const std::string& value) {
    SetText(key, value);
}

void CXmlData::SetText(std::string_view key, std::string_view text) {
    if (m_document.AppendAsText(key, true, [&](CXmlWriter& entries) { entries.Entry(key, text); })) return;
    CDocument& document = m_document.Tree();
    document.Tidy();
    const NodeId found = document.Find(m_node, key);
    if (found == CDocument::None) {
        document.AppendText(m_node, key, text);
    } else {
        document.SetText(found, text);
    }
}

std::string CXmlData::GetString(const std::string& key) const {
    const CDocument& document = m_document.Tree();
    const NodeId found = Require(document, m_node, key);
    if (document.HasChildren(found)) document.ThrowNoText(found);
    return std::string(document.Text(found));
}

}  // namespace apigen
