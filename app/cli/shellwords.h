// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_CLI_SHELLWORDS_H
#define KESTROVA_APP_CLI_SHELLWORDS_H

#include <string_view>
#include <vector>

#include "app/cli/command.h"

namespace app {

/// Splits a text into commands, which end at ';' or a line end, and commands into words, between
/// blanks. Single and double quotes keep blanks and ';' within a word, a backslash outside of
/// single quotes keeps the next character, and '#' at the start of a word makes the rest of the
/// line a comment. Commands without words are left out. Fails when a quote is not closed.
Result splitCommands(std::string_view text, std::vector<Words>& commands);

}  // namespace app

#endif
