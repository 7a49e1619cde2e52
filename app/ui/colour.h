// SPDX-License-Identifier: MIT
//
// Colours single words on a terminal that supports it, unless NO_COLOR is set. Otherwise the text
// is unchanged.
#ifndef KESTROVA_APP_UI_COLOUR_H
#define KESTROVA_APP_UI_COLOUR_H

#include <string>
#include <string_view>

namespace app {

enum Colour {
    eRed = 31,
    eGreen = 32,
    eYellow = 33,
};

/// Sets which of the two streams show colours. Initially neither does.
void showColours(bool output, bool error);

/// For standard output.
std::string coloured(std::string_view text, Colour colour);
/// For standard error.
std::string colouredError(std::string_view text, Colour colour);

}  // namespace app

#endif
