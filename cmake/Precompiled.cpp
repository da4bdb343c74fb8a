// SPDX-License-Identifier: Apache-2.0
// Stands for its target; what counts is the header that is compiled with it.
int main() {
    return 0;
}
