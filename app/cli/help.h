// SPDX-License-Identifier: MIT
//
// The help pages except their lists of options, which are in parse.cpp.
#ifndef KESTROVA_APP_CLI_HELP_H
#define KESTROVA_APP_CLI_HELP_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// Returns the page for a command, a group ("drive"), or all of kestrova (""), up to its options.
std::string helpBeforeOptions(const std::string& name);
/// Returns the rest of the page: exit statuses and examples.
std::string helpAfterOptions(const std::string& name);

/// Returns "vars set [OPTION...] NAME VALUE"; the options are those of the command only.
std::string synopsis(const Command& command);

}  // namespace app

#endif
