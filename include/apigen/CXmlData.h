// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace apigen APIGEN_API {

class CDocument;

/// A container whose text form is an XML 1.0 document in UTF-8 (docs/wire.md describes it).
///
/// Every `std::string` survives the text form: what XML can't carry travels in base64.
class CXmlData final : public IData {
public:
    /// An empty document.
    static std::shared_ptr<IData> CreateNew();

    /// Parses a document.
    /// \throws ApiInternalError with the parser's reason and the offset, in bytes, of the fault.
    static std::shared_ptr<IData> Unserialize(const std::string& text);
    /// \overload
    /// Takes the text over instead of copying it.
    static std::shared_ptr<IData> Unserialize(std::string&& text);

    /// The text form of the document that `data`, a node made by this class, is the root of.
    /// \throws ApiInternalError when `data` is no node of this class.
    static std::string Serialize(const IData& data);

    bool HasValue(const std::string& key) const override;
    std::shared_ptr<IData> CreateChild(const std::string& key) override;
    std::vector<std::shared_ptr<IData>> GetChildren(const std::string& key) const override;
    std::shared_ptr<IData> GetChild(const std::string& key) const override;
    bool HasString(const std::string& key) const override;
    void SetString(const std::string& key, const std::string& value) override;
    std::string GetString(const std::string& key) const override;

    /// For the library's own code, which works on the document underneath.
    /// \param owner keeps `document` alive; empty for the node that is a part of it
    CXmlData(CDocument& document, std::uint32_t node, std::shared_ptr<CDocument> owner) noexcept;
    CXmlData(const CXmlData&) = delete;
    CXmlData& operator=(const CXmlData&) = delete;
    ~CXmlData() override;
    static CXmlData* From(IData& data) noexcept;  ///< null for a container of another make
    /// \copydoc From(IData&)
    static const CXmlData* From(const IData& data) noexcept;
    /// As `SetString`, from views.
    void SetText(std::string_view key, std::string_view text);
    /// The document that the node is in.
    CDocument& Document() const noexcept { return m_document; }
    /// The node's number in the document.
    std::uint32_t Node() const noexcept { return m_node; }

private:
    friend class CDocument;

    CDocument& m_document;
    std::uint32_t m_node;
    std::shared_ptr<CDocument> m_owner;
    CXmlData* m_nextHandle = nullptr;  // of those that have an owner, which the document knows
    CXmlData** m_toThis = nullptr;     // what points to this one
};

}  // namespace apigen
