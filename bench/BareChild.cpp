// SPDX-License-Identifier: Apache-2.0
/// \file
/// The least that a child must do: says a byte, then takes messages of one size and answers with another.
/// Arguments: the sizes of a request and of an answer.
#include <stdlib.h>
#include <unistd.h>

namespace {

bool ReadAll(char* into, size_t size) {
    while (size != 0) {
        const ssize_t count = read(STDIN_FILENO, into, size);
        if (count <= 0) return false;
        into += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    static char bytes[1 << 16];
    if (write(STDOUT_FILENO, bytes, 1) != 1 || argc < 3) return 1;
    const size_t request = strtoul(argv[1], nullptr, 10);
    const size_t answer = strtoul(argv[2], nullptr, 10);
    while (ReadAll(bytes, request)) {
        if (write(STDOUT_FILENO, bytes, answer) != static_cast<ssize_t>(answer)) return 1;
    }
    return 0;
}
