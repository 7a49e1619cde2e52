// SPDX-License-Identifier: MIT
#include "app/ui/colour.h"

namespace app {

namespace {

// Set once, before any thread starts; global, like the streams themselves.
bool outputShows = false;
bool errorShows = false;

std::string painted(std::string_view text, Colour colour, bool shows) {
    if (!shows || text.empty()) {
        return std::string(text);
    }
    return "\033[" + std::to_string(colour) + "m" + std::string(text) + "\033[0m";
}

}  // namespace

void showColours(bool output, bool error) {
    outputShows = output;
    errorShows = error;
}

std::string coloured(std::string_view text, Colour colour) {
    return painted(text, colour, outputShows);
}

std::string colouredError(std::string_view text, Colour colour) {
    return painted(text, colour, errorShows);
}

}  // namespace app
