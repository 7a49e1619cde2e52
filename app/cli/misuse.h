// SPDX-License-Identifier: MIT
//
// Why words can't be run, and what to do about it. A hint names the command as it is called from
// where the words came from: inside of a shell without "kestrova".
#ifndef KESTROVA_APP_CLI_MISUSE_H
#define KESTROVA_APP_CLI_MISUSE_H

#include <string>

#include "app/cli/line.h"

namespace app {

struct Command;
struct OptionSpec;

/// "; 'kestrova --help' lists the commands"
std::string commandsHint(bool inShell);
/// "; 'kestrova vars get --help' lists its options"
std::string optionsHint(const std::string& command, bool inShell);

/// "; it takes N: verbosity of the library: 0 (silent), 1, 2 ..."
std::string valueHint(const OptionSpec& option);

/// Words that name no command; with the commands that are spelt much like them.
std::string unknownCommand(const Words& words, bool inShell);
/// A word that names no option; with the option that is spelt much like it.
std::string unknownOption(const std::string& word, bool inShell);

// The arguments against the synopsis of their command; empty when there is nothing to say.
std::string missingArgument(const Command& command, const Words& arguments);
std::string unexpectedArgument(const Command& command, const Words& arguments);

}  // namespace app

#endif
