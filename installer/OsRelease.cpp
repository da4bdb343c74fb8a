// SPDX-License-Identifier: Apache-2.0
#include "installer/OsRelease.h"

#include <algorithm>
#include <optional>

#include "installer/SmallFile.h"

namespace installer {
namespace {

bool IsName(std::string_view text) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    constexpr std::string_view digits = "0123456789";
    return !text.empty() && digits.find(text.front()) == std::string_view::npos &&
           std::all_of(text.begin(), text.end(), [&](char c) {
               return letters.find(c) != std::string_view::npos || digits.find(c) != std::string_view::npos;
           });
}

// The inside of a double-quoted text: a backslash escapes the shell's special characters only.
std::optional<std::string> DoubleQuoted(std::string_view text) {
    constexpr std::string_view escapable = "\"\\$`";
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') return std::nullopt;
        if (text[i] == '\\') {
            if (i + 1 == text.size()) return std::nullopt;
            if (escapable.find(text[i + 1]) != std::string_view::npos) ++i;
        }
        value += text[i];
    }
    return value;
}

std::optional<std::string> Unquoted(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (std::string_view("\"' \t").find(text[i]) != std::string_view::npos) return std::nullopt;
        if (text[i] == '\\' && ++i == text.size()) return std::nullopt;
        value += text[i];
    }
    return value;
}

std::optional<std::string> Value(std::string_view text) {
    if (text.empty() || (text.front() != '"' && text.front() != '\'')) return Unquoted(text);
    if (text.size() < 2 || text.back() != text.front()) return std::nullopt;
    const std::string_view inside = text.substr(1, text.size() - 2);
    if (text.front() == '"') return DoubleQuoted(inside);
    if (inside.find('\'') != std::string_view::npos) return std::nullopt;
    return std::string(inside);
}

}  // namespace

std::map<std::string, std::string> ParseOsRelease(std::string_view text) {
    std::map<std::string, std::string> assignments;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string line = Trimmed(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));

        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || !IsName(std::string_view(line).substr(0, equals))) continue;
        if (auto value = Value(std::string_view(line).substr(equals + 1))) {
            assignments[line.substr(0, equals)] = std::move(*value);
        }
    }
    return assignments;
}

}  // namespace installer
