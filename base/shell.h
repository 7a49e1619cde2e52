// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_SHELL_H
#define KESTROVA_BASE_SHELL_H

#include <string>

namespace base {

/// Runs a simple command by system() and returns its raw status. Where the caller has no standard
/// stream the command gets /dev/null, as base/tool.h does it.
int runShell(const std::string& command);

}  // namespace base

#endif
