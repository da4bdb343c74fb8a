// SPDX-License-Identifier: Apache-2.0
// Any document as any record, alone, in an optional and in a list: the ways of reading agree, and what was read
// survives the wire.
//
// The first element that is called like a record says which one is read; "SVersion.opt" is an optional of it,
// "SVersion.list" a list.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include "src/RecordList.h"
#include "support/apigen/TextEncoders.h"
#include "tests/fuzz/Check.h"

namespace {

/// A container of another make than the library's own, which reads it by its interface.
class CForeign final : public apigen::IData {
public:
    explicit CForeign(std::shared_ptr<apigen::IData> data) : m_data(std::move(data)) {}

    bool HasValue(const std::string& key) const override { return m_data->HasValue(key); }
    std::shared_ptr<apigen::IData> CreateChild(const std::string& key) override {
        return std::make_shared<CForeign>(m_data->CreateChild(key));
    }
    std::vector<std::shared_ptr<apigen::IData>> GetChildren(const std::string& key) const override {
        std::vector<std::shared_ptr<apigen::IData>> children = m_data->GetChildren(key);
        for (auto& child : children)
            child = std::make_shared<CForeign>(std::move(child));
        return children;
    }
    std::shared_ptr<apigen::IData> GetChild(const std::string& key) const override {
        return std::make_shared<CForeign>(m_data->GetChild(key));
    }
    bool HasString(const std::string& key) const override { return m_data->HasString(key); }
    void SetString(const std::string& key, const std::string& value) override {
        m_data->SetString(key, value);
    }
    std::string GetString(const std::string& key) const override { return m_data->GetString(key); }

private:
    std::shared_ptr<apigen::IData> m_data;
};

// One way in for values, optionals and lists.

template <class T>
void Read(const apigen::IData& data, const std::string& key, T& value) {
    apigen::Deserialize(data, key, value);
}
template <class T>
void Read(const apigen::IData& data, const std::string& key, std::vector<T>& values) {
    apigen::DeserializeVector(data, key, values);
}
template <class T>
void Write(apigen::IData& data, const std::string& key, const T& value) {
    apigen::Serialize(data, key, value);
}
template <class T>
void Write(apigen::IData& data, const std::string& key, const std::vector<T>& values) {
    apigen::SerializeVector(data, key, values);
}

struct SOutcome {
    std::string Text;  // as it is written again, when it was read
    bool IsRead = false;
};

template <class T>
SOutcome ReadFrom(const apigen::IData& data, const std::string& key) {
    T value{};
    try {
        Read(data, key, value);
    } catch (const apigen::ApiInternalError& error) {
        Require(typeid(error) == typeid(apigen::ApiInternalError), "what is missing is told as such",
                error.what());
        return {};
    }
    return {apigen::SerializeDocument(key, value), true};
}

template <class T>
SOutcome ReadShort(std::string_view text, const std::string& key) {
    T value{};
    if (!apigen::DeserializeText(text, key, value)) return {};
    return {apigen::SerializeDocument(key, value), true};
}

/// Each function of one type, so that what is done with them is compiled once.
struct SType {
    SOutcome (*Short)(std::string_view text, const std::string& key);
    SOutcome (*Container)(const apigen::IData& data, const std::string& key);
    std::string (*Rewrite)(const apigen::IData& data, const std::string& key);
};

template <class T>
std::string RewriteThroughContainer(const apigen::IData& data, const std::string& key) {
    T value{};
    Read(data, key, value);
    const auto written = apigen::CXmlData::CreateNew();
    Write(*written, key, value);
    return apigen::CXmlData::Serialize(*written);
}

template <class T>
constexpr SType TypeOf = {&ReadShort<T>, &ReadFrom<T>, &RewriteThroughContainer<T>};

const std::unordered_map<std::string_view, SType>& Types() {
    static const std::unordered_map<std::string_view, SType> types{
#define ZAM_TYPE(name)                                                                                 \
    {#name, TypeOf<zamclientlib::name>}, {#name ".opt", TypeOf<apigen::Optional<zamclientlib::name>>}, \
        {#name ".list", TypeOf<std::vector<zamclientlib::name>>},
        ZAM_FOR_EACH_RECORD(ZAM_TYPE)
#undef ZAM_TYPE
    };
    return types;
}

/// The type that the text names; null when it names none.
const std::pair<const std::string_view, SType>* TypeIn(std::string_view text) {
    while (true) {
        const std::size_t at = text.find("<S");
        if (at == std::string_view::npos) return nullptr;
        text.remove_prefix(at + 1);
        const std::string_view name = text.substr(0, text.find_first_of("> /\t\r\n"));
        const auto found = Types().find(name);
        if (found != Types().end()) return &*found;
    }
}

std::shared_ptr<apigen::IData> DocumentOf(const std::string& text) {
    try {
        return apigen::CXmlData::Unserialize(text);
    } catch (const apigen::BrokenMessageError&) {
        return nullptr;
    }
}

void CheckType(const std::string& text, const std::string& key, const SType& type) {
    const auto document = DocumentOf(text);
    const SOutcome quick = type.Short(text, key);
    if (document == nullptr) return Require(!quick.IsRead, "no document holds no record", text);

    const SOutcome slow = type.Container(*document, key);
    if (quick.IsRead)
        Require(slow.IsRead && slow.Text == quick.Text, "the short way reads the same", slow.Text);
    const SOutcome foreign = type.Container(CForeign(document), key);
    Require(foreign.IsRead == slow.IsRead && foreign.Text == slow.Text, "any container reads the same",
            slow.Text);
    if (!slow.IsRead) return;

    const auto again = DocumentOf(slow.Text);
    Require(again != nullptr, "what is written is a document", slow.Text);
    Require(type.Container(*again, key).Text == slow.Text, "what is written reads the same", slow.Text);
    Require(type.Rewrite(*again, key) == slow.Text, "any way writes the same", slow.Text);
    const bool isInBase64 = slow.Text.find(" encoding=\"base64\"") != std::string::npos;
    const SOutcome known = type.Short(slow.Text, key);
    if (known.IsRead)
        Require(known.Text == slow.Text, "what is written reads the same, the short way", slow.Text);
    else
        Require(isInBase64, "the short way knows what is written", slow.Text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const auto* const type = TypeIn(text)) CheckType(text, std::string(type->first), type->second);
    return 0;
}
