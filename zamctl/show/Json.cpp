// SPDX-License-Identifier: Apache-2.0
#include "show/Json.h"

#include <apigen/Fields.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>
#include <zamclientlib/RecordText.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

#include "show/Characters.h"
#include "show/JsonScan.h"
#include "show/Words.h"

namespace zamctl {
namespace {

using zamclientlib::DaysOfWeek;
using zamclientlib::MonthType;
using zamclientlib::SCalendarInfo;
using zamclientlib::SDateTime;
using zamclientlib::STimeSpan;
using zamclientlib::SVersion;

template <class T>
inline constexpr bool IsVector = false;
template <class T>
inline constexpr bool IsVector<std::vector<T>> = true;

/// As ids are shown: without braces.
std::string GuidText(const apigen::Guid& id) {
    const std::string text = id.Serialize();
    return text.substr(1, text.size() - 2);
}

Json SecondsOf(const STimeSpan& span) {
    if (span.milliseconds == 0) return span.seconds;
    return static_cast<double>(span.seconds) + span.milliseconds / 1000.0;
}

SPlace PlaceAt(std::string_view text, std::size_t offset) {
    SPlace place;
    for (std::size_t i = 0; i < offset && i < text.size();) {
        const std::size_t length = std::max<std::size_t>(FirstCharacter(text.substr(i)).Length, 1);
        if (text[i] == '\n') {
            ++place.Line;
            place.Column = 1;
        } else {
            ++place.Column;
        }
        i += length;
    }
    return place;
}

/// The set of days or months that a field holds, instead of its number.
enum class ESet {
    None,
    Days,
    Months,
};

template <class Record>
ESet SetIn(std::string_view key) {
    if constexpr (std::is_same_v<Record, SCalendarInfo>) {
        if (key == "Days") return ESet::Days;
        if (key == "Months") return ESet::Months;
    }
    return ESet::None;
}

// Writing.

template <class Record>
Json RecordJson(const Record& record);

template <class T>
Json ValueJson(const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        return ValidUtf8(value);
    } else if constexpr (std::is_same_v<T, apigen::Guid>) {
        return GuidText(value);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return value;
    } else if constexpr (std::is_same_v<T, SVersion>) {
        return zamclientlib::ToText(value);
    } else if constexpr (std::is_same_v<T, SDateTime>) {
        std::string text = TimeText(value);
        return text.empty() ? Json() : Json(std::move(text));
    } else if constexpr (std::is_same_v<T, STimeSpan>) {
        return SecondsOf(value);
    } else if constexpr (zamclientlib::IsEnumeration<T>) {
        const std::string_view name = zamclientlib::NameOf(value);
        return name.empty() ? Json(static_cast<int>(value)) : Json(name);
    } else if constexpr (apigen::detail::IsOptional<T>) {
        return value ? ValueJson(*value) : Json();
    } else if constexpr (IsVector<T>) {
        Json list = Json::array();
        for (const auto& element : value)
            list.push_back(ValueJson(element));
        return list;
    } else {
        return RecordJson(value);
    }
}

template <class Record>
Json RecordJson(const Record& record) {
    Json object = Json::object();
    apigen::ForEachField(record, [&](const apigen::FieldInfo& info, const auto& value) {
        Json& field = object[std::string(info.Key)];
        if (info.IsSecret) return;
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, unsigned int>) {
            const ESet set = SetIn<Record>(info.Key);
            if (set != ESet::None) {
                field = set == ESet::Days ? zamclientlib::NamesOf<DaysOfWeek>(value)
                                          : zamclientlib::NamesOf<MonthType>(value);
                return;
            }
        }
        field = ValueJson(value);
    });
    return object;
}

// Reading.

/// Where a value stands, and whether it may be repeated in messages.
struct SWhere {
    std::string Path;
    bool IsSecret = false;
};

const char* TypeWords(const Json& json) {
    switch (json.type()) {
        case Json::value_t::null:
            return "null";
        case Json::value_t::object:
            return "an object";
        case Json::value_t::array:
            return "a list";
        case Json::value_t::string:
            return "a text";
        case Json::value_t::boolean:
            return "true or false";
        default:
            return "a number";
    }
}

[[noreturn]] void FailExpecting(const SWhere& where, const std::string& expected, const Json& json) {
    throw CFieldError(where.Path, "expected " + expected + ", not " + TypeWords(json));
}

/// A text of the user's for a message.
std::string Shown(const SWhere& where, const std::string& text) {
    return where.IsSecret ? "this" : Quoted(CutTo(text, 60));
}

std::string List(const std::vector<std::string>& words, std::string_view last) {
    std::string list;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i != 0) list += i + 1 == words.size() ? last : std::string_view(", ");
        list += words[i];
    }
    return list;
}

std::string Suggested(const std::string& word, const std::vector<std::string>& known) {
    const std::string nearest = Nearest(word, known);
    return nearest.empty() ? std::string() : "; did you mean " + Quoted(nearest) + '?';
}

[[noreturn]] void FailNamed(const SWhere& where, const std::string& word,
                            const std::vector<std::string>& known) {
    throw CFieldError(where.Path, Shown(where, word) + " is none of " + List(known, " and ") +
                                      (where.IsSecret ? std::string() : Suggested(word, known)));
}

[[noreturn]] void FailUnknown(const SWhere& where, const std::string& key,
                              const std::vector<std::string>& known) {
    std::string why = "no such field" + Suggested(key, known);
    if (why.back() != '?') why += "; there are " + List(known, " and ");
    throw CFieldError(FieldPath(where.Path, key), why);
}

const std::string& ReadText(const Json& json, const SWhere& where, const char* expected) {
    if (!json.is_string()) FailExpecting(where, expected, json);
    return json.get_ref<const std::string&>();
}

template <class Number>
void ReadNumber(const Json& json, Number& number, const SWhere& where) {
    constexpr Number Least = std::numeric_limits<Number>::min();
    constexpr Number Most = std::numeric_limits<Number>::max();
    const std::string range = std::to_string(Least) + " to " + std::to_string(Most);
    if (!json.is_number()) FailExpecting(where, "a whole number of " + range, json);
    if (json.is_number_unsigned()) {
        const auto value = json.get<std::uint64_t>();
        if (value <= static_cast<std::uint64_t>(Most)) {
            number = static_cast<Number>(value);
            return;
        }
    } else if (json.is_number_integer()) {
        const auto value = json.get<std::int64_t>();
        if (std::is_signed_v<Number> ? value >= static_cast<std::int64_t>(Least) : value >= 0) {
            number = static_cast<Number>(value);
            return;
        }
    } else if (const double value = json.get<double>(); std::fabs(value) < 1e18) {
        throw CFieldError(where.Path, "expected a whole number of " + range + ", not " + json.dump());
    }
    throw CFieldError(where.Path, (where.IsSecret ? "this" : json.dump()) + " is out of range: " + range);
}

template <class Enum>
std::vector<std::string> NamesOfMembers() {
    std::vector<std::string> names;
    for (const Enum member : zamclientlib::MembersOf<Enum>())
        names.emplace_back(zamclientlib::NameOf(member));
    return names;
}

/// The set of these names, and of bits without one as a number: as it is written.
template <class Enum>
unsigned int SetFrom(std::string_view names, const SWhere& where) {
    unsigned int set = 0;
    for (bool isMore = true; isMore;) {
        const std::size_t end = names.find_first_of("|,");
        isMore = end != std::string_view::npos;
        std::string_view name = names.substr(0, end);
        names.remove_prefix(isMore ? end + 1 : names.size());
        while (!name.empty() && name.front() == ' ')
            name.remove_prefix(1);
        while (!name.empty() && name.back() == ' ')
            name.remove_suffix(1);
        unsigned int bits = 0;
        const auto [stop, error] = std::from_chars(name.data(), name.data() + name.size(), bits);
        if (error != std::errc() || stop != name.data() + name.size()) {
            const auto member = zamclientlib::MemberNamed<Enum>(name);
            if (!member) FailNamed(where, std::string(name), NamesOfMembers<Enum>());
            bits = static_cast<unsigned int>(*member);
        }
        set |= bits;
    }
    return set;
}

void ReadSet(const Json& json, unsigned int& set, const SWhere& where, ESet kind) {
    const bool isDays = kind == ESet::Days;
    if (json.is_number()) {
        ReadNumber(json, set, where);
        return;
    }
    const std::string& names =
        ReadText(json, where, isDays ? "days such as \"Monday|Friday\"" : "months such as \"January|July\"");
    set = isDays ? SetFrom<DaysOfWeek>(names, where) : SetFrom<MonthType>(names, where);
}

void ReadSpan(const Json& json, STimeSpan& span, const SWhere& where) {
    if (!json.is_number()) FailExpecting(where, "seconds, a number", json);
    if (json.is_number_unsigned() && json.get<std::uint64_t>() <= std::numeric_limits<std::int64_t>::max()) {
        span = {static_cast<long>(json.get<std::uint64_t>()), 0};
        return;
    }
    if (!json.is_number_float() && !json.is_number_unsigned()) {
        span = {static_cast<long>(json.get<std::int64_t>()), 0};
        return;
    }
    const double seconds = json.get<double>();
    // Beyond this there are no milliseconds in a double.
    if (!(std::fabs(seconds) < 1e12)) {
        throw CFieldError(where.Path, json.dump() + " is out of range: -1e12 to 1e12 seconds");
    }
    const double whole = std::floor(seconds);
    const auto milliseconds = static_cast<long>(std::lround((seconds - whole) * 1000));
    span = {static_cast<long>(whole) + milliseconds / 1000, static_cast<unsigned short>(milliseconds % 1000)};
}

void ReadGuid(const Json& json, apigen::Guid& id, const SWhere& where) {
    const std::string& text = ReadText(json, where, "an id");
    const auto read = apigen::Guid::Parse(text);
    if (!read) {
        throw CFieldError(where.Path, Shown(where, text) +
                                          " is no id; one has 8-4-4-4-12 hexadecimal digits, "
                                          "\"0123abcd-0004-f00d-0102-030405060708\" for instance");
    }
    id = *read;
}

template <class Enum>
void ReadEnum(const Json& json, Enum& value, const SWhere& where) {
    if (json.is_number()) {
        int number = 0;
        ReadNumber(json, number, where);
        value = static_cast<Enum>(number);
        return;
    }
    if (!json.is_string()) {
        FailExpecting(where, "one of " + List(NamesOfMembers<Enum>(), " and "), json);
    }
    const auto& name = json.get_ref<const std::string&>();
    const auto member = zamclientlib::MemberNamed<Enum>(name);
    if (!member) FailNamed(where, name, NamesOfMembers<Enum>());
    value = *member;
}

template <class Record>
void ReadRecord(const Json& json, Record& record, const SWhere& where);

template <class T>
void ReadValue(const Json& json, T& value, const SWhere& where) {
    if constexpr (std::is_same_v<T, std::string>) {
        value = ReadText(json, where, "a text");
    } else if constexpr (std::is_same_v<T, apigen::Guid>) {
        ReadGuid(json, value, where);
    } else if constexpr (std::is_same_v<T, bool>) {
        if (!json.is_boolean()) FailExpecting(where, "true or false", json);
        value = json.get<bool>();
    } else if constexpr (std::is_arithmetic_v<T>) {
        ReadNumber(json, value, where);
    } else if constexpr (std::is_same_v<T, STimeSpan>) {
        ReadSpan(json, value, where);
    } else if constexpr (zamclientlib::IsEnumeration<T>) {
        ReadEnum(json, value, where);
    } else if constexpr (apigen::detail::IsOptional<T>) {
        if (json.is_null()) {
            value.Reset();
        } else {
            typename T::value_type content = value ? *value : typename T::value_type{};
            ReadValue(json, content, where);
            value = std::move(content);
        }
    } else if constexpr (IsVector<T>) {
        if (!json.is_array()) FailExpecting(where, "a list", json);
        T values(json.size());
        for (std::size_t i = 0; i < values.size(); ++i)
            ReadValue(json[i], values[i], {ElementPath(where.Path, i), where.IsSecret});
        value = std::move(values);
    } else {
        static_assert(!std::is_same_v<T, SVersion> && !std::is_same_v<T, SDateTime>,
                      "no record that is read has one yet");
        ReadRecord(json, value, where);
    }
}

template <class Record>
void ReadRecord(const Json& json, Record& record, const SWhere& where) {
    if (!json.is_object()) FailExpecting(where, "an object", json);
    for (const auto& item : json.items()) {
        const std::string& key = item.key();  // no binding: clang 14 captures none
        const Json& value = item.value();
        bool isKnown = where.Path.empty() && key == "$schema";
        apigen::ForEachField(record, [&](const apigen::FieldInfo& info, auto& field) {
            if (info.Key != key) return;
            isKnown = true;
            if (info.IsSecret && value.is_null()) return;
            const SWhere fieldWhere{FieldPath(where.Path, key), info.IsSecret};
            if constexpr (std::is_same_v<std::decay_t<decltype(field)>, unsigned int>) {
                const ESet set = SetIn<Record>(info.Key);
                if (set != ESet::None) {
                    ReadSet(value, field, fieldWhere, set);
                    return;
                }
            }
            ReadValue(value, field, fieldWhere);
        });
        if (isKnown) continue;
        std::vector<std::string> known;
        apigen::ForEachField(record, [&](const apigen::FieldInfo& info, const auto& /*field*/) {
            known.emplace_back(info.Key);
        });
        FailUnknown(where, key, known);
    }
}

}  // namespace

template <class Record>
Json ToJson(const Record& record) {
    return RecordJson(record);
}

template <class Record>
void FromJson(const Json& json, Record& record) {
    ReadRecord(json, record, {});
}

template Json ToJson(const zamclientlib::SBackupJobConfigurationInfo&);
template Json ToJson(const zamclientlib::SBackupJobInfo&);
template Json ToJson(const zamclientlib::SBackupJobSessionInfo&);
template Json ToJson(const zamclientlib::SBackupRepositoryInfo&);
template Json ToJson(const zamclientlib::SBackupRepositorySizeInfo&);
template Json ToJson(const zamclientlib::SBackupServerInfo&);
template Json ToJson(const zamclientlib::SBaseEvent&);
template Json ToJson(const zamclientlib::SCheckJobValidityMessage&);
template Json ToJson(const zamclientlib::SCloudServiceProviderInfo&);
template Json ToJson(const zamclientlib::SEthInterfaceInfo&);
template Json ToJson(const zamclientlib::SGatewayInfo&);
template Json ToJson(const zamclientlib::SInstallationInfo&);
template Json ToJson(const zamclientlib::SJobStartOptions&);
template Json ToJson(const zamclientlib::SLogDetail&);
template Json ToJson(const zamclientlib::SPackageInfo&);
template Json ToJson(const zamclientlib::SResolveObjectInfo&);
template Json ToJson(const zamclientlib::SRestoreOib&);
template Json ToJson(const zamclientlib::SSystemInformation&);
template Json ToJson(const zamclientlib::SZamControlOwnerInfo&);
template Json ToJson(const zamclientlib::SZamProductInfo&);

template void FromJson(const Json&, zamclientlib::SBackupJobConfigurationInfo&);
template void FromJson(const Json&, zamclientlib::SBackupRepositoryInfo&);
template void FromJson(const Json&, zamclientlib::SBackupServerInfo&);
template void FromJson(const Json&, zamclientlib::SCloudServiceProviderInfo&);
template void FromJson(const Json&, zamclientlib::SJobStartOptions&);

Json ParseJson(const std::string& text) {
    if (const auto mistake = MistakeOf(text)) throw CFieldError(PlaceAt(text, mistake->Offset), mistake->Why);
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw CFieldError(PlaceAt(text, error.byte == 0 ? 0 : error.byte - 1), "this can't be read as JSON");
    } catch (const Json::exception&) {
        // What is left: a number that no double holds. The library doesn't tell where.
        throw CFieldError(std::string(), "a number is too large");
    }
}

std::optional<SPlace> PlaceOf(const std::string& text, std::string_view path) {
    const auto offset = OffsetOf(text, path);
    if (!offset) return std::nullopt;
    return PlaceAt(text, *offset);
}

std::string JsonText(const Json& json, bool isIndented) {
    return json.dump(isIndented ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace zamctl
