// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_CLI_HELP_H
#define KESTROVA_APP_CLI_HELP_H

#include <string>

#include "app/cli/line.h"

namespace app {

struct Command;

/// Help for the whole (no words), for a group ("drive") or for a command (its name).
std::string helpText(const Words& topic);

/// "vars set NAME VALUE"
std::string synopsis(const Command& command);

/// The same with the options of the command: "vars set [--wait SECONDS] NAME VALUE".
std::string usageText(const Command& command);

}  // namespace app

#endif
