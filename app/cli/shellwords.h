// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_CLI_SHELLWORDS_H
#define KESTROVA_APP_CLI_SHELLWORDS_H

#include <string_view>
#include <vector>

#include "app/cli/command.h"

namespace app {

/// Splits a text into commands at ';' and newlines, and commands into words at blanks. Single and
/// double quotes protect blanks and ';', a backslash outside single quotes protects the next
/// character, and '#' at the start of a word starts a comment up to the end of the line. Commands
/// without words are dropped. Fails if a quote is not closed.
Result splitCommands(std::string_view text, std::vector<Words>& commands);

}  // namespace app

#endif
