// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the golden texts of the records are made of.
#pragma once

#include <apigen/Guid.h>

#include <string>
#include <string_view>
#include <vector>

namespace zamtest {

/// A record and what stands between the tags of its node.
template <class Record>
struct SGolden {
    Record Value;
    std::string Text;
};

/// The rows of a record. The first has a value of its own, none of them the default, in every field.
template <class Record>
const std::vector<SGolden<Record>>& Goldens();

#define ZAM_GOLDENS(record, ...)                                                    \
    template <>                                                                     \
    inline const std::vector<SGolden<zamclientlib::record>>& Goldens() {            \
        using namespace zamclientlib;                                               \
        static const std::vector<SGolden<zamclientlib::record>> rows = __VA_ARGS__; \
        return rows;                                                                \
    }

inline apigen::Guid GuidOf(const char* text) {
    return apigen::Guid::Deserialize(text);
}

}  // namespace zamtest
