// SPDX-License-Identifier: Apache-2.0
#include "support/common/Text.h"

#include <string.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstddef>

namespace apigen::common {

namespace {

bool IsPrintable(unsigned char c) noexcept {
    return c >= 0x20 && c < 0x7f;
}

/// The length of the valid UTF-8 sequence beyond ASCII at the start of the text; 0 when there is none, or
/// when it names a control character.
std::size_t SequenceLength(std::string_view text) noexcept {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = at(0);
    const std::size_t length = lead >= 0xc2 && lead < 0xe0   ? 2
                               : lead >= 0xe0 && lead < 0xf0 ? 3
                               : lead >= 0xf0 && lead < 0xf5 ? 4
                                                             : 0;
    if (length == 0 || text.size() < length) return 0;
    unsigned long codePoint = lead & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xc0) != 0x80) return 0;
        codePoint = codePoint << 6 | (at(i) & 0x3fU);
    }
    const bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    const bool surrogate = codePoint >= 0xd800 && codePoint < 0xe000;
    const bool control = codePoint < 0xa0 || (codePoint >= 0x2028 && codePoint <= 0x202e) ||
                         (codePoint >= 0x2066 && codePoint <= 0x2069);
    return overlong || surrogate || control || codePoint > 0x10ffff ? 0 : length;
}

void AppendEscape(std::string& result, unsigned char c) {
    static constexpr char Digits[] = "0123456789abcdef";
    switch (c) {
        case '\n':
            result += "\\n";
            return;
        case '\r':
            result += "\\r";
            return;
        case '\t':
            result += "\\t";
            return;
        default:
            result.append("\\x").append(1, Digits[c >> 4]).append(1, Digits[c & 15]);
    }
}

}  // namespace

std::string Escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto c = static_cast<unsigned char>(text.front());
        const std::size_t plain = IsPrintable(c) ? 1 : SequenceLength(text);
        if (plain == 0) AppendEscape(result, c);
        result.append(text.substr(0, plain));
        text.remove_prefix(std::max<std::size_t>(plain, 1));
    }
    return result;
}

std::string Quoted(std::string_view text) {
    return '"' + Escaped(text) + '"';
}

bool LooksLikeText(std::string_view bytes) noexcept {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return IsPrintable(static_cast<unsigned char>(c)) || c == '\n' || c == '\r' || c == '\t';
    });
}

std::string ErrorText(int errorNumber) {
    const char* const text = ::strerrordesc_np(errorNumber);
    return text != nullptr ? text : "error " + std::to_string(errorNumber);
}

std::string EndingText(int waitStatus) {
    if (WIFEXITED(waitStatus)) return "exited with status " + std::to_string(WEXITSTATUS(waitStatus));
    if (WIFSIGNALED(waitStatus)) {
        const int signal = WTERMSIG(waitStatus);
        const char* const name = ::sigdescr_np(signal);
        return "was ended by signal " + std::to_string(signal) + (name ? " (" + std::string(name) + ')' : "");
    }
    return "ended in a way that is unknown: this program ignores SIGCHLD or collected the exit status "
           "elsewhere";
}

}  // namespace apigen::common
