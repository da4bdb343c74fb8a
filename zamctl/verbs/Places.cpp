// SPDX-License-Identifier: Apache-2.0
#include "verbs/Places.h"

#include <algorithm>
#include <charconv>

#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/JobOptions.h"

namespace zamctl {

using zamclientlib::SServerConnectionInfo;

namespace {

SServerConnectionInfo AddressOf(const std::string& word) {
    const auto refuse = [&](const std::string& why) {
        throw CFailure(EExit::Usage, "--address can't be " + Quoted(word) + ": " + why,
                       "it is HOST, HOST:PORT or [IPV6]:PORT");
    };
    SServerConnectionInfo address{word, 0};
    std::string port;
    if (word.starts_with('[')) {
        const auto end = word.find(']');
        if (end == std::string::npos) refuse("a bracket is not closed");
        address.Address = word.substr(1, end - 1);
        port = word.substr(end + 1);
        if (!port.empty() && port[0] != ':') refuse("what follows the bracket is no port");
    } else if (std::count(word.begin(), word.end(), ':') == 1) {
        address.Address = word.substr(0, word.find(':'));
        port = word.substr(word.find(':'));
    }
    if (address.Address.empty()) refuse("there is no host in it");
    if (port.empty()) return address;
    const char* const end = port.data() + port.size();
    const auto read = std::from_chars(port.data() + 1, end, address.Port);
    if (read.ec != std::errc() || read.ptr != end || address.Port < 1 || address.Port > 65535)
        refuse("a port is a number from 1 to 65535");
    return address;
}

}  // namespace

std::optional<Json> FileOf(const CCall& call) {
    const auto path = call.Optional("--file");
    if (!path) return std::nullopt;
    const std::string text = ReadText(*path);
    try {
        return ParseJson(text);
    } catch (const CFieldError& error) {
        ThrowFileFault(call, error);
    }
}

void ThrowFileFault(const CCall& call, const CFieldError& error) {
    const std::string path = call.Value("--file");
    throw CFailure(EExit::Usage, (path == "-" ? "standard input" : Quoted(path)) + ": " + error.what());
}

std::optional<std::string> PasswordOf(const CCall& call, const std::string& user, bool isNew) {
    const auto file = call.Optional("--password-file");
    if (file && call.Has("--ask-password"))
        throw CFailure(EExit::Usage, "--password-file and --ask-password can't go together");
    if (file) return PasswordFrom(*file);
    const bool isAsked = call.Has("--ask-password") || (isNew && call.Has("--user"));
    if (!isAsked || call.Has("--dry-run")) return std::nullopt;
    return AskPassword(user.empty() ? "Password" : "Password of " + user, false);
}

std::vector<SServerConnectionInfo> AddressesOf(const CCall& call) {
    std::vector<SServerConnectionInfo> addresses;
    for (const auto& word : call.Values("--address"))
        addresses.push_back(AddressOf(word));
    return addresses;
}

std::string AddressWords(const std::vector<SServerConnectionInfo>& addresses) {
    std::string words;
    for (const auto& address : addresses) {
        if (!words.empty()) words += ", ";
        const bool isBracketed = address.Port != 0 && address.Address.find(':') != std::string::npos;
        words += isBracketed ? "[" + address.Address + "]" : address.Address;
        if (address.Port != 0) words += ":" + std::to_string(address.Port);
    }
    return words;
}

void RequireChange(const CCall& call) {
    std::string list;
    for (const auto& option : call.Verb().Options) {
        const std::string_view name = option.Name;
        if (name == DryRunOption.Name || name == ForceOption.Name) continue;
        if (call.Has(name)) return;
        list += (list.empty() ? "say one of " : ", ") + std::string(name);
    }
    throw CFailure(EExit::Usage, "what is to be changed?", list);
}

void ShowUnsent(CCall& call, const std::vector<SColumn>& columns, const Json& record, bool hasPassword) {
    if (hasPassword) call.Out.Note("the password, which is not shown, would be sent as well");
    if (call.Out.IsForPeople()) {
        call.Out.Raw(JsonText(record, true) + "\n");
    } else {
        call.Out.Item(columns, record);
    }
}

void ShowForPrograms(CCall& call, const std::vector<SColumn>& columns, const Json& item) {
    if (!call.Out.IsForPeople()) call.Out.Item(columns, item);
}

}  // namespace zamctl
