// SPDX-License-Identifier: Apache-2.0
// What any program costs that is linked to the C++ library: it does nothing.
#include <iostream>

int main() {
    return std::cout.good() ? 0 : 1;
}
