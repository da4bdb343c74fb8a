// SPDX-License-Identifier: Apache-2.0
/// \file
/// GUID texts without a string in between.
#pragma once

#include <apigen/Export.h>
#include <apigen/Guid.h>

#include <string_view>

namespace apigen APIGEN_API {

struct SGuidBuffer {
    char Chars[38];
};

APIGEN_API std::string_view FormatGuid(const Guid& guid, SGuidBuffer& buffer);

/// As `Guid::Deserialize`.
APIGEN_API Guid ParseGuid(std::string_view text);

}  // namespace apigen
