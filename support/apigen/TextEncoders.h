// SPDX-License-Identifier: Apache-2.0
/// \file
/// The encoders' short way: between a value and its text, without a container between.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Export.h>
#include <apigen/Serialize.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/apigen/CTextReader.h"
#include "support/apigen/CXmlWriter.h"
#include "support/apigen/XmlText.h"

namespace apigen {

/// Writes what `Serialize` and `SerializeVector` would add to a container. Instantiated with the encoders.
template <class T>
APIGEN_API void WriteText(CXmlWriter& writer, std::string_view key, const T& value);

/// Reads what `WriteText` has written. Instantiated with the encoders.
template <class T>
APIGEN_API void ReadText(CTextReader& reader, std::string_view key, T& value);

/// The text of a document that holds nothing but the value under `key`.
template <class T>
std::string SerializeDocument(std::string_view key, const T& value) {
    CXmlWriter writer;
    const std::size_t opened = writer.Open(RootName);
    WriteText(writer, key, value);
    writer.Close(RootName, opened);
    return std::string(writer.Text());
}

/// How many entries under `key` a long document that holds nothing else may have, going by its first one; 0
/// for a short one.
APIGEN_API std::size_t EstimateEntries(std::string_view document, std::string_view key);

/// A list is given its room at once. Never much more than the text has taken, whatever that pretends.
template <class T>
void MakeRoom(std::string_view document, std::string_view key, std::vector<T>& values) {
    const std::size_t count = std::min(EstimateEntries(document, key), 4 * document.size() / sizeof(T));
    values.reserve(count);
}
template <class T>
void MakeRoom(std::string_view /*document*/, std::string_view /*key*/, T& /*value*/) {}

/// Reads the value under `key` out of the text of a document that holds nothing else. False for any text that
/// is not just as it would be written; anything may stand in `value` then.
template <class T>
bool DeserializeText(std::string_view document, std::string_view key, T& value) {
    MakeRoom(document, key, value);
    CTextCursor cursor(document);
    CTextReader root(cursor, RootName);
    ReadText(root, key, value);
    root.End();
    return cursor.IsWhollyRead();
}

/// Reads the value under `key` out of the text of any document. Cheaper than a container for one that holds
/// nothing else.
template <class T>
T DeserializeDocument(std::string_view text, const std::string& key) {
    T value{};
    if (!DeserializeText(text, key, value)) {
        value = {};
        Deserialize(*CXmlData::Unserialize(std::string(text)), key, value);
    }
    return value;
}

/// Adds entries that were written as text to a container of any make.
APIGEN_API void AppendEntries(IData& data, std::string_view entries);

}  // namespace apigen
