// SPDX-License-Identifier: MIT
//
// Code that the library's own warnings would reject. Applications may contain such code.
int client_taste(double value) {
    int whole = (int)value;
    unsigned char small = whole;
    {
        unsigned whole = -1;
        small = whole;
    }
    return small;
}
