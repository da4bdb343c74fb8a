// SPDX-License-Identifier: Apache-2.0
/// \file
/// A tool that serves, or misbehaves, as its environment says: ZAM_SCRIPT names the way, ZAM_RECORD a file
/// for what it sees.
#include <zamclientlib/Exceptions.h>
#include <zamservice/Service.h>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "tests/api/FakeInstaller.h"

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

void Record(const std::string& line) {
    const std::string path = Variable("ZAM_RECORD");
    if (!path.empty()) std::ofstream(path, std::ios::app) << line << std::endl;
}

void Write(int descriptor, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count <= 0) std::exit(90);
        done += static_cast<std::size_t>(count);
    }
}

std::string Frame(const std::string& text) {
    std::string frame;
    for (int shift = 0; shift < 32; shift += 8)
        frame += static_cast<char>(text.size() >> shift & 0xff);
    return frame + text;
}

int WaitForEndOfInput() {
    for (char bytes[4096]; ::read(STDIN_FILENO, bytes, sizeof bytes) > 0;) {
    }
    return 0;
}

int Say(const std::string& bytes) {
    Write(STDOUT_FILENO, bytes);
    return WaitForEndOfInput();
}

int Greet(const std::string& document) {
    return Say(Frame(document));
}

[[noreturn]] void PauseForEver() {
    for (;;)
        ::pause();
}

/// What a call makes the tool do besides answering.
void Misbehave(const std::string& call) {
    Record("call " + call);
    if (call == "GetPackageNameFromFile(print)") {
        std::cout << "chatter of a library" << std::endl;
        std::printf("more chatter\n");
        std::fflush(stdout);
        Write(STDOUT_FILENO, "raw chatter\n");
    } else if (call == "GetPackageNameFromFile(read)") {
        char byte = 0;
        Record("input gave " + std::to_string(::read(STDIN_FILENO, &byte, 1)));
    } else if (call == "GetPackageNameFromFile(die)") {
        Write(STDERR_FILENO, "assertion failed: x == y\n");
        ::raise(SIGKILL);
    } else if (call == "GetPackageNameFromFile(exit)") {
        Write(STDERR_FILENO, "giving up\n");
        ::_exit(7);
    } else if (call == "GetPackageNameFromFile(hang)") {
        WaitForEndOfInput();
        ::poll(nullptr, 0, -1);
    } else if (call == "GetPackageNameFromFile(locked)") {
        throw zamclientlib::CPackageManagerIsLocked("held by another");
    }
}

zamservice::CService MakeService() {
    const auto journal = std::make_shared<zamtest::SJournal>();
    journal->OnCall = Misbehave;
    journal->OnEnd = [](const std::string& name) { Record("end " + name); };
    return {std::make_shared<zamtest::CFakeInstaller>(journal)};
}

int Serve() {
    const int result = zamservice::ServeStandardStreams(MakeService);
    Record("served " + std::to_string(result));
    return result;
}

const std::map<std::string, std::function<int()>> Scripts{
    {"serve", Serve},
    {"fail-to-make-a-service",
     [] {
         return zamservice::ServeStandardStreams([]() -> zamservice::CService {
             throw zamclientlib::CPackageManagerIsLocked("held by process 7");
         });
     }},
    {"say", [] { return Say(Variable("ZAM_OUTPUT")); }},
    {"greet", [] { return Greet(Variable("ZAM_OUTPUT")); }},
    {"greet-and-say",
     [] {
         Write(STDOUT_FILENO, Frame("<Data><__handle>1</__handle></Data>"));
         char byte = 0;
         if (::read(STDIN_FILENO, &byte, 1) == 1) Write(STDOUT_FILENO, Variable("ZAM_OUTPUT"));
         return WaitForEndOfInput();
     }},
    {"greet-and-answer",  // every request alike
     [] {
         Write(STDOUT_FILENO, Frame("<Data><__handle>1</__handle></Data>"));
         for (char request[4096]; ::read(STDIN_FILENO, request, sizeof request) > 0;)
             Write(STDOUT_FILENO, Frame(Variable("ZAM_OUTPUT")));
         return 0;
     }},
    {"exit-at-once",
     [] {
         Write(STDERR_FILENO, "reading the configuration\nno licence found\n");
         return 3;
     }},
    {"die-in-frame",
     []() -> int {
         Write(STDOUT_FILENO, Frame(std::string(100, 'x')).substr(0, 9));
         ::raise(SIGKILL);
         return 0;
     }},
    {"announce-4-gib", [] { return Say("\xff\xff\xff\xff"); }},
    {"silent", [] { return WaitForEndOfInput(); }},
    {"flood-error-and-serve",
     [] {
         for (int i = 0; i < 80'000; ++i)
             Write(STDERR_FILENO, std::string(99, 'e') + '\n');
         return Serve();
     }},
    {"close-input",
     []() -> int {
         ::close(STDIN_FILENO);
         Write(STDOUT_FILENO, Frame("<Data><__handle>1</__handle></Data>"));
         PauseForEver();
     }},
    {"print",  // a plain text and an exit code, as the version query has them
     [] {
         const std::string padding(std::strtoul(Variable("ZAM_PADDING").c_str(), nullptr, 10), ' ');
         Write(STDERR_FILENO, "diagnostics\n");
         Write(STDOUT_FILENO, padding + Variable("ZAM_OUTPUT"));
         return std::atoi(Variable("ZAM_EXIT").c_str());
     }},
};

}  // namespace

int main(int argc, char** argv) {
    std::string line = "arguments";
    for (int i = 1; i < argc; ++i)
        line += std::string(" [") + argv[i] + ']';
    Record(line);
    const auto script = Scripts.find(Variable("ZAM_SCRIPT"));
    return script != Scripts.end() ? script->second() : 99;
}
