// SPDX-License-Identifier: Apache-2.0
/// \file
/// How a request ends, in its writing and in its reading: the arguments, then the handle, then the method, then
/// the end of the root element.
#pragma once

#include <apigen/Export.h>
#include <apigen/Handle.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "support/apigen/CXmlWriter.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/PlainText.h"

namespace apigen APIGEN_API {

/// Begins the text of a request, or of an answer, with the root element.
inline void BeginDocument(CXmlWriter& text) {
    text.Markup(plain::StartTagBytes(RootName), [](char* at) { return plain::PutStartTag(at, RootName); });
}

/// Addresses a request and ends it.
/// \param method a name, of characters that stand for themselves
APIGEN_API void EndRequest(CXmlWriter& text, Handle target, std::string_view method);

/// The parts of a request's text, views into it. Only what stands there literally is seen: an argument may
/// still turn out to be something else.
struct SRequestParts {
    std::string_view Arguments;  ///< the elements before the envelope
    Handle Target;
    std::string_view Method;
};

/// Takes a text apart that ends as `EndRequest` makes it, without anything between. Nothing for any other text,
/// be it a request or not.
APIGEN_API std::optional<SRequestParts> SplitRequest(std::string_view text);

namespace detail {

inline constexpr std::string_view MethodKey = envelope::MethodKey;
inline constexpr std::string_view ReleaseMethod = envelope::ReleaseMethod;

// A plain array: the proxy in a static object is released when other static objects are gone already.
inline constexpr auto ReleaseEnding = [] {
    std::array<char, plain::StartTagBytes(MethodKey) + ReleaseMethod.size() + plain::EndTagBytes(MethodKey) +
                         plain::EndTagBytes(RootName)>
        text{};
    char* at = plain::PutStartTag(text.data(), MethodKey);
    at = plain::PutKey(at, ReleaseMethod);
    at = plain::PutEndTag(at, MethodKey);
    plain::PutEndTag(at, RootName);
    return text;
}();

}  // namespace detail

/// Whether a request, as `EndRequest` ends it, is an object's release.
constexpr bool IsReleaseRequest(std::string_view text) {
    return text.ends_with(std::string_view(detail::ReleaseEnding.data(), detail::ReleaseEnding.size()));
}

/// The answer that says nothing, as every service sends it for a release.
inline constexpr std::string_view EmptyAnswer = plain::EmptyDocument;

}  // namespace apigen
