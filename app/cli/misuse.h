// SPDX-License-Identifier: MIT
//
// What to say about words that cannot be run, and the next step. A hint names the command as it is
// called from where the words come from: within a shell without "kestrova".
#ifndef KESTROVA_APP_CLI_MISUSE_H
#define KESTROVA_APP_CLI_MISUSE_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// "; 'kestrova vars get --help' lists the options"
std::string optionsHint(const std::string& name, bool inShell);

/// For one or two words that name no command. Suggests the commands that are spelt like them.
std::string unknownCommand(const Words& words, bool inShell);

/// For a group, or nothing, without a command.
std::string missingCommand(const std::string& group, bool inShell);

/// For a word that names no option of a command, or of any if `name` is empty. Suggests the one of
/// the known long options that is spelt like it.
std::string unknownOption(const std::string& word, const Words& known, const std::string& name,
                          bool inShell);

/// Compares the number of arguments with the command's row, and runs the row's check.
Result checkArguments(const Command& command, const Words& arguments);

}  // namespace app

#endif
