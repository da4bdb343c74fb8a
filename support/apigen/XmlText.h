// SPDX-License-Identifier: Apache-2.0
/// \file
/// The text form of a document: XML 1.0 in UTF-8, as docs/wire.md describes it.
#pragma once

#include <string>
#include <string_view>

#include "support/apigen/Document.h"
#include "support/apigen/PlainText.h"

namespace apigen APIGEN_API {

/// How many levels of elements a document may have, the root element being the first.
inline constexpr unsigned MaxXmlDepth = 256;

/// Parses `text` into an empty document, whose storage it becomes.
/// \throws BrokenMessageError with the reason and the offset of the fault in bytes.
APIGEN_API void ParseXml(std::string text, CDocument& document);

/// The text form of the entries below `node`, in a root element of their own.
/// \throws ApiInternalError when they are nested too deeply for a reader.
APIGEN_API std::string WriteXml(const CDocument& document, NodeId node);

}  // namespace apigen
