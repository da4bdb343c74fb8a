// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/RequestText.h"

#include <charconv>
#include <cstring>

#include "support/apigen/NumberText.h"

namespace apigen {
namespace {

constexpr std::string_view HandleKey = envelope::HandleKey;
constexpr std::string_view MethodKey = envelope::MethodKey;

// With the keys known where they stand, little more than a few comparisons of words is left of these.

[[gnu::always_inline]] inline bool EndsInTag(std::string_view text, std::string_view key) {
    const std::size_t bytes = plain::EndTagBytes(key);
    const char* const end = text.data() + text.size();
    return text.size() >= bytes && plain::IsEndTag(end - bytes, end, key);
}

/// Takes the last element, a text, off the end of `text` and returns what it holds.
[[gnu::always_inline]] inline std::optional<std::string_view> TakeLast(std::string_view& text,
                                                                       std::string_view key) {
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

void EndRequest(CXmlWriter& text, Handle target, std::string_view method) {
    constexpr std::size_t Tags = plain::StartTagBytes(HandleKey) + plain::EndTagBytes(HandleKey) +
                                 plain::StartTagBytes(MethodKey) + plain::EndTagBytes(MethodKey) +
                                 plain::EndTagBytes(RootName);
    const auto put = [&](char* at) {
        at = plain::PutStartTag(at, HandleKey);
        at = std::to_chars(at, at + sizeof(SNumberBuffer), target.Value).ptr;
        at = plain::PutEndTag(at, HandleKey);
        at = plain::PutStartTag(at, MethodKey);
        at = plain::PutKey(at, method);
        at = plain::PutEndTag(at, MethodKey);
        return plain::PutEndTag(at, RootName);
    };
    text.Markup(Tags + sizeof(SNumberBuffer) + method.size(), put);
}

std::optional<SRequestParts> SplitRequest(std::string_view text) {
    if (!plain::IsStartTag(text.data(), text.data() + text.size(), RootName) || !EndsInTag(text, RootName)) {
        return {};
    }
    text.remove_prefix(plain::StartTagBytes(RootName));
    text.remove_suffix(plain::EndTagBytes(RootName));

    const auto method = TakeLast(text, MethodKey);
    const auto handle = method ? TakeLast(text, HandleKey) : std::nullopt;
    if (!handle) return {};
    SRequestParts parts{text, {}, *method};
    const char* const end = handle->data() + handle->size();
    const auto [stop, error] = std::from_chars(handle->data(), end, parts.Target.Value);
    if (error != std::errc() || stop != end) return {};
    return parts;
}

}  // namespace apigen
