// SPDX-License-Identifier: Apache-2.0
/// \file
/// The encoders' short way: between a value and its text, without a container between.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Export.h>
#include <apigen/Guid.h>
#include <apigen/Handle.h>
#include <apigen/Serialize.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "support/apigen/CTextReader.h"
#include "support/apigen/CXmlWriter.h"
#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"
#include "support/apigen/XmlText.h"

namespace apigen {

namespace detail {

/// True for what is a text under its key, and so replaces an earlier one in a container.
template <class T>
inline constexpr bool IsPlain =
    std::is_integral_v<T> || std::is_enum_v<T> || std::is_same_v<T, std::string> || std::is_same_v<T, Guid> ||
    std::is_same_v<T, Handle>;

/// Room for the text of a number or a GUID.
union UTextBuffer {
    SGuidBuffer Guid;
    SNumberBuffer Number;
};

/// The text of a plain value, which may stand in `buffer`.
template <class T>
std::string_view FormatText(const T& value, UTextBuffer& buffer) {
    if constexpr (std::is_same_v<T, std::string>) {
        return value;
    } else if constexpr (std::is_same_v<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_enum_v<T>) {
        return FormatNumber(static_cast<int>(value), buffer.Number);
    } else if constexpr (std::is_same_v<T, Handle>) {
        return FormatNumber(value.Value, buffer.Number);
    } else if constexpr (std::is_same_v<T, Guid>) {
        return FormatGuid(value, buffer.Guid);
    } else {
        return FormatNumber(value, buffer.Number);
    }
}

template <class Reader, class T>
void ReadPlain(Reader& reader, std::string_view key, T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        value = reader.Text(key);
    } else if constexpr (std::is_same_v<T, bool>) {
        const std::string_view text = reader.Text(key);
        value = text == "true" || text == "True" || text == "1";
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(ParseNumber<int>(reader.Text(key)));
    } else if constexpr (std::is_integral_v<T>) {
        value = ParseNumber<T>(reader.Text(key));
    } else if constexpr (std::is_same_v<T, Handle>) {
        value.Value = ParseNumber<std::uint64_t>(reader.Text(key));
    } else {
        value = ParseGuid(reader.Text(key));
    }
}

APIGEN_API void WriteText(CXmlWriter& writer, std::string_view key, const SSource& source);
APIGEN_API void ReadText(CTextReader& reader, std::string_view key, const STarget& target);
APIGEN_API bool ReadDocument(std::string_view document, std::string_view key, const STarget& target);

}  // namespace detail

/// Writes what `Serialize` and `SerializeVector` would add to a container.
template <class T>
void WriteText(CXmlWriter& writer, std::string_view key, const T& value) {
    if constexpr (detail::IsPlain<T>) {
        detail::UTextBuffer buffer;
        writer.Entry(key, detail::FormatText(value, buffer));
    } else {
        detail::WithSource(value,
                           [&](const detail::SSource& source) { detail::WriteText(writer, key, source); });
    }
}

/// Reads what `WriteText` has written.
template <class T>
void ReadText(CTextReader& reader, std::string_view key, T& value) {
    if constexpr (detail::IsPlain<T>) {
        detail::ReadPlain(reader, key, value);
    } else {
        detail::WithTarget(value,
                           [&](const detail::STarget& target) { detail::ReadText(reader, key, target); });
    }
}

/// The text of a document that holds nothing but the value under `key`.
template <class T>
std::string SerializeDocument(std::string_view key, const T& value) {
    CXmlWriter writer;
    const std::size_t opened = writer.Open(RootName);
    WriteText(writer, key, value);
    writer.Close(RootName, opened);
    return std::string(writer.Text());
}

/// Reads the value under `key` out of the text of a document that holds nothing else. False for any text that
/// is not just as it would be written; anything may stand in `value` then.
template <class T>
bool DeserializeText(std::string_view document, std::string_view key, T& value) {
    if constexpr (detail::IsPlain<T>) {
        CTextCursor cursor(document);
        CTextReader root(cursor, RootName);
        detail::ReadPlain(root, key, value);
        root.End();
        return cursor.IsWhollyRead();
    } else {
        bool isRead = false;
        detail::WithTarget(value, [&](const detail::STarget& target) {
            isRead = detail::ReadDocument(document, key, target);
        });
        return isRead;
    }
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
