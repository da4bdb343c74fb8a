// SPDX-License-Identifier: Apache-2.0
/// \file
/// Records as text and back, and the least that anybody must do to read them: find every '<'.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/Round.h"
#include "support/apigen/TextEncoders.h"

namespace zambench {

inline std::shared_ptr<apigen::IData> Parse(std::string&& text) {
    return apigen::CXmlData::Unserialize(std::move(text));
}

template <class Value>
std::string Encode(const Value& value) {
    return apigen::SerializeDocument("__result", value);
}

/// By way of a container, as a program does that has a text of its own, and keeps it.
template <class Record>
Record Decode(const std::string& text) {
    Record record;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(text), "__result", record);
    return record;
}

template <class Record>
std::vector<Record> DecodeList(const std::string& text) {
    std::vector<Record> records;
    apigen::DeserializeVector(*apigen::CXmlData::Unserialize(text), "__result", records);
    return records;
}

/// Straight from the text, as a proxy does.
template <class Value>
Value DecodeAnswer(std::string&& text) {
    Value value;
    Require(apigen::DeserializeText(text, "__result", value), "an answer in its usual form");
    return value;
}

inline std::size_t CountTags(std::string_view text) {
    std::size_t count = 0;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data();
         (at = static_cast<const char*>(std::memchr(at, '<', static_cast<std::size_t>(end - at)))) != nullptr;
         ++at)
        ++count;
    return count;
}

}  // namespace zambench
