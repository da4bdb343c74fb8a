// SPDX-License-Identifier: Apache-2.0
// Any text as a number, a boolean and a GUID: it means what reading it from a plain stream gives.
#include <apigen/CXmlData.h>
#include <apigen/Guid.h>
#include <apigen/Serialize.h>

#include <cstddef>
#include <cstdint>
#include <ios>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#include "support/apigen/GuidText.h"
#include "support/apigen/NumberText.h"
#include "tests/fuzz/Check.h"

namespace {

/// A stream that reads `text`; one for all, as making one takes longer than reading from it.
std::istringstream& StreamOf(std::string_view text) {
    static std::istringstream stream = [] {
        std::istringstream made;
        made.imbue(std::locale::classic());
        return made;
    }();
    stream.clear();
    stream.str(std::string(text));
    stream.setf(std::ios::dec, std::ios::basefield);
    return stream;
}

template <class T>
T NumberByModel(std::string_view text) {
    T value = 0;
    StreamOf(text) >> value;
    return value;
}

/// One brace of either kind may be missing, as may be the whole text. The first three groups are numbers, with
/// one character behind each; then come eight times two digits, with one character after the first two pairs.
apigen::Guid GuidByModel(std::string_view text) {
    if (text.size() >= 2 && text.front() == '{') text.remove_prefix(1);
    if (!text.empty() && text.back() == '}') text.remove_suffix(1);
    apigen::Guid guid;
    char separator = 0;
    std::istringstream& stream = StreamOf(text);
    stream.setf(std::ios::hex, std::ios::basefield);
    if (!(stream >> guid.Data1 >> separator)) return guid;
    if (!(stream >> guid.Data2 >> separator)) return guid;
    if (!(stream >> guid.Data3 >> separator)) return guid;
    std::string pairs;
    for (std::size_t i = 0; i < 17; ++i) {
        char digit = 0;
        if (!(stream >> digit)) break;
        if (i != 4) pairs += digit;
    }
    for (std::size_t i = 0; 2 * i + 1 < pairs.size(); ++i) {
        std::istringstream& pair = StreamOf(std::string_view(pairs).substr(2 * i, 2));
        pair.setf(std::ios::hex, std::ios::basefield);
        unsigned value = 0;
        pair >> value;
        guid.Data4[i] = static_cast<std::uint8_t>(value);
    }
    return guid;
}

template <class T>
void CheckNumber(const apigen::IData& data, std::string_view text) {
    const T expected = NumberByModel<T>(text);
    T value = 17;
    apigen::Deserialize(data, "K", value);
    Require(value == expected, "an entry is the number that a stream reads", text);
    Require(apigen::ParseNumber<T>(text) == expected, "a text is the number that a stream reads", text);
    Require(apigen::ExtractNumber<T>(text) == expected, "the way through a stream reads as one", text);

    apigen::SNumberBuffer buffer;
    const std::string_view written = apigen::FormatNumber(value, buffer);
    Require(written == std::to_string(value), "a number is written in decimal digits", written);
    Require(apigen::ParseNumber<T>(written) == value, "what is written is read", written);
}

void CheckGuid(const apigen::IData& data, std::string_view text) {
    const apigen::Guid expected = GuidByModel(text);
    apigen::Guid guid;
    apigen::Deserialize(data, "K", guid);
    Require(guid == expected, "an entry is the GUID that a stream reads", text);
    Require(apigen::ParseGuid(text) == expected, "a text is the GUID that a stream reads", text);
    const std::string written = guid.Serialize();
    Require(written.size() == 38 && written.front() == '{' && written.back() == '}' &&
                written.find_first_not_of("0123456789abcdef-{}") == std::string::npos,
            "a GUID is written in lower case, within braces", written);
    Require(apigen::Guid::Deserialize(written) == guid && GuidByModel(written) == guid,
            "what is written is read", written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text =
        size == 0 ? std::string() : std::string(reinterpret_cast<const char*>(bytes), size);
    const auto data = apigen::CXmlData::CreateNew();
    data->SetString("K", text);
    CheckNumber<int>(*data, text);
    CheckNumber<long>(*data, text);
    CheckNumber<unsigned short>(*data, text);
    CheckNumber<unsigned int>(*data, text);
    CheckNumber<unsigned long>(*data, text);
    CheckGuid(*data, text);

    bool value = false;
    apigen::Deserialize(*data, "K", value);
    Require(value == (text == "true" || text == "True" || text == "1"), "three texts are true", text);
    return 0;
}
