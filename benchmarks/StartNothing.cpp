// SPDX-License-Identifier: Apache-2.0
//
// Does nothing, with the libraries of the daemon: what is left of a start is the kernel's and the
// dynamic linker's part.
int main() {
    return 0;
}
