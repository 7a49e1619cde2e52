// SPDX-License-Identifier: MIT
//
// Messages about words that cannot be run, with the next step. A hint names the command as the user
// must type it: within a shell without "kestrova".
#ifndef KESTROVA_APP_CLI_MISUSE_H
#define KESTROVA_APP_CLI_MISUSE_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// "; 'kestrova vars get --help' lists the options"
std::string optionsHint(const std::string& name, bool inShell);

/// Message for one or two words that do not name a command. Suggests similar commands.
std::string unknownCommand(const Words& words, bool inShell);

/// Message for a group, or nothing, without a command.
std::string missingCommand(const std::string& group, bool inShell);

/// Message for a word that is not an option of the command, or of any command if `name` is empty.
/// Suggests a similar one of the known long options.
std::string unknownOption(const std::string& word, const Words& known, const std::string& name,
                          bool inShell);

/// Compares the number of arguments with the command's row, and runs the row's check.
Result checkArguments(const Command& command, const Words& arguments);

}  // namespace app

#endif
