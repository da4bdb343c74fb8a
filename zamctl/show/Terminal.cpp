// SPDX-License-Identifier: Apache-2.0
#include "show/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "Failure.h"
#include "show/Words.h"

namespace zamctl {
namespace {

constexpr std::size_t MaximumLine = 64UL * 1024;

std::string_view Environment(const char* name) {
    const char* const value = ::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes it
    return value == nullptr ? std::string_view() : value;
}

std::string ErrorText() {
    return std::generic_category().message(errno);
}

/// A file that is closed at the end.
class CFile {
public:
    explicit CFile(int descriptor) : m_descriptor(descriptor) {}
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    ~CFile() {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }
    [[nodiscard]] int Get() const { return m_descriptor; }

private:
    int m_descriptor;
};

volatile sig_atomic_t g_signal = 0;

void TakeSignal(int signal) {
    g_signal = signal;
}

/// While one lives signals that end or stop the process wait, so that the terminal can be put right before. They come
/// only while `Wait` waits: none is missed just before it.
class CHeldSignals {
public:
    CHeldSignals() {
        g_signal = 0;
        sigset_t held;
        ::sigemptyset(&held);
        for (const int signal : Signals)
            ::sigaddset(&held, signal);
        ::pthread_sigmask(SIG_BLOCK, &held, &m_maskBefore);
        m_waiting = m_maskBefore;
        for (const int signal : Signals)
            ::sigdelset(&m_waiting, signal);
        struct sigaction action {};
        action.sa_handler = TakeSignal;
        for (std::size_t i = 0; i < Signals.size(); ++i)
            ::sigaction(Signals.at(i), &action, &m_before.at(i));
    }
    CHeldSignals(const CHeldSignals&) = delete;
    CHeldSignals& operator=(const CHeldSignals&) = delete;
    ~CHeldSignals() {
        for (std::size_t i = 0; i < Signals.size(); ++i)
            ::sigaction(Signals.at(i), &m_before.at(i), nullptr);
        ::pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
    }

    /// Until there is something to read; false when a signal came first.
    [[nodiscard]] bool Wait(int descriptor) const {
        pollfd ready{descriptor, POLLIN, 0};
        while (::ppoll(&ready, 1, nullptr, &m_waiting) < 0 && errno == EINTR) {
            if (g_signal != 0) return false;
        }
        return true;
    }

private:
    static constexpr std::array Signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
    std::array<struct sigaction, 5> m_before{};
    sigset_t m_maskBefore{};
    sigset_t m_waiting{};
};

/// No echo while one lives.
class CNoEcho {
public:
    explicit CNoEcho(int terminal)
        : m_terminal(terminal), m_hasBefore(::tcgetattr(terminal, &m_before) == 0) {
        if (!m_hasBefore) return;
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        ::tcsetattr(terminal, TCSAFLUSH, &quiet);
    }
    CNoEcho(const CNoEcho&) = delete;
    CNoEcho& operator=(const CNoEcho&) = delete;
    ~CNoEcho() {
        if (m_hasBefore) ::tcsetattr(m_terminal, TCSANOW, &m_before);
    }

private:
    int m_terminal;
    termios m_before{};  // before what fills it
    bool m_hasBefore;
};

enum class EEnd {
    Line,
    EndOfInput,
    Signal,
    TooLong,
    Error,
};

/// Reads a line byte by byte: what follows it is someone else's.
EEnd ReadLine(int descriptor, std::string& line, const CHeldSignals* signals) {
    for (;;) {
        char c = 0;
        if (signals != nullptr && !signals->Wait(descriptor)) return EEnd::Signal;
        const ssize_t count = ::read(descriptor, &c, 1);
        if (count < 0) {
            if (errno == EINTR) continue;
            return EEnd::Error;
        }
        if (count == 0) return EEnd::EndOfInput;
        if (c == '\n') return EEnd::Line;
        if (line.size() == MaximumLine) return EEnd::TooLong;
        line += c;
    }
}

void Tell(int terminal, std::string_view text) {
    // Where nothing can be shown, reading will fail as well.
    static_cast<void>(!::write(terminal, text.data(), text.size()));
}

int OpenTerminal(const char* hint) {
    const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0) throw CFailure(EExit::Usage, "there is no terminal to ask on", hint);
    return terminal;
}

/// Asks once. Empty when the user ended the input instead of answering.
std::optional<std::string> Ask(int terminal, const std::string& prompt, bool hasEcho) {
    for (;;) {
        std::string line;
        EEnd end = EEnd::Error;
        int signal = 0;
        {
            const CHeldSignals held;
            std::optional<CNoEcho> quiet;
            if (!hasEcho) quiet.emplace(terminal);
            Tell(terminal, prompt);
            end = ReadLine(terminal, line, &held);
            signal = g_signal;
            if (!hasEcho || end != EEnd::Line) Tell(terminal, "\n");
        }
        if (end == EEnd::Line) return line;
        ::explicit_bzero(line.data(), line.size());
        if (end == EEnd::Signal && signal == SIGTSTP) {
            ::raise(SIGTSTP);  // stops here; asks again afterwards
            continue;
        }
        if (end == EEnd::Signal) {
            if (signal != SIGINT) ::raise(signal);
            throw CFailure(EExit::Interrupted, "interrupted");
        }
        if (end == EEnd::TooLong) throw CFailure(EExit::Usage, "the line is longer than 64 KiB");
        return std::nullopt;
    }
}

unsigned WindowWidth(int descriptor) {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

bool IsInputTerminal() {
    return ::isatty(STDIN_FILENO) == 1;
}

bool IsOutputTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool IsErrorTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

unsigned TerminalWidth() {
    constexpr unsigned Least = 40;
    unsigned width = WindowWidth(STDOUT_FILENO);
    if (width == 0) {
        const std::string_view columns = Environment("COLUMNS");
        const auto [end, error] = std::from_chars(columns.data(), columns.data() + columns.size(), width);
        if (error != std::errc() || end != columns.data() + columns.size() || width == 0) width = 80;
    }
    return std::max(width, Least);
}

unsigned ErrorWidth() {
    const unsigned width = WindowWidth(STDERR_FILENO);
    return width == 0 ? 80 : width;
}

unsigned TerminalHeight() {
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row != 0 ? size.ws_row : 24;
}

bool HasColours() {
    const std::string_view kind = Environment("TERM");
    return IsOutputTerminal() && !kind.empty() && kind != "dumb" && Environment("NO_COLOR").empty();
}

bool Confirm(const std::string& question) {
    const CFile terminal(OpenTerminal("say --yes to answer the question beforehand"));
    const auto answer = Ask(terminal.Get(), Escaped(question) + " [y/N] ", true);
    if (!answer) return false;
    std::string word = *answer;
    while (!word.empty() && (word.back() == ' ' || word.back() == '\r'))
        word.pop_back();
    word.erase(0, word.find_first_not_of(' '));
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return word == "y" || word == "yes";
}

std::string AskPassword(const std::string& prompt, bool isNew) {
    const CFile terminal(OpenTerminal("give the password with --password-file"));
    auto password = Ask(terminal.Get(), Escaped(prompt) + ": ", false);
    if (!password) throw CFailure(EExit::Usage, "no password was given");
    if (isNew) {
        auto again = Ask(terminal.Get(), Escaped(prompt) + ", once more: ", false);
        const bool isSame = again == password;
        if (again) ::explicit_bzero(again->data(), again->size());
        if (!isSame) {
            ::explicit_bzero(password->data(), password->size());
            throw CFailure(EExit::Usage, "the two passwords differ");
        }
    }
    return std::move(*password);
}

std::string PasswordFrom(const std::string& path) {
    constexpr std::string_view Prefix = "fd:";
    int descriptor = -1;
    if (path.rfind(Prefix, 0) == 0) {
        const char* const end = path.data() + path.size();
        const auto [stop, error] = std::from_chars(path.data() + Prefix.size(), end, descriptor);
        if (error != std::errc() || stop != end || descriptor < 0) {
            throw CFailure(EExit::Usage, Quoted(path) + " names no descriptor",
                           "write fd:3 for instance, or ./fd:... for a file");
        }
        // Of its own, so that both are closed alike.
        descriptor = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    } else {
        descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    }
    const CFile file(descriptor);
    std::string line;
    if (file.Get() < 0) {
        throw CFailure(EExit::Usage, "the password can't be read from " + Quoted(path) + ": " + ErrorText());
    }
    const EEnd end = ReadLine(file.Get(), line, nullptr);
    if (end == EEnd::Error) {
        throw CFailure(EExit::Usage, "the password can't be read from " + Quoted(path) + ": " + ErrorText());
    }
    if (end == EEnd::TooLong) {
        ::explicit_bzero(line.data(), line.size());
        throw CFailure(EExit::Usage, "the first line of " + Quoted(path) + " is longer than 64 KiB");
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) throw CFailure(EExit::Usage, "the first line of " + Quoted(path) + " is empty");
    return line;
}

}  // namespace zamctl
