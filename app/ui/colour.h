// SPDX-License-Identifier: MIT
//
// Colours of single words, where a person sees them: on a terminal that can, unless NO_COLOR is
// set. Everywhere else the text stays as it is.
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

/// Tells which of the two streams show colours. Until then neither does.
void showColours(bool output, bool error);

/// For standard output.
std::string coloured(std::string_view text, Colour colour);
/// For standard error.
std::string colouredError(std::string_view text, Colour colour);

}  // namespace app

#endif
