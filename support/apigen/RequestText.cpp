// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/RequestText.h"

#include <charconv>
#include <cstring>

#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

bool EndsInTag(std::string_view text, std::string_view key) {
    const std::size_t bytes = plain::EndTagBytes(key);
    const char* const end = text.data() + text.size();
    return text.size() >= bytes && plain::IsEndTag(end - bytes, end, key);
}

/// Takes the last element, a text, off the end of `text` and returns what it holds.
std::optional<std::string_view> TakeLast(std::string_view& text, std::string_view key) {
    if (!EndsInTag(text, key)) return {};
    const std::string_view before = text.substr(0, text.size() - plain::EndTagBytes(key));
    const char* const end = before.data() + before.size();
    const auto* const tag = static_cast<const char*>(::memrchr(before.data(), '<', before.size()));
    if (tag == nullptr || !plain::IsStartTag(tag, end, key)) return {};
    const auto at = static_cast<std::size_t>(tag - before.data());
    text = text.substr(0, at);
    return before.substr(at + plain::StartTagBytes(key));
}

}  // namespace

void EndRequest(CXmlWriter& text, std::size_t opened, Handle target, std::string_view method) {
    SNumberBuffer buffer;
    text.Entry(envelope::HandleKey, FormatNumber(target.Value, buffer));
    text.Entry(envelope::MethodKey, method);
    text.Close(RootName, opened);
}

std::optional<SRequestParts> SplitRequest(std::string_view text) {
    if (!plain::IsStartTag(text.data(), text.data() + text.size(), RootName) || !EndsInTag(text, RootName)) {
        return {};
    }
    text.remove_prefix(plain::StartTagBytes(RootName));
    text.remove_suffix(plain::EndTagBytes(RootName));

    const auto method = TakeLast(text, envelope::MethodKey);
    const auto handle = method ? TakeLast(text, envelope::HandleKey) : std::nullopt;
    if (!handle) return {};
    SRequestParts parts{text, {}, *method};
    const char* const end = handle->data() + handle->size();
    const auto [stop, error] = std::from_chars(handle->data(), end, parts.Target.Value);
    if (error != std::errc() || stop != end) return {};
    return parts;
}

}  // namespace apigen
