// SPDX-License-Identifier: Apache-2.0
// Hands a password on, from standard input to the agent, and keeps no copy of it: secrets ADDRESS
#include <zamclientlib/RecordText.h>
#include <zamclientlib/ZamClientLib.h>

#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

using namespace zamclientlib;

namespace {

/// Without a buffer in between, which would keep a copy.
void ReadLine(std::string& line) {
    line.reserve(256);  // growing leaves copies behind
    for (char next = 0; ::read(STDIN_FILENO, &next, 1) == 1 && next != '\n';) {
        line += next;
    }
}

void Wipe(std::string& text) {
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

/// The record that the agent has made of it.
SBackupServerInfo Add(IZamControl& control, const SBackupServerInfo& server) {
    const SZamControlOwnerInfo owner{apigen::Guid::Random(), "secrets", ZAMOwnerType::Local, {}};
    const auto product = control.RequestControl(owner, false);
    const auto servers = product ? product->GetBackupServerManager() : nullptr;
    if (servers == nullptr) throw CGenericException("The agent hands out no list of servers");
    return servers->AddBackupServer(server);
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) return 2;
    ::prctl(PR_SET_DUMPABLE, 0);  // no core image, and nobody else looks into the memory
    SBackupServerInfo server;
    server.Name = server.Username = "backup";
    server.Connection.push_back({argv[1], 10006});
    ReadLine(server.Password.emplace());
    std::cout << server << std::endl;  // ... Password: ***, ...

    int status = 0;
    try {
        const auto control = ConnectToAgent();
        std::cout << Add(*control, server) << std::endl;  // ... Password: none, ...
    } catch (const apigen::ApiException& error) {
        std::cerr << error.what() << '\n';
        status = 1;
    }
    Wipe(*server.Password);
    return status;
}
