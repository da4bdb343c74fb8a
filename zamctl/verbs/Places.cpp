// SPDX-License-Identifier: Apache-2.0
#include "verbs/Places.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <memory>

#include "agent/Interrupt.h"
#include "show/Terminal.h"
#include "show/Words.h"

namespace zamctl {

using zamclientlib::SServerConnectionInfo;

namespace {

[[noreturn]] void ThrowUnreadable(const std::string& path, const std::string& why) {
    throw CFailure(EExit::Usage, (path == "-" ? "standard input" : Quoted(path)) + " can't be read: " + why);
}

/// Ctrl-C ends it, as it does where somebody is to type the text.
std::string Whole(const std::string& path) {
    constexpr std::size_t Most = 16U << 20U;
    const int opened = path == "-" ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0 && path != "-") ThrowUnreadable(path, std::strerror(errno));
    const std::unique_ptr<const int, void (*)(const int*)> closing(&opened, [](const int* descriptor) {
        if (*descriptor >= 0) ::close(*descriptor);
    });
    const int in = opened < 0 ? STDIN_FILENO : opened;
    std::string text;
    std::vector<char> piece(65536);
    while (true) {
        std::array<pollfd, 2> ready{pollfd{in, POLLIN, 0}, pollfd{Interruption()->Descriptor(), POLLIN, 0}};
        ::poll(ready.data(), ready.size(), -1);
        if (InterruptedBy() != 0) throw CFailure(EExit::Interrupted, "interrupted");
        const ssize_t got = ready[0].revents != 0 ? ::read(in, piece.data(), piece.size()) : -1;
        if (got == 0) return text;
        if (got < 0 && (ready[0].revents == 0 || errno == EINTR)) continue;
        if (got < 0) ThrowUnreadable(path, std::strerror(errno));
        text.append(piece.data(), static_cast<std::size_t>(got));
        if (text.size() > Most) ThrowUnreadable(path, "it is longer than " + SizeWords(Most));
    }
}

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
    const std::string text = Whole(*path);
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
    return AskPassword(user.empty() ? "Password: " : "Password of " + Quoted(user) + ": ", false);
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

std::string FromRoot(const std::string& path) {
    if (path.empty() || path[0] == '/') return path;
    std::filesystem::path whole = std::filesystem::absolute(path);
    // A ".." behind a link leads elsewhere than its text says.
    if (std::find(whole.begin(), whole.end(), "..") == whole.end()) whole = whole.lexically_normal();
    std::string text = whole.string();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

void RequireOneOf(const CCall& call, const std::vector<const char*>& options) {
    std::string list;
    for (const char* const option : options) {
        if (call.Has(option)) return;
        list += std::string(list.empty() ? "say one of " : ", ") + option;
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
