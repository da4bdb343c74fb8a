// SPDX-License-Identifier: Apache-2.0
/// \file
/// A tool that misbehaves on demand: the first argument says how. Knows the framing by itself.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

void Write(int fd, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (count <= 0) std::exit(90);
        done += static_cast<std::size_t>(count);
    }
}

std::string Frame(const std::string& text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    std::string frame;
    for (int shift = 0; shift < 32; shift += 8)
        frame += static_cast<char>(size >> shift & 0xff);
    return frame + text;
}

bool Read(std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::read(0, bytes.data() + done, bytes.size() - done);
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool ReadFrame(std::string& text) {
    std::string header(4, '\0');
    if (!Read(header)) return false;
    std::uint32_t size = 0;
    for (int i = 3; i >= 0; --i)
        size = size << 8 | static_cast<unsigned char>(header[static_cast<std::size_t>(i)]);
    text.assign(size, '\0');
    return Read(text);
}

int Echo() {
    for (std::string text; ReadFrame(text);)
        Write(1, Frame(text));
    return 0;
}

int WaitForEndOfInput() {
    for (std::string byte(1, '\0'); Read(byte);) {
    }
    return 0;
}

[[noreturn]] void PauseForEver() {
    for (;;)
        ::pause();
}

std::string OpenDescriptors() {
    std::string list;
    DIR* const folder = ::opendir("/proc/self/fd");
    for (int fd = 0; fd < 4096; ++fd)
        if (fd != ::dirfd(folder) && ::fcntl(fd, F_GETFD) != -1) list += std::to_string(fd) + ' ';
    ::closedir(folder);
    return list;
}

std::string StatusLine(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name, 0) == 0) return line;
    return {};
}

const std::map<std::string, std::function<int(const Arguments&)>> Ways{
    {"echo", [](const Arguments&) { return Echo(); }},
    {"echo-byte-by-byte",
     [](const Arguments&) {
         for (std::string text; ReadFrame(text);)
             for (const char c : Frame(text))
                 Write(1, std::string(1, c));
         return 0;
     }},
    {"exit",
     [](const Arguments& arguments) {
         if (arguments.size() > 1) Write(2, arguments[1]);
         return std::stoi(arguments.at(0));
     }},
    {"say",  // writes bytes as they are, then waits for the end of its input
     [](const Arguments& arguments) {
         Write(1, arguments.at(0));
         return WaitForEndOfInput();
     }},
    {"usage",
     [](const Arguments&) {
         Write(1, "Usage: foo [--bar]\n");
         return 2;
     }},
    {"short-text",
     [](const Arguments&) {
         Write(1, "Hi!\nthere");
         return 0;
     }},
    {"two-bytes",
     [](const Arguments&) {
         Write(1, "no");
         return 0;
     }},
    {"announce-4-gib",
     [](const Arguments&) {
         Write(1, "\xff\xff\xff\xff");
         return WaitForEndOfInput();
     }},
    {"announce-limit",
     [](const Arguments&) {
         Write(1, std::string("\0\0\0\x10", 4));
         return WaitForEndOfInput();
     }},
    {"die-in-message",
     [](const Arguments&) -> int {
         Write(2, "first line\nassertion \x1b[31mfailed\n");
         Write(1, Frame(std::string(100, 'x')).substr(0, 9));
         ::raise(SIGKILL);
         return 0;
     }},
    {"silent", [](const Arguments&) { return WaitForEndOfInput(); }},
    {"silent-after-words",
     [](const Arguments&) {
         Write(2, "waiting for the lock\n");
         return WaitForEndOfInput();
     }},
    {"flood-error",
     [](const Arguments& arguments) {
         const std::string line(99, 'e');
         for (int left = std::stoi(arguments.at(0)); left > 0; left -= 100)
             Write(2, line + '\n');
         return Echo();
     }},
    {"lines",
     [](const Arguments& arguments) {
         for (int i = 1; i <= std::stoi(arguments.at(0)); ++i)
             Write(2, "line " + std::to_string(i) + '\n');
         return 1;
     }},
    {"close-input",
     [](const Arguments&) -> int {
         ::close(0);
         Write(1, Frame("closed"));
         PauseForEver();
     }},
    {"close-output",
     [](const Arguments&) -> int {
         ::close(1);
         return WaitForEndOfInput();
     }},
    {"ignore-end-of-input",
     [](const Arguments&) -> int {
         Write(1, Frame("ready"));
         PauseForEver();
     }},
    {"ignore-term",
     [](const Arguments&) -> int {
         ::signal(SIGTERM, SIG_IGN);
         Write(1, Frame("ready"));
         PauseForEver();
     }},
    {"become-root-and-stay",  // for a while, whatever it is asked
     [](const Arguments&) {
         if (::setresuid(0, 0, 0) != 0) return 1;
         ::alarm(20);
         for (;;)
             ::pause();
     }},
    {"burst",
     [](const Arguments& arguments) {
         std::string bytes;
         for (int i = 0; i < std::stoi(arguments.at(0)); ++i)
             bytes += Frame(std::to_string(i));
         Write(1, bytes);
         return WaitForEndOfInput();
     }},
    {"write-then-read",  // a big frame out before it reads one
     [](const Arguments& arguments) {
         Write(1, Frame(std::string(std::stoul(arguments.at(0)), 'b')));
         std::string text;
         if (!ReadFrame(text)) return 1;
         Write(1, Frame(std::to_string(text.size())));
         return 0;
     }},
    {"raw",
     [](const Arguments& arguments) {
         Write(1, std::string(std::stoul(arguments.at(0)), 'r'));
         return 0;
     }},
    {"raw-for-ever",
     [](const Arguments&) -> int {
         for (const std::string bytes(1000, 'r');;)
             Write(1, bytes);
     }},
    {"messages-for-ever",
     [](const Arguments&) -> int {
         for (const std::string frame = Frame(std::string(1000, 'm'));;)
             Write(1, frame);
     }},
    {"trickle-for-ever",
     [](const Arguments&) -> int {
         Write(1, Frame(std::string(100'000'000, 't')).substr(0, 4));
         for (;; ::poll(nullptr, 0, 1))
             Write(1, "t");
     }},
    {"leave-offspring",  // that keeps the streams open until the input ends
     [](const Arguments& arguments) -> int {
         if (::fork() == 0) return WaitForEndOfInput();
         for (const std::string& text : arguments)
             Write(1, Frame(text));
         return 5;
     }},
    {"answer-late",
     [](const Arguments& arguments) {
         ::poll(nullptr, 0, std::stoi(arguments.at(0)));
         return Echo();
     }},
    {"report",
     [](const Arguments& arguments) {
         std::string report = OpenDescriptors() + "\n" + StatusLine("SigBlk") + "\n" + StatusLine("SigIgn");
         for (const std::string& name : arguments) {
             const char* const value = std::getenv(name.c_str());
             report += "\n" + name + '=' + (value ? value : "(none)");
         }
         Write(1, Frame(report));
         return WaitForEndOfInput();
     }},
    {"arguments",
     [](const Arguments& arguments) {
         for (const std::string& argument : arguments)
             Write(1, Frame(argument));
         return WaitForEndOfInput();
     }},
};

}  // namespace

int main(int argc, char** argv) {
    const auto way = Ways.find(argc > 1 ? argv[1] : "");
    if (way == Ways.end()) return 99;
    return way->second(Arguments(argv + 2, argv + argc));
}
