// SPDX-License-Identifier: MIT
//
// Does nothing; only the libraries that it is linked with differ.
int main() {
    return 0;
}
