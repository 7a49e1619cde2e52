// SPDX-License-Identifier: MIT
//
// The command that runs other commands.
#ifndef KESTROVA_APP_COMMANDS_SHELL_SHELLCOMMAND_H
#define KESTROVA_APP_COMMANDS_SHELL_SHELLCOMMAND_H

#include <vector>

#include "app/cli/command.h"

namespace app {

/// Runs parsed commands, up to "exit" or the first that fails. Returns the status of the last one.
ExitStatus runScript(Session& session, const std::vector<Invocation>& script);

/// Reads commands from the session's input and runs them. The shell's help page has the details.
ExitStatus runInput(Session& session);

}  // namespace app

#endif
