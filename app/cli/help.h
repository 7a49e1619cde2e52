// SPDX-License-Identifier: MIT
//
// The help pages, but for their lists of options, which parse.cpp has.
#ifndef KESTROVA_APP_CLI_HELP_H
#define KESTROVA_APP_CLI_HELP_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// The page for a command, a group ("drive"), or all of kestrova (""), up to its options.
std::string helpBeforeOptions(const std::string& name);
/// The rest of the page: exit statuses and examples.
std::string helpAfterOptions(const std::string& name);

/// "vars set [OPTION...] NAME VALUE"; the options are those of the command alone.
std::string synopsis(const Command& command);

}  // namespace app

#endif
