// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_SHELLCOMMAND_H
#define KESTROVA_BASE_PROCESS_SHELLCOMMAND_H

#include <string>

namespace base {

/// Runs a simple command by system() and returns its raw status. Where the caller has no standard
/// stream the command gets /dev/null. Blocks until the command has ended; meanwhile the whole
/// process ignores SIGINT and SIGQUIT.
int runShell(const std::string& command);

}  // namespace base

#endif
