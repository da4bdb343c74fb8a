// SPDX-License-Identifier: Apache-2.0
/// \file
/// A tool that keeps to the wire up to a byte that it is told, and then dies, stalls or lies. It uses nothing
/// of the library, so that it shares none of its faults, and starts fast enough to be started by the thousand.
///
/// Arguments are `key=value`, whatever else stands among them is ignored:
///
///   greet=TEXT        the greeting's document
///   answer=TEXT       the document that answers every request
///   answer-size=N     answers every request with a text of N bytes
///   answer=fds        answers with the descriptors that the tool found open at its start
///   answer=echo       answers with the text of the request's first element; "slow" comes late, "never" never
///   announce-greeting=N, announce=N   the length that is announced in place of the true one
///   out=K, in=K       after K bytes of output or of input ...
///   then=HOW          ... exit, kill, stall, or hang-up (closes its streams and stays)
///   piece=N           writes N bytes at a time; read-piece=N likewise
///   record=PATH       gets a line for the process id, each request, and the end of the input
///   mute=1            has its standard error closed
///   deaf=1            ignores SIGTERM and the end of its input
///   print=TEXT        prints it, and ends, as the version query has it
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

namespace {

std::map<std::string, std::string> g_options;  // NOLINT: a program of one file
std::string g_openAtStart;                     // NOLINT

std::string Option(const std::string& key, const std::string& otherwise = {}) {
    const auto found = g_options.find(key);
    return found != g_options.end() ? found->second : otherwise;
}

std::size_t Number(const std::string& key, std::size_t otherwise) {
    const std::string text = Option(key);
    return text.empty() ? otherwise : std::strtoul(text.c_str(), nullptr, 10);
}

void Record(const std::string& line) {
    const std::string path = Option("record");
    if (path.empty()) return;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    const std::string text = line + '\n';
    if (::write(file, text.data(), text.size()) < 0) ::_exit(91);
    ::close(file);
}

[[noreturn]] void Pause() {
    for (;;)
        ::pause();
}

[[noreturn]] void Then() {
    const std::string how = Option("then", "exit");
    if (how == "kill") ::raise(SIGKILL);
    if (how == "exit") ::_exit(3);
    if (how == "hang-up") {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
    }
    Pause();
}

void Write(const std::string& bytes) {
    static std::size_t left = Number("out", SIZE_MAX);
    static const std::size_t piece = std::max<std::size_t>(Number("piece", SIZE_MAX), 1);
    for (std::size_t done = 0; done < bytes.size();) {
        if (left == 0) Then();
        const std::size_t size = std::min({bytes.size() - done, left, piece});
        const ssize_t count = ::write(STDOUT_FILENO, bytes.data() + done, size);
        if (count <= 0) ::_exit(90);
        done += static_cast<std::size_t>(count);
        left -= static_cast<std::size_t>(count);
    }
    if (left == 0) Then();
}

/// False at the end of the input.
bool Read(char* into, std::size_t size) {
    static std::size_t left = Number("in", SIZE_MAX);
    static const std::size_t piece = std::max<std::size_t>(Number("read-piece", SIZE_MAX), 1);
    for (std::size_t done = 0; done < size;) {
        if (left == 0) Then();
        const ssize_t count = ::read(STDIN_FILENO, into + done, std::min({size - done, left, piece}));
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
        left -= static_cast<std::size_t>(count);
    }
    if (left == 0) Then();
    return true;
}

std::string Frame(const std::string& text, std::size_t announced) {
    std::string frame;
    for (int shift = 0; shift < 32; shift += 8)
        frame += static_cast<char>(announced >> shift & 0xff);
    return frame + text;
}

std::string Result(const std::string& text) {
    return "<Data><__result>" + text + "</__result></Data>";
}

std::string OpenDescriptors() {
    std::string all;
    DIR* const folder = ::opendir("/proc/self/fd");
    if (folder == nullptr) return "unknown";
    const std::string own = std::to_string(::dirfd(folder));
    while (const dirent* const entry = ::readdir(folder))  // NOLINT(concurrency-mt-unsafe): one thread
        if (entry->d_name[0] != '.' && entry->d_name != own) all += std::string(entry->d_name) + ' ';
    ::closedir(folder);
    return all;
}

/// The text of the first element below the root.
std::string FirstText(const std::string& request) {
    const std::size_t begin = request.find('>', request.find('>') + 1) + 1;
    return request.substr(begin, request.find('<', begin) - begin);
}

std::string AnswerTo(const std::string& request) {
    const std::string answer = Option("answer", "<Data><__result>true</__result></Data>");
    if (request.find("<__method>__dtr<") != std::string::npos) return "<Data/>";
    if (answer == "fds") return Result(g_openAtStart);
    if (answer == "echo") {
        const std::string text = FirstText(request);
        if (text == "never") Pause();
        if (text == "slow") {
            const timespec late{0, 300'000'000};
            ::nanosleep(&late, nullptr);
        }
        return Result(text);
    }
    const std::size_t size = Number("answer-size", 0);
    if (size == 0) return answer;
    std::string text;
    while (text.size() < size)
        text += std::to_string(text.size()) + ' ';
    text.resize(size);
    return Result(text);
}

}  // namespace

int main(int argc, char** argv) {
    g_openAtStart = OpenDescriptors();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t middle = argument.find('=');
        if (middle != std::string::npos) g_options[argument.substr(0, middle)] = argument.substr(middle + 1);
    }
    if (!Option("print").empty()) {
        Write(Option("print"));
        return 0;
    }
    if (!Option("deaf").empty()) ::signal(SIGTERM, SIG_IGN);
    if (!Option("mute").empty()) ::close(STDERR_FILENO);
    Record("pid " + std::to_string(::getpid()));

    const std::string greeting = Option("greet", "<Data><__handle>1</__handle></Data>");
    Write(Frame(greeting, Number("announce-greeting", greeting.size())));
    for (std::uint8_t header[4]; Read(reinterpret_cast<char*>(header), sizeof header);) {
        std::size_t length = 0;
        for (int i = 3; i >= 0; --i)
            length = length << 8 | header[i];
        std::string request(length, '\0');
        if (!Read(request.data(), length)) break;
        Record("request " + std::to_string(length));
        const std::string answer = AnswerTo(request);
        Write(Frame(answer, Number("announce", answer.size())));
    }
    Record("end");
    if (!Option("deaf").empty()) Pause();
    return 0;
}
