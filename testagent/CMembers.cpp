// SPDX-License-Identifier: Apache-2.0
#include "testagent/CMembers.h"

#include <algorithm>
#include <utility>

namespace testagent {

using nlohmann::json;

namespace {

constexpr std::size_t MaxShown = 100;  // characters of a value, in a message

/// What of a text a message can bear: a line of ASCII.
std::string Printable(std::string_view text, std::size_t most) {
    std::string printable(text.substr(0, most));
    std::replace_if(
        printable.begin(), printable.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return printable + (text.size() > most ? "..." : "");
}

/// The value as it stands in the text, if it is not too long.
std::string Shown(const json& value) {
    if (value.is_structured()) return value.is_array() ? "a list" : "an object";
    return Printable(value.dump(-1, ' ', true, json::error_handler_t::replace), MaxShown);
}

/// Follows the parser. It would keep the last of two members of one name, and read any depth.
class CWatcher {
public:
    bool See(json::parse_event_t event, const json& parsed) {
        using Event = json::parse_event_t;
        switch (event) {
            case Event::object_start:
            case Event::array_start:
                if (m_open.size() == MaxDepth) throw std::runtime_error(Place() + ": nested too deeply");
                m_open.push_back({event == Event::array_start, 0, {}, {}});
                break;
            case Event::key:
                m_open.back().Key = parsed.get<std::string>();
                if (!m_open.back().Keys.insert(m_open.back().Key).second) {
                    throw std::runtime_error(Place() + ": stands there twice; one is accepted");
                }
                break;
            case Event::object_end:
            case Event::array_end:
                m_open.pop_back();
                CountElement();
                break;
            case Event::value:
                CountElement();
                break;
        }
        return true;
    }

private:
    static constexpr std::size_t MaxDepth = 16;

    struct SOpen {
        bool IsList;
        std::size_t Index;
        std::string Key;
        std::set<std::string> Keys;
    };

    void CountElement() {
        if (!m_open.empty()) ++m_open.back().Index;
    }

    std::string Place() const {
        std::string place = "script";
        for (const auto& open : m_open) {
            place +=
                open.IsList ? "[" + std::to_string(open.Index) + "]" : "." + Printable(open.Key, MaxShown);
        }
        return place;
    }

    std::vector<SOpen> m_open;
};

}  // namespace

json ParseStrictly(const std::string& text) {
    CWatcher watcher;
    try {
        return json::parse(text, [&watcher](int /*depth*/, json::parse_event_t event, json& parsed) {
            return watcher.See(event, parsed);
        });
    } catch (const json::exception& error) {
        // Without the parser's own name of the error in front. It quotes what it has read, at any length.
        constexpr std::size_t MaxReason = 400;
        const std::string_view what = error.what();
        const auto end = what.find("] ");
        throw std::runtime_error(Printable(end == what.npos ? what : what.substr(end + 2), MaxReason));
    }
}

std::string Quoted(const std::string& text) {
    return Shown(text);
}

std::string Listed(const std::vector<std::string>& names) {
    std::string list;
    for (const auto& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

CMembers::CMembers(const json& object, std::string place) : m_object(object), m_place(std::move(place)) {
    if (!object.is_object()) Refuse("an object is expected, not " + Shown(object));
}

void CMembers::Refuse(const std::string& what) const {
    throw std::runtime_error(m_place + ": " + what);
}

void CMembers::Refuse(const char* name, const std::string& what) const {
    throw std::runtime_error(m_place + "." + name + ": " + what);
}

bool CMembers::ReadText(const char* name, std::string& value) {
    const json* const member = Take(name);
    if (member == nullptr) return false;
    if (!member->is_string()) Refuse(name, "a text is expected, not " + Shown(*member));
    value = member->get<std::string>();
    return true;
}

void CMembers::ReadTexts(const char* name, std::vector<std::string>& values) {
    const json* const list = TakeList(name);
    if (list == nullptr) return;
    values.clear();
    for (const json& element : *list) {
        if (!element.is_string()) Refuse(name, "a list of texts is expected; it holds " + Shown(element));
        values.push_back(element.get<std::string>());
    }
}

void CMembers::ReadFlag(const char* name, bool& value) {
    const json* const member = Take(name);
    if (member == nullptr) return;
    if (!member->is_boolean()) Refuse(name, "true or false is expected, not " + Shown(*member));
    value = member->get<bool>();
}

bool CMembers::ReadGuid(const char* name, apigen::Guid& value) {
    constexpr std::string_view Form = "00000000-0000-0000-0000-000000000000";
    std::string text;
    if (!ReadText(name, text)) return false;
    std::string_view bare = text;
    if (bare.size() == Form.size() + 2 && bare.front() == '{' && bare.back() == '}') {
        bare = bare.substr(1, Form.size());
    }
    const auto fits = [](char wanted, char is) {
        return wanted == '-' ? is == '-'
                             : std::string_view("0123456789abcdefABCDEF").find(is) != std::string_view::npos;
    };
    if (!std::equal(Form.begin(), Form.end(), bare.begin(), bare.end(), fits)) {
        Refuse(name, Quoted(text) +
                         " is no GUID; accepted are hexadecimal digits as in "
                         "{01234567-89ab-cdef-0123-456789abcdef}, with or without braces");
    }
    value = apigen::Guid::Deserialize(text);
    return true;
}

void CMembers::ReadMilliseconds(const char* name, std::chrono::milliseconds& value, std::uint64_t least) {
    auto count = static_cast<std::uint64_t>(value.count());
    ReadNumber(name, count, least, std::numeric_limits<int>::max());
    value = std::chrono::milliseconds(count);
}

void CMembers::Finish() const {
    for (const auto& member : m_object.items()) {
        if (m_known.count(member.key()) != 0) continue;
        Refuse("nothing is called " + Quoted(member.key()) + " here; accepted are " +
               Listed({m_known.begin(), m_known.end()}));
    }
}

const json* CMembers::Take(const char* name) {
    m_known.insert(name);
    const auto found = m_object.find(name);
    return found != m_object.end() ? &*found : nullptr;
}

const json* CMembers::TakeList(const char* name) {
    const json* const list = Take(name);
    if (list != nullptr && !list->is_array()) Refuse(name, "a list is expected, not " + Shown(*list));
    return list;
}

std::uint64_t CMembers::NumberOf(const char* name, const json& member, std::uint64_t least,
                                 std::uint64_t most) const {
    // A negative number is no unsigned one, and a fraction or a huge number is no integer.
    const bool isNumber = member.is_number_unsigned();
    const auto value = isNumber ? member.get<std::uint64_t>() : 0;
    if (!isNumber || value < least || value > most) {
        Refuse(name, "a whole number from " + std::to_string(least) + " to " + std::to_string(most) +
                         " is expected, not " + Shown(member));
    }
    return value;
}

}  // namespace testagent
