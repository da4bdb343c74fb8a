// SPDX-License-Identifier: Apache-2.0
/// \file
/// The least that a child must do: says a byte, then takes messages of one size and answers with another.
/// Arguments: the sizes of a request and of an answer.
#include <stdlib.h>
#include <unistd.h>

namespace {

char Bytes[1 << 16];

size_t Part(size_t size) {
    return size < sizeof Bytes ? size : sizeof Bytes;
}

template <class Move>
bool MoveAll(Move&& move, size_t size) {
    while (size != 0) {
        const ssize_t count = move(Part(size));
        if (count <= 0) return false;
        size -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (write(STDOUT_FILENO, Bytes, 1) != 1 || argc < 3) return 1;
    const size_t request = strtoul(argv[1], nullptr, 10);
    const size_t answer = strtoul(argv[2], nullptr, 10);
    while (MoveAll([](size_t size) { return read(STDIN_FILENO, Bytes, size); }, request)) {
        if (!MoveAll([](size_t size) { return write(STDOUT_FILENO, Bytes, size); }, answer)) return 1;
    }
    return 0;
}
