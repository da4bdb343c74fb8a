// SPDX-License-Identifier: Apache-2.0
#include "service/Request.h"

#include <charconv>
#include <cstring>
#include <string>

#include "support/apigen/Envelope.h"
#include "support/apigen/XmlText.h"

namespace zamservice {
namespace {

struct STags {
    explicit STags(std::string_view key)
        : Start(std::string("<").append(key).append(">")), End(std::string("</").append(key).append(">")) {}
    std::string Start;
    std::string End;
};

/// Takes a text element off the end of `text` and returns what it holds.
std::optional<std::string_view> TakeLast(std::string_view& text, const STags& tags) {
    if (!text.ends_with(tags.End)) return {};
    text.remove_suffix(tags.End.size());
    const void* const tag = ::memrchr(text.data(), '<', text.size());
    if (tag == nullptr) return {};
    const auto at = static_cast<std::size_t>(static_cast<const char*>(tag) - text.data());
    if (!text.substr(at).starts_with(tags.Start)) return {};
    const std::string_view content = text.substr(at + tags.Start.size());
    text.remove_suffix(text.size() - at);
    return content;
}

}  // namespace

std::optional<SRequestParts> SplitRequest(std::string_view text) {
    static const STags root(apigen::RootName);
    static const STags handleTags(apigen::envelope::HandleKey);
    static const STags methodTags(apigen::envelope::MethodKey);
    if (!text.starts_with(root.Start) || !text.ends_with(root.End)) return {};
    text.remove_prefix(root.Start.size());
    text.remove_suffix(root.End.size());

    const auto method = TakeLast(text, methodTags);
    const auto handle = method ? TakeLast(text, handleTags) : std::nullopt;
    if (!handle) return {};
    SRequestParts parts{text, {}, *method};
    const char* const end = handle->data() + handle->size();
    const auto [stop, error] = std::from_chars(handle->data(), end, parts.Target.Value);
    if (error != std::errc() || stop != end) return {};
    return parts;
}

}  // namespace zamservice
