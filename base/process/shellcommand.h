// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_SHELLCOMMAND_H
#define KESTROVA_BASE_PROCESS_SHELLCOMMAND_H

#include <string>

namespace base {

/// Runs a simple command with system() and returns its raw status. The command gets /dev/null for
/// each standard stream that the caller does not have. Blocks until the command has exited;
/// meanwhile the whole process ignores SIGINT and SIGQUIT.
int runShell(const std::string& command);

}  // namespace base

#endif
