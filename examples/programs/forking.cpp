// SPDX-License-Identifier: Apache-2.0
// A program that forks: the child leaves the parent's connection alone and makes one of its own.
#include <zamclientlib/ZamClientLib.h>

#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

using namespace zamclientlib;

namespace {

int Child(std::shared_ptr<IZamControl>& inherited) {
    try {
        static_cast<void>(inherited->GetProductInfo());
    } catch (const apigen::ApiInternalError& error) {
        std::cout << "child: " << error.what() << std::endl;
    }
    inherited.reset();  // closes copies; the parent does not notice
    std::cout << "child: " << ConnectToAgent()->GetProductInfo().Name << std::endl;
    return 0;
}

}  // namespace

int main() {
    try {
        auto control = ConnectToAgent();
        const pid_t child = ::fork();
        if (child == 0) return Child(control);
        int status = 0;
        ::waitpid(child, &status, 0);
        std::cout << "parent: " << control->GetProductInfo().Name << std::endl;
        return status;
    } catch (const apigen::ApiException& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
