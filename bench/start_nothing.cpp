// SPDX-License-Identifier: MIT
//
// Does nothing; what it is linked with makes the difference.
int main() {
    return 0;
}
